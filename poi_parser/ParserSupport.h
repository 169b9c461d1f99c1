// Helpers shared by the operations of CPoiJsonObjParser. Internal to the
// library.
#ifndef POI_PARSER_PARSERSUPPORT_H_
#define POI_PARSER_PARSERSUPPORT_H_

#include "poi_parser/PoiJsonObjParser.h"
#include "json_readers/FieldTable.h"

namespace _quarn_framework {
namespace internal {

typedef CVArray<CVBundle, CVBundle&> BundleArray;
typedef CVArray<CVString, CVString&> StringArray;

// A bundle key made once, at start-up: copies of it never touch its storage.
inline CVString MakeKey(const char* text) { return CVString(text, CVString::Permanent()); }

// The member `name` of `node`, or null (null or non-object node included).
inline cJSON* Member(cJSON* node, const char* name) {
  return _quarn_vi::cJSON_GetObjectItem(node, name);
}

// The status frame of an answer: "result" is an object whose "error" reads
// as 0. The status starts at -1, so a "result" without a readable "error"
// is refused.
inline bool StatusFrameIsGood(cJSON* root) {
  cJSON* result = Member(root, "result");
  if (!_quarn_vi::IsJsonObject(result)) return false;
  int error = -1;
  CJsonObjParser::GetJsonItem(result, "error", error);
  return error == 0;
}

// Builds a record with `build` (an operation of CPoiJsonObjParser) from each
// element of the array `array`, in order, and appends the accepted ones to
// `records`; elements refused leave no gap. A null or non-array node adds
// nothing.
template <class Build>
void AppendRecords(cJSON* array, BundleArray& records, Build build) {
  for (cJSON* element : _quarn_vi::JsonElements(array)) {
    CVBundle record;
    if (build(element, record)) _quarn_vi::AppendByMove(records, record);
  }
}

}  // namespace internal
}  // namespace _quarn_framework

#endif  // POI_PARSER_PARSERSUPPORT_H_
