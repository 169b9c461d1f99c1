// The growable array: growth policy, allocation tags, relocation and failure.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "engine/dev/inc/vi/vos/VTempl.h"
#include "foundation/VBundle.h"
#include "foundation/VString.h"

using _quarn_vi::CVArray;
using _quarn_vi::CVBundle;
using _quarn_vi::CVMem;
using _quarn_vi::CVMemHooks;
using _quarn_vi::CVString;

namespace {

// Records every CVMem request and fails the ones the test chooses.
struct Recorder {
  struct Request {
    unsigned int size;
    std::string file;
    int line;
  };
  std::vector<Request> requests;
  int fail_from = -1;  // requests with index >= fail_from fail (-1: none)
  int fail_only = -1;  // the request with this index fails

  static void* Allocate(unsigned int size, const char* file, int line, void* context) {
    Recorder* self = static_cast<Recorder*>(context);
    int index = static_cast<int>(self->requests.size());
    self->requests.push_back(Request{size, file, line});
    if (index == self->fail_only || (self->fail_from >= 0 && index >= self->fail_from)) return nullptr;
    return std::malloc(size);
  }
  static void Deallocate(void* block, void*) { std::free(block); }
};

class VArrayTest : public ::testing::Test {
 protected:
  void SetUp() override {
    CVMemHooks hooks{Recorder::Allocate, Recorder::Deallocate, &recorder_};
    CVMem::SetHooks(&hooks);
  }
  void TearDown() override { CVMem::SetHooks(nullptr); }
  Recorder recorder_;
};

typedef CVArray<CVString, CVString&> Strings;
typedef CVArray<CVBundle, CVBundle&> Bundles;

TEST_F(VArrayTest, CapacitiesFollowAnEighthOfTheSizeThenCapAt1024) {
  CVArray<int, int&> a;
  int v = 7;
  std::vector<int> capacities;
  for (int i = 0; i < 9300; ++i) {
    int before = a.m_nMaxSize;
    a.SetAtGrow(a.m_nSize, v);
    if (a.m_nMaxSize != before) capacities.push_back(a.m_nMaxSize);
  }
  std::vector<int> head(capacities.begin(), capacities.begin() + 25);
  EXPECT_EQ(head, (std::vector<int>{1, 5, 9, 13, 17, 21, 25, 29, 33, 37, 41, 46, 51, 57, 64, 72, 81,
                                    91, 102, 114, 128, 144, 162, 182, 204}));
  // From 8192 elements on the step is 1024.
  int last = capacities.back(), previous = capacities[capacities.size() - 2];
  EXPECT_GE(previous, 8192);
  EXPECT_EQ(last - previous, 1024);
  // One request per growth, tagged with the array's file and line.
  ASSERT_EQ(recorder_.requests.size(), capacities.size());
  EXPECT_EQ(recorder_.requests[0].file, "../../../engine/dev/inc/vi/vos/VTempl");
  EXPECT_EQ(recorder_.requests[0].line, 614);
  for (size_t i = 1; i < recorder_.requests.size(); ++i) EXPECT_EQ(recorder_.requests[i].line, 660);
}

TEST_F(VArrayTest, SetSizeGrowsByTheStepShrinksInPlaceAndFreesAtZero) {
  Strings a;
  ASSERT_EQ(a.SetSize(3, -1), 1);
  EXPECT_EQ(a.SetSize(4, 10), 1);
  EXPECT_EQ(a.m_nMaxSize, 13);
  EXPECT_EQ(a.SetSize(30, 10), 1);  // beyond one step: exactly the size
  EXPECT_EQ(a.m_nMaxSize, 30);
  EXPECT_EQ(a.m_nGrowBy, 10);
  // Shrinking keeps the block; growing back within it makes empty elements.
  for (int i = 0; i < 10; ++i) a.m_pData[i] = "a long enough text";
  const size_t requests = recorder_.requests.size();
  ASSERT_EQ(a.SetSize(4, -1), 1);
  EXPECT_EQ(a.m_nMaxSize, 30);
  ASSERT_EQ(a.SetSize(10, -1), 1);
  EXPECT_EQ(recorder_.requests.size(), requests);
  EXPECT_EQ(a.m_pData[3], CVString("a long enough text"));
  for (int i = 4; i < 10; ++i) EXPECT_TRUE(a.m_pData[i].IsEmpty());
  // Size 0 frees the block and keeps the step.
  EXPECT_EQ(a.SetSize(0, -1), 1);
  EXPECT_EQ(a.m_pData, nullptr);
  EXPECT_EQ(a.m_nSize, 0);
  EXPECT_EQ(a.m_nMaxSize, 0);
  EXPECT_EQ(a.m_nGrowBy, 10);
  Strings empty;
  EXPECT_EQ(empty.SetSize(0, -1), 1);
  EXPECT_EQ(recorder_.requests.size(), requests);
}

TEST_F(VArrayTest, SetAtGrowBelowTheSizeAssignsInPlace) {
  Strings a;
  CVString one("one"), two("two");
  a.SetAtGrow(0, one);
  a.SetAtGrow(1, one);
  size_t requests = recorder_.requests.size();
  a.SetAtGrow(0, two);
  EXPECT_EQ(a.m_nSize, 2);
  EXPECT_EQ(a.m_pData[0], two);
  EXPECT_EQ(recorder_.requests.size(), requests);
}

TEST_F(VArrayTest, AFailedFirstBlockLeavesTheArrayEmpty) {
  recorder_.fail_only = 0;
  Strings a;
  CVString s("x");
  EXPECT_EQ(a.SetSize(3, 7), 0);
  EXPECT_EQ(a.m_nGrowBy, 7);  // stored even though the request failed
  EXPECT_EQ(a.m_nSize, 0);
  EXPECT_EQ(a.m_nMaxSize, 0);
  EXPECT_EQ(a.m_pData, nullptr);
  a.SetAtGrow(0, s);  // the second request succeeds
  EXPECT_EQ(a.m_nSize, 1);
}

TEST_F(VArrayTest, AFailedGrowthLeavesTheArrayAsItWas) {
  Bundles a;
  CVBundle record;
  record.SetString("name", CVString("a text that is not inline"));
  a.SetAtGrow(0, record);
  recorder_.fail_from = 1;
  CVBundle other;
  other.SetInt("n", 2);
  a.SetAtGrow(1, other);  // the growth fails: nothing stored, nothing lost
  EXPECT_EQ(a.m_nSize, 1);
  EXPECT_EQ(a.m_nMaxSize, 1);
  EXPECT_EQ(a.m_pData[0], record);
  EXPECT_EQ(a.SetSize(6, -1), 0);
  EXPECT_EQ(a.m_nSize, 1);
}

// Growth moves elements by bytes: heap-backed strings and shared bundles must
// survive it (AddressSanitizer checks the memory), and no copy is made.
TEST_F(VArrayTest, GrowthRelocatesElementsByBytes) {
  Bundles a;
  std::vector<CVBundle> originals;
  for (int i = 0; i < 40; ++i) {
    CVBundle b;
    b.SetString("text", CVString(("element number " + std::to_string(i)).c_str()));
    b.SetInt("i", i);
    originals.push_back(b);
    a.SetAtGrow(a.m_nSize, b);
  }
  for (int i = 0; i < 40; ++i) {
    EXPECT_EQ(a.m_pData[i], originals[static_cast<size_t>(i)]);
    EXPECT_EQ(a.m_pData[i].GetInt("i"), i);
  }
}

TEST_F(VArrayTest, AppendingAnElementOfTheSameArrayIsSafe) {
  Strings a;
  CVString s("a text long enough for the heap");
  a.SetAtGrow(0, s);
  a.SetAtGrow(1, a.m_pData[0]);  // the growth moves the element being copied
  EXPECT_EQ(a.m_nSize, 2);
  EXPECT_EQ(a.m_pData[1], s);
}

}  // namespace

namespace {

// Capacities after each growth of an array of `count` strings appended one
// by one, and whether every element kept its text.
std::vector<int> AppendStrings(int count, bool* intact) {
  Strings a;
  std::vector<int> capacities;
  for (int i = 0; i < count; ++i) {
    CVString s(("string number " + std::to_string(i)).c_str());
    int before = a.m_nMaxSize;
    a.SetAtGrow(a.m_nSize, s);
    if (a.m_nMaxSize != before) capacities.push_back(a.m_nMaxSize);
  }
  *intact = a.m_nSize == count;
  for (int i = 0; i < a.m_nSize && *intact; ++i) {
    *intact = a.m_pData[i] == CVString(("string number " + std::to_string(i)).c_str());
  }
  return capacities;
}

}  // namespace

// Without hooks a growth moves the block with realloc, or copies it into a
// new one while it is small: the capacities and the elements are those of
// the Allocate, copy and Deallocate that hooks see.
TEST(VArray, GrowthWithoutHooksGivesTheSameCapacitiesAndElements) {
  constexpr int kCount = 40000;  // well past the 1024-slot step
  bool intact_with_hooks = false, intact_without = false;
  std::vector<int> with_hooks;
  {
    Recorder recorder;
    CVMemHooks hooks{Recorder::Allocate, Recorder::Deallocate, &recorder};
    CVMem::SetHooks(&hooks);
    with_hooks = AppendStrings(kCount, &intact_with_hooks);
    CVMem::SetHooks(nullptr);
    EXPECT_EQ(recorder.requests.size(), with_hooks.size());
  }
  const std::vector<int> without = AppendStrings(kCount, &intact_without);
  EXPECT_TRUE(intact_with_hooks);
  EXPECT_TRUE(intact_without);
  EXPECT_EQ(without, with_hooks);
}
