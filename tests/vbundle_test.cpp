// Bundles: insertion order, replacement, typed getters, sharing and moves.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "TestSupport.h"

using _quarn_vi::CVBundle;
using _quarn_vi::CVString;
using testing_support::ToJson;

namespace {

TEST(VBundle, KeepsInsertionOrderAndReplacesInPlace) {
  CVBundle b;
  b.SetInt("b", 1);
  b.SetString("a", CVString("x"));
  b.SetBool("c", 5);
  b.SetInt("b", 2);  // keeps its first position
  b.SetDouble("d", 1.0);
  EXPECT_EQ(ToJson(b), R"({"b":2,"a":"x","c":true,"d":1.0})");
  b.Remove("a");
  b.Remove("absent");
  EXPECT_EQ(ToJson(b), R"({"b":2,"c":true,"d":1.0})");
  b.SetString("b", CVString("now text"));
  EXPECT_EQ(ToJson(b), R"({"b":"now text","c":true,"d":1.0})");
}

TEST(VBundle, GettersGiveZeroOrNullForAbsentKeysAndOtherTypes) {
  CVBundle b;
  b.SetInt("i", 7);
  b.SetBool("t", 1);
  b.SetString("s", CVString("x"));
  EXPECT_EQ(b.GetInt("i"), 7);
  EXPECT_EQ(b.GetBool("t"), 1);
  EXPECT_EQ(b.GetInt("t"), 0);
  EXPECT_EQ(b.GetBool("i"), 0);
  EXPECT_EQ(b.GetBool("absent"), 0);
  EXPECT_EQ(b.GetDouble("i"), 0.0);
  EXPECT_EQ(b.GetString("i"), nullptr);
  EXPECT_EQ(b.GetBundle("s"), nullptr);
  EXPECT_EQ(b.GetBundleArray("s"), nullptr);
  EXPECT_EQ(b.GetStringArray("absent"), nullptr);
  ASSERT_NE(b.GetString("s"), nullptr);
  EXPECT_EQ(*b.GetString("s"), CVString("x"));
  EXPECT_TRUE(b.ContainsKey("t"));
  EXPECT_FALSE(b.ContainsKey("T"));
}

TEST(VBundle, CopiesShareUntilEitherChanges) {
  CVBundle inner;
  inner.SetString("name", CVString("a long text held on the heap"));
  CVBundle::BundleArray records;
  for (int i = 0; i < 1000; ++i) {
    CVBundle r;
    r.SetInt("i", i);
    _quarn_vi::AppendByMove(records, r);
  }
  CVBundle a;
  a.SetBundle("inner", inner);
  a.SetBundleArray("records", std::move(records));
  EXPECT_EQ(records.m_nSize, 0);  // taken over, not copied

  CVBundle b = a;
  EXPECT_EQ(a, b);
  EXPECT_EQ(a.GetBundleArray("records"), b.GetBundleArray("records"));  // one shared array
  b.SetInt("extra", 1);
  EXPECT_FALSE(a.ContainsKey("extra"));
  a.Remove("inner");
  EXPECT_NE(b.GetBundle("inner"), nullptr);
  EXPECT_EQ(b.GetBundleArray("records")->m_nSize, 1000);
  EXPECT_EQ(b.GetBundleArray("records")->m_pData[999].GetInt("i"), 999);
  EXPECT_NE(a, b);
}

TEST(VBundle, StoringABundleInsideItselfStoresTheOldValue) {
  CVBundle a;
  a.SetInt("n", 1);
  a.SetBundle("self", a);
  a.SetString("s", CVString("ok"));
  EXPECT_EQ(ToJson(a), R"({"n":1,"self":{"n":1},"s":"ok"})");
  const CVString* s = a.GetString("s");
  a.SetString("t", *s);  // the value lives in the bundle that grows
  EXPECT_EQ(ToJson(a), R"({"n":1,"self":{"n":1},"s":"ok","t":"ok"})");
}

TEST(VBundle, ArraysAreCopiedWithTheirElements) {
  CVBundle::StringArray texts;
  CVString t("first text, long enough for the heap");
  texts.SetAtGrow(0, t);
  CVBundle b;
  b.SetStringArray("texts", texts);
  texts.m_pData[0] = "changed";
  EXPECT_EQ(ToJson(b), R"({"texts":["first text, long enough for the heap"]})");
  CVBundle::BundleArray empty;
  b.SetBundleArray("none", empty);
  EXPECT_EQ(b.GetBundleArray("none")->m_nSize, 0);
}

TEST(VBundle, PermanentAndOrdinaryKeysFindEachOther) {
  // Long keys: a permanent one keeps its hash, an ordinary one computes it.
  static const CVString permanent("vesk_realtime_price_flag", CVString::Permanent());
  CVBundle b;
  for (int i = 0; i < 20; ++i) b.SetInt(CVString(("key_number_" + std::to_string(i)).c_str()), i);
  b.SetInt(permanent, 7);
  CVString ordinary("vesk_realtime_price_flag");
  EXPECT_EQ(b.GetInt(ordinary), 7);
  ordinary = "short";  // a string reused for a shorter then a longer text
  ordinary = "key_number_13";
  EXPECT_EQ(b.GetInt(ordinary), 13);
  b.SetInt(ordinary, 31);
  EXPECT_EQ(b.GetInt(CVString("key_number_13")), 31);
  EXPECT_EQ(b.GetCount(), 21);
}

// Storing under a permanent key looks it up and finds its place in one probe
// sequence; at every size (no index, one-byte, two-byte index slots), with
// room reserved or grown into, after an ordinary key or into a shared block,
// a key stored again keeps its one entry and its first position.
TEST(VBundle, PermanentKeysStoredAgainKeepTheirEntryAtEverySize) {
  struct Case {
    int keys;
    bool reserve;         // room for every key before the first store
    bool ordinary_first;  // an ordinary key stored first
    bool shared;          // the second round stores into a copy's block
  };
  const Case cases[] = {
      {1, false, false, false},  {12, true, false, false},   {13, true, false, false},
      {13, false, false, false},  {40, true, true, false},    {127, true, false, true},
      {128, true, false, false}, {300, false, false, false}, {300, true, true, true},
  };
  static std::vector<CVString> keys;  // permanent texts live until exit anyway
  for (size_t i = keys.size(); i < 300; ++i) {
    keys.emplace_back(("field_" + std::to_string(i * 37)).c_str(), CVString::Permanent());
  }
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.keys << " keys, reserve " << c.reserve << ", ordinary first "
                                    << c.ordinary_first << ", shared " << c.shared);
    CVBundle b;
    if (c.reserve) b.Reserve(c.keys + (c.ordinary_first ? 1 : 0));
    if (c.ordinary_first) b.SetInt(CVString("ordinary"), -1);
    for (int i = 0; i < c.keys; ++i) b.SetInt(keys[i], i);
    const CVBundle before = b;
    CVBundle copy = b;
    CVBundle& again = c.shared ? copy : b;
    // Every third key again, with a value of another type.
    for (int i = 0; i < c.keys; i += 3) again.SetString(keys[i], CVString(std::to_string(i).c_str()));
    const int first = c.ordinary_first ? 1 : 0;
    ASSERT_EQ(again.GetCount(), c.keys + first);
    for (int i = 0; i < c.keys; ++i) {
      ASSERT_EQ(again.GetKeyAt(first + i), keys[i]);
      if (i % 3 == 0) {
        ASSERT_NE(again.GetString(keys[i]), nullptr);
        EXPECT_EQ(*again.GetString(keys[i]), CVString(std::to_string(i).c_str()));
        EXPECT_EQ(again.GetInt(CVString(("field_" + std::to_string(i * 37)).c_str())), 0);
      } else {
        EXPECT_EQ(again.GetInt(CVString(("field_" + std::to_string(i * 37)).c_str())), i);
      }
    }
    if (c.shared) {
      EXPECT_EQ(b, before);
    }
    again.SetInt(CVString("field_0"), 5);  // an ordinary key finds the permanent entry
    EXPECT_EQ(again.GetCount(), c.keys + first);
    EXPECT_EQ(again.GetInt(keys[0]), 5);
  }
}

// A text stored from UTF-8 is the string SetString stores after decoding,
// whichever path the store takes: a new permanent key into room (with and
// without an index), a present key, an ordinary key, a block without room,
// a block shared with a copy (which keeps its value).
TEST(VBundle, TextsStoredFromUtf8AreTheDecodedStrings) {
  static const CVString key("place_text", CVString::Permanent());
  static std::vector<CVString> others;  // permanent texts live until exit anyway
  for (size_t i = others.size(); i < 20; ++i) {
    others.emplace_back(("other_" + std::to_string(i)).c_str(), CVString::Permanent());
  }
  const char* texts[] = {nullptr, "", "abc", "123456789", "1234567890", "a text longer than the inline room",
                         "\xFF\xC3", "caf\xC3\xA9 \xF0\x9F\x98\x80"};
  enum Way { kRoom, kRoomIndexed, kPresent, kOrdinary, kNoRoom, kShared };
  for (const char* text : texts) {
    for (Way way : {kRoom, kRoomIndexed, kPresent, kOrdinary, kNoRoom, kShared}) {
      SCOPED_TRACE(testing::Message() << "text " << (text ? text : "(null)") << ", way " << way);
      const CVString k = way == kOrdinary ? CVString("place_text") : key;
      auto fill = [way](CVBundle& b) {
        b.Reserve(way == kNoRoom ? 1 : 24);
        for (int i = 0, n = way == kRoomIndexed ? 20 : 2; i < n; ++i) b.SetInt(others[i], i);
        if (way == kPresent) b.SetInt(key, 5);
      };
      CVBundle expected;
      fill(expected);
      CVString decoded;
      CVString::AssignUtf8Terminated(decoded, text);
      expected.SetString(k, std::move(decoded));
      CVBundle b;
      fill(b);
      const CVBundle copy = b;  // shares the block
      if (way != kShared) {
        b = CVBundle();  // a block of its own again
        fill(b);
      }
      b.SetStringUtf8(k, text);
      EXPECT_EQ(ToJson(b), ToJson(expected));
      ASSERT_NE(b.GetString(key), nullptr);
      EXPECT_EQ(*b.GetString(key), *expected.GetString(key));
      EXPECT_EQ(copy.GetString(key), nullptr);
    }
  }
}

TEST(VBundle, EqualityIgnoresKeyOrderButNotTypes) {
  CVBundle a, b;
  a.SetInt("x", 1);
  a.SetString("y", CVString("s"));
  b.SetString("y", CVString("s"));
  b.SetInt("x", 1);
  EXPECT_EQ(a, b);
  b.SetBool("x", 1);
  EXPECT_NE(a, b);
}

}  // namespace
