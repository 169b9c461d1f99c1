// libFuzzer target: any bytes as an answer text, through CJsonDocument and
// through cJSON_ParseWithOpts (on a NUL-terminated copy), which must agree:
// - a text with a NUL byte is refused by the document;
// - otherwise both refuse, or both give the same tree node for node
//   (tests/JsonTreeCompare.h);
// - every entry operation builds the same result and bundle from either
//   tree, with the text mode flag clear and set;
// - strictness: a tree of the document's own (simdjson accepted the text) is
//   strict by the leniency scan, and a text the scan calls strict is one
//   simdjson takes, but for numbers beyond its range and nesting beyond its
//   limit.
// A failed check aborts, so that libFuzzer keeps the input as a crash.
#include <cjson/cJSON.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#if POIPARSER_WITH_SIMDJSON
#include <simdjson.h>
#endif

#include "foundation/BundleJsonWriter.h"
#include "json_readers/JsonDocument.h"
#include "poi_parser/AnswerKinds.h"
#include "poi_parser/PoiJsonObjParser.h"
#include "tests/JsonTreeCompare.h"

namespace {

using _quarn_framework::CJsonObjParser;
using _quarn_vi::CVBundle;
using Op = _quarn_framework::BundleOperation;

void Check(bool condition, const char* what, const std::string& detail = "") {
  if (!condition) {
    std::fprintf(stderr, "check failed: %s %s\n", what, detail.c_str());
    std::abort();
  }
}

std::string Build(Op op, cJSON* root, bool utf8) {
  CJsonObjParser::isParsePHPUI2Res = utf8 ? 1 : 0;
  CVBundle bundle;
  const int result = op(root, bundle);
  CJsonObjParser::isParsePHPUI2Res = 0;
  return std::to_string(result) + _quarn_vi::BundleToJson(bundle, false);
}

_quarn_framework::CJsonDocument& Document() {
  static _quarn_framework::CJsonDocument document;  // reused, as a client does
  return document;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const char* text = reinterpret_cast<const char*>(data);
  _quarn_framework::CJsonDocument& document = Document();
  cJSON* root = document.Parse(text, size);
  if (std::memchr(text, 0, size) != nullptr) {
    Check(root == nullptr, "a text with a NUL byte is refused");
    return 0;
  }
  const std::string copy(text, size);
  cJSON* expected = cJSON_ParseWithOpts(copy.c_str(), nullptr, 1);
  Check((root == nullptr) == (expected == nullptr), "the document refuses exactly what cJSON refuses");
  if (root == nullptr) {
    Check(document.ErrorOffset() <= size && document.ErrorMessage()[0] != '\0', "a refusal has a place and reason");
    return 0;
  }
  const std::string difference = testing_support::TreeDifference(root, expected);
  Check(difference.empty(), "the trees are the same:", difference);
  // The entry operations of the parser.
  for (const _quarn_framework::ParserOperation& operation : _quarn_framework::ParserOperations()) {
    if (operation.role != _quarn_framework::OperationRole::kAnswer) continue;
    for (bool utf8 : {false, true}) {
      Check(Build(operation.run, root, utf8) == Build(operation.run, expected, utf8),
            "an operation builds the same bundle from both");
    }
  }
  cJSON_Delete(expected);

  size_t offset = 0;
  const bool strict = _quarn_framework::CJsonDocument::FindLeniency(text, size, &offset) == nullptr;
  Check(document.IsStrict() == strict, "IsStrict agrees with the leniency scan");
  if (document.TreeIsOwn()) Check(strict, "a text simdjson accepts is strict");
#if POIPARSER_WITH_SIMDJSON
  if (strict && !document.TreeIsOwn()) {
    static simdjson::dom::parser parser;
    const simdjson::error_code error = parser.parse(text, size).error();
    Check(error == simdjson::NUMBER_ERROR || error == simdjson::DEPTH_ERROR ||
              error == simdjson::SUCCESS,
          "a strict text goes to cJSON only for numbers or nesting:", simdjson::error_message(error));
  }
#endif
  return 0;
}
