// The contract of each answer kind, generated from the field tables and the
// operations' own descriptions, so that it cannot drift from what they do:
//   - the answer schema: the members an operation reads, with the JSON each
//     takes without being skipped, the members whose absence refuses the
//     answer and the refusals JSON Schema can state (a status that must read
//     as 0); other members are allowed. An answer that an operation reads
//     with no diagnostic (json_readers/Diagnostics.h) validates against it.
//   - the bundle schema: every key the operation can store, with its type as
//     the JSON writer (foundation/BundleJsonWriter.h) writes it, no other key,
//     and `required` for the keys always stored when the operation returns 1.
//     A refused answer (0) may have stored a part of the keys: its bundle
//     validates against the schema's "#/$defs/keys", the same keys without
//     `required`.
// Both are JSON Schema draft 2020-12. Records that several places hold (the
// POI record, ...) are given once under "$defs", named after their
// operation.
//
// Thread safety: reentrant. Not for the parsing path: each call builds the
// schemas afresh.
#ifndef POI_PARSER_ANSWERSCHEMA_H_
#define POI_PARSER_ANSWERSCHEMA_H_

#include <string>

#include "poi_parser/AnswerKinds.h"

namespace _quarn_framework {

// {"answer": A, "bundle": B} for `kind`'s operation, as JSON text with a
// two-space indent and a final newline.
std::string AnswerKindSchemas(const AnswerKind& kind);

// The reference of every kind, in Markdown: per kind its operation, the
// members read, every key stored (type, when, from which member) and the
// refusals. docs/bundles.md is this text (poiparse --reference).
std::string BundleReference();

}  // namespace _quarn_framework

#endif  // POI_PARSER_ANSWERSCHEMA_H_
