// CJsonDocument: answer text to the JSON tree that the operations read, fast.
//
// The operations read cJSON trees (JsonAccess.h). A document parses a text
// into a tree of cJSON's own node layout that it owns and reuses from answer
// to answer:
//
//   CJsonDocument document;                 // one per thread, kept
//   cJSON* root = document.Parse(text, length);
//   if (root == nullptr) report(document.ErrorOffset(), document.ErrorMessage());
//   else CPoiJsonObjParser::ParsePoiListRst(root, bundle);
//   // root stays valid until the next Parse or the document's end
//
// Contract (the differential tests and the document fuzzer prove it):
// - For every text without a NUL byte, Parse returns a tree that is node for
//   node the one cJSON_ParseWithOpts(copy, &end, 1) builds from a
//   NUL-terminated copy of the text: the same types, member names,
//   valuestring, valueint (cJSON's own values: 1 for true, numbers beyond
//   int saturated), valuedouble bit for bit, order, and the first child's
//   prev pointing at the last child. It returns null exactly where cJSON
//   refuses the text, its nesting limit of 1000 levels included.
// - A text holding a NUL byte is refused ("NUL byte in the text").
// - The tree is read-only and belongs to the document: never cJSON_Delete it
//   or change it. cJSON's read functions (cJSON_PrintUnformatted,
//   cJSON_GetArraySize, ...) work on it unchanged.
//
// How (with POIPARSER_WITH_SIMDJSON, the default build):
// - The text is copied into the document's padded buffer and parsed by
//   simdjson (strict RFC 8259 JSON in valid UTF-8). Its tape becomes nodes
//   in one block of the document, in document order; every string, member
//   names included, points into simdjson's string buffer, which ends each
//   string with a NUL.
// - What simdjson refuses goes to cJSON_ParseWithOpts itself, so that what is
//   accepted beyond strict JSON is exactly what cJSON accepts. So does a
//   strict text that cJSON would read otherwise than simdjson: nesting deeper
//   than 1000 levels, which cJSON refuses, and numbers of more than 63
//   bytes when the linked cJSON cuts them short (1.7.15 without Debian's
//   fix does). The number values agree bit for bit: both parsers round
//   correctly; "-0", which simdjson reads as the integer 0, gets its sign
//   from the text.
// - Once warm (a text no longer than the longest before, a tree no larger),
//   a strict text costs no heap allocation. A text that goes to cJSON costs
//   cJSON's allocations, freed at the next Parse.
// Built without simdjson, the document is cJSON_ParseWithOpts on the same
// padded copy, with the same contract and no speed-up.
//
// Performance (20-POI answer of 33 KB, Release build, this project's
// machine): simdjson's parse about 8 us, the tape-to-node conversion a few
// microseconds, against about 80 us for cJSON's parse and delete. See the
// README's benchmark table.
//
// Thread safety: a document belongs to one thread at a time; separate
// documents may parse on separate threads. The fallback to cJSON writes
// cJSON's global error pointer (cJSON's own race, harmless to the results).
#ifndef JSON_READERS_JSONDOCUMENT_H_
#define JSON_READERS_JSONDOCUMENT_H_

#include <cjson/cJSON.h>

#include <cstddef>
#include <memory>

namespace _quarn_framework {

class CJsonDocument {
 public:
  CJsonDocument();
  ~CJsonDocument();
  CJsonDocument(const CJsonDocument&) = delete;
  CJsonDocument& operator=(const CJsonDocument&) = delete;

  // Parses exactly `length` bytes of `text` (no NUL needed after them).
  // Returns the root of the tree, or null when the text is not one JSON
  // value as cJSON reads it (see ErrorOffset). Ends the previous tree.
  cJSON* Parse(const char* text, size_t length);

  // The root of the last Parse, or null.
  cJSON* Root() const { return m_root; }

  // After a successful Parse: true iff the text was strict JSON (RFC 8259 in
  // valid UTF-8, no byte order mark). False when only cJSON's leniencies
  // accepted it: control bytes as white space, raw control bytes in strings,
  // invalid UTF-8, invalid \u escapes, leading zeros, "1.", "-.5", a byte
  // order mark. Numbers beyond double's range are strict (cJSON reads them
  // as infinities). Costs nothing after a strict text; after a lenient one
  // the first call scans the text.
  bool IsStrict() const;
  // After a successful Parse of a text that is not strict: the byte offset
  // of the first departure from strict JSON and what it is ("leading zero in
  // a number", ...). 0 and "" after a strict text.
  size_t LeniencyOffset() const;
  const char* LeniencyMessage() const;

  // After a refusal: the byte offset where the text stops being JSON (the
  // length when it ends too early; cJSON's return_parse_end, or the byte
  // before it when that is at fault, see DescribeRefusal) and a short
  // reason ("unclosed string", "nesting deeper than 1000 levels", "NUL byte
  // in the text", "unexpected character", ...).
  size_t ErrorOffset() const { return m_error_offset; }
  const char* ErrorMessage() const { return m_error_message; }

  // Bytes of the current tree that the document holds: its nodes and, for a
  // strict text, simdjson's strings. 0 when the tree came from cJSON.
  size_t TreeBytes() const { return m_tree_bytes; }
  // True iff the current tree is the document's own (strict text through
  // simdjson), false when it came from cJSON_ParseWithOpts.
  bool TreeIsOwn() const { return m_own_tree; }

  // True iff this build parses with simdjson (POIPARSER_WITH_SIMDJSON).
  static bool UsesSimdjson();

  // ---- Helpers, also for callers that parse with cJSON themselves ----

  // The first departure of text[0, length) from strict JSON: returns its
  // reason and sets *offset, or returns null when the text is strict JSON.
  // Linear in the length; no allocation.
  static const char* FindLeniency(const char* text, size_t length, size_t* offset);
  // Why cJSON refused text[0, length) at byte *offset (where its
  // return_parse_end points): one of the short reasons of ErrorMessage.
  // Moves *offset to the byte at fault where cJSON points past it (the
  // opening quote of an unclosed string, a member name that is not a
  // string, the first NUL byte).
  static const char* DescribeRefusal(const char* text, size_t length, size_t* offset);

  // End of public API. Implementation details follow.
 private:
  struct Impl;
  void Reset();
  void ComputeLeniency() const;

  std::unique_ptr<Impl> m_impl;
  cJSON* m_root = nullptr;
  cJSON* m_cjson_tree = nullptr;  // a tree from cJSON, deleted by Reset
  bool m_own_tree = false;
  size_t m_tree_bytes = 0;
  size_t m_error_offset = 0;
  const char* m_error_message = "";
  // Leniency, found on first demand from the copy of the text: -1 unknown,
  // 0 lenient, 1 strict.
  mutable int m_strict = -1;
  mutable size_t m_leniency_offset = 0;
  mutable const char* m_leniency_message = "";
};

}  // namespace _quarn_framework

// The name of earlier releases, for clients written against it.
namespace _quarn_vi {
using _quarn_framework::CJsonDocument;
}  // namespace _quarn_vi

#endif  // JSON_READERS_JSONDOCUMENT_H_
