// The per-thread cache of text and entry blocks, seen through operator new:
// what a second parse asks of it, what the cache may hold, and that every
// cached block goes back to operator delete when its thread ends or the
// client asks.
//
// Its own test program (tests/CMakeLists.txt): it replaces the global
// operator new and delete with counting ones.
#include <gtest/gtest.h>
#include <malloc.h>
#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

#include <atomic>
#include <cstdlib>
#include <new>
#include <string>
#include <thread>

#include "TestSupport.h"

namespace {

std::atomic<long long> g_requests{0};    // operator new calls
std::atomic<long long> g_live_bytes{0};  // usable bytes of live blocks

void* CountedNew(std::size_t size) {
  void* block = std::malloc(size == 0 ? 1 : size);
  if (block == nullptr) throw std::bad_alloc();
  g_requests.fetch_add(1, std::memory_order_relaxed);
  g_live_bytes.fetch_add(static_cast<long long>(malloc_usable_size(block)), std::memory_order_relaxed);
  return block;
}

void CountedDelete(void* block) noexcept {
  if (block == nullptr) return;
  g_live_bytes.fetch_sub(static_cast<long long>(malloc_usable_size(block)), std::memory_order_relaxed);
  std::free(block);
}

}  // namespace

void* operator new(std::size_t size) { return CountedNew(size); }
void* operator new[](std::size_t size) { return CountedNew(size); }
void operator delete(void* block) noexcept { CountedDelete(block); }
void operator delete[](void* block) noexcept { CountedDelete(block); }
void operator delete(void* block, std::size_t) noexcept { CountedDelete(block); }
void operator delete[](void* block, std::size_t) noexcept { CountedDelete(block); }

namespace {

using _quarn_vi::CVBundle;
using _quarn_vi::CVMem;
using _quarn_vi::CVString;

// Restores the default limit and empties this thread's cache after a test.
class BlockCache : public testing::Test {
 protected:
  void TearDown() override {
    CVMem::SetBlockCacheLimit(CVMem::kDefaultBlockCacheLimit);
    CVMem::ReleaseCachedBlocks();
  }
};

void ParseAndDrop(const cJSON* root) {
  CVBundle bundle;
  ASSERT_EQ(_quarn_framework::CPoiJsonObjParser::ParsePoiListRst(const_cast<cJSON*>(root), bundle), 1);
}

// A bundle of `count` distinct texts of 40 characters.
CVBundle ManyTexts(int count) {
  CVBundle bundle;
  for (int i = 0; i < count; ++i) {
    std::string text = "a text of forty characters, number " + std::to_string(100000 + i);
    bundle.SetString(CVString(("k" + std::to_string(i)).c_str()), CVString(text.c_str()));
  }
  return bundle;
}

// The operator new requests of parsing the example answer again: none with
// the default cache, as many as the first parse's blocks without one, some
// with a cache too small for the whole bundle.
TEST_F(BlockCache, ASecondParseReusesTheBlocksOfTheFirst) {
  const testing_support::Json root = testing_support::ParseJson(testing_support::ReadExample("poi_list"));
  ParseAndDrop(root.get());  // the field tables and keys are made on first use

  CVMem::SetBlockCacheLimit(0);
  CVMem::ReleaseCachedBlocks();
  long long before = g_requests.load();
  ParseAndDrop(root.get());
  const long long uncached = g_requests.load() - before;
  ASSERT_GT(uncached, 20);

  struct Case {
    size_t limit;
    const char* what;
  };
  const Case cases[] = {
      {CVMem::kDefaultBlockCacheLimit, "default"},
      {1024, "1 KiB"},
      {0, "off"},
  };
  for (const Case& c : cases) {
    CVMem::SetBlockCacheLimit(c.limit);
    ParseAndDrop(root.get());  // fills the cache
    before = g_requests.load();
    ParseAndDrop(root.get());
    const long long requests = g_requests.load() - before;
    if (c.limit == CVMem::kDefaultBlockCacheLimit) {
      EXPECT_EQ(requests, 0) << c.what;
    } else if (c.limit == 0) {
      EXPECT_EQ(requests, uncached) << c.what;
    } else {
      EXPECT_GT(requests, 0) << c.what;
      EXPECT_LT(requests, uncached) << c.what;
    }
    CVMem::ReleaseCachedBlocks();
  }
}

// Destroying a large bundle keeps at most the limit; ReleaseCachedBlocks
// gives the rest back, and a lowered limit caches nothing more.
TEST_F(BlockCache, HoldsAtMostItsLimit) {
  CVMem::ReleaseCachedBlocks();
  const long long baseline = g_live_bytes.load();
  for (size_t limit : {size_t{4096}, CVMem::kDefaultBlockCacheLimit}) {
    CVMem::SetBlockCacheLimit(limit);
    { CVBundle big = ManyTexts(20000); }
    const long long held = g_live_bytes.load() - baseline;
    EXPECT_GT(held, 0) << limit;
    // (malloc may give a block a little more room than the cache counts)
    EXPECT_LE(held, static_cast<long long>(limit + limit / 16)) << limit;
    CVMem::SetBlockCacheLimit(0);
    { CVBundle more = ManyTexts(100); }  // takes cached blocks, caches none back
    EXPECT_LT(g_live_bytes.load() - baseline, held) << "nothing cached beyond a lowered limit";
    CVMem::ReleaseCachedBlocks();
    EXPECT_EQ(g_live_bytes.load(), baseline) << limit;
  }
}

// A thread's cache is emptied when it ends, also when it cached blocks that
// another thread made, and the main thread's blocks stay intact meanwhile.
TEST_F(BlockCache, EndingThreadsFreeWhatTheyCached) {
  CVMem::ReleaseCachedBlocks();
  const long long baseline = g_live_bytes.load();
  CVBundle made_here = ManyTexts(300);
  std::string expected = testing_support::ToJson(made_here);
  CVMem::ReleaseCachedBlocks();  // the entry blocks it grew out of
  const long long with_bundle = g_live_bytes.load();
  for (int round = 0; round < 3; ++round) {
    CVBundle handed_over = ManyTexts(200);
    std::thread worker([&handed_over] {
      { CVBundle own = ManyTexts(200); }                // cached by the worker
      { CVBundle taken = std::move(handed_over); }      // made on main, cached by the worker
      CVBundle again = ManyTexts(100);                  // served from the cache
    });
    worker.join();
    CVMem::ReleaseCachedBlocks();
    EXPECT_EQ(g_live_bytes.load(), with_bundle) << "round " << round;
  }
  EXPECT_EQ(testing_support::ToJson(made_here), expected);
  std::string().swap(expected);
  made_here = CVBundle();
  CVMem::ReleaseCachedBlocks();
  EXPECT_EQ(g_live_bytes.load(), baseline);
}

// Arrays of every size up to past the cached ones, built and dropped again
// and again (a cached block grows by realloc once it passes 1 KiB), and then
// across hooks that forward to malloc: blocks the hooks made, of exactly
// their size, must never be cached for a larger request of their class
// (AddressSanitizer would see the overflow).
void FillAndCheck(int count) {
  CVBundle::StringArray texts;
  CVBundle::BundleArray records;
  for (int i = 0; i < count; ++i) {
    CVString text(("element number " + std::to_string(i)).c_str());
    ASSERT_EQ(_quarn_vi::AppendByMove(texts, text), 1);
    CVBundle record;
    record.SetInt("i", i);
    ASSERT_EQ(_quarn_vi::AppendByMove(records, record), 1);
  }
  ASSERT_EQ(texts.m_nSize, count);
  for (int i = 0; i < count; i += 7) {
    EXPECT_TRUE(texts.m_pData[i] == CVString(("element number " + std::to_string(i)).c_str()));
    EXPECT_EQ(records.m_pData[i].GetInt("i"), i);
  }
}

void* ExactAllocate(unsigned int size, const char*, int, void*) { return std::malloc(size); }
void ForwardFree(void* block, void*) { std::free(block); }

TEST_F(BlockCache, ArraysOfEverySizeAcrossForwardingHooks) {
  for (int round = 0; round < 3; ++round) {
    for (int count : {1, 2, 5, 9, 33, 63, 64, 65, 130, 400}) FillAndCheck(count);
  }
  CVBundle::StringArray made_before;
  made_before.SetSize(3, -1);
  const _quarn_vi::CVMemHooks forwarding{ExactAllocate, ForwardFree, nullptr};
  CVMem::SetHooks(&forwarding);
  CVBundle::StringArray made_under_hooks;
  made_under_hooks.SetSize(5, -1);  // 5 * 32 = 160 bytes, exactly
  made_before.SetSize(0, -1);      // a default block freed through the hooks
  CVMem::SetHooks(nullptr);
  made_under_hooks.SetSize(0, -1);  // must not be cached as a block of its class (168 bytes)
  CVBundle::BundleArray later;
  ASSERT_EQ(later.SetSize(21, -1), 1);  // 21 * 8 = 168 bytes
  for (int i = 0; i < 21; ++i) later.m_pData[i].SetInt("i", i);
  for (int count : {5, 400}) FillAndCheck(count);
}

#if defined(__SANITIZE_ADDRESS__)
// A cached block is poisoned: reading a freed text is still reported.
TEST_F(BlockCache, AUseOfACachedBlockIsReported) {
  EXPECT_DEATH(
      {
        const unsigned short* units;
        {
          CVString text("a text long enough to have a block of its own");
          units = text.Data();
        }
        volatile unsigned short unit = units[8];  // past the cache's link word
        (void)unit;
      },
      "use-after-poison");
}

// The leak checker sees every cached block as reachable, as a fuzzer's check
// between two inputs does.
TEST_F(BlockCache, CachedBlocksAreNotReportedAsLeaks) {
  const testing_support::Json root = testing_support::ParseJson(testing_support::ReadExample("poi_list"));
  ParseAndDrop(root.get());
  EXPECT_EQ(__lsan_do_recoverable_leak_check(), 0);
}
#endif

}  // namespace
