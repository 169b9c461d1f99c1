// The registry of the parser's operations and of the answer kinds that name
// them: what the poiparse tool, the tests and the fuzz targets read (and any
// client that needs "every operation" or "the operation for this answer"),
// so that an operation added to CPoiJsonObjParser is added here once and
// reaches all of them.
//
// Two tables:
//   - ParserOperations(): every public operation of CPoiJsonObjParser, the
//     entry operations (Parse...Rst) first, then the record operations
//     (Get...FromJson), each with one bundle signature. The two list builders
//     (GetCityInfoArrayFromJson, GetRPAddrListFromJson) are run through a
//     wrapper that stores their array under "list" in the bundle (also when
//     empty); their own functions stay reachable as ParserOperation::list.
//   - AnswerKinds(): the kinds that a user names (poiparse --kind), each
//     with its one-line description, its operation, the operation to use
//     when the text mode flag is held set for a whole run, and the test that
//     tells it from an answer's shape. Kind names are stable: scripts hold
//     them. An alias is a clearer second name for the same kind.
//
// Detection (DetectAnswerKind) tries the kinds' shape tests in their
// detection rank, most specific first, and takes the first that matches.
// Kinds without a shape test (the records, the district answer whose shape
// is that of an area search, and the route-address dispatcher, whose two
// forms are detected as kinds of their own) are only reached by name.
//
// Thread safety: the tables are constant and every function is reentrant.
// Running an operation is subject to CPoiJsonObjParser's rules (the text
// mode flag must not change while another thread parses).
#ifndef POI_PARSER_ANSWERKINDS_H_
#define POI_PARSER_ANSWERKINDS_H_

#include <cjson/cJSON.h>

#include <cassert>
#include <cstddef>

#include "poi_parser/PoiJsonObjParser.h"

namespace _quarn_framework {

namespace schema {
struct OperationSchema;  // what an operation reads and stores (internal)
}  // namespace schema

// An operation with the bundle signature of CPoiJsonObjParser.
typedef int (*BundleOperation)(cJSON* node, CVBundle& out);
// A list builder: appends records to `out`, returns 1 iff it is non-empty.
typedef int (*ListOperation)(cJSON* node, CPoiJsonObjParser::BundleArray& out);

// Whether an operation takes a whole answer or one record of it.
enum class OperationRole {
  kAnswer,  // Parse...Rst: the root of an answer
  kRecord,  // Get...FromJson: one record's node, as looked up (null when absent)
};

// What an operation does with the text mode flag
// (CJsonObjParser::isParsePHPUI2Res).
enum class TextMode {
  kIgnored,     // never reads it
  kDecodes,     // while it is set, decodes the suggested-query texts or the
                // way point keywords as UTF-8 (else widens them byte by byte)
  kDispatches,  // chooses the answer form by it, then clears it
};

// One operation of CPoiJsonObjParser.
struct ParserOperation {
  const char* name;  // the member function's name, e.g. "ParsePoiListRst"
  OperationRole role;
  TextMode text_mode;
  BundleOperation run;  // the operation; a list builder's array goes under "list"
  ListOperation list;   // the list builder itself, or null for a bundle operation
  // What it reads and stores, for poi_parser/AnswerSchema.h.
  const schema::OperationSchema* schema;
};

// One answer kind that a user names.
struct AnswerKind {
  const char* name;         // stable: poiparse --kind and its output's "kind"
  const char* alias;        // a clearer second name, or null
  const char* description;  // one line: what the kind reads
  const ParserOperation* operation;
  // The operation that replaces `operation` when the caller holds the text
  // mode flag set for a whole run (a dispatcher would clear it under the
  // other answers' feet); null when `operation` itself serves.
  const ParserOperation* operation_with_flag_held;
  // 1 for the shape tested first, 2 next, ...; 0 for a kind named only.
  int detection_rank;
  // True iff `root` has this kind's shape; null when detection_rank is 0.
  // REQUIRES: root is an object (DetectAnswerKind tests that first).
  bool (*has_shape)(cJSON* root);

  // The operation to run: operation_with_flag_held when `flag_held` and the
  // kind has one, else `operation`.
  const ParserOperation& OperationFor(bool flag_held) const {
    return flag_held && operation_with_flag_held != nullptr ? *operation_with_flag_held : *operation;
  }
};

// A contiguous range of registry entries, for range-for loops.
template <typename T>
class RegistryRange {
 public:
  RegistryRange(const T* first, size_t size) : m_first(first), m_size(size) {}
  const T* begin() const { return m_first; }
  const T* end() const { return m_first + m_size; }
  size_t size() const { return m_size; }
  // REQUIRES: i < size()
  const T& operator[](size_t i) const;

 private:
  const T* m_first;
  size_t m_size;
};

// Every operation of CPoiJsonObjParser, each once: the entry operations,
// then the record operations. The order is fixed (the fuzz targets' inputs
// choose an operation by its index); new operations go at the end.
RegistryRange<ParserOperation> ParserOperations();

// The operation whose function is called `name`, or null. Linear in the
// number of operations (23).
const ParserOperation* FindParserOperation(const char* name);

// Every answer kind, in poiparse --list-kinds order: the answers, then the
// records.
RegistryRange<AnswerKind> AnswerKinds();

// The kind called `name` (its name or its alias), or null. Linear in the
// number of kinds (20). REQUIRES: name != nullptr
const AnswerKind* FindAnswerKind(const char* name);

// The kind of an answer told from its shape, or null when `root` is not an
// object or no kind's shape test matches. Reads a few members of the root
// (and of "result" and "content"), never the whole tree.
const AnswerKind* DetectAnswerKind(cJSON* root);

// End of public API. Implementation details follow.

template <typename T>
const T& RegistryRange<T>::operator[](size_t i) const {
  assert(i < m_size);
  return m_first[i];
}

}  // namespace _quarn_framework

#endif  // POI_PARSER_ANSWERKINDS_H_
