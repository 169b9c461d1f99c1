// What an operation reads and stores, as data: the description from which
// the answer and bundle schemas (JSON Schema) and the bundle reference are
// generated.
//
// Field tables describe themselves: a row's reader says which JSON it takes
// and which value it stores. What a table cannot say sits next to the code
// that does it, in the terms below:
//   - a custom row's member and keys (CustomReader, beside its function);
//   - the members an operation reads outside its tables, with the JSON each
//     takes and whether its absence refuses (Member);
//   - the keys it stores outside its tables, with when and from where (Key);
//   - its refusals in words (OperationSchema::refusals).
// Nothing here is read while parsing: the descriptions are constant data
// that cost the operations nothing (a custom row's function is reached
// through its CustomReader, so a row keeps its size).
//
// The answer schema must take every answer that an operation reads with no
// diagnostic: a description may say less than the code checks (a schema
// that takes more), never more. What is read only in some cases (a member
// read for some points of a route) is marked Conditional and left
// unconstrained.
//
// Thread safety: constant data.
//
// Paths in `from` are dotted member names from the node the operation
// reads ("poi_result.option.total"); "[]" stands for every element of an
// array ("content[].cont").
#ifndef JSON_READERS_FIELDSCHEMA_H_
#define JSON_READERS_FIELDSCHEMA_H_

#include <cstddef>

#include "json_readers/FieldTable.h"

namespace _quarn_framework {
namespace schema {

struct Member;
struct Key;
struct OperationSchema;

// A constant array with its length.
template <typename T>
struct List {
  const T* items;
  int count;
  constexpr List() : items(nullptr), count(0) {}
  template <size_t N>
  constexpr List(const T (&array)[N]) : items(array), count(static_cast<int>(N)) {}
  const T* begin() const { return items; }
  const T* end() const { return items + count; }
};

// The JSON a member must hold to be read without being skipped or refused.
enum class Json : unsigned char {
  kInt,           // a number, true/false, or a string holding a decimal integer
  kIntZero,       // a kInt that reads as 0 (a status that must be good)
  kBool,          // true/false, a number, or "true", "false", "1", "0"
  kText,          // a string, a number or true/false
  kNonEmptyText,  // a kText that is not the empty string
  kString,        // a string only
  kLeadingInt,    // a string starting with a decimal number (white space, sign)
  kPosition,      // a string holding "x,y"
  kAny,           // anything: no JSON is skipped with a report
  kObject,        // an object: `members` lists what is read of it
  kArray,         // an array: `element` describes each element, `members`
                  // (when given) the first elements, all needed, in order
  kAnyOf,         // one of `members` (read one way or another by a flag)
  kRows,          // not a member: the members of a field table (`rows`),
                  // read from this same object
};

// Flags of a member or key.
enum : unsigned char {
  kRequired = 1,  // member: its absence or another JSON refuses the answer
                  // (in a record: drops the record)
  kAlways = 2,    // key: stored whenever the operation returns 1
  kOrAnything = 4,  // member kObject: another JSON reads as an empty object,
                    // unreported
};

// The rows of a field table, by their array or by the table's function.
struct Rows {
  const FieldRow* rows;
  int count;
  TableFunction table;
  constexpr Rows() : rows(nullptr), count(0), table(nullptr) {}
  template <size_t N>
  constexpr Rows(const FieldRow (&array)[N]) : rows(array), count(static_cast<int>(N)), table(nullptr) {}
  constexpr Rows(TableFunction function) : rows(nullptr), count(0), table(function) {}
};

// One member read.
struct Member {
  const char* name;  // null for an array's element
  Json json;
  unsigned char flags;
  List<Member> members;              // kObject: the members read; kArray: the first
                                     // elements; kAnyOf: the alternatives
  const Member* element;             // kArray: each element (null: not read)
  Rows rows;                         // kRows: the table; kObject: a table read from it
  const OperationSchema* record;     // kObject/kArray: read by this record operation instead
  const char* read_when_zero;        // a sibling that must read as 0 for this member to be
                                     // read; otherwise a present member is skipped
  const char* read_only_when;        // read only when this says (in words): a schema
                                     // cannot check it, and does not
};

constexpr Member MakeMember(const char* name, Json json, unsigned char flags = 0) {
  return Member{name, json, flags, List<Member>(), nullptr, Rows(), nullptr, nullptr, nullptr};
}
constexpr Member ObjectMember(const char* name, List<Member> members, unsigned char flags = 0) {
  Member member = MakeMember(name, Json::kObject, flags);
  member.members = members;
  return member;
}
constexpr Member TableMember(const char* name, Rows rows, unsigned char flags = 0) {
  Member member = MakeMember(name, Json::kObject, flags);
  member.rows = rows;
  return member;
}
constexpr Member RecordMember(const char* name, const OperationSchema& record, unsigned char flags = 0) {
  Member member = MakeMember(name, Json::kObject, flags);
  member.record = &record;
  return member;
}
constexpr Member ArrayMember(const char* name, const Member& element, unsigned char flags = 0) {
  Member member = MakeMember(name, Json::kArray, flags);
  member.element = &element;
  return member;
}
constexpr Member TupleMember(const char* name, List<Member> first, unsigned char flags = 0) {
  Member member = MakeMember(name, Json::kArray, flags);
  member.members = first;
  return member;
}
constexpr Member AnyOfMember(const char* name, List<Member> alternatives) {
  Member member = MakeMember(name, Json::kAnyOf);
  member.members = alternatives;
  return member;
}
// `member`, read only when `when` says; otherwise it is not looked at.
constexpr Member Conditional(Member member, const char* when) {
  member.read_only_when = when;
  return member;
}
constexpr Member RowsMember(Rows rows) {
  Member member = MakeMember(nullptr, Json::kRows);
  member.rows = rows;
  return member;
}

// The value type of a stored key (as the tool writes it: a double that is
// not finite is written as null).
enum class Value : unsigned char {
  kInt,
  kBool,
  kDouble,
  kString,
  kStringArray,
  kBundle,       // `keys`, `rows` or `record` describe it
  kBundleArray,  // each element as kBundle
  kRows,         // not a key: the keys of a field table (`rows`) or of a
                 // record operation (`record`) read from the member `from`,
                 // stored in this same bundle
};

// One key stored.
struct Key {
  const char* key;
  Value value;
  unsigned char flags;
  const char* from;   // the member it comes from, or a few words ("the array's length")
  const char* when;   // when it is stored; null: whenever its member can be read
  List<Key> keys;                  // kBundle/kBundleArray: the nested bundle's keys
  Rows rows;                       // kBundle/kBundleArray/kRows: a table's keys
  const OperationSchema* record;   // kBundle/kBundleArray: a record operation's keys
};

constexpr Key ScalarKey(const char* key, Value value, unsigned char flags, const char* from,
                      const char* when = nullptr) {
  return Key{key, value, flags, from, when, List<Key>(), Rows(), nullptr};
}
constexpr Key RecordKey(const char* key, Value value, const OperationSchema& record, unsigned char flags,
                        const char* from, const char* when) {
  Key k = ScalarKey(key, value, flags, from, when);
  k.record = &record;
  return k;
}
constexpr Key TableKey(const char* key, Value value, Rows rows, unsigned char flags, const char* from,
                       const char* when) {
  Key k = ScalarKey(key, value, flags, from, when);
  k.rows = rows;
  return k;
}
constexpr Key NestedKey(const char* key, Value value, List<Key> keys, unsigned char flags, const char* from,
                        const char* when) {
  Key k = ScalarKey(key, value, flags, from, when);
  k.keys = keys;
  return k;
}
// The keys of `rows`, read from the member `from` ("" for the node itself);
// kAlways when the table is read whenever the operation returns 1.
constexpr Key RowsKeys(Rows rows, const char* from, unsigned char flags = 0) {
  Key k = ScalarKey(nullptr, Value::kRows, flags, from);
  k.rows = rows;
  return k;
}

}  // namespace schema

// A custom row's function, with the JSON its member takes and the keys it
// stores (the row's key among them).
struct CustomReader {
  FieldFunction read;
  schema::Member member;  // the name is the row's member
  schema::List<schema::Key> keys;
};

namespace schema {

// The keys of a record operation read from `from`, stored flat.
constexpr Key RecordKeys(const OperationSchema& record, const char* from, unsigned char flags = 0) {
  Key k = ScalarKey(nullptr, Value::kRows, flags, from);
  k.record = &record;
  return k;
}

// What an operation reads and stores.
struct OperationSchema {
  const char* summary;   // one sentence
  Member node;           // the node it reads (name null)
  List<Key> keys;        // the keys it stores, in order; none given: the
                         // keys of the node's table (node.rows)
  List<const char*> refusals;  // when it returns 0, and what is stored by then
  // A dispatcher: the forms it chooses between, and how it chooses.
  const OperationSchema* forms[2];
  const char* choice;
};

constexpr OperationSchema Operation(const char* summary, Member node, List<Key> keys,
                                   List<const char*> refusals) {
  return OperationSchema{summary, node, keys, refusals, {nullptr, nullptr}, nullptr};
}
constexpr OperationSchema Dispatcher(const char* summary, const OperationSchema& first,
                                     const OperationSchema& second, const char* choice,
                                     List<const char*> refusals) {
  return OperationSchema{summary, MakeMember(nullptr, Json::kAny), List<Key>(), refusals, {&first, &second},
                         choice};
}

}  // namespace schema
}  // namespace _quarn_framework

#endif  // JSON_READERS_FIELDSCHEMA_H_
