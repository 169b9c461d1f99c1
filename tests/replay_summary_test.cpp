// The replay summary: grouping of diagnostics, its order, merging of
// partial summaries, its two printed forms, and poiparse --summary.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "TestSupport.h"
#include "tools/AnswerRun.h"
#include "tools/ReplaySummary.h"

namespace {

using _quarn_framework::CVDiagnostics;
using poiparse_support::AnswerOutcome;
using poiparse_support::AnswerRecord;
using poiparse_support::ReplaySummary;
using testing_support::RunTool;
using testing_support::ToolOutcome;

TEST(ReplaySummary, GroupPathWritesEveryIndexAsAStar) {
  const std::pair<const char*, const char*> cases[] = {
      {"$", "$"},
      {"$.poi_result.contents[12].tel", "$.poi_result.contents[*].tel"},
      {"$.a[0][3].b[10]", "$.a[*][*].b[*]"},
      // A quoted member name is a name, brackets and all.
      {"$['a[1]'][2]", "$['a[1]'][*]"},
      {"$['it\\'s [3]'].x[4]", "$['it\\'s [3]'].x[*]"},
      {"$['\\\\'][5]", "$['\\\\'][*]"},
      // Not an index.
      {"$.a[]", "$.a[]"},
      {"$.a[1x]", "$.a[1x]"},
      {"$.a[7", "$.a[7"},
      {"?", "?"},
  };
  for (const auto& c : cases) EXPECT_EQ(poiparse_support::GroupPath(c.first), c.second) << c.first;
}

TEST(ReplaySummary, InvalidUtf8BecomesReplacementCharacters) {
  const std::pair<std::string, std::string> cases[] = {
      {"plain", "plain"},
      {"\xE4\xB8\xAD\xE6\x96\x87", "\xE4\xB8\xAD\xE6\x96\x87"},
      {"a\xFF" "b", "a\xEF\xBF\xBD" "b"},
      {"\xE4\xB8", "\xEF\xBF\xBD"},            // cut short: one replacement
      {"\xC0\xAF", "\xEF\xBF\xBD\xEF\xBF\xBD"},  // overlong: two
      {"\xED\xA0\x80", "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"},  // an encoded surrogate
  };
  for (const auto& c : cases) EXPECT_EQ(poiparse_support::ValidUtf8(c.first), c.second);
}

// A record with the given diagnostics (path, severity letter r/s/w, message).
AnswerRecord Record(AnswerOutcome outcome, const char* kind,
                    std::vector<std::tuple<const char*, char, const char*>> diagnostics = {}) {
  AnswerRecord record;
  record.outcome = outcome;
  record.kind = kind;
  for (const auto& d : diagnostics) {
    const char s = std::get<1>(d);
    record.diagnostics.push_back({std::get<0>(d),
                                  s == 'r'   ? CVDiagnostics::kRefused
                                  : s == 's' ? CVDiagnostics::kSkipped
                                             : CVDiagnostics::kWarning,
                                  std::get<2>(d)});
  }
  return record;
}

TEST(ReplaySummary, PrintsCountsKindsAndGroupsInTheirOrder) {
  ReplaySummary summary;
  summary.AddSource("log:2.jsonl", 9);
  const AnswerOutcome kA = AnswerOutcome::kAccepted;
  summary.Add(0, 1, Record(kA, "poi-list", {{"$.b", 's', "x"}, {"$.a", 's', "x"}}));
  summary.Add(0, 2, Record(AnswerOutcome::kInvalid, nullptr));
  summary.Add(0, 4, Record(kA, "city-list", {{"$.c", 's', "tab\there \"q\" \x01"}, {"$.b", 's', "x"}}));
  summary.Add(0, 5, Record(AnswerOutcome::kRefused, "poi-list", {{"$.d", 'r', "status"}, {"$.d", 's', "status"}}));
  summary.Add(0, 9, Record(AnswerOutcome::kOutOfMemory, nullptr));
  // $.b (2) first; then the groups of count 1 by first position, then by
  // path, severity and message.
  EXPECT_EQ(summary.ToJson(), R"({
  "answers": 5,
  "accepted": 2,
  "refused": 1,
  "invalid": 1,
  "out_of_memory": 1,
  "kinds": {
    "poi-list": 2,
    "city-list": 1
  },
  "diagnostics": [
    {
      "path": "$.b",
      "severity": "skipped",
      "message": "x",
      "count": 2,
      "first": "log:2.jsonl:1"
    },
    {
      "path": "$.a",
      "severity": "skipped",
      "message": "x",
      "count": 1,
      "first": "log:2.jsonl:1"
    },
    {
      "path": "$.c",
      "severity": "skipped",
      "message": "tab\there \"q\" \u0001",
      "count": 1,
      "first": "log:2.jsonl:4"
    },
    {
      "path": "$.d",
      "severity": "refused",
      "message": "status",
      "count": 1,
      "first": "log:2.jsonl:5"
    },
    {
      "path": "$.d",
      "severity": "skipped",
      "message": "status",
      "count": 1,
      "first": "log:2.jsonl:5"
    }
  ],
  "sources": [
    {
      "name": "log:2.jsonl",
      "lines": 9
    }
  ]
}
)");
  EXPECT_EQ(summary.ToTable(),
            "5 answers: 2 accepted, 1 refused, 1 invalid, 1 out of memory\n"
            "\n"
            "kind       answers\n"
            "poi-list         2\n"
            "city-list        1\n"
            "\n"
            "count  severity  first          path  message\n"
            "    2  skipped   log:2.jsonl:1  $.b   x\n"
            "    1  skipped   log:2.jsonl:1  $.a   x\n"
            "    1  skipped   log:2.jsonl:4  $.c   tab\there \"q\" \x01\n"
            "    1  refused   log:2.jsonl:5  $.d   status\n"
            "    1  skipped   log:2.jsonl:5  $.d   status\n");
  ReplaySummary::Position first;
  ASSERT_TRUE(summary.ParseFirst("log:2.jsonl:4", &first));
  EXPECT_EQ(first.source, 0u);
  EXPECT_EQ(first.line, 4u);
  EXPECT_FALSE(summary.ParseFirst("other:4", &first));
  EXPECT_FALSE(summary.ParseFirst("log:2.jsonl:", &first));
}

TEST(ReplaySummary, EmptySummary) {
  ReplaySummary summary;
  EXPECT_EQ(summary.ToJson(),
            "{\n  \"answers\": 0,\n  \"accepted\": 0,\n  \"refused\": 0,\n  \"invalid\": 0,\n"
            "  \"out_of_memory\": 0,\n  \"kinds\": {},\n  \"diagnostics\": [],\n  \"sources\": []\n}\n");
  EXPECT_EQ(summary.ToTable(), "0 answers: 0 accepted, 0 refused, 0 invalid, 0 out of memory\n");
}

// A small log with diagnostics that repeat, blank lines, an invalid line and
// a lenient text, run as the tool runs each line.
const char* const kLog[] = {
    R"({"result":{"error":0},"poi_result":{"option":{},"place_info":{},"contents":[{"name":"A","tel":{}},3]}})",
    "",
    R"({"result":{"error":0},"traffic_citys":{"contents":[{"code":"x"},{"code":2}]}})",
    R"({"result":{"error":0},"poi_result":{"option":{"total":"5"},"place_info":{},"contents":[7,{"tel":[]}]}})",
    "{\"bad",
    "   ",
    R"({"result":{"error":3},"traffic_citys":{}})",
    "{\"result\":{\"error\":0},\"traffic_citys\":{\"contents\":[{\"code\":01}]}}",
    R"({"result":{"error":0},"poi_result":{"option":{},"place_info":{},"contents":[{"tel":1}]}})",
    "{\"result\":{\"error\":0},\"traffic_citys\":{\"contents\":[{\"code\":001}]}}",
};
constexpr size_t kLogLines = sizeof(kLog) / sizeof(kLog[0]);

// The summary of lines [begin, end) of kLog as a part of its own: lines
// numbered from 1, under source `name`.
ReplaySummary PartOf(size_t begin, size_t end, const char* name = "log.jsonl") {
  ReplaySummary summary;
  const size_t source = summary.AddSource(name, end - begin);
  poiparse_support::RunOptions options;
  options.explain = true;
  for (size_t i = begin; i < end; ++i) {
    const std::string text = kLog[i];
    if (text.find_first_not_of(" ") == std::string::npos) continue;
    poiparse_support::AnswerRun run;
    poiparse_support::RunAnswer(text.data(), text.size(), 1, options, &run);
    AnswerRecord record;
    if (run.status == poiparse_support::RunStatus::kParsed) record = poiparse_support::RecordOf(run);
    summary.Add(source, i - begin + 1, record);
  }
  return summary;
}

TEST(ReplaySummary, MergingThePartsOfAnySplitGivesTheWhole) {
  const std::string whole = PartOf(0, kLogLines).ToJson();
  // The lenient lines (8 and 10) make one group, whatever their positions.
  EXPECT_NE(whole.find("\"message\": \"not strict JSON, accepted through cJSON's leniencies: leading zero in a "
                       "number\",\n      \"count\": 2,\n      \"first\": \"log.jsonl:8\""),
            std::string::npos)
      << whole;
  EXPECT_NE(whole.find("\"path\": \"$.poi_result.contents[*].tel\""), std::string::npos);
  for (size_t a = 0; a <= kLogLines; ++a) {
    for (size_t b = a; b <= kLogLines; ++b) {
      SCOPED_TRACE("split at " + std::to_string(a) + " and " + std::to_string(b));
      ReplaySummary merged = PartOf(0, a);
      merged.Merge(PartOf(a, b));
      merged.Merge(PartOf(b, kLogLines));
      EXPECT_EQ(merged.ToJson(), whole);
    }
  }
}

// A part whose first source is not the last source before it starts a
// source of its own; one that continues it shifts its lines.
TEST(ReplaySummary, MergingKeepsSourcesApart) {
  ReplaySummary merged = PartOf(0, 3, "a.jsonl");
  merged.Merge(PartOf(3, 6, "a.jsonl"));
  merged.Merge(PartOf(0, 2, "b.jsonl"));
  merged.Merge(PartOf(6, kLogLines, "b.jsonl"));  // b.jsonl's lines 3 to 6
  const std::string json = merged.ToJson();
  EXPECT_NE(json.find("\"name\": \"a.jsonl\",\n      \"lines\": 6"), std::string::npos) << json;
  EXPECT_NE(json.find("\"name\": \"b.jsonl\",\n      \"lines\": 6"), std::string::npos) << json;
  const std::pair<const char*, const char*> firsts[] = {
      {"array where text was expected", "\"count\": 1,\n      \"first\": \"a.jsonl:4\""},
      {"$.result.error\",\n      \"severity\": \"refused", "\"count\": 1,\n      \"first\": \"b.jsonl:3\""},
      {"leniencies: leading zero in a number", "\"count\": 2,\n      \"first\": \"b.jsonl:4\""},
  };
  for (const auto& f : firsts) {
    const size_t at = json.find(f.first);
    ASSERT_NE(at, std::string::npos) << f.first << json;
    EXPECT_EQ(json.find(f.second, at), json.find("\"count\"", at)) << f.first << json;
  }
}

TEST(ReplaySummary, ToolPrintsTheSameOnAnyNumberOfThreadsAndKeepsItsExitStatus) {
  std::string log;
  for (int copy = 0; copy < 30; ++copy) {
    for (const char* line : kLog) log += std::string(line) + "\n";
  }
  ToolOutcome one = RunTool("--jsonl --summary -q -j 1", log);
  ToolOutcome three = RunTool("--jsonl --summary -q -j 3", log);
  EXPECT_EQ(one.status, 2);  // the invalid lines
  EXPECT_EQ(three.status, 2);
  EXPECT_EQ(one.out, three.out);
  ReplaySummary whole = PartOf(0, kLogLines, "<stdin>");
  for (int copy = 1; copy < 30; ++copy) whole.Merge(PartOf(0, kLogLines, "<stdin>"));
  EXPECT_EQ(one.out, whole.ToJson());
  EXPECT_EQ(RunTool("--jsonl --summary --format table -q", log).out, whole.ToTable());

  const char kCity[] = R"({"result": {"error": 0}, "traffic_citys": {"contents": [{"code": 1}]}})";
  ToolOutcome accepted = RunTool("--summary", kCity);
  EXPECT_EQ(accepted.status, 0);
  EXPECT_NE(accepted.out.find("\"kinds\": {\n    \"city-list\": 1\n  },"), std::string::npos) << accepted.out;
  EXPECT_NE(accepted.out.find("\"name\": \"<stdin>\",\n      \"lines\": 1"), std::string::npos) << accepted.out;
  EXPECT_EQ(RunTool("--summary", R"({"result": {"error": 1}, "traffic_citys": {}})").status, 1);
}

TEST(ReplaySummary, FormatGoesWithSummary) {
  ToolOutcome o = RunTool("--format table", "{}");
  EXPECT_EQ(o.status, 2);
  EXPECT_NE(o.err.find("--format goes with --summary"), std::string::npos);
  o = RunTool("--summary --format xml", "{}");
  EXPECT_EQ(o.status, 2);
  EXPECT_NE(o.err.find("--format takes json or table"), std::string::npos);
}

}  // namespace
