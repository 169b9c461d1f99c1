// The city list answer and the city info record.
// Refusals: diagnostics_test.cpp.
#include <gtest/gtest.h>

#include <string>

#include "TestSupport.h"

using _quarn_vi::CVBundle;
using testing_support::Json;
using testing_support::ParseJson;
using testing_support::P;

namespace {

TEST(CityList, Answers) {
  testing_support::ExpectCases(P::ParseCityList, {
      {R"({"result": {"error": "0"}, "traffic_citys": {}})", 1, R"({"current_null":false})"},
      // "traffic_citys" inside "result" is not read.
      {R"({"result": {"error": 0, "traffic_citys": {}}})", 0, "{}"},
      {R"({"result": {"error": 0}, "traffic_citys": {"current_city": {"code": 131, "level": 12}}})", 1,
       R"({"current_city":{"code":131,"level":12},"current_null":false})"},
      // Non-object elements are skipped.
      {R"({"result": {"error": 0}, "traffic_citys": {"contents": [{"code": 1, "num": 2, "name": "A"}, 5,)"
       R"( {"name": "C"}]}})",
       1, R"({"count":2,"citys":[{"code":1,"num":2,"name":"A"},{"name":"C"}],"current_null":true})"},
      {R"({"result": {"error": 0}, "traffic_citys": {"contents": []}})", 1, R"({"current_null":false})"},
  });
}

TEST(CityList, TheCallersBundleIsNotCleared) {
  Json root = ParseJson(R"({"result": {"error": 0}, "traffic_citys": {}})");
  CVBundle out;
  out.SetInt("kept", 1);
  out.SetInt("current_null", 7);
  EXPECT_EQ(P::ParseCityList(root.get(), out), 1);
  EXPECT_EQ(testing_support::ToJson(out), R"({"kept":1,"current_null":false})");
}

TEST(CityList, ArrayBuilderAppendsAndCountsEarlierElements) {
  P::BundleArray cities;
  Json object = ParseJson(R"({"code": 1})");
  EXPECT_EQ(P::GetCityInfoArrayFromJson(object.get(), cities), 0);
  EXPECT_EQ(cities.m_nSize, 0);
  Json two = ParseJson(R"([{"code": 1}, null, {"code": "2"}])");
  EXPECT_EQ(P::GetCityInfoArrayFromJson(two.get(), cities), 1);
  ASSERT_EQ(cities.m_nSize, 2);
  EXPECT_EQ(cities.m_pData[1].GetInt("code"), 2);
  Json empty = ParseJson("[]");
  EXPECT_EQ(P::GetCityInfoArrayFromJson(empty.get(), cities), 1);
  P::BundleArray none;
  EXPECT_EQ(P::GetCityInfoArrayFromJson(empty.get(), none), 0);
}

TEST(CityList, CityInfoRecord) {
  testing_support::ExpectCases(P::GetCityInfoFromJson, {
      {R"({"name": "北京", "num": 3, "code": 131, "x": 1})", 1, R"({"code":131,"num":3,"name":"北京"})"},
      {"[1]", 0, "{}"},
  });
}

}  // namespace
