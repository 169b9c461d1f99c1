// The city list answer and the city info record.
#include "poi_parser/PoiJsonObjParser.h"

#include <utility>

#include "poi_parser/ParserSupport.h"

namespace _quarn_framework {

using namespace internal;

namespace {

constexpr FieldRow kCityInfoRows[] = {
    IntField("code"),
    IntField("num"),
    StringField("name"),
};

const CVString kCountKey = MakeKey("count");
const CVString kCitysKey = MakeKey("citys");
const CVString kCurrentNullKey = MakeKey("current_null");

}  // namespace

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
