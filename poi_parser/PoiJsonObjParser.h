// CPoiJsonObjParser: turns the map search service's JSON answers into
// CVBundle trees for the client's lists, map layers and route planner.
//
// This is the umbrella header of the library: it brings in everything a
// client needs (cJSON access, CVString, CVBundle, CVArray, CVMem,
// CJsonObjParser and this class).
//
// Every operation is class-level, keeps no state, performs no I/O and
// returns 1 on success and 0 when it refuses its node. Entry operations
// (Parse...Rst) take the root of an answer and the result bundle; record
// operations (Get...FromJson) take the node of one record, as looked up
// (null when absent), and the bundle or array to fill. A refusal does not undo
// the keys stored before it, and no operation clears the caller's bundle.
// Exceptions (std::bad_alloc) pass to the caller after the operation's locals
// are released.
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
// What a client uses around the operations: the text-to-tree document, the
// collector of what an operation refused or skipped, and the bundle's JSON
// writer. (The registry of kinds, poi_parser/AnswerKinds.h, is included on
// its own.)
#include "foundation/BundleJsonWriter.h"
#include "json_readers/Diagnostics.h"
#include "json_readers/JsonDocument.h"

namespace _quarn_framework {

class CPoiJsonObjParser {
 public:
  typedef CVArray<CVBundle, CVBundle&> BundleArray;

  CPoiJsonObjParser() {}
  ~CPoiJsonObjParser() {}

  // ---- City list and city records ---------------------------------------------

  // The city list answer: "result"."error" must be 0 and "traffic_citys" an
  // object. Stores "current_city", "count" and "citys" (when "contents" gave
  // at least one record) and always "current_null".
  static int ParseCityList(cJSON* root, CVBundle& out);
  // Appends one city info record per object element of the array `node`;
  // returns 1 iff `cities` holds at least one element afterwards.
  static int GetCityInfoArrayFromJson(cJSON* node, BundleArray& cities);
  // The city info record ("code", "num", "name") of an object.
  static int GetCityInfoFromJson(cJSON* node, CVBundle& city);

  // ---- Point-of-interest records ---------------------------------------------

  static int GetPsrsFromJson(cJSON* node, CVBundle& out);
  static int GetSuggestQueryFromJson(cJSON* node, CVBundle& out);
  static int GetPoiShowFromJson(cJSON* node, CVBundle& out);
  static int GetPoiDetailFromJson(cJSON* node, CVBundle& out);
  static int GetPoiContentFromJson(cJSON* node, CVBundle& out);

  // ---- Search answers ------------------------------------------------------------

  static int ParsePoiListRst(cJSON* root, CVBundle& out);
  static int ParseAreaSearchRst(cJSON* root, CVBundle& out);
  static int ParseAreaMultiSearchRst(cJSON* root, CVBundle& out);
  static int ParseCircumSearchRst(cJSON* root, CVBundle& out);
  static int ParseCityQueryRst(cJSON* root, CVBundle& out);
  static int GetAddrContentFromJson(cJSON* node, CVBundle& out);
  static int ParseDistrictRst(cJSON* root, CVBundle& out);
  static int ParseEspecialQueryRst(cJSON* node, CVBundle& out);
  static int ParsePoiIndoorRst(cJSON* root, CVBundle& out);
  static int GetIndoorPoiContentFromJson(cJSON* node, CVBundle& out);

  // ---- Route addresses -------------------------------------------------------------

  static int ParseRouteAddrRst(cJSON* root, CVBundle& out);
  static int ParseRouteAddrPHPUIRst(cJSON* root, CVBundle& out);
  static int ParseRouteAddrPHPUI2Rst(cJSON* root, CVBundle& out);
  static int GetRPAddrResInfoFromJson(cJSON* node, CVBundle& out);
  static int GetRPAddrListFromJson(cJSON* node, BundleArray& places);
};

}  // namespace _quarn_framework

#endif  // POI_PARSER_POIJSONOBJPARSER_H_
