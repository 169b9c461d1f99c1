// The circum search answer: the places found around a centre, with the
// search's options, the current city and the hints, and the centre itself as
// a list of places. The centre is mandatory, but it is read last.
#include <utility>

#include "poi_parser/OperationSchemas.h"
#include "poi_parser/ParserSupport.h"
#include "poi_parser/PoiJsonObjParser.h"

namespace _quarn_framework {

using namespace internal;

namespace {

const CVString kCenterPointsKey = MakeKey(keys::kCenterPoints);

constexpr FieldRow kCircumOptionRows[] = {
    IntField("total", keys::kTotal),
    BoolField("op_gel", keys::kOpGel),
    BoolField("op_addr", keys::kOpAddr),
};

}  // namespace

// ---- What the operation reads and stores -----------------------------------------

namespace schema {
namespace {

constexpr Member kCenterMembers[] = {ArrayMember("poi", kPoiElement, kRequired)};
constexpr Member kCircumMembers[] = {
    TableMember("result", kCircumOptionRows, kRequired),
    kCurrentCityMember,
    kPsrsMember,
    kSuggestMember,
    ArrayMember("content", kPoiElement),
    ObjectMember("center", kCenterMembers, kRequired),
};
constexpr Key kCircumKeys[] = {
    RowsKeys(kCircumOptionRows, "result", kAlways),
    CurrentCityKey("current_city"),
    kPsrsKey,
    kSuggestKey,
    ScalarKey(keys::kCount, Value::kInt, 0, "content: the array's length", "when it is an array"),
    RecordKey(keys::kPois, Value::kBundleArray, kGetPoiContentFromJson, 0, "content",
              "when an element gave a POI record"),
    RecordKey(keys::kCenterPoints, Value::kBundleArray, kGetPoiContentFromJson, 0, "center.poi",
              "when an element gave a POI record"),
};
constexpr const char* kCircumRefusals[] = {
    "a root or \"result\" that is not an object; nothing is stored",
    "a \"center\" that is not an object, or whose \"poi\" is not an array; every key before "
    "\"center_points\" is stored",
};

}  // namespace

const OperationSchema kParseCircumSearchRst =
    Operation("The circum search answer: the places around a centre, with the search's options, the current "
              "city, the hints and the centre.",
              ObjectMember(nullptr, kCircumMembers), kCircumKeys, kCircumRefusals);

}  // namespace schema

int CPoiJsonObjParser::ParseCircumSearchRst(cJSON* root, CVBundle& out) {
  static const FieldTable option_table(kCircumOptionRows);
  if (!RequireRootObject(root)) return 0;
  cJSON* result = RequireObject(root, "result");
  if (result == nullptr) return 0;
  // The options, "center_points" and the shared steps.
  out.Reserve(out.GetCount() + option_table.MaxKeys() + 1 + kCurrentCityKeys + kHintKeys + kPoiPageKeys);
  option_table.Read(result, out);

  StoreCurrentCityRecord(FindMember(root, "current_city"), out);
  StoreHintRecords(root, SuggestStandsIn::kNo, out);
  StorePoiPage(FindMember(root, "content"), PageCount::kOnlyIfArray, out);

  cJSON* center = RequireObject(root, "center");
  if (center == nullptr) return 0;
  cJSON* center_pois = RequireArray(center, "poi");
  if (center_pois == nullptr) return 0;
  BundleArray center_points;
  AppendRecords(center_pois, center_points, GetPoiContentFromJson);
  if (center_points.m_nSize >= 1) out.SetBundleArray(kCenterPointsKey, std::move(center_points));
  return 1;
}

}  // namespace _quarn_framework
