// poiparse as a process: exit codes, input sources and error messages. A
// refused answer (exit status 1) and an explicit --kind are golden examples.
#include <gtest/gtest.h>

#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstdio>
#include <fstream>
#include <string>

#include "PoiparserVersion.h"
#include "TestSupport.h"

namespace {

using testing_support::RunTool;
using testing_support::ToolOutcome;

const char kGoodCityList[] = R"({"result": {"error": 0}, "traffic_citys": {"contents": [{"code": 1}]}})";

TEST(ToolCli, ErrorsExitTwoWithAMessage) {
  struct Case {
    const char* args;
    const char* input;
    const char* message;
  } cases[] = {
      {"", "{\"result\": {\"error\": 0},\n  \"traffic_citys\": [1,]}",
       "<stdin>:2:23: invalid JSON: unexpected character"},
      {"", "", "<stdin>:1:1: invalid JSON: empty text"},
      {"", "not json at all", "<stdin>:1:1: invalid JSON: unexpected character"},
      {"", "{} trailing", "<stdin>:1:4: invalid JSON: text after the JSON value"},
      {"--parser cjson", "{} trailing", "<stdin>:1:4: invalid JSON: text after the JSON value"},
      {"", "{\"a\": \"b\n", "<stdin>:1:7: invalid JSON: unclosed string"},
      {"--parser cjson", "{\"a\": 1,\n}", "<stdin>:2:1: invalid JSON: member name that is not a string"},
      {"", "{\"a\": 1,\n}", "<stdin>:2:1: invalid JSON: member name that is not a string"},
      {"--parser simd", "{}", "--parser takes document or cjson"},
      {"", "{\"a\": 1}", "--kind"},
      {"--kind no-such-kind", "{}", "unknown kind"},
      {"--kind", "{}", "needs a value"},
      {"--bogus", "{}", "poiparse: unknown option '--bogus'; see poiparse --help\n"},
      {"--kind city-qeury", "{}", "unknown kind 'city-qeury'; did you mean city-query? (see --list-kinds)"},
      {"--kind xyz", "{}", "unknown kind 'xyz' (see --list-kinds)"},
      {"--compact=0", kGoodCityList, "--compact takes no value"},
      {"--jsonl=yes", kGoodCityList, "--jsonl takes no value"},
      {"--quiet=1", kGoodCityList, "--quiet takes no value"},
      {"", "{\"a\": 1}\n{\"b\": 2}\n",
       "<stdin>:2:1: invalid JSON: text after the JSON value (a second JSON value: one answer per line? see --jsonl)"},
      {"/no/such/file.json", "", "/no/such/file.json: No such file or directory"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.args + std::string(" <<< ") + c.input);
    ToolOutcome o = RunTool(c.args, c.input);
    EXPECT_EQ(o.status, 2);
    EXPECT_NE(o.err.find(c.message), std::string::npos) << o.err;
    EXPECT_EQ(o.out, "");
    EXPECT_EQ(std::count(o.err.begin(), o.err.end(), '\n'), 1) << o.err;  // one line, no help text
  }
}

// Both parsers give the same output for every example, and --explain warns
// at "$" about a text that only cJSON's leniencies accept.
TEST(ToolCli, BothParsersAgreeAndLenientTextsGetAWarning) {
  for (const std::string& name : testing_support::ExampleNames()) {
    SCOPED_TRACE(name);
    const std::string stem = std::string(SOURCE_DIR) + "/examples/" + name;
    std::string args;  // the example's own arguments (its kind when the shape does not tell it)
    std::getline(std::ifstream(stem + ".args"), args);
    ToolOutcome document = RunTool("--explain " + args + " " + stem + ".json");
    ToolOutcome cjson = RunTool("--explain --parser cjson " + args + " " + stem + ".json");
    EXPECT_NE(document.status, 2) << document.err;
    EXPECT_EQ(document.out, cjson.out);
    EXPECT_EQ(document.status, cjson.status);
    EXPECT_EQ(document.out.find("warning"), std::string::npos);
  }
  const std::string lenient = "{\"result\": {\"error\": 0},\n \"traffic_citys\": {\"contents\": [{\"code\": 01}]}}";
  for (const char* parser : {"document", "cjson"}) {
    SCOPED_TRACE(parser);
    ToolOutcome o = RunTool(std::string("--compact --explain --parser ") + parser, lenient);
    EXPECT_EQ(o.status, 0);
    EXPECT_NE(o.out.find(R"({"path":"$","severity":"warning","message":"not strict JSON, accepted through )"
                         R"(cJSON's leniencies: leading zero in a number at line 2, column 42"})"),
              std::string::npos)
        << o.out;
    ToolOutcome quiet = RunTool(std::string("--compact --parser ") + parser, lenient);
    EXPECT_EQ(quiet.out.find("diagnostics"), std::string::npos);
  }
}

TEST(ToolCli, JsonlBatchesKeepInputOrderOnAnyNumberOfThreads) {
  std::string lines;
  for (int i = 0; i < 40; ++i) {
    lines += R"({"result": {"error": )" + std::to_string(i % 3 == 0 ? 1 : 0) +
             R"(}, "traffic_citys": {"contents": [{"code": )" + std::to_string(i) + "}]}}\n";
    if (i == 17) lines += "\n{\"result\": [1,}\n";  // a blank line, then invalid JSON
  }
  ToolOutcome one = RunTool("--jsonl -j 1", lines);
  ToolOutcome two = RunTool("--jsonl -j 2", lines);
  EXPECT_EQ(one.status, 2);
  EXPECT_EQ(two.status, 2);
  EXPECT_EQ(one.out, two.out);
  EXPECT_NE(one.err.find("<stdin>:20:15: invalid JSON"), std::string::npos) << one.err;
  EXPECT_NE(one.err.find("41 answers: 26 accepted, 14 refused, 1 invalid JSON"), std::string::npos) << one.err;
  // One compact line per non-blank input line, in input order.
  EXPECT_EQ(std::count(one.out.begin(), one.out.end(), '\n'), 41);
  EXPECT_NE(one.out.find("\n{\"line\": 20, \"error\": \"invalid JSON: unexpected character at column 15\"}\n"),
            std::string::npos);
  EXPECT_EQ(one.out.find("\"code\":0"), std::string::npos);  // the first answer was refused
  EXPECT_LT(one.out.find("\"code\":1}"), one.out.find("\"code\":2}"));
}

// Output line N answers the Nth non-blank input line: a line without an
// answer gives an error line at its place, numbered as in the input.
TEST(ToolCli, JsonlGivesOneOutputLinePerNonBlankInputLine) {
  const std::string good = R"({"result": {"error": 0}, "traffic_citys": {"contents": [{"code": 7}]}})";
  const std::string good_out =
      R"({"kind":"city-list","result":1,"bundle":{"count":1,"citys":[{"code":7}],"current_null":true}})";
  struct Case {
    const char* name;
    std::string input;
    std::string out;
    int status;
  } cases[] = {
      {"an invalid line", good + "\n{\"a\": tru}\n" + good + "\n",
       good_out + "\n{\"line\": 2, \"error\": \"invalid JSON: unexpected character at column 7\"}\n" + good_out + "\n",
       2},
      {"an unknown kind, after blank lines", "\n \t\r\n{\"a\": 1}\n" + good,
       "{\"line\": 3, \"error\": \"cannot tell the answer kind from its shape\"}\n" + good_out + "\n", 2},
      {"an empty value", good + "\r\n\"\"\n", good_out + "\n{\"line\": 2, \"error\": \"cannot tell the answer kind from its shape\"}\n",
       2},
      {"no final newline", good + "\n" + good, good_out + "\n" + good_out + "\n", 0},
      {"blank lines only", "\n\n  \n", "", 0},
      {"a refused answer", R"({"result": {"error": 2}, "traffic_citys": {}})",
       "{\"kind\":\"city-list\",\"result\":0,\"bundle\":{}}\n", 1},
  };
  for (const Case& c : cases) {
    for (const char* jobs : {"-j 1", "-j 3"}) {
      SCOPED_TRACE(std::string(c.name) + " " + jobs);
      ToolOutcome o = RunTool(std::string("--jsonl ") + jobs, c.input);
      EXPECT_EQ(o.out, c.out);
      EXPECT_EQ(o.status, c.status) << o.err;
    }
  }
}

// A write error on standard output is an error, whatever the mode.
TEST(ToolCli, WriteErrorsExitTwoWithAMessage) {
  std::string lines;
  for (int i = 0; i < 200; ++i) lines += std::string(kGoodCityList) + "\n";
  const struct {
    const char* args;
    std::string input;
  } cases[] = {{"--jsonl -j 1", lines}, {"--jsonl -j 2", lines}, {"--compact", kGoodCityList}, {"", kGoodCityList}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.args);
    ToolOutcome o = RunTool(std::string(c.args) + " >/dev/full", c.input);
    EXPECT_EQ(o.status, 2);
    EXPECT_NE(o.err.find("poiparse: standard output: No space left on device\n"), std::string::npos) << o.err;
  }
}

// --jsonl writes each answer as soon as it is parsed: the first answer
// comes out while the input is still open.
TEST(ToolCli, JsonlStreamsFromAPipe) {
  for (const char* jobs : {"-j 1", "-j 2"}) {
    SCOPED_TRACE(jobs);
    int in[2], out[2];
    ASSERT_EQ(pipe(in), 0);
    ASSERT_EQ(pipe(out), 0);
    const std::string command = std::string(POIPARSE_PATH) + " --jsonl " + jobs;
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      dup2(in[0], STDIN_FILENO);
      dup2(out[1], STDOUT_FILENO);
      close(in[0]), close(in[1]), close(out[0]), close(out[1]);
      execl("/bin/sh", "sh", "-c", command.c_str(), static_cast<char*>(nullptr));
      _exit(127);
    }
    close(in[0]);
    close(out[1]);
    auto read_line = [&]() {
      std::string line;
      char c;
      pollfd ready{out[0], POLLIN, 0};
      while (poll(&ready, 1, 20000) == 1 && read(out[0], &c, 1) == 1 && c != '\n') line.push_back(c);
      return line;
    };
    const std::string answer = std::string(kGoodCityList) + "\n";
    ASSERT_EQ(write(in[1], answer.data(), answer.size()), static_cast<ssize_t>(answer.size()));
    EXPECT_NE(read_line().find("\"city-list\""), std::string::npos);  // before the input ends
    ASSERT_EQ(write(in[1], "{\n", 2), 2);
    EXPECT_EQ(read_line(), "{\"line\": 2, \"error\": \"invalid JSON: unexpected end of text at column 2\"}");
    close(in[1]);
    EXPECT_EQ(read_line(), "");
    close(out[0]);
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 2);
  }
}

TEST(ToolCli, QuietSilencesTheSummary) {
  const std::string lines = std::string(kGoodCityList) + "\n{\n";
  EXPECT_NE(RunTool("--jsonl", lines).err.find("2 answers"), std::string::npos);
  const ToolOutcome quiet = RunTool("--jsonl -q", lines);
  EXPECT_EQ(quiet.err, "<stdin>:2:2: invalid JSON: unexpected end of text\n");  // errors are still told
  EXPECT_EQ(quiet.status, 2);
}

// Peak memory does not grow with the log: ten times the answers take about
// the same peak as one time (reading the whole log first added its length).
TEST(ToolCli, JsonlMemoryDoesNotGrowWithTheLog) {
  const std::string line = R"({"result": {"error": 0}, "traffic_citys": {"contents": [{"code": 1}]}, "pad": ")" +
                           std::string(64 << 10, 'x') + "\"}\n";
  const std::string path = testing::TempDir() + "poiparse_log_" + std::to_string(getpid()) + ".jsonl";
  auto peak_kb = [&](int lines, const char* jobs) {
    {
      std::ofstream log(path, std::ios::binary);
      for (int i = 0; i < lines; ++i) log << line;
    }
    // Freed memory is not held back for the address checker's sake here.
    const std::string command = "ASAN_OPTIONS=\"$ASAN_OPTIONS:quarantine_size_mb=0\" " + std::string(POIPARSE_PATH) +
                                " -q --jsonl " + jobs + " " + path + " >/dev/null";
    EXPECT_EQ(std::system(command.c_str()), 0);
    rusage usage{};
    getrusage(RUSAGE_CHILDREN, &usage);  // the largest child so far
    return usage.ru_maxrss;
  };
  for (const char* jobs : {"-j 1", "-j 2"}) {
    SCOPED_TRACE(jobs);
    const long small = peak_kb(50, jobs);   // 3 MB
    const long large = peak_kb(500, jobs);  // 32 MB
    EXPECT_LT(large - small, 12 << 10) << small << " KB, then " << large << " KB";
  }
  std::remove(path.c_str());
}

TEST(ToolCli, ManyFilesGiveOneAnswerEach) {
  const std::string path = testing::TempDir() + "poiparse_good_" + std::to_string(getpid()) + ".json";
  std::ofstream(path) << kGoodCityList;
  ToolOutcome o = RunTool("--compact " + path + " - " + path, R"({"result": {"error": 2}, "traffic_citys": {}})");
  EXPECT_EQ(o.status, 1);
  const std::string good = "{\"kind\":\"city-list\",\"result\":1,\"bundle\":{\"count\":1,\"citys\":[{\"code\":1}],"
                           "\"current_null\":true}}\n";
  EXPECT_EQ(o.out, good + "{\"kind\":\"city-list\",\"result\":0,\"bundle\":{}}\n" + good);
  EXPECT_NE(o.err.find("3 answers: 2 accepted, 1 refused"), std::string::npos) << o.err;
}

TEST(ToolCli, ColorOnlyWhenAskedOrOnATerminal) {
  EXPECT_EQ(RunTool("--compact", kGoodCityList).out.find("\x1b["), std::string::npos);
  EXPECT_NE(RunTool("--compact --color always", kGoodCityList).out.find("\x1b["), std::string::npos);
  EXPECT_EQ(RunTool("--color sometimes", kGoodCityList).status, 2);
}

TEST(ToolCli, HelpVersionAndKinds) {
  const ToolOutcome help = RunTool("--help");
  EXPECT_EQ(help.status, 0);
  EXPECT_NE(help.out.find("usage: poiparse"), std::string::npos);
  EXPECT_EQ(RunTool("--version").out, "poiparse " POIPARSER_VERSION_STRING "\n");
  EXPECT_EQ(std::to_string(POIPARSER_VERSION_MAJOR) + "." + std::to_string(POIPARSER_VERSION_MINOR) + "." +
                std::to_string(POIPARSER_VERSION_PATCH),
            POIPARSER_VERSION_STRING);
  EXPECT_NE(RunTool("--list-kinds").out.find("city-list"), std::string::npos);
}

}  // namespace
