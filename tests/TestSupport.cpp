#include "TestSupport.h"

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>

namespace testing_support {

Json ParseJson(const std::string& text) {
  cJSON* root = cJSON_ParseWithLengthOpts(text.c_str(), text.size() + 1, nullptr, 1);
  EXPECT_NE(root, nullptr) << "not JSON: " << text;
  return Json(root, cJSON_Delete);
}

std::string ToJson(const _quarn_vi::CVBundle& bundle) { return _quarn_vi::BundleToJson(bundle, false); }

int Run(int (*op)(cJSON*, _quarn_vi::CVBundle&), const std::string& input, std::string* json) {
  Json root = ParseJson(input);
  _quarn_vi::CVBundle bundle;
  int result = op(root.get(), bundle);
  *json = ToJson(bundle);
  return result;
}

void ExpectCases(int (*op)(cJSON*, _quarn_vi::CVBundle&), const std::vector<OpCase>& cases) {
  for (const OpCase& c : cases) {
    SCOPED_TRACE(c.input);
    std::string json;
    EXPECT_EQ(Run(op, c.input, &json), c.result);
    EXPECT_EQ(json, c.bundle);
  }
}

ToolOutcome RunTool(const std::string& args, const std::string& input) {
  // Tests run in parallel processes: every call gets files of its own.
  static int calls = 0;
  const std::string stem =
      testing::TempDir() + "poiparse_" + std::to_string(getpid()) + "_" + std::to_string(++calls);
  const std::string in = stem + ".in";
  const std::string err = stem + ".err";
  std::ofstream(in, std::ios::binary) << input;
  std::string command = std::string(POIPARSE_PATH) + " " + args + " <" + in + " 2>" + err;
  ToolOutcome outcome{"", "", -1};
  if (FILE* pipe = popen(command.c_str(), "r")) {
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof(buf), pipe)) > 0) outcome.out.append(buf, n);
    int status = pclose(pipe);
    outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  outcome.err = ReadFile(err);
  std::remove(in.c_str());
  std::remove(err.c_str());
  return outcome;
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  EXPECT_TRUE(in.good()) << "cannot read " << path;
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

}  // namespace testing_support
