// CPoiJsonObjParser: turns the map search service's JSON answers into
// CVBundle trees for the client's lists, map layers and route planner.
//
// This is the umbrella header of the library: it brings in everything a
// client needs (cJSON access, CVString, CVBundle, CVArray, CVMem,
// CJsonObjParser, the bundle key constants and this class).
//
// Every operation is class-level, keeps no state, performs no I/O and
// returns 1 on success and 0 when it refuses its node. Entry operations
// (Parse...Rst) take the root of an answer and the result bundle; record
// operations (Get...FromJson) take the node of one record, as looked up
// (null when absent), and the bundle or array to fill. A refusal does not undo
// the keys stored before it, and no operation clears the caller's bundle.
// Exceptions: see the class.
//
// Absent or ill-typed members never make an accepted answer fail: they cost
// the keys that depend on them (the readers store nothing then; see
// json_readers/JsonObjParser.h).
//
// Thread safety: separate answers may be parsed on separate threads with
// separate trees and bundles, as long as no thread changes
// CJsonObjParser::isParsePHPUI2Res while another parses.
#ifndef POI_PARSER_POIJSONOBJPARSER_H_
#define POI_PARSER_POIJSONOBJPARSER_H_

#include <cjson/cJSON.h>

#include "engine/dev/inc/vi/vos/VTempl.h"
#include "foundation/ComplexPt.h"
#include "foundation/VBundle.h"
#include "foundation/VMem.h"
#include "foundation/VString.h"
#include "json_readers/JsonAccess.h"
#include "json_readers/JsonObjParser.h"
#include "poi_parser/BundleKeys.h"
// What a client uses around the operations: the text-to-tree document, the
// collector of what an operation refused or skipped, and the bundle's JSON
// writer. (The registry of kinds, poi_parser/AnswerKinds.h, is included on
// its own.)
#include "foundation/BundleJsonWriter.h"
#include "json_readers/Diagnostics.h"
#include "json_readers/JsonDocument.h"

namespace _quarn_framework {

// Exceptions: every operation may throw std::bad_alloc (an allocation of a
// string, bundle or array failed) and std::length_error (a bundle would hold
// more than 2^30 keys; see foundation/VBundle.h). Either passes to the
// caller after the operation's locals are released; the keys stored before
// it stay in the caller's bundle. Nothing else is thrown.
//
// Contracts below: "stores" lists the keys in the order they are stored;
// a key whose member is absent or unreadable is left out unless it says
// "always". "Refused" gives the cases that return 0 and what is stored by
// then.
class CPoiJsonObjParser {
 public:
  typedef CVArray<CVBundle, CVBundle&> BundleArray;

  CPoiJsonObjParser() {}
  ~CPoiJsonObjParser() {}

  // ---- City list and city records ---------------------------------------------

  // The city list answer. Reads "result"."error" (the status frame) and the
  // object "traffic_citys". Stores "current_city" (current-city record),
  // then, when "contents" gave at least one city info record, "count" (the
  // records) and "citys", and always "current_null" (whether it did).
  // Refused with nothing stored: a null root, a status frame that is not an
  // object with an "error" of 0, a "traffic_citys" that is not an object.
  static int ParseCityList(cJSON* root, CVBundle& out);
  // Appends the city info record of each object element of the array
  // `node` (other elements are skipped); returns 1 iff `cities` holds at
  // least one element afterwards, earlier ones included. A node that is not
  // an array appends nothing and returns 0.
  static int GetCityInfoArrayFromJson(cJSON* node, BundleArray& cities);
  // The city info record of an object: "code" (int), "num" (int), "name".
  // Returns 0, storing nothing, for a null or non-object node.
  static int GetCityInfoFromJson(cJSON* node, CVBundle& city);

  // ---- Point-of-interest records ---------------------------------------------

  // The psrs record of an object: "SENum" under "num", then the string
  // elements of the array "SEResult" under "result" (their bytes widened
  // whatever the text mode; stored when there is one). Refused: a null or
  // non-object node (nothing stored) and a "SEResult" that is not an array
  // ("num" may be stored by then).
  static int GetPsrsFromJson(cJSON* node, CVBundle& out);
  // The suggested-query record of an array: the element count under "num"
  // (always), then the "query" strings of its object elements under
  // "result" (by the text rule; stored when there is one). Returns 0,
  // storing nothing, for a null or non-array node.
  static int GetSuggestQueryFromJson(cJSON* node, CVBundle& out);
  // The show record of an object: the ints "address", "image", "name",
  // "icon", "distance", "overall_rating", "price", "ep_char", "ec_reason",
  // "phone_button", "map_button", "book_info". Returns 0, storing nothing,
  // for a null or non-object node.
  static int GetPoiShowFromJson(cJSON* node, CVBundle& out);
  // The detail record of an object: "flag" (strings), texts stored only when
  // not empty ("overall_rating", "image", "price", "price_text", "tag",
  // "ota_price", "vesk_realtime_price_flag", "vesk_realtime_price",
  // "show_info", "comment_num", "wap_bookable"), flags and counts always
  // stored as decimal text ("premium_flag", "discount_total",
  // "groupon_total", "movie_flag" from "0", "movie_film_count" from "-1"),
  // the members of "premium_info" and "groupon_info" read flat into the
  // record, "oril_detail" (the entries of "oril_info"."oril_detail") and
  // "book_info" (its "tel" and "web" contacts; stored whenever present).
  // Returns 0, storing nothing, for a null or non-object node.
  static int GetPoiDetailFromJson(cJSON* node, CVBundle& out);
  // The POI record of an object: "geo", "name", "uid", "acc_flag", "addr",
  // "detail", "tel" (cut to 79 bytes at a whole character, separators
  // normalised), "type" (the type code of "poiType", always), "indoor_pano",
  // "pano", "aoi", "show" (show record), "place" (from "ext": "src_name",
  // then the detail record of "detail_info"; only for a non-empty
  // "src_name"), "distance" (from "dis"), "rp_des", "sep_char",
  // "rec_reason". Returns 0, storing nothing, for a null or non-object node.
  static int GetPoiContentFromJson(cJSON* node, CVBundle& out);

  // ---- Search answers ------------------------------------------------------------

  // The POI list answer. Reads the status frame, then "poi_result": stores
  // "search_type" (always 0), the "option" members "total", "loc_attr",
  // "op_gel", "qid", "rp_strategy", "placeparam" (from "place_info"),
  // "current_city", "count" (the "contents" array's length, 0 when it is
  // not an array), "pois", "addrs", then the psrs record under "py_correct"
  // and the suggested-query record under "suggest_query" (which also stands
  // in under "py_correct" for a missing psrs record). Refused: a null root
  // or a bad status frame (nothing stored); "poi_result" or "option" not an
  // object ("search_type" stored); "place_info" not an object (also the
  // option keys).
  static int ParsePoiListRst(cJSON* root, CVBundle& out);
  // The area search answer, everything beside "result" at the root: the
  // options of "result", "current_city", "py_correct", "suggest_query",
  // "placeparam" (when "place_info" is present; empty unless an object),
  // "count" (always; 0 without a "content" array) and "pois". Refused, with
  // nothing stored, only for a root or "result" that is not an object.
  static int ParseAreaSearchRst(cJSON* root, CVBundle& out);
  // The multi-area search answer: "result" holds the summaries of the
  // objects of "result"."result_array" (when there is one); "content" one
  // bundle per array element of a non-empty "content", its "cont" the POI
  // records of that array (other elements are skipped, so positions may
  // shift; stored even when empty). Refused, with nothing stored: a root or
  // "result" that is not an object, a "result_array" that is not an array,
  // or an element of it that is not an object.
  static int ParseAreaMultiSearchRst(cJSON* root, CVBundle& out);
  // The circum search answer: the options of "result" ("total", "op_gel",
  // "op_addr"), "current_city", "py_correct", "suggest_query", "count" (only
  // for a "content" array), "pois", then "center_points" (the POI records of
  // "center"."poi", when there is one). Refused: a root or "result" that is
  // not an object (nothing stored); a "center" that is not an object, or
  // whose "poi" is not an array (everything before "center_points" stored).
  static int ParseCircumSearchRst(cJSON* root, CVBundle& out);
  // The city query answer: the members of "content" read flat ("type" from
  // "city_type", always; "code", "name" from "cname", "geo", "uid",
  // "pccode", "pcname", "level" (always: the answer's non-zero level, else
  // 4, 11, 12, 13 for city types 0 to 3, else 0), "sup_bus",
  // "sup_business_area", "sup_subway", "sup_lukuang"), then the root's
  // "current_city". A "content" that is not an object reads as empty.
  // Refused, with nothing stored, only for a null root or one without
  // "content".
  static int ParseCityQueryRst(cJSON* root, CVBundle& out);
  // The address record of an object: "address" (from "addr"), "geo",
  // "name", "precise". Returns 0, storing nothing, for a null or non-object
  // node. Called by no other operation.
  static int GetAddrContentFromJson(cJSON* node, CVBundle& out);
  // The district answer: "current_city", then "level" (the current city's,
  // 0 without one) and "x", "y" (the first point of the first element's
  // "geo" geometry, each coordinate divided by 100 in integers). The POI record of
  // the first element of "content" is a gate only. Refused: a null root or
  // a "result" that is not an object (nothing stored); a "content" that is
  // not a non-empty array, a first element that is not an object, or a
  // geometry without a point ("current_city" stored when present).
  static int ParseDistrictRst(cJSON* root, CVBundle& out);
  // The coordinate query answer, "content": ["x,y", "level"]: "x" and "y"
  // (the position split at its first comma, read as atof reads them in
  // the C locale) and
  // "level" (read as atoi reads it, saturated beyond int32). Refused, with
  // nothing stored: a node that is not an object, a "content" that is not
  // an array of at least two elements, a non-string element 0 or 1, a
  // position without a comma or with an x part of more than 19 bytes.
  static int ParseEspecialQueryRst(cJSON* node, CVBundle& out);
  // The indoor search answer. With an "errNo" of 0: the members of the
  // object "data" ("page_num", "poi_num", "poi_list": the indoor POI records
  // of a non-empty array, stored even when none gave one). With another
  // status, returns 1 and stores only the client's error code under "errNo":
  // 11 for status 5; for status 1, 601 when "Msg" names "bid", else 602
  // when it names "floor", else nothing; 603 for any other status or none.
  // Refused, with nothing stored: a root that is not an object, and a
  // status of 0 without a "data" object.
  static int ParsePoiIndoorRst(cJSON* root, CVBundle& out);
  // The indoor POI record of an object: the texts "address", "qx_id", "cid",
  // "discount", "floor", "name", "phone", "poi_rank", "price", "pt_x",
  // "pt_y", "star_level", "tag", "tuan_nums", "uid", then always "t_flag",
  // "w_flag", "p_flag" (bits 0, 1, 2 of the number at the start of the
  // string "twp"; false without one). Returns 0, storing nothing, for a null
  // or non-object node.
  static int GetIndoorPoiContentFromJson(cJSON* node, CVBundle& out);

  // ---- Route addresses -------------------------------------------------------------

  // The route address answer: the second form (ParseRouteAddrPHPUI2Rst)
  // when CJsonObjParser::isParsePHPUI2Res is set, after which the flag is
  // cleared whatever the result (also when an exception passes); else the
  // first form (ParseRouteAddrPHPUIRst).
  static int ParseRouteAddrRst(cJSON* root, CVBundle& out);
  // The first form: the status block is the root's "result"; the root's
  // "current_city" and the candidates object "content". Stores
  // "current_city", then per end of the route "startcitys" or "startpoints"
  // and "endcitys" or "endpoints" (as the end's city-list flag says; when
  // there are candidates), "waypoints_result" (one way point result record
  // per way point, from "content"."waypoints"), and always "address_info"
  // (the address info record, with "st_count", "en_count" and a priority
  // match for an end with exactly one candidate place when "content" is an
  // object). Refused, with
  // nothing stored, only for a null root.
  static int ParseRouteAddrPHPUIRst(cJSON* root, CVBundle& out);
  // The second form: a status frame, then "traffic_pois" with the status
  // block "option", "current_city" and "content" ("multi_waypoints" for the
  // way points). As the first form, except that the candidates of a point
  // that already has a priority match are not read, and that "hasAddrList"
  // (whether any candidates were stored) is stored when "content" is an
  // object. Refused, with nothing stored: a null root, a bad status frame,
  // a "traffic_pois" that is not an object or has no "option".
  static int ParseRouteAddrPHPUI2Rst(cJSON* root, CVBundle& out);
  // The address info record of a status block object: per point of
  // "city_list" (start, way points, end) its flags ("have_stcitylist",
  // "have_stprio", the way point status records under "wplist",
  // "have_encitylist", "have_enprio"), then "st_keyword" (from "s_wd"),
  // "en_keyword" (from "e_wd"), "is_incity" (from "if_nav"),
  // "st_cityname", "st_citycode" (from "start_city"), "en_cityname",
  // "en_citycode" (from "end_city"). Returns 0, storing nothing, for a null
  // or non-object node.
  static int GetRPAddrResInfoFromJson(cJSON* node, CVBundle& out);
  // Appends a candidate place record ("uid", "name", "addr", "geo") per
  // object element of the array `node`; one record serves every element and
  // is not cleared, so a member missing in an element keeps the value of an
  // earlier one. Returns 1 iff `places` is non-empty afterwards; a node that
  // is not an array appends nothing and returns 0.
  static int GetRPAddrListFromJson(cJSON* node, BundleArray& places);
};

}  // namespace _quarn_framework

#endif  // POI_PARSER_POIJSONOBJPARSER_H_
