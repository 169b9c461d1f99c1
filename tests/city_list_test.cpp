// The city list answer and the city info records.
#include <gtest/gtest.h>

#include <string>

#include "TestSupport.h"

using _quarn_framework::CPoiJsonObjParser;
using _quarn_vi::CVBundle;
using testing_support::Json;
using testing_support::ParseJson;

namespace {

struct Case {
  const char* name;
  const char* answer;
  int result;
  const char* bundle;
};

const Case kCityListCases[] = {
    {"error status refuses a complete answer",
     R"({"result": {"error": 1}, "traffic_citys": {"contents": [{"code": 1}]}})", 0, "{}"},
    {"missing error refuses", R"({"result": {}, "traffic_citys": {}})", 0, "{}"},
    {"error as text 0 is read", R"({"result": {"error": "0"}, "traffic_citys": {}})", 1,
     R"({"current_null":false})"},
    {"result not an object", R"({"result": [], "traffic_citys": {}})", 0, "{}"},
    {"no result", R"({"traffic_citys": {}})", 0, "{}"},
    {"traffic_citys as an array", R"({"result": {"error": 0}, "traffic_citys": []})", 0, "{}"},
    {"traffic_citys inside result is not read",
     R"({"result": {"error": 0, "traffic_citys": {}}})", 0, "{}"},
    {"only the current city",
     R"({"result": {"error": 0}, "traffic_citys": {"current_city": {"code": 131, "level": 12}}})", 1,
     R"({"current_city":{"code":131,"level":12},"current_null":false})"},
    {"non-object elements are skipped",
     R"({"result": {"error": 0}, "traffic_citys": {"contents": [{"code": 1, "num": 2, "name": "A"}, 5, {"name": "C"}]}})",
     1, R"({"count":2,"citys":[{"code":1,"num":2,"name":"A"},{"name":"C"}],"current_null":true})"},
    {"empty contents", R"({"result": {"error": 0}, "traffic_citys": {"contents": []}})", 1,
     R"({"current_null":false})"},
    {"an empty city object still counts",
     R"({"result": {"error": 0}, "traffic_citys": {"contents": [{}], "current_city": "x"}})", 1,
     R"({"count":1,"citys":[{}],"current_null":true})"},
    {"contents as an object", R"({"result": {"error": 0}, "traffic_citys": {"contents": {"code": 1}}})", 1,
     R"({"current_null":false})"},
};

TEST(CityList, Answers) {
  for (const Case& c : kCityListCases) {
    SCOPED_TRACE(c.name);
    std::string json;
    EXPECT_EQ(testing_support::Run(CPoiJsonObjParser::ParseCityList, c.answer, &json), c.result);
    EXPECT_EQ(json, c.bundle);
  }
  CVBundle untouched;
  EXPECT_EQ(CPoiJsonObjParser::ParseCityList(nullptr, untouched), 0);
}

TEST(CityList, TheCallersBundleIsNotCleared) {
  Json root = ParseJson(R"({"result": {"error": 0}, "traffic_citys": {}})");
  CVBundle out;
  out.SetInt("kept", 1);
  out.SetInt("current_null", 7);
  EXPECT_EQ(CPoiJsonObjParser::ParseCityList(root.get(), out), 1);
  EXPECT_EQ(testing_support::ToJson(out), R"({"kept":1,"current_null":false})");
}

TEST(CityList, ArrayBuilderAppendsAndCountsEarlierElements) {
  CPoiJsonObjParser::BundleArray cities;
  Json object = ParseJson(R"({"code": 1})");
  EXPECT_EQ(CPoiJsonObjParser::GetCityInfoArrayFromJson(object.get(), cities), 0);
  EXPECT_EQ(cities.m_nSize, 0);
  Json two = ParseJson(R"([{"code": 1}, null, {"code": "2"}])");
  EXPECT_EQ(CPoiJsonObjParser::GetCityInfoArrayFromJson(two.get(), cities), 1);
  ASSERT_EQ(cities.m_nSize, 2);
  EXPECT_EQ(cities.m_pData[1].GetInt("code"), 2);
  Json empty = ParseJson("[]");
  EXPECT_EQ(CPoiJsonObjParser::GetCityInfoArrayFromJson(empty.get(), cities), 1);
  CPoiJsonObjParser::BundleArray none;
  EXPECT_EQ(CPoiJsonObjParser::GetCityInfoArrayFromJson(empty.get(), none), 0);
}

TEST(CityList, CityInfoRecord) {
  std::string json;
  EXPECT_EQ(testing_support::Run(CPoiJsonObjParser::GetCityInfoFromJson, R"({"name": "北京", "num": 3, "code": 131, "x": 1})", &json), 1);
  EXPECT_EQ(json, R"({"code":131,"num":3,"name":"北京"})");
  EXPECT_EQ(testing_support::Run(CPoiJsonObjParser::GetCityInfoFromJson, "[1]", &json), 0);
  EXPECT_EQ(json, "{}");
}

}  // namespace
