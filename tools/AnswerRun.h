// AnswerRun: one answer text run through the parser the way poiparse runs
// it, for the tool and the Python module alike: the text parsed with this
// thread's CJsonDocument (or cJSON alone), the kind named or told from the
// answer's shape, the kind's operation run, and, when asked, the --explain
// diagnostics resolved to paths. What the caller prints or builds from it
// is its own business; the error texts and the diagnostics are the same
// for both.
//
// Internal to the tool and the module (not part of the installed library).
//
// Thread safety: RunAnswer may run on several threads at once (one document
// per thread); the text mode flag must be held at one value by the caller
// for as long as answers run with `utf8` (AnswerKind::OperationFor).
#ifndef TOOLS_ANSWERRUN_H_
#define TOOLS_ANSWERRUN_H_

#include <cstddef>
#include <string>
#include <vector>

#include "foundation/VBundle.h"
#include "json_readers/Diagnostics.h"
#include "poi_parser/AnswerKinds.h"

namespace poiparse_support {

using Diagnostics = std::vector<_quarn_framework::CVDiagnostics::Resolved>;

struct RunOptions {
  const _quarn_framework::AnswerKind* kind = nullptr;  // null: told from the answer's shape
  bool utf8 = false;       // the text mode flag is held set for the whole run
  bool use_cjson = false;  // parse with cJSON alone instead of the document
  bool explain = false;    // collect the diagnostics
};

enum class RunStatus {
  kParsed,       // the kind's operation ran: `result` and `bundle` hold its outcome
  kInvalidJson,  // the text is not JSON: `error`, `error_line`, `error_column`
  kUnknownKind,  // no kind named and none told from the shape
};

struct AnswerRun {
  RunStatus status = RunStatus::kParsed;
  // kInvalidJson: why, and where: the byte offset in the text, its line
  // (counted from the `first_line` given to RunAnswer) and its column (from
  // 1, in characters).
  const char* error = "";
  size_t error_offset = 0, error_line = 0, error_column = 0;
  // kParsed: the kind run, the operation's result and the bundle it filled.
  const _quarn_framework::AnswerKind* kind = nullptr;
  int result = 0;
  _quarn_vi::CVBundle bundle;
  // With `explain`: what the operation reported, in report order. A text
  // that is not strict JSON puts a warning at "$" first, whose reason is
  // also `leniency` (without its position, so that equal reasons compare
  // equal); otherwise `leniency` is null.
  Diagnostics diagnostics;
  const char* leniency = nullptr;
};

// The message of the "not strict JSON" warning without its position: what
// a --summary groups by.
std::string LeniencyWarning(const char* reason);

// Runs text[0, size), which starts at line `first_line` of its input.
// Throws std::bad_alloc when memory runs out, in cJSON's allocations too
// (once InstallAllocationHooks ran).
void RunAnswer(const char* text, size_t size, size_t first_line, const RunOptions& options, AnswerRun* run);

// Routes cJSON's allocations through a counter, so that a text refused
// while an allocation failed is told as running out of memory, not as
// invalid JSON. Process-wide (cJSON_InitHooks); call once before answers run.
void InstallAllocationHooks();

// Line (from `first_line`) and column (from 1, in characters) of byte
// `offset` of `text`.
void LineColumn(const char* text, size_t size, size_t offset, size_t first_line, size_t* line, size_t* column);

}  // namespace poiparse_support

#endif  // TOOLS_ANSWERRUN_H_
