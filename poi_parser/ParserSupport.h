// Helpers shared by the operations of CPoiJsonObjParser. Internal to the
// library.
#ifndef POI_PARSER_PARSERSUPPORT_H_
#define POI_PARSER_PARSERSUPPORT_H_

#include <utility>

#include "poi_parser/PoiJsonObjParser.h"
#include "json_readers/Diagnostics.h"
#include "json_readers/FieldTable.h"
#include "poi_parser/BundleKeys.h"

#include <string>

namespace _quarn_framework {
namespace internal {

typedef CVArray<CVBundle, CVBundle&> BundleArray;
typedef CVArray<CVString, CVString&> StringArray;

// A bundle key made once, at start-up: copies of it never touch its storage.
inline CVString MakeKey(const char* text) { return CVString(text, CVString::Permanent()); }

// The status frame of an answer: "result" is an object whose "error" reads
// as 0. The status starts at -1, so a "result" without a readable "error"
// is refused.
inline bool StatusFrameIsGood(cJSON* root) {
  cJSON* result = FindMember(root, "result");
  if (!IsJsonObject(result)) {
    diag::RefuseMember(root, "result", result, "an object");
    return false;
  }
  int error = -1;
  CJsonObjParser::GetJsonItem(result, "error", error);
  if (error != 0 && diag::Active() != nullptr) {
    cJSON* status = FindMember(result, "error");
    int read = 0;
    if (status == nullptr || !JsonReadInt(status, &read)) {
      diag::RefuseMember(result, "error", status, "an integer");
    } else {
      diag::Refuse(status, "status is " + std::to_string(error) + ", not 0");
    }
  }
  return error == 0;
}

// The refusal of a null root.
inline int RefuseNoAnswer() {
  diag::Refuse(nullptr, "no answer");
  return 0;
}

// Whether the root of an answer is an object; the refusal of a null or
// non-object root is reported.
inline bool RequireRootObject(cJSON* root) {
  if (IsJsonObject(root)) return true;
  if (root == nullptr) {
    RefuseNoAnswer();
  } else {
    diag::RefuseNode(root, "an object");
  }
  return false;
}

// `parent`."`name`" when it is an object (an array for RequireArray);
// otherwise null, with the refusal reported.
inline cJSON* RequireObject(cJSON* parent, const char* name) {
  cJSON* node = FindMember(parent, name);
  if (IsJsonObject(node)) return node;
  diag::RefuseMember(parent, name, node, "an object");
  return nullptr;
}
inline cJSON* RequireArray(cJSON* parent, const char* name) {
  cJSON* node = FindMember(parent, name);
  if (IsJsonArray(node)) return node;
  diag::RefuseMember(parent, name, node, "an array");
  return nullptr;
}

// Builds a nested record with `build` from `member` into `record`; a member
// that is present but refused is reported as skipped (`wanted` says what
// the record needs), unless `build` explained the refusal itself (the psrs
// record names its missing "SEResult"). Returns build's result.
template <class Build>
int BuildMember(Build build, cJSON* member, CVBundle& record, const char* wanted) {
  CVDiagnostics* diagnostics = diag::Active();
  const size_t reports = diagnostics != nullptr ? diagnostics->Reports().size() : 0;
  int result = build(member, record);
  if (result == 0 && diagnostics != nullptr && diagnostics->Reports().size() == reports) {
    diag::SkipMember(member, wanted);
  }
  return result;
}

// Builds a record with `build` (an operation of CPoiJsonObjParser) from each
// element of the array `array`, in order, and appends the accepted ones to
// `records`; elements refused leave no gap and are reported as skipped
// (`wanted` says what a record is built from). A null or non-array node adds
// nothing.
template <class Build>
void AppendRecords(cJSON* array, BundleArray& records, Build build, const char* wanted = "an object") {
  for (cJSON* element : JsonElements(array)) {
    CVBundle record;
    if (build(element, record)) {
      AppendByMove(records, record);
    } else {
      diag::SkipElement(element, wanted);
    }
  }
}

// ---- Steps shared by the search answers (POI list, area, circum) ----------
// Each step's key count sits beside it; an answer's key budget is the sum of
// its tables' MaxKeys() and its steps' counts.

// How "count" accompanies a page of POI records.
enum class PageCount {
  kAlways,       // the JSON array's length, 0 when the page is not an array
  kOnlyIfArray,  // the JSON array's length; no "count" at all otherwise
};

// A page of points of interest (keys "count" and "pois") from the array `contents`: "count" as
// `count_rule` says (elements that give no record still count), then
// "pois", the POI records in array order, when at least one element gave
// a record.
constexpr int kPoiPageKeys = 2;
inline void StorePoiPage(cJSON* contents, PageCount count_rule, CVBundle& out) {
  static const CVString count_key = MakeKey(keys::kCount);
  static const CVString pois_key = MakeKey(keys::kPois);
  if (UsableArray(contents)) {
    out.SetInt(count_key, ArraySize(contents));
  } else if (count_rule == PageCount::kAlways) {
    out.SetInt(count_key, 0);
  }
  BundleArray pois;
  AppendRecords(contents, pois, CPoiJsonObjParser::GetPoiContentFromJson);
  if (pois.m_nSize >= 1) out.SetBundleArray(pois_key, std::move(pois));
}

// The current-city record of the node `current_city` (as looked up, null
// when absent), stored under "current_city" when its builder accepts it.
constexpr int kCurrentCityKeys = 1;
inline void StoreCurrentCityRecord(cJSON* current_city, CVBundle& out) {
  static const CVString key = MakeKey(keys::kCurrentCity);
  CVBundle city;
  if (BuildMember(CJsonObjParser::GetCurrentCityFromJson, current_city, city, "an object")) {
    out.SetBundle(key, std::move(city));
  }
}

// Whether the suggested-query record also stands in for a missing psrs
// record under "py_correct" (the POI list does this; the area and circum
// answers do not).
enum class SuggestStandsIn { kNo, kYes };

// The hint records of the members "psrs" and "suggest_query" of `holder`:
// the psrs record under "py_correct", then the suggested-query record under
// "suggest_query", each when its builder accepts it.
constexpr int kHintKeys = 2;
inline void StoreHintRecords(cJSON* holder, SuggestStandsIn stands_in, CVBundle& out) {
  static const CVString py_correct_key = MakeKey(keys::kPyCorrect);
  static const CVString suggest_key = MakeKey(keys::kSuggestQuery);
  CVBundle psrs;
  const bool has_psrs =
      BuildMember(CPoiJsonObjParser::GetPsrsFromJson, FindMember(holder, "psrs"), psrs, "an object") == 1;
  if (has_psrs) out.SetBundle(py_correct_key, std::move(psrs));
  CVBundle suggest;
  if (BuildMember(CPoiJsonObjParser::GetSuggestQueryFromJson, FindMember(holder, "suggest_query"), suggest,
                  "an array") != 1) {
    return;
  }
  if (has_psrs || stands_in == SuggestStandsIn::kNo) {
    out.SetBundle(suggest_key, std::move(suggest));
  } else {
    out.SetBundle(suggest_key, suggest);  // shares the block: O(1)
    out.SetBundle(py_correct_key, std::move(suggest));
  }
}

}  // namespace internal
}  // namespace _quarn_framework

#endif  // POI_PARSER_PARSERSUPPORT_H_
