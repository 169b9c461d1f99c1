// The POI records: hint records, show, detail and the POI record itself.
#include <gtest/gtest.h>

#include <string>

#include "TestSupport.h"

namespace {

using _quarn_framework::CPoiJsonObjParser;
using P = CPoiJsonObjParser;
using testing_support::Run;

struct Case {
  int (*op)(cJSON*, _quarn_vi::CVBundle&);
  const char* input;
  int result;
  const char* bundle;
};

void Check(const Case* cases, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    SCOPED_TRACE(cases[i].input);
    std::string json;
    EXPECT_EQ(Run(cases[i].op, cases[i].input, &json), cases[i].result);
    EXPECT_EQ(json, cases[i].bundle);
  }
}

// The six integers as text of a detail record whose members are all absent.
#define DEFAULT_INTS_1 R"("premium_flag":"0","discount_total":"0","groupon_total":"0")"
#define DEFAULT_INTS_2 R"("movie_flag":"0","movie_film_count":"-1","groupon_flag":"0")"
#define EMPTY_DETAIL "{" DEFAULT_INTS_1 "," DEFAULT_INTS_2 "}"

TEST(PoiRecords, HintRecords) {
  const Case cases[] = {
      {P::GetPsrsFromJson, R"({"SENum":3,"SEResult":["a",5,"b"]})", 1, R"({"num":3,"result":["a","b"]})"},
      {P::GetPsrsFromJson, R"({"SENum":3})", 0, R"({"num":3})"},
      {P::GetPsrsFromJson, R"({"SENum":3,"SEResult":{"0":"a"}})", 0, R"({"num":3})"},
      {P::GetPsrsFromJson, R"({"SEResult":[1,null]})", 1, "{}"},
      {P::GetPsrsFromJson, R"(["a"])", 0, "{}"},
      {P::GetSuggestQueryFromJson, R"([{"query":"x"},7,{"q":"y"},{"query":9}])", 1,
       R"({"num":4,"result":["x"]})"},
      {P::GetSuggestQueryFromJson, "[]", 1, R"({"num":0})"},
      {P::GetSuggestQueryFromJson, R"({"query":"x"})", 0, "{}"},
  };
  Check(cases, sizeof(cases) / sizeof(cases[0]));
}

// Suggested queries follow the text mode; the psrs texts are always widened.
TEST(PoiRecords, HintTextsFollowTheTextRule) {
  const char* bytes = "\xE5\x92\x96\xE5\x95\xA1";  // two CJK characters in UTF-8
  const std::string hint = std::string("[\"") + bytes + "\"]";
  for (bool utf8 : {false, true}) {
    SCOPED_TRACE(utf8);
    testing_support::TextModeScope mode(utf8);
    auto psrs_root = testing_support::ParseJson(R"({"SEResult":)" + hint + "}");
    auto suggest_root = testing_support::ParseJson(R"([{"query":")" + std::string(bytes) + "\"}]");
    _quarn_vi::CVBundle psrs, suggest;
    ASSERT_EQ(P::GetPsrsFromJson(psrs_root.get(), psrs), 1);
    ASSERT_EQ(P::GetSuggestQueryFromJson(suggest_root.get(), suggest), 1);
    const _quarn_vi::CVString widened(bytes);
    const _quarn_vi::CVString decoded = _quarn_vi::CVCMMap::Utf8ToUnicode(bytes, 6);
    EXPECT_EQ(psrs.GetStringArray("result")->m_pData[0], widened);
    EXPECT_EQ(suggest.GetStringArray("result")->m_pData[0], utf8 ? decoded : widened);
  }
}

TEST(PoiRecords, ShowRecord) {
  const Case cases[] = {
      {P::GetPoiShowFromJson, "{}", 1, "{}"},
      {P::GetPoiShowFromJson, "[]", 0, "{}"},
      {P::GetPoiShowFromJson, R"("x")", 0, "{}"},
      // Read in table order whatever the member order; ill-typed ones skipped.
      {P::GetPoiShowFromJson,
       R"({"book_info":1,"map_button":"2","phone_button":true,"ec_reason":{},"ep_char":5,"price":6,)"
       R"("overall_rating":7.9,"distance":8,"icon":9,"name":10,"image":"x","address":12})",
       1,
       R"({"address":12,"name":10,"icon":9,"distance":8,"overall_rating":7,"price":6,"ep_char":5,)"
       R"("phone_button":1,"map_button":2,"book_info":1})"},
  };
  Check(cases, sizeof(cases) / sizeof(cases[0]));
}

TEST(PoiRecords, DetailRecord) {
  const Case cases[] = {
      {P::GetPoiDetailFromJson, "{}", 1, EMPTY_DETAIL},
      {P::GetPoiDetailFromJson, "[]", 0, "{}"},
      // Texts only when not empty; integers as "%d" text always.
      {P::GetPoiDetailFromJson,
       R"({"price":"","overall_rating":4.5,"tag":"Wi-Fi","flag":["a",1,"b"],"premium_flag":2.9,)"
       R"("movie_film_count":-5,"groupon_flag":"3","movie_flag":"x","comment_num":"12"})",
       1,
       R"({"flag":["a","b"],"overall_rating":"4.5","tag":"Wi-Fi","premium_flag":"2",)"
       R"("discount_total":"0","groupon_total":"0","comment_num":"12","movie_flag":"0",)"
       R"("movie_film_count":"-5","groupon_flag":"3"})"},
      {P::GetPoiDetailFromJson, R"({"movie_film_count":0})", 1,
       "{" DEFAULT_INTS_1 R"(,"movie_flag":"0","movie_film_count":"0","groupon_flag":"0"})"},
      {P::GetPoiDetailFromJson, R"({"movie_film_count":{}})", 1, EMPTY_DETAIL},
      // Nested offers are read flat into the record, at their place in the order.
      {P::GetPoiDetailFromJson,
       R"({"groupon_info":{"groupon_price":"88","groupon_num":"5"},)"
       R"("premium_info":{"name":"P","discount_id":"d1"},"wap_bookable":"1"})",
       1,
       "{" DEFAULT_INTS_1 R"(,"discount_id":"d1","name":"P",)" DEFAULT_INTS_2
       R"(,"groupon_num":"5","groupon_price":"88","wap_bookable":"1"})"},
      {P::GetPoiDetailFromJson, R"({"premium_info":["x"],"groupon_info":"y"})", 1, EMPTY_DETAIL},
      {P::GetPoiDetailFromJson,
       R"({"oril_info":{"oril_detail":[{"oril_type":"t","oril_price":"1"},3,{"oril_price":"2"}]}})",
       1,
       "{" DEFAULT_INTS_1 "," DEFAULT_INTS_2
       R"(,"oril_detail":[{"oril_price":"1","oril_type":"t"},{"oril_price":"2"}]})"},
      {P::GetPoiDetailFromJson, R"({"oril_info":{"oril_detail":["a"]},"oril_detail":[{}]})", 1,
       EMPTY_DETAIL},
      {P::GetPoiDetailFromJson, R"({"oril_info":[{"oril_detail":[{}]}]})", 1, EMPTY_DETAIL},
      // The booking record exists whenever the member does.
      {P::GetPoiDetailFromJson, R"({"book_info":"x"})", 1,
       "{" DEFAULT_INTS_1 "," DEFAULT_INTS_2 R"(,"book_info":{}})"},
      {P::GetPoiDetailFromJson, R"({"book_info":null})", 1,
       "{" DEFAULT_INTS_1 "," DEFAULT_INTS_2 R"(,"book_info":{}})"},
      {P::GetPoiDetailFromJson,
       R"({"book_info":{"web":{"content":"w"},"tel":{"title":"a"},"x":{}}})", 1,
       "{" DEFAULT_INTS_1 "," DEFAULT_INTS_2
       R"(,"book_info":{"tel":{"title":"a"},"web":{"content":"w"}}})"},
      {P::GetPoiDetailFromJson, R"({"book_info":{"tel":"a","web":[]}})", 1,
       "{" DEFAULT_INTS_1 "," DEFAULT_INTS_2 R"(,"book_info":{}})"},
  };
  Check(cases, sizeof(cases) / sizeof(cases[0]));
}

TEST(PoiRecords, PoiRecord) {
  const std::string long_tel = std::string(78, '1') + "\xE8\xBD\xAC" "9";  // 78 digits, one CJK char
  const std::string long_tel_input = R"({"tel":")" + long_tel + "\"}";
  const std::string long_tel_output = R"({"tel":")" + std::string(78, '1') + R"(","type":0})";
  const Case cases[] = {
      {P::GetPoiContentFromJson, R"({"name":"A"})", 1, R"({"name":"A","type":0})"},
      {P::GetPoiContentFromJson, "3", 0, "{}"},
      {P::GetPoiContentFromJson, R"({"poiType":3})", 1, R"({"type":3})"},
      {P::GetPoiContentFromJson, R"({"poiType":"2"})", 1, R"({"type":2})"},
      {P::GetPoiContentFromJson, R"({"poiType":42})", 1, R"({"type":0})"},
      {P::GetPoiContentFromJson, R"({"dis":250})", 1, R"({"type":0,"distance":250})"},
      // "tel": normalised, bytes widened, cut to the buffer at a whole character.
      {P::GetPoiContentFromJson, "{\"tel\":\" 010-1234; 138 0000 0000\xEF\xBC\x9B\"}", 1,
       R"({"tel":"010-1234,138 0000 0000","type":0})"},
      {P::GetPoiContentFromJson, "{\"tel\":\"0571-1234\xE8\xBD\xAC" "5\"}", 1,
       "{\"tel\":\"0571-1234\xC3\xA8\xC2\xBD\xC2\xAC" "5\",\"type\":0}"},
      {P::GetPoiContentFromJson, long_tel_input.c_str(), 1, long_tel_output.c_str()},
      {P::GetPoiContentFromJson, R"({"tel":[]})", 1, R"({"type":0})"},
      // "show" only when an object; "place" only for a non-empty "src_name".
      {P::GetPoiContentFromJson, R"({"show":{}})", 1, R"({"type":0,"show":{}})"},
      {P::GetPoiContentFromJson, R"({"show":[]})", 1, R"({"type":0})"},
      {P::GetPoiContentFromJson, R"({"ext":{"src_name":""}})", 1, R"({"type":0})"},
      {P::GetPoiContentFromJson, R"({"ext":"x"})", 1, R"({"type":0})"},
      {P::GetPoiContentFromJson, R"({"ext":{"detail_info":{"price":"9"}}})", 1, R"({"type":0})"},
      {P::GetPoiContentFromJson, R"({"ext":{"src_name":"s"}})", 1,
       R"({"type":0,"place":{"src_name":"s"}})"},
      {P::GetPoiContentFromJson, R"({"ext":{"src_name":"s","detail_info":{"price":"9"}}})", 1,
       R"({"type":0,"place":{"src_name":"s","price":"9",)" DEFAULT_INTS_1 "," DEFAULT_INTS_2 "}}"},
      // Every member, given out of order, read in the record's order.
      {P::GetPoiContentFromJson,
       R"({"rec_reason":["r",2],"sep_char":"|","rp_des":"d","dis":5,"show":{"icon":1},"aoi":"a",)"
       R"("pano":1,"indoor_pano":"ip","poiType":1,"tel":"1","detail":1,"addr":"ad","acc_flag":2,)"
       R"("uid":"u","name":"n","geo":"g"})",
       1,
       R"({"geo":"g","name":"n","uid":"u","acc_flag":2,"addr":"ad","detail":true,"tel":"1",)"
       R"("type":1,"indoor_pano":"ip","pano":1,"aoi":"a","show":{"icon":1},"distance":5,)"
       R"("rp_des":"d","sep_char":"|","rec_reason":["r"]})"},
  };
  Check(cases, sizeof(cases) / sizeof(cases[0]));
}

}  // namespace
