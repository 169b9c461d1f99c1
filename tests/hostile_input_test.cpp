// Hostile answers: huge lists and texts, invalid UTF-8, NULs and duplicate
// members, numbers beyond int32, string nodes without text, and members of
// the wrong JSON type everywhere. None may crash an operation or slow it
// beyond linear time, and each gets the result and keys that the skip and
// refusal rules give.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "json_readers/Diagnostics.h"

namespace {

using _quarn_framework::CJsonObjParser;
using _quarn_vi::CVBundle;
using _quarn_vi::CVString;
using testing_support::AsList;
using testing_support::Op;
using testing_support::P;

struct Case {
  const char* name;
  Op op;
  std::string input;
  int result;
  std::string expected;
  bool utf8 = false;  // the text mode flag
};

void RunCases(const std::vector<Case>& cases) {
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    testing_support::TextModeScope mode(c.utf8);
    std::string json;
    EXPECT_EQ(testing_support::Run(c.op, c.input, &json), c.result);
    EXPECT_EQ(json, c.expected);
  }
}

// `count` copies of `element`, comma-separated, between `head` and `tail`.
std::string Repeat(const std::string& head, const std::string& element, int count, const std::string& tail) {
  std::string text;
  text.reserve(head.size() + (element.size() + 1) * static_cast<size_t>(count) + tail.size());
  text += head;
  for (int i = 0; i < count; ++i) {
    if (i != 0) text += ',';
    text += element;
  }
  return text + tail;
}

std::string Replace(std::string text, const std::string& from, const std::string& to) {
  for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
  return text;
}

// ---- Huge lists and texts -------------------------------------------------------

// Each list has 300,000 elements; the parse must stay linear (a walk that
// indexes the array from its start for every element would take minutes).
// The time is printed; the bound catches only walks far from linear. (The
// growable array's mandated growth, at most 1024 slots at a time, makes
// appending quadratic in copies: lists of a million elements spend their
// time in the sanitizer's page faults rather than in the parser.)
TEST(HostileInput, HugeListsParseInLinearTime) {
  constexpr int kHuge = 300000;
  struct Huge {
    const char* name;
    Op op;
    std::string input;
    const char* key;  // a key of the result whose int value is `count`
    int count;
    const char* list;  // a list key of the result and its length
    int length;
  };
  const Huge cases[] = {
      {"POI page of non-objects", P::ParsePoiListRst,
       Repeat(R"({"result":{"error":0},"poi_result":{"option":{},"place_info":{},"contents":[)", "1", kHuge, "]}}"),
       "count", kHuge, "pois", 0},
      {"city list of small objects", P::ParseCityList,
       Repeat(R"({"result":{"error":0},"traffic_citys":{"contents":[)", R"({"code":1})", kHuge, "]}}"),
       "count", kHuge, "citys", kHuge},
      {"suggested queries of non-objects", P::GetSuggestQueryFromJson, Repeat("[", "[]", kHuge, "]"), "num",
       kHuge, "result", 0},
      {"route point flags", P::GetRPAddrResInfoFromJson,
       Repeat(R"({"city_list":[)", "0", kHuge, R"(],"prio_flag":[],"wp_wd":[]})"), "have_stcitylist", 0,
       "wplist", kHuge - 2},
      {"sub-searches of non-lists", P::ParseAreaMultiSearchRst,
       Repeat(R"({"result":{"result_array":[]},"content":[)", "{}", kHuge, "]}"), "none", 0, "content", 0},
  };
  for (const Huge& c : cases) {
    SCOPED_TRACE(c.name);
    testing_support::Json root = testing_support::ParseJson(c.input);
    const auto start = std::chrono::steady_clock::now();
    CVBundle bundle;
    EXPECT_EQ(c.op(root.get(), bundle), 1);
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::printf("[ timing   ] %s: %.2f s\n", c.name, seconds);
    EXPECT_LT(seconds, 20.0);
    EXPECT_EQ(bundle.GetInt(c.key), c.count);
    const CVBundle::BundleArray* records = bundle.GetBundleArray(c.list);
    const CVBundle::StringArray* texts = bundle.GetStringArray(c.list);
    EXPECT_EQ(records != nullptr ? records->m_nSize : texts != nullptr ? texts->m_nSize : 0, c.length);
  }
}

TEST(HostileInput, MegabyteTextsAndALongTelephone) {
  const std::string ascii(1 << 20, 'a');
  std::string wide;
  while (wide.size() < (1u << 20)) wide += "\xE5\x90\x8D";  // U+540D, 3 bytes
  const std::string poi = R"({"name":")" + wide + R"(","addr":")" + ascii + R"("})";
  {
    testing_support::Json root = testing_support::ParseJson(poi);
    CVBundle bundle;
    ASSERT_EQ(P::GetPoiContentFromJson(root.get(), bundle), 1);
    EXPECT_EQ(bundle.GetString("name")->GetLength(), static_cast<int>(wide.size() / 3));
    EXPECT_EQ(bundle.GetString("addr")->GetLength(), 1 << 20);
  }
  // The telephone goes through an 80-byte buffer (cut at a whole character,
  // json_readers_test.cpp), then its separators are normalised.
  std::string tel;
  while (tel.size() < 10240) tel += "12345678; ";
  std::string numbers;
  for (int i = 0; i < 7; ++i) numbers += "12345678,";
  RunCases({
      {"10 KB telephone", P::GetPoiContentFromJson, R"({"tel":")" + tel + R"("})", 1,
       R"({"tel":")" + numbers + R"(12345678","type":0})"},
  });

  // Megabyte texts where operations read texts themselves.
  std::string geometry;
  while (geometry.size() < (1u << 20)) geometry += "100,200;";
  RunCases({
      {"long position", P::ParseEspecialQueryRst, R"({"content":[")" + ascii + R"(,1","1"]})", 0, "{}"},
      {"long message", P::ParsePoiIndoorRst, R"({"errNo":1,"Msg":")" + ascii + R"(floor"})", 1,
       R"({"errNo":602})"},
      {"long geometry", P::ParseDistrictRst,
       R"({"result":{},"content":[{"geo":"1|)" + geometry + R"("}]})", 1,
       R"({"level":0,"x":1.0,"y":2.0})"},
  });
}

// ---- Invalid UTF-8 in every text path ----------------------------------------------

// Every kind of invalid sequence: a lone continuation byte, an overlong
// form, an encoded surrogate, a code point beyond U+10FFFF, a byte that is
// never UTF-8, and a sequence cut short by the end of the text.
const std::string kBad = "a\x80" "b\xC0\xAF" "c\xED\xA0\x80" "d\xF4\x90\x80\x80" "e\xFF" "\xE4\xB8";

// The bad text as the readers decode it (each invalid part a U+FFFD) and as
// the byte-widening paths keep it (each byte one character), in UTF-8.
std::string Decoded(const std::string& bytes) {
  return _quarn_vi::CVCMMap::Utf8ToUnicode(bytes.data(), static_cast<unsigned>(bytes.size())).ToUtf8();
}
std::string Widened(const std::string& bytes) { return CVString(bytes.c_str()).ToUtf8(); }

TEST(HostileInput, InvalidUtf8InEveryTextPath) {
  const std::string d = Decoded(kBad);
  const std::string w = Widened(kBad);
  // The telephone buffer holds the decoded text as UTF-8 bytes; they are widened.
  const std::string t = Widened(d);
  std::vector<Case> cases = {
      {"POI record texts", P::GetPoiContentFromJson,
       R"({"name":"@","tel":"@","rec_reason":["@"],"ext":{"src_name":"@","detail_info":{"tag":"@","flag":["@"],)"
       R"("premium_info":{"name":"@"},"book_info":{"tel":{"title":"@"}}}}})",
       1,
       R"({"name":"D","tel":"T","type":0,"place":{"src_name":"D","flag":["D"],"tag":"D","premium_flag":"0",)"
       R"("discount_total":"0","groupon_total":"0","name":"D","movie_flag":"0","movie_film_count":"-1",)"
       R"("groupon_flag":"0","book_info":{"tel":{"title":"D"}}},"rec_reason":["D"]})"},
      {"hints, bytes widened", P::GetPsrsFromJson, R"({"SEResult":["@"]})", 1, R"({"result":["W"]})"},
      {"hints, bytes widened in UTF-8 mode too", P::GetPsrsFromJson, R"({"SEResult":["@"]})", 1,
       R"({"result":["W"]})", true},
      {"suggested query, bytes widened", P::GetSuggestQueryFromJson, R"([{"query":"@"}])", 1,
       R"({"num":1,"result":["W"]})"},
      {"suggested query, UTF-8 mode", P::GetSuggestQueryFromJson, R"([{"query":"@"}])", 1,
       R"({"num":1,"result":["D"]})", true},
      {"city records", P::ParseCityList,
       R"({"result":{"error":0},"traffic_citys":{"current_city":{"name":"@"},"contents":[{"name":"@"}]}})", 1,
       R"({"current_city":{"name":"D","level":0},"count":1,"citys":[{"name":"D"}],"current_null":true})"},
      {"city query", P::ParseCityQueryRst, R"({"content":{"cname":"@","pcname":"@"}})", 1,
       R"({"type":0,"name":"D","pcname":"D","level":4})"},
      {"indoor record", P::GetIndoorPoiContentFromJson, R"({"name":"@","twp":"@"})", 1,
       R"({"name":"D","t_flag":false,"w_flag":false,"p_flag":false})"},
      {"indoor message", P::ParsePoiIndoorRst, R"({"errNo":1,"Msg":"@bid"})", 1, R"({"errNo":601})"},
      {"coordinate query", P::ParseEspecialQueryRst, R"({"content":["@,@","@"]})", 1,
       R"({"x":0.0,"y":0.0,"level":0})"},
      {"district geometry", P::ParseDistrictRst, R"({"result":{},"content":[{"geo":"1|@"}]})", 0, "{}"},
      {"way point keywords, bytes widened", P::GetRPAddrResInfoFromJson,
       R"({"city_list":[0,0,0],"wp_wd":["@"],"s_wd":"@","start_city":{"cname":"@"}})", 1,
       R"({"have_stcitylist":false,"have_stprio":false,"have_encitylist":false,"have_enprio":false,)"
       R"("wplist":[{"have_wpcitylist":false,"have_wpprio":false,"wp_keyword":"W"}],"st_keyword":"D",)"
       R"("st_cityname":"D"})"},
      {"way point keywords, UTF-8 mode", P::ParseRouteAddrRst,
       R"({"result":{"error":0},"traffic_pois":{"option":{"city_list":[0,0,0],"wp_wd":["@"]},)"
       R"("content":{"start":[{"name":"@"}],"multi_waypoints":[{"way_points":[{"name":"@"}]}]}}})",
       1,
       R"({"startpoints":[{"name":"D"}],"waypoints_result":[{"have_wpcitylist":false,"wp_count":1,)"
       R"("waypoints":[{"name":"D"}],"have_wpprio":true,"wp_keyword":"D"}],"hasAddrList":true,)"
       R"("address_info":{"have_stcitylist":false,"have_stprio":true,"have_encitylist":false,)"
       R"("have_enprio":false,"st_count":1,"en_count":0}})",
       true},
  };
  for (Case& c : cases) {
    c.input = Replace(c.input, "@", kBad);
    c.expected = Replace(Replace(Replace(c.expected, "\"D", "\"" + d), "\"W", "\"" + w), "\"T", "\"" + t);
  }
  RunCases(cases);
}

// ---- NULs, duplicates and numbers beyond int32 ------------------------------------------

// cJSON ends a text at an escaped NUL (\u0000): a member name or value is
// read up to it. Of duplicate members the first counts, as cJSON finds it.
TEST(HostileInput, NulsAndDuplicateMembers) {
  RunCases({
      {"NUL in values", P::GetPoiContentFromJson, R"({"name":"ab\u0000cd","tel":"12\u000034","uid":"\u0000"})", 1,
       R"({"name":"ab","uid":"","tel":"12","type":0})"},
      {"NUL in a name", P::GetPoiContentFromJson, R"({"na\u0000me":"X","name":"Y","name\u0000x":"Z"})", 1,
       R"({"name":"Y","type":0})"},
      {"NUL ends a name early", P::GetPoiContentFromJson, R"({"name\u0000x":"Z","name":"Y"})", 1,
       R"({"name":"Z","type":0})"},
      {"NUL after a status", P::ParseCityList, R"({"result":{"error":"0\u0000x"},"traffic_citys":{}})", 1,
       R"({"current_null":false})"},
      {"NUL query", P::GetSuggestQueryFromJson, R"([{"query":"\u0000q"}])", 1, R"({"num":1,"result":[""]})"},
      {"duplicate record members", P::GetPoiContentFromJson, R"({"name":"A","name":"B","show":{"name":1},"show":[]})",
       1, R"({"name":"A","type":0,"show":{"name":1}})"},
      {"duplicate status frames", P::ParseCityList,
       R"({"result":{"error":1},"result":{"error":0},"traffic_citys":{}})", 0, "{}"},
      {"duplicate status", P::ParseCityList, R"({"result":{"error":0,"error":1},"traffic_citys":{}})", 1,
       R"({"current_null":false})"},
      {"duplicate lists", P::ParseCityList,
       R"({"result":{"error":0},"traffic_citys":{"contents":[{"code":1}],"contents":[{"code":2}]},)"
       R"("traffic_citys":[]})",
       1, R"({"count":1,"citys":[{"code":1}],"current_null":true})"},
      {"duplicate route flags", P::GetRPAddrResInfoFromJson, R"({"city_list":[1,1],"city_list":[0,0]})", 1,
       R"({"have_stcitylist":true,"have_stprio":false,"have_encitylist":true,"have_enprio":false})"},
  });
}

// The readers' own saturation rows are in json_readers_test.cpp.
TEST(HostileInput, NumbersBeyondInt32) {
  RunCases({
      {"integers as text", P::GetPoiDetailFromJson, R"({"premium_flag":1e400,"movie_film_count":-1e400})", 1,
       R"({"premium_flag":"2147483647","discount_total":"0","groupon_total":"0","movie_flag":"0",)"
       R"("movie_film_count":"-2147483648","groupon_flag":"0"})"},
      {"a sort rule beyond int32", P::ParseAreaSearchRst,
       R"({"result":{},"place_info":{"d_sort_rule":"99999999999"}})", 1,
       R"({"placeparam":{"sortrule":2147483647},"count":0})"},
      {"coordinates beyond int32", P::ParseDistrictRst,
       R"({"result":{},"content":[{"geo":"1|1e400,1;"}],"current_city":{"level":1e400}})", 0,
       R"({"current_city":{"level":2147483647}})"},
      {"a status beyond int32", P::ParsePoiIndoorRst, R"({"errNo":1e400})", 1, R"({"errNo":603})"},
      // Numeric texts read by atoi's rules saturate instead of wrapping.
      {"a level text beyond int32", P::ParseEspecialQueryRst, R"({"content":["1,2","99999999999999999999"]})",
       1, R"({"x":1.0,"y":2.0,"level":2147483647})"},
      {"a level text below int32", P::ParseEspecialQueryRst, R"({"content":["1,2"," -2147483649x"]})", 1,
       R"({"x":1.0,"y":2.0,"level":-2147483648})"},
      {"flags beyond int32", P::GetIndoorPoiContentFromJson, R"({"twp":"4294967301"})", 1,
       R"({"t_flag":true,"w_flag":true,"p_flag":true})"},
      {"flags below int32", P::GetIndoorPoiContentFromJson, R"({"twp":"-99999999999999999999"})", 1,
       R"({"t_flag":false,"w_flag":false,"p_flag":false})"},
      {"a status that is only nearly 0", P::ParseCityList, R"({"result":{"error":1e-400},"traffic_citys":{}})",
       1, R"({"current_null":false})"},
  });
}

// ---- String nodes without text -------------------------------------------------------

// Every string node of the tree loses its text (valuestring null, as a
// hand-built tree may have it); or has it replaced by "".
void ForEachString(cJSON* node, void (*change)(cJSON*)) {
  for (; node != nullptr; node = node->next) {
    if (_quarn_framework::IsJsonString(node)) change(node);
    ForEachString(node->child, change);
  }
}

void DropText(cJSON* node) {
  cJSON_free(node->valuestring);
  node->valuestring = nullptr;
}

void EmptyText(cJSON* node) { node->valuestring[0] = 0; }

// A string without text reads as the empty string wherever it is read: every
// operation on its example node (the record operations on their own nodes).
TEST(HostileInput, StringNodesWithoutTextReadAsEmpty) {
  for (const testing_support::ExampleOp& example : testing_support::ExampleOps()) {
    if (example.op == nullptr) continue;
    SCOPED_TRACE(std::string(example.op_name) + " on " + example.example);
    const std::string text = testing_support::ReadExample(example.example);
    testing_support::Json without = testing_support::ParseJson(text);
    testing_support::Json empty = testing_support::ParseJson(text);
    ForEachString(without.get(), DropText);
    ForEachString(empty.get(), EmptyText);
    CVBundle from_without, from_empty;
    testing_support::TextModeScope mode(example.utf8);
    const int result_without = example.op(testing_support::NodeAt(without.get(), example.path), from_without);
    CJsonObjParser::isParsePHPUI2Res = example.utf8;  // the dispatcher clears it
    const int result_empty = example.op(testing_support::NodeAt(empty.get(), example.path), from_empty);
    EXPECT_EQ(result_without, result_empty);
    EXPECT_EQ(testing_support::ToJson(from_without), testing_support::ToJson(from_empty));
  }
}

// ---- Members of the wrong JSON type ------------------------------------------------------

// Every member an operation reads has a type that its reader cannot use:
// a gate (a member without which the answer is refused) refuses (most gates
// are in diagnostics_test.cpp's refusal table); any other member costs only
// its own keys, and the keys that are always stored stay.
TEST(HostileInput, EveryMemberOfTheWrongType) {
  RunCases({
      // City list.
      {"city list", P::ParseCityList, R"({"result":{"error":0},"traffic_citys":{"current_city":[],"contents":{}}})",
       1, R"({"current_null":false})"},
      {"city records", P::ParseCityList,
       R"({"result":{"error":0},"traffic_citys":{"contents":[{"code":{},"num":[],"name":{}},[],"x"]}})", 1,
       R"({"count":1,"citys":[{}],"current_null":true})"},
      {"city array", AsList<P::GetCityInfoArrayFromJson>, R"([[],"x",null])", 0, R"({"list":[]})"},
      // POI records.
      {"POI record", P::GetPoiContentFromJson,
       R"({"geo":{},"name":[],"uid":{},"acc_flag":{},"addr":[],"detail":{},"tel":{},"poiType":{},)"
       R"("indoor_pano":[],"pano":{},"aoi":[],"show":[],"ext":[],"dis":{},"rp_des":[],"sep_char":{},)"
       R"("rec_reason":{}})",
       1, R"({"type":0})"},
      {"POI place", P::GetPoiContentFromJson, R"({"ext":{"src_name":{},"detail_info":{}}})", 1, R"({"type":0})"},
      {"show record", P::GetPoiShowFromJson,
       R"({"address":{},"image":[],"name":{},"icon":"x","distance":{},"overall_rating":[],"price":{},)"
       R"("ep_char":{},"ec_reason":{},"phone_button":{},"map_button":{},"book_info":{}})",
       1, "{}"},
      {"show record of a text", P::GetPoiShowFromJson, R"("x")", 0, "{}"},
      {"detail record", P::GetPoiDetailFromJson,
       R"({"flag":{},"overall_rating":{},"image":[],"price":{},"price_text":[],"tag":{},"ota_price":{},)"
       R"("vesk_realtime_price_flag":{},"vesk_realtime_price":[],"show_info":{},"premium_flag":{},)"
       R"("discount_total":[],"groupon_total":{},"premium_info":[],"comment_num":{},"movie_flag":{},)"
       R"("movie_film_count":[],"groupon_flag":{},"groupon_info":[],"oril_info":[],"wap_bookable":{},)"
       R"("book_info":[]})",
       1,
       R"({"premium_flag":"0","discount_total":"0","groupon_total":"0","movie_flag":"0",)"
       R"("movie_film_count":"-1","groupon_flag":"0","book_info":{}})"},
      {"detail sub-records", P::GetPoiDetailFromJson,
       R"({"premium_info":{"discount_content":{},"name":[]},"groupon_info":{"groupon_num":{}},)"
       R"("oril_info":{"oril_detail":[[],{"oril_price":{},"oril_type":[]}]},"book_info":{"tel":[],"web":"x"}})",
       1,
       R"({"premium_flag":"0","discount_total":"0","groupon_total":"0","movie_flag":"0",)"
       R"("movie_film_count":"-1","groupon_flag":"0","oril_detail":[{}],"book_info":{}})"},
      {"psrs", P::GetPsrsFromJson, R"({"SENum":{},"SEResult":{}})", 0, "{}"},
      {"psrs texts", P::GetPsrsFromJson, R"({"SENum":[],"SEResult":[{},[],1,null]})", 1, "{}"},
      {"suggested queries", P::GetSuggestQueryFromJson, R"([{"query":{}},{"query":1},[],"q"])", 1,
       R"({"num":4})"},
      // Search answers.
      {"POI list gates", P::ParsePoiListRst, R"({"result":{"error":0},"poi_result":[]})", 0,
       R"({"search_type":0})"},
      {"POI list", P::ParsePoiListRst,
       R"({"result":{"error":0},"poi_result":{"option":{"total":{},"loc_attr":[],"op_gel":{},"qid":[],)"
       R"("rp_strategy":{}},"place_info":{"d_data_type":{},"d_sort_type":[],"d_sort_rule":{}},)"
       R"("current_city":[],"contents":{},"addrs":{},"psrs":[],"suggest_query":{}}})",
       1, R"({"search_type":0,"placeparam":{},"count":0})"},
      {"area search gate", P::ParseAreaSearchRst, R"({"result":[]})", 0, "{}"},
      {"area search", P::ParseAreaSearchRst,
       R"({"result":{"total":{},"op_gel":[],"from":{},"op_addr":{},"loc_attr":[],"strategy":{},"qid":[],)"
       R"("rp_strategy":{}},"current_city":[],"psrs":[],"suggest_query":{},"place_info":[],"content":{}})",
       1, R"({"placeparam":{},"count":0})"},
      {"multi-area gates", P::ParseAreaMultiSearchRst, R"({"result":{"result_array":{}}})", 0, "{}"},
      {"multi-area search", P::ParseAreaMultiSearchRst,
       R"({"result":{"result_array":[{"count":{},"catalogID":[],"op_gel":{},"page_num":{},"total":{},)"
       R"("type":{},"wd":{}}]},"content":[{},"x",[[],1]]})",
       1, R"({"result":[{}],"content":[{"cont":[]}]})"},
      {"circum search without a centre", P::ParseCircumSearchRst,
       R"({"result":{"total":{},"op_gel":[],"op_addr":{}},"current_city":[],"psrs":[],"suggest_query":{},)"
       R"("content":{},"center":{"poi":{}}})",
       0, "{}"},
      {"circum search", P::ParseCircumSearchRst, R"({"result":{},"content":{},"center":{"poi":[[],"x"]}})", 1,
       "{}"},
      {"city query", P::ParseCityQueryRst,
       R"({"content":{"city_type":{},"code":[],"cname":{},"geo":[],"uid":{},"pccode":{},"pcname":[],)"
       R"("level":{},"sup_bus":{},"sup_business_area":[],"sup_subway":{},"sup_lukuang":"x"},"current_city":[]})",
       1, R"({"type":0,"level":4})"},
      {"city query of a list", P::ParseCityQueryRst, R"({"content":[]})", 1, R"({"type":0,"level":4})"},
      {"city query of null", P::ParseCityQueryRst, R"({"content":null})", 1, R"({"type":0,"level":4})"},
      {"address", P::GetAddrContentFromJson, R"({"addr":{},"geo":[],"name":{},"precise":"x"})", 1, "{}"},
      {"district", P::ParseDistrictRst, R"({"result":{},"current_city":[],"content":[{"geo":{}}]})", 0, "{}"},
      {"district", P::ParseDistrictRst, R"({"result":{},"current_city":{"level":{}},"content":[[]]})", 0,
       R"({"current_city":{"level":0}})"},
      {"indoor page", P::ParsePoiIndoorRst, R"({"errNo":0,"data":{"page_num":{},"poi_num":[],"poi_list":{}}})", 1,
       "{}"},
      {"indoor list", P::ParsePoiIndoorRst, R"({"errNo":0,"data":{"poi_list":[[],"x"]}})", 1,
       R"({"poi_list":[]})"},
      {"indoor status", P::ParsePoiIndoorRst, R"({"errNo":{}})", 1, R"({"errNo":603})"},
      {"indoor message", P::ParsePoiIndoorRst, R"({"errNo":1,"Msg":{}})", 1, "{}"},
      {"indoor record", P::GetIndoorPoiContentFromJson,
       R"({"address":{},"qx_id":[],"cid":{},"discount":{},"floor":[],"name":{},"phone":{},"poi_rank":[],)"
       R"("price":{},"pt_x":{},"pt_y":[],"star_level":{},"tag":{},"tuan_nums":[],"uid":{},"twp":{}})",
       1, R"({"t_flag":false,"w_flag":false,"p_flag":false})"},
      // Route addresses.
      {"route status", P::GetRPAddrResInfoFromJson,
       R"({"city_list":{},"prio_flag":{},"wp_wd":{},"s_wd":{},"e_wd":[],"if_nav":{},"start_city":[],)"
       R"("end_city":"x"})",
       1, "{}"},
      {"route point flags", P::GetRPAddrResInfoFromJson, R"({"city_list":[{},[],"x"],"prio_flag":[{}]})", 1,
       "{}"},
      {"route places", AsList<P::GetRPAddrListFromJson>, R"([{},{"uid":{},"name":[]},"x"])", 1,
       R"({"list":[{},{}]})"},
      {"route, first form", P::ParseRouteAddrPHPUIRst, R"({"result":[],"current_city":[],"content":[]})", 1,
       R"({"address_info":{}})"},
      {"route candidates, first form", P::ParseRouteAddrPHPUIRst,
       R"({"result":{},"content":{"start":{},"end":"x","waypoints":{}}})", 1,
       R"({"address_info":{"st_count":0,"en_count":0}})"},
      {"route, second form", P::ParseRouteAddrPHPUI2Rst,
       R"({"result":{"error":0},"traffic_pois":{"option":[],"current_city":[],"content":[]}})", 1,
       R"({"address_info":{}})"},
      {"route candidates, second form", P::ParseRouteAddrPHPUI2Rst,
       R"({"result":{"error":0},"traffic_pois":{"option":{},"content":{"start":{},"end":{},)"
       R"("multi_waypoints":{}}}})",
       1, R"({"hasAddrList":false,"address_info":{"st_count":0,"en_count":0}})"},
  });
}

// ---- Trees built through cJSON's API ------------------------------------------------

// cJSON's parser stops at 1,000 levels; its API does not. A chain of
// `levels` containers, objects and arrays in turn ({"d": [{"d": [...]}]}),
// made and freed without recursion (cJSON_Delete recurses).
cJSON* Chain(int levels) {
  cJSON* inner = cJSON_CreateObject();
  for (int i = 1; i < levels; ++i) {
    cJSON* outer = i % 2 == 1 ? cJSON_CreateArray() : cJSON_CreateObject();
    if (i % 2 == 1) {
      cJSON_AddItemToArray(outer, inner);
    } else {
      cJSON_AddItemToObject(outer, "d", inner);
    }
    inner = outer;
  }
  return inner;
}

cJSON* Bottom(cJSON* chain) {
  while (chain->child != nullptr) chain = chain->child;
  return chain;
}

void FreeChain(cJSON* node) {
  while (node != nullptr) {
    cJSON* child = node->child;
    cJSON_free(node->string);
    cJSON_free(node);
    node = child;
  }
}

// Puts `fresh` (in no list) where `old` is among `parent`'s children, under
// old's name; Put(parent, fresh, old) undoes it.
void Put(cJSON* parent, cJSON* old, cJSON* fresh) {
  fresh->string = old->string;
  fresh->next = old->next;
  fresh->prev = old->prev == old ? fresh : old->prev;
  if (parent->child == old) {
    parent->child = fresh;
  } else {
    old->prev->next = fresh;
  }
  if (old->next != nullptr) {
    old->next->prev = fresh;
  } else if (parent->child != fresh) {
    parent->child->prev = fresh;
  }
  old->string = nullptr;
  old->next = old->prev = nullptr;
}

struct Outcome {
  int result;
  std::string bundle;
  std::vector<std::string> reports;
};

Outcome RunDiagnosed(const testing_support::ExampleOp& example, cJSON* root, cJSON* node) {
  testing_support::TextModeScope mode(example.utf8);
  _quarn_framework::CVDiagnostics diagnostics;
  CVBundle bundle;
  P::BundleArray array;
  Outcome outcome;
  {
    _quarn_framework::CVDiagnosticsScope scope(diagnostics);
    outcome.result = example.op != nullptr ? example.op(node, bundle) : example.array_op(node, array);
  }
  bundle.SetBundleArray("*", std::move(array));
  outcome.bundle = testing_support::ToJson(bundle);
  for (const auto& d : diagnostics.Resolve(root)) outcome.reports.push_back(d.path + " " + d.message);
  return outcome;
}

// Every member (or element) of each operation's node, in turn, becomes a
// chain of 100,000 levels: the operation, its diagnostics and their paths
// are those of a chain of 4 levels, as the operations read records at fixed
// depths. A report at the chain's bottom gets its full path.
TEST(HostileInput, TreesBuiltThroughTheApiHaveNoDepthLimit) {
  constexpr int kLevels = 100000;
  cJSON* deep = Chain(kLevels);
  cJSON* shallow = Chain(4);
  int grafts = 0;
  for (const testing_support::ExampleOp& example : testing_support::ExampleOps()) {
    testing_support::Json root = testing_support::ParseJson(testing_support::ReadExample(example.example));
    cJSON* node = testing_support::NodeAt(root.get(), example.path);
    ASSERT_NE(node, nullptr);
    for (cJSON* member = node->child; member != nullptr;) {
      SCOPED_TRACE(std::string(example.op_name) + " on " + example.example + ", member " +
                   (member->string != nullptr ? member->string : "(element)"));
      Put(node, member, deep);
      const Outcome from_deep = RunDiagnosed(example, root.get(), node);
      Put(node, deep, shallow);
      const Outcome from_shallow = RunDiagnosed(example, root.get(), node);
      Put(node, shallow, member);
      EXPECT_EQ(from_deep.result, from_shallow.result);
      EXPECT_EQ(from_deep.bundle, from_shallow.bundle);
      EXPECT_EQ(from_deep.reports, from_shallow.reports);
      ++grafts;
      member = member->next;
    }
  }
  EXPECT_GT(grafts, 100);

  // The refusal comes after the deep branch in document order.
  cJSON* root = cJSON_CreateObject();
  cJSON_AddItemToObject(root, "deep", deep);
  cJSON_AddNumberToObject(cJSON_AddObjectToObject(root, "result"), "error", 1);
  _quarn_framework::CVDiagnostics diagnostics;
  CVBundle bundle;
  {
    _quarn_framework::CVDiagnosticsScope scope(diagnostics);
    EXPECT_EQ(P::ParsePoiListRst(root, bundle), 0);
  }
  diagnostics.Add({_quarn_framework::CVDiagnostics::kSkipped, Bottom(deep), nullptr, nullptr, "the bottom"});
  const auto resolved = diagnostics.Resolve(root);
  ASSERT_EQ(resolved.size(), 2u);
  EXPECT_EQ(resolved[0].path, "$.result.error");
  std::string bottom = "$.deep";
  for (int i = kLevels - 1; i > 0; --i) bottom += i % 2 == 1 ? "[0]" : ".d";
  EXPECT_EQ(resolved[1].path, bottom);
  cJSON_DetachItemViaPointer(root, deep);
  cJSON_Delete(root);
  FreeChain(deep);
  FreeChain(shallow);
}

}  // namespace
