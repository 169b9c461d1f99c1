// Field tables: a record's members as data.
//
// A record is read by one loop over an ordered table of rows (JSON member,
// bundle key, reader), in the table's order, so the code has the shape of the
// answer format. The object's members are found in one pass (JsonMemberTable)
// and every bundle key is built once, when the table is built; reading a
// record then allocates nothing for its keys.
//
// Rows cover scalars, integers as text, ints always stored, nested records,
// nested objects read flat and lists of records; the nested ones name the
// table of their record. A row whose reading is irregular names a function
// of its own; it gets the member's node (null when absent), the row's key
// and the record. A table's key budget (MaxKeys) is derived from its rows.
//
// Thread safety: a FieldTable is immutable after construction; build each
// table once (a function-local static) and read with it from any thread.
// Tables live for the whole program: their keys are never freed.
#ifndef JSON_READERS_FIELDTABLE_H_
#define JSON_READERS_FIELDTABLE_H_

#include <cassert>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "json_readers/JsonAccess.h"
#include "json_readers/JsonObjParser.h"

namespace _quarn_framework {

class FieldTable;
struct CustomReader;  // json_readers/FieldSchema.h

// The table of a nested record or list element: a function that builds the
// table once (a function-local static) and returns it. Tables refer to each
// other through these, so a table's key budget can include its nested ones.
typedef const FieldTable& (*TableFunction)();

// How a row reads its member.
enum class FieldReader : unsigned char {
  kInt,             // GetJsonIntItem
  kBool,            // GetJsonBoolItem
  kString,          // GetJsonStringItem
  kStringArray,     // GetJsonStringArray
  kTextIfNotEmpty,  // GetJsonItem (text form), stored only when not empty
  kIntAsText,       // GetJsonItem (integer form) from `start`, always stored as "%d" text
  kIntAlways,       // GetJsonItem (integer form) from `start`, always stored (through `convert`)
  kRecord,          // the member's object read by `table` into a bundle stored under the key
  kFlat,            // the member's object read by `table` into the record itself
  kList,            // the member's array, one record of `table` per object element
  kCustom,          // the row's own function
};

// When a nested record or list is stored (kRecord, kList).
enum class Keep : unsigned char {
  kRecords,  // record: when the member is an object; list: when an element
             // gave a record
  kPresent,  // record: whenever the member is present (an empty bundle
             // unless it is an object); list: whenever the array has
             // elements, even when none gave a record
};

typedef void (*FieldFunction)(cJSON* member, const CVString& key, CVBundle& out);
typedef int (*IntConversion)(int value);

struct FieldRow {
  const char* member;
  const char* key;
  FieldReader reader;
  Keep keep;              // kRecord, kList
  unsigned char keys;     // kCustom: the keys the function may store (its key budget)
  int start;              // kIntAsText, kIntAlways: the int before the read (kept when unreadable)
  IntConversion convert;  // kIntAlways: applied to the int before it is stored; null: none
  TableFunction table;    // kRecord, kFlat, kList: the nested table
  // kCustom: the row's function, with what it reads and stores (for the
  // schemas). Behind a pointer, so that a row stays 48 bytes: with the
  // description's pointer in the row (56 bytes) indexing a row took one more
  // instruction, +0.09 % on the 20-POI answer's parse (callgrind).
  const CustomReader* custom;
};

// Row builders: `member` is the JSON member read, `key` the bundle key
// stored (a constant of poi_parser/BundleKeys.h).
constexpr FieldRow MakeRow(const char* member, const char* key, FieldReader reader) {
  return FieldRow{member, key, reader, Keep::kRecords, 1, 0, nullptr, nullptr, nullptr};
}
constexpr FieldRow IntField(const char* member, const char* key) {
  return MakeRow(member, key, FieldReader::kInt);
}
constexpr FieldRow BoolField(const char* member, const char* key) {
  return MakeRow(member, key, FieldReader::kBool);
}
constexpr FieldRow StringField(const char* member, const char* key) {
  return MakeRow(member, key, FieldReader::kString);
}
constexpr FieldRow StringArrayField(const char* member, const char* key) {
  return MakeRow(member, key, FieldReader::kStringArray);
}
constexpr FieldRow TextIfNotEmptyField(const char* member, const char* key) {
  return MakeRow(member, key, FieldReader::kTextIfNotEmpty);
}
constexpr FieldRow IntAsTextField(const char* member, const char* key, int start) {
  FieldRow row = MakeRow(member, key, FieldReader::kIntAsText);
  row.start = start;
  return row;
}
// An int stored whatever the member holds: `start` when it cannot be read;
// `convert`, when given, maps the value before it is stored.
constexpr FieldRow IntAlwaysField(const char* member, const char* key, int start,
                                  IntConversion convert = nullptr) {
  FieldRow row = MakeRow(member, key, FieldReader::kIntAlways);
  row.start = start;
  row.convert = convert;
  return row;
}
// A nested record: the member's object read by `table`, stored as a bundle
// under `key` as `keep` says. A present member that is not an object is
// reported as skipped.
constexpr FieldRow RecordField(const char* member, const char* key, TableFunction table,
                               Keep keep = Keep::kRecords) {
  FieldRow row = MakeRow(member, key, FieldReader::kRecord);
  row.table = table;
  row.keep = keep;
  return row;
}
// A nested object read flat: its members read by `table` into the record
// itself (its keys are the table's). Nothing when it is not an object.
constexpr FieldRow FlatField(const char* member, TableFunction table) {
  FieldRow row = MakeRow(member, member, FieldReader::kFlat);  // the key is not stored
  row.table = table;
  return row;
}
// A list of records: one record of `table` per object element of the
// member's array, in order (other elements are skipped without a gap),
// stored as an array of bundles under `key` as `keep` says.
constexpr FieldRow ListField(const char* member, const char* key, TableFunction table,
                             Keep keep = Keep::kRecords) {
  FieldRow row = MakeRow(member, key, FieldReader::kList);
  row.table = table;
  row.keep = keep;
  return row;
}
// A member whose reading no standard row expresses: `custom` holds the
// function and the description of what it reads and stores; `keys` is the
// most keys the function stores.
constexpr FieldRow CustomField(const char* member, const char* key, const CustomReader& custom,
                               unsigned char keys = 1) {
  FieldRow row = MakeRow(member, key, FieldReader::kCustom);
  row.custom = &custom;
  row.keys = keys;
  return row;
}

class FieldTable {
 public:
  // At most this many rows per table (the slots live on the stack).
  static constexpr int kMaxRows = 48;

  template <size_t N>
  explicit FieldTable(const FieldRow (&rows)[N]) : FieldTable(rows, static_cast<int>(N)) {
    static_assert(N <= kMaxRows, "a table holds at most kMaxRows rows");
  }
  // REQUIRES: count <= kMaxRows.
  FieldTable(const FieldRow* rows, int count);

  // Reads every row from `object`, in table order, into `out`. A null or
  // non-object `object` reads every member as absent.
  void Read(cJSON* object, CVBundle& out) const { ReadRows(object, nullptr, nullptr, out); }

  // Read, with `lead` stored under `lead_key` ahead of the rows' keys. The
  // room for both is reserved at once: storing the lead first, then reading,
  // would cost the record a second block (a POI's place bundle, whose
  // "src_name" comes first).
  void ReadAfter(cJSON* object, const CVString& lead_key, CVString&& lead, CVBundle& out) const {
    ReadRows(object, &lead_key, &lead, out);
  }

  // The record of an object node: 1 after Read, or 0 with nothing stored for
  // a null or non-object node (the gate of every record operation).
  int ReadRecord(cJSON* node, CVBundle& out) const {
    if (!IsJsonObject(node)) return 0;
    Read(node, out);
    return 1;
  }

  // The most keys a Read can add (for sizing a record's block): one per
  // row, a flat row's nested table's own, a custom row's declared count.
  int MaxKeys() const { return m_maxKeys; }
  // The bundle key of row `row`. REQUIRES: 0 <= row < the row count.
  const CVString& Key(int row) const {
    assert(row >= 0 && row < m_count);
    return m_keys[row];
  }
  // The rows, as given to the constructor (for the schemas).
  const FieldRow* Rows() const { return m_rows; }
  int RowCount() const { return m_count; }

 private:
  // Read; a non-null `lead_key` stores `*lead` first.
  void ReadRows(cJSON* object, const CVString* lead_key, CVString* lead, CVBundle& out) const;

  const FieldRow* m_rows;
  int m_count;
  int m_maxKeys;
  int m_alwaysKeys;  // keys of the rows that store without their member
  // Per row: the keys it stores when its member is present, 0 for the rows
  // counted in m_alwaysKeys.
  uint8_t m_memberKeys[kMaxRows];
  // Bit i: row i stores nothing and reports nothing when its member is
  // absent, so Read skips it then.
  uint64_t m_needsMember;
  // Bit i: row i is a kTextIfNotEmpty row.
  uint64_t m_textIfNotEmpty;
  static_assert(kMaxRows <= 64, "a bit per row in the row masks");
  JsonMemberTable m_members;
  // The row keys, permanent strings shared by every bundle that stores them.
  // Deliberately never freed: bundles may hold their storage until exit, and
  // the pointer keeps it reachable for leak checkers after the table's end.
  CVString* m_keys;
};

// The table of the current-city record (CJsonObjParser::GetCurrentCityFromJson).
const FieldTable& CurrentCityTable();

// Whether `member` is an object (an array for UsableArray); a present member
// of another type is reported as skipped.
bool UsableObject(cJSON* member);
bool UsableArray(cJSON* member);

// The storing readers on a member node already looked up (null allowed);
// each returns 1 iff it stored.
namespace field {
int StoreInt(cJSON* member, const CVString& key, CVBundle& out);
int StoreBool(cJSON* member, const CVString& key, CVBundle& out);
int StoreString(cJSON* member, const CVString& key, CVBundle& out);
int StoreStringArray(cJSON* member, const CVString& key, CVBundle& out);
int StoreTextIfNotEmpty(cJSON* member, const CVString& key, CVBundle& out);
void StoreIntAsText(cJSON* member, int start, const CVString& key, CVBundle& out);
// The row kinds of the same names (see the row builders above).
void StoreIntAlways(cJSON* member, int start, IntConversion convert, const CVString& key, CVBundle& out);
void StoreRecord(cJSON* member, const FieldTable& table, Keep keep, const CVString& key, CVBundle& out);
void StoreList(cJSON* member, const FieldTable& table, Keep keep, const CVString& key, CVBundle& out);
}  // namespace field

}  // namespace _quarn_framework

#endif  // JSON_READERS_FIELDTABLE_H_
