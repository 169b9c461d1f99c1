#include "tools/AnswerRun.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>

#include "json_readers/JsonDocument.h"

namespace poiparse_support {

namespace {

using _quarn_framework::AnswerKind;
using _quarn_framework::CVDiagnostics;

// A parsed answer text: the root (null when the text is not JSON) and, when
// the text was accepted but is not strict JSON, where and why.
struct ParsedText {
  cJSON* root = nullptr;
  size_t error_offset = 0;        // refused: where the text stops being JSON
  const char* error = "";         // refused: why
  const char* leniency = nullptr;  // accepted but not strict: why
  size_t leniency_offset = 0;
};

// Parses one JSON text with this thread's document, or with cJSON alone
// (--parser cjson; the tree is then kept in *cjson_tree). Both give the same
// tree by the document's contract; leniencies are looked for only when
// `explain` asks for them.
ParsedText ParseJson(const char* text, size_t size, bool use_cjson, bool explain,
                     std::unique_ptr<cJSON, void (*)(cJSON*)>* cjson_tree) {
  ParsedText parsed;
  if (!use_cjson) {
    // One document per thread, reused from answer to answer: the tree lives
    // until this thread parses the next answer.
    static thread_local _quarn_framework::CJsonDocument document;
    parsed.root = document.Parse(text, size);
    if (parsed.root == nullptr) {
      parsed.error_offset = document.ErrorOffset();
      parsed.error = document.ErrorMessage();
    } else if (explain && !document.IsStrict()) {
      parsed.leniency = document.LeniencyMessage();
      parsed.leniency_offset = document.LeniencyOffset();
    }
    return parsed;
  }
  // cJSON wants a NUL right after the text to reject trailing garbage.
  std::string copy(text, size);
  const char* end = nullptr;
  cjson_tree->reset(cJSON_ParseWithLengthOpts(copy.c_str(), size + 1, &end, 1));
  size_t stop = end != nullptr ? static_cast<size_t>(end - copy.c_str()) : 0;
  if (*cjson_tree != nullptr && stop < size) cjson_tree->reset();  // cJSON stopped at a NUL byte
  parsed.root = cjson_tree->get();
  if (parsed.root == nullptr) {
    parsed.error_offset = stop;
    parsed.error = _quarn_framework::CJsonDocument::DescribeRefusal(text, size, &parsed.error_offset);
  } else if (explain) {
    parsed.leniency = _quarn_framework::CJsonDocument::FindLeniency(text, size, &parsed.leniency_offset);
  }
  return parsed;
}

// cJSON reports a failed allocation as a text it could not parse: its
// allocations go through here, so that a refusal while one failed on this
// thread is told as running out of memory, not as invalid JSON.
thread_local bool t_allocation_failed = false;

void* CountedMalloc(size_t size) {
  void* block = std::malloc(size);
  if (block == nullptr) t_allocation_failed = true;
  return block;
}

// Parses `root` with `parse`, collecting what the operation reports when
// `diagnostics` is given. The collector is installed on this thread around
// the operation only.
int ParseExplained(const AnswerKind& kind, int (*parse)(cJSON*, _quarn_vi::CVBundle&), cJSON* root,
                   _quarn_vi::CVBundle& bundle, Diagnostics* diagnostics) {
  if (diagnostics == nullptr) return parse(root, bundle);
  CVDiagnostics collector;
  int result;
  {
    _quarn_framework::CVDiagnosticsScope scope(collector);
    result = parse(root, bundle);
  }
  *diagnostics = collector.Resolve(root);
  if (result != 1 && std::none_of(diagnostics->begin(), diagnostics->end(), [](const auto& d) {
        return d.severity == CVDiagnostics::kRefused;
      })) {
    // A record operation does not report its own node's type test: say it
    // here, for the whole input.
    diagnostics->push_back({"$", CVDiagnostics::kRefused,
                            std::string(_quarn_framework::JsonTypeName(root)) + " not accepted as a " + kind.name +
                                " record"});
  }
  return result;
}

}  // namespace

void InstallAllocationHooks() {
  cJSON_Hooks hooks{CountedMalloc, std::free};
  cJSON_InitHooks(&hooks);
}

void LineColumn(const char* text, size_t size, size_t offset, size_t first_line, size_t* line,
                size_t* column) {
  *line = first_line;
  *column = 1;
  for (size_t i = 0; i < offset && i < size; ++i) {
    unsigned char c = static_cast<unsigned char>(text[i]);
    if (c == '\n') {
      ++*line;
      *column = 1;
    } else if ((c & 0xC0) != 0x80) {
      ++*column;
    }
  }
}

std::string LeniencyWarning(const char* reason) {
  return std::string("not strict JSON, accepted through cJSON's leniencies: ") + reason;
}

void RunAnswer(const char* text, size_t size, size_t first_line, const RunOptions& options, AnswerRun* run) {
  std::unique_ptr<cJSON, void (*)(cJSON*)> cjson_tree(nullptr, cJSON_Delete);
  t_allocation_failed = false;
  const ParsedText parsed = ParseJson(text, size, options.use_cjson, options.explain, &cjson_tree);
  cJSON* root = parsed.root;
  if (root == nullptr && t_allocation_failed) throw std::bad_alloc();
  if (root == nullptr) {
    run->status = RunStatus::kInvalidJson;
    run->error = parsed.error;
    run->error_offset = parsed.error_offset;
    LineColumn(text, size, parsed.error_offset, first_line, &run->error_line, &run->error_column);
    return;
  }
  const AnswerKind* kind = options.kind;
  if (kind == nullptr) kind = _quarn_framework::DetectAnswerKind(root);
  if (kind == nullptr) {
    run->status = RunStatus::kUnknownKind;
    return;
  }
  run->status = RunStatus::kParsed;
  run->kind = kind;
  const _quarn_framework::BundleOperation parse = kind->OperationFor(options.utf8).run;
  run->result = ParseExplained(*kind, parse, root, run->bundle, options.explain ? &run->diagnostics : nullptr);
  if (parsed.leniency != nullptr) {
    size_t line, column;
    LineColumn(text, size, parsed.leniency_offset, first_line, &line, &column);
    run->leniency = parsed.leniency;
    run->diagnostics.insert(run->diagnostics.begin(),
                            {"$", CVDiagnostics::kWarning,
                             LeniencyWarning(parsed.leniency) + " at line " + std::to_string(line) + ", column " +
                                 std::to_string(column)});
  }
}

}  // namespace poiparse_support
