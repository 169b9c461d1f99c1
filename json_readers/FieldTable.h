// Field tables: a record's members as data.
//
// A record is read by one loop over an ordered table of rows (JSON member,
// bundle key, reader), in the table's order, so the code has the shape of the
// answer format. The object's members are found in one pass (JsonMemberTable)
// and every bundle key is built once, when the table is built; reading a
// record then allocates nothing for its keys.
//
// Rows whose reading is not one of the standard readers (a nested record, a
// converted value) name a function of their own; it gets the member's node
// (null when absent), the row's key and the record.
//
// Thread safety: a FieldTable is immutable after construction; build each
// table once (a function-local static) and read with it from any thread.
// Tables live for the whole program: their keys are never freed.
#ifndef JSON_READERS_FIELDTABLE_H_
#define JSON_READERS_FIELDTABLE_H_

#include <cstddef>
#include <vector>

#include "json_readers/JsonAccess.h"
#include "json_readers/JsonObjParser.h"

namespace _quarn_framework {

// How a row reads its member.
enum class FieldReader : unsigned char {
  kInt,             // GetJsonIntItem
  kBool,            // GetJsonBoolItem
  kString,          // GetJsonStringItem
  kStringArray,     // GetJsonStringArray
  kTextIfNotEmpty,  // GetJsonItem (text form), stored only when not empty
  kIntAsText,       // GetJsonItem (integer form) from `start`, always stored as "%d" text
  kCustom,          // the row's own function
};

typedef void (*FieldFunction)(cJSON* member, const CVString& key, CVBundle& out);

struct FieldRow {
  const char* member;
  const char* key;
  FieldReader reader;
  int start;             // kIntAsText: the int before the read (kept when unreadable)
  FieldFunction custom;  // kCustom
  int max_keys;          // keys the row may store; sizes the record's block
};

// Row builders; `key` defaults to the member's own name.
constexpr FieldRow IntField(const char* member, const char* key = nullptr) {
  return FieldRow{member, key ? key : member, FieldReader::kInt, 0, nullptr, 1};
}
constexpr FieldRow BoolField(const char* member, const char* key = nullptr) {
  return FieldRow{member, key ? key : member, FieldReader::kBool, 0, nullptr, 1};
}
constexpr FieldRow StringField(const char* member, const char* key = nullptr) {
  return FieldRow{member, key ? key : member, FieldReader::kString, 0, nullptr, 1};
}
constexpr FieldRow StringArrayField(const char* member) {
  return FieldRow{member, member, FieldReader::kStringArray, 0, nullptr, 1};
}
constexpr FieldRow TextIfNotEmptyField(const char* member) {
  return FieldRow{member, member, FieldReader::kTextIfNotEmpty, 0, nullptr, 1};
}
constexpr FieldRow IntAsTextField(const char* member, int start) {
  return FieldRow{member, member, FieldReader::kIntAsText, start, nullptr, 1};
}
constexpr FieldRow CustomField(const char* member, const char* key, FieldFunction custom,
                               int max_keys) {
  return FieldRow{member, key, FieldReader::kCustom, 0, custom, max_keys};
}

class FieldTable {
 public:
  // At most this many rows per table (the slots live on the stack).
  static constexpr int kMaxRows = 48;

  template <size_t N>
  explicit FieldTable(const FieldRow (&rows)[N]) : FieldTable(rows, static_cast<int>(N)) {}
  FieldTable(const FieldRow* rows, int count);

  // Reads every row from `object`, in table order, into `out`. A null or
  // non-object `object` reads every member as absent.
  void Read(cJSON* object, CVBundle& out) const;

  // The record of an object node: 1 after Read, or 0 with nothing stored for
  // a null or non-object node (the gate of every record operation).
  int ReadRecord(cJSON* node, CVBundle& out) const {
    if (!_quarn_vi::IsJsonObject(node)) return 0;
    Read(node, out);
    return 1;
  }

  // The most keys a Read can add (for sizing a record's block).
  int MaxKeys() const { return m_maxKeys; }
  const CVString& Key(int row) const { return m_keys[row]; }

 private:
  const FieldRow* m_rows;
  int m_count;
  int m_maxKeys;
  _quarn_vi::JsonMemberTable m_members;
  // The row keys, permanent strings shared by every bundle that stores them.
  // Deliberately never freed: bundles may hold their storage until exit, and
  // the pointer keeps it reachable for leak checkers after the table's end.
  CVString* m_keys;
};

// The storing readers on a member node already looked up (null allowed);
// each returns 1 iff it stored.
namespace field {
int StoreInt(cJSON* member, const CVString& key, CVBundle& out);
int StoreBool(cJSON* member, const CVString& key, CVBundle& out);
int StoreString(cJSON* member, const CVString& key, CVBundle& out);
int StoreStringArray(cJSON* member, const CVString& key, CVBundle& out);
int StoreTextIfNotEmpty(cJSON* member, const CVString& key, CVBundle& out);
void StoreIntAsText(cJSON* member, int start, const CVString& key, CVBundle& out);
}  // namespace field

}  // namespace _quarn_framework

#endif  // JSON_READERS_FIELDTABLE_H_
