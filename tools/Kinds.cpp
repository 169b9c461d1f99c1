#include "tools/Kinds.h"

#include <cstring>

namespace poiparse {

namespace {

using _quarn_framework::CPoiJsonObjParser;
using P = CPoiJsonObjParser;

// Answers first, then the records (read from the node given, the file's root).
const AnswerKind kKinds[] = {
    {"city-list", "city list answer (\"result\" status, \"traffic_citys\")", P::ParseCityList},
    {"poi-list", "POI list answer (\"result\" status, \"poi_result\")", P::ParsePoiListRst},
    {"area", "area search answer (\"result\" options, \"content\" array beside it)", P::ParseAreaSearchRst},
    {"area-multi", "multi-area search answer (\"result\".\"result_array\", \"content\" lists)",
     P::ParseAreaMultiSearchRst},
    {"circum", "nearby search answer (\"result\" options, \"content\", \"center\")", P::ParseCircumSearchRst},
    {"city-query", "city query answer (a \"content\" object, \"current_city\")",
     P::ParseCityQueryRst},
    {"address", "one address record (\"addr\", \"geo\", \"name\", \"precise\")",
     P::GetAddrContentFromJson},
    {"district", "district answer (\"result\", \"current_city\", \"content\" with a \"geo\")",
     P::ParseDistrictRst},
    {"especial", "coordinate query answer (\"content\": [\"x,y\", \"level\"])",
     P::ParseEspecialQueryRst},
    {"indoor", "indoor search answer (\"errNo\", \"Msg\", \"data\")", P::ParsePoiIndoorRst},
    {"indoor-poi", "one indoor POI record (fifteen texts, \"twp\" flags)",
     P::GetIndoorPoiContentFromJson},
    {"route-addr", "route address answer, form chosen by --utf8 (the text mode flag)", P::ParseRouteAddrRst,
     // With --utf8 the dispatcher parses the second form and clears the flag;
     // the tool keeps the flag for the whole run and calls that form itself.
     P::ParseRouteAddrPHPUI2Rst},
    {"route-addr-1", "route address answer, first form (\"result\" status block, \"content\")",
     P::ParseRouteAddrPHPUIRst},
    {"route-addr-2", "route address answer, second form (\"result\" status, \"traffic_pois\")",
     P::ParseRouteAddrPHPUI2Rst},
    {"psrs", "one psrs hint record (\"SENum\", \"SEResult\")", P::GetPsrsFromJson},
    {"suggest-query", "one suggested-query array (objects with \"query\")", P::GetSuggestQueryFromJson},
    {"poi", "one POI record (with its \"show\" and \"ext\")", P::GetPoiContentFromJson},
    {"poi-show", "one POI show record (twelve display integers)", P::GetPoiShowFromJson},
    {"poi-detail", "one POI detail record (a \"detail_info\" object)", P::GetPoiDetailFromJson},
    {"city-info", "one city record (\"code\", \"num\", \"name\")", P::GetCityInfoFromJson},
};

bool Has(cJSON* node, const char* name) { return _quarn_vi::cJSON_GetObjectItem(node, name) != nullptr; }

// The city query answer: a "content" object describing one city.
bool IsCityQuery(cJSON* root) {
  cJSON* content = _quarn_vi::cJSON_GetObjectItem(root, "content");
  return _quarn_vi::IsJsonObject(content) && (Has(content, "city_type") || Has(content, "cname"));
}

// The coordinate query answer: "content" starts with an "x,y" text.
bool IsEspecialQuery(cJSON* root) {
  _quarn_vi::JsonElements content(_quarn_vi::cJSON_GetObjectItem(root, "content"));
  if (content.empty()) return false;
  const char* position = _quarn_vi::JsonStringBytes(*content.begin());
  return position != nullptr && std::strchr(position, ',') != nullptr;
}

// The first route address form: a "result" status block with the points'
// "city_list" flags and a "content" object of per-point candidates.
bool IsRouteAddrFirstForm(cJSON* root) {
  cJSON* result = _quarn_vi::cJSON_GetObjectItem(root, "result");
  cJSON* content = _quarn_vi::cJSON_GetObjectItem(root, "content");
  return _quarn_vi::IsJsonObject(result) && Has(result, "city_list") &&
         _quarn_vi::IsJsonObject(content) &&
         (Has(content, "start") || Has(content, "end") || Has(content, "waypoints"));
}

// The area search: "result" holds the search's options (no "error" status,
// no route "city_list" flags) and the page of places is a root "content"
// array.
bool IsAreaSearch(cJSON* root) {
  cJSON* result = _quarn_vi::cJSON_GetObjectItem(root, "result");
  return _quarn_vi::IsJsonObject(result) && !Has(result, "error") && !Has(result, "city_list") &&
         _quarn_vi::IsJsonArray(_quarn_vi::cJSON_GetObjectItem(root, "content"));
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
  if (Has(root, "poi_result")) return FindKind("poi-list");
  if (Has(root, "traffic_pois")) return FindKind("route-addr-2");
  if (Has(_quarn_vi::cJSON_GetObjectItem(root, "result"), "result_array")) return FindKind("area-multi");
  if (Has(root, "center")) return FindKind("circum");
  if (IsRouteAddrFirstForm(root)) return FindKind("route-addr-1");
  if (Has(root, "errNo")) return FindKind("indoor");
  if (IsCityQuery(root)) return FindKind("city-query");
  if (IsEspecialQuery(root)) return FindKind("especial");
  // The district answer ("result", "current_city", "content" of one POI with
  // a geometry) has the shape of an area search answer: it needs --kind.
  if (IsAreaSearch(root)) return FindKind("area");
  return nullptr;
}

}  // namespace poiparse
