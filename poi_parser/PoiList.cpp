// The POI list answer: one page of matching places with the search's options,
// the recognised place category, the current city, matching addresses and the
// two hint records.
#include <cstddef>
#include <utility>

#include "poi_parser/OperationSchemas.h"
#include "poi_parser/ParserSupport.h"
#include "poi_parser/PoiJsonObjParser.h"

namespace _quarn_framework {

using namespace internal;

namespace {

const CVString kSearchTypeKey = MakeKey(keys::kSearchType);
const CVString kPlaceParamKey = MakeKey(keys::kPlaceparam);
const CVString kAddrsKey = MakeKey(keys::kAddrs);

constexpr FieldRow kOptionRows[] = {
    IntField("total", keys::kTotal),
    IntField("loc_attr", keys::kLocAttr),
    BoolField("op_gel", keys::kOpGel),
    StringField("qid", keys::kQid),
    IntField("rp_strategy", keys::kRpStrategy),
};

// "sortrule" is stored only when "d_sort_rule" reads as an integer.
constexpr FieldRow kPlaceParamRows[] = {
    StringField("d_data_type", keys::kType),
    StringField("d_sort_type", keys::kSortkey),
    IntField("d_sort_rule", keys::kSortrule),
};

// An address entry for every object element, whatever members it has.
constexpr FieldRow kAddressRows[] = {
    StringField("addr", keys::kAddr),
    StringField("name", keys::kName),
    StringField("geo", keys::kGeo),
};

const FieldTable& AddressTable() {
  static const FieldTable table(kAddressRows);
  return table;
}

}  // namespace

// ---- What the operation reads and stores -----------------------------------------

namespace schema {
namespace {

constexpr Member kAddressElement = TableMember(nullptr, AddressTable);
constexpr Member kPoiResultMembers[] = {
    TableMember("option", kOptionRows, kRequired),
    TableMember("place_info", kPlaceParamRows, kRequired),
    kCurrentCityMember,
    ArrayMember("contents", kPoiElement),
    ArrayMember("addrs", kAddressElement),
    kPsrsMember,
    kSuggestMember,
};
constexpr Member kPoiListMembers[] = {
    kStatusFrame,
    ObjectMember("poi_result", kPoiResultMembers, kRequired),
};
constexpr Key kPoiListKeys[] = {
    ScalarKey(keys::kSearchType, Value::kInt, kAlways, "always 0"),
    RowsKeys(kOptionRows, "poi_result.option", kAlways),
    TableKey(keys::kPlaceparam, Value::kBundle, kPlaceParamRows, kAlways, "poi_result.place_info", nullptr),
    CurrentCityKey("poi_result.current_city"),
    ScalarKey(keys::kCount, Value::kInt, kAlways, "poi_result.contents: the array's length, 0 when it is not an array"),
    RecordKey(keys::kPois, Value::kBundleArray, kGetPoiContentFromJson, 0, "poi_result.contents",
              "when an element gave a POI record"),
    TableKey(keys::kAddrs, Value::kBundleArray, AddressTable, 0, "poi_result.addrs", "when an element is an object"),
    RecordKey(keys::kPyCorrect, Value::kBundle, kGetPsrsFromJson, 0,
              "poi_result.psrs, or else poi_result.suggest_query (the suggested-query record)",
              "when either gives its record"),
    RecordKey(keys::kSuggestQuery, Value::kBundle, kGetSuggestQueryFromJson, 0, "poi_result.suggest_query",
              "when it is an array"),
};
constexpr const char* kPoiListRefusals[] = {
    "a null root, or a \"result\" that is not an object with an \"error\" of 0; nothing is stored",
    "a \"poi_result\" or its \"option\" that is not an object; \"search_type\" is stored",
    "a \"poi_result\".\"place_info\" that is not an object; \"search_type\" and the option keys are stored",
};

}  // namespace

const OperationSchema kParsePoiListRst =
    Operation("The POI list answer: a page of places with the search's options, the current city, "
              "matching addresses and the hints.",
              ObjectMember(nullptr, kPoiListMembers), kPoiListKeys, kPoiListRefusals);

}  // namespace schema

int CPoiJsonObjParser::ParsePoiListRst(cJSON* root, CVBundle& out) {
  static const FieldTable option_table(kOptionRows);
  static const FieldTable place_param_table(kPlaceParamRows);
  if (root == nullptr) return RefuseNoAnswer();
  if (!StatusFrameIsGood(root)) return 0;
  // "search_type", the options, "placeparam", "addrs" and the shared steps.
  out.Reserve(out.GetCount() + 3 + option_table.MaxKeys() + kCurrentCityKeys + kPoiPageKeys + kHintKeys);
  out.SetInt(kSearchTypeKey, 0);

  cJSON* poi_result = RequireObject(root, "poi_result");
  if (poi_result == nullptr) return 0;
  cJSON* option = RequireObject(poi_result, "option");
  if (option == nullptr) return 0;
  option_table.Read(option, out);

  cJSON* place_info = RequireObject(poi_result, "place_info");
  if (place_info == nullptr) return 0;
  CVBundle place_param;
  place_param_table.Read(place_info, place_param);
  out.SetBundle(kPlaceParamKey, std::move(place_param));

  StoreCurrentCityRecord(FindMember(poi_result, "current_city"), out);
  StorePoiPage(FindMember(poi_result, "contents"), PageCount::kAlways, out);

  field::StoreList(FindMember(poi_result, "addrs"), AddressTable(), Keep::kRecords, kAddrsKey, out);

  // The suggested-query record stands in for a missing psrs record.
  StoreHintRecords(poi_result, SuggestStandsIn::kYes, out);
  return 1;
}

}  // namespace _quarn_framework
