// Explain mode: what the operations report to an installed collector, that
// reporting never changes a result or a bundle, and that it costs no heap
// block when no collector is installed.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <new>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "foundation/VMem.h"
#include "json_readers/Diagnostics.h"

// Heap blocks allocated while g_counting is set on this thread: seen by the
// allocator hooks of AddressSanitizer, elsewhere by a replaced operator new.
// Strings and bundles carve their blocks from chunks, so a count sees the
// chunks they take and every other allocation.

namespace {
thread_local bool g_counting = false;
long g_heap_blocks = 0;
void CountBlock() {
  if (g_counting) ++g_heap_blocks;
}
}  // namespace

#if defined(__SANITIZE_ADDRESS__)
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*malloc_hook)(const volatile void*, size_t),
                                                         void (*free_hook)(const volatile void*));
namespace {
void OnMalloc(const volatile void*, size_t) { CountBlock(); }
void OnFree(const volatile void*) {}
void InstallHeapCounter() {
  static const int installed = __sanitizer_install_malloc_and_free_hooks(OnMalloc, OnFree);
  (void)installed;
}
}  // namespace
#else
void* operator new(std::size_t size) {
  CountBlock();
  if (void* block = std::malloc(size != 0 ? size : 1)) return block;
  throw std::bad_alloc();
}
void operator delete(void* block) noexcept { std::free(block); }
void operator delete(void* block, std::size_t) noexcept { std::free(block); }
// Aligned requests too, so that no block escapes the count.
void* operator new(std::size_t size, std::align_val_t align) {
  CountBlock();
  const std::size_t alignment = static_cast<std::size_t>(align);
  if (void* block = std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment)) return block;
  throw std::bad_alloc();
}
void operator delete(void* block, std::align_val_t) noexcept { std::free(block); }
void operator delete(void* block, std::size_t, std::align_val_t) noexcept { std::free(block); }
namespace {
void InstallHeapCounter() {}
}  // namespace
#endif

namespace {

using _quarn_vi::CVBundle;
using _quarn_framework::CVDiagnostics;
using _quarn_framework::CVDiagnosticsScope;
using testing_support::Json;
using testing_support::Op;
using testing_support::P;

// Heap blocks and CVMem blocks allocated by one call of `op`, without a
// collector.
struct Allocations {
  long heap;
  long cvmem;
};

// Every block the operation makes, with the block cache off.
Allocations CountAllocations(Op op, cJSON* root) {
  InstallHeapCounter();
  const size_t cache_limit = _quarn_vi::CVMem::BlockCacheLimit();
  _quarn_vi::CVMem::SetBlockCacheLimit(0);
  _quarn_vi::CVMem::ReleaseCachedBlocks();
  static long cvmem_blocks = 0;
  _quarn_vi::CVMemHooks hooks{[](unsigned int size, const char*, int, void*) -> void* {
                                ++cvmem_blocks;
                                return std::malloc(size);
                              },
                              [](void* block, void*) { std::free(block); }, nullptr};
  cvmem_blocks = 0;
  g_heap_blocks = 0;
  _quarn_vi::CVMem::SetHooks(&hooks);
  {
    CVBundle bundle;
    g_counting = true;
    op(root, bundle);
    g_counting = false;
  }
  _quarn_vi::CVMem::SetHooks(nullptr);
  _quarn_vi::CVMem::SetBlockCacheLimit(cache_limit);
  return Allocations{g_heap_blocks, cvmem_blocks};
}

Json Parse(const char* input) {
  return input != nullptr ? testing_support::ParseJson(input) : Json(nullptr, cJSON_Delete);
}

// The reports of `op` on `root` as "severity path: message" lines. Checks on
// the way that the result and the bundle are those of a run without a
// collector.
std::string Explain(Op op, cJSON* root, int* result = nullptr, std::string* json = nullptr) {
  CVBundle plain;
  const int plain_result = op(root, plain);
  CVDiagnostics diagnostics;
  CVBundle bundle;
  int explained_result;
  {
    CVDiagnosticsScope scope(diagnostics);
    explained_result = op(root, bundle);
  }
  EXPECT_EQ(explained_result, plain_result);
  EXPECT_EQ(testing_support::ToJson(bundle), testing_support::ToJson(plain));
  if (result != nullptr) *result = explained_result;
  if (json != nullptr) *json = testing_support::ToJson(bundle);
  std::string text;
  for (const auto& d : diagnostics.Resolve(root)) {
    if (!text.empty()) text += '\n';
    text += std::string(CVDiagnostics::SeverityName(d.severity)) + " " + d.path + ": " + d.message;
  }
  return text;
}

struct Case {
  Op op;
  const char* input;  // null: a null root
  int result;
  const char* reports;
  bool builds_first = false;  // refused after storing part of the result
};

void CheckCases(const Case* cases, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    const Case& c = cases[i];
    SCOPED_TRACE(c.input != nullptr ? c.input : "(null root)");
    Json root = Parse(c.input);
    int result = -1;
    std::string json;
    EXPECT_EQ(Explain(c.op, root.get(), &result, &json), c.reports);
    EXPECT_EQ(result, c.result);
    // A refusal before anything is stored leaves the caller's bundle empty.
    if (c.result == 0 && !c.builds_first) {
      EXPECT_EQ(json, "{}");
    }
  }
}

// ---- Refusals: exactly one "refused" report, at the right place ------------------

const Case kRefusals[] = {
    {P::ParseCityList, nullptr, 0, "refused $: no answer"},
    {P::ParseCityList, R"({})", 0, "refused $.result: absent"},
    {P::ParseCityList, R"({"result": []})", 0, "refused $.result: array where an object was expected"},
    {P::ParseCityList, R"({"result": {}})", 0, "refused $.result.error: absent"},
    {P::ParseCityList, R"({"result": {"error": "zero"}})", 0,
     "refused $.result.error: string where an integer was expected"},
    {P::ParseCityList, R"({"result": {"error": 2}})", 0, "refused $.result.error: status is 2, not 0"},
    {P::ParseCityList, R"({"result": {"error": 0}})", 0, "refused $.traffic_citys: absent"},
    {P::ParseCityList, R"({"result": {"error": 0}, "traffic_citys": [1]})", 0,
     "refused $.traffic_citys: array where an object was expected"},

    {P::ParsePoiListRst, nullptr, 0, "refused $: no answer"},
    {P::ParsePoiListRst, R"({"result": {"error": -3}})", 0, "refused $.result.error: status is -3, not 0"},
    {P::ParsePoiListRst, R"({"result": {"error": 0}})", 0, "refused $.poi_result: absent", true},
    {P::ParsePoiListRst, R"({"result": {"error": 0}, "poi_result": {"option": "x"}})", 0,
     "refused $.poi_result.option: string where an object was expected", true},
    {P::ParsePoiListRst, R"({"result": {"error": 0}, "poi_result": {"option": {"total": 3}}})", 0,
     "refused $.poi_result.place_info: absent", true},

    {P::ParseAreaSearchRst, nullptr, 0, "refused $: no answer"},
    {P::ParseAreaSearchRst, R"([])", 0, "refused $: array where an object was expected"},
    {P::ParseAreaSearchRst, R"({"content": []})", 0, "refused $.result: absent"},

    {P::ParseAreaMultiSearchRst, nullptr, 0, "refused $: no answer"},
    {P::ParseAreaMultiSearchRst, R"("text")", 0, "refused $: string where an object was expected"},
    {P::ParseAreaMultiSearchRst, R"({"result": 1})", 0, "refused $.result: number where an object was expected"},
    {P::ParseAreaMultiSearchRst, R"({"result": {}})", 0, "refused $.result.result_array: absent"},
    {P::ParseAreaMultiSearchRst, R"({"result": {"result_array": [{"count": 1}, null]}})", 0,
     "refused $.result.result_array[1]: null where an object was expected", true},

    {P::ParseCircumSearchRst, nullptr, 0, "refused $: no answer"},
    {P::ParseCircumSearchRst, R"({"result": {"total": 1}, "content": [{"name": "a"}]})", 0,
     "refused $.center: absent", true},
    {P::ParseCircumSearchRst, R"({"result": {}, "center": {"poi": {}}})", 0,
     "refused $.center.poi: object where an array was expected", true},

    {P::ParseCityQueryRst, nullptr, 0, "refused $: no answer"},
    {P::ParseCityQueryRst, R"({"current_city": {}})", 0, "refused $.content: absent"},

    {P::ParseDistrictRst, nullptr, 0, "refused $: no answer"},
    {P::ParseDistrictRst, R"({"result": true})", 0, "refused $.result: boolean where an object was expected"},
    {P::ParseDistrictRst, R"({"result": {}})", 0, "refused $.content: absent"},
    {P::ParseDistrictRst, R"({"result": {}, "content": []})", 0, "refused $.content: 1 element needed, 0 found"},
    {P::ParseDistrictRst, R"({"result": {}, "content": [[1]]})", 0,
     "refused $.content[0]: array where an object was expected"},
    {P::ParseDistrictRst, R"({"result": {}, "content": [{"name": "x"}]})", 0, "refused $.content[0].geo: absent",
     true},
    {P::ParseDistrictRst, R"({"result": {}, "content": [{"geo": 5}]})", 0,
     "refused $.content[0].geo: number where a geometry text was expected", true},
    {P::ParseDistrictRst, R"({"result": {}, "content": [{"geo": "1|"}]})", 0,
     "refused $.content[0].geo: geometry without a point", true},
    {P::ParseDistrictRst, R"({"result": {}, "content": [{"geo": "1|x,y"}]})", 0,
     "refused $.content[0].geo: not a readable geometry", true},

    {P::ParseEspecialQueryRst, nullptr, 0, "refused $: no answer"},
    {P::ParseEspecialQueryRst, R"([])", 0, "refused $: array where an object was expected"},
    {P::ParseEspecialQueryRst, R"({"content": "1,2"})", 0, "refused $.content: string where an array was expected"},
    {P::ParseEspecialQueryRst, R"({"content": []})", 0, "refused $.content: 2 elements needed, 0 found"},
    {P::ParseEspecialQueryRst, R"({"content": ["1,2"]})", 0, "refused $.content: 2 elements needed, 1 found"},
    {P::ParseEspecialQueryRst, R"({"content": [12, "3"]})", 0,
     "refused $.content[0]: number where a string was expected"},
    {P::ParseEspecialQueryRst, R"({"content": ["12", "3"]})", 0, "refused $.content[0]: no ',' between x and y"},
    {P::ParseEspecialQueryRst, R"({"content": ["12345678901234567890,1", "3"]})", 0,
     "refused $.content[0]: x of 20 bytes, at most 19 fit"},
    {P::ParseEspecialQueryRst, R"({"content": ["1,2", null]})", 0,
     "refused $.content[1]: null where a string was expected"},

    {P::ParsePoiIndoorRst, nullptr, 0, "refused $: no answer"},
    {P::ParsePoiIndoorRst, R"([1])", 0, "refused $: array where an object was expected"},
    {P::ParsePoiIndoorRst, R"({"errNo": 0})", 0, "refused $.data: absent"},
    {P::ParsePoiIndoorRst, R"({"errNo": "0", "data": []})", 0, "refused $.data: array where an object was expected"},

    {P::ParseRouteAddrRst, nullptr, 0, "refused $: no answer"},
    {P::ParseRouteAddrPHPUIRst, nullptr, 0, "refused $: no answer"},
    {P::ParseRouteAddrPHPUI2Rst, nullptr, 0, "refused $: no answer"},
    {P::ParseRouteAddrPHPUI2Rst, R"({"result": {"error": 1}})", 0, "refused $.result.error: status is 1, not 0"},
    {P::ParseRouteAddrPHPUI2Rst, R"({"result": {"error": 0}})", 0, "refused $.traffic_pois: absent"},
    {P::ParseRouteAddrPHPUI2Rst, R"({"result": {"error": 0}, "traffic_pois": [1]})", 0,
     "refused $.traffic_pois: array where an object was expected"},
    {P::ParseRouteAddrPHPUI2Rst, R"({"result": {"error": 0}, "traffic_pois": {}})", 0,
     "refused $.traffic_pois.option: absent"},

    // Record operations leave their own type test to their callers.
    {P::GetPoiContentFromJson, R"([])", 0, ""},
    {P::GetSuggestQueryFromJson, R"({})", 0, ""},
    {P::GetPsrsFromJson, R"({"SENum": 1})", 0, "skipped $.SEResult: absent", true},
};

TEST(Diagnostics, EveryRefusalIsReportedOnceWhereItHappened) {
  CheckCases(kRefusals, sizeof(kRefusals) / sizeof(kRefusals[0]));
}

// ---- Members and elements left out ------------------------------------------------

const Case kSkips[] = {
    {P::ParseCityList,
     R"({"result": {"error": 0}, "traffic_citys": {"current_city": [],
         "contents": [{"code": "x", "name": "a"}, 7]}})",
     1,
     "skipped $.traffic_citys.current_city: array where an object was expected\n"
     "skipped $.traffic_citys.contents[0].code: string where an integer was expected\n"
     "skipped $.traffic_citys.contents[1]: left out: number where an object was expected"},

    {P::ParsePoiListRst,
     R"({"result": {"error": 0}, "poi_result": {"option": {}, "place_info": {}, "psrs": {"SENum": 2}}})", 1,
     "skipped $.poi_result.psrs.SEResult: absent"},
    {P::ParsePoiListRst,
     R"({"result": {"error": 0}, "poi_result": {"option": {"total": "many"},
         "place_info": {"d_sort_rule": []}, "addrs": [1, {"addr": "x"}],
         "psrs": {"SEResult": ["a", 2]}, "suggest_query": [{"query": "q"}, {"query": 3}, "s", {}]}})",
     1,
     "skipped $.poi_result.option.total: string where an integer was expected\n"
     "skipped $.poi_result.place_info.d_sort_rule: array where an integer was expected\n"
     "skipped $.poi_result.addrs[0]: left out: number where an object was expected\n"
     "skipped $.poi_result.psrs.SEResult[1]: left out: number where a string was expected\n"
     "skipped $.poi_result.suggest_query[1].query: number where a string was expected\n"
     "skipped $.poi_result.suggest_query[2]: left out: string where an object was expected\n"
     "skipped $.poi_result.suggest_query[3].query: absent"},
    {P::ParsePoiListRst,
     R"({"result": {"error": 0}, "poi_result": {"option": {}, "place_info": {}, "contents": 3,
         "psrs": [], "suggest_query": {}}})",
     1,
     "skipped $.poi_result.contents: number where an array was expected\n"
     "skipped $.poi_result.psrs: array where an object was expected\n"
     "skipped $.poi_result.suggest_query: object where an array was expected"},

    {P::GetPoiContentFromJson,
     R"({"name": "a", "detail": "maybe", "tel": {}, "poiType": "bus", "show": [1],
         "ext": {"src_name": "s", "detail_info": "d"}, "rec_reason": ["r", 1]})",
     1,
     "skipped $.detail: string where a truth value was expected\n"
     "skipped $.tel: object where text was expected\n"
     "skipped $.poiType: string where an integer was expected\n"
     "skipped $.show: array where an object was expected\n"
     "skipped $.ext.detail_info: string where an object was expected\n"
     "skipped $.rec_reason[1]: left out: number where a string was expected"},
    {P::GetPoiContentFromJson, R"({"ext": 1})", 1, "skipped $.ext: number where an object was expected"},
    {P::GetPoiContentFromJson, R"({"ext": {"src_name": "", "detail_info": {}}})", 1,
     "skipped $.ext.src_name: empty string where non-empty text was expected"},
    {P::GetPoiContentFromJson, R"({"ext": {"detail_info": {}}})", 1, "skipped $.ext.src_name: absent"},
    {P::GetPoiDetailFromJson,
     R"({"flag": "f", "image": {}, "premium_flag": "x", "premium_info": [], "groupon_info": 1,
         "oril_info": {"oril_detail": [{"oril_price": "1"}, 2]}, "book_info": "yes"})",
     1,
     "skipped $.flag: string where an array of strings was expected\n"
     "skipped $.image: object where text was expected\n"
     "skipped $.premium_flag: string where an integer was expected\n"
     "skipped $.premium_info: array where an object was expected\n"
     "skipped $.groupon_info: number where an object was expected\n"
     "skipped $.oril_info.oril_detail[1]: left out: number where an object was expected\n"
     "skipped $.book_info: string where an object was expected"},
    {P::GetPoiDetailFromJson,
     R"({"oril_info": {"oril_detail": {}}, "book_info": {"tel": "123", "web": {"title": "t"}}})", 1,
     "skipped $.oril_info.oril_detail: object where an array was expected\n"
     "skipped $.book_info.tel: string where an object was expected"},

    {P::ParseAreaSearchRst,
     R"({"result": {"op_gel": "maybe"}, "current_city": 1, "place_info": "p",
         "content": [{"name": "a"}, "b"]})",
     1,
     "skipped $.result.op_gel: string where a truth value was expected\n"
     "skipped $.current_city: number where an object was expected\n"
     "skipped $.place_info: string where an object was expected\n"
     "skipped $.content[1]: left out: string where an object was expected"},
    {P::ParseAreaSearchRst, R"({"result": {}, "place_info": {"d_sort_rule": {}}})", 1,
     "skipped $.place_info.d_sort_rule: object where text was expected"},
    {P::ParseAreaMultiSearchRst,
     R"({"result": {"result_array": [{"wd": []}]}, "content": [[{"name": "a"}, 1], {}]})", 1,
     "skipped $.result.result_array[0].wd: array where text was expected\n"
     "skipped $.content[0][1]: left out: number where an object was expected\n"
     "skipped $.content[1]: left out: object where an array was expected"},
    {P::ParseAreaMultiSearchRst, R"({"result": {"result_array": []}, "content": {}})", 1,
     "skipped $.content: object where an array was expected"},
    {P::ParseCircumSearchRst, R"({"result": {}, "content": {}, "center": {"poi": [{"name": "c"}, []]}})", 1,
     "skipped $.content: object where an array was expected\n"
     "skipped $.center.poi[1]: left out: array where an object was expected"},

    {P::ParseCityQueryRst, R"({"content": [], "current_city": "here"})", 1,
     "skipped $.content: array where an object was expected\n"
     "skipped $.current_city: string where an object was expected"},
    {P::ParseCityQueryRst, R"({"content": {"city_type": "big", "level": []}})", 1,
     "skipped $.content.city_type: string where an integer was expected\n"
     "skipped $.content.level: array where an integer was expected"},

    {P::ParsePoiIndoorRst, R"({"errNo": 1, "Msg": "bad bid", "data": {}})", 1,
     "skipped $.data: not read: status is 1, not 0"},
    {P::ParsePoiIndoorRst, R"({"data": {}})", 1,
     "skipped $.data: not read: the answer has no \"errNo\" (an unknown error)"},
    {P::ParsePoiIndoorRst,
     R"({"errNo": 0, "data": {"poi_num": "n", "poi_list": [{"name": "a", "twp": 7}, {"twp": "x"}, "z"]}})", 1,
     "skipped $.data.poi_num: string where an integer was expected\n"
     "skipped $.data.poi_list[0].twp: number where a string was expected\n"
     "skipped $.data.poi_list[1].twp: text without a leading number\n"
     "skipped $.data.poi_list[2]: left out: string where an object was expected"},

    {P::ParseRouteAddrPHPUIRst,
     R"({"result": {"city_list": [0, "x", 1, 0], "prio_flag": [0, 0, {}, 0], "wp_wd": ["w1", 5],
                    "start_city": "s", "end_city": {"code": "c"}},
         "current_city": [],
         "content": {"start": {}, "end": [{"uid": "u"}, 3], "waypoints": [[{"code": 1}]]}})",
     1,
     "skipped $.result.city_list[1]: left out: string where an integer was expected\n"
     "skipped $.result.prio_flag[2]: left out: object where an integer was expected\n"
     "skipped $.result.wp_wd[1]: left out: number where a string was expected\n"
     "skipped $.result.start_city: string where an object was expected\n"
     "skipped $.result.end_city.code: string where an integer was expected\n"
     "skipped $.current_city: array where an object was expected\n"
     "skipped $.content.start: object where an array was expected\n"
     "skipped $.content.end[1]: left out: number where an object was expected"},
    {P::ParseRouteAddrPHPUIRst, R"({"result": [], "content": "c"})", 1,
     "skipped $.result: array where an object was expected\n"
     "skipped $.content: string where an object was expected"},
    {P::ParseRouteAddrPHPUIRst, R"({"result": {"city_list": [0, 0, 0], "prio_flag": 1, "wp_wd": "w"}})", 1,
     "skipped $.result.prio_flag: number where an array was expected\n"
     "skipped $.result.wp_wd: string where an array was expected"},
    {P::ParseRouteAddrPHPUI2Rst,
     R"({"result": {"error": 0}, "traffic_pois": {"option": "o", "content": {"multi_waypoints": []}}})", 1,
     "skipped $.traffic_pois.option: string where an object was expected"},
    {P::ParseRouteAddrPHPUI2Rst,
     R"({"result": {"error": 0}, "traffic_pois": {"option": {"city_list": [0, 0, 0, 0]},
         "content": {"multi_waypoints": [5, {"way_points": {}}]}}})",
     1,
     "skipped $.traffic_pois.content.multi_waypoints[0]: left out: number where an object was expected\n"
     "skipped $.traffic_pois.content.multi_waypoints[1].way_points: object where an array was expected"},
    {P::ParseRouteAddrPHPUI2Rst,
     R"({"result": {"error": 0}, "traffic_pois": {"option": {"city_list": [0, 0, 0]},
         "content": {"multi_waypoints": {}}}})",
     1, "skipped $.traffic_pois.content.multi_waypoints: object where an array was expected"},
};

TEST(Diagnostics, MembersAndElementsLeftOutAreReportedAsSkipped) {
  CheckCases(kSkips, sizeof(kSkips) / sizeof(kSkips[0]));
}

// ---- Reporting changes nothing --------------------------------------------------

// Every operation on `root`: the same result and bundle with a collector as
// without; an answer refused has exactly one "refused" report and an
// accepted one none; record operations refuse nothing themselves; every
// report lies under the root. The operations are those of the examples (an
// answer is a "Parse" one on a whole example); with the text mode flag clear
// the route dispatcher parses the first form.
void CheckEveryOperation(cJSON* root) {
  std::vector<Op> seen;
  for (const testing_support::ExampleOp& named : testing_support::ExampleOps()) {
    if (named.op == nullptr || std::find(seen.begin(), seen.end(), named.op) != seen.end()) continue;
    seen.push_back(named.op);
    SCOPED_TRACE(named.op_name);
    const bool entry = *named.path == 0 && std::string(named.op_name).compare(0, 5, "Parse") == 0;
    int result = -1;
    const std::string reports = Explain(named.op, root, &result);
    size_t refused = 0;
    for (size_t at = 0; (at = reports.find("refused ", at)) != std::string::npos; ++at) {
      if (at == 0 || reports[at - 1] == '\n') ++refused;
    }
    EXPECT_EQ(refused, entry && result == 0 ? 1u : 0u) << reports;
    EXPECT_EQ(reports.find(" ?:"), std::string::npos) << reports;
  }
}

// The (container, child) pairs of a tree, in a fixed order.
std::vector<std::pair<cJSON*, cJSON*>> Children(cJSON* root) {
  std::vector<std::pair<cJSON*, cJSON*>> children;
  std::vector<cJSON*> pending{root};
  while (!pending.empty()) {
    cJSON* node = pending.back();
    pending.pop_back();
    for (cJSON* child = node->child; child != nullptr; child = child->next) {
      children.emplace_back(node, child);
      if (cJSON_IsObject(child) || cJSON_IsArray(child)) pending.push_back(child);
    }
  }
  return children;
}

// The examples as they are, and with each member or element in turn removed
// or replaced by a value of another type.
TEST(Diagnostics, ReportingChangesNoResultAndNoBundle) {
  const std::vector<std::string> names = testing_support::ExampleNames();
  ASSERT_FALSE(names.empty());
  for (const std::string& name : names) {
    SCOPED_TRACE(name);
    Json root = testing_support::ParseJson(testing_support::ReadExample(name));
    ASSERT_NE(root, nullptr);
    CheckEveryOperation(root.get());
    const size_t count = Children(root.get()).size();
    for (size_t i = 0; i < count; ++i) {
      for (bool remove : {true, false}) {
        Json copy(cJSON_Duplicate(root.get(), 1), cJSON_Delete);
        auto [parent, child] = Children(copy.get())[i];
        if (remove) {
          cJSON_Delete(cJSON_DetachItemViaPointer(parent, child));
        } else {
          const bool container = cJSON_IsObject(child) || cJSON_IsArray(child);
          cJSON_ReplaceItemViaPointer(parent, child, container ? cJSON_CreateNumber(7) : cJSON_CreateObject());
        }
        CheckEveryOperation(copy.get());
      }
    }
  }
}

// ---- No collector, no cost ------------------------------------------------------

// An answer refused before it stores anything allocates nothing at all, and
// an answer with members and elements left out allocates exactly as much as
// the same answer without them.
TEST(Diagnostics, NoCollectorAllocatesNothingForReports) {
  for (const Case& c : kRefusals) {
    SCOPED_TRACE(c.input != nullptr ? c.input : "(null root)");
    Json root = Parse(c.input);
    CVBundle bundle;
    c.op(root.get(), bundle);  // builds the operation's tables once
    if (c.builds_first || bundle.GetCount() != 0) continue;
    const Allocations counted = CountAllocations(c.op, root.get());
    EXPECT_EQ(counted.heap, 0);
    EXPECT_EQ(counted.cvmem, 0);
  }

  struct Pair {
    Op op;
    const char* clean;
    const char* noisy;  // the same answer with unusable members and elements
  };
  const Pair pairs[] = {
      {P::ParsePoiListRst,
       R"({"result": {"error": 0}, "poi_result": {"option": {"total": 2}, "place_info": {},
           "contents": [{"name": "a", "ext": {"src_name": "s", "detail_info": {"tag": "t"}}}],
           "suggest_query": [{"query": "q"}]}})",
       R"({"result": {"error": 0}, "poi_result": {"option": {"total": 2, "op_gel": {}}, "place_info": {},
           "contents": [{"name": "a", "tel": {}, "show": 1, "dis": "far",
                         "ext": {"src_name": "s", "detail_info": {"tag": "t", "image": {}, "oril_info": 1}}}],
           "current_city": [], "addrs": [1, []], "psrs": [], "suggest_query": [{"query": "q"}]}})"},
      {P::ParsePoiIndoorRst, R"({"errNo": 0, "data": {"poi_list": [{"name": "a", "twp": "0"}]}})",
       R"({"errNo": 0, "data": {"page_num": [], "poi_list": [{"name": "a", "twp": "zero"}, 1, 2]}})"},
      {P::ParsePoiIndoorRst, R"({"errNo": 3})", R"({"errNo": 3, "data": {"poi_list": []}})"},
      {P::ParseRouteAddrPHPUIRst,
       R"({"result": {"city_list": [0, 0, 0], "wp_wd": ["w"]}, "content": {"start": [{"uid": "u"}]}})",
       R"({"result": {"city_list": [0, 0, 0], "wp_wd": ["w"], "prio_flag": 3, "start_city": 1},
           "current_city": 2, "content": {"start": [{"uid": "u"}, 1, "x"], "end": {}}})"},
  };
  for (const Pair& pair : pairs) {
    SCOPED_TRACE(pair.noisy);
    Json clean = Parse(pair.clean);
    Json noisy = Parse(pair.noisy);
    ASSERT_EQ(Explain(pair.op, clean.get()).find("skipped"), std::string::npos);
    ASSERT_NE(Explain(pair.op, noisy.get()), "");
    std::string clean_bundle, noisy_bundle;
    EXPECT_EQ(testing_support::Run(pair.op, pair.clean, &clean_bundle),
              testing_support::Run(pair.op, pair.noisy, &noisy_bundle));
    EXPECT_EQ(clean_bundle, noisy_bundle);
    const Allocations for_clean = CountAllocations(pair.op, clean.get());
    const Allocations for_noisy = CountAllocations(pair.op, noisy.get());
    EXPECT_GT(for_clean.heap, 0);  // the counter sees the bundle's blocks
    EXPECT_EQ(for_noisy.heap, for_clean.heap);
    EXPECT_EQ(for_noisy.cvmem, for_clean.cvmem);
  }
}

// ---- poiparse --explain ----------------------------------------------------------

TEST(Diagnostics, PoiparseExplainAddsTheReportsToEachAnswer) {
  // A record operation refuses a root of the wrong type without a report of
  // its own: the tool says it for "$".
  EXPECT_EQ(testing_support::RunTool("--compact --explain --kind poi", "[1]").out,
            "{\"kind\":\"poi\",\"result\":0,\"bundle\":{},\"diagnostics\":[{\"path\":\"$\","
            "\"severity\":\"refused\",\"message\":\"array not accepted as a poi record\"}]}\n");

  // Answers parsed on several threads each get their own reports.
  const std::string jsonl =
      "{\"result\": {\"error\": 4}, \"traffic_citys\": {}}\n"
      "{\"result\": {\"error\": 0}, \"traffic_citys\": {\"contents\": [1]}}\n";
  const testing_support::ToolOutcome outcome = testing_support::RunTool("--jsonl -j 2 --explain", jsonl);
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.out,
            "{\"kind\":\"city-list\",\"result\":0,\"bundle\":{},\"diagnostics\":[{\"path\":\"$.result.error\","
            "\"severity\":\"refused\",\"message\":\"status is 4, not 0\"}]}\n"
            "{\"kind\":\"city-list\",\"result\":1,\"bundle\":{\"current_null\":false},\"diagnostics\":["
            "{\"path\":\"$.traffic_citys.contents[0]\",\"severity\":\"skipped\","
            "\"message\":\"left out: number where an object was expected\"}]}\n");
}

}  // namespace
