// Every operation of the parser as one signature, for the fuzz targets that
// run them all: the entry operations, then the records. The two list
// builders store their array under "list" (also when empty).
#ifndef FUZZ_FUZZOPERATIONS_H_
#define FUZZ_FUZZOPERATIONS_H_

#include <utility>

#include "poi_parser/PoiJsonObjParser.h"

namespace fuzz_ops {

using P = _quarn_framework::CPoiJsonObjParser;
using Op = int (*)(cJSON*, _quarn_vi::CVBundle&);

inline const _quarn_vi::CVString& ListKey() {
  static const _quarn_vi::CVString key("list", _quarn_vi::CVString::Permanent());
  return key;
}

inline int CityInfoArray(cJSON* node, _quarn_vi::CVBundle& out) {
  P::BundleArray cities;
  int result = P::GetCityInfoArrayFromJson(node, cities);
  out.SetBundleArray(ListKey(), std::move(cities));
  return result;
}

inline int RPAddrList(cJSON* node, _quarn_vi::CVBundle& out) {
  P::BundleArray places;
  int result = P::GetRPAddrListFromJson(node, places);
  out.SetBundleArray(ListKey(), std::move(places));
  return result;
}

inline constexpr Op kOps[] = {
    P::ParseCityList,           P::ParsePoiListRst,         P::ParseAreaSearchRst,
    P::ParseAreaMultiSearchRst, P::ParseCircumSearchRst,    P::ParseCityQueryRst,
    P::ParseDistrictRst,        P::ParseEspecialQueryRst,   P::ParsePoiIndoorRst,
    P::ParseRouteAddrRst,       P::ParseRouteAddrPHPUIRst,  P::ParseRouteAddrPHPUI2Rst,
    P::GetCityInfoFromJson,     CityInfoArray,              P::GetPsrsFromJson,
    P::GetSuggestQueryFromJson, P::GetPoiShowFromJson,      P::GetPoiDetailFromJson,
    P::GetPoiContentFromJson,   P::GetAddrContentFromJson,  P::GetIndoorPoiContentFromJson,
    P::GetRPAddrResInfoFromJson, RPAddrList,
};
inline constexpr unsigned kOpCount = sizeof(kOps) / sizeof(kOps[0]);

}  // namespace fuzz_ops

#endif  // FUZZ_FUZZOPERATIONS_H_
