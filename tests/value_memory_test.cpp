// The memory of the value model as a client sees it: what a kept text holds,
// texts and bundles made and dropped while threads exit, bundles past the old
// key limit, and shared bundles changed while CVMem fails.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "TestSupport.h"

#if defined(__SANITIZE_ADDRESS__)
// From the sanitizer runtime (g++ ships no header declaring it).
extern "C" size_t __sanitizer_get_current_allocated_bytes();
#endif

namespace {

using _quarn_vi::CVBundle;
using _quarn_vi::CVMem;
using _quarn_vi::CVMemHooks;
using _quarn_vi::CVString;
using testing_support::ToJson;

// Memory the process holds: resident pages, or under AddressSanitizer (whose
// quarantine keeps freed blocks resident on purpose) the bytes of live heap
// blocks.
long long HeldBytes() {
#if defined(__SANITIZE_ADDRESS__)
  return static_cast<long long>(__sanitizer_get_current_allocated_bytes());
#else
  long pages = 0, resident = 0;
  FILE* statm = std::fopen("/proc/self/statm", "r");
  if (statm == nullptr) return 0;
  if (std::fscanf(statm, "%ld %ld", &pages, &resident) != 2) resident = 0;
  std::fclose(statm);
  return static_cast<long long>(resident) * 4096;
#endif
}

// A list model keeps one uid (24 characters) from each answer and drops the
// rest: what it keeps must cost about the texts, not the trees they came from.
TEST(ValueMemory, TextsKeptFromDroppedAnswersHoldOnlyThemselves) {
  // One tree serves every parse: the bundles are what is measured.
  const testing_support::Json root = testing_support::ParseJson(testing_support::ReadExample("poi_list"));
  const CVString pois("pois"), uid("uid");
  std::vector<CVString> kept;
  kept.reserve(10000);
  auto parse_and_keep = [&] {
    CVBundle bundle;
    ASSERT_EQ(_quarn_framework::CPoiJsonObjParser::ParsePoiListRst(root.get(), bundle), 1);
    const CVBundle::BundleArray* list = bundle.GetBundleArray(pois);
    ASSERT_NE(list, nullptr);
    const CVString* id = list->m_pData[0].GetString(uid);
    ASSERT_NE(id, nullptr);
    kept.push_back(*id);
  };
  parse_and_keep();  // tables and keys made on first use
  const long long before = HeldBytes();
  for (int i = 1; i < 10000; ++i) parse_and_keep();
  const long long growth = HeldBytes() - before;
  EXPECT_LE(growth, 8LL << 20) << "10,000 kept uids hold " << growth / 1024 << " KiB";
  ASSERT_EQ(kept.size(), 10000u);
  EXPECT_EQ(kept.back().GetLength(), 24);
  EXPECT_TRUE(kept.back() == kept.front());
}

// ---- Thread exit ------------------------------------------------------------

// Bundles handed over by exiting threads, destroyed later by the main thread.
std::mutex g_mailbox_mutex;
std::vector<CVBundle> g_mailbox;

// Makes and drops texts and bundles (and a parse) in its destructor, which
// runs at thread exit, before or after other thread_local objects of the
// thread, and hands one bundle to the mailbox.
struct ExitWork {
  bool armed = false;
  ~ExitWork() {
    if (!armed) return;
    CVBundle record;
    for (int i = 0; i < 50; ++i) {
      CVString text(("a text made while the thread exits, number " + std::to_string(i)).c_str());
      CVBundle inner;
      inner.SetString("text", text);
      inner.SetInt("i", i);
      record.SetBundle(CVString(("k" + std::to_string(i)).c_str()), inner);
      CVBundle copy = record;  // shared, then unshared by the change
      copy.SetString("extra", text);
    }
    std::string json;
    testing_support::Run(_quarn_framework::CPoiJsonObjParser::ParseCityQueryRst,
                         R"({"content": {"city_type": 2, "code": 289, "cname": "a city name of some length"}})",
                         &json);
    record.SetString("parsed", CVString(json.c_str()));
    std::lock_guard<std::mutex> lock(g_mailbox_mutex);
    g_mailbox.push_back(record);
  }
};

// Declared in this order: `first` is constructed first on each thread and
// destroyed last, `last` the other way round.
thread_local ExitWork t_first;
thread_local ExitWork t_last;

std::string ExpectedMailJson() {
  // The bundle an ExitWork makes, made on this thread.
  {
    ExitWork work;
    work.armed = true;
  }
  std::lock_guard<std::mutex> lock(g_mailbox_mutex);
  std::string json = ToJson(g_mailbox.back());
  g_mailbox.pop_back();
  return json;
}

TEST(ValueMemory, ThreadLocalDestructorsMakeAndDropTextsAndBundles) {
  const std::string expected = ExpectedMailJson();
  for (int round = 0; round < 4; ++round) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t) {
      threads.emplace_back([t] {
        // Thread 0 arms its objects before any text exists on the thread,
        // the others after parsing: the destructors run in both orders
        // relative to whatever the thread made first.
        if (t == 0) t_first.armed = true;
        std::string json;
        testing_support::Run(_quarn_framework::CPoiJsonObjParser::ParsePoiListRst,
                             testing_support::ReadExample("poi_list"), &json);
        t_last.armed = true;
        if (t != 0) t_first.armed = true;
      });
    }
    for (std::thread& thread : threads) thread.join();
  }
  std::lock_guard<std::mutex> lock(g_mailbox_mutex);
  ASSERT_EQ(g_mailbox.size(), 4u * 3u * 2u);
  for (const CVBundle& mail : g_mailbox) EXPECT_EQ(ToJson(mail), expected);
  g_mailbox.clear();  // blocks of exited threads die here
}

// ---- Limits and failures ----------------------------------------------------

TEST(ValueMemory, BundlesHoldMoreThan65535Keys) {
  constexpr int kKeys = 70000;
  std::vector<CVString> keys;
  for (int i = 0; i < kKeys; ++i) keys.emplace_back(("key " + std::to_string(i)).c_str());
  CVBundle b;
  for (int i = 0; i < kKeys; ++i) b.SetInt(keys[static_cast<size_t>(i)], i);
  ASSERT_EQ(b.GetCount(), kKeys);
  for (int i = 0; i < kKeys; i += 997) EXPECT_EQ(b.GetInt(CVString(("key " + std::to_string(i)).c_str())), i);
  b.Remove(keys[5]);
  EXPECT_FALSE(b.ContainsKey(keys[5]));
  EXPECT_EQ(b.GetInt(keys[kKeys - 1]), kKeys - 1);
  EXPECT_TRUE(b.GetKeyAt(kKeys - 2) == keys[kKeys - 1]);
}

// Keys given as ordinary strings, short and long, and permanent keys of the
// same texts find each other and survive copies of the bundle.
TEST(ValueMemory, OrdinaryAndPermanentKeysOfOneTextAreOneKey) {
  static const CVString short_key("name", CVString::Permanent());
  static const CVString long_key("a_long_permanent_key", CVString::Permanent());
  CVBundle b;
  b.SetInt(CVString("name"), 1);
  b.SetInt(long_key, 2);
  CVBundle copy = b;
  copy.SetInt(short_key, 3);  // replaces the ordinary "name"
  copy.SetInt(CVString("a_long_permanent_key"), 4);
  EXPECT_EQ(ToJson(b), R"({"name":1,"a_long_permanent_key":2})");
  EXPECT_EQ(ToJson(copy), R"({"name":3,"a_long_permanent_key":4})");
  EXPECT_TRUE(copy.GetKeyAt(0) == short_key);
  CVString holder = short_key;  // a key holder sharing the permanent block
  EXPECT_EQ(copy.GetInt(holder), 3);
}

void* FailingAllocate(unsigned int, const char*, int, void*) { return nullptr; }
void FreeBlock(void* block, void*) { std::free(block); }

// The first change to a bundle that shares its block copies the block with
// its arrays; when CVMem refuses an array its copy, the change is left out
// and nothing is thrown, also from a parse operation.
TEST(ValueMemory, ChangingASharedBundleWhileCVMemFailsLeavesTheChangeOut) {
  CVBundle original;
  testing_support::Json root = testing_support::ParseJson(testing_support::ReadExample("poi_list"));
  ASSERT_EQ(_quarn_framework::CPoiJsonObjParser::ParsePoiListRst(root.get(), original), 1);
  const std::string before = ToJson(original);
  CVBundle shared = original;

  CVMemHooks failing{FailingAllocate, FreeBlock, nullptr};
  CVMem::SetHooks(&failing);
  int result = -1;
  EXPECT_NO_THROW(result = _quarn_framework::CPoiJsonObjParser::ParsePoiListRst(root.get(), shared));
  EXPECT_NO_THROW(shared.SetInt("extra", 1));
  CVMem::SetHooks(nullptr);

  EXPECT_EQ(result, 1);
  EXPECT_EQ(ToJson(original), before);
  EXPECT_FALSE(shared.ContainsKey("extra"));
  shared.SetInt("extra", 1);  // CVMem works again: the copy is made
  EXPECT_TRUE(shared.ContainsKey("extra"));
  EXPECT_FALSE(original.ContainsKey("extra"));
}

}  // namespace
