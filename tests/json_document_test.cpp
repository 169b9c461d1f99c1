// CJsonDocument against cJSON_ParseWithOpts: the same tree node for node, or
// the same refusal, over the examples, every JSON text the tests write, the
// fuzz seeds and a table of tricky texts; strictness and refusal reasons;
// hostile sizes.
#include "json_readers/JsonDocument.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <dirent.h>

#include "JsonTreeCompare.h"
#include "TestSupport.h"

namespace {

using _quarn_framework::CJsonDocument;
using testing_support::TreeDifference;

struct Outcome {
  bool accepted;
  bool strict;
};

// Parses `text` with `document` and with cJSON from a NUL-terminated copy,
// and expects the same tree or the same refusal.
Outcome ExpectSameAsCjson(CJsonDocument& document, const std::string& text) {
  cJSON* root = document.Parse(text.data(), text.size());
  if (text.find('\0') != std::string::npos) {
    EXPECT_EQ(root, nullptr);
    EXPECT_STREQ(document.ErrorMessage(), "NUL byte in the text");
    EXPECT_EQ(document.ErrorOffset(), text.find('\0'));
    return {false, false};
  }
  const char* end = nullptr;
  cJSON* expected = cJSON_ParseWithOpts(text.c_str(), &end, 1);
  EXPECT_EQ(root != nullptr, expected != nullptr);
  if (root != nullptr) {
    EXPECT_EQ(root->prev, nullptr);
    EXPECT_EQ(root->next, nullptr);
    EXPECT_EQ(TreeDifference(root, expected), "");
  } else if (expected == nullptr) {
    // cJSON points one byte past a member name that is not a string.
    const size_t cjson_offset = static_cast<size_t>(end - text.c_str());
    EXPECT_TRUE(document.ErrorOffset() == cjson_offset || document.ErrorOffset() + 1 == cjson_offset);
    EXPECT_STRNE(document.ErrorMessage(), "");
  }
  cJSON_Delete(expected);
  return {root != nullptr, root != nullptr && document.IsStrict()};
}

std::string Shorten(const std::string& text) { return text.size() > 80 ? text.substr(0, 80) + "..." : text; }

// Every raw string literal R"(...)" of the tests' sources.
std::vector<std::string> TestLiterals() {
  std::vector<std::string> texts;
  DIR* dir = opendir(SOURCE_DIR "/tests");
  if (dir == nullptr) return texts;
  while (dirent* entry = readdir(dir)) {
    const std::string file = entry->d_name;
    if (file.size() < 9 || file.compare(file.size() - 9, 9, "_test.cpp") != 0) continue;
    const std::string code = testing_support::ReadFile(SOURCE_DIR "/tests/" + file);
    for (size_t at = code.find("R\"("); at != std::string::npos; at = code.find("R\"(", at)) {
      const size_t end = code.find(")\"", at + 3);
      if (end == std::string::npos) break;
      texts.push_back(code.substr(at + 3, end - at - 3));
      at = end + 2;
    }
  }
  closedir(dir);
  return texts;
}

// The answer target's seeds, without their control byte.
std::vector<std::string> FuzzSeeds() {
  std::vector<std::string> texts;
  const std::string folder = SOURCE_DIR "/fuzz/corpus/answer/";
  DIR* dir = opendir(folder.c_str());
  if (dir == nullptr) return texts;
  while (dirent* entry = readdir(dir)) {
    if (entry->d_name[0] == '.') continue;
    const std::string data = testing_support::ReadFile(folder + entry->d_name);
    if (!data.empty()) texts.push_back(data.substr(1));
  }
  closedir(dir);
  return texts;
}

TEST(JsonDocument, EveryExampleTestTextAndSeedGivesCjsonsTree) {
  CJsonDocument document;  // one document for all: reuse is part of the test
  int accepted = 0;
  std::vector<std::string> texts;
  for (const std::string& name : testing_support::ExampleNames()) texts.push_back(testing_support::ReadExample(name));
  const size_t examples = texts.size();
  for (const std::string& text : TestLiterals()) texts.push_back(text);
  for (const std::string& text : FuzzSeeds()) texts.push_back(text);
  for (size_t i = 0; i < texts.size(); ++i) {
    SCOPED_TRACE(Shorten(texts[i]));
    const Outcome outcome = ExpectSameAsCjson(document, texts[i]);
    accepted += outcome.accepted;
    if (i < examples) {
      EXPECT_TRUE(outcome.strict);
      EXPECT_EQ(document.TreeIsOwn(), CJsonDocument::UsesSimdjson());
    }
  }
  EXPECT_GT(examples, 10u);
  EXPECT_GT(accepted, 300);
}

// Every operation of the examples' table gives the same bundle from the
// document's tree as from cJSON's.
TEST(JsonDocument, OperationsGiveTheSameBundlesOnBothTrees) {
  CJsonDocument document;
  for (const testing_support::ExampleOp& row : testing_support::ExampleOps()) {
    SCOPED_TRACE(row.op_name);
    const std::string text = testing_support::ReadExample(row.example);
    testing_support::Json expected_root = testing_support::ParseJson(text);
    cJSON* root = document.Parse(text.data(), text.size());
    ASSERT_NE(root, nullptr);
    for (bool utf8 : {false, true}) {
      std::string bundles[2];
      cJSON* roots[2] = {root, expected_root.get()};
      for (int k = 0; k < 2; ++k) {
        testing_support::TextModeScope mode(utf8);
        _quarn_vi::CVBundle bundle;
        cJSON* node = testing_support::NodeAt(roots[k], row.path);
        int result;
        if (row.op != nullptr) {
          result = row.op(node, bundle);
        } else {
          testing_support::P::BundleArray array;
          result = row.array_op(node, array);
          bundle.SetBundleArray("list", std::move(array));
        }
        bundles[k] = std::to_string(result) + testing_support::ToJson(bundle);
      }
      EXPECT_EQ(bundles[0], bundles[1]);
    }
  }
}

std::string Nested(int levels, const char* open, const char* close, const char* inner = "1") {
  std::string text;
  for (int i = 0; i < levels; ++i) text += open;
  text += inner;
  for (int i = 0; i < levels; ++i) text += close;
  return text;
}

struct Tricky {
  std::string text;
  bool accepted;
  bool strict;          // when accepted
  const char* message;  // the refusal reason, or the leniency; "" = not checked
};

// Whether the linked cJSON refuses numbers of more than 63 bytes (1.7.15
// without Debian's fix).
bool CjsonCutsLongNumbers() {
  cJSON* tree = cJSON_Parse(("[" + std::string(64, '1') + "]").c_str());
  cJSON_Delete(tree);
  return tree == nullptr;
}

std::vector<Tricky> TrickyTexts() {
  const std::string digits63 = "1" + std::string(62, '0');
  const bool cut = CjsonCutsLongNumbers();
  const char* cut_reason = cut ? "number longer than 63 characters" : "";
  return {
      // Numbers at every edge.
      {"[0, -0, 0.0, -0.0, -0e5, 0e-999, -0.0e-999, 1E400, -1e400, 1e-400, -1e-400]", true, true, ""},
      {"[2147483647, 2147483648, -2147483648, -2147483649, 2147483647.5, -2147483648.9, 1e10, -1e10]", true, true, ""},
      {"[9007199254740991, 9007199254740993, 9223372036854775807, 9223372036854775808, -9223372036854775808, "
       "-9223372036854775809, 18446744073709551615, 18446744073709551616, 123456789012345678901234567890]",
       true, true, ""},
      {"[1.7976931348623157e308, 1.7976931348623159e308, 4.9e-324, 2.4703282292062327e-324, "
       "2.4703282292062328e-324, 2.2250738585072011e-308, 0.1, 0.30000000000000004, 1e23, 8.98846567431158e307]",
       true, true, ""},
      {"[3.14159265358979323846264338327950288419716939937510582097494459]", true, true, ""},  // 63 bytes
      {"[" + digits63 + "]", true, true, ""},
      {digits63, true, true, ""},
      {"[" + digits63 + "0]", !cut, true, cut_reason},
      {digits63 + "0", !cut, true, cut_reason},
      {"{\"a\": -0.00000000000000000000000000000000000000000000000000000000000001}", !cut, true, cut_reason},
      {"[" + std::string(400, '9') + "." + std::string(400, '9') + "e-400]", !cut, true, cut_reason},
      {"[1, 2]   \t\r\n", true, true, ""},
      {"[01]", true, false, "leading zero in a number"},
      {"[1.]", true, false, "number without a digit after the point"},
      {"[-.5]", true, false, "number without digits"},
      {"[1.e5]", true, false, "number without a digit after the point"},
      {"[1e]", false, false, "unexpected character"},
      {"[+1]", false, false, "unexpected character"},
      {"[.5]", false, false, "unexpected character"},
      {"-", false, false, ""},
      // Escapes and surrogates.
      {R"(["\" \\ \/ \b \f \n \r \t", "\u0041\u00e9\u4e2d\uFFFF", "\u0000", "a\u0000b"])", true, true, ""},
      {R"(["\uD83D\uDE00", "\uDBFF\uDFFF", "\ud800\udc00"])", true, true, ""},
      {R"(["\uD800"])", false, false, "invalid escape in a string"},
      {R"(["\uDC00"])", false, false, "invalid escape in a string"},
      {R"(["\uD800\u0041"])", false, false, "invalid escape in a string"},
      {R"(["\uD800x"])", false, false, "invalid escape in a string"},
      {R"(["\u00zz"])", true, false, "invalid \\u escape"},
      {R"(["\x"])", false, false, "invalid escape in a string"},
      {R"(["abc)", false, false, "unclosed string"},
      {R"(["abc\)", false, false, "unclosed string"},
      {R"({"a\u0000b": 1})", true, true, ""},
      // Bytes.
      {"[\"caf\xC3\xA9\", \"\xE4\xB8\xAD\", \"\xF0\x9F\x98\x80\"]", true, true, ""},
      {"[\"\xFF\"]", true, false, "invalid UTF-8"},
      {"[\"\xC0\xAF\"]", true, false, "invalid UTF-8"},
      {"[\"\xED\xA0\x80\"]", true, false, "invalid UTF-8"},
      {"[\"\xF4\x90\x80\x80\"]", true, false, "invalid UTF-8"},
      {"[\"\xE4\xB8\"]", true, false, "invalid UTF-8"},
      {"[\"a\tb\"]", true, false, "unescaped control byte in a string"},
      {"[\"a\x01\"]", true, false, "unescaped control byte in a string"},
      {"[1,\x01 2]", true, false, "control byte as white space"},
      {"\x1F{}", true, false, "control byte as white space"},
      {"{}\x7F", false, false, "text after the JSON value"},
      {"\xEF\xBB\xBF{\"a\": 1}", true, false, "byte order mark"},
      {"{\"a\": 1}\xEF\xBB\xBF", false, false, "text after the JSON value"},
      // Structure.
      {"", false, false, "empty text"},
      {"  \n ", false, false, "empty text"},
      {"1", true, true, ""},
      {"\"x\"", true, true, ""},
      {"true", true, true, ""},
      {"null", true, true, ""},
      {"tru", false, false, "unexpected character"},
      {"[true1]", false, false, ""},
      {"{\"a\": 1, \"a\": 2, \"b\": {\"a\": [], \"a\": {}}}", true, true, ""},
      {"[[], {}, [[]], [{}], {\"\": \"\"}]", true, true, ""},
      {"[1, 2,]", false, false, "unexpected character"},
      {"{\"a\": 1,}", false, false, "member name that is not a string"},
      {"{\"a\": 1, b: 2}", false, false, "member name that is not a string"},
      {"{\"a\": [1, 2x]}", false, false, "unexpected character"},
      {"{\"a\" 1}", false, false, "unexpected character"},
      {"{1: 2}", false, false, "member name that is not a string"},
      {"[1] x", false, false, "text after the JSON value"},
      {"{} {}", false, false, "text after the JSON value"},
      {"[1", false, false, "unexpected end of text"},
      {"{\"a\":", false, false, "unexpected end of text"},
      // Nesting: cJSON takes 1000 levels and refuses 1001.
      {Nested(999, "[", "]"), true, true, ""},
      {Nested(1000, "[", "]"), true, true, ""},
      {Nested(1001, "[", "]"), false, false, "nesting deeper than 1000 levels"},
      {Nested(1024, "[", "]"), false, false, "nesting deeper than 1000 levels"},
      {Nested(1025, "[", "]"), false, false, "nesting deeper than 1000 levels"},
      {Nested(500, "{\"a\":[", "]}"), true, true, ""},
      {Nested(500, "{\"a\":[", "]}", "[]"), false, false, "nesting deeper than 1000 levels"},
      {Nested(1000, "[", "]", "-0"), true, true, ""},
      {Nested(1001, "[", "]", "\x01"), false, false, "nesting deeper than 1000 levels"},
      // NUL bytes: refused wherever they are.
      {std::string("[1]\0", 4), false, false, "NUL byte in the text"},
      {std::string("[\"a\0b\"]", 7), false, false, "NUL byte in the text"},
      {std::string("\0", 1), false, false, "NUL byte in the text"},
  };
}

TEST(JsonDocument, TrickyTextsGiveCjsonsTreeAndTheirStrictness) {
  CJsonDocument document;
  for (const Tricky& row : TrickyTexts()) {
    SCOPED_TRACE(Shorten(row.text));
    const Outcome outcome = ExpectSameAsCjson(document, row.text);
    EXPECT_EQ(outcome.accepted, row.accepted);
    if (row.accepted) {
      EXPECT_EQ(outcome.strict, row.strict);
      if (*row.message != '\0') {
        EXPECT_STREQ(document.LeniencyMessage(), row.message);
      }
      size_t offset = 0;
      EXPECT_EQ(CJsonDocument::FindLeniency(row.text.data(), row.text.size(), &offset) == nullptr, row.strict);
      EXPECT_EQ(offset, document.LeniencyOffset());
    } else if (*row.message != '\0') {
      EXPECT_STREQ(document.ErrorMessage(), row.message);
    }
  }
}

// Numbers of every shape and length, each in a text of its own (a number
// that simdjson refuses sends its whole text to cJSON), against strtod
// through cJSON.
TEST(JsonDocument, RandomNumbersAgreeBitForBit) {
  std::mt19937_64 random(16);
  CJsonDocument document;
  char buffer[64];
  int own = 0, texts = 0;
  auto check = [&](const std::string& number) {
    SCOPED_TRACE(number);
    const Outcome outcome = ExpectSameAsCjson(document, "[" + number + "]");
    EXPECT_TRUE(outcome.accepted);
    EXPECT_TRUE(outcome.strict);
    own += document.TreeIsOwn();
    ++texts;
  };
  for (int i = 0; i < 3000; ++i) {
    uint64_t bits = random();
    double value;
    std::memcpy(&value, &bits, sizeof(value));
    if (std::isfinite(value)) {
      if (i % 2) {
        std::snprintf(buffer, sizeof(buffer), "%.17g", value);
      } else {
        std::snprintf(buffer, sizeof(buffer), "%.*e", i % 25, value);
      }
      check(buffer);
    }
    // Digit strings, integers and fractions, up to 45 digits.
    std::string digits = std::to_string(random() % 9 + 1);
    const size_t length = random() % (i % 2 ? 19 : 45);
    for (size_t k = 0; k < length; ++k) digits += static_cast<char>('0' + random() % 10);
    if (i % 3 == 0) digits.insert(1 + random() % digits.size(), ".");
    if (digits.back() == '.') digits += "5";
    if (i % 5 == 0) digits = "-" + digits;
    if (i % 7 == 0) digits += "e-" + std::to_string(random() % 330);
    check(digits);
  }
  if (CJsonDocument::UsesSimdjson()) {
    EXPECT_GT(own, texts * 3 / 4);
  }
}

TEST(JsonDocument, ReusesItsTreeAcrossTextsOfEveryKind) {
  CJsonDocument document;
  const std::string big = testing_support::ReadExample("poi_list");
  const char* texts[] = {"{\"a\": [1, 2, {\"b\": \"c\"}]}", "[01]", "{", "\"s\"", "[1,\x01 2]", "[]"};
  for (int round = 0; round < 2; ++round) {
    ExpectSameAsCjson(document, big);
    for (const char* text : texts) {
      SCOPED_TRACE(text);
      ExpectSameAsCjson(document, text);
      EXPECT_EQ(document.Root() != nullptr, document.ErrorMessage()[0] == '\0');
    }
  }
}

// Hostile sizes: a million-element array and a 100 MB string take linear
// time and memory.
TEST(JsonDocument, HostileSizesParseInLinearTimeAndMemory) {
  auto array_of = [](size_t count) {
    std::string text = "[";
    for (size_t i = 0; i < count; ++i) text += i == 0 ? "7" : ",7";
    return text + "]";
  };
  CJsonDocument document;
  auto seconds = [&document](const std::string& text) {
    auto start = std::chrono::steady_clock::now();
    document.Parse(text.data(), text.size());
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  };
  const std::string small = array_of(100000);
  const std::string large = array_of(1000000);
  seconds(large);  // warm: the buffers grow once
  const double t_small = seconds(small);
  const double t_large = seconds(large);
  ASSERT_NE(document.Root(), nullptr);
  EXPECT_EQ(cJSON_GetArraySize(document.Root()), 1000000);
  EXPECT_EQ(cJSON_GetArrayItem(document.Root(), 999999)->valueint, 7);
  EXPECT_LT(t_large, 40 * t_small + 0.5);  // 10 times the elements; quadratic would be 100
  if (CJsonDocument::UsesSimdjson()) {
    EXPECT_LE(document.TreeBytes(), 1000001 * sizeof(cJSON) + 64);
  }

  std::string huge(100u << 20, 'x');
  huge.front() = '"';
  huge.back() = '"';
  cJSON* root = document.Parse(huge.data(), huge.size());
  ASSERT_NE(root, nullptr);
  EXPECT_EQ(std::strlen(root->valuestring), huge.size() - 2);
  EXPECT_TRUE(document.IsStrict());
}

}  // namespace
