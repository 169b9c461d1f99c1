// The area and multi-area search answers: the "count" and "placeparam"
// rules of the area answer, and the sub-search lists.
// Refusals before anything is stored: diagnostics_test.cpp.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "TestSupport.h"

namespace {

using _quarn_framework::CPoiJsonObjParser;

TEST(AreaSearch, OptionsHintsAndPageInTheirOrder) {
  testing_support::ExpectCases(CPoiJsonObjParser::ParseAreaSearchRst, {
      {R"({"content":[{"name":"A"},3,{"name":"B"}],"place_info":{"d_sort_rule":"2"},)"
       R"("suggest_query":[{"query":"s"}],"psrs":{"SENum":1,"SEResult":["p"]},"current_city":{"code":131},)"
       R"("result":{"rp_strategy":3,"qid":"q","strategy":"st","loc_attr":2,"op_addr":1,"from":"f",)"
       R"("op_gel":"true","total":"9"}})",
       1,
       R"({"total":9,"op_gel":true,"from":"f","op_addr":true,"loc_attr":2,"strategy":"st","qid":"q",)"
       R"("rp_strategy":3,"current_city":{"code":131,"level":0},"py_correct":{"num":1,"result":["p"]},)"
       R"("suggest_query":{"num":1,"result":["s"]},"placeparam":{"sortrule":2},"count":3,)"
       R"("pois":[{"name":"A","type":0},{"name":"B","type":0}]})"},
      // Unlike the POI list, the suggested queries never stand in for "py_correct".
      {R"({"result":{},"suggest_query":[{"query":"s"}]})", 1,
       R"({"suggest_query":{"num":1,"result":["s"]},"count":0})"},
      // "count" is always there: 0 without an array, the array's length otherwise.
      // Without a status frame an "error" member is neither tested nor copied.
      {R"({"result":{"error":1}})", 1, R"({"count":0})"},
      {R"({"result":{},"content":[1,"x"]})", 1, R"({"count":2})"},
  });
}

#define WITH_PLACE_INFO(p) R"({"result":{},"place_info":)" p "}"
#define PLACEPARAM(p) R"({"placeparam":)" p R"(,"count":0})"

// "d_sort_rule" is read as text and converted; "place_info" of any type gives
// a "placeparam".
TEST(AreaSearch, PlaceParametersAndSortRuleAsText) {
  testing_support::ExpectCases(CPoiJsonObjParser::ParseAreaSearchRst, {
      {WITH_PLACE_INFO(R"({"d_data_type":"cater","d_sort_type":"dist","d_sort_rule":"12"})"), 1,
       PLACEPARAM(R"({"type":"cater","sortkey":"dist","sortrule":12})")},
      {WITH_PLACE_INFO(R"({"d_sort_rule":""})"), 1, PLACEPARAM(R"({"sortrule":0})")},
      {WITH_PLACE_INFO(R"({"d_sort_rule":"x1"})"), 1, PLACEPARAM(R"({"sortrule":0})")},
      {WITH_PLACE_INFO(R"({"d_sort_rule":" -3 desc"})"), 1, PLACEPARAM(R"({"sortrule":-3})")},
      {WITH_PLACE_INFO(R"({"d_sort_rule":[1]})"), 1, PLACEPARAM("{}")},
      {R"({"result":{}})", 1, R"({"count":0})"},
  });
}

TEST(AreaMultiSearch, SummariesAndSubSearchLists) {
  testing_support::ExpectCases(CPoiJsonObjParser::ParseAreaMultiSearchRst, {
      // "op_gel" is an integer in a summary.
      {R"({"result":{"result_array":[{"wd":"咖啡","type":1,"total":"20","page_num":0,"op_gel":true,)"
       R"("catalogID":7,"count":2,"x":1},{}]}})",
       1,
       R"({"result":[{"count":2,"catalogID":7,"op_gel":1,"page_num":0,"total":20,"type":1,"wd":"咖啡"},{}]})"},
      // Non-array elements are skipped, so positions shift; an empty inner
      // array still gives a list.
      {R"({"result":{"result_array":[]},"content":[[],"x",[{"name":"A"},7,{"name":"B"}]]})", 1,
       R"({"content":[{"cont":[]},{"cont":[{"name":"A","type":0},{"name":"B","type":0}]}]})"},
      {R"({"result":{"result_array":[]},"content":["x"]})", 1, R"({"content":[]})"},
      {R"({"result":{"result_array":[]},"content":[]})", 1, "{}"},
      {R"({"result":{"result_array":[]}})", 1, "{}"},
  });
}

}  // namespace
