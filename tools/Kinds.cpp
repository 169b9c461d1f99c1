#include "tools/Kinds.h"

namespace poiparse {

namespace {

using _quarn_framework::CPoiJsonObjParser;
using P = CPoiJsonObjParser;

const AnswerKind kKinds[] = {
    {"city-list", "city list answer (\"result\" status, \"traffic_citys\")", P::ParseCityList},
    {"city-info", "one city record (\"code\", \"num\", \"name\")", P::GetCityInfoFromJson},
    {"poi-list", "POI list answer (\"result\" status, \"poi_result\")", P::ParsePoiListRst},
    {"psrs", "one psrs hint record (\"SENum\", \"SEResult\")", P::GetPsrsFromJson},
    {"suggest-query", "one suggested-query array (objects with \"query\")", P::GetSuggestQueryFromJson},
    {"poi", "one POI record (with its \"show\" and \"ext\")", P::GetPoiContentFromJson},
    {"poi-show", "one POI show record (twelve display integers)", P::GetPoiShowFromJson},
    {"poi-detail", "one POI detail record (a \"detail_info\" object)", P::GetPoiDetailFromJson},
};

bool Has(cJSON* node, const char* name) { return _quarn_vi::cJSON_GetObjectItem(node, name) != nullptr; }

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
  return nullptr;
}

}  // namespace poiparse
