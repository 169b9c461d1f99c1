// The city list and city query answers, the city info and address records.
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

TEST(CityQuery, DefaultLevelByCityType) {
  testing_support::ExpectCases(P::ParseCityQueryRst, {
    {R"({"content":{}})", 1, R"({"type":0,"level":4})"},
    {R"({"content":{"city_type":1}})", 1, R"({"type":1,"level":11})"},
    {R"({"content":{"city_type":2}})", 1, R"({"type":2,"level":12})"},
    {R"({"content":{"city_type":3}})", 1, R"({"type":3,"level":13})"},
    {R"({"content":{"city_type":7}})", 1, R"({"type":7,"level":0})"},
    {R"({"content":{"city_type":-1}})", 1, R"({"type":-1,"level":0})"},
    // An explicit non-zero level wins; an explicit 0 counts as none.
    {R"({"content":{"city_type":2,"level":9}})", 1, R"({"type":2,"level":9})"},
    {R"({"content":{"city_type":1,"level":0}})", 1, R"({"type":1,"level":11})"},
    {R"({"content":{"city_type":7,"level":"5"}})", 1, R"({"type":7,"level":5})"},
  });
}

TEST(CityQuery, FieldsCurrentCityAndRefusals) {
  testing_support::ExpectCases(P::ParseCityQueryRst, {
    {R"({"content":{"level":3,"sup_lukuang":0,"pcname":"P","pccode":1,"uid":"u","geo":"g",)"
     R"("cname":"C","code":131,"city_type":2,"sup_bus":1,"sup_business_area":true,"sup_subway":"0"}})",
     1,
     R"({"type":2,"code":131,"name":"C","geo":"g","uid":"u","pccode":1,"pcname":"P","level":3,)"
     R"("sup_bus":true,"sup_business_area":true,"sup_subway":false,"sup_lukuang":false})"},
    // The name comes from "cname" only; the current city from the root only.
    {R"({"content":{"name":"N","current_city":{"code":1}}})", 1, R"({"type":0,"level":4})"},
    {R"({"current_city":{"code":289,"level":12},"content":{"city_type":1}})", 1,
     R"({"type":1,"level":11,"current_city":{"code":289,"level":12}})"},
    {R"([{"content":{}}])", 0, "{}"},
  });
}

TEST(CityQuery, AddressRecord) {
  testing_support::ExpectCases(P::GetAddrContentFromJson, {
    {R"({"precise":"2","name":"N","geo":"g","addr":"A","address":"X"})", 1,
     R"({"address":"A","geo":"g","name":"N","precise":2})"},
    {R"({"addr":5,"precise":"x"})", 1, R"({"address":"5"})"},
    {"{}", 1, "{}"},
    {R"(["addr"])", 0, "{}"},
  });
}

}  // namespace
