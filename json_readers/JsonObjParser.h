// CJsonObjParser: the field readers that take one typed member out of a JSON
// object, the current-city record builder, two conversions of service values
// and the process-wide text mode flag.
//
// What every reader accepts (see json_readers/JsonAccess.h for the exact
// forms):
//   - integer readers: numbers (truncated toward zero, saturating at int32),
//     true/false as 1/0, and strings holding a whole decimal integer;
//   - GetJsonBoolItem: true/false, numbers (nonzero is true) and the strings
//     "true", "false", "1", "0";
//   - text readers: strings (UTF-8 decoded), numbers and true/false as text.
// When a reader cannot read its member (null node, absent member, another
// JSON type, an unreadable value) the value readers return 0 and leave their
// output unchanged, and the storing readers store nothing and return 0.
// The readers do not follow the text mode flag; only the operations that
// say so apply the text rule (ConvertTextByRule).
//
// Thread safety: every function is reentrant. isParsePHPUI2Res is a plain
// process-wide int: it must not change while another thread parses.
#ifndef JSON_READERS_JSONOBJPARSER_H_
#define JSON_READERS_JSONOBJPARSER_H_

#include "foundation/ComplexPt.h"
#include "foundation/VBundle.h"
#include "foundation/VString.h"
#include "json_readers/JsonAccess.h"

namespace _quarn_framework {

using _quarn_vi::CComplexPt;
using _quarn_vi::CVArray;
using _quarn_vi::CVBundle;
using _quarn_vi::CVString;

// The client's POI type codes, as stored under "type" of a POI record.
enum PoiType {
  kPoiTypePlace = 0,
  kPoiTypeBusStop = 1,
  kPoiTypeBusLine = 2,
  kPoiTypeSubwayStation = 3,
  kPoiTypeSubwayLine = 4,
};

class CJsonObjParser {
 public:
  // The text mode flag: nonzero while the answer being parsed has UTF-8
  // texts that the text rule must decode. Set by the client, cleared by
  // CPoiJsonObjParser::ParseRouteAddrRst after the second route-address form.
  static int isParsePHPUI2Res;

  // ---- Value readers: return 1 iff the member was read --------------------

  // Integer form; `value` is unchanged on failure.
  static int GetJsonItem(cJSON* node, const char* name, int& value);
  // Text form; `value` is unchanged on failure.
  static int GetJsonItem(cJSON* node, const char* name, CVString& value);
  // Buffer form: the member's text as UTF-8 in `buffer` of `size` bytes, cut
  // at the last whole character that fits and always NUL-terminated. The last
  // argument is reserved and ignored.
  static int GetJsonItem(cJSON* node, const char* name, char* buffer, int size, int reserved);
  // Geometry form: parses the member's text into `value` (cleared first).
  // Syntax: [type '|'] part { '|' part }, a part being point { ';' point }
  // [';'], a point `number ',' number`. A leading field without a comma is a
  // type tag and is skipped; empty parts are skipped; numbers may have a
  // sign, a fraction and an exponent and are truncated toward zero to int32.
  // A malformed point or a coordinate outside int32 leaves `value` empty and
  // returns 0. Example: "1|12958160.05,4825907.21;" is one part with the
  // point (12958160, 4825907).
  static int GetJsonItem(cJSON* node, const char* name, CComplexPt& value);
  // Element `index` of an array as an integer; `value` unchanged on failure.
  static int GetJsonArrayItem(cJSON* array, int index, int& value);

  // ---- Storing readers: store under `key` and return 1 iff readable --------

  static int GetJsonIntItem(cJSON* node, const char* name, const CVString& key, CVBundle& bundle);
  // The last argument is reserved and ignored.
  static int GetJsonStringItem(cJSON* node, const char* name, const CVString& key,
                               CVBundle& bundle, int reserved);
  static int GetJsonBoolItem(cJSON* node, const char* name, const CVString& key, CVBundle& bundle);
  // When the member is an array, stores under the key `name` an array of its
  // string elements (others skipped; possibly empty); otherwise nothing.
  static int GetJsonStringArray(cJSON* node, const char* name, CVBundle& bundle);

  // ---- Records and conversions -----------------------------------------------

  // The current-city record of a "current_city" object: "code" (int),
  // "name" (string), "type" (int), "geo" (string) as the readers store them,
  // and always an int "level" (0 when absent or unreadable). Returns 0 for a
  // null or non-object node (nothing stored), else 1.
  static int GetCurrentCityFromJson(cJSON* node, CVBundle& record);

  // The POI type code of a service "poiType": 0 to 4 map to themselves
  // (PoiType), anything else to kPoiTypePlace.
  static int int2PoiType(int poiType);

  // Normalises a telephone text in place and returns its new length: the
  // separators ';' ',' and the full-width U+FF1B and U+FF0C between numbers
  // become one ',', white space around them removed; runs of separators
  // collapse; leading and trailing separators and white space go; all else
  // is kept. "(010)12345678; 13800000000；" becomes
  // "(010)12345678,13800000000". The text only shrinks. Null gives 0.
  static int ProcessTelNum(char* text);

  // The text rule for texts that an operation reads itself: UTF-8 decoded
  // when isParsePHPUI2Res is nonzero at the moment of the call, else each
  // byte widened (CVString::operator=(const char*)). Null gives "".
  static CVString ConvertTextByRule(const char* text);
};

}  // namespace _quarn_framework

#endif  // JSON_READERS_JSONOBJPARSER_H_
