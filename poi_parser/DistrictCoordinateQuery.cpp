// Two answers reduced to one map position and a level: the district lookup
// (the first point of the district's geometry, the current city's level) and
// the coordinate query (an "x,y" text and a level text).
#include <cstdlib>
#include <cstring>
#include <string>

#include "poi_parser/OperationSchemas.h"
#include "poi_parser/ParserSupport.h"
#include "poi_parser/PoiJsonObjParser.h"

namespace _quarn_framework {

using namespace internal;

namespace {

// The working buffer of the coordinate query's x part: at most
// kPositionBufferSize - 1 bytes before the comma, then the terminating zero.
constexpr size_t kPositionBufferSize = 20;

// The service's coordinates are in hundredths of the map unit.
constexpr int kCoordinateScale = 100;

const CVString kCurrentCityKey = MakeKey(keys::kCurrentCity);
const CVString kLevelKey = MakeKey(keys::kLevel);
const CVString kXKey = MakeKey(keys::kX);
const CVString kYKey = MakeKey(keys::kY);

// The refusal of a district whose geometry gives no first point.
void ReportNoPoint(cJSON* district, int geometry_read) {
  cJSON* geo = FindMember(district, "geo");
  if (geo == nullptr || !IsJsonString(geo)) {
    diag::RefuseMember(district, "geo", geo, "a geometry text");
  } else {
    diag::Refuse(geo, geometry_read ? "geometry without a point" : "not a readable geometry");
  }
}

}  // namespace

// ---- What the operations read and store -----------------------------------------

namespace schema {
namespace {

// The first element of "content" is read as a POI record (a gate only) and
// for its "geo" geometry; the others are not read.
constexpr Member kDistrictGeo[] = {MakeMember("geo", Json::kString, kRequired)};
constexpr Member DistrictElement() {
  Member element = kPoiElement;
  element.members = kDistrictGeo;
  return element;
}
constexpr Member kDistrictFirst[] = {DistrictElement()};
constexpr Member kDistrictMembers[] = {
    ObjectMember("result", List<Member>(), kRequired),
    kCurrentCityMember,
    TupleMember("content", kDistrictFirst, kRequired),
};
constexpr Key kDistrictKeys[] = {
    CurrentCityKey("current_city"),
    ScalarKey(keys::kLevel, Value::kInt, kAlways, "current_city.level: 0 without a current-city record"),
    ScalarKey(keys::kX, Value::kDouble, kAlways,
              "content[0].geo: the first point's x, divided by 100 in integers"),
    ScalarKey(keys::kY, Value::kDouble, kAlways,
              "content[0].geo: the first point's y, divided by 100 in integers"),
};
constexpr const char* kDistrictRefusals[] = {
    "a null root or a \"result\" that is not an object; nothing is stored",
    "a \"content\" that is not a non-empty array, a first element that is not an object, or a \"geo\" "
    "geometry without a point; \"current_city\" is stored when present",
};

constexpr Member kCoordinateFirst[] = {
    MakeMember(nullptr, Json::kPosition, kRequired),
    MakeMember(nullptr, Json::kString, kRequired),
};
constexpr Member kCoordinateMembers[] = {TupleMember("content", kCoordinateFirst, kRequired)};
constexpr Key kCoordinateKeys[] = {
    ScalarKey(keys::kX, Value::kDouble, kAlways, "content[0]: the text before its first comma, as atof reads it"),
    ScalarKey(keys::kY, Value::kDouble, kAlways, "content[0]: the text after its first comma, as atof reads it"),
    ScalarKey(keys::kLevel, Value::kInt, kAlways, "content[1]: as atoi reads it, saturated beyond int32"),
};
constexpr const char* kCoordinateRefusals[] = {
    "a node that is not an object, a \"content\" that is not an array of at least two elements, an element 0 "
    "or 1 that is not a string, a position without a comma or with an x part of more than 19 bytes; "
    "nothing is stored",
};

}  // namespace

const OperationSchema kParseDistrictRst =
    Operation("The district answer: the current city, its level and the district's first point.",
              ObjectMember(nullptr, kDistrictMembers), kDistrictKeys, kDistrictRefusals);
const OperationSchema kParseEspecialQueryRst =
    Operation("The coordinate query answer: a position and a level, from \"content\": [\"x,y\", \"level\"].",
              ObjectMember(nullptr, kCoordinateMembers), kCoordinateKeys, kCoordinateRefusals);

}  // namespace schema

int CPoiJsonObjParser::ParseDistrictRst(cJSON* root, CVBundle& out) {
  if (root == nullptr) return RefuseNoAnswer();
  if (RequireObject(root, "result") == nullptr) return 0;

  // Kept to the end: "level" comes from it even when it was not stored
  // (then it holds no "level" and GetInt gives 0).
  CVBundle current_city;
  if (BuildMember(CJsonObjParser::GetCurrentCityFromJson, FindMember(root, "current_city"), current_city,
                  "an object")) {
    out.SetBundle(kCurrentCityKey, current_city);  // shares the block: O(1)
  }

  cJSON* content = RequireArray(root, "content");
  JsonElements contents(content);
  if (contents.empty()) {
    if (content != nullptr) diag::Refuse(content, "1 element needed, 0 found");
    return 0;
  }
  cJSON* district = *contents.begin();
  CVBundle poi;
  if (!GetPoiContentFromJson(district, poi)) {
    diag::RefuseNode(district, "an object");
    return 0;
  }

  CComplexPt geometry;
  const int geometry_read = CJsonObjParser::GetJsonItem(district, "geo", geometry);
  if (geometry.GetPartSize() == 0 || geometry.GetPartContentSize(0) == 0) {
    if (diag::Active()) ReportNoPoint(district, geometry_read);
    return 0;
  }

  out.SetInt(kLevelKey, current_city.GetInt(kLevelKey));
  // Integer division: the remainder is dropped, the quotient truncated
  // toward zero, before the value becomes a double.
  const _quarn_vi::CVPoint first = geometry.GetPartPt(0, 0);
  out.SetDouble(kXKey, static_cast<double>(first.x / kCoordinateScale));
  out.SetDouble(kYKey, static_cast<double>(first.y / kCoordinateScale));
  return 1;
}

int CPoiJsonObjParser::ParseEspecialQueryRst(cJSON* node, CVBundle& out) {
  if (!RequireRootObject(node)) return 0;
  cJSON* content = RequireArray(node, "content");
  if (content == nullptr) return 0;
  JsonElements elements(content);
  auto at = elements.begin();
  if (!(at != elements.end())) return diag::Refuse(content, "2 elements needed, 0 found"), 0;
  cJSON* position_node = *at;
  ++at;
  if (!(at != elements.end())) return diag::Refuse(content, "2 elements needed, 1 found"), 0;
  cJSON* level_node = *at;

  const char* position = JsonStringBytes(position_node);
  if (position == nullptr) return diag::RefuseNode(position_node, "a string"), 0;
  const char* comma = std::strchr(position, ',');
  if (comma == nullptr) return diag::Refuse(position_node, "no ',' between x and y"), 0;
  const size_t x_length = static_cast<size_t>(comma - position);
  if (x_length >= kPositionBufferSize) {
    if (diag::Active()) {
      diag::Refuse(position_node, "x of " + std::to_string(x_length) + " bytes, at most " +
                                                 std::to_string(kPositionBufferSize - 1) + " fit");
    }
    return 0;
  }
  const char* level = JsonStringBytes(level_node);
  if (level == nullptr) return diag::RefuseNode(level_node, "a string"), 0;

  char x_text[kPositionBufferSize];
  std::memcpy(x_text, position, x_length);
  std::memset(x_text + x_length, 0, kPositionBufferSize - x_length);
  out.SetDouble(kXKey, std::atof(x_text));
  out.SetDouble(kYKey, std::atof(comma + 1));
  out.SetInt(kLevelKey, LeadingDecimalInt(level));
  return 1;
}

}  // namespace _quarn_framework
