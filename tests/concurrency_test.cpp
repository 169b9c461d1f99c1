// Parsing on several threads at once: four threads parse every example
// answer (each with its own trees and bundles, the text mode flag left
// alone) and must get the bundles that one thread gets. Built and run under
// ThreadSanitizer by `make check`.
//
// This file is its own test program (tests/CMakeLists.txt), so the threads
// below are the first to call the operations in the process: the tables
// that the operations build on first use are built while four threads race
// for them.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "TestSupport.h"

namespace {

using _quarn_framework::CPoiJsonObjParser;
using _quarn_vi::CVBundle;
using _quarn_vi::CVString;
using P = CPoiJsonObjParser;
using BundleOp = int (*)(cJSON*, CVBundle&);

constexpr int kThreads = 4;
constexpr int kRounds = 30;

// An answer and the operation of its kind. The text mode flag stays clear
// throughout, so the second route-address form is parsed by its own
// operation (the dispatcher would clear the flag, a write the others race).
struct Answer {
  const char* example;
  const char* member;  // a record op's node: this member of the root, or null for the root
  BundleOp op;
};

const Answer kAnswers[] = {
    {"address", nullptr, P::GetAddrContentFromJson},
    {"area_multi", nullptr, P::ParseAreaMultiSearchRst},
    {"area_search", nullptr, P::ParseAreaSearchRst},
    {"circum_search", nullptr, P::ParseCircumSearchRst},
    {"city_list", nullptr, P::ParseCityList},
    {"city_query", nullptr, P::ParseCityQueryRst},
    {"district", nullptr, P::ParseDistrictRst},
    {"coordinate_query", nullptr, P::ParseEspecialQueryRst},
    {"indoor", nullptr, P::ParsePoiIndoorRst},
    {"poi_list", nullptr, P::ParsePoiListRst},
    {"poi_list_no_psrs", nullptr, P::ParsePoiListRst},
    {"poi_list_refused", nullptr, P::ParsePoiListRst},
    {"route_addr_1", nullptr, P::ParseRouteAddrRst},
    {"route_addr_1", "result", P::GetRPAddrResInfoFromJson},
    {"route_addr_2", nullptr, P::ParseRouteAddrPHPUI2Rst},
    {"area_search", "psrs", P::GetPsrsFromJson},
    {"area_search", "suggest_query", P::GetSuggestQueryFromJson},
};
constexpr int kAnswerCount = static_cast<int>(sizeof(kAnswers) / sizeof(kAnswers[0]));

struct Parsed {
  int result = -1;
  CVBundle bundle;
};

Parsed ParseOne(const Answer& answer, cJSON* root) {
  Parsed parsed;
  cJSON* node = answer.member != nullptr ? _quarn_vi::cJSON_GetObjectItem(root, answer.member) : root;
  parsed.result = answer.op(node, parsed.bundle);
  return parsed;
}

// Starts the threads together: each waits until all have arrived.
class StartLine {
 public:
  explicit StartLine(int count) : m_waiting(count) {}
  void Arrive() {
    m_waiting.fetch_sub(1, std::memory_order_acq_rel);
    while (m_waiting.load(std::memory_order_acquire) > 0) std::this_thread::yield();
  }

 private:
  std::atomic<int> m_waiting;
};

TEST(Concurrency, FourThreadsGetTheBundlesOfOne) {
  ASSERT_EQ(_quarn_framework::CJsonObjParser::isParsePHPUI2Res, 0);
  // The JSON texts become trees here: cJSON's parser writes a process-wide
  // error pointer. Every thread gets trees of its own.
  std::vector<std::string> texts;
  for (const Answer& answer : kAnswers) {
    texts.push_back(testing_support::ReadFile(std::string(SOURCE_DIR) + "/examples/" + answer.example + ".json"));
  }
  std::vector<std::vector<testing_support::Json>> trees(kThreads + 1);
  for (auto& own : trees) {
    for (const std::string& text : texts) own.push_back(testing_support::ParseJson(text));
  }

  // Round one, cold: no operation has run in this process yet. Thread t
  // starts with answer t * kAnswerCount / kThreads, so different kinds run
  // at once.
  std::vector<std::vector<Parsed>> cold(kThreads, std::vector<Parsed>(kAnswerCount));
  {
    StartLine start(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
      threads.emplace_back([&, t] {
        start.Arrive();
        for (int n = 0; n < kAnswerCount; ++n) {
          int i = (n + t * kAnswerCount / kThreads) % kAnswerCount;
          cold[t][i] = ParseOne(kAnswers[i], trees[t][i].get());
        }
      });
    }
    for (std::thread& thread : threads) thread.join();
  }

  // The single-threaded result.
  std::vector<Parsed> reference;
  std::vector<std::string> reference_json;
  for (int i = 0; i < kAnswerCount; ++i) {
    reference.push_back(ParseOne(kAnswers[i], trees[kThreads][i].get()));
    reference_json.push_back(testing_support::ToJson(reference[i].bundle));
  }
  for (int t = 0; t < kThreads; ++t) {
    for (int i = 0; i < kAnswerCount; ++i) {
      SCOPED_TRACE(std::string(kAnswers[i].example) + " on thread " + std::to_string(t));
      EXPECT_EQ(cold[t][i].result, reference[i].result);
      EXPECT_EQ(testing_support::ToJson(cold[t][i].bundle), reference_json[i]);
    }
  }

  // Warm rounds: each thread parses and compares with the shared reference
  // bundles (read from every thread at once), and changes copies of them
  // (copies share their blocks until changed). The threads record mismatches;
  // the assertions run here.
  std::vector<int> mismatches(kThreads, 0);
  {
    StartLine start(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
      threads.emplace_back([&, t] {
        const CVString mark("thread");
        start.Arrive();
        for (int round = 0; round < kRounds; ++round) {
          for (int n = 0; n < kAnswerCount; ++n) {
            int i = (n + t * kAnswerCount / kThreads + round) % kAnswerCount;
            Parsed parsed = ParseOne(kAnswers[i], trees[t][i].get());
            if (parsed.result != reference[i].result || parsed.bundle != reference[i].bundle) ++mismatches[t];
            CVBundle copy = reference[i].bundle;
            copy.SetInt(mark, t);
            if (copy == reference[i].bundle) ++mismatches[t];
            copy.Remove(mark);
            if (copy != parsed.bundle) ++mismatches[t];
            if (round == kRounds - 1 && testing_support::ToJson(parsed.bundle) != reference_json[i]) {
              ++mismatches[t];
            }
          }
        }
      });
    }
    for (std::thread& thread : threads) thread.join();
  }
  for (int t = 0; t < kThreads; ++t) EXPECT_EQ(mismatches[t], 0) << "thread " << t;
  for (int i = 0; i < kAnswerCount; ++i) {
    EXPECT_EQ(testing_support::ToJson(reference[i].bundle), reference_json[i]) << "a copy changed the original";
  }
  EXPECT_EQ(_quarn_framework::CJsonObjParser::isParsePHPUI2Res, 0);
}

}  // namespace
