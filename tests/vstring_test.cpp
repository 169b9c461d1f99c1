// Strings and text conversions.
#include <gtest/gtest.h>

#include <climits>
#include <cstddef>
#include <string>
#include <vector>

#include "foundation/VString.h"

using _quarn_vi::CVCMMap;
using _quarn_vi::CVString;

namespace {

std::vector<unsigned> Units(const CVString& s) {
  return std::vector<unsigned>(s.Data(), s.Data() + s.GetLength());
}

CVString Decode(const std::string& bytes) {
  return CVCMMap::Utf8ToUnicode(bytes.data(), static_cast<unsigned>(bytes.size()));
}

TEST(VString, NarrowTextWidensEachByte) {
  EXPECT_EQ(Units(CVString("ab")), (std::vector<unsigned>{'a', 'b'}));
  EXPECT_EQ(Units(CVString("caf\xC3\xA9")), (std::vector<unsigned>{'c', 'a', 'f', 0xC3, 0xA9}));
  EXPECT_TRUE(CVString(static_cast<const char*>(nullptr)).IsEmpty());
  CVString s("something long enough to live on the heap");
  s = static_cast<const char*>(nullptr);
  EXPECT_TRUE(s.IsEmpty());
  EXPECT_EQ(s.GetBuffer(0)[0], 0);
}

TEST(VString, CopiesAreIndependentAfterAChange) {
  CVString a("a text longer than the inline room");
  CVString b = a;
  EXPECT_EQ(a, b);
  EXPECT_EQ(a.Data(), b.Data());  // shared until one changes
  b = "other";
  EXPECT_EQ(a, CVString("a text longer than the inline room"));
  EXPECT_EQ(b, CVString("other"));
  CVString moved(std::move(a));
  EXPECT_TRUE(a.IsEmpty());
  EXPECT_EQ(moved.GetLength(), 34);
}

TEST(VString, WtoiFollowsAtoi) {
  struct Case {
    const char* text;
    int value;
  } cases[] = {{"12", 12},        {"  -7x", -7},          {"+3", 3},          {"x1", 0},
               {"", 0},           {"\t\n 42", 42},        {"99999999999", INT_MAX},
               {"-99999999999", INT_MIN}, {"2147483648", INT_MAX}, {"-2147483648", INT_MIN}};
  for (const Case& c : cases) {
    EXPECT_EQ(_quarn_vi::_wtoi(CVString(c.text).GetBuffer(0)), c.value) << c.text;
  }
  EXPECT_EQ(_quarn_vi::_wtoi(nullptr), 0);
}

// An int's decimal text at every length class: inline up to nine
// characters, a block for ten and eleven; "%d" through Format gives the same.
TEST(VString, DecimalTextOfAnInt) {
  struct Case {
    int value;
    const char* text;
  } cases[] = {
      {0, "0"},
      {-1, "-1"},
      {7, "7"},
      {123456789, "123456789"},     // nine characters
      {-12345678, "-12345678"},
      {1000000000, "1000000000"},   // ten
      {-123456789, "-123456789"},
      {INT_MAX, "2147483647"},
      {-1000000000, "-1000000000"},  // eleven
      {INT_MIN, "-2147483648"},
  };
  const unsigned short percent_d[] = {'%', 'd', 0};
  for (const Case& c : cases) {
    for (const char* before : {"", "a text that lives in a block of its own"}) {
      CVString assigned(before);
      CVString::AssignDecimal(assigned, c.value);
      EXPECT_EQ(assigned.ToUtf8(), c.text) << c.value;
      EXPECT_EQ(assigned.Data()[assigned.GetLength()], 0) << c.value;
      CVString formatted(before);
      formatted.Format(percent_d, c.value);
      EXPECT_EQ(formatted, assigned) << c.value;
    }
  }
}

// Decoding follows the WHATWG rule: one U+FFFD per maximal invalid subpart.
TEST(VString, Utf8ToUnicode) {
  const unsigned R = 0xFFFD;
  struct Case {
    std::string bytes;
    std::vector<unsigned> units;
  } cases[] = {
      {"caf\xC3\xA9", {'c', 'a', 'f', 0xE9}},
      {"\xE5\x8C\x97\xE4\xBA\xAC", {0x5317, 0x4EAC}},                   // 北京
      {"\xF0\x9F\x98\x80", {0xD83D, 0xDE00}},                           // U+1F600
      {"\xF4\x8F\xBF\xBF", {0xDBFF, 0xDFFF}},                           // U+10FFFF
      {"a\x80" "b", {'a', R, 'b'}},                                     // lone continuation
      {"\xC0\xAF", {R, R}},                                             // overlong
      {"\xE0\x80\xAF", {R, R, R}},                                      // overlong
      {"\xED\xA0\x80", {R, R, R}},                                      // encoded surrogate
      {"\xF4\x90\x80\x80", {R, R, R, R}},                               // beyond U+10FFFF
      {"\xE5\x8C", {R}},                                                // truncated at the end
      {"\xE5\x8C" "A", {R, 'A'}},                                       // truncated mid-text
      {"\xF0\x9F\x98" "x", {R, 'x'}},
      {"\xFF\xFE", {R, R}},
      {std::string("a\0b", 3), {'a', 0, 'b'}},
      {"0123456789abcdef\xC3\xA9", {'0', '1', '2', '3', '4', '5', '6', '7', '8', '9',
                                    'a', 'b', 'c', 'd', 'e', 'f', 0xE9}},  // the ASCII fast path
  };
  for (const Case& c : cases) EXPECT_EQ(Units(Decode(c.bytes)), c.units) << c.bytes;
  EXPECT_TRUE(CVCMMap::Utf8ToUnicode(nullptr, 3).IsEmpty());
  // A long text (beyond the stack buffer) decodes the same way.
  std::string long_text;
  for (int i = 0; i < 400; ++i) long_text += "\xE5\x8C\x97";
  EXPECT_EQ(Decode(long_text).GetLength(), 400);
  EXPECT_EQ(Decode(long_text).Data()[399], 0x5317u);
}

// The ASCII runs' fast paths (16 bytes at a time with SSE2 or NEON, then 8)
// hand over to the byte-wise decoder wherever a non-ASCII byte stands: put
// one sequence at every offset of a 48-byte ASCII text.
TEST(VString, Utf8ToUnicodeAtEveryOffsetOfAnAsciiRun) {
  const unsigned R = 0xFFFD;
  const struct {
    std::string bytes;
    std::vector<unsigned> units;
  } inserts[] = {
      {"\xC3\xA9", {0xE9}},
      {"\xE5\x8C\x97", {0x5317}},
      {"\xF0\x9F\x98\x80", {0xD83D, 0xDE00}},
      {"\x80", {R}},
      {"\xFF", {R}},
      {"\xE5\x8C", {R}},
  };
  const std::string ascii = "The quick brown fox jumps over the lazy dog 0123";
  for (const auto& insert : inserts) {
    for (size_t at = 0; at <= ascii.size(); ++at) {
      std::vector<unsigned> expected(ascii.begin(), ascii.begin() + static_cast<std::ptrdiff_t>(at));
      expected.insert(expected.end(), insert.units.begin(), insert.units.end());
      expected.insert(expected.end(), ascii.begin() + static_cast<std::ptrdiff_t>(at), ascii.end());
      const std::string bytes = ascii.substr(0, at) + insert.bytes + ascii.substr(at);
      EXPECT_EQ(Units(Decode(bytes)), expected) << "at " << at << ": " << bytes;
    }
  }
}

TEST(VString, ToUtf8RoundTripsAndReplacesLoneSurrogates) {
  EXPECT_EQ(Decode("\xE5\x8C\x97 \xF0\x9F\x98\x80").ToUtf8(), "\xE5\x8C\x97 \xF0\x9F\x98\x80");
  const unsigned short lone[] = {'a', 0xD800, 'b'};
  EXPECT_EQ(CVString(lone, 3).ToUtf8(), "a\xEF\xBF\xBD" "b");
}

}  // namespace
