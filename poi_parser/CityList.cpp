// The city list answer and the city info record.
#include "poi_parser/PoiJsonObjParser.h"

#include <utility>

#include "poi_parser/OperationSchemas.h"
#include "poi_parser/ParserSupport.h"

namespace _quarn_framework {

using namespace internal;

namespace {

constexpr FieldRow kCityInfoRows[] = {
    IntField("code", keys::kCode),
    IntField("num", keys::kNum),
    StringField("name", keys::kName),
};

const CVString kCountKey = MakeKey(keys::kCount);
const CVString kCitysKey = MakeKey(keys::kCitys);
const CVString kCurrentNullKey = MakeKey(keys::kCurrentNull);

}  // namespace

// ---- What the operations read and store ----------------------------------------

namespace schema {
namespace {

constexpr Member kCityElement = RecordMember(nullptr, kGetCityInfoFromJson);
constexpr Member kCitysMembers[] = {
    kCurrentCityMember,
    ArrayMember("contents", kCityElement),
};
constexpr Member kCityListMembers[] = {
    kStatusFrame,
    ObjectMember("traffic_citys", kCitysMembers, kRequired),
};
constexpr const char kWhenCities[] = "when an element gave a city record";
constexpr Key kCityListKeys[] = {
    CurrentCityKey("traffic_citys.current_city"),
    ScalarKey(keys::kCount, Value::kInt, 0, "traffic_citys.contents: the number of city records", kWhenCities),
    RecordKey(keys::kCitys, Value::kBundleArray, kGetCityInfoFromJson, 0, "traffic_citys.contents", kWhenCities),
    ScalarKey(keys::kCurrentNull, Value::kBool, kAlways,
              "traffic_citys.contents: whether an element gave a city record"),
};
constexpr const char* kCityListRefusals[] = {
    "a null root, a \"result\" that is not an object with an \"error\" of 0, or a \"traffic_citys\" "
    "that is not an object; nothing is stored",
};

constexpr Key kCityArrayKeys[] = {
    RecordKey(keys::kList, Value::kBundleArray, kGetCityInfoFromJson, kAlways, "", "always (possibly empty)"),
};
constexpr const char* kCityArrayRefusals[] = {
    "a node that is not an array, or no element that gives a city record (\"list\" is stored, empty)",
};

}  // namespace

const OperationSchema kParseCityList =
    Operation("The city list answer: the current city and the cities of \"traffic_citys\".",
              ObjectMember(nullptr, kCityListMembers), kCityListKeys, kCityListRefusals);
const OperationSchema kGetCityInfoArrayFromJson = Operation(
    "The city records of an array, stored under \"list\".", ArrayMember(nullptr, kCityElement), kCityArrayKeys,
    kCityArrayRefusals);
const OperationSchema kGetCityInfoFromJson = TableRecord("One city record.", kCityInfoRows);

}  // namespace schema

int CPoiJsonObjParser::ParseCityList(cJSON* root, CVBundle& out) {
  if (root == nullptr) return RefuseNoAnswer();
  if (!StatusFrameIsGood(root)) return 0;
  cJSON* citys = RequireObject(root, "traffic_citys");
  if (citys == nullptr) return 0;

  StoreCurrentCityRecord(FindMember(citys, "current_city"), out);

  BundleArray cities;
  cJSON* contents = FindMember(citys, "contents");
  UsableArray(contents);
  int found = GetCityInfoArrayFromJson(contents, cities);
  if (found) {
    out.SetInt(kCountKey, cities.m_nSize);
    if (cities.m_nSize >= 1) out.SetBundleArray(kCitysKey, std::move(cities));
  }
  out.SetBool(kCurrentNullKey, found);
  return 1;
}

int CPoiJsonObjParser::GetCityInfoArrayFromJson(cJSON* node, BundleArray& cities) {
  if (!IsJsonArray(node)) return 0;
  AppendRecords(node, cities, GetCityInfoFromJson);
  return cities.m_nSize >= 1 ? 1 : 0;
}

int CPoiJsonObjParser::GetCityInfoFromJson(cJSON* node, CVBundle& city) {
  static const FieldTable table(kCityInfoRows);
  return table.ReadRecord(node, city);
}

}  // namespace _quarn_framework
