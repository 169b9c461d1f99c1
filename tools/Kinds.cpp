#include "tools/Kinds.h"

namespace poiparse {

namespace {

using _quarn_framework::CPoiJsonObjParser;
using P = CPoiJsonObjParser;

const AnswerKind kKinds[] = {
    {"city-list", "city list answer (\"result\" status, \"traffic_citys\")", P::ParseCityList},
    {"city-info", "one city record (\"code\", \"num\", \"name\")", P::GetCityInfoFromJson},
    {"route-addr", "route address answer, form chosen by --utf8 (the text mode flag)",
     P::ParseRouteAddrRst},
    {"route-addr-1", "route address answer, first form (\"result\" status block, \"content\")",
     P::ParseRouteAddrPHPUIRst},
    {"route-addr-2", "route address answer, second form (\"result\" status, \"traffic_pois\")",
     P::ParseRouteAddrPHPUI2Rst},
};

bool Has(cJSON* node, const char* name) { return _quarn_vi::cJSON_GetObjectItem(node, name) != nullptr; }

// The first route address form: a "result" status block with the points'
// "city_list" flags and a "content" object of per-point candidates.
bool IsRouteAddrFirstForm(cJSON* root) {
  cJSON* result = _quarn_vi::cJSON_GetObjectItem(root, "result");
  cJSON* content = _quarn_vi::cJSON_GetObjectItem(root, "content");
  return _quarn_vi::IsJsonObject(result) && Has(result, "city_list") &&
         _quarn_vi::IsJsonObject(content) &&
         (Has(content, "start") || Has(content, "end") || Has(content, "waypoints"));
}

}  // namespace

const AnswerKind* AllKinds(int* count) {
  *count = static_cast<int>(sizeof(kKinds) / sizeof(kKinds[0]));
  return kKinds;
}

const AnswerKind* FindKind(const std::string& name) {
  for (const AnswerKind& kind : kKinds) {
    if (name == kind.name) return &kind;
  }
  return nullptr;
}

// Detection looks at the members that only one kind of answer has, most
// specific first.
const AnswerKind* DetectKind(cJSON* root) {
  if (!_quarn_vi::IsJsonObject(root)) return nullptr;
  if (Has(root, "traffic_citys")) return FindKind("city-list");
  if (Has(root, "traffic_pois")) return FindKind("route-addr-2");
  if (IsRouteAddrFirstForm(root)) return FindKind("route-addr-1");
  return nullptr;
}

}  // namespace poiparse
