#include "poi_parser/AnswerKinds.h"

#include "poi_parser/BundleKeys.h"
#include "poi_parser/OperationSchemas.h"

#include <array>
#include <cassert>
#include <cstring>
#include <utility>

namespace _quarn_framework {

namespace {

using P = CPoiJsonObjParser;

// ---- The list builders with the bundle signature ---------------------------

const CVString& ListKey() {
  static const CVString key(keys::kList, CVString::Permanent());
  return key;
}

template <ListOperation kList>
int RunList(cJSON* node, CVBundle& out) {
  P::BundleArray records;
  const int result = kList(node, records);
  out.SetBundleArray(ListKey(), std::move(records));
  return result;
}

// ---- Operations ----------------------------------------------------------------

constexpr OperationRole kAnswer = OperationRole::kAnswer;
constexpr OperationRole kRecord = OperationRole::kRecord;
constexpr TextMode kIgnored = TextMode::kIgnored;
constexpr TextMode kDecodes = TextMode::kDecodes;

// clang-format off
#define POIPARSER_OPERATION(name, role, text_mode) {#name, role, text_mode, P::name, nullptr, &schema::k##name}
#define POIPARSER_LIST_OPERATION(name, text_mode) \
  {#name, kRecord, text_mode, RunList<P::name>, P::name, &schema::k##name}
// clang-format on

// The text mode: the suggested-query texts (read by the POI list, area and
// circum answers) and the way point keywords of the route status block (read
// by both route-address forms) follow the flag; nothing else does.
constexpr ParserOperation kOperations[] = {
    POIPARSER_OPERATION(ParseCityList, kAnswer, kIgnored),
    POIPARSER_OPERATION(ParsePoiListRst, kAnswer, kDecodes),
    POIPARSER_OPERATION(ParseAreaSearchRst, kAnswer, kDecodes),
    POIPARSER_OPERATION(ParseAreaMultiSearchRst, kAnswer, kIgnored),
    POIPARSER_OPERATION(ParseCircumSearchRst, kAnswer, kDecodes),
    POIPARSER_OPERATION(ParseCityQueryRst, kAnswer, kIgnored),
    POIPARSER_OPERATION(ParseDistrictRst, kAnswer, kIgnored),
    POIPARSER_OPERATION(ParseEspecialQueryRst, kAnswer, kIgnored),
    POIPARSER_OPERATION(ParsePoiIndoorRst, kAnswer, kIgnored),
    POIPARSER_OPERATION(ParseRouteAddrRst, kAnswer, TextMode::kDispatches),
    POIPARSER_OPERATION(ParseRouteAddrPHPUIRst, kAnswer, kDecodes),
    POIPARSER_OPERATION(ParseRouteAddrPHPUI2Rst, kAnswer, kDecodes),
    POIPARSER_OPERATION(GetCityInfoFromJson, kRecord, kIgnored),
    POIPARSER_LIST_OPERATION(GetCityInfoArrayFromJson, kIgnored),
    POIPARSER_OPERATION(GetPsrsFromJson, kRecord, kIgnored),
    POIPARSER_OPERATION(GetSuggestQueryFromJson, kRecord, kDecodes),
    POIPARSER_OPERATION(GetPoiShowFromJson, kRecord, kIgnored),
    POIPARSER_OPERATION(GetPoiDetailFromJson, kRecord, kIgnored),
    POIPARSER_OPERATION(GetPoiContentFromJson, kRecord, kIgnored),
    POIPARSER_OPERATION(GetAddrContentFromJson, kRecord, kIgnored),
    POIPARSER_OPERATION(GetIndoorPoiContentFromJson, kRecord, kIgnored),
    POIPARSER_OPERATION(GetRPAddrResInfoFromJson, kRecord, kDecodes),
    POIPARSER_LIST_OPERATION(GetRPAddrListFromJson, kIgnored),
};
constexpr size_t kOperationCount = sizeof(kOperations) / sizeof(kOperations[0]);

#undef POIPARSER_OPERATION
#undef POIPARSER_LIST_OPERATION

constexpr bool SameName(const char* a, const char* b) {
  while (*a != 0 && *a == *b) ++a, ++b;
  return *a == *b;
}

// Deliberately not constexpr: the kinds' table below is constant-initialised,
// so a kind naming an operation that the table above lacks fails to compile.
const ParserOperation* NoSuchOperation() { return nullptr; }

// The operation called `name` (or null at run time), so that each operation's
// row above is its only mention.
constexpr const ParserOperation* Operation(const char* name) {
  for (const ParserOperation& operation : kOperations) {
    if (SameName(operation.name, name)) return &operation;
  }
  return NoSuchOperation();
}

// ---- Shape tests -------------------------------------------------------------------
// Each looks at members that only its kind of answer has; the ranks in
// kKinds order them from the most specific.

bool Has(cJSON* node, const char* name) { return FindMember(node, name) != nullptr; }

bool HasCityList(cJSON* root) { return Has(root, "traffic_citys"); }
bool HasPoiResult(cJSON* root) { return Has(root, "poi_result"); }
bool HasTrafficPois(cJSON* root) { return Has(root, "traffic_pois"); }
bool HasResultArray(cJSON* root) { return Has(FindMember(root, "result"), "result_array"); }
bool HasCenter(cJSON* root) { return Has(root, "center"); }
bool HasErrNo(cJSON* root) { return Has(root, "errNo"); }

// The first route address form: a "result" status block with the points'
// "city_list" flags and a "content" object of per-point candidates.
bool IsRouteAddrFirstForm(cJSON* root) {
  cJSON* result = FindMember(root, "result");
  cJSON* content = FindMember(root, "content");
  return IsJsonObject(result) && Has(result, "city_list") && IsJsonObject(content) &&
         (Has(content, "start") || Has(content, "end") || Has(content, "waypoints"));
}

// The city query answer: a "content" object describing one city.
bool IsCityQuery(cJSON* root) {
  cJSON* content = FindMember(root, "content");
  return IsJsonObject(content) && (Has(content, "city_type") || Has(content, "cname"));
}

// The coordinate query answer: "content" starts with an "x,y" text.
bool IsCoordinateQuery(cJSON* root) {
  JsonElements content(FindMember(root, "content"));
  if (content.empty()) return false;
  const char* position = JsonStringBytes(*content.begin());
  return position != nullptr && std::strchr(position, ',') != nullptr;
}

// The area search: "result" holds the search's options (no "error" status,
// no route "city_list" flags) and the page of places is a root "content"
// array. The district answer ("result", "current_city", "content" of one POI
// with a geometry) has the same shape: it is only named.
bool IsAreaSearch(cJSON* root) {
  cJSON* result = FindMember(root, "result");
  return IsJsonObject(result) && !Has(result, "error") && !Has(result, "city_list") &&
         IsJsonArray(FindMember(root, "content"));
}

// ---- Kinds ---------------------------------------------------------------------------

// Answers first, then the records (read from the node given, the file's root).
constexpr AnswerKind kKinds[] = {
    {"city-list", nullptr, "city list answer (\"result\" status, \"traffic_citys\")", Operation("ParseCityList"),
     nullptr, 1, HasCityList},
    {"poi-list", nullptr, "POI list answer (\"result\" status, \"poi_result\")", Operation("ParsePoiListRst"), nullptr,
     2, HasPoiResult},
    {"area", nullptr, "area search answer (\"result\" options, \"content\" array beside it)",
     Operation("ParseAreaSearchRst"), nullptr, 10, IsAreaSearch},
    {"area-multi", nullptr, "multi-area search answer (\"result\".\"result_array\", \"content\" lists)",
     Operation("ParseAreaMultiSearchRst"), nullptr, 4, HasResultArray},
    {"circum", nullptr, "circum search answer (\"result\" options, \"content\", \"center\")",
     Operation("ParseCircumSearchRst"), nullptr, 5, HasCenter},
    {"city-query", nullptr, "city query answer (a \"content\" object, \"current_city\")",
     Operation("ParseCityQueryRst"), nullptr, 8, IsCityQuery},
    {"address", nullptr, "one address record (\"addr\", \"geo\", \"name\", \"precise\")",
     Operation("GetAddrContentFromJson"), nullptr, 0, nullptr},
    {"district", nullptr, "district answer (\"result\", \"current_city\", \"content\" with a \"geo\")",
     Operation("ParseDistrictRst"), nullptr, 0, nullptr},
    {"especial", "coordinate-query", "coordinate query answer (\"content\": [\"x,y\", \"level\"])",
     Operation("ParseEspecialQueryRst"), nullptr, 9, IsCoordinateQuery},
    {"indoor", nullptr, "indoor search answer (\"errNo\", \"Msg\", \"data\")", Operation("ParsePoiIndoorRst"), nullptr,
     7, HasErrNo},
    {"indoor-poi", nullptr, "one indoor POI record (fifteen texts, \"twp\" flags)",
     Operation("GetIndoorPoiContentFromJson"), nullptr, 0, nullptr},
    // With the flag held the dispatcher would parse the second form and
    // clear the flag; the second form's operation is called directly instead.
    {"route-addr", nullptr, "route address answer, form chosen by --utf8 (the text mode flag)",
     Operation("ParseRouteAddrRst"), Operation("ParseRouteAddrPHPUI2Rst"), 0, nullptr},
    {"route-addr-1", nullptr, "route address answer, first form (\"result\" status block, \"content\")",
     Operation("ParseRouteAddrPHPUIRst"), nullptr, 6, IsRouteAddrFirstForm},
    {"route-addr-2", nullptr, "route address answer, second form (\"result\" status, \"traffic_pois\")",
     Operation("ParseRouteAddrPHPUI2Rst"), nullptr, 3, HasTrafficPois},
    {"psrs", nullptr, "one psrs hint record (\"SENum\", \"SEResult\")", Operation("GetPsrsFromJson"), nullptr, 0,
     nullptr},
    {"suggest-query", nullptr, "one suggested-query array (objects with \"query\")",
     Operation("GetSuggestQueryFromJson"), nullptr, 0, nullptr},
    {"poi", nullptr, "one POI record (with its \"show\" and \"ext\")", Operation("GetPoiContentFromJson"), nullptr, 0,
     nullptr},
    {"poi-show", nullptr, "one POI show record (twelve display integers)", Operation("GetPoiShowFromJson"), nullptr, 0,
     nullptr},
    {"poi-detail", nullptr, "one POI detail record (a \"detail_info\" object)", Operation("GetPoiDetailFromJson"),
     nullptr, 0, nullptr},
    {"city-info", nullptr, "one city record (\"code\", \"num\", \"name\")", Operation("GetCityInfoFromJson"), nullptr,
     0, nullptr},
};
constexpr size_t kKindCount = sizeof(kKinds) / sizeof(kKinds[0]);

// A kind with a shape test has a detection rank, and the other way round.
constexpr bool ShapesHaveRanks() {
  for (const AnswerKind& kind : kKinds) {
    if ((kind.detection_rank == 0) != (kind.has_shape == nullptr)) return false;
  }
  return true;
}
static_assert(ShapesHaveRanks(), "a kind has a shape test without a rank or a rank without a test");

// The detectable kinds by rank: ranks are 1..kMaxRank, each given once.
constexpr int kMaxRank = 10;
constexpr std::array<const AnswerKind*, kMaxRank> KindsByRank() {
  std::array<const AnswerKind*, kMaxRank> by_rank{};
  for (const AnswerKind& kind : kKinds) {
    if (kind.detection_rank > 0 && kind.detection_rank <= kMaxRank) by_rank[kind.detection_rank - 1] = &kind;
  }
  return by_rank;
}
constexpr std::array<const AnswerKind*, kMaxRank> kKindsByRank = KindsByRank();

constexpr bool RanksAreAPermutation() {
  int ranked = 0;
  for (const AnswerKind& kind : kKinds) ranked += kind.detection_rank > 0 ? 1 : 0;
  for (const AnswerKind* kind : kKindsByRank) {
    if (kind == nullptr) return false;
  }
  return ranked == kMaxRank;
}
static_assert(RanksAreAPermutation(), "detection ranks must be 1..kMaxRank, each once");

}  // namespace

RegistryRange<ParserOperation> ParserOperations() { return {kOperations, kOperationCount}; }

const ParserOperation* FindParserOperation(const char* name) {
  assert(name != nullptr);
  return Operation(name);
}

RegistryRange<AnswerKind> AnswerKinds() { return {kKinds, kKindCount}; }

const AnswerKind* FindAnswerKind(const char* name) {
  assert(name != nullptr);
  for (const AnswerKind& kind : AnswerKinds()) {
    if (std::strcmp(kind.name, name) == 0 || (kind.alias != nullptr && std::strcmp(kind.alias, name) == 0)) {
      return &kind;
    }
  }
  return nullptr;
}

const AnswerKind* DetectAnswerKind(cJSON* root) {
  if (!IsJsonObject(root)) return nullptr;
  for (const AnswerKind* kind : kKindsByRank) {
    if (kind->has_shape(root)) return kind;
  }
  return nullptr;
}

}  // namespace _quarn_framework
