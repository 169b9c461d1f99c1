#include "bench/AnswerGenerator.h"

#include <cstdio>
#include <string>

namespace bench {

namespace {

// xorshift32: tiny, and the same on every platform (unlike <random>'s
// distributions).
class Rng {
 public:
  explicit Rng(uint32_t seed) : m_state(seed ? seed : 0x9E3779B9u) {}
  uint32_t Next() {
    m_state ^= m_state << 13;
    m_state ^= m_state >> 17;
    m_state ^= m_state << 5;
    return m_state;
  }
  int Below(int n) { return static_cast<int>(Next() % static_cast<uint32_t>(n)); }
  template <size_t N>
  const char* Pick(const char* const (&items)[N]) {
    return items[Below(static_cast<int>(N))];
  }

 private:
  uint32_t m_state;
};

const char* const kBrands[] = {"星巴克", "海底捞火锅", "麦当劳", "瑞幸咖啡", "全聚德烤鸭",
                               "西贝莜面村", "喜茶", "肯德基", "庆丰包子铺", "必胜客"};
const char* const kBranches[] = {"三里屯太古里店", "王府井店", "国贸商城店", "中关村店", "望京SOHO店",
                                 "西单大悦城店", "五道口店", "朝阳大悦城店", "金融街店", "亦庄店"};
const char* const kDistricts[] = {"朝阳区", "东城区", "西城区", "海淀区", "丰台区", "通州区"};
const char* const kStreets[] = {"三里屯路", "王府井大街", "建国门外大街", "中关村大街", "阜成门外大街",
                                "望京街", "西单北大街", "朝阳北路"};
const char* const kTags[] = {"美食;咖啡厅", "美食;火锅", "美食;快餐", "美食;中餐馆", "购物;商场"};
const char* const kReasons[] = {"人气旺", "环境好", "服务热情", "口味正宗", "性价比高", "排队少"};
const char* const kQueries[] = {"咖啡", "火锅", "附近的咖啡", "烤鸭", "coffee", "包子"};
const char* const kCities[] = {"北京市", "上海市", "广州市", "深圳市", "杭州市", "成都市"};

std::string Hex(Rng& rng, int digits) {
  static const char kHex[] = "0123456789abcdef";
  std::string s;
  for (int i = 0; i < digits; ++i) s.push_back(kHex[rng.Below(16)]);
  return s;
}

std::string Num(long long v) { return std::to_string(v); }

std::string Geo(Rng& rng) {
  char buf[64];
  std::snprintf(buf, sizeof(buf), "1|%d.%02d,%d.%02d;", 12940000 + rng.Below(40000), rng.Below(100),
                4810000 + rng.Below(30000), rng.Below(100));
  return buf;
}

std::string Quote(const std::string& s) { return "\"" + s + "\""; }

std::string Show(Rng& rng) {
  static const char* const kNames[] = {"address", "image", "name", "icon", "distance", "overall_rating",
                                       "price", "ep_char", "ec_reason", "phone_button", "map_button",
                                       "book_info"};
  std::string s = "{";
  for (int i = 0; i < 12; ++i) {
    if (i) s += ",";
    s += Quote(kNames[i]) + ":" + Num(rng.Below(2));
  }
  return s + "}";
}

std::string Detail(Rng& rng) {
  int price = 20 + rng.Below(300);
  std::string s = "{";
  s += "\"flag\":[\"new\",\"hot\"],";
  s += "\"overall_rating\":\"" + Num(3 + rng.Below(2)) + "." + Num(rng.Below(10)) + "\",";
  s += "\"image\":\"https://img.example.com/poi/" + Hex(rng, 24) + ".jpg\",";
  s += "\"price\":\"" + Num(price) + "\",";
  s += "\"price_text\":\"人均¥" + Num(price) + "\",";
  s += "\"tag\":\"" + std::string(rng.Pick(kTags)) + "\",";
  s += "\"ota_price\":\"\",";
  s += "\"show_info\":\"营业中 10:00-22:00\",";
  s += "\"premium_flag\":" + Num(rng.Below(2)) + ",";
  s += "\"discount_total\":" + Num(rng.Below(5)) + ",";
  s += "\"groupon_total\":" + Num(rng.Below(9)) + ",";
  s += "\"premium_info\":{\"discount_content\":\"满100减20\",\"discount_dl\":\"https://m.example.com/d/" +
       Hex(rng, 8) + "\",\"discount_id\":\"" + Hex(rng, 12) + "\",\"name\":\"会员专享\"},";
  s += "\"comment_num\":\"" + Num(rng.Below(20000)) + "\",";
  s += "\"movie_flag\":0,";
  s += "\"groupon_flag\":" + Num(rng.Below(2)) + ",";
  s += "\"groupon_info\":{\"groupon_num\":\"" + Num(rng.Below(5000)) + "\",\"groupon_price\":\"" +
       Num(price - 10) + "\",\"groupon_title\":\"双人套餐\",\"groupon_image\":\"https://img.example.com/g/" +
       Hex(rng, 16) + ".jpg\",\"regular_price\":\"" + Num(price + 30) +
       "\",\"groupon_url_mobile\":\"https://m.example.com/g/" + Hex(rng, 10) + "\"},";
  s += "\"oril_info\":{\"oril_detail\":[{\"oril_price\":\"" + Num(price) +
       "\",\"oril_type\":\"堂食\"},{\"oril_price\":\"" + Num(price - 5) + "\",\"oril_type\":\"外卖\"}]},";
  s += "\"wap_bookable\":\"1\",";
  s += "\"book_info\":{\"tel\":{\"title\":\"电话预订\",\"content\":\"4008-123-" + Num(1000 + rng.Below(9000)) +
       "\"},\"web\":{\"title\":\"在线预订\",\"content\":\"https://m.example.com/b/" + Hex(rng, 8) + "\"}}";
  return s + "}";
}

std::string Poi(Rng& rng) {
  std::string s = "{";
  s += "\"name\":\"" + std::string(rng.Pick(kBrands)) + "(" + rng.Pick(kBranches) + ")\",";
  s += "\"uid\":\"" + Hex(rng, 24) + "\",";
  s += "\"geo\":\"" + Geo(rng) + "\",";
  s += "\"addr\":\"北京市" + std::string(rng.Pick(kDistricts)) + rng.Pick(kStreets) + Num(1 + rng.Below(200)) +
       "号\",";
  s += "\"tel\":\"(010)" + Num(60000000 + rng.Below(30000000)) + ";138" + Num(10000000 + rng.Below(89999999)) +
       "\",";
  s += "\"poiType\":" + Num(rng.Below(5)) + ",";
  s += "\"acc_flag\":1,\"detail\":1,";
  s += "\"indoor_pano\":\"09002200011" + Hex(rng, 12) + "\",";
  s += "\"pano\":" + Num(rng.Below(2)) + ",";
  s += "\"aoi\":\"" + std::string(rng.Pick(kStreets)) + "商圈\",";
  s += "\"dis\":" + Num(rng.Below(5000)) + ",";
  s += "\"rp_des\":\"距您" + Num(rng.Below(5000)) + "米\",";
  s += "\"sep_char\":\"|\",";
  s += "\"rec_reason\":[\"" + std::string(rng.Pick(kReasons)) + "\",\"" + rng.Pick(kReasons) + "\"],";
  s += "\"std_tag\":\"" + std::string(rng.Pick(kTags)) + "\",\"view_type\":0,\"city_id\":131,";
  s += "\"show\":" + Show(rng) + ",";
  s += "\"ext\":{\"src_name\":\"cater\",\"detail_info\":" + Detail(rng) + "}";
  return s + "}";
}

std::string Pois(Rng& rng, int count) {
  std::string s = "[";
  for (int i = 0; i < count; ++i) {
    if (i) s += ",";
    s += Poi(rng);
  }
  return s + "]";
}

std::string CurrentCity() {
  return "{\"code\":131,\"name\":\"北京市\",\"type\":2,\"geo\":\"1|12959238.56,4825347.47;\",\"level\":12}";
}

std::string Hints(Rng& rng) {
  std::string s = "\"psrs\":{\"SENum\":2,\"SEResult\":[\"" + std::string(rng.Pick(kQueries)) + "\",\"" +
                  rng.Pick(kQueries) + "\"]},";
  s += "\"suggest_query\":[";
  for (int i = 0; i < 4; ++i) {
    if (i) s += ",";
    s += "{\"query\":\"" + std::string(rng.Pick(kQueries)) + "\",\"type\":" + Num(i) + "}";
  }
  return s + "]";
}

std::string Keyword(Rng& rng) { return std::string(rng.Pick(kBrands)) + rng.Pick(kBranches); }

std::string PlaceCandidates(Rng& rng, int count) {
  std::string s = "[";
  for (int i = 0; i < count; ++i) {
    if (i) s += ",";
    s += "{\"uid\":\"" + Hex(rng, 24) + "\",\"name\":\"" + Keyword(rng) + "\",\"addr\":\"北京市" +
         rng.Pick(kDistricts) + rng.Pick(kStreets) + "\",\"geo\":\"" + Geo(rng) + "\"}";
  }
  return s + "]";
}

std::string CityCandidates(Rng& rng, int count) {
  std::string s = "[";
  for (int i = 0; i < count; ++i) {
    if (i) s += ",";
    s += "{\"code\":" + Num(100 + rng.Below(300)) + ",\"num\":" + Num(rng.Below(50)) + ",\"name\":\"" +
         rng.Pick(kCities) + "\"}";
  }
  return s + "]";
}

// The status block: the start and the second way point offer cities.
std::string StatusBlock(Rng& rng, int waypoints) {
  int points = waypoints + 2;
  std::string city_list = "[", prio = "[", wd = "[";
  for (int i = 0; i < points; ++i) {
    if (i) city_list += ",", prio += ",";
    city_list += (i == 0 || i == 2) ? "1" : "0";
    prio += "0";
  }
  for (int k = 0; k < waypoints; ++k) wd += std::string(k ? "," : "") + "\"" + Keyword(rng) + "\"";
  return "{\"city_list\":" + city_list + "],\"prio_flag\":" + prio + "],\"wp_wd\":" + wd +
         "],\"s_wd\":\"" + Keyword(rng) + "\",\"e_wd\":\"" + Keyword(rng) +
         "\",\"if_nav\":1,\"start_city\":{\"cname\":\"北京市\",\"code\":131},\"end_city\":{\"cname\":\"北京市\","
         "\"code\":131}}";
}

}  // namespace

std::string PoiListAnswer(int pois, uint32_t seed) {
  Rng rng(seed);
  std::string s = "{\"result\":{\"error\":0,\"type\":11,\"qid\":\"" + Hex(rng, 16) + "\"},\"poi_result\":{";
  s += "\"option\":{\"total\":" + Num(pois * 3) + ",\"loc_attr\":1,\"op_gel\":1,\"qid\":\"" + Hex(rng, 16) +
       "\",\"rp_strategy\":0,\"page_num\":0,\"page_size\":" + Num(pois) + ",\"wd\":\"咖啡\"},";
  s += "\"place_info\":{\"d_data_type\":\"cater\",\"d_sort_type\":\"default\",\"d_sort_rule\":0},";
  s += "\"current_city\":" + CurrentCity() + ",";
  s += "\"contents\":" + Pois(rng, pois) + ",";
  s += "\"addrs\":[{\"addr\":\"北京市朝阳区三里屯路\",\"name\":\"三里屯\",\"geo\":\"" + Geo(rng) + "\"}],";
  s += Hints(rng);
  return s + "}}";
}

std::string AreaMultiAnswer(int searches, int pois_each, uint32_t seed) {
  Rng rng(seed);
  std::string s = "{\"result\":{\"error\":0,\"result_array\":[";
  for (int i = 0; i < searches; ++i) {
    if (i) s += ",";
    s += "{\"count\":" + Num(pois_each) + ",\"catalogID\":" + Num(100 + i) + ",\"op_gel\":1,\"page_num\":0,\"total\":" +
         Num(pois_each * 4) + ",\"type\":" + Num(i) + ",\"wd\":\"" + rng.Pick(kQueries) + "\"}";
  }
  s += "]},\"content\":[";
  for (int i = 0; i < searches; ++i) {
    if (i) s += ",";
    s += Pois(rng, pois_each);
  }
  return s + "]}";
}

std::string RouteAddrFirstForm(int waypoints, uint32_t seed) {
  Rng rng(seed);
  std::string s = "{\"result\":" + StatusBlock(rng, waypoints) + ",\"current_city\":" + CurrentCity() +
                  ",\"content\":{\"start\":" + CityCandidates(rng, 6) + ",\"end\":" + PlaceCandidates(rng, 10) +
                  ",\"waypoints\":[";
  for (int k = 0; k < waypoints; ++k) {
    if (k) s += ",";
    s += k == 1 ? CityCandidates(rng, 4) : PlaceCandidates(rng, 8);
  }
  return s + "]}}";
}

std::string RouteAddrSecondForm(int waypoints, uint32_t seed) {
  Rng rng(seed);
  std::string s = "{\"result\":{\"error\":0},\"traffic_pois\":{\"option\":" + StatusBlock(rng, waypoints) +
                  ",\"current_city\":" + CurrentCity() + ",\"content\":{\"start\":" + CityCandidates(rng, 6) +
                  ",\"end\":" + PlaceCandidates(rng, 10) + ",\"multi_waypoints\":[";
  for (int k = 0; k < waypoints; ++k) {
    if (k) s += ",";
    s += "{\"way_points\":" + (k == 1 ? CityCandidates(rng, 4) : PlaceCandidates(rng, 8)) + "}";
  }
  return s + "]}}}";
}

std::string IndoorAnswer(int pois, uint32_t seed) {
  Rng rng(seed);
  std::string s = "{\"errNo\":0,\"Msg\":\"ok\",\"data\":{\"page_num\":1,\"poi_num\":" + Num(pois) + ",\"poi_list\":[";
  for (int i = 0; i < pois; ++i) {
    if (i) s += ",";
    s += "{\"address\":\"朝阳大悦城" + Num(1 + rng.Below(6)) + "层\",\"qx_id\":\"" + Hex(rng, 10) + "\",\"cid\":\"" +
         Num(rng.Below(900)) + "\",\"discount\":\"" + Num(rng.Below(10)) + "折\",\"floor\":\"F" +
         Num(1 + rng.Below(6)) + "\",\"name\":\"" + rng.Pick(kBrands) + "\",\"phone\":\"(010)" +
         Num(60000000 + rng.Below(30000000)) + "\",\"poi_rank\":\"" + Num(rng.Below(100)) + "\",\"price\":\"" +
         Num(20 + rng.Below(300)) + "\",\"pt_x\":\"" + Num(12960000 + rng.Below(9000)) + "\",\"pt_y\":\"" +
         Num(4826000 + rng.Below(9000)) + "\",\"star_level\":\"" + Num(rng.Below(6)) + "\",\"tag\":\"" +
         rng.Pick(kTags) + "\",\"tuan_nums\":\"" + Num(rng.Below(20)) + "\",\"uid\":\"" + Hex(rng, 24) +
         "\",\"twp\":\"" + Num(rng.Below(8)) + "\"}";
  }
  return s + "]}}";
}

}  // namespace bench
