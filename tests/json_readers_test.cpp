// The JSON field readers: accepted forms, what is stored, and the helpers.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "TestSupport.h"

using _quarn_framework::CJsonObjParser;
using _quarn_vi::CComplexPt;
using _quarn_vi::CVBundle;
using _quarn_vi::CVString;
using testing_support::Json;
using testing_support::ParseJson;
using testing_support::ToJson;

namespace {

// Each case is the value of member "v"; the readers run on {"v": value}
// (null: on {"V": 1}, as names are case-sensitive).
struct ReaderCase {
  const char* value;
  const char* as_int;   // stored by GetJsonIntItem, or "" for nothing
  const char* as_bool;  // stored by GetJsonBoolItem
  const char* as_text;  // stored by GetJsonStringItem
};

const ReaderCase kReaderCases[] = {
    {"12", "12", "true", "\"12\""},
    {"-7.9", "-7", "true", "\"-7.9\""},
    {"0", "0", "false", "\"0\""},
    {"1e300", "2147483647", "true", "\"1e+300\""},
    {"-1e300", "-2147483648", "true", "\"-1e+300\""},
    {"9007199254740993", "2147483647", "true", "\"9007199254740992\""},
    {"0.1", "0", "true", "\"0.1\""},
    {"true", "1", "true", "\"true\""},
    {"false", "0", "false", "\"false\""},
    {"\"42\"", "42", "", "\"42\""},
    {"\" -42 \"", "-42", "", "\" -42 \""},
    {"\"+5\"", "5", "", "\"+5\""},
    {"\"2147483648\"", "", "", "\"2147483648\""},
    {"\"-2147483648\"", "-2147483648", "", "\"-2147483648\""},
    {"\"4.5\"", "", "", "\"4.5\""},
    {"\"12abc\"", "", "", "\"12abc\""},
    {"\"\"", "", "", "\"\""},
    {"\"1\"", "1", "true", "\"1\""},
    {"\"0\"", "0", "false", "\"0\""},
    {"\"true\"", "", "true", "\"true\""},
    {"\"false\"", "", "false", "\"false\""},
    {"\"yes\"", "", "", "\"yes\""},
    {"null", "", "", ""},
    {"[1]", "", "", ""},
    {"{\"a\":1}", "", "", ""},
    {"1e400", "2147483647", "true", "\"inf\""},
    {"-1e400", "-2147483648", "true", "\"-inf\""},
    {"12345678901234567890", "2147483647", "true", "\"12345678901234567168\""},
    {"2147483648", "2147483647", "true", "\"2147483648\""},
    {"-2147483649", "-2147483648", "true", "\"-2147483649\""},
    {"2147483647.9", "2147483647", "true", "\"2147483647.9\""},
    {nullptr, "", "", ""},
};

std::string Stored(const std::string& json) {
  const std::string prefix = "{\"k\":";
  if (json == "{}") return "";
  EXPECT_EQ(json.compare(0, prefix.size(), prefix), 0) << json;
  return json.substr(prefix.size(), json.size() - prefix.size() - 1);
}

TEST(JsonReaders, StoringReadersAcceptTheDocumentedForms) {
  const CVString key("k");
  for (const ReaderCase& c : kReaderCases) {
    SCOPED_TRACE(c.value != nullptr ? c.value : "(absent)");
    Json root = ParseJson(c.value != nullptr ? std::string("{\"v\":") + c.value + "}" : R"({"V":1})");
    CVBundle i, b, t;
    EXPECT_EQ(CJsonObjParser::GetJsonIntItem(root.get(), "v", key, i), *c.as_int != 0);
    EXPECT_EQ(CJsonObjParser::GetJsonBoolItem(root.get(), "v", key, b), *c.as_bool != 0);
    EXPECT_EQ(CJsonObjParser::GetJsonStringItem(root.get(), "v", key, t, 0), *c.as_text != 0);
    EXPECT_EQ(Stored(ToJson(i)), c.as_int);
    EXPECT_EQ(Stored(ToJson(b)), c.as_bool);
    EXPECT_EQ(Stored(ToJson(t)), c.as_text);
    // The plain forms read the same way and leave the target alone on failure.
    int value = 99;
    const int read = CJsonObjParser::GetJsonItem(root.get(), "v", value);
    EXPECT_EQ(read ? std::to_string(value) : "untouched " + std::to_string(value),
              *c.as_int ? c.as_int : "untouched 99");
    CVString text("kept");
    const int read_text = CJsonObjParser::GetJsonItem(root.get(), "v", text);
    EXPECT_EQ((read_text ? "\"" : "untouched ") + text.ToUtf8() + (read_text ? "\"" : ""),
              *c.as_text ? c.as_text : "untouched kept");
  }
  CVBundle out;
  EXPECT_EQ(CJsonObjParser::GetJsonStringItem(nullptr, "v", key, out, 0), 0);
  EXPECT_EQ(out.GetCount(), 0);
}

TEST(JsonReaders, StringArrayKeepsStringsOnly) {
  Json root = ParseJson(R"({"flag": ["a", 1, null, "\u00e9", {}], "empty": [], "obj": {}})");
  CVBundle out;
  EXPECT_EQ(CJsonObjParser::GetJsonStringArray(root.get(), "flag", out), 1);
  EXPECT_EQ(CJsonObjParser::GetJsonStringArray(root.get(), "empty", out), 1);
  EXPECT_EQ(CJsonObjParser::GetJsonStringArray(root.get(), "obj", out), 0);
  EXPECT_EQ(ToJson(out), R"({"flag":["a","é"],"empty":[]})");
}

TEST(JsonReaders, ArrayItemReader) {
  Json root = ParseJson(R"([1, "2", "x", null])");
  int value = -1;
  EXPECT_EQ(CJsonObjParser::GetJsonArrayItem(root.get(), 0, value), 1);
  EXPECT_EQ(value, 1);
  EXPECT_EQ(CJsonObjParser::GetJsonArrayItem(root.get(), 1, value), 1);
  EXPECT_EQ(value, 2);
  EXPECT_EQ(CJsonObjParser::GetJsonArrayItem(root.get(), 2, value), 0);
  EXPECT_EQ(CJsonObjParser::GetJsonArrayItem(root.get(), 3, value), 0);
  EXPECT_EQ(CJsonObjParser::GetJsonArrayItem(root.get(), 4, value), 0);
  EXPECT_EQ(CJsonObjParser::GetJsonArrayItem(nullptr, 0, value), 0);
  EXPECT_EQ(value, 2);
}

TEST(JsonReaders, BufferFormCutsAtWholeCharactersAndTerminates) {
  struct Case {
    const char* json;
    int size;
    int result;
    const char* text;
  } cases[] = {
      {R"({"tel": "010-1234"})", 80, 1, "010-1234"},
      {R"({"tel": "abcdef"})", 4, 1, "abc"},
      {R"({"tel": "\u5317\u4eac"})", 6, 1, "\xE5\x8C\x97"},  // 6 bytes do not fit 5
      {R"({"tel": "\u5317\u4eac"})", 7, 1, "\xE5\x8C\x97\xE4\xBA\xAC"},
      {R"({"tel": 12345})", 80, 1, "12345"},
      {R"({"tel": ""})", 80, 1, ""},
      {R"({"tel": null})", 80, 0, "untouched"},
      {R"({"tel": "x"})", 0, 0, "untouched"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.json);
    Json root = ParseJson(c.json);
    char buffer[80];
    std::memset(buffer, 'Z', sizeof(buffer));
    std::strcpy(buffer, "untouched");
    EXPECT_EQ(CJsonObjParser::GetJsonItem(root.get(), "tel", buffer, c.size, 0), c.result);
    EXPECT_STREQ(buffer, c.text);
  }
  // Invalid bytes become U+FFFD; an 80-byte buffer is never overrun.
  cJSON* invalid = cJSON_CreateObject();
  cJSON_AddStringToObject(invalid, "tel", "1\xFF" "2");
  char buffer[80];
  EXPECT_EQ(CJsonObjParser::GetJsonItem(invalid, "tel", buffer, 80, 0), 1);
  EXPECT_STREQ(buffer, "1\xEF\xBF\xBD" "2");
  std::string long_tel(300, '9');
  cJSON_ReplaceItemInObject(invalid, "tel", cJSON_CreateString(long_tel.c_str()));
  char guarded[81];
  guarded[80] = 'G';
  EXPECT_EQ(CJsonObjParser::GetJsonItem(invalid, "tel", guarded, 80, 0), 1);
  EXPECT_EQ(std::strlen(guarded), 79u);
  EXPECT_EQ(guarded[80], 'G');
  // Beyond the stack copy a text is measured first, then cut the same way.
  std::string longer = std::string(700, '8') + "\xE5\x8C\x97";
  cJSON_ReplaceItemInObject(invalid, "tel", cJSON_CreateString(longer.c_str()));
  EXPECT_EQ(CJsonObjParser::GetJsonItem(invalid, "tel", guarded, 80, 0), 1);
  EXPECT_EQ(std::string(guarded), std::string(79, '8'));
  EXPECT_EQ(guarded[80], 'G');
  cJSON_Delete(invalid);
}

TEST(JsonReaders, GeometryText) {
  struct Case {
    const char* geo;
    int result;
    const char* parts;  // "x,y x,y|x,y" for the expected parts
  } cases[] = {
      {"1|12958160.05,4825907.21;", 1, "12958160,4825907"},
      {"12958160,4825907", 1, "12958160,4825907"},
      {"4|1,2;3,4|-5.9,6e2", 1, "1,2 3,4|-5,600"},
      {"1||7,8;", 1, "7,8"},
      {"3", 1, ""},
      {"", 1, ""},
      {"1|1,2;;3,4", 0, ""},
      {"1|1,2|abc", 0, ""},
      {"1|1,", 0, ""},
      {"1|3000000000,1", 0, ""},
      {"1|1e400,1", 0, ""},
      {"1|1e-400,-2147483648.9", 1, "0,-2147483648"},
      {"1|0x10,1", 0, ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.geo);
    cJSON* node = cJSON_CreateObject();
    cJSON_AddStringToObject(node, "geo", c.geo);
    CComplexPt geometry;
    EXPECT_EQ(CJsonObjParser::GetJsonItem(node, "geo", geometry), c.result);
    std::string parts;
    for (int p = 0; p < geometry.GetPartSize(); ++p) {
      if (p > 0) parts += "|";
      for (int i = 0; i < geometry.GetPartContentSize(p); ++i) {
        if (i > 0) parts += " ";
        parts += std::to_string(geometry.GetPartPt(p, i).x) + "," + std::to_string(geometry.GetPartPt(p, i).y);
      }
    }
    EXPECT_EQ(parts, c.parts);
    cJSON_Delete(node);
  }
}

TEST(JsonReaders, ProcessTelNum) {
  struct Case {
    const char* in;
    const char* out;
  } cases[] = {
      {"(010)12345678; 13800000000\xEF\xBC\x9B", "(010)12345678,13800000000"},
      {"010-1234", "010-1234"},
      {" ;,010 1234 ,, \xEF\xBC\x8C 020-5 ; ", "010 1234,020-5"},
      {";;;", ""},
      {"", ""},
      {"400-800-8888\xEF\xBC\x8C\xEF\xBC\x8C", "400-800-8888"},
      // 0xEF bytes that start no separator stay in the number
      {"\xEF\xBC\x88" "010\xEF\xBC\x89" "1;2\xEF", "\xEF\xBC\x88" "010\xEF\xBC\x89" "1,2\xEF"},
      {"5\xEF\xBC", "5\xEF\xBC"},
      {"\xEF\xEF\xBC\x9B" "6", "\xEF,6"},
  };
  for (const Case& c : cases) {
    char buffer[80];
    std::strcpy(buffer, c.in);
    EXPECT_EQ(CJsonObjParser::ProcessTelNum(buffer), static_cast<int>(std::strlen(c.out)));
    EXPECT_STREQ(buffer, c.out);
  }
  EXPECT_EQ(CJsonObjParser::ProcessTelNum(nullptr), 0);
}

// atoi's reading of a numeric text, saturated where atoi is undefined.
TEST(JsonAccess, LeadingDecimalIntReadsAsAtoiAndSaturates) {
  struct Case {
    const char* text;
    int value;
    bool digits;
  } cases[] = {
      {"12", 12, true},
      {" \t\n\v\f\r-12", -12, true},
      {"+7abc", 7, true},
      {"12 34", 12, true},
      {"007", 7, true},
      {"2147483647", INT_MAX, true},
      {"-2147483648", INT_MIN, true},
      {"2147483648", INT_MAX, true},
      {"-2147483649", INT_MIN, true},             // glibc's atoi gives 2147483647
      {"99999999999999999999", INT_MAX, true},    // glibc's atoi gives -1
      {"4294967301", INT_MAX, true},              // 2^32 + 5; glibc's atoi gives 5
      {"-000000000000000000000000000042", -42, true},
      {"", 0, false},
      {"-", 0, false},
      {"+-1", 0, false},
      {"- 1", 0, false},
      {"x1", 0, false},
      {"\xC2\xA0" "1", 0, false},  // no-break space is not white space
      {nullptr, 0, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text != nullptr ? c.text : "(null)");
    bool digits = !c.digits;
    EXPECT_EQ(_quarn_framework::LeadingDecimalInt(c.text, &digits), c.value);
    EXPECT_EQ(digits, c.digits);
    EXPECT_EQ(_quarn_framework::LeadingDecimalInt(c.text), c.value);
  }
}

TEST(JsonAccess, AccessorsKeepToTheirNodeTypes) {
  Json root = ParseJson(R"({"list": [10, 20, 30]})");
  cJSON* list = _quarn_vi::cJSON_GetObjectItem(root.get(), "list");
  EXPECT_EQ(_quarn_vi::cJSON_GetObjectItem(list, "0"), nullptr);
  EXPECT_EQ(_quarn_vi::cJSON_GetArraySize(root.get()), 0);
  EXPECT_EQ(_quarn_vi::cJSON_GetArrayItem(list, -1), nullptr);
  // A string created as a constant carries a flag bit above the type code.
  cJSON* obj = cJSON_CreateObject();
  cJSON_AddItemToObject(obj, "s", cJSON_CreateStringReference("ref"));
  EXPECT_TRUE(_quarn_framework::IsJsonString(_quarn_framework::FindMember(obj, "s")));
  cJSON_Delete(obj);
}

// The one-pass lookup must give, for every name of its table, exactly what a
// member-by-member search gives: the first member of that exact name.
struct MemberTableCase {
  const char* object;
  std::vector<const char*> names;
};

const MemberTableCase kMemberTableCases[] = {
    // Duplicate members: the first one wins, for every slot of the name.
    {R"({"a":1,"b":2,"a":3,"b":4})", {"a", "b", "a"}},
    // A name listed three times, and a repeated name the object lacks.
    {R"({"b":1,"a":2})", {"a", "c", "a", "c", "b", "a"}},
    // Case, prefixes and the empty name are different names.
    {R"({"Name":1,"name":2,"nam":3,"names":4,"":5})", {"name", "Name", "nam", "", "names", "NAME"}},
    // Over 16 bytes: equal first and last eight bytes and length, another middle.
    {R"({"abcdefgh_one_stuvwxyz":1,"abcdefgh_two_stuvwxyz":2,"abcdefgh_onestuvwxyz":3})",
     {"abcdefgh_two_stuvwxyz", "abcdefgh_one_stuvwxyz", "abcdefgh_six_stuvwxyz", "abcdefgh_onestuvwxyz"}},
    // Between 8 and 16 bytes the head and tail overlap.
    {R"({"abcdefghij":1,"abcdefghXj":2,"abcdefgh":3,"abcdefghi":4})",
     {"abcdefghXj", "abcdefghij", "abcdefgh", "abcdefghi", "abcdefgh_"}},
    // Members that the table does not name, and names the object lacks.
    {R"({"x":1,"y":{"a":2},"z":[3]})", {"a", "y", "w", "z"}},
    {R"({})", {"a"}},
    // Not an object: every slot is null.
    {R"([{"a":1}])", {"a"}},
    {R"("a")", {"a"}},
};

TEST(JsonMemberTable, GathersWhatAMemberByMemberSearchFinds) {
  for (const MemberTableCase& c : kMemberTableCases) {
    SCOPED_TRACE(c.object);
    Json root = ParseJson(c.object);
    const _quarn_framework::JsonMemberTable table(c.names.data(), static_cast<int>(c.names.size()));
    std::vector<cJSON*> slots(c.names.size(), reinterpret_cast<cJSON*>(&slots));
    // Weights 1, 2, 4, ...: their sum tells which members were found.
    std::vector<uint8_t> weights;
    for (size_t i = 0; i < c.names.size(); ++i) weights.push_back(static_cast<uint8_t>(1u << i));
    const int weight = table.Gather(root.get(), slots.data(), weights.data());
    int found = 0;
    for (size_t i = 0; i < c.names.size(); ++i) {
      EXPECT_EQ(slots[i], _quarn_framework::FindMember(root.get(), c.names[i])) << c.names[i];
      if (slots[i] != nullptr) found += weights[i];
    }
    EXPECT_EQ(weight, found);
  }
  // Many long names that differ only in their middle bytes share a hash
  // bucket neighbourhood; each still finds its own member.
  std::string object = "{";
  std::vector<std::string> names;
  for (int i = 0; i < 40; ++i) {
    names.push_back("prefix__" + std::to_string(i * 7919) + "__suffix");
    object += (i ? ",\"" : "\"") + names.back() + "\":" + std::to_string(i);
  }
  object += "}";
  Json root = ParseJson(object);
  std::vector<const char*> texts;
  for (const std::string& n : names) texts.push_back(n.c_str());
  const _quarn_framework::JsonMemberTable table(texts.data(), static_cast<int>(texts.size()));
  std::vector<cJSON*> slots(texts.size());
  const std::vector<uint8_t> weights(texts.size(), 1);
  EXPECT_EQ(table.Gather(root.get(), slots.data(), weights.data()), 40);
  for (size_t i = 0; i < texts.size(); ++i) {
    ASSERT_NE(slots[i], nullptr) << texts[i];
    EXPECT_EQ(slots[i]->valueint, static_cast<int>(i)) << texts[i];
  }
}

// The table guesses each member from the order of the objects it read
// before; a guess that is stale (another order, a member left out, a name
// that only shares a prefix, a duplicate) must never change what is found.
TEST(JsonMemberTable, FindsTheSameWhateverTheOrderOfEarlierObjects) {
  const std::vector<const char*> names = {"name", "uid", "addr", "nam", "names", "tel"};
  const _quarn_framework::JsonMemberTable table(names.data(), static_cast<int>(names.size()));
  const char* const objects[] = {
      R"({"name":1,"uid":2,"addr":3,"tel":4})",
      R"({"name":1,"uid":2,"addr":3,"tel":4})",
      R"({"tel":4,"addr":3,"uid":2,"name":1})",
      R"({"name":1,"addr":3,"tel":4})",
      R"({"nam":1,"uid":2,"names":3,"tel":4})",
      R"({"name":1,"name":5,"uid":2,"uid":6})",
      R"({"x":0,"name":1,"y":0,"uid":2,"addr":3})",
      R"({"name":1,"uid":2,"addr":3,"tel":4})",
      R"({"names":1,"nam":2,"name":3})",
  };
  const std::vector<uint8_t> weights(names.size(), 1);
  for (int round = 0; round < 2; ++round) {
    for (const char* text : objects) {
      SCOPED_TRACE(text);
      Json root = ParseJson(text);
      std::vector<cJSON*> slots(names.size());
      const int weight = table.Gather(root.get(), slots.data(), weights.data());
      int found = 0;
      for (size_t i = 0; i < names.size(); ++i) {
        EXPECT_EQ(slots[i], _quarn_framework::FindMember(root.get(), names[i])) << names[i];
        found += slots[i] != nullptr;
      }
      EXPECT_EQ(weight, found);
    }
  }
}

// Member names wherever they lie: at every offset in their 16-byte block,
// and ending on the last byte of a page, or starting on the first, beside a
// page that may not be read. The table's names are prefixes of one another
// and of the members' names, from 0 to 40 bytes, so that the guess a table
// compares a name with is often longer, or shorter only by its NUL.
TEST(JsonMemberTable, FindsMembersWhereverTheirNamesLie) {
  const std::string letters = "abcdefghijklmnopqrstuvwxyz0123456789ABCDEFGHIJKLMN";
  std::vector<std::string> texts;
  for (size_t length : {0, 1, 7, 8, 9, 14, 15, 16, 17, 31, 32, 33, 40}) texts.push_back(letters.substr(0, length));
  texts.push_back("abcdefgh_other");
  texts.push_back("abcdefghijklmnoZ");
  texts.push_back(letters.substr(0, 16));  // a duplicate name: its slot copies the first one's
  std::vector<const char*> names;
  for (const std::string& text : texts) names.push_back(text.c_str());
  const _quarn_framework::JsonMemberTable table(names.data(), static_cast<int>(names.size()));
  const std::vector<uint8_t> weights(names.size(), 1);

  const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  void* mapping = mmap(nullptr, 3 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(mapping, MAP_FAILED);
  char* middle = static_cast<char*>(mapping) + page;
  ASSERT_EQ(mprotect(mapping, page, PROT_NONE), 0);
  ASSERT_EQ(mprotect(middle + page, page, PROT_NONE), 0);
  // Each object: a member before, the placed one, a member after.
  auto check = [&](const char* placed) {
    SCOPED_TRACE(testing::Message() << "member " << placed << " at offset "
                                    << (reinterpret_cast<uintptr_t>(placed) & 15));
    Json root(cJSON_CreateObject(), cJSON_Delete);
    cJSON_AddItemToObject(root.get(), letters.substr(0, 9).c_str(), cJSON_CreateNumber(1));
    cJSON_AddItemToObjectCS(root.get(), placed, cJSON_CreateNumber(2));  // names `placed`, not a copy
    cJSON_AddItemToObject(root.get(), letters.substr(0, 32).c_str(), cJSON_CreateNumber(3));
    std::vector<cJSON*> slots(names.size());
    const int weight = table.Gather(root.get(), slots.data(), weights.data());
    int found = 0;
    for (size_t i = 0; i < names.size(); ++i) {
      EXPECT_EQ(slots[i], _quarn_framework::FindMember(root.get(), names[i])) << names[i];
      found += slots[i] != nullptr;
    }
    EXPECT_EQ(weight, found);
  };
  for (size_t length = 0; length <= 40; ++length) {
    const std::string text = letters.substr(0, length);
    for (const std::string& other : {text, text + "q", "x" + text}) {
      char* at_end = middle + page - 1 - other.size();
      std::memcpy(at_end, other.c_str(), other.size() + 1);
      check(at_end);
      std::memcpy(middle, other.c_str(), other.size() + 1);
      check(middle);
      for (size_t offset = 1; offset < 16; ++offset) {
        std::memcpy(middle + 64 + offset, other.c_str(), other.size() + 1);
        check(middle + 64 + offset);
      }
    }
  }
  munmap(mapping, 3 * page);
}

}  // namespace
