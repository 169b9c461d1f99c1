#include "json_readers/FieldTable.h"

#include "json_readers/Diagnostics.h"
#include "json_readers/FieldSchema.h"

#include <cassert>
#include <memory>
#include <type_traits>
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
      m_distinctKeys(true),
      m_flatAppendable(true),
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
  // The keys of the rows, flattened through the appendable flat rows, with
  // the bits that Resync tests before it compares.
  m_flatAppendable = true;
  m_flatKeysFrom.resize(static_cast<size_t>(count) + 1);
  for (int i = 0; i < count; ++i) {
    m_flatKeysFrom[i] = static_cast<int>(m_flatKeys.size());
    const FieldReader reader = rows[i].reader;
    if (reader == FieldReader::kCustom) {
      m_flatAppendable = false;
    } else if (reader != FieldReader::kFlat) {
      m_flatKeys.push_back(keys[i].PermanentRep());
    } else if (rows[i].table().m_flatAppendable) {
      const std::vector<const CVString::Rep*>& nested = rows[i].table().m_flatKeys;
      m_flatKeys.insert(m_flatKeys.end(), nested.begin(), nested.end());
    } else {
      m_flatAppendable = false;
    }
  }
  m_flatKeysFrom[count] = static_cast<int>(m_flatKeys.size());
  m_keyBitsFrom.assign(static_cast<size_t>(count) + 1, 0);
  for (int i = count - 1; i >= 0; --i) {
    uint64_t bits = m_keyBitsFrom[i + 1];
    for (int k = m_flatKeysFrom[i]; k < m_flatKeysFrom[i + 1]; ++k) bits |= CVBundle::Appender::KeyBit(m_flatKeys[k]);
    m_keyBitsFrom[i] = bits;
  }
  m_distinctKeys = true;
  for (size_t i = 0; i < m_flatKeys.size(); ++i) {
    for (size_t j = 0; j < i; ++j) {
      if (m_flatKeys[j] == m_flatKeys[i]) m_distinctKeys = false;
    }
  }
  m_keys = keys.release();
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

// The readers store into a bundle (`Out` = CVBundle) or, from a table's
// rows, through its appender (CVBundle::Appender), whose setters have the
// same names.
namespace {

template <class Out>
int StoreIntTo(cJSON* member, const CVString& key, Out& out) {
  int value = 0;
  if (!JsonReadInt(member, &value)) return diag::SkipMember(member, kWantInt), 0;
  out.SetInt(key, value);
  return 1;
}

template <class Out>
int StoreBoolTo(cJSON* member, const CVString& key, Out& out) {
  bool value = false;
  if (!JsonReadBool(member, &value)) return diag::SkipMember(member, kWantBool), 0;
  out.SetBool(key, value ? 1 : 0);
  return 1;
}

// The readers of text for a member that is not a string (absent, a number,
// ...): a function of their own, so that the string case, decoded straight
// into the bundle, needs no frame.
template <class Out>
FIELDTABLE_NOINLINE int StoreOtherText(cJSON* member, const CVString& key, Out& out) {
  CVString text;
  if (!JsonReadText(member, &text)) return diag::SkipMember(member, kWantText), 0;
  out.SetString(key, std::move(text));
  return 1;
}

template <class Out>
FIELDTABLE_NOINLINE int StoreOtherTextIfNotEmpty(cJSON* member, const CVString& key, Out& out) {
  CVString text;
  if (!JsonReadText(member, &text)) diag::SkipMember(member, kWantText);
  if (text.IsEmpty()) return 0;
  out.SetString(key, std::move(text));
  return 1;
}

template <class Out>
int StoreStringTo(cJSON* member, const CVString& key, Out& out) {
  if (!IsJsonString(member)) return StoreOtherText(member, key, out);
  out.SetStringUtf8(key, member->valuestring);
  return 1;
}

template <class Out>
int StoreStringArrayTo(cJSON* member, const CVString& key, Out& out) {
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

template <class Out>
int StoreTextIfNotEmptyTo(cJSON* member, const CVString& key, Out& out) {
  if (!IsJsonString(member)) return StoreOtherTextIfNotEmpty(member, key, out);
  // Bytes decode to at least one unit each (an invalid one to U+FFFD), so
  // the text is empty iff the bytes are.
  const char* bytes = member->valuestring;
  if (bytes == nullptr || bytes[0] == 0) return 0;
  out.SetStringUtf8(key, bytes);
  return 1;
}

template <class Out>
void StoreIntAsTextTo(cJSON* member, int start, const CVString& key, Out& out) {
  int value = start;
  if (!JsonReadInt(member, &value)) diag::SkipMember(member, kWantInt);
  CVString text;
  CVString::AssignDecimal(text, value);
  out.SetString(key, std::move(text));
}

template <class Out>
void StoreIntAlwaysTo(cJSON* member, int start, IntConversion convert, const CVString& key, Out& out) {
  int value = start;
  if (!JsonReadInt(member, &value)) diag::SkipMember(member, kWantInt);
  out.SetInt(key, convert != nullptr ? convert(value) : value);
}

template <class Out>
void StoreRecordTo(cJSON* member, const FieldTable& table, Keep keep, const CVString& key, Out& out) {
  if (member == nullptr) return;
  const bool usable = UsableObject(member);
  if (!usable && keep == Keep::kRecords) return;
  CVBundle record;
  if (usable) table.Read(member, record);
  out.SetBundle(key, std::move(record));
}

template <class Out>
void StoreListTo(cJSON* member, const FieldTable& table, Keep keep, const CVString& key, Out& out) {
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

}  // namespace

int StoreInt(cJSON* member, const CVString& key, CVBundle& out) { return StoreIntTo(member, key, out); }
int StoreBool(cJSON* member, const CVString& key, CVBundle& out) { return StoreBoolTo(member, key, out); }
int StoreString(cJSON* member, const CVString& key, CVBundle& out) { return StoreStringTo(member, key, out); }
int StoreStringArray(cJSON* member, const CVString& key, CVBundle& out) {
  return StoreStringArrayTo(member, key, out);
}
int StoreTextIfNotEmpty(cJSON* member, const CVString& key, CVBundle& out) {
  return StoreTextIfNotEmptyTo(member, key, out);
}
void StoreIntAsText(cJSON* member, int start, const CVString& key, CVBundle& out) {
  StoreIntAsTextTo(member, start, key, out);
}
void StoreIntAlways(cJSON* member, int start, IntConversion convert, const CVString& key, CVBundle& out) {
  StoreIntAlwaysTo(member, start, convert, key, out);
}
void StoreRecord(cJSON* member, const FieldTable& table, Keep keep, const CVString& key, CVBundle& out) {
  StoreRecordTo(member, table, keep, key, out);
}
void StoreList(cJSON* member, const FieldTable& table, Keep keep, const CVString& key, CVBundle& out) {
  StoreListTo(member, table, keep, key, out);
}

}  // namespace field

int FieldTable::GatherRows(cJSON* object, cJSON** slots) const {
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
    return keys + (slots[0] != nullptr ? m_memberKeys[0] : 0);
  }
  keys += m_members.Gather(object, slots, m_memberKeys);
  // An empty string stores no text: no room for it either (a room left
  // unused costs 40 bytes for as long as the record is kept).
  for (uint64_t rows = m_textIfNotEmpty; rows != 0; rows &= rows - 1) {
    const cJSON* member = slots[CountTrailingZeros(rows)];
    const char* bytes = JsonStringBytes(member);
    if (IsJsonString(member) && (bytes == nullptr || bytes[0] == 0)) --keys;
  }
  return keys;
}

// A record whose bundle held no key (as every record the readers build)
// is filled through an appender when the table repeats no key: its stores
// need not look their keys up, which saves about a third of a store. The
// keys stored by custom rows (and by flat rows whose tables have custom
// rows) are checked against the keys still to come as they are stored, and
// so is the lead.
void FieldTable::ReadRows(cJSON* object, const CVString* lead_key, CVString* lead, CVBundle& out) const {
  cJSON* slots[kMaxRows];
  const int keys = GatherRows(object, slots);
  const bool fresh_keys = m_distinctKeys && out.GetCount() == 0;
  out.Reserve(out.GetCount() + keys + (lead_key != nullptr ? 1 : 0));
  if (!fresh_keys) {
    if (lead_key != nullptr) out.SetString(*lead_key, std::move(*lead));
    return StoreRows(slots, out);
  }
  CVBundle::Appender appender(out, /*fresh_keys=*/true);
  if (lead_key != nullptr) {
    out.SetString(*lead_key, std::move(*lead));
    appender.Resync(m_flatKeys.data(), static_cast<int>(m_flatKeys.size()), m_keyBitsFrom[0]);
  }
  StoreRows(slots, appender);
}

template <class Out>
void FieldTable::StoreRows(cJSON** slots, Out& out) const {
  constexpr bool kAppender = std::is_same<Out, CVBundle::Appender>::value;
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
        field::StoreIntTo(member, *key, out);
        break;
      case FieldReader::kBool:
        field::StoreBoolTo(member, *key, out);
        break;
      case FieldReader::kString:
        field::StoreStringTo(member, *key, out);
        break;
      case FieldReader::kStringArray:
        field::StoreStringArrayTo(member, *key, out);
        break;
      case FieldReader::kTextIfNotEmpty:
        field::StoreTextIfNotEmptyTo(member, *key, out);
        break;
      case FieldReader::kIntAsText:
        field::StoreIntAsTextTo(member, row->start, *key, out);
        break;
      case FieldReader::kIntAlways:
        field::StoreIntAlwaysTo(member, row->start, row->convert, *key, out);
        break;
      case FieldReader::kRecord:
        field::StoreRecordTo(member, row->table(), row->keep, *key, out);
        break;
      case FieldReader::kFlat:
        if (!UsableObject(member)) break;
        if constexpr (kAppender) {
          const FieldTable& table = row->table();
          if (table.m_flatAppendable) {
            // Its keys are among this table's, known to be new: the same
            // appender stores them (this record's block has their room).
            cJSON* nested[kMaxRows];
            table.GatherRows(member, nested);
            table.StoreRows(nested, out);
          } else {
            table.Read(member, out.bundle());
            ResyncAfter(static_cast<int>(slot - slots), out);
          }
        } else {
          row->table().Read(member, out);
        }
        break;
      case FieldReader::kList:
        field::StoreListTo(member, row->table(), row->keep, *key, out);
        break;
      case FieldReader::kCustom:
        if constexpr (kAppender) {
          row->custom->read(member, *key, out.bundle());
          ResyncAfter(static_cast<int>(slot - slots), out);
        } else {
          row->custom->read(member, *key, out);
        }
        break;
    }
  }
}

void FieldTable::ResyncAfter(int row, CVBundle::Appender& out) const {
  const int from = m_flatKeysFrom[row + 1];
  out.Resync(m_flatKeys.data() + from, static_cast<int>(m_flatKeys.size()) - from, m_keyBitsFrom[row + 1]);
}

}  // namespace _quarn_framework
