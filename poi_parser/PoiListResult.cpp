// The POI list answer: one page of matching places with the search's options,
// the recognised place category, the current city, matching addresses and the
// two hint records.
#include <cstddef>
#include <utility>

#include "poi_parser/ParserSupport.h"
#include "poi_parser/PoiJsonObjParser.h"

namespace _quarn_framework {

using namespace internal;
using _quarn_vi::IsJsonArray;
using _quarn_vi::IsJsonObject;

namespace {

const CVString kSearchTypeKey = MakeKey("search_type");
const CVString kPlaceParamKey = MakeKey("placeparam");
const CVString kCurrentCityKey = MakeKey("current_city");
const CVString kCountKey = MakeKey("count");
const CVString kPoisKey = MakeKey("pois");
const CVString kAddrsKey = MakeKey("addrs");
const CVString kPyCorrectKey = MakeKey("py_correct");
const CVString kSuggestQueryKey = MakeKey("suggest_query");

// The most keys the answer adds: "search_type", five options, "placeparam",
// "current_city", "count", "pois", "addrs", "py_correct", "suggest_query".
constexpr int kMaxAnswerKeys = 13;


const FieldRow kOptionRows[] = {
    IntField("total"),
    IntField("loc_attr"),
    BoolField("op_gel"),
    StringField("qid"),
    IntField("rp_strategy"),
};

// "sortrule" is stored only when "d_sort_rule" reads as an integer.
const FieldRow kPlaceParamRows[] = {
    StringField("d_data_type", "type"),
    StringField("d_sort_type", "sortkey"),
    IntField("d_sort_rule", "sortrule"),
};

const FieldRow kAddressRows[] = {
    StringField("addr"),
    StringField("name"),
    StringField("geo"),
};

// An address entry for every object element, whatever members it has.
int GetAddressFromJson(cJSON* node, CVBundle& address) {
  static const FieldTable table(kAddressRows);
  if (!IsJsonObject(node)) return 0;
  table.Read(node, address);
  return 1;
}

}  // namespace

// Refusals and what is stored by then: a null root, a bad status frame, or a
// nonzero "error": nothing; "poi_result" or "option" not an object:
// "search_type"; "place_info" not an object: also the option keys. Nothing
// after "place_info" refuses the answer.
int CPoiJsonObjParser::ParsePoiListRst(cJSON* root, CVBundle& out) {
  static const FieldTable option_table(kOptionRows);
  static const FieldTable place_param_table(kPlaceParamRows);
  if (root == nullptr || !StatusFrameIsGood(root)) return 0;
  out.Reserve(out.GetCount() + kMaxAnswerKeys);
  out.SetInt(kSearchTypeKey, 0);

  cJSON* poi_result = Member(root, "poi_result");
  if (!IsJsonObject(poi_result)) return 0;
  cJSON* option = Member(poi_result, "option");
  if (!IsJsonObject(option)) return 0;
  option_table.Read(option, out);

  cJSON* place_info = Member(poi_result, "place_info");
  if (!IsJsonObject(place_info)) return 0;
  CVBundle place_param;
  place_param_table.Read(place_info, place_param);
  out.SetBundle(kPlaceParamKey, std::move(place_param));

  CVBundle current_city;
  if (CJsonObjParser::GetCurrentCityFromJson(Member(poi_result, "current_city"), current_city)) {
    out.SetBundle(kCurrentCityKey, std::move(current_city));
  }

  // "count" is the length of the JSON array: elements that give no record
  // still count.
  cJSON* contents = Member(poi_result, "contents");
  out.SetInt(kCountKey, IsJsonArray(contents) ? _quarn_vi::cJSON_GetArraySize(contents) : 0);
  BundleArray pois;
  AppendRecords(contents, pois, GetPoiContentFromJson);
  if (pois.m_nSize >= 1) out.SetBundleArray(kPoisKey, std::move(pois));

  BundleArray addresses;
  AppendRecords(Member(poi_result, "addrs"), addresses, GetAddressFromJson);
  if (addresses.m_nSize >= 1) out.SetBundleArray(kAddrsKey, std::move(addresses));

  // The psrs record goes under "py_correct"; without one, the suggested-query
  // record stands in for it.
  CVBundle psrs;
  bool has_psrs = GetPsrsFromJson(Member(poi_result, "psrs"), psrs) == 1;
  if (has_psrs) out.SetBundle(kPyCorrectKey, std::move(psrs));
  CVBundle suggest;
  if (GetSuggestQueryFromJson(Member(poi_result, "suggest_query"), suggest) == 1) {
    out.SetBundle(kSuggestQueryKey, suggest);  // shares the block: O(1)
    if (!has_psrs) out.SetBundle(kPyCorrectKey, std::move(suggest));
  }
  return 1;
}

}  // namespace _quarn_framework
