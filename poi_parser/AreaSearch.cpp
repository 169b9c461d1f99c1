// The answers of searches inside an area of the map: the area search (one
// page of places with the search's options, the current city, the hints and
// the recognised place category, all beside "result" at the root) and the
// multi-area search (one summary and one list of places per sub-search).
#include <utility>

#include "poi_parser/OperationSchemas.h"
#include "poi_parser/ParserSupport.h"
#include "poi_parser/PoiJsonObjParser.h"

namespace _quarn_framework {

using namespace internal;

namespace {

const CVString kPlaceParamKey = MakeKey(keys::kPlaceparam);
const CVString kResultKey = MakeKey(keys::kResult);
const CVString kContentKey = MakeKey(keys::kContent);
const CVString kContKey = MakeKey(keys::kCont);

constexpr FieldRow kAreaOptionRows[] = {
    IntField("total", keys::kTotal),
    BoolField("op_gel", keys::kOpGel),
    StringField("from", keys::kFrom),
    BoolField("op_addr", keys::kOpAddr),
    IntField("loc_attr", keys::kLocAttr),
    StringField("strategy", keys::kStrategy),
    StringField("qid", keys::kQid),
    IntField("rp_strategy", keys::kRpStrategy),
};

// Irregular: "d_sort_rule" as text turned into a number: an empty text gives 0, any
// other the value of the number it starts with ("x1" gives 0). Nothing is
// stored when the member cannot be read as text.
void ReadSortRule(cJSON* member, const CVString& key, CVBundle& out) {
  CVString text;
  if (!JsonReadText(member, &text)) return diag::SkipMember(member, "text");
  out.SetInt(key, text.IsEmpty() ? 0 : _quarn_vi::_wtoi(text.GetBuffer(0)));
}

constexpr schema::Key kSortRuleKeys[] = {
    schema::ScalarKey(keys::kSortrule, schema::Value::kInt, 0,
                      "d_sort_rule: the number its text starts with, 0 for an empty text"),
};

constexpr CustomReader kSortRuleReader = {ReadSortRule, schema::MakeMember(nullptr, schema::Json::kText),
                                          kSortRuleKeys};

constexpr FieldRow kAreaPlaceParamRows[] = {
    StringField("d_data_type", keys::kType),
    StringField("d_sort_type", keys::kSortkey),
    CustomField("d_sort_rule", keys::kSortrule, kSortRuleReader),
};

// A sub-search summary; "op_gel" is an integer here, unlike in the answers'
// own options.
constexpr FieldRow kSummaryRows[] = {
    IntField("count", keys::kCount),
    IntField("catalogID", keys::kCatalogID),
    IntField("op_gel", keys::kOpGel),
    IntField("page_num", keys::kPageNum),
    IntField("total", keys::kTotal),
    IntField("type", keys::kType),
    StringField("wd", keys::kWd),
};

// One sub-search's places: a bundle whose "cont" holds the POI records of
// the inner array (possibly none); elements that are not arrays give no
// list.
int GetSubSearchPoisFromJson(cJSON* node, CVBundle& list) {
  if (!IsJsonArray(node)) return 0;  // reported by the caller
  CPoiJsonObjParser::BundleArray pois;
  AppendRecords(node, pois, CPoiJsonObjParser::GetPoiContentFromJson);
  list.SetBundleArray(kContKey, std::move(pois));
  return 1;
}

}  // namespace

// ---- What the operations read and store -----------------------------------------

namespace schema {
namespace {

constexpr Member kAreaMembers[] = {
    TableMember("result", kAreaOptionRows, kRequired),
    kCurrentCityMember,
    kPsrsMember,
    kSuggestMember,
    TableMember("place_info", kAreaPlaceParamRows),
    ArrayMember("content", kPoiElement),
};
constexpr Key kAreaKeys[] = {
    RowsKeys(kAreaOptionRows, "result", kAlways),
    CurrentCityKey("current_city"),
    kPsrsKey,
    kSuggestKey,
    TableKey(keys::kPlaceparam, Value::kBundle, kAreaPlaceParamRows, 0, "place_info",
             "when it is present (empty unless an object)"),
    ScalarKey(keys::kCount, Value::kInt, kAlways, "content: the array's length, 0 when it is not an array"),
    RecordKey(keys::kPois, Value::kBundleArray, kGetPoiContentFromJson, 0, "content",
              "when an element gave a POI record"),
};
constexpr const char* kAreaRefusals[] = {
    "a root or \"result\" that is not an object; nothing is stored",
};

constexpr Member kSummaryElement = TableMember(nullptr, kSummaryRows);
constexpr Member kMultiResultMembers[] = {ArrayMember("result_array", kSummaryElement, kRequired)};
constexpr Member kSubSearchElement = ArrayMember(nullptr, kPoiElement);
constexpr Member kMultiMembers[] = {
    ObjectMember("result", kMultiResultMembers, kRequired),
    ArrayMember("content", kSubSearchElement),
};
constexpr Key kSubSearchKeys[] = {
    RecordKey(keys::kCont, Value::kBundleArray, kGetPoiContentFromJson, kAlways, "content[]: its POI records",
              "always (possibly empty)"),
};
constexpr Key kMultiKeys[] = {
    TableKey(keys::kResult, Value::kBundleArray, kSummaryRows, 0, "result.result_array", "when it has elements"),
    NestedKey(keys::kContent, Value::kBundleArray, kSubSearchKeys, 0, "content: one bundle per array element",
              "when it is a non-empty array"),
};
constexpr const char* kMultiRefusals[] = {
    "a root or \"result\" that is not an object, a \"result\".\"result_array\" that is not an array, or an "
    "element of it that is not an object; nothing is stored",
};

}  // namespace

const OperationSchema kParseAreaSearchRst =
    Operation("The area search answer: a page of places with the search's options, the current city, the hints "
              "and the place category.",
              ObjectMember(nullptr, kAreaMembers), kAreaKeys, kAreaRefusals);
const OperationSchema kParseAreaMultiSearchRst =
    Operation("The multi-area search answer: one summary and one list of places per sub-search.",
              ObjectMember(nullptr, kMultiMembers), kMultiKeys, kMultiRefusals);

}  // namespace schema

int CPoiJsonObjParser::ParseAreaSearchRst(cJSON* root, CVBundle& out) {
  static const FieldTable option_table(kAreaOptionRows);
  static const FieldTable place_param_table(kAreaPlaceParamRows);
  if (!RequireRootObject(root)) return 0;
  cJSON* result = RequireObject(root, "result");
  if (result == nullptr) return 0;
  // The options, "placeparam" and the shared steps.
  out.Reserve(out.GetCount() + option_table.MaxKeys() + 1 + kCurrentCityKeys + kHintKeys + kPoiPageKeys);
  option_table.Read(result, out);

  StoreCurrentCityRecord(FindMember(root, "current_city"), out);
  StoreHintRecords(root, SuggestStandsIn::kNo, out);

  cJSON* place_info = FindMember(root, "place_info");
  if (place_info != nullptr) {
    UsableObject(place_info);  // any other type gives an empty "placeparam"
    CVBundle place_param;
    place_param_table.Read(place_info, place_param);
    out.SetBundle(kPlaceParamKey, std::move(place_param));
  }

  StorePoiPage(FindMember(root, "content"), PageCount::kAlways, out);
  return 1;
}

int CPoiJsonObjParser::ParseAreaMultiSearchRst(cJSON* root, CVBundle& out) {
  static const FieldTable summary_table(kSummaryRows);
  if (!RequireRootObject(root)) return 0;
  cJSON* result = RequireObject(root, "result");
  if (result == nullptr) return 0;
  cJSON* result_array = RequireArray(result, "result_array");
  if (result_array == nullptr) return 0;

  BundleArray summaries;
  for (cJSON* element : JsonElements(result_array)) {
    if (!IsJsonObject(element)) {
      diag::RefuseNode(element, "an object");
      return 0;
    }
    CVBundle summary;
    summary_table.Read(element, summary);
    AppendByMove(summaries, summary);
  }
  out.Reserve(out.GetCount() + 2);
  if (summaries.m_nSize >= 1) out.SetBundleArray(kResultKey, std::move(summaries));

  cJSON* content = FindMember(root, "content");
  UsableArray(content);
  if (JsonElements(content).empty()) return 1;
  BundleArray lists;
  AppendRecords(content, lists, GetSubSearchPoisFromJson, "an array");
  out.SetBundleArray(kContentKey, std::move(lists));
  return 1;
}

}  // namespace _quarn_framework
