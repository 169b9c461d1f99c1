// Golden-file tests: every example answer through the built poiparse tool.
//
// For examples/NAME.json the expected standard output is tests/golden/NAME.out
// and the expected exit status the number in tests/golden/NAME.status (0 when
// the file is absent); examples/NAME.args (or tests/golden/NAME.args), when
// present, holds the arguments the example is read with (one line; `make run`
// uses it too). Set UPDATE_GOLDEN=1 to rewrite the .out files.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "TestSupport.h"

namespace {

bool Exists(const std::string& path) { return std::ifstream(path).good(); }

std::string FirstLine(const std::string& path) {
  std::ifstream in(path);
  std::string line;
  std::getline(in, line);
  return line;
}

TEST(ToolGolden, EveryExampleMatchesItsGoldenOutput) {
  const std::vector<std::string> names = testing_support::ExampleNames();
  ASSERT_FALSE(names.empty());
  const std::string golden = std::string(SOURCE_DIR) + "/tests/golden/";
  for (const std::string& name : names) {
    SCOPED_TRACE(name);
    const std::string example_args = std::string(SOURCE_DIR) + "/examples/" + name + ".args";
    std::string args = Exists(example_args)                ? FirstLine(example_args)
                       : Exists(golden + name + ".args") ? FirstLine(golden + name + ".args")
                                                         : "";
    testing_support::ToolOutcome outcome =
        testing_support::RunTool(args + " " + std::string(SOURCE_DIR) + "/examples/" + name + ".json");
    int expected_status =
        Exists(golden + name + ".status") ? std::atoi(FirstLine(golden + name + ".status").c_str()) : 0;
    if (std::getenv("UPDATE_GOLDEN") != nullptr) {
      std::ofstream(golden + name + ".out", std::ios::binary) << outcome.out;
    }
    EXPECT_EQ(outcome.status, expected_status);
    EXPECT_EQ(outcome.out, testing_support::ReadFile(golden + name + ".out"));
  }
}

}  // namespace
