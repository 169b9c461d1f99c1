// How a field table stores keys that meet: a custom row, a flat table, a
// lead or the record itself may hold a key that a later row stores too. The
// key is then stored once, at its first place, with the last value: what a
// faster way of filling records (one that skips the lookups of keys known to
// be new) must keep.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "TestSupport.h"
#include "json_readers/FieldSchema.h"
#include "json_readers/FieldTable.h"

namespace {

using _quarn_framework::CustomField;
using _quarn_framework::CustomReader;
using _quarn_framework::FieldRow;
using _quarn_framework::FieldTable;
using _quarn_framework::FlatField;
using _quarn_framework::IntField;
using _quarn_framework::StringField;
using _quarn_vi::CVBundle;
using _quarn_vi::CVString;
using testing_support::ParseJson;
using testing_support::ToJson;

// Stores "custom" under "b" (a key that later rows store too).
void StoreB(cJSON*, const CVString&, CVBundle& out) { out.SetString(CVString("b", CVString::Permanent()), "custom"); }

// Stores three keys under a budget of one: the record's block must grow.
void StoreThree(cJSON*, const CVString&, CVBundle& out) {
  out.SetInt(CVString("x", CVString::Permanent()), 1);
  out.SetInt(CVString("y", CVString::Permanent()), 2);
  out.SetInt(CVString("z", CVString::Permanent()), 3);
}

constexpr _quarn_framework::schema::Member kAnyText =
    _quarn_framework::schema::MakeMember(nullptr, _quarn_framework::schema::Json::kText);
constexpr CustomReader kStoreB = {StoreB, kAnyText, {}};
constexpr CustomReader kStoreThree = {StoreThree, kAnyText, {}};

constexpr FieldRow kInnerRows[] = {StringField("b", "b"), IntField("n", "n")};
const FieldTable& InnerTable() {
  static const FieldTable table(kInnerRows);
  return table;
}

constexpr FieldRow kInnerCustomRows[] = {CustomField("c", "c", kStoreB), IntField("n", "n")};
const FieldTable& InnerCustomTable() {
  static const FieldTable table(kInnerCustomRows);
  return table;
}

constexpr FieldRow kPlainRows[] = {StringField("a", "a"), IntField("n", "n"), StringField("b", "b")};
constexpr FieldRow kCustomThenRowRows[] = {StringField("a", "a"), CustomField("c", "c", kStoreB),
                                           StringField("b", "b")};
constexpr FieldRow kFlatRepeatsRows[] = {StringField("a", "a"), StringField("b", "b"), FlatField("inner", InnerTable)};
constexpr FieldRow kFlatCustomRows[] = {FlatField("inner", InnerCustomTable), StringField("b", "b")};
constexpr FieldRow kOverBudgetRows[] = {CustomField("c", "c", kStoreThree), StringField("a", "a"),
                                        IntField("n", "n")};

const FieldTable& Table(int which) {
  static const FieldTable plain(kPlainRows);
  static const FieldTable custom_then_row(kCustomThenRowRows);
  static const FieldTable flat_repeats(kFlatRepeatsRows);
  static const FieldTable flat_custom(kFlatCustomRows);
  static const FieldTable over_budget(kOverBudgetRows);
  const FieldTable* tables[] = {&plain, &custom_then_row, &flat_repeats, &flat_custom, &over_budget};
  return *tables[which];
}

struct Case {
  const char* name;
  int table;
  const char* input;
  const char* bundle;
};

TEST(FieldTable, KeysThatMeetAreStoredOnceWhereTheSettersPutThem) {
  const std::vector<Case> cases = {
      {"distinct keys", 0, R"({"b":"B","n":7,"a":"A"})", R"({"a":"A","n":7,"b":"B"})"},
      {"absent members", 0, R"({"n":7})", R"({"n":7})"},
      // The custom row stores "b" first; the row replaces its value in place.
      {"custom row, then the row", 1, R"({"a":"A","c":1,"b":"B"})", R"({"a":"A","b":"B"})"},
      {"custom row alone", 1, R"({"c":1})", R"({"b":"custom"})"},
      // The flat table repeats "b": the whole table takes the setters.
      {"flat table repeats a key", 2, R"({"a":"A","b":"B","inner":{"b":"inner B","n":2}})",
       R"({"a":"A","b":"inner B","n":2})"},
      {"flat table absent", 2, R"({"a":"A","b":"B"})", R"({"a":"A","b":"B"})"},
      // A flat table with a custom row stores "b" before the outer row.
      {"flat table with a custom row", 3, R"({"inner":{"c":0,"n":3},"b":"B"})", R"({"b":"B","n":3})"},
      {"beyond the key budget", 4, R"({"c":0,"a":"A","n":4})", R"({"x":1,"y":2,"z":3,"a":"A","n":4})"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    testing_support::Json root = ParseJson(c.input);
    ASSERT_TRUE(root);
    CVBundle out;
    Table(c.table).Read(root.get(), out);
    EXPECT_EQ(ToJson(out), c.bundle);
  }
}

TEST(FieldTable, KeysAlreadyInTheRecordAreReplacedInPlace) {
  testing_support::Json root = ParseJson(R"({"a":"A","n":7,"b":"B"})");
  ASSERT_TRUE(root);
  CVBundle out;
  out.SetString("b", "old");
  out.SetInt("z", 0);
  Table(0).Read(root.get(), out);
  EXPECT_EQ(ToJson(out), R"({"b":"B","z":0,"a":"A","n":7})");
}

TEST(FieldTable, ALeadThatARowRepeatsIsReplacedInPlace) {
  testing_support::Json root = ParseJson(R"({"a":"A","n":7,"b":"B"})");
  ASSERT_TRUE(root);
  CVBundle out;
  Table(0).ReadAfter(root.get(), CVString("n", CVString::Permanent()), CVString("lead"), out);
  EXPECT_EQ(ToJson(out), R"({"n":7,"a":"A","b":"B"})");
  CVBundle other;
  Table(0).ReadAfter(root.get(), CVString("lead", CVString::Permanent()), CVString("L"), other);
  EXPECT_EQ(ToJson(other), R"({"lead":"L","a":"A","n":7,"b":"B"})");
}

}  // namespace
