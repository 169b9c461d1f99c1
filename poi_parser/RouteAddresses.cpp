// The route-address answer: the status block of the route's points (address
// info record), one point's candidate places, and the two forms of the answer
// behind one entry operation.
//
// Both forms give, per point of the route (start, end, way points), either
// candidate cities or candidate places, chosen by the point's city-list flag
// in the status block. The result holds the candidates of each point, one way
// point result record per way point, and the address info record completed
// with the start's and end's counts and priority flags.
#include <cassert>
#include <cstddef>
#include <utility>

#include "poi_parser/OperationSchemas.h"
#include "poi_parser/ParserSupport.h"

namespace _quarn_framework {

using namespace internal;

namespace {

// Keys of the address info record.
const CVString kHaveStCityListKey = MakeKey(keys::kHaveStcitylist);
const CVString kHaveStPrioKey = MakeKey(keys::kHaveStprio);
const CVString kHaveEnCityListKey = MakeKey(keys::kHaveEncitylist);
const CVString kHaveEnPrioKey = MakeKey(keys::kHaveEnprio);
const CVString kWpListKey = MakeKey(keys::kWplist);
const CVString kStCountKey = MakeKey(keys::kStCount);
const CVString kEnCountKey = MakeKey(keys::kEnCount);
// Keys of the way point status and result records.
const CVString kHaveWpCityListKey = MakeKey(keys::kHaveWpcitylist);
const CVString kHaveWpPrioKey = MakeKey(keys::kHaveWpprio);
const CVString kWpKeywordKey = MakeKey(keys::kWpKeyword);
const CVString kWpCountKey = MakeKey(keys::kWpCount);
const CVString kWaypointCitysKey = MakeKey(keys::kWaypointcitys);
const CVString kWaypointsKey = MakeKey(keys::kWaypoints);
// Keys of the result.
const CVString kStartCitysKey = MakeKey(keys::kStartcitys);
const CVString kStartPointsKey = MakeKey(keys::kStartpoints);
const CVString kEndCitysKey = MakeKey(keys::kEndcitys);
const CVString kEndPointsKey = MakeKey(keys::kEndpoints);
const CVString kWaypointsResultKey = MakeKey(keys::kWaypointsResult);
const CVString kAddressInfoKey = MakeKey(keys::kAddressInfo);
const CVString kHasAddrListKey = MakeKey(keys::kHasAddrList);

// Element `index` of an array, for indexes that never decrease from one call
// to the next: the cursor walks on from where it stopped, so reading every
// element of an array in order stays linear. Null past the end and for a null
// or non-array node, as ArrayElement gives.
class ArrayCursor {
 public:
  explicit ArrayCursor(cJSON* array) : m_at(JsonElements(array).begin()) {}

  // REQUIRES: index >= the index of the previous call.
  cJSON* At(int index) {
    assert(index >= m_last);
    m_last = index;
    while (m_index < index && *m_at != nullptr) {
      ++m_at;
      ++m_index;
    }
    return m_index == index ? *m_at : nullptr;
  }

 private:
  JsonElements::iterator m_at;
  int m_index = 0;
  int m_last = 0;  // the index of the previous call, for the assertion
};

// "start_city" and "end_city" are read flat: their "cname" and "code" under
// keys of the start's and the end's own.
constexpr FieldRow kStartCityRows[] = {
    StringField("cname", keys::kStCityname),
    IntField("code", keys::kStCitycode),
};

const FieldTable& StartCityTable() {
  static const FieldTable table(kStartCityRows);
  return table;
}

constexpr FieldRow kEndCityRows[] = {
    StringField("cname", keys::kEnCityname),
    IntField("code", keys::kEnCitycode),
};

const FieldTable& EndCityTable() {
  static const FieldTable table(kEndCityRows);
  return table;
}

// The keywords and cities of the status block, after the point flags.
constexpr FieldRow kStatusRows[] = {
    StringField("s_wd", keys::kStKeyword),
    StringField("e_wd", keys::kEnKeyword),
    BoolField("if_nav", keys::kIsIncity),
    FlatField("start_city", StartCityTable),
    FlatField("end_city", EndCityTable),
};

constexpr FieldRow kPlaceRows[] = {
    StringField("uid", keys::kUid),
    StringField("name", keys::kName),
    StringField("addr", keys::kAddr),
    StringField("geo", keys::kGeo),
};

// The per-point flags of the status block. The points are listed in travel
// order: the first is the start, the last of two or more the end, those in
// between the way points (way point k is point k + 1, its keyword element k
// of "wp_wd").
//
// The two flags are set to 0 once and are not reset between points: a
// "prio_flag" element that cannot be read leaves the value of the last one
// that could. A point whose "city_list" element cannot be read stores
// nothing at all, so the way point records after it move up one place.
void ReadPointFlags(cJSON* city_list, cJSON* prio_flag, cJSON* wp_wd, CVBundle& info) {
  const int count = ArraySize(city_list);
  if (count >= 1) UsableArray(prio_flag);
  if (count >= 3) UsableArray(wp_wd);
  ArrayCursor cities(city_list);
  ArrayCursor prios(prio_flag);
  ArrayCursor keywords(IsJsonArray(wp_wd) ? wp_wd : nullptr);
  int city_flag = 0;
  int prio = 0;
  BundleArray waypoints;
  for (int i = 0; i < count; ++i) {
    cJSON* prio_item = prios.At(i);  // the cursors advance in step with i
    cJSON* keyword = i >= 1 ? keywords.At(i - 1) : nullptr;
    if (!JsonReadInt(cities.At(i), &city_flag)) {
      diag::SkipElement(cities.At(i), "an integer");
      continue;
    }
    if (!JsonReadInt(prio_item, &prio) && prio_item != nullptr) {
      diag::SkipElement(prio_item, "an integer");
    }
    if (i == 0) {
      info.SetBool(kHaveStCityListKey, city_flag == 1);
      info.SetBool(kHaveStPrioKey, prio == 1);
    } else if (i == count - 1) {
      info.SetBool(kHaveEnCityListKey, city_flag == 1);
      info.SetBool(kHaveEnPrioKey, prio == 1);
      if (waypoints.m_nSize >= 1) info.SetBundleArray(kWpListKey, std::move(waypoints));
    } else {
      CVBundle waypoint;
      waypoint.SetBool(kHaveWpCityListKey, city_flag == 1);
      waypoint.SetBool(kHaveWpPrioKey, prio == 1);
      if (IsJsonString(keyword)) {
        waypoint.SetString(kWpKeywordKey,
                           CJsonObjParser::ConvertTextByRule(JsonStringBytes(keyword)));
      } else if (keyword != nullptr) {
        diag::SkipElement(keyword, "a string");
      }
      AppendByMove(waypoints, waypoint);
    }
  }
}

// ---- The result, both forms ----------------------------------------------------

// The keys of one end of the route: the start or the end.
struct EndKeys {
  const char* member;          // its candidates in the candidates object
  const CVString& city_list;   // its flags and count in the address info record
  const CVString& prio;
  const CVString& count;
  const CVString& cities;      // its candidate array in the result
  const CVString& places;
};

const EndKeys kStartKeys = {"start", kHaveStCityListKey, kHaveStPrioKey,
                            kStCountKey, kStartCitysKey, kStartPointsKey};
const EndKeys kEndKeys = {"end", kHaveEnCityListKey, kHaveEnPrioKey,
                          kEnCountKey, kEndCitysKey, kEndPointsKey};

// Reads the candidates of the start or the end as cities or as places, by its
// city-list flag in `info`. Stores the count in `info` (and a priority match
// when exactly one place was read) and the candidates in `out` when there is
// at least one. Returns true when candidates were stored.
bool ReadEndCandidates(cJSON* content, const EndKeys& keys, CVBundle& info, CVBundle& out) {
  cJSON* candidates = FindMember(content, keys.member);
  const bool as_cities = info.GetBool(keys.city_list) != 0;
  UsableArray(candidates);
  BundleArray found;
  if (as_cities) {
    CPoiJsonObjParser::GetCityInfoArrayFromJson(candidates, found);
  } else {
    CPoiJsonObjParser::GetRPAddrListFromJson(candidates, found);
  }
  const int count = found.m_nSize;
  info.SetInt(keys.count, count);
  if (!as_cities && count == 1) info.SetBool(keys.prio, 1);
  if (count < 1) return false;
  out.SetBundleArray(as_cities ? keys.cities : keys.places, std::move(found));
  return true;
}

// The way point result record of one way point status record. `candidates`
// is the way point's candidate list (null when absent); it is not read when
// `skip_matched` is set and the way point already has a priority match.
// Sets *stored when candidates were stored.
CVBundle WaypointResult(const CVBundle& status, cJSON* candidates, bool skip_matched,
                        bool* stored) {
  const bool matched = status.GetBool(kHaveWpPrioKey) != 0;
  const bool as_cities = status.GetBool(kHaveWpCityListKey) != 0;
  CVBundle result;
  result.Reserve(5);
  result.SetBool(kHaveWpCityListKey, as_cities);
  BundleArray found;
  if (!(skip_matched && matched)) {
    UsableArray(candidates);
    if (as_cities) {
      CPoiJsonObjParser::GetCityInfoArrayFromJson(candidates, found);
    } else {
      CPoiJsonObjParser::GetRPAddrListFromJson(candidates, found);
    }
  }
  const int count = found.m_nSize;
  result.SetInt(kWpCountKey, count);
  if (count >= 1) {
    result.SetBundleArray(as_cities ? kWaypointCitysKey : kWaypointsKey, std::move(found));
    *stored = true;
  }
  result.SetBool(kHaveWpPrioKey, matched || (!as_cities && count == 1));
  if (const CVString* keyword = status.GetString(kWpKeywordKey)) {
    result.SetString(kWpKeywordKey, *keyword);
  }
  return result;
}

// The way point results: one record per status record of the address info
// record's "wplist", way point k taking its candidates from element k of the
// array `list` (first form) or from that element's "way_points" (second
// form). Nothing is built when `list` is not an array. "wplist" is then
// removed from the address info record. Returns true when some way point
// stored candidates.
bool ReadWaypoints(cJSON* list, bool second_form, CVBundle& info, CVBundle& out) {
  const BundleArray* statuses = info.GetBundleArray(kWpListKey);
  if (statuses == nullptr) return false;
  bool stored = false;
  if (UsableArray(list)) {
    BundleArray results;
    ArrayCursor elements(list);
    for (int k = 0; k < statuses->m_nSize; ++k) {
      cJSON* candidates = elements.At(k);
      if (second_form) {
        if (candidates != nullptr && !IsJsonObject(candidates)) {
          diag::SkipElement(candidates, "an object");
        }
        candidates = FindMember(candidates, "way_points");
      }
      CVBundle result = WaypointResult(statuses->m_pData[k], candidates, second_form, &stored);
      AppendByMove(results, result);
    }
    if (results.m_nSize >= 1) out.SetBundleArray(kWaypointsResultKey, std::move(results));
  }
  info.Remove(kWpListKey);
  return stored;
}

// Clears the text mode flag when it goes out of scope.
class TextModeReset {
 public:
  TextModeReset() = default;
  TextModeReset(const TextModeReset&) = delete;
  TextModeReset& operator=(const TextModeReset&) = delete;
  ~TextModeReset() { CJsonObjParser::isParsePHPUI2Res = 0; }
};

}  // namespace

// ---- What the operations read and store -----------------------------------------

namespace schema {
namespace {

// The status block (address info record).
constexpr Member kFlagElement = MakeMember(nullptr, Json::kInt);
constexpr Member kKeywordElement = MakeMember(nullptr, Json::kString);
constexpr Member kStatusBlockMembers[] = {
    ArrayMember("city_list", kFlagElement),
    Conditional(ArrayMember("prio_flag", kFlagElement), "for the points of \"city_list\""),
    Conditional(ArrayMember("wp_wd", kKeywordElement), "for the way points of \"city_list\""),
    RowsMember(kStatusRows),
};
constexpr Key kWaypointStatusKeys[] = {
    ScalarKey(keys::kHaveWpcitylist, Value::kBool, kAlways, "city_list[k + 1]: whether it is 1"),
    ScalarKey(keys::kHaveWpprio, Value::kBool, kAlways, "prio_flag[k + 1]: whether it is 1"),
    ScalarKey(keys::kWpKeyword, Value::kString, 0, "wp_wd[k]: by the text rule", "when it is a string"),
};
constexpr Key kStatusBlockKeys[] = {
    ScalarKey(keys::kHaveStcitylist, Value::kBool, 0, "city_list[0]: whether it is 1",
              "when \"city_list\" has a first element that reads as an integer"),
    ScalarKey(keys::kHaveStprio, Value::kBool, 0,
              "prio_flag[0]: whether it is 1 (an unreadable element keeps the last readable value)",
              "when \"city_list\" has a first element that reads as an integer"),
    NestedKey(keys::kWplist, Value::kBundleArray, kWaypointStatusKeys, 0,
              "city_list, prio_flag, wp_wd: one record per way point (the points between the first and the last)",
              "when \"city_list\" has three or more points"),
    ScalarKey(keys::kHaveEncitylist, Value::kBool, 0, "city_list[last]: whether it is 1",
              "when \"city_list\" has two or more points, the last reading as an integer"),
    ScalarKey(keys::kHaveEnprio, Value::kBool, 0, "prio_flag[last]: whether it is 1",
              "when \"city_list\" has two or more points, the last reading as an integer"),
    RowsKeys(kStatusRows, "", kAlways),
};
constexpr const char* kStatusBlockRefusals[] = {"a null or non-object node; nothing is stored"};

// A candidate: a city record or a place record, as the point's city-list
// flag says.
constexpr Member kCandidateForms[] = {
    RecordMember(nullptr, kGetCityInfoFromJson),
    TableMember(nullptr, kPlaceRows),
};
constexpr Member kCandidate = AnyOfMember(nullptr, kCandidateForms);
constexpr Member kCandidates = ArrayMember(nullptr, kCandidate);
constexpr Member kWaypointHolderMembers[] = {ArrayMember("way_points", kCandidate)};
constexpr Member kWaypointHolder = ObjectMember(nullptr, kWaypointHolderMembers);

constexpr const char kForWaypoints[] = "for the way points of the status block";
constexpr Member kFirstContentMembers[] = {
    ArrayMember("start", kCandidate),
    ArrayMember("end", kCandidate),
    Conditional(ArrayMember("waypoints", kCandidates), kForWaypoints),
};
constexpr Member kFirstFormMembers[] = {
    RecordMember("result", kGetRPAddrResInfoFromJson),
    kCurrentCityMember,
    ObjectMember("content", kFirstContentMembers),
};
constexpr Member kSecondContentMembers[] = {
    Conditional(ArrayMember("start", kCandidate), "when the start has no priority match"),
    Conditional(ArrayMember("end", kCandidate), "when the end has no priority match"),
    Conditional(ArrayMember("multi_waypoints", kWaypointHolder), kForWaypoints),
};
constexpr Member kTrafficPoisMembers[] = {
    RecordMember("option", kGetRPAddrResInfoFromJson, kRequired),
    kCurrentCityMember,
    ObjectMember("content", kSecondContentMembers),
};
constexpr Member kSecondFormMembers[] = {
    kStatusFrame,
    ObjectMember("traffic_pois", kTrafficPoisMembers, kRequired),
};

constexpr const char kWhenCities[] = "when the point's city-list flag is set and an element gave a city record";
constexpr const char kWhenPlaces[] = "when the point's city-list flag is not set and an element is an object";

constexpr Key kWaypointResultKeys[] = {
    ScalarKey(keys::kHaveWpcitylist, Value::kBool, kAlways, "the way point's status record"),
    ScalarKey(keys::kWpCount, Value::kInt, kAlways, "the number of candidates stored"),
    RecordKey(keys::kWaypointcitys, Value::kBundleArray, kGetCityInfoFromJson, 0, "the way point's candidates",
              kWhenCities),
    TableKey(keys::kWaypoints, Value::kBundleArray, kPlaceRows, 0, "the way point's candidates", kWhenPlaces),
    ScalarKey(keys::kHaveWpprio, Value::kBool, kAlways,
              "the way point's status record, or exactly one candidate place"),
    ScalarKey(keys::kWpKeyword, Value::kString, 0, "the way point's status record", "when it has one"),
};

constexpr Key kFirstInfoKeys[] = {
    RecordKeys(kGetRPAddrResInfoFromJson, "result"),
    ScalarKey(keys::kStCount, Value::kInt, 0, "content.start: the number of candidates",
              "when \"content\" is an object"),
    ScalarKey(keys::kEnCount, Value::kInt, 0, "content.end: the number of candidates", "when \"content\" is an object"),
};
constexpr Key kFirstFormKeys[] = {
    CurrentCityKey("current_city"),
    RecordKey(keys::kStartcitys, Value::kBundleArray, kGetCityInfoFromJson, 0, "content.start", kWhenCities),
    TableKey(keys::kStartpoints, Value::kBundleArray, kPlaceRows, 0, "content.start", kWhenPlaces),
    RecordKey(keys::kEndcitys, Value::kBundleArray, kGetCityInfoFromJson, 0, "content.end", kWhenCities),
    TableKey(keys::kEndpoints, Value::kBundleArray, kPlaceRows, 0, "content.end", kWhenPlaces),
    NestedKey(keys::kWaypointsResult, Value::kBundleArray, kWaypointResultKeys, 0,
              "content.waypoints[k]: one record per way point of the status block",
              "when the status block has way points and \"content\".\"waypoints\" is an array"),
    NestedKey(keys::kAddressInfo, Value::kBundle, kFirstInfoKeys, kAlways,
              "result: the address info record (without \"wplist\" when \"content\" is an object)", nullptr),
};

constexpr const char kSkippedWhenMatched[] =
    "when \"traffic_pois\".\"content\" is an object and the point has no priority match";
constexpr Key kSecondInfoKeys[] = {
    RecordKeys(kGetRPAddrResInfoFromJson, "traffic_pois.option"),
    ScalarKey(keys::kStCount, Value::kInt, 0, "traffic_pois.content.start: the number of candidates",
              kSkippedWhenMatched),
    ScalarKey(keys::kEnCount, Value::kInt, 0, "traffic_pois.content.end: the number of candidates",
              kSkippedWhenMatched),
};
constexpr Key kSecondFormKeys[] = {
    CurrentCityKey("traffic_pois.current_city"),
    RecordKey(keys::kStartcitys, Value::kBundleArray, kGetCityInfoFromJson, 0, "traffic_pois.content.start",
              kWhenCities),
    TableKey(keys::kStartpoints, Value::kBundleArray, kPlaceRows, 0, "traffic_pois.content.start", kWhenPlaces),
    RecordKey(keys::kEndcitys, Value::kBundleArray, kGetCityInfoFromJson, 0, "traffic_pois.content.end", kWhenCities),
    TableKey(keys::kEndpoints, Value::kBundleArray, kPlaceRows, 0, "traffic_pois.content.end", kWhenPlaces),
    NestedKey(keys::kWaypointsResult, Value::kBundleArray, kWaypointResultKeys, 0,
              "traffic_pois.content.multi_waypoints[k].way_points: one record per way point of the status block "
              "(not read for a way point with a priority match)",
              "when the status block has way points and \"multi_waypoints\" is an array"),
    ScalarKey(keys::kHasAddrList, Value::kBool, 0, "whether any candidates were stored",
              "when \"traffic_pois\".\"content\" is an object"),
    NestedKey(keys::kAddressInfo, Value::kBundle, kSecondInfoKeys, kAlways,
              "traffic_pois.option: the address info record (without \"wplist\" when \"content\" is an object)",
              nullptr),
};

constexpr const char* kFirstFormRefusals[] = {"a null root; nothing is stored"};
constexpr const char* kSecondFormRefusals[] = {
    "a null root, a \"result\" that is not an object with an \"error\" of 0, a \"traffic_pois\" that is not "
    "an object or has no \"option\"; nothing is stored",
};
constexpr const char* kDispatchRefusals[] = {"as the form chosen"};

constexpr Member kPlaceElement = TableMember(nullptr, kPlaceRows);
constexpr Key kPlaceListKeys[] = {
    TableKey(keys::kList, Value::kBundleArray, kPlaceRows, kAlways, "the elements", "always (possibly empty)"),
};
constexpr const char* kPlaceListRefusals[] = {
    "a node that is not an array, or one without an object element (\"list\" is stored, empty)",
};

}  // namespace

const OperationSchema kGetRPAddrResInfoFromJson =
    Operation("The address info record of a route's status block.", ObjectMember(nullptr, kStatusBlockMembers),
              kStatusBlockKeys, kStatusBlockRefusals);
const OperationSchema kGetRPAddrListFromJson =
    Operation("The candidate places of an array, stored under \"list\".", ArrayMember(nullptr, kPlaceElement),
              kPlaceListKeys, kPlaceListRefusals);
const OperationSchema kParseRouteAddrPHPUIRst =
    Operation("The route address answer, first form: the status block is the root's \"result\".",
              ObjectMember(nullptr, kFirstFormMembers, kOrAnything), kFirstFormKeys, kFirstFormRefusals);
const OperationSchema kParseRouteAddrPHPUI2Rst =
    Operation("The route address answer, second form: a status frame, then \"traffic_pois\".",
              ObjectMember(nullptr, kSecondFormMembers), kSecondFormKeys, kSecondFormRefusals);
const OperationSchema kParseRouteAddrRst =
    Dispatcher("The route address answer, in the form the text mode flag chooses.", kParseRouteAddrPHPUIRst,
               kParseRouteAddrPHPUI2Rst,
               "the second form when the text mode flag is set (poiparse --utf8), which is then cleared; "
               "else the first form",
               kDispatchRefusals);

}  // namespace schema

int CPoiJsonObjParser::GetRPAddrResInfoFromJson(cJSON* node, CVBundle& out) {
  static const FieldTable table(kStatusRows);
  if (!IsJsonObject(node)) return 0;
  cJSON* city_list = FindMember(node, "city_list");
  if (UsableArray(city_list)) {
    ReadPointFlags(city_list, FindMember(node, "prio_flag"), FindMember(node, "wp_wd"), out);
  }
  table.Read(node, out);
  return 1;
}

int CPoiJsonObjParser::GetRPAddrListFromJson(cJSON* node, BundleArray& places) {
  static const FieldTable table(kPlaceRows);
  if (!IsJsonArray(node)) return 0;
  // One record serves every element and is not cleared: a member missing in
  // an element keeps the value that an earlier element stored. Each append
  // takes a copy (shared until the record's next change).
  CVBundle place;
  for (cJSON* element : JsonElements(node)) {
    if (!IsJsonObject(element)) {
      diag::SkipElement(element, "an object");
      continue;
    }
    table.Read(element, place);
    places.SetAtGrow(places.m_nSize, place);
  }
  return places.m_nSize != 0 ? 1 : 0;
}

// ---- The result ------------------------------------------------------------------

int CPoiJsonObjParser::ParseRouteAddrRst(cJSON* root, CVBundle& out) {
  if (CJsonObjParser::isParsePHPUI2Res == 0) return ParseRouteAddrPHPUIRst(root, out);
  // The client sets the flag for the second form only; it is cleared after
  // that parse, whatever its result.
  TextModeReset reset;
  return ParseRouteAddrPHPUI2Rst(root, out);
}

int CPoiJsonObjParser::ParseRouteAddrPHPUIRst(cJSON* root, CVBundle& out) {
  if (root == nullptr) return RefuseNoAnswer();
  CVBundle info;
  BuildMember(GetRPAddrResInfoFromJson, FindMember(root, "result"), info, "an object");
  StoreCurrentCityRecord(FindMember(root, "current_city"), out);
  cJSON* content = FindMember(root, "content");
  if (UsableObject(content)) {
    ReadEndCandidates(content, kStartKeys, info, out);
    ReadEndCandidates(content, kEndKeys, info, out);
    ReadWaypoints(FindMember(content, "waypoints"), false, info, out);
  }
  out.SetBundle(kAddressInfoKey, std::move(info));
  return 1;
}

int CPoiJsonObjParser::ParseRouteAddrPHPUI2Rst(cJSON* root, CVBundle& out) {
  if (root == nullptr) return RefuseNoAnswer();
  if (!StatusFrameIsGood(root)) return 0;
  cJSON* pois = FindMember(root, "traffic_pois");
  cJSON* option = FindMember(pois, "option");
  if (pois == nullptr || option == nullptr) {
    if (option == nullptr && IsJsonObject(pois)) {
      diag::RefuseMember(pois, "option", nullptr, "an object");
    } else {
      diag::RefuseMember(root, "traffic_pois", pois, "an object");
    }
    return 0;
  }

  CVBundle info;
  BuildMember(GetRPAddrResInfoFromJson, option, info, "an object");
  StoreCurrentCityRecord(FindMember(pois, "current_city"), out);
  cJSON* content = FindMember(pois, "content");
  if (UsableObject(content)) {
    bool any = false;
    if (!info.GetBool(kHaveStPrioKey) && ReadEndCandidates(content, kStartKeys, info, out)) {
      any = true;
    }
    if (!info.GetBool(kHaveEnPrioKey) && ReadEndCandidates(content, kEndKeys, info, out)) {
      any = true;
    }
    if (ReadWaypoints(FindMember(content, "multi_waypoints"), true, info, out)) any = true;
    out.SetBool(kHasAddrListKey, any);
  }
  out.SetBundle(kAddressInfoKey, std::move(info));
  return 1;
}

}  // namespace _quarn_framework
