// Helpers shared by the tests: JSON trees from literals and bundles as JSON.
#ifndef TESTS_TESTSUPPORT_H_
#define TESTS_TESTSUPPORT_H_

#include <memory>
#include <string>
#include <vector>

#include "foundation/BundleJsonWriter.h"
#include "poi_parser/PoiJsonObjParser.h"

namespace testing_support {

using Json = std::unique_ptr<cJSON, void (*)(cJSON*)>;

// Parses `text`; fails the test (and returns null) when it is not JSON.
Json ParseJson(const std::string& text);

// The compact JSON text of a bundle, as poiparse --compact writes it.
std::string ToJson(const _quarn_vi::CVBundle& bundle);

// Runs `op` on the parsed `input` into a fresh bundle; returns the result and
// sets *json to the bundle's compact JSON.
int Run(int (*op)(cJSON*, _quarn_vi::CVBundle&), const std::string& input, std::string* json);

// One row of an operation's table: the answer, the expected result and the
// expected bundle as compact JSON.
struct OpCase {
  std::string input;
  int result;
  std::string bundle;
};

// Runs `op` on every row's answer and checks its result and bundle.
void ExpectCases(int (*op)(cJSON*, _quarn_vi::CVBundle&), const std::vector<OpCase>& cases);

// Sets the text mode flag for the life of the object, then clears it.
class TextModeScope {
 public:
  explicit TextModeScope(bool utf8) { _quarn_framework::CJsonObjParser::isParsePHPUI2Res = utf8; }
  ~TextModeScope() { _quarn_framework::CJsonObjParser::isParsePHPUI2Res = 0; }
};

// What a run of the built poiparse gave.
struct ToolOutcome {
  std::string out;  // standard output
  std::string err;  // standard error
  int status;       // exit status, -1 when it did not exit normally
};

// Runs `poiparse ARGS` with `input` on standard input.
ToolOutcome RunTool(const std::string& args, const std::string& input = "");

// Reads a whole file; fails the test when it cannot.
std::string ReadFile(const std::string& path);

}  // namespace testing_support

#endif  // TESTS_TESTSUPPORT_H_
