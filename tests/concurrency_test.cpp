// Four threads parse every example node (own trees and bundles, the text
// mode flag left alone) and must get the bundles that one thread gets; run
// under ThreadSanitizer by `make check`. This file is its own test program,
// so the tables that the operations build on first use are built while the
// threads race for them.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <string>
#include <mutex>
#include <thread>
#include <vector>

#include "TestSupport.h"

namespace {

using _quarn_vi::CVBundle;
using _quarn_vi::CVString;
using testing_support::ExampleOp;

constexpr int kThreads = 4;
constexpr int kRounds = 30;

// Every bundle operation on its example node. The text mode flag stays clear
// throughout (the dispatcher then parses the first form and writes no flag).
std::vector<ExampleOp> Answers() {
  std::vector<ExampleOp> answers;
  for (const ExampleOp& op : testing_support::ExampleOps()) {
    if (op.op != nullptr) answers.push_back(op);
  }
  return answers;
}

struct Parsed {
  int result = -1;
  CVBundle bundle;
};

Parsed ParseOne(const ExampleOp& answer, cJSON* root) {
  Parsed parsed;
  parsed.result = answer.op(testing_support::NodeAt(root, answer.path), parsed.bundle);
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
  const std::vector<ExampleOp> answers = Answers();
  const int answer_count = static_cast<int>(answers.size());
  // The JSON texts become trees here: cJSON's parser writes a process-wide
  // error pointer. Every thread gets trees of its own.
  std::vector<std::string> texts;
  for (const ExampleOp& answer : answers) texts.push_back(testing_support::ReadExample(answer.example));
  std::vector<std::vector<testing_support::Json>> trees(kThreads + 1);
  for (auto& own : trees) {
    for (const std::string& text : texts) own.push_back(testing_support::ParseJson(text));
  }

  // Round one, cold: no operation has run in this process yet. Thread t
  // starts with answer t * answer_count / kThreads, so different kinds run
  // at once.
  std::vector<std::vector<Parsed>> cold(kThreads, std::vector<Parsed>(answer_count));
  {
    StartLine start(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
      threads.emplace_back([&, t] {
        start.Arrive();
        for (int n = 0; n < answer_count; ++n) {
          int i = (n + t * answer_count / kThreads) % answer_count;
          cold[t][i] = ParseOne(answers[i], trees[t][i].get());
        }
      });
    }
    for (std::thread& thread : threads) thread.join();
  }

  // The single-threaded result.
  std::vector<Parsed> reference;
  std::vector<std::string> reference_json;
  for (int i = 0; i < answer_count; ++i) {
    reference.push_back(ParseOne(answers[i], trees[kThreads][i].get()));
    reference_json.push_back(testing_support::ToJson(reference[i].bundle));
  }
  for (int t = 0; t < kThreads; ++t) {
    for (int i = 0; i < answer_count; ++i) {
      SCOPED_TRACE(std::string(answers[i].example) + " on thread " + std::to_string(t));
      EXPECT_EQ(cold[t][i].result, reference[i].result);
      EXPECT_EQ(testing_support::ToJson(cold[t][i].bundle), reference_json[i]);
    }
  }

  // Warm rounds: each thread parses and compares with the shared reference
  // bundles (read from every thread at once), and changes copies of them
  // (copies share their blocks until changed). It then trades its bundle for
  // the one in the mailbox and destroys that, so that blocks die on other
  // threads than their own while those go on carving. The threads record
  // mismatches; the assertions run here.
  std::vector<int> mismatches(kThreads, 0);
  std::mutex mailbox_mutex;
  CVBundle mailbox;
  {
    StartLine start(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
      threads.emplace_back([&, t] {
        const CVString mark("thread");
        start.Arrive();
        for (int round = 0; round < kRounds; ++round) {
          for (int n = 0; n < answer_count; ++n) {
            int i = (n + t * answer_count / kThreads + round) % answer_count;
            Parsed parsed = ParseOne(answers[i], trees[t][i].get());
            if (parsed.result != reference[i].result || parsed.bundle != reference[i].bundle) ++mismatches[t];
            CVBundle copy = reference[i].bundle;
            copy.SetInt(mark, t);
            if (copy == reference[i].bundle) ++mismatches[t];
            copy.Remove(mark);
            if (copy != parsed.bundle) ++mismatches[t];
            if (round == kRounds - 1 && testing_support::ToJson(parsed.bundle) != reference_json[i]) {
              ++mismatches[t];
            }
            std::lock_guard<std::mutex> lock(mailbox_mutex);
            mailbox.Swap(parsed.bundle);
          }
        }
      });
    }
    for (std::thread& thread : threads) thread.join();
  }
  for (int t = 0; t < kThreads; ++t) EXPECT_EQ(mismatches[t], 0) << "thread " << t;
  for (int i = 0; i < answer_count; ++i) {
    EXPECT_EQ(testing_support::ToJson(reference[i].bundle), reference_json[i]) << "a copy changed the original";
  }
  EXPECT_EQ(_quarn_framework::CJsonObjParser::isParsePHPUI2Res, 0);
}

}  // namespace
