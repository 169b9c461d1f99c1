// The POI list answer: its refusals, and how the lists and hints land.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "TestSupport.h"

namespace {

using _quarn_framework::CPoiJsonObjParser;

// A good status frame around `poi_result` members, with an empty
// "place_info" unless the members have one; an input starting with '!' is a
// whole answer.
std::string Answer(const std::string& body) {
  if (body[0] == '!') return body.substr(1);
  std::string members = body;
  if (members.find("\"place_info\"") == std::string::npos) {
    members = R"("place_info":{})" + (members.empty() ? "" : "," + members);
  }
  return R"({"result":{"error":0},"poi_result":{"option":{},)" + members + "}}";
}

void Check(std::vector<testing_support::OpCase> cases) {
  for (testing_support::OpCase& c : cases) c.input = Answer(c.input);
  testing_support::ExpectCases(CPoiJsonObjParser::ParsePoiListRst, cases);
}

#define OPTIONS R"({"total":5,"loc_attr":1,"op_gel":1,"qid":"q1","rp_strategy":2})"
#define OPTION_KEYS R"("search_type":0,"total":5,"loc_attr":1,"op_gel":true,"qid":"q1","rp_strategy":2)"
#define BASE R"("search_type":0,"placeparam":{},"count":0)"

TEST(PoiList, RefusalsKeepWhatWasStoredBefore) {
  Check({
      {"!{}", 0, "{}"},
      {R"(!{"result":{"error":0}})", 0, R"({"search_type":0})"},
      {R"(!{"result":{"error":0},"poi_result":{"place_info":{}}})", 0, R"({"search_type":0})"},
      {R"(!{"result":{"error":0},"poi_result":{"option":"x","place_info":{}}})", 0,
       R"({"search_type":0})"},
      {R"(!{"result":{"error":0},"poi_result":{"option":)" OPTIONS R"(,"contents":[{}]}})", 0,
       "{" OPTION_KEYS "}"},
      {R"(!{"result":{"error":"0"},"poi_result":{"option":)" OPTIONS
       R"(,"place_info":[],"contents":[{}]}})",
       0, "{" OPTION_KEYS "}"},
      {R"(!{"result":{"error":0},"poi_result":{"option":)" OPTIONS R"(,"place_info":{}}})", 1,
       "{" OPTION_KEYS R"(,"placeparam":{},"count":0})"},
  });
}

TEST(PoiList, ListsAndPlaceParameters) {
  Check({
      {"", 1, "{" BASE "}"},
      {R"("place_info":{"d_data_type":"cater","d_sort_type":"dist","d_sort_rule":1})", 1,
       R"({"search_type":0,"placeparam":{"type":"cater","sortkey":"dist","sortrule":1},"count":0})"},
      {R"("current_city":{"code":131,"level":12})", 1,
       R"({"search_type":0,"placeparam":{},"current_city":{"code":131,"level":12},"count":0})"},
      // "count" is the JSON array's length; elements without a record are skipped.
      {R"("contents":[{"name":"A"},3,{"name":"B"}])", 1,
       R"({"search_type":0,"placeparam":{},"count":3,"pois":[{"name":"A","type":0},{"name":"B","type":0}]})"},
      {R"("contents":[])", 1, "{" BASE "}"},
      {R"("addrs":["x",{},{"geo":"g","name":"n","addr":"a","x":1}])", 1,
       "{" BASE R"(,"addrs":[{},{"addr":"a","name":"n","geo":"g"}]})"},
  });
}

// The psrs record goes under "py_correct"; the suggested-query record stands
// in for it when there is no accepted psrs record.
TEST(PoiList, PsrsAndSuggestedQueries) {
  Check({
      {R"("psrs":{"SENum":1,"SEResult":["p"]},"suggest_query":[{"query":"s"}])", 1,
       "{" BASE R"(,"py_correct":{"num":1,"result":["p"]},"suggest_query":{"num":1,"result":["s"]}})"},
      {R"("suggest_query":[{"query":"s"}])", 1,
       "{" BASE R"(,"suggest_query":{"num":1,"result":["s"]},"py_correct":{"num":1,"result":["s"]}})"},
      {R"("psrs":{"SENum":7},"suggest_query":[])", 1,
       "{" BASE R"(,"suggest_query":{"num":0},"py_correct":{"num":0}})"},
      {R"("psrs":{"SEResult":[]})", 1, "{" BASE R"(,"py_correct":{}})"},
  });
}

// The answer adds to the caller's bundle: earlier keys stay, equal keys are
// replaced in place.
TEST(PoiList, KeepsTheCallersKeys) {
  auto root = testing_support::ParseJson(Answer(R"("contents":[{}])"));
  _quarn_vi::CVBundle bundle;
  bundle.SetInt("count", 99);
  bundle.SetInt("mine", 1);
  ASSERT_EQ(CPoiJsonObjParser::ParsePoiListRst(root.get(), bundle), 1);
  EXPECT_EQ(testing_support::ToJson(bundle),
            R"({"count":1,"mine":1,"search_type":0,"placeparam":{},"pois":[{"type":0}]})");
}

}  // namespace
