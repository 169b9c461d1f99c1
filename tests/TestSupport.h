// Helpers shared by the tests: JSON trees from literals and bundles as JSON.
#ifndef TESTS_TESTSUPPORT_H_
#define TESTS_TESTSUPPORT_H_

#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "foundation/BundleJsonWriter.h"
#include "poi_parser/AnswerKinds.h"
#include "poi_parser/PoiJsonObjParser.h"

namespace testing_support {

using Json = std::unique_ptr<cJSON, void (*)(cJSON*)>;
using P = _quarn_framework::CPoiJsonObjParser;
using Op = int (*)(cJSON*, _quarn_vi::CVBundle&);

// An array operation as a bundle operation: its array is stored under "list".
template <int (*kArrayOp)(cJSON*, P::BundleArray&)>
int AsList(cJSON* node, _quarn_vi::CVBundle& out) {
  P::BundleArray array;
  const int result = kArrayOp(node, array);
  out.SetBundleArray("list", std::move(array));
  return result;
}

// Parses `text`; fails the test (and returns null) when it is not JSON.
Json ParseJson(const std::string& text);

// The compact JSON text of a bundle, as poiparse --compact writes it.
std::string ToJson(const _quarn_vi::CVBundle& bundle);

// Runs `op` on the parsed `input` into a fresh bundle; returns the result and
// sets *json to the bundle's compact JSON.
int Run(Op op, const std::string& input, std::string* json);

// One row of an operation's table: the answer, the expected result and the
// expected bundle as compact JSON.
struct OpCase {
  std::string input;
  int result;
  std::string bundle;
};

// Runs `op` on every row's answer and checks its result and bundle.
void ExpectCases(Op op, const std::vector<OpCase>& cases);

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

// The names of the example answers (examples/NAME.json), sorted.
std::vector<std::string> ExampleNames();

// The text of examples/NAME.json.
std::string ReadExample(const std::string& name);

// An operation of the registry (poi_parser/AnswerKinds.h) on a node of an
// example answer: every operation has a row.
struct ExampleOp {
  const char* example;  // examples/<example>.json
  const char* path;     // the node: '/'-separated members and indexes ("" = the root)
  bool utf8;            // the text mode flag the answer needs
  const char* op_name;                      // the operation's name in the registry
  Op op;                                    // a bundle operation, or
  int (*array_op)(cJSON*, P::BundleArray&);  // an array operation
};
const std::vector<ExampleOp>& ExampleOps();

// Names the row in test listings (instead of its bytes).
inline void PrintTo(const ExampleOp& row, std::ostream* os) {
  *os << row.op_name << " on " << row.example << "/" << row.path;
}

// The node at a path of ExampleOp::path's form, or null.
cJSON* NodeAt(cJSON* root, const std::string& path);

}  // namespace testing_support

#endif  // TESTS_TESTSUPPORT_H_
