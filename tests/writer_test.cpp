// The bundle-to-JSON writer.
#include <gtest/gtest.h>

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

}  // namespace
