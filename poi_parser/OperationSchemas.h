// The descriptions of CPoiJsonObjParser's operations (json_readers/
// FieldSchema.h), one per operation, each defined next to its operation;
// the registry (poi_parser/AnswerKinds.cpp) hands them to the schema
// generator (poi_parser/AnswerSchema.h). Internal to the library.
#ifndef POI_PARSER_OPERATIONSCHEMAS_H_
#define POI_PARSER_OPERATIONSCHEMAS_H_

#include "json_readers/FieldSchema.h"
#include "poi_parser/BundleKeys.h"

namespace _quarn_framework {
namespace schema {

// One per operation, named after it.
extern const OperationSchema kParseCityList;
extern const OperationSchema kParsePoiListRst;
extern const OperationSchema kParseAreaSearchRst;
extern const OperationSchema kParseAreaMultiSearchRst;
extern const OperationSchema kParseCircumSearchRst;
extern const OperationSchema kParseCityQueryRst;
extern const OperationSchema kParseDistrictRst;
extern const OperationSchema kParseEspecialQueryRst;
extern const OperationSchema kParsePoiIndoorRst;
extern const OperationSchema kParseRouteAddrRst;
extern const OperationSchema kParseRouteAddrPHPUIRst;
extern const OperationSchema kParseRouteAddrPHPUI2Rst;
extern const OperationSchema kGetCityInfoFromJson;
extern const OperationSchema kGetCityInfoArrayFromJson;
extern const OperationSchema kGetPsrsFromJson;
extern const OperationSchema kGetSuggestQueryFromJson;
extern const OperationSchema kGetPoiShowFromJson;
extern const OperationSchema kGetPoiDetailFromJson;
extern const OperationSchema kGetPoiContentFromJson;
extern const OperationSchema kGetAddrContentFromJson;
extern const OperationSchema kGetIndoorPoiContentFromJson;
extern const OperationSchema kGetRPAddrResInfoFromJson;
extern const OperationSchema kGetRPAddrListFromJson;

// ---- Pieces shared by several operations --------------------------------------

// The status frame: "result" is an object whose "error" reads as 0.
inline constexpr Member kStatusMembers[] = {MakeMember("error", Json::kIntZero, kRequired)};
inline constexpr Member kStatusFrame = ObjectMember("result", kStatusMembers, kRequired);

// The refusal of a record operation.
inline constexpr const char* kRecordRefusals[] = {"a null or non-object node; nothing is stored"};

// A record operation that reads one field table.
constexpr OperationSchema TableRecord(const char* summary, Rows rows) {
  return Operation(summary, TableMember(nullptr, rows), List<Key>(), kRecordRefusals);
}

// The current-city record of "current_city" and its key.
inline constexpr Member kCurrentCityMember = TableMember("current_city", CurrentCityTable);
constexpr Key CurrentCityKey(const char* from) {
  return TableKey(keys::kCurrentCity, Value::kBundle, CurrentCityTable, 0, from, "when it is an object");
}

// The hint records: "psrs" and "suggest_query".
inline constexpr Member kPsrsMember = RecordMember("psrs", kGetPsrsFromJson);
inline constexpr Member kSuggestMember = RecordMember("suggest_query", kGetSuggestQueryFromJson);
inline constexpr Key kPsrsKey = RecordKey(keys::kPyCorrect, Value::kBundle, kGetPsrsFromJson, 0, "psrs",
                                          "when it is an object with a \"SEResult\" array");
inline constexpr Key kSuggestKey = RecordKey(keys::kSuggestQuery, Value::kBundle, kGetSuggestQueryFromJson, 0,
                                             "suggest_query", "when it is an array");

// A page of POI records: an array of POI objects.
inline constexpr Member kPoiElement = RecordMember(nullptr, kGetPoiContentFromJson);

}  // namespace schema
}  // namespace _quarn_framework

#endif  // POI_PARSER_OPERATIONSCHEMAS_H_
