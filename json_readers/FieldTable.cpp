#include "json_readers/FieldTable.h"

#include "json_readers/Diagnostics.h"
#include "json_readers/FieldSchema.h"

#include <cassert>
#include <memory>
#include <utility>

// Keeps a rare path out of its caller's frame.
#if defined(__GNUC__)
#define FIELDTABLE_NOINLINE __attribute__((noinline))
#else
#define FIELDTABLE_NOINLINE
#endif

namespace _quarn_framework {

namespace {

int CountTrailingZeros(uint64_t bits) {
#if defined(__GNUC__)
  return __builtin_ctzll(bits);
#else
  int n = 0;
  for (; (bits & 1) == 0; bits >>= 1) ++n;
  return n;
#endif
}

std::vector<const char*> MemberNames(const FieldRow* rows, int count) {
  std::vector<const char*> names;
  names.reserve(static_cast<size_t>(count));
  for (int i = 0; i < count; ++i) names.push_back(rows[i].member);
  return names;
}

// The most keys a row stores.
int KeysOf(const FieldRow& row) {
  switch (row.reader) {
    case FieldReader::kFlat:
      return row.table().MaxKeys();
    case FieldReader::kCustom:
      return row.keys;
    default:
      return 1;
  }
}

// Whether a row may store a key when its member is absent: an int or an int
// as text with a default, and the custom rows.
bool StoresWithoutMember(FieldReader reader) {
  return reader == FieldReader::kIntAlways || reader == FieldReader::kIntAsText || reader == FieldReader::kCustom;
}

}  // namespace

FieldTable::FieldTable(const FieldRow* rows, int count)
    : m_rows(rows),
      m_count(count),
      m_maxKeys(0),
      m_alwaysKeys(0),
      m_memberKeys{},
      m_needsMember(0),
      m_textIfNotEmpty(0),
      m_members(MemberNames(rows, count).data(), count) {
  assert(count <= kMaxRows);
  // A table is built on first use, where an allocation may fail; the static
  // is then built again on the next call. So a failure part-way gives back
  // the key array; the permanent texts made so far stay in the process's
  // table of permanent texts, where the next build finds them again.
  std::unique_ptr<CVString[]> keys(new CVString[static_cast<size_t>(count)]);
  for (int i = 0; i < count; ++i) keys[i] = CVString(rows[i].key, CVString::Permanent());
  for (int i = 0; i < count; ++i) {
    const int row_keys = KeysOf(rows[i]);
    assert(row_keys <= UINT8_MAX);
    m_maxKeys += row_keys;
    if (StoresWithoutMember(rows[i].reader)) {
      m_alwaysKeys += row_keys;
      m_memberKeys[i] = 0;
    } else {
      m_memberKeys[i] = static_cast<uint8_t>(row_keys);
      m_needsMember |= uint64_t{1} << i;
    }
    if (rows[i].reader == FieldReader::kTextIfNotEmpty) m_textIfNotEmpty |= uint64_t{1} << i;
  }
  m_keys = keys.release();
}

void FieldTable::ReadRows(cJSON* object, const CVString* lead_key, CVString* lead, CVBundle& out) const {
  cJSON* slots[kMaxRows];
  // Room for what the present members can store, not for every row: the
  // room of a row whose member the answer leaves out would stay in the
  // record for as long as the client keeps it (40 bytes a row; 80 bytes a
  // POI of the benchmark's answers, more for sparser ones). Measured: +1.2 %
  // instructions for the 20-POI build, one block growth per POI included.
  int keys = m_alwaysKeys;
  // A table of one row (a nested object holding one list) looks its member
  // up directly: cheaper than hashing every member's name.
  if (m_count == 1) {
    slots[0] = FindMember(object, m_rows[0].member);
    keys += slots[0] != nullptr ? m_memberKeys[0] : 0;
  } else {
    keys += m_members.Gather(object, slots, m_memberKeys);
    // An empty string stores no text: no room for it either (a room left
    // unused costs 40 bytes for as long as the record is kept).
    for (uint64_t rows = m_textIfNotEmpty; rows != 0; rows &= rows - 1) {
      const cJSON* member = slots[CountTrailingZeros(rows)];
      const char* bytes = JsonStringBytes(member);
      if (IsJsonString(member) && (bytes == nullptr || bytes[0] == 0)) --keys;
    }
  }
  if (lead_key != nullptr) {
    out.Reserve(out.GetCount() + keys + 1);
    out.SetString(*lead_key, std::move(*lead));
  } else {
    out.Reserve(out.GetCount() + keys);
  }
  // The row, its key and its member advance together; the row count is
  // not read again after each store. (Indexing the three arrays by row and
  // reading the count after every call cost some 4 instructions a row,
  // 7,000 a build of the 20-POI answer.)
  const FieldRow* row = m_rows;
  const CVString* key = m_keys;
  cJSON** const end = slots + m_count;
  for (cJSON** slot = slots; slot != end; ++slot, ++row, ++key) {
    cJSON* member = *slot;
    if (member == nullptr && ((m_needsMember >> (slot - slots)) & 1) != 0) continue;
    switch (row->reader) {
      case FieldReader::kInt:
        field::StoreInt(member, *key, out);
        break;
      case FieldReader::kBool:
        field::StoreBool(member, *key, out);
        break;
      case FieldReader::kString:
        field::StoreString(member, *key, out);
        break;
      case FieldReader::kStringArray:
        field::StoreStringArray(member, *key, out);
        break;
      case FieldReader::kTextIfNotEmpty:
        field::StoreTextIfNotEmpty(member, *key, out);
        break;
      case FieldReader::kIntAsText:
        field::StoreIntAsText(member, row->start, *key, out);
        break;
      case FieldReader::kIntAlways:
        field::StoreIntAlways(member, row->start, row->convert, *key, out);
        break;
      case FieldReader::kRecord:
        field::StoreRecord(member, row->table(), row->keep, *key, out);
        break;
      case FieldReader::kFlat:
        if (UsableObject(member)) row->table().Read(member, out);
        break;
      case FieldReader::kList:
        field::StoreList(member, row->table(), row->keep, *key, out);
        break;
      case FieldReader::kCustom:
        row->custom->read(member, *key, out);
        break;
    }
  }
}

bool UsableObject(cJSON* member) {
  if (IsJsonObject(member)) return true;
  diag::SkipMember(member, "an object");
  return false;
}

bool UsableArray(cJSON* member) {
  if (IsJsonArray(member)) return true;
  diag::SkipMember(member, "an array");
  return false;
}

namespace field {

// What each reader wants, for the reports of members it cannot use.
constexpr const char kWantInt[] = "an integer";
constexpr const char kWantBool[] = "a truth value";
constexpr const char kWantText[] = "text";

int StoreInt(cJSON* member, const CVString& key, CVBundle& out) {
  int value = 0;
  if (!JsonReadInt(member, &value)) return diag::SkipMember(member, kWantInt), 0;
  out.SetInt(key, value);
  return 1;
}

int StoreBool(cJSON* member, const CVString& key, CVBundle& out) {
  bool value = false;
  if (!JsonReadBool(member, &value)) return diag::SkipMember(member, kWantBool), 0;
  out.SetBool(key, value ? 1 : 0);
  return 1;
}

namespace {

// The readers of text for a member that is not a string (absent, a number,
// ...): a function of their own, so that the string case, decoded straight
// into the bundle, needs no frame.
FIELDTABLE_NOINLINE int StoreOtherText(cJSON* member, const CVString& key, CVBundle& out) {
  CVString text;
  if (!JsonReadText(member, &text)) return diag::SkipMember(member, kWantText), 0;
  out.SetString(key, std::move(text));
  return 1;
}

FIELDTABLE_NOINLINE int StoreOtherTextIfNotEmpty(cJSON* member, const CVString& key, CVBundle& out) {
  CVString text;
  if (!JsonReadText(member, &text)) diag::SkipMember(member, kWantText);
  if (text.IsEmpty()) return 0;
  out.SetString(key, std::move(text));
  return 1;
}

}  // namespace

int StoreString(cJSON* member, const CVString& key, CVBundle& out) {
  if (!IsJsonString(member)) return StoreOtherText(member, key, out);
  out.SetStringUtf8(key, member->valuestring);
  return 1;
}

int StoreStringArray(cJSON* member, const CVString& key, CVBundle& out) {
  if (!IsJsonArray(member)) return diag::SkipMember(member, "an array of strings"), 0;
  CVBundle::StringArray texts;
  for (cJSON* element : JsonElements(member)) {
    CVString text;
    if (!IsJsonString(element) || !JsonReadText(element, &text)) {
      diag::SkipElement(element, "a string");
      continue;
    }
    AppendByMove(texts, text);
  }
  out.SetStringArray(key, std::move(texts));
  return 1;
}

int StoreTextIfNotEmpty(cJSON* member, const CVString& key, CVBundle& out) {
  if (!IsJsonString(member)) return StoreOtherTextIfNotEmpty(member, key, out);
  // Bytes decode to at least one unit each (an invalid one to U+FFFD), so
  // the text is empty iff the bytes are.
  const char* bytes = member->valuestring;
  if (bytes == nullptr || bytes[0] == 0) return 0;
  out.SetStringUtf8(key, bytes);
  return 1;
}

void StoreIntAsText(cJSON* member, int start, const CVString& key, CVBundle& out) {
  int value = start;
  if (!JsonReadInt(member, &value)) diag::SkipMember(member, kWantInt);
  CVString text;
  CVString::AssignDecimal(text, value);
  out.SetString(key, std::move(text));
}

void StoreIntAlways(cJSON* member, int start, IntConversion convert, const CVString& key, CVBundle& out) {
  int value = start;
  if (!JsonReadInt(member, &value)) diag::SkipMember(member, kWantInt);
  out.SetInt(key, convert != nullptr ? convert(value) : value);
}

void StoreRecord(cJSON* member, const FieldTable& table, Keep keep, const CVString& key, CVBundle& out) {
  if (member == nullptr) return;
  const bool usable = UsableObject(member);
  if (!usable && keep == Keep::kRecords) return;
  CVBundle record;
  if (usable) table.Read(member, record);
  out.SetBundle(key, std::move(record));
}

void StoreList(cJSON* member, const FieldTable& table, Keep keep, const CVString& key, CVBundle& out) {
  if (!UsableArray(member)) return;
  CVBundle::BundleArray records;
  bool any_element = false;
  for (cJSON* element : JsonElements(member)) {
    any_element = true;
    CVBundle record;
    if (table.ReadRecord(element, record)) {
      AppendByMove(records, record);
    } else {
      diag::SkipElement(element, "an object");
    }
  }
  const bool store = keep == Keep::kPresent ? any_element : records.m_nSize >= 1;
  if (store) out.SetBundleArray(key, std::move(records));
}

}  // namespace field

}  // namespace _quarn_framework
