// Allocation failure: every operation on its example node with the k-th
// request (and, persistent, every later one) failing, for k = 1, 2, ... until
// a run sees no failure. A null CVMem block costs only the element (no
// exception, the same result); a std::bad_alloc from operator new reaches the
// caller. Either way nothing leaks and the caller's bundle stays whole,
// holding only values the answer gives.
//
// This file is its own test program (tests/CMakeLists.txt): it replaces the
// global operator new and delete with counting, armable ones; every string
// and bundle block comes from operator new, so each of them is a failure
// point.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <new>
#include <set>
#include <string>
#include <vector>

#include "TestSupport.h"

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

void* CountedNew(std::size_t size) {
  if (g_new.Fails()) throw std::bad_alloc();
  void* block = std::malloc(size == 0 ? 1 : size);
  if (block == nullptr) throw std::bad_alloc();
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

// The caller's side of one call: the bundle (or array) it passes.
struct Call {
  CVBundle bundle;
  P::BundleArray array;
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
// nothing). A std::bad_alloc is caught here, at the caller.
void Invoke(const ExampleOp& target, cJSON* node, Injector& injector, long long k, bool persistent, Call& call) {
  CJsonObjParser::isParsePHPUI2Res = target.utf8 ? 1 : 0;
  injector.Arm(k, persistent);
  try {
    call.result = target.op != nullptr ? target.op(node, call.bundle) : target.array_op(node, call.array);
  } catch (const std::bad_alloc&) {
    call.threw = true;
  }
  injector.armed = false;
  CJsonObjParser::isParsePHPUI2Res = 0;
}

struct SweepCount {
  long long points = 0;  // failure points swept: the requests of a clean run
  long long runs = 0;
};

// Fails request k = 1, 2, ... of `injector` until a run sees no failure.
SweepCount Sweep(const ExampleOp& target, cJSON* node, Injector& injector, bool persistent,
                 const Call& reference, const std::set<std::string>& reference_leaves) {
  const bool throws = &injector == &g_new;
  SweepCount count;
  for (long long k = 1;; ++k) {
    SCOPED_TRACE("failing request " + std::to_string(k) + (persistent ? " and later" : ""));
    const long long new_live = g_new.live;
    const long long cvmem_live = g_cvmem.live;
    bool failed;
    {
      Call call;
      Invoke(target, node, injector, k, persistent, call);
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
      const bool pairs_by_position = target.op == P::ParseRouteAddrRst || target.op == P::ParseRouteAddrPHPUI2Rst;
      if (!pairs_by_position || throws) {
        for (const std::string& leaf : call.Leaves()) {
          EXPECT_EQ(reference_leaves.count(leaf), 1u) << "not in the full bundle: " << leaf;
        }
      }
    }
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
  Invoke(target, node, g_new, 0, false, reference);
  ASSERT_FALSE(reference.threw);
  const std::set<std::string> leaves = reference.Leaves();

  SweepCount counts[4];
  counts[0] = Sweep(target, node, g_cvmem, false, reference, leaves);
  counts[1] = Sweep(target, node, g_cvmem, true, reference, leaves);
  counts[2] = Sweep(target, node, g_new, false, reference, leaves);
  counts[3] = Sweep(target, node, g_new, true, reference, leaves);
  EXPECT_EQ(counts[0].points, counts[1].points);
  EXPECT_EQ(counts[2].points, counts[3].points);
  std::printf("[ swept    ] %-24s %-40s CVMem %4lld points, operator new %5lld points (%lld runs)\n",
              target.op_name, (std::string(target.example) + "/" + target.path).c_str(), counts[0].points,
              counts[2].points, counts[0].runs + counts[1].runs + counts[2].runs + counts[3].runs);
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
    EXPECT_EQ(g_new.live, live);
  }
}

}  // namespace
