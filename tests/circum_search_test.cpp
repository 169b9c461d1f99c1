// The circum search answer: its options, hints and page, and its mandatory
// centre, tested after everything else is stored.
// Refusals before anything is stored: diagnostics_test.cpp.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "TestSupport.h"

namespace {

using _quarn_framework::CPoiJsonObjParser;

#define OPTIONS R"("result":{"op_addr":0,"op_gel":1,"total":"4","from":"f"})"
#define OPTION_KEYS R"("total":4,"op_gel":true,"op_addr":false)"
#define CENTER R"("center":{"poi":[{"name":"C"}]})"
#define CENTER_KEY R"("center_points":[{"name":"C","type":0}])"

TEST(CircumSearch, RefusalsKeepWhatWasStoredBefore) {
  testing_support::ExpectCases(CPoiJsonObjParser::ParseCircumSearchRst, {
      {R"([{"result":{}}])", 0, "{}"},
      {R"({)" CENTER R"(,"content":[{}]})", 0, "{}"},
      // Without a usable centre the page is stored, then the answer refused.
      {R"({)" OPTIONS R"(,"content":[{"name":"A"}],"psrs":{"SEResult":["p"]}})", 0,
       "{" OPTION_KEYS R"(,"py_correct":{"result":["p"]},"count":1,"pois":[{"name":"A","type":0}]})"},
      {R"({)" OPTIONS R"(,"center":[{"poi":[{}]}]})", 0, "{" OPTION_KEYS "}"},
      {R"({)" OPTIONS R"(,"center":{"pois":[{}]}})", 0, "{" OPTION_KEYS "}"},
      {R"({)" OPTIONS R"(,"center":{"poi":{"name":"C"}}})", 0, "{" OPTION_KEYS "}"},
  });
}

TEST(CircumSearch, CountCentreAndHints) {
  testing_support::ExpectCases(CPoiJsonObjParser::ParseCircumSearchRst, {
      {R"({"center":{"poi":[7,{"name":"C"}]},"content":[{"name":"A"},"x"],"suggest_query":[{"query":"s"}],)"
       R"("current_city":{"code":131,"level":12},)" OPTIONS "}",
       1,
       "{" OPTION_KEYS R"(,"current_city":{"code":131,"level":12},"suggest_query":{"num":1,"result":["s"]},)"
       R"("count":2,"pois":[{"name":"A","type":0}],)" CENTER_KEY "}"},
      // No "count" at all without a "content" array.
      {R"({)" OPTIONS "," CENTER "}", 1, "{" OPTION_KEYS "," CENTER_KEY "}"},
      {R"({)" OPTIONS R"(,"content":{"name":"A"},)" CENTER "}", 1, "{" OPTION_KEYS "," CENTER_KEY "}"},
      {R"({)" OPTIONS R"(,"content":[],)" CENTER "}", 1, "{" OPTION_KEYS R"(,"count":0,)" CENTER_KEY "}"},
      // A centre that gives no record is still accepted.
      {R"({"result":{},"center":{"poi":[]}})", 1, "{}"},
      {R"({"result":{},"psrs":{"SENum":2,"SEResult":[]},"suggest_query":{},)" CENTER "}", 1,
       R"({"py_correct":{"num":2},)" CENTER_KEY "}"},
  });
}

}  // namespace
