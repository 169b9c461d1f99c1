// The tool's documentation against the tool: the README's shell examples run
// and print what the README shows, and the manual page and the bash
// completion know exactly the options of --help.
//
// The README's examples. In a ```sh block, a line starting with "$ " is a
// command (continued on the next line while it ends with '\'); the lines
// after it, up to the next "$ " line or the end of the block, are its
// expected standard output, compared byte for byte when there are any.
// Lines of a block before its first "$ " line, and blocks without one, are
// set-up commands (make run, make install, ...), not run. Each command runs
// under sh from the project root, with ./build/release/poiparse (the path
// the README gives, built by `make run`) replaced by this build's poiparse,
// so the test needs no release build. A command fails when it exits with 2
// or more (a usage error, a missing file, a command not found); the tool's
// 1 (an answer refused) is allowed. A bare `poiparse` in a command is an
// error: the README must name the path it is reached by.
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "TestSupport.h"

namespace {

using testing_support::ReadFile;

const char kReleaseTool[] = "./build/release/poiparse";

struct ShellOutcome {
  std::string out;
  std::string err;
  int status;  // -1 when the shell did not exit normally
};

// Runs `script` under sh from the project root.
ShellOutcome RunShell(const std::string& script) {
  static int calls = 0;
  const std::string err = testing::TempDir() + "tool_docs_" + std::to_string(getpid()) + "_" +
                          std::to_string(++calls) + ".err";
  const std::string command = "cd '" SOURCE_DIR "' && {\n" + script + "\n} </dev/null 2>'" + err + "'";
  ShellOutcome outcome{"", "", -1};
  if (FILE* pipe = popen(command.c_str(), "r")) {
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof(buf), pipe)) > 0) outcome.out.append(buf, n);
    const int status = pclose(pipe);
    outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  outcome.err = ReadFile(err);
  std::remove(err.c_str());
  return outcome;
}

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

bool StartsWith(const std::string& text, const std::string& prefix) { return text.rfind(prefix, 0) == 0; }

// ---- The README's examples -----------------------------------------------------

struct Example {
  size_t line;           // of the command in README.md, from 1
  std::string command;   // as written, continuation lines included
  std::string expected;  // the output shown, empty when none is
};

std::vector<Example> ReadmeExamples(const std::string& readme) {
  std::vector<Example> examples;
  const std::vector<std::string> lines = Lines(readme);
  bool in_shell_block = false, in_example = false;
  for (size_t i = 0; i < lines.size(); ++i) {
    const std::string& line = lines[i];
    if (StartsWith(line, "```")) {
      in_shell_block = !in_shell_block && line == "```sh";
      in_example = false;
      continue;
    }
    if (!in_shell_block) continue;
    if (StartsWith(line, "$ ")) {
      Example example{i + 1, line.substr(2), ""};
      while (!example.command.empty() && example.command.back() == '\\' && i + 1 < lines.size()) {
        example.command += "\n" + lines[++i];
      }
      examples.push_back(example);
      in_example = true;
    } else if (in_example) {
      examples.back().expected += line + "\n";
    }
  }
  return examples;
}

// True when `command` calls a bare poiparse (not through a path).
bool CallsBareTool(std::string command) {
  for (size_t at; (at = command.find(kReleaseTool)) != std::string::npos;) command.erase(at, sizeof(kReleaseTool) - 1);
  const auto word_byte = [](char c) { return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '-'; };
  for (size_t at = command.find("poiparse"); at != std::string::npos; at = command.find("poiparse", at + 1)) {
    const bool starts_word = at == 0 || (!word_byte(command[at - 1]) && command[at - 1] != '/' && command[at - 1] != '.');
    const size_t end = at + 8;
    const bool ends_word = end == command.size() || (!word_byte(command[end]) && command[end] != '.');
    if (starts_word && ends_word) return true;
  }
  return false;
}

TEST(ReadmeExamples, RunAsWrittenAndPrintWhatTheReadmeShows) {
  const std::vector<Example> examples = ReadmeExamples(ReadFile(SOURCE_DIR "/README.md"));
  ASSERT_GE(examples.size(), 5u);
  for (const Example& example : examples) {
    SCOPED_TRACE("README.md:" + std::to_string(example.line) + ": " + example.command);
    EXPECT_FALSE(CallsBareTool(example.command)) << "call the tool by its path, " << kReleaseTool;
    std::string script = example.command;
    for (size_t at = 0; (at = script.find(kReleaseTool, at)) != std::string::npos;) {
      script.replace(at, sizeof(kReleaseTool) - 1, POIPARSE_PATH);
      at += sizeof(POIPARSE_PATH) - 1;
    }
    const ShellOutcome outcome = RunShell(script);
    EXPECT_TRUE(outcome.status == 0 || outcome.status == 1) << "exit status " << outcome.status << "\n" << outcome.err;
    if (!example.expected.empty()) {
      EXPECT_EQ(outcome.out, example.expected);
    }
  }
}

// The parsing convention itself: continuation lines, outputs, set-up blocks.
TEST(ReadmeExamples, ConventionOfTheExamples) {
  const std::vector<Example> examples = ReadmeExamples(
      "text\n```sh\nmake run    # set-up\n```\n"
      "```sh\nset-up\n$ echo a \\\n    b\na b\n$ true\n```\n"
      "```\n$ not a shell block\n```\n$ outside\n");
  ASSERT_EQ(examples.size(), 2u);
  EXPECT_EQ(examples[0].line, 7u);
  EXPECT_EQ(examples[0].command, "echo a \\\n    b");
  EXPECT_EQ(examples[0].expected, "a b\n");
  EXPECT_EQ(examples[1].command, "true");
  EXPECT_EQ(examples[1].expected, "");
  EXPECT_TRUE(CallsBareTool("echo {} | poiparse --compact"));
  EXPECT_TRUE(CallsBareTool("poiparse"));
  EXPECT_FALSE(CallsBareTool("echo {} | ./build/release/poiparse --compact"));
  EXPECT_FALSE(CallsBareTool("cat tools/poiparse.1.in examples/poiparser.json"));
}

// ---- Options: --help, the manual page, the completion --------------------------

// The option names (-j, --jobs, ...) in `text`: words that start with '-'
// followed by a letter.
std::set<std::string> OptionWords(const std::string& text) {
  std::set<std::string> names;
  std::string word;
  for (size_t i = 0; i <= text.size(); ++i) {
    const char c = i < text.size() ? text[i] : ' ';
    if (std::isalnum(static_cast<unsigned char>(c)) || c == '-') {
      word.push_back(c);
      continue;
    }
    const size_t first = word.find_first_not_of('-');
    if (first >= 1 && first <= 2 && first < word.size() && std::isalpha(static_cast<unsigned char>(word[first]))) {
      names.insert(word);
    }
    word.clear();
  }
  return names;
}

// The options of --help: the first column of its option lines ("  -j N,
// --jobs N   parse on ..."), not the words of the descriptions.
std::set<std::string> HelpOptions(const std::string& help) {
  std::set<std::string> names;
  for (const std::string& line : Lines(help)) {
    if (!StartsWith(line, "  -")) continue;
    const std::set<std::string> words = OptionWords(line.substr(0, line.find("  ", 2)));
    names.insert(words.begin(), words.end());
  }
  return names;
}

// Roff text as read: font changes dropped, "\-" as '-'.
std::string PlainRoff(const std::string& line) {
  std::string plain;
  for (size_t i = 0; i < line.size(); ++i) {
    if (line[i] == '\\' && i + 1 < line.size() && line[i + 1] == 'f' && i + 2 < line.size()) {
      i += 2;
    } else if (line[i] == '\\' && i + 1 < line.size() && line[i + 1] == '-') {
      plain.push_back('-');
      ++i;
    } else {
      plain.push_back(line[i]);
    }
  }
  return plain;
}

// The options that the manual page's OPTIONS section has entries for: the
// tag lines of its .TP paragraphs.
std::set<std::string> ManualOptions(const std::string& manual) {
  std::set<std::string> names;
  const std::vector<std::string> lines = Lines(manual);
  bool in_options = false;
  for (size_t i = 0; i < lines.size(); ++i) {
    if (StartsWith(lines[i], ".SH")) in_options = lines[i] == ".SH OPTIONS";
    if (in_options && lines[i] == ".TP" && i + 1 < lines.size()) {
      const std::set<std::string> words = OptionWords(PlainRoff(lines[i + 1]));
      names.insert(words.begin(), words.end());
    }
  }
  return names;
}

std::string Join(const std::set<std::string>& names) {
  std::string joined;
  for (const std::string& name : names) joined += name + " ";
  return joined;
}

std::set<std::string> Difference(const std::set<std::string>& a, const std::set<std::string>& b) {
  std::set<std::string> only_a;
  std::set_difference(a.begin(), a.end(), b.begin(), b.end(), std::inserter(only_a, only_a.end()));
  return only_a;
}

std::set<std::string> ToolHelpOptions() {
  const testing_support::ToolOutcome help = testing_support::RunTool("--help");
  EXPECT_EQ(help.status, 0);
  const std::set<std::string> options = HelpOptions(help.out);
  EXPECT_GE(options.size(), 10u) << help.out;
  return options;
}

TEST(ToolManual, HasAnEntryForEachOptionOfHelpAndNoOther) {
  const std::set<std::string> help = ToolHelpOptions();
  const std::set<std::string> manual = ManualOptions(ReadFile(SOURCE_DIR "/tools/poiparse.1.in"));
  EXPECT_EQ(Join(Difference(help, manual)), "") << "options of --help without an entry in tools/poiparse.1.in";
  EXPECT_EQ(Join(Difference(manual, help)), "") << "entries of tools/poiparse.1.in that --help does not list";
}

TEST(ToolManual, OptionListsAreReadAsWritten) {
  EXPECT_EQ(Join(HelpOptions("options:\n  -j N, --jobs N       parse on N threads (see --list-kinds)\n"
                             "                       --continued descriptions\n  --utf8    the --kind\n")),
            "--jobs --utf8 -j ");
  EXPECT_EQ(Join(ManualOptions(".SH OPTIONS\n.TP\n.BR \\-j \" \\fIN\\fR, \" \\-\\-jobs \" \\fIN\\fR\"\n"
                               "Parse with \\-\\-kind.\n.TP\n.BI \\-\\-kind \" KIND\"\n.SH EXIT STATUS\n.TP\n.B \\-x\n")),
            "--jobs --kind -j ");
}

// ---- The bash completion ---------------------------------------------------------

bool HaveBash() { return RunShell("command -v bash >/dev/null").status == 0; }

// `text` as one word of sh.
std::string ShellQuote(const std::string& text) {
  std::string quoted = "'";
  for (char c : text) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

// The completion's replies (sorted, one per line) when the cursor is at the
// end of `words` (the command line after "poiparse", split as bash splits
// it; "" for an empty word). `poiparse` is this build's tool.
std::string Complete(const std::vector<std::string>& words) {
  std::string array = "poiparse";
  for (const std::string& word : words) array += " " + ShellQuote(word);
  const std::string script = "poiparse() { " POIPARSE_PATH " \"$@\"; }\n"
                             ". tools/poiparse.bash-completion\n"
                             "COMP_WORDS=(" + array + ")\n"
                             "COMP_CWORD=$((${#COMP_WORDS[@]} - 1))\n"
                             "_poiparse poiparse \"${COMP_WORDS[COMP_CWORD]}\" \"${COMP_WORDS[COMP_CWORD-1]}\"\n"
                             "printf '%s\\n' \"${COMPREPLY[@]}\" | LC_ALL=C sort\n";
  const ShellOutcome outcome = RunShell("bash -c " + ShellQuote(script));
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  return outcome.out;
}

TEST(ToolCompletion, OffersTheOptionsOfHelp) {
  if (!HaveBash()) GTEST_SKIP() << "no bash";
  std::set<std::string> offered;
  for (const std::string& line : Lines(Complete({"-"}))) offered.insert(line);
  EXPECT_EQ(Join(offered), Join(ToolHelpOptions()));
}

TEST(ToolCompletion, CompletesValuesAndFiles) {
  if (!HaveBash()) GTEST_SKIP() << "no bash";
  struct Case {
    std::vector<std::string> words;
    const char* replies;
  } cases[] = {
      {{"--ki"}, "--kind\n"},
      {{"--s"}, "--schema\n--summary\n"},
      {{"--kind", "route"}, "route-addr\nroute-addr-1\nroute-addr-2\n"},
      {{"--schema", "coord"}, "coordinate-query\n"},  // an alias from --list-kinds
      {{"--kind", "=", "circ"}, "circum\n"},            // '=' as its own word
      {{"--kind=circ"}, "--kind=circum\n"},             // '=' inside the word
      {{"--utf8", "--parser", ""}, "cjson\ndocument\n"},
      {{"--format", "t"}, "table\n"},
      {{"--color", ""}, "always\nauto\nnever\n"},
      {{"--jobs", ""}, "\n"},
      {{"examples/poi_list_r"}, "examples/poi_list_refused.json\n"},
      {{"--", "--k"}, "\n"},  // after --, only files
  };
  for (const Case& c : cases) {
    std::string words;
    for (const std::string& word : c.words) words += "'" + word + "' ";
    SCOPED_TRACE(words);
    EXPECT_EQ(Complete(c.words), c.replies);
  }
}

}  // namespace
