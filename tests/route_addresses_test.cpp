// Route-address answers: the status block, candidate places, both forms and
// the dispatcher.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "TestSupport.h"

namespace {

using _quarn_framework::CJsonObjParser;
using testing_support::ExpectCases;
using testing_support::P;

TEST(RouteAddrStatus, PointFlagsKeywordsAndCities) {
  ExpectCases(P::GetRPAddrResInfoFromJson, {
    // Start, two way points, end.
    {R"({"city_list":[0,1,1,0],"prio_flag":[1,0,0,1],"wp_wd":["a","b"]})", 1,
     R"({"have_stcitylist":false,"have_stprio":true,"have_encitylist":false,"have_enprio":true,)"
     R"("wplist":[{"have_wpcitylist":true,"have_wpprio":false,"wp_keyword":"a"},)"
     R"({"have_wpcitylist":true,"have_wpprio":false,"wp_keyword":"b"}]})"},
    {R"({"city_list":[1],"prio_flag":[1]})", 1, R"({"have_stcitylist":true,"have_stprio":true})"},
    // An unreadable prio_flag element keeps the flag of the last readable one.
    {R"({"city_list":[0,1,0,0],"prio_flag":[1,"x"]})", 1,
     R"({"have_stcitylist":false,"have_stprio":true,"have_encitylist":false,"have_enprio":true,)"
     R"("wplist":[{"have_wpcitylist":true,"have_wpprio":true},{"have_wpcitylist":false,"have_wpprio":true}]})"},
    // A missing middle element moves the later way points up, keywords by position.
    {R"({"city_list":[0,null,1,0],"prio_flag":[0,0,1,0],"wp_wd":["w1","w2"]})", 1,
     R"({"have_stcitylist":false,"have_stprio":false,"have_encitylist":false,"have_enprio":false,)"
     R"("wplist":[{"have_wpcitylist":true,"have_wpprio":true,"wp_keyword":"w2"}]})"},
    // A missing last element drops the end and the way points.
    {R"({"city_list":[0,1,{}],"wp_wd":["w1"]})", 1, R"({"have_stcitylist":false,"have_stprio":false})"},
    // wp_wd shorter than the way points, or with a non-string.
    {R"({"city_list":[0,0,0,0,0],"wp_wd":[7,"w2"]})", 1,
     R"({"have_stcitylist":false,"have_stprio":false,"have_encitylist":false,"have_enprio":false,)"
     R"("wplist":[{"have_wpcitylist":false,"have_wpprio":false},)"
     R"({"have_wpcitylist":false,"have_wpprio":false,"wp_keyword":"w2"},)"
     R"({"have_wpcitylist":false,"have_wpprio":false}]})"},
    // No flags: keywords and cities are still read.
    {R"({"city_list":{"0":1},"s_wd":"西直门","e_wd":"E","if_nav":1,)"
     R"("start_city":{"cname":"北京市","code":131},"end_city":{"cname":"X","code":"7"}})", 1,
     R"({"st_keyword":"西直门","en_keyword":"E","is_incity":true,"st_cityname":"北京市",)"
     R"("st_citycode":131,"en_cityname":"X","en_citycode":7})"},
    {"[1]", 0, "{}"},
  });
}

TEST(RouteAddrPlaces, OneRecordReusedAcrossElements) {
  ExpectCases(testing_support::AsList<P::GetRPAddrListFromJson>, {
    // A member missing later keeps the earlier value; non-objects are skipped.
    {R"([{"uid":"u1","name":"n1","addr":"a1","geo":"g1"},3,{"uid":"u2","name":"n2"}])", 1,
     R"({"list":[{"uid":"u1","name":"n1","addr":"a1","geo":"g1"},)"
     R"({"uid":"u2","name":"n2","addr":"a1","geo":"g1"}]})"},
    {"[1,[],null]", 0, R"({"list":[]})"},
    {R"({"uid":"u1"})", 0, R"({"list":[]})"},
  });
}

// One route, given once as status block and candidate lists, run through
// both forms; a null list leaves the member out.
struct Route {
  const char* name;
  const char* status;
  const char* start;
  const char* end;
  std::vector<const char*> waypoints;
  std::string first_form;
  std::string second_form;
};

std::string Member(const char* name, const char* value) {
  return value ? std::string(",\"") + name + "\":" + value : "";
}

std::string Content(const Route& r, const char* waypoints_member, const char* wrap) {
  std::string waypoints = "[";
  for (const char* w : r.waypoints) {
    waypoints += (waypoints.size() > 1 ? "," : "") + (std::string(wrap) + w) + (*wrap ? "}" : "");
  }
  return "{\"_\":0" + Member("start", r.start) + Member("end", r.end) +
         Member(waypoints_member, (waypoints + "]").c_str()) + "}";
}

#define CITIES R"([{"code":1,"name":"A"},{"code":2,"name":"B"}])"
#define PLACE1 R"([{"uid":"u1","name":"p1"}])"
#define PLACES2 R"([{"uid":"u1","name":"p1"},{"uid":"u2","name":"p2"}])"

TEST(RouteAddrForms, DecisionTableForStartEndAndWayPoints) {
  const std::string wp1 = R"({"have_wpcitylist":true,"wp_count":2,"waypointcitys":)" CITIES
                          R"(,"have_wpprio":false,"wp_keyword":"w1"},)";
  const std::string wp456 =
      R"({"have_wpcitylist":false,"wp_count":1,"waypoints":)" PLACE1
      R"(,"have_wpprio":true,"wp_keyword":"w4"},{"have_wpcitylist":false,"wp_count":2,"waypoints":)"
      PLACES2 R"(,"have_wpprio":false,"wp_keyword":"w5"},)"
      R"({"have_wpcitylist":false,"wp_count":0,"have_wpprio":false}])";
  const std::string no_flags_info = R"("address_info":{"have_stcitylist":false,"have_stprio":false,)"
                                    R"("have_encitylist":false,"have_enprio":false,"st_count":0,"en_count":0}})";
  const std::vector<Route> routes = {
    {"start and end matched: start cities, end places", R"({"city_list":[1,0],"prio_flag":[1,1]})",
     CITIES, PLACES2, {},
     R"({"startcitys":)" CITIES R"(,"endpoints":)" PLACES2 R"(,"address_info":{"have_stcitylist":true,)"
     R"("have_stprio":true,"have_encitylist":false,"have_enprio":true,"st_count":2,"en_count":2}})",
     R"({"hasAddrList":false,"address_info":{"have_stcitylist":true,"have_stprio":true,)"
     R"("have_encitylist":false,"have_enprio":true}})"},
    {"start with one place becomes matched; end cities", R"({"city_list":[0,1],"prio_flag":[0,0]})",
     PLACE1, CITIES, {},
     R"({"startpoints":)" PLACE1 R"(,"endcitys":)" CITIES R"(,"address_info":{"have_stcitylist":false,)"
     R"("have_stprio":true,"have_encitylist":true,"have_enprio":false,"st_count":1,"en_count":2}})",
     R"({"startpoints":)" PLACE1 R"(,"endcitys":)" CITIES R"(,"hasAddrList":true,"address_info":{)"
     R"("have_stcitylist":false,"have_stprio":true,"have_encitylist":true,"have_enprio":false,)"
     R"("st_count":1,"en_count":2}})"},
    {"way points: cities, matched cities, matched places, one place, two places, no list",
     R"({"city_list":[0,1,1,0,0,0,0,0],"prio_flag":[0,0,1,1,0,0,0,0],"wp_wd":["w1","w2","w3","w4","w5"]})",
     nullptr, nullptr, {CITIES, CITIES, PLACES2, PLACE1, PLACES2},
     R"({"waypoints_result":[)" + wp1 + R"({"have_wpcitylist":true,"wp_count":2,"waypointcitys":)" CITIES
     R"(,"have_wpprio":true,"wp_keyword":"w2"},{"have_wpcitylist":false,"wp_count":2,"waypoints":)"
     PLACES2 R"(,"have_wpprio":true,"wp_keyword":"w3"},)" + wp456 + "," + no_flags_info,
     R"({"waypoints_result":[)" + wp1 + R"({"have_wpcitylist":true,"wp_count":0,"have_wpprio":true,)"
     R"("wp_keyword":"w2"},{"have_wpcitylist":false,"wp_count":0,"have_wpprio":true,"wp_keyword":"w3"},)" +
     wp456 + R"(,"hasAddrList":true,)" + no_flags_info},
  };
  for (const Route& r : routes) {
    SCOPED_TRACE(r.name);
    std::string json;
    const std::string first = "{\"result\":" + std::string(r.status) +
                              ",\"content\":" + Content(r, "waypoints", "") + "}";
    EXPECT_EQ(testing_support::Run(P::ParseRouteAddrPHPUIRst, first, &json), 1);
    EXPECT_EQ(json, r.first_form);
    const std::string second = R"({"result":{"error":0},"traffic_pois":{"option":)" +
                               std::string(r.status) + ",\"content\":" +
                               Content(r, "multi_waypoints", "{\"way_points\":") + "}}";
    EXPECT_EQ(testing_support::Run(P::ParseRouteAddrPHPUI2Rst, second, &json), 1);
    EXPECT_EQ(json, r.second_form);
  }
}

TEST(RouteAddrForms, FramesAndMissingParts) {
  ExpectCases(P::ParseRouteAddrPHPUIRst, {
    {R"({"result":{"city_list":[1,0]},"current_city":{"code":9},"content":[]})", 1,
     R"({"current_city":{"code":9,"level":0},"address_info":{"have_stcitylist":true,)"
     R"("have_stprio":false,"have_encitylist":false,"have_enprio":false}})"},
    // No status block: start and end read as places.
    {R"({"content":{"start":)" PLACE1 "}}", 1,
     R"({"startpoints":)" PLACE1 R"(,"address_info":{"st_count":1,"have_stprio":true,"en_count":0}})"},
  });

  const std::string pois = R"("traffic_pois":{"option":{"city_list":[0,0,0]},"current_city":{"code":9},)"
                           R"("content":{"start":)" PLACE1 "}}";
  ExpectCases(P::ParseRouteAddrPHPUI2Rst, {
    {R"({"result":{},)" + pois + "}", 0, "{}"},
    {R"({"result":{"error":0},"traffic_pois":{"option":[],"current_city":{"code":9}}})", 1,
     R"({"current_city":{"code":9,"level":0},"address_info":{}})"},
    // Way points without multi_waypoints.
    {R"({"result":{"error":"0"},)" + pois + "}", 1,
     R"({"current_city":{"code":9,"level":0},"startpoints":)" PLACE1 R"(,"hasAddrList":true,)"
     R"("address_info":{"have_stcitylist":false,"have_stprio":true,"have_encitylist":false,)"
     R"("have_enprio":false,"st_count":1,"en_count":0}})"},
  });
}

TEST(RouteAddrDispatch, FlagChoosesTheFormAndIsClearedAfterTheSecond) {
  const std::string second = R"({"result":{"error":0},"traffic_pois":{"option":{}}})";
  const std::string refused = R"({"result":{"error":3},"traffic_pois":{"option":{}}})";
  const struct {
    testing_support::Op op;
    int flag;
    std::string input;
    int result;
    const char* bundle;
    int flag_after;
  } cases[] = {
      {P::ParseRouteAddrRst, 1, second, 1, R"({"address_info":{}})", 0},
      {P::ParseRouteAddrRst, 1, refused, 0, "{}", 0},
      // Without the flag the first form is parsed: it accepts the second
      // form's refused answer too (its "result" has no point flags).
      {P::ParseRouteAddrRst, 0, refused, 1, R"({"address_info":{}})", 0},
      // Calling the second form directly leaves the flag alone.
      {P::ParseRouteAddrPHPUI2Rst, 1, second, 1, R"({"address_info":{}})", 1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.input + " with the flag " + std::to_string(c.flag));
    CJsonObjParser::isParsePHPUI2Res = c.flag;
    std::string json;
    EXPECT_EQ(testing_support::Run(c.op, c.input, &json), c.result);
    EXPECT_EQ(json, c.bundle);
    EXPECT_EQ(CJsonObjParser::isParsePHPUI2Res, c.flag_after);
  }
  CJsonObjParser::isParsePHPUI2Res = 0;
}

#undef CITIES
#undef PLACE1
#undef PLACES2

}  // namespace
