// The district answer (current city, first point of the geometry) and the
// coordinate query answer ("x,y" and a level).
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "TestSupport.h"

namespace {

using _quarn_framework::CPoiJsonObjParser;
using P = CPoiJsonObjParser;

// A district answer with a current city of level 12 and the given "content".
std::string District(const std::string& content) {
  return R"({"result":{},"current_city":{"code":131,"level":12},"content":)" + content + "}";
}

#define CITY R"("current_city":{"code":131,"level":12})"

TEST(District, PositionLevelAndCurrentCity) {
  testing_support::ExpectCases(P::ParseDistrictRst, {
    // The quotient is truncated toward zero before it becomes a double.
    {District(R"([{"geo":"1|199,-150;"}])"), 1, "{" CITY R"(,"level":12,"x":1.0,"y":-1.0})"},
    {District(R"([{"geo":"4|-2147483648,99"}])"), 1,
     "{" CITY R"(,"level":12,"x":-21474836.0,"y":0.0})"},
    // The POI record of the element is not stored; later elements are not read.
    {District(R"([{"geo":"1|500,700","name":"N","uid":"u"},{"geo":"x"}])"), 1,
     "{" CITY R"(,"level":12,"x":5.0,"y":7.0})"},
    // Without a current city, or one the builder refuses, "level" is 0.
    {R"({"result":{},"content":[{"geo":"1|500,700"}]})", 1, R"({"level":0,"x":5.0,"y":7.0})"},
    {R"({"result":{},"current_city":[1],"content":[{"geo":"1|500,700"}]})", 1,
     R"({"level":0,"x":5.0,"y":7.0})"},
    {R"({"result":{},"current_city":{"code":1},"content":[{"geo":"1|500,700"}]})", 1,
     R"({"current_city":{"code":1,"level":0},"level":0,"x":5.0,"y":7.0})"},
  });
}

// Every refusal after the status frame (diagnostics_test.cpp lists them)
// keeps the current city stored before it; one without a status frame
// stores nothing.
TEST(District, RefusalsKeepTheCurrentCity) {
  testing_support::ExpectCases(P::ParseDistrictRst, {
    {R"({"current_city":{"level":12},"content":[{"geo":"1|5,6"}]})", 0, "{}"},
    {R"({"result":{},)" CITY "}", 0, "{" CITY "}"},
    {District(R"({"geo":"1|5,6"})"), 0, "{" CITY "}"},
    {District("[]"), 0, "{" CITY "}"},
    {District("[{}]"), 0, "{" CITY "}"},
    {District(R"([{"geo":"1|5,x"}])"), 0, "{" CITY "}"},
  });
}

TEST(CoordinateQuery, SplitsThePositionAtTheFirstComma) {
  testing_support::ExpectCases(P::ParseEspecialQueryRst, {
    {R"({"content":["1.5,2.25","12"]})", 1, R"({"x":1.5,"y":2.25,"level":12})"},
    {R"({"content":["1.5,2.5,3","12abc","ignored"]})", 1, R"({"x":1.5,"y":2.5,"level":12})"},
    {R"({"content":[",-7","x"]})", 1, R"({"x":0.0,"y":-7.0,"level":0})"},
    {R"({"content":["12958160.05, 4825907.21"," -3"]})", 1,
     R"({"x":12958160.05,"y":4825907.21,"level":-3})"},
    // An x part of 19 bytes is read whole.
    {R"({"content":["000000000000000.125,1","0"]})", 1, R"({"x":0.125,"y":1.0,"level":0})"},
  });
}

}  // namespace
