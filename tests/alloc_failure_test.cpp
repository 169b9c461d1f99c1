// Allocation failure: every operation on its example node with the k-th
// request (and, persistent, every later one) failing, for k = 1, 2, ... until
// a run sees no failure. A null CVMem block costs only the element (no
// exception, the same result); a std::bad_alloc from operator new reaches the
// caller. Either way nothing leaks, the caller's bundle stays whole, holding
// only values the answer gives, and it stays usable: a copy of it, a change
// to either, and a parse into it again behave as on any bundle.
//
// The sweeps run with and without a diagnostics collector, and once more on
// first use, while the field tables are being built: each failure point then
// runs in a fresh child process (fork) whose tables were never built.
//
// This file is its own test program (tests/CMakeLists.txt): it replaces the
// global operator new and delete (the aligned forms too) with counting,
// armable ones. With the block cache off, every string and bundle block comes
// from operator new, so each of them is a failure point.
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>
#include <set>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "json_readers/Diagnostics.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#define POIPARSER_LEAK_CHECK() __lsan_do_recoverable_leak_check()
#else
#define POIPARSER_LEAK_CHECK() 0
#endif

namespace {

// Counts requests while armed and fails the k-th (and, persistent, later) ones.
struct Injector {
  bool armed = false;
  long long fail_at = 0;  // 1-based request number; 0 fails none
  bool persistent = false;
  long long requests = 0;  // requests seen while armed
  long long failures = 0;  // requests failed
  long long live = 0;      // blocks handed out and not yet freed (armed or not)

  void Arm(long long k, bool keep_failing) {
    fail_at = k;
    persistent = keep_failing;
    requests = 0;
    failures = 0;
    armed = true;
  }
  bool Fails() {
    if (!armed) return false;
    ++requests;
    if (requests == fail_at || (persistent && fail_at > 0 && requests > fail_at)) {
      ++failures;
      return true;
    }
    return false;
  }
};

Injector g_new;   // the global operator new
Injector g_cvmem; // CVMem::Allocate

// ---- The allocation configuration under test ----------------------------------
// The only lines that know how the library allocates its blocks: with the
// per-thread block cache off and empty, each string and bundle block is one
// operator new, and nothing is kept between runs.
void FreshAllocatorState() {
  _quarn_vi::CVMem::SetBlockCacheLimit(0);
  _quarn_vi::CVMem::ReleaseCachedBlocks();
}
// ---------------------------------------------------------------------------------

// Whether an operation ran in this process (its tables are then built).
bool g_operation_ran = false;

void* CountedNew(std::size_t size) {
  if (g_new.Fails()) throw std::bad_alloc();
  void* block = std::malloc(size == 0 ? 1 : size);
  if (block == nullptr) throw std::bad_alloc();
  ++g_new.live;
  return block;
}

void* CountedNewAligned(std::size_t size, std::align_val_t alignment) {
  if (g_new.Fails()) throw std::bad_alloc();
  void* block = nullptr;
  const std::size_t align = static_cast<std::size_t>(alignment);
  if (posix_memalign(&block, align < sizeof(void*) ? sizeof(void*) : align, size == 0 ? 1 : size) != 0) {
    throw std::bad_alloc();
  }
  ++g_new.live;
  return block;
}

void CountedDelete(void* block) noexcept {
  if (block == nullptr) return;
  --g_new.live;
  std::free(block);
}

void* CVMemAllocate(unsigned int size, const char*, int, void*) {
  if (g_cvmem.Fails()) return nullptr;
  void* block = std::malloc(size == 0 ? 1 : size);
  if (block != nullptr) ++g_cvmem.live;
  return block;
}

void CVMemDeallocate(void* block, void*) {
  --g_cvmem.live;
  std::free(block);
}

}  // namespace

void* operator new(std::size_t size) { return CountedNew(size); }
void* operator new[](std::size_t size) { return CountedNew(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  try {
    return CountedNew(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}
void* operator new[](std::size_t size, const std::nothrow_t& tag) noexcept { return operator new(size, tag); }
void operator delete(void* block) noexcept { CountedDelete(block); }
void operator delete[](void* block) noexcept { CountedDelete(block); }
void operator delete(void* block, std::size_t) noexcept { CountedDelete(block); }
void operator delete[](void* block, std::size_t) noexcept { CountedDelete(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { CountedDelete(block); }
void operator delete[](void* block, const std::nothrow_t&) noexcept { CountedDelete(block); }
void* operator new(std::size_t size, std::align_val_t alignment) { return CountedNewAligned(size, alignment); }
void* operator new[](std::size_t size, std::align_val_t alignment) { return CountedNewAligned(size, alignment); }
void operator delete(void* block, std::align_val_t) noexcept { CountedDelete(block); }
void operator delete[](void* block, std::align_val_t) noexcept { CountedDelete(block); }
void operator delete(void* block, std::size_t, std::align_val_t) noexcept { CountedDelete(block); }
void operator delete[](void* block, std::size_t, std::align_val_t) noexcept { CountedDelete(block); }

namespace {

using _quarn_framework::CJsonObjParser;
using _quarn_framework::CPoiJsonObjParser;
using _quarn_vi::CVBundle;
using _quarn_vi::CVString;
using P = CPoiJsonObjParser;

using testing_support::ExampleOp;

// Keys whose values count or flag what a list received: a list that lost
// elements changes them (or adds them: a candidate list cut to one place is
// a priority match).
const std::set<std::string> kDerivedKeys = {
    "count", "st_count", "en_count", "wp_count", "have_stprio", "have_enprio", "have_wpprio",
    "hasAddrList", "current_null",
};

// What a bundle holds, as "path=value" texts without array indexes: a list
// that lost elements still gives a subset of the leaves of the full list.

void AddLeaves(const CVBundle& bundle, const std::string& prefix, std::set<std::string>& leaves);

void AddArrayLeaves(const P::BundleArray& array, const std::string& path, std::set<std::string>& leaves) {
  leaves.insert(path + "[]");
  for (int i = 0; i < array.m_nSize; ++i) AddLeaves(array.m_pData[i], path + "[].", leaves);
}

void AddLeaves(const CVBundle& bundle, const std::string& prefix, std::set<std::string>& leaves) {
  for (int i = 0; i < bundle.GetCount(); ++i) {
    const std::string key = bundle.GetKeyAt(i).ToUtf8();
    if (kDerivedKeys.count(key) != 0) continue;
    const std::string path = prefix + key;
    switch (bundle.GetTypeAt(i)) {
      case CVBundle::kInt:
      case CVBundle::kBool:
        leaves.insert(path + "=" + std::to_string(bundle.GetIntAt(i)));
        break;
      case CVBundle::kDouble:
        leaves.insert(path + "=" + std::to_string(bundle.GetDoubleAt(i)));
        break;
      case CVBundle::kString:
        leaves.insert(path + "=\"" + bundle.GetStringAt(i).ToUtf8());
        break;
      case CVBundle::kBundle:
        leaves.insert(path + "{}");
        AddLeaves(bundle.GetBundleAt(i), path + ".", leaves);
        break;
      case CVBundle::kBundleArray:
        AddArrayLeaves(bundle.GetBundleArrayAt(i), path, leaves);
        break;
      case CVBundle::kStringArray: {
        leaves.insert(path + "[]");
        const CVBundle::StringArray& texts = bundle.GetStringArrayAt(i);
        for (int k = 0; k < texts.m_nSize; ++k) leaves.insert(path + "[]=\"" + texts.m_pData[k].ToUtf8());
        break;
      }
    }
  }
}

// The caller's side of one call: the bundle (or array) it passes, and the
// collector it installs, if any.
struct Call {
  CVBundle bundle;
  P::BundleArray array;
  std::unique_ptr<_quarn_framework::CVDiagnostics> diagnostics;
  int result = -1;
  bool threw = false;

  std::string Json() const {
    std::string out;
    _quarn_vi::CVJsonWriter writer(out, _quarn_vi::CVJsonWriter::Options{false, false});
    writer.BeginArray();
    writer.Bundle(bundle);
    writer.BundleArray(array);
    writer.EndArray();
    return out;
  }
  std::set<std::string> Leaves() const {
    std::set<std::string> leaves;
    AddLeaves(bundle, "", leaves);
    AddArrayLeaves(array, "*", leaves);
    return leaves;
  }
};

// Calls the target's operation with `injector` armed as asked (k = 0 fails
// nothing), with a collector installed when `diagnose`. A std::bad_alloc is
// caught here, at the caller.
void Invoke(const ExampleOp& target, cJSON* node, Injector& injector, long long k, bool persistent, bool diagnose,
            Call& call) {
  g_operation_ran = true;
  if (diagnose && call.diagnostics == nullptr) call.diagnostics.reset(new _quarn_framework::CVDiagnostics);
  CJsonObjParser::isParsePHPUI2Res = target.utf8 ? 1 : 0;
  injector.Arm(k, persistent);
  try {
    std::unique_ptr<_quarn_framework::CVDiagnosticsScope> scope;
    if (diagnose) scope.reset(new _quarn_framework::CVDiagnosticsScope(*call.diagnostics));
    call.result = target.op != nullptr ? target.op(node, call.bundle) : target.array_op(node, call.array);
  } catch (const std::bad_alloc&) {
    call.threw = true;
  }
  injector.armed = false;
  CJsonObjParser::isParsePHPUI2Res = 0;
}

// After a failed run, without failures: the collector resolves its reports;
// a copy of the bundle keeps the failed state while the bundle is parsed
// into again, which gives the full parse's result and values; then each
// changes without the other seeing it.
void CheckUsableAfterFailure(const ExampleOp& target, cJSON* node, Call& call, const Call& reference) {
  if (call.diagnostics != nullptr) {
    for (const auto& report : call.diagnostics->Resolve(node)) {
      EXPECT_TRUE(!report.path.empty() && (report.path[0] == '$' || report.path == "?")) << report.path;
    }
  }
  const std::string failed = call.Json();
  CVBundle copy = call.bundle;
  P::BundleArray array_copy;
  for (int i = 0; i < call.array.m_nSize; ++i) array_copy.SetAtGrow(i, call.array.m_pData[i]);
  const int kept = call.array.m_nSize;

  Call& again = call;
  again.threw = false;
  Invoke(target, node, g_new, 0, false, false, again);
  EXPECT_FALSE(again.threw);
  EXPECT_EQ(again.result, reference.result);
  if (target.op != nullptr) {
    EXPECT_TRUE(again.bundle == reference.bundle)
        << "parsed again: " << again.Json() << "\nfull parse: " << reference.Json();
  } else {
    ASSERT_EQ(again.array.m_nSize, kept + reference.array.m_nSize);
    for (int i = 0; i < reference.array.m_nSize; ++i) {
      EXPECT_TRUE(again.array.m_pData[kept + i] == reference.array.m_pData[i]) << "element " << i;
    }
  }
  Call before;
  before.bundle = copy;
  for (int i = 0; i < array_copy.m_nSize; ++i) before.array.SetAtGrow(i, array_copy.m_pData[i]);
  EXPECT_EQ(before.Json(), failed) << "a copy taken before the parse changed with it";

  const CVString key("after the failure");
  const std::string parsed = again.Json();
  copy.SetInt(key, 1);
  copy.SetString(CVString("text after the failure, long enough for a block"), CVString("x"));
  EXPECT_EQ(copy.GetInt(key), 1);
  EXPECT_EQ(again.Json(), parsed);
  again.bundle.SetBool(key, 1);
  EXPECT_EQ(copy.GetInt(key), 1);
  EXPECT_EQ(again.bundle.GetBool(key), 1);
}

struct SweepCount {
  long long points = 0;  // failure points swept: the requests of a clean run
  long long runs = 0;
};

// Fails request k = 1, 2, ... of `injector` until a run sees no failure.
SweepCount Sweep(const ExampleOp& target, cJSON* node, Injector& injector, bool persistent, bool diagnose,
                 const Call& reference, const std::set<std::string>& reference_leaves) {
  const bool throws = &injector == &g_new;
  SweepCount count;
  for (long long k = 1;; ++k) {
    SCOPED_TRACE("failing request " + std::to_string(k) + (persistent ? " and later" : "") +
                 (diagnose ? ", with a collector" : ""));
    FreshAllocatorState();
    const long long new_live = g_new.live;
    const long long cvmem_live = g_cvmem.live;
    bool failed;
    {
      Call call;
      Invoke(target, node, injector, k, persistent, diagnose, call);
      failed = injector.failures > 0;
      ++count.runs;
      if (!failed) {
        count.points = k - 1;
        EXPECT_FALSE(call.threw);
        EXPECT_EQ(call.Json(), reference.Json()) << "a run without failure must give the full bundle";
      } else if (throws) {
        EXPECT_TRUE(call.threw) << "std::bad_alloc did not reach the caller";
      } else {
        EXPECT_FALSE(call.threw) << "an exhausted CVMem must not throw";
        if (target.op != nullptr) {
          EXPECT_EQ(call.result, reference.result);
        } else {
          EXPECT_EQ(call.result, call.array.m_nSize >= 1 ? 1 : 0);
        }
      }
      // The caller's bundle is whole: it is written (every value reachable)
      // and holds nothing the full parse does not give.
      const std::string json = call.Json();
      EXPECT_FALSE(json.empty());
      // The way point results pair status records and candidate lists by
      // position: an element left out of one list shifts the pairs, so the
      // bundle is not a subset of the full one (the contract says so).
      const bool pairs_by_position = target.op == P::ParseRouteAddrRst || target.op == P::ParseRouteAddrPHPUIRst ||
                                     target.op == P::ParseRouteAddrPHPUI2Rst;
      if (!pairs_by_position || throws) {
        for (const std::string& leaf : call.Leaves()) {
          EXPECT_EQ(reference_leaves.count(leaf), 1u) << "not in the full bundle: " << leaf;
        }
      }
      if (failed) CheckUsableAfterFailure(target, node, call, reference);
    }
    FreshAllocatorState();
    EXPECT_EQ(g_new.live, new_live) << "operator new blocks leaked";
    EXPECT_EQ(g_cvmem.live, cvmem_live) << "CVMem blocks leaked";
    if (!failed || ::testing::Test::HasFailure()) break;
  }
  return count;
}

class AllocFailure : public ::testing::TestWithParam<ExampleOp> {
 protected:
  void SetUp() override {
    _quarn_vi::CVMemHooks hooks{CVMemAllocate, CVMemDeallocate, nullptr};
    _quarn_vi::CVMem::SetHooks(&hooks);
  }
  void TearDown() override {
    _quarn_vi::CVMem::SetHooks(nullptr);
    EXPECT_EQ(POIPARSER_LEAK_CHECK(), 0) << "LeakSanitizer found leaks";
  }
};

TEST_P(AllocFailure, EveryRequestFailsInTurn) {
  const ExampleOp& target = GetParam();
  testing_support::Json root = testing_support::ParseJson(testing_support::ReadExample(target.example));
  cJSON* node = testing_support::NodeAt(root.get(), target.path);
  ASSERT_NE(node, nullptr) << target.path;

  // The full parse; it also builds the operations' tables, which live on.
  Call reference;
  Invoke(target, node, g_new, 0, false, false, reference);
  ASSERT_FALSE(reference.threw);
  const std::set<std::string> leaves = reference.Leaves();

  SweepCount counts[6];
  counts[0] = Sweep(target, node, g_cvmem, false, false, reference, leaves);
  counts[1] = Sweep(target, node, g_cvmem, true, false, reference, leaves);
  counts[2] = Sweep(target, node, g_new, false, false, reference, leaves);
  counts[3] = Sweep(target, node, g_new, true, false, reference, leaves);
  // With a collector: its reports are failure points of their own.
  counts[4] = Sweep(target, node, g_cvmem, false, true, reference, leaves);
  counts[5] = Sweep(target, node, g_new, false, true, reference, leaves);
  EXPECT_EQ(counts[0].points, counts[1].points);
  EXPECT_EQ(counts[2].points, counts[3].points);
  EXPECT_EQ(counts[0].points, counts[4].points);
  long long runs = 0;
  for (const SweepCount& c : counts) runs += c.runs;
  std::printf("[ swept    ] %-24s %-40s CVMem %4lld points, operator new %5lld points, %5lld with a collector "
              "(%lld runs)\n",
              target.op_name, (std::string(target.example) + "/" + target.path).c_str(), counts[0].points,
              counts[2].points, counts[5].points, runs);
}

// The examples are clean answers with few reports; these answers make many,
// each a failure point of the collector's own.
TEST(AllocFailureDiagnosed, AnswersWithManyReports) {
  _quarn_vi::CVMemHooks hooks{CVMemAllocate, CVMemDeallocate, nullptr};
  _quarn_vi::CVMem::SetHooks(&hooks);
  const struct {
    testing_support::Op op;
    const char* answer;
  } answers[] = {
      {P::ParsePoiListRst,
       R"({"result":{"error":0},"poi_result":{"option":{"total":"two","city_id":[]},"place_info":{"d_sort_rule":[]},)"
       R"("contents":[{"name":"a","tel":{"main":"1"},"show":["name"],"ext":{"detail_info":{"price":{}}}},null,7,)"
       R"({"name":[],"addr":{},"uid":[],"show":{"a":[]},"rec_reason":[1,{},"r"]}],)"
       R"("psrs":{"SENum":"n","SEResult":"x"},"suggest_query":[1,{},"q"]}})"},
      {P::ParsePoiIndoorRst,
       R"({"errNo":0,"data":{"page_num":[],"poi_num":"n","poi_list":[{"name":[],"twp":7},{"twp":"x"},"z",null]}})"},
      {P::ParseRouteAddrPHPUIRst,
       R"({"result":{"city_list":[1,{}],"error":0},"content":{"start":[{"name":[]},3],"end":{"x":1},)"
       R"("waypoints":[[{"name":{}}],"w"]},"current_city":[]})"},
  };
  for (const auto& a : answers) {
    SCOPED_TRACE(a.answer);
    testing_support::Json root = testing_support::ParseJson(a.answer);
    const ExampleOp target{"", "", false, "", a.op, nullptr};
    Call reference;
    Invoke(target, root.get(), g_new, 0, false, true, reference);
    ASSERT_FALSE(reference.threw);
    EXPECT_GE(reference.diagnostics->Reports().size(), 5u);
    const std::set<std::string> leaves = reference.Leaves();
    Sweep(target, root.get(), g_cvmem, false, true, reference, leaves);
    Sweep(target, root.get(), g_new, false, true, reference, leaves);
    Sweep(target, root.get(), g_new, true, true, reference, leaves);
  }
  _quarn_vi::CVMem::SetHooks(nullptr);
}

// ---- First use -------------------------------------------------------------------
// A child process costs some 30 ms under the sanitizers.

// What a child process saw: request k of operator new failing in the first
// call of the operation, then a call without failure.
struct FirstUse {
  long long requests = -1;  // operator new requests of the first call
  long long failures = 0;
  bool threw = false;
  long long kept = 0;  // operator new blocks alive after both calls: the tables
  long long cvmem_kept = 0;
  int result = -1;     // of the second call
  std::string json;    // of the second call
};

FirstUse FirstUseInChild(const ExampleOp& target, long long k) {
  testing_support::Json root = testing_support::ParseJson(testing_support::ReadExample(target.example));
  cJSON* node = testing_support::NodeAt(root.get(), target.path);
  FirstUse seen;
  FreshAllocatorState();
  const long long new_live = g_new.live;
  const long long cvmem_live = g_cvmem.live;
  {
    Call call;
    Invoke(target, node, g_new, k, false, false, call);
    seen.requests = g_new.requests;
    seen.failures = g_new.failures;
    seen.threw = call.threw;
  }
  {
    Call call;
    Invoke(target, node, g_new, 0, false, false, call);
    seen.result = call.result;
    seen.json = call.Json();
  }
  FreshAllocatorState();
  seen.kept = g_new.live - new_live;
  seen.cvmem_kept = g_cvmem.live - cvmem_live;
  return seen;
}

// Runs FirstUseInChild in a child process; false when the child crashed.
bool RunFirstUse(const ExampleOp& target, long long k, FirstUse* seen) {
  int fds[2];
  if (pipe(fds) != 0) return false;
  std::fflush(nullptr);
  const pid_t pid = fork();
  if (pid == 0) {
    close(fds[0]);
    const FirstUse s = FirstUseInChild(target, k);
    const std::string text = std::to_string(s.requests) + " " + std::to_string(s.failures) + " " +
                             std::to_string(s.threw ? 1 : 0) + " " + std::to_string(s.kept) + " " +
                             std::to_string(s.cvmem_kept) + " " + std::to_string(s.result) + " " + s.json;
    for (size_t at = 0; at < text.size();) {
      const ssize_t n = write(fds[1], text.data() + at, text.size() - at);
      if (n <= 0) _exit(3);
      at += static_cast<size_t>(n);
    }
    _exit(0);
  }
  close(fds[1]);
  std::string text;
  char buffer[4096];
  for (ssize_t n; (n = read(fds[0], buffer, sizeof(buffer))) > 0;) text.append(buffer, static_cast<size_t>(n));
  close(fds[0]);
  int status = 0;
  if (pid < 0 || waitpid(pid, &status, 0) != pid || !WIFEXITED(status) || WEXITSTATUS(status) != 0) return false;
  int threw = 0, consumed = 0;
  if (std::sscanf(text.c_str(), "%lld %lld %d %lld %lld %d %n", &seen->requests, &seen->failures, &threw, &seen->kept,
                  &seen->cvmem_kept, &seen->result, &consumed) != 6) {
    return false;
  }
  seen->threw = threw != 0;
  seen->json = text.substr(static_cast<size_t>(consumed));
  return true;
}

// The first call of each operation in a process builds its field tables and
// keys. Request k of operator new fails in that call, for every k, each in a
// fresh child: the failure reaches the caller, and a second call builds what
// is missing and gives the full bundle, with no more blocks alive than a
// first call without failure leaves (the tables).
TEST_P(AllocFailure, EveryRequestFailsInTurnOnFirstUse) {
  if (g_operation_ran) GTEST_SKIP() << "an operation already ran in this process: run this test alone";
  const ExampleOp& target = GetParam();
  FirstUse clean;
  ASSERT_TRUE(RunFirstUse(target, 0, &clean));
  ASSERT_EQ(clean.failures, 0);
  for (long long k = 1; k <= clean.requests; ++k) {
    SCOPED_TRACE("failing request " + std::to_string(k) + " of " + std::to_string(clean.requests) + " on first use");
    FirstUse seen;
    ASSERT_TRUE(RunFirstUse(target, k, &seen)) << "the child crashed";
    EXPECT_EQ(seen.failures, 1);
    EXPECT_TRUE(seen.threw) << "std::bad_alloc did not reach the caller";
    EXPECT_EQ(seen.result, clean.result);
    EXPECT_EQ(seen.json, clean.json);
    EXPECT_EQ(seen.kept, clean.kept) << "operator new blocks leaked";
    EXPECT_EQ(seen.cvmem_kept, clean.cvmem_kept) << "CVMem blocks leaked";
    if (::testing::Test::HasFailure()) break;
  }
  std::printf("[ swept    ] %-24s %-40s first use: %lld points, %lld blocks kept\n", target.op_name,
              (std::string(target.example) + "/" + target.path).c_str(), clean.requests, clean.kept);
}

std::string TargetName(const ::testing::TestParamInfo<ExampleOp>& info) {
  std::string name = std::string(info.param.op_name) + "_" + info.param.example;
  for (char& c : name) {
    if (!((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'))) c = '_';
  }
  return name + "_" + std::to_string(info.index);
}

INSTANTIATE_TEST_SUITE_P(Examples, AllocFailure, ::testing::ValuesIn(testing_support::ExampleOps()), TargetName);

// Storing an array in a bundle that has no entry block yet takes one request
// (the block; the array lives in its entry, the copy of a const array takes
// its block from CVMem). When it fails, nothing leaks, and an array passed
// by move stays with the caller.
TEST(BundleAllocFailure, AnArrayThatCannotBeStoredIsNotLost) {
  const CVString key("list");
  for (int form = 0; form < 4; ++form) {
    SCOPED_TRACE("form " + std::to_string(form));
    FreshAllocatorState();
    const long long live = g_new.live;
    {
      CVBundle element;
      element.SetInt(key, 7);
      P::BundleArray records;
      _quarn_vi::AppendByMove(records, element);
      CVBundle::StringArray texts;
      CVString text("text");
      _quarn_vi::AppendByMove(texts, text);
      CVBundle bundle;
      bool threw = false;
      FreshAllocatorState();
      g_new.Arm(1, false);
      try {
        switch (form) {
          case 0: bundle.SetBundleArray(key, records); break;
          case 1: bundle.SetBundleArray(key, std::move(records)); break;
          case 2: bundle.SetStringArray(key, texts); break;
          case 3: bundle.SetStringArray(key, std::move(texts)); break;
        }
      } catch (const std::bad_alloc&) {
        threw = true;
      }
      g_new.armed = false;
      EXPECT_TRUE(threw);
      EXPECT_EQ(bundle.GetCount(), 0);
      EXPECT_EQ(records.m_nSize, 1);
      EXPECT_EQ(texts.m_nSize, 1);
    }
    FreshAllocatorState();
    EXPECT_EQ(g_new.live, live);
  }
}

}  // namespace
