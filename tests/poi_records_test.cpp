// The POI records: hint records, show, detail and the POI record itself.
// Members of the wrong type and the text rule of the hints are covered by
// hostile_input_test.cpp.
#include <gtest/gtest.h>

#include <string>

#include "TestSupport.h"

namespace {

using testing_support::ExpectCases;
using testing_support::P;

// The six integers as text of a detail record whose members are all absent.
#define DEFAULT_INTS_1 R"("premium_flag":"0","discount_total":"0","groupon_total":"0")"
#define DEFAULT_INTS_2 R"("movie_flag":"0","movie_film_count":"-1","groupon_flag":"0")"
#define EMPTY_DETAIL "{" DEFAULT_INTS_1 "," DEFAULT_INTS_2 "}"

TEST(PoiRecords, HintRecords) {
  ExpectCases(P::GetPsrsFromJson, {
      {R"({"SENum":3,"SEResult":["a",5,"b"]})", 1, R"({"num":3,"result":["a","b"]})"},
      {R"({"SENum":3})", 0, R"({"num":3})"},
      {R"({"SEResult":[1,null]})", 1, "{}"},
      {R"(["a"])", 0, "{}"},
  });
  ExpectCases(P::GetSuggestQueryFromJson, {
      {R"([{"query":"x"},7,{"q":"y"},{"query":9}])", 1, R"({"num":4,"result":["x"]})"},
      {"[]", 1, R"({"num":0})"},
  });
}

TEST(PoiRecords, ShowRecord) {
  ExpectCases(P::GetPoiShowFromJson, {
      {"{}", 1, "{}"},
      // Read in table order whatever the member order; ill-typed ones skipped.
      {R"({"book_info":1,"map_button":"2","phone_button":true,"ec_reason":{},"ep_char":5,"price":6,)"
       R"("overall_rating":7.9,"distance":8,"icon":9,"name":10,"image":"x","address":12})",
       1,
       R"({"address":12,"name":10,"icon":9,"distance":8,"overall_rating":7,"price":6,"ep_char":5,)"
       R"("phone_button":1,"map_button":2,"book_info":1})"},
  });
}

TEST(PoiRecords, DetailRecord) {
  ExpectCases(P::GetPoiDetailFromJson, {
      {"{}", 1, EMPTY_DETAIL},
      {"[]", 0, "{}"},
      // Texts only when not empty; integers as "%d" text always.
      {R"({"price":"","overall_rating":4.5,"tag":"Wi-Fi","flag":["a",1,"b"],"premium_flag":2.9,)"
       R"("movie_film_count":-5,"groupon_flag":"3","movie_flag":"x","comment_num":"12"})",
       1,
       R"({"flag":["a","b"],"overall_rating":"4.5","tag":"Wi-Fi","premium_flag":"2",)"
       R"("discount_total":"0","groupon_total":"0","comment_num":"12","movie_flag":"0",)"
       R"("movie_film_count":"-5","groupon_flag":"3"})"},
      {R"({"movie_film_count":0})", 1,
       "{" DEFAULT_INTS_1 R"(,"movie_flag":"0","movie_film_count":"0","groupon_flag":"0"})"},
      // Nested offers are read flat into the record, at their place in the order.
      {R"({"groupon_info":{"groupon_price":"88","groupon_num":"5"},)"
       R"("premium_info":{"name":"P","discount_id":"d1"},"wap_bookable":"1"})",
       1,
       "{" DEFAULT_INTS_1 R"(,"discount_id":"d1","name":"P",)" DEFAULT_INTS_2
       R"(,"groupon_num":"5","groupon_price":"88","wap_bookable":"1"})"},
      {R"({"oril_info":{"oril_detail":[{"oril_type":"t","oril_price":"1"},3,{"oril_price":"2"}]}})", 1,
       "{" DEFAULT_INTS_1 "," DEFAULT_INTS_2
       R"(,"oril_detail":[{"oril_price":"1","oril_type":"t"},{"oril_price":"2"}]})"},
      {R"({"oril_info":{"oril_detail":["a"]},"oril_detail":[{}]})", 1, EMPTY_DETAIL},
      // The booking record exists whenever the member does.
      {R"({"book_info":null})", 1, "{" DEFAULT_INTS_1 "," DEFAULT_INTS_2 R"(,"book_info":{}})"},
      {R"({"book_info":{"web":{"content":"w"},"tel":{"title":"a"},"x":{}}})", 1,
       "{" DEFAULT_INTS_1 "," DEFAULT_INTS_2 R"(,"book_info":{"tel":{"title":"a"},"web":{"content":"w"}}})"},
  });
}

TEST(PoiRecords, PoiRecord) {
  ExpectCases(P::GetPoiContentFromJson, {
      {R"({"name":"A"})", 1, R"({"name":"A","type":0})"},
      {R"({"poiType":3})", 1, R"({"type":3})"},
      {R"({"poiType":"2"})", 1, R"({"type":2})"},
      {R"({"poiType":42})", 1, R"({"type":0})"},
      {R"({"dis":250})", 1, R"({"type":0,"distance":250})"},
      // "tel": normalised, bytes widened (cut to the buffer: hostile_input_test.cpp).
      {"{\"tel\":\" 010-1234; 138 0000 0000\xEF\xBC\x9B\"}", 1, R"({"tel":"010-1234,138 0000 0000","type":0})"},
      {"{\"tel\":\"0571-1234\xE8\xBD\xAC" "5\"}", 1, "{\"tel\":\"0571-1234\xC3\xA8\xC2\xBD\xC2\xAC" "5\",\"type\":0}"},
      // "show" only when an object; "place" only for a non-empty "src_name".
      {R"({"show":{}})", 1, R"({"type":0,"show":{}})"},
      {R"({"ext":{"src_name":""}})", 1, R"({"type":0})"},
      {R"({"ext":{"detail_info":{"price":"9"}}})", 1, R"({"type":0})"},
      {R"({"ext":{"src_name":"s"}})", 1, R"({"type":0,"place":{"src_name":"s"}})"},
      {R"({"ext":{"src_name":"s","detail_info":{"price":"9"}}})", 1,
       R"({"type":0,"place":{"src_name":"s","price":"9",)" DEFAULT_INTS_1 "," DEFAULT_INTS_2 "}}"},
      // Every member, given out of order, read in the record's order.
      {R"({"rec_reason":["r",2],"sep_char":"|","rp_des":"d","dis":5,"show":{"icon":1},"aoi":"a",)"
       R"("pano":1,"indoor_pano":"ip","poiType":1,"tel":"1","detail":1,"addr":"ad","acc_flag":2,)"
       R"("uid":"u","name":"n","geo":"g"})",
       1,
       R"({"geo":"g","name":"n","uid":"u","acc_flag":2,"addr":"ad","detail":true,"tel":"1",)"
       R"("type":1,"indoor_pano":"ip","pano":1,"aoi":"a","show":{"icon":1},"distance":5,)"
       R"("rp_des":"d","sep_char":"|","rec_reason":["r"]})"},
  });
}

}  // namespace
