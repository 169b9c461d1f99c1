// The city query answer and the address record.
// Refusals: diagnostics_test.cpp.
#include <gtest/gtest.h>

#include <string>

#include "TestSupport.h"

using _quarn_vi::CVBundle;
using testing_support::Json;
using testing_support::ParseJson;
using testing_support::P;

namespace {

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
