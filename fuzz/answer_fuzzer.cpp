// libFuzzer target: any bytes as an answer, through every operation.
//
// Input: one control byte, then the JSON text (parsed by cJSON; inputs that
// are not JSON end there).
//   bit 0     the text mode flag while an operation runs
//   bit 1     0: every operation on the root, each into a fresh bundle, then
//             all of them into one bundle (so keys are replaced in turn);
//             1: one operation (bits 3-7) on every node of the tree
//   bit 2     a diagnostics collector is installed and its reports resolved
//   bits 3-7  the operation of mode 1
//
// Every bundle is written by the JSON writer and checked: the text parses as
// JSON again, a copy of the bundle equals it, and a second run of the
// operation on the same node gives the same result and an equal bundle. A
// failed check aborts, so that libFuzzer keeps the input as a crash.
#include <cjson/cJSON.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <utility>

#include "foundation/BundleJsonWriter.h"
#include "json_readers/Diagnostics.h"
#include "poi_parser/AnswerKinds.h"
#include "poi_parser/PoiJsonObjParser.h"

namespace {

using _quarn_framework::CJsonObjParser;
using _quarn_vi::CVBundle;
using Op = _quarn_framework::BundleOperation;

// Mode 1 visits at most this many nodes, so that a large input stays quick.
constexpr int kMaxNodes = 2048;

void Check(bool condition, const char* what) {
  if (!condition) {
    std::fprintf(stderr, "check failed: %s\n", what);
    std::abort();
  }
}

int RunOp(Op op, cJSON* node, CVBundle& out, bool utf8) {
  CJsonObjParser::isParsePHPUI2Res = utf8 ? 1 : 0;
  int result = op(node, out);
  CJsonObjParser::isParsePHPUI2Res = 0;
  return result;
}

// Writes `bundle` as JSON (pretty or compact) and checks that cJSON reads the
// text back as an object.
void CheckWritten(const CVBundle& bundle, bool pretty) {
  const std::string text = _quarn_vi::BundleToJson(bundle, pretty);
  cJSON* again = cJSON_ParseWithLength(text.data(), text.size());
  Check(again != nullptr && cJSON_IsObject(again), "the writer's text is a JSON object");
  cJSON_Delete(again);
  CVBundle copy = bundle;
  Check(copy == bundle, "a copy equals its original");
}

// One operation on one node, twice: the runs must agree.
void RunChecked(Op op, cJSON* node, bool utf8, bool pretty) {
  CVBundle first;
  const int result = RunOp(op, node, first, utf8);
  Check(result == 0 || result == 1, "the result is 0 or 1");
  CheckWritten(first, pretty);
  CVBundle second;
  Check(RunOp(op, node, second, utf8) == result, "a second run gives the same result");
  Check(second == first, "a second run gives an equal bundle");
}

void VisitNodes(Op op, cJSON* node, bool utf8, int* budget) {
  for (; node != nullptr && *budget > 0; node = node->next) {
    --*budget;
    RunChecked(op, node, utf8, false);
    VisitNodes(op, node->child, utf8, budget);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  const uint8_t control = data[0];
  const bool utf8 = (control & 1) != 0;
  const bool every_node = (control & 2) != 0;
  const bool diagnose = (control & 4) != 0;
  cJSON* root = cJSON_ParseWithLength(reinterpret_cast<const char*>(data + 1), size - 1);
  if (root == nullptr) return 0;

  const auto operations = _quarn_framework::ParserOperations();
  _quarn_framework::CVDiagnostics diagnostics;
  {
    std::unique_ptr<_quarn_framework::CVDiagnosticsScope> scope;
    if (diagnose) scope.reset(new _quarn_framework::CVDiagnosticsScope(diagnostics));
    if (every_node) {
      int budget = kMaxNodes;
      VisitNodes(operations[(control >> 3) % operations.size()].run, root, utf8, &budget);
    } else {
      for (const auto& operation : operations) RunChecked(operation.run, root, utf8, (control >> 3) & 1);
      // All operations into one bundle: later ones replace earlier keys.
      CVBundle all;
      for (const auto& operation : operations) RunOp(operation.run, root, all, utf8);
      CheckWritten(all, false);
    }
  }
  if (diagnose) {
    for (const auto& report : diagnostics.Resolve(root)) {
      Check(!report.path.empty() && (report.path[0] == '$' || report.path == "?"), "a report has a path");
    }
  }
  cJSON_Delete(root);
  return 0;
}
