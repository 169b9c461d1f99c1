// The bundle-to-JSON writer.
#include <gtest/gtest.h>

#include <pthread.h>

#include <cmath>
#include <string>

#include "TestSupport.h"

using _quarn_vi::CVBundle;
using _quarn_vi::CVString;

namespace {

TEST(JsonWriter, DoublesAlwaysShowAFractionOrAnExponent) {
  struct Case {
    double value;
    const char* text;
  } cases[] = {{1.0, "1.0"},  {-0.5, "-0.5"}, {1e20, "1e+20"},    {0.0, "0.0"},
               {-150, "-150.0"}, {2.25, "2.25"}, {1e-7, "1e-07"}, {NAN, "null"}};
  for (const Case& c : cases) {
    CVBundle b;
    b.SetDouble("d", c.value);
    EXPECT_EQ(testing_support::ToJson(b), std::string("{\"d\":") + c.text + "}");
  }
}

TEST(JsonWriter, StringsAreEscapedAndLoneSurrogatesWrittenAsEscapes) {
  const unsigned short units[] = {'"', '\\', '\n', 0x01, 0x4EAC, 0xD83D, 0xDE00, 0xD800, 'x', 0xDC00};
  CVBundle b;
  b.SetString("s", CVString(units, 10));
  EXPECT_EQ(testing_support::ToJson(b), "{\"s\":\"\\\"\\\\\\n\\u0001京😀\\uD800x\\uDC00\"}");
}

TEST(JsonWriter, PrettyFormHasTwoSpaceIndentAndEmptyContainersInline) {
  CVBundle inner, b;
  b.SetInt("n", 1);
  b.SetBundle("empty", inner);
  inner.SetBool("t", 1);
  CVBundle::BundleArray array;
  _quarn_vi::AppendByMove(array, inner);
  b.SetBundleArray("list", std::move(array));
  b.SetStringArray("none", CVBundle::StringArray());
  EXPECT_EQ(_quarn_vi::BundleToJson(b, true),
            "{\n  \"n\": 1,\n  \"empty\": {},\n  \"list\": [\n    {\n      \"t\": true\n    }\n  ],\n"
            "  \"none\": []\n}");
}

// Nesting as deep as a client makes it is written without recursion: here
// on a thread of 128 KiB of stack, which a recursive walk of 10,000 levels
// (bundles in arrays in bundles) would overflow.
TEST(JsonWriter, DeepNestingIsWrittenWithoutRecursion) {
  constexpr int kLevels = 10000;
  const CVString key("b");
  CVBundle deep;
  deep.SetInt("n", 1);
  for (int i = 0; i < kLevels; ++i) {
    CVBundle outer;
    if (i % 2 == 0) {
      outer.SetBundle(key, std::move(deep));
    } else {
      CVBundle::BundleArray array;
      _quarn_vi::AppendByMove(array, deep);
      outer.SetBundleArray(key, std::move(array));
    }
    deep = std::move(outer);
  }
  struct Job {
    const CVBundle* bundle;
    std::string text;
  } job{&deep, ""};
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, 128 * 1024);
  pthread_t thread;
  ASSERT_EQ(pthread_create(
                &thread, &attributes,
                [](void* argument) -> void* {
                  Job* j = static_cast<Job*>(argument);
                  j->text = _quarn_vi::BundleToJson(*j->bundle, false);
                  return nullptr;
                },
                &job),
            0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
  std::string expected;
  for (int i = kLevels - 1; i >= 0; --i) expected += i % 2 == 0 ? "{\"b\":" : "{\"b\":[";
  expected += "{\"n\":1}";
  for (int i = 0; i < kLevels; ++i) expected += i % 2 == 0 ? "}" : "]}";
  EXPECT_EQ(job.text, expected);
}

}  // namespace
