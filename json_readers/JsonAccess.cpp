#include "json_readers/JsonAccess.h"

#include <charconv>
#include <climits>
#include <cmath>
#include <cstring>
#include <new>
#include <string>

#include "foundation/Utf8.h"

namespace _quarn_framework {

using _quarn_vi::Utf8SequenceAt;

const cJSON* FindMember(const cJSON* node, const char* name) {
  if (!IsJsonObject(node) || name == nullptr) return nullptr;
  for (const cJSON* m = node->child; m != nullptr; m = m->next) {
    if (m->string != nullptr && std::strcmp(m->string, name) == 0) return m;
  }
  return nullptr;
}

int ArraySize(const cJSON* node) {
  int n = 0;
  for (cJSON* e : JsonElements(const_cast<cJSON*>(node))) {
    (void)e;
    if (n == INT_MAX) break;
    ++n;
  }
  return n;
}

const cJSON* ArrayElement(const cJSON* node, int index) {
  if (index < 0) return nullptr;
  for (cJSON* e : JsonElements(const_cast<cJSON*>(node))) {
    if (index-- == 0) return e;
  }
  return nullptr;
}

// ---- JsonMemberTable ----------------------------------------------------------

JsonMemberTable::NameKey JsonMemberTable::KeyOf(const char* name, size_t length) {
  NameKey key{0, 0, static_cast<uint32_t>(length)};
  if (length >= 8) {
    std::memcpy(&key.head, name, 8);
    std::memcpy(&key.tail, name + length - 8, 8);
  } else if (length >= 4) {
    uint32_t head, tail;
    std::memcpy(&head, name, 4);
    std::memcpy(&tail, name + length - 4, 4);
    key.head = head;
    key.tail = tail;
  } else if (length > 0) {
    const unsigned char* u = reinterpret_cast<const unsigned char*>(name);
    key.head = u[0] | (static_cast<uint64_t>(u[length / 2]) << 8) | (static_cast<uint64_t>(u[length - 1]) << 16);
  }
  return key;
}

// A name's record, in m_records. The objects a table reads (the POIs of a
// list) mostly list their members in the same order, so each record
// remembers which of the table's names followed its name last time (the
// object start's record: which came first). A member that is its
// predecessor's guess costs one comparison with that name instead of its
// length, key and hash probe. Guesses are hints only: Gather's result never
// depends on them. They start as names[0].
struct JsonMemberTable::Record {
  mutable std::atomic<const char*> next;  // the guess: its name
  uint64_t mask;                            // NameBytesMask of the name
  uint16_t index;                           // in the table
  // The name and its NUL follow, at least 16 bytes after the record's
  // start: the comparison reads up to 15 bytes before a name.
  static constexpr size_t Head() { return sizeof(Record) > 16 ? sizeof(Record) : 16; }
  const char* Name() const { return reinterpret_cast<const char*>(this) + Head(); }
  static Record* Of(const char* name) { return reinterpret_cast<Record*>(const_cast<char*>(name) - Head()); }
  // The room of a record for a name of `length` bytes, in words.
  static size_t Words(size_t length) { return (Head() + length + 1 + 7) / 8; }
};

JsonMemberTable::JsonMemberTable(const char* const* names, int count) {
  uint32_t slots = 8;
  while (slots < static_cast<uint32_t>(count) * 2) slots *= 2;
  m_index.assign(slots, 0);
  m_mask = slots - 1;
  m_names.reserve(static_cast<size_t>(count));
  m_keys.reserve(static_cast<size_t>(count));
  size_t words = Record::Words(0) + 2;  // the start's record and 16 bytes of zeros
  for (int i = 0; i < count; ++i) words += Record::Words(std::strlen(names[i]));
  m_records.reset(new uint64_t[words]());
  uint64_t* at = m_records.get() + Record::Words(0);
  for (int i = 0; i < count; ++i) {
    const size_t length = std::strlen(names[i]);
    Record* record = new (at) Record{{nullptr}, _quarn_vi::NameBytesMask(length), static_cast<uint16_t>(i)};
    char* text = const_cast<char*>(record->Name());
    std::memcpy(text, names[i], length);  // the NUL is the buffer's zero
    at += Record::Words(length);
    const NameKey key = KeyOf(text, length);
    for (uint32_t slot = HashOf(key) & m_mask;; slot = (slot + 1) & m_mask) {
      if (m_index[slot] == 0) {
        m_index[slot] = static_cast<uint16_t>(i + 1);
        break;
      }
      if (std::strcmp(m_names[m_index[slot] - 1u], text) == 0) {
        m_repeats.push_back(Repeat{i, m_index[slot] - 1});
        break;
      }
    }
    m_names.push_back(text);
    m_keys.push_back(key);
  }
  const char* first = count > 0 ? m_names[0] : nullptr;
  new (m_records.get()) Record{{first}, 0, 0};
  for (const char* name : m_names) Record::Of(name)->next.store(first, std::memory_order_relaxed);
}

int JsonMemberTable::Find(const char* name) const {
  const size_t length = std::strlen(name);
  const NameKey key = KeyOf(name, length);
  for (uint32_t slot = HashOf(key) & m_mask; m_index[slot] != 0; slot = (slot + 1) & m_mask) {
    const size_t f = m_index[slot] - 1u;
    // Names longer than 16 bytes also compare their middle bytes.
    if (m_keys[f] == key && (length <= 16 || std::memcmp(m_names[f] + 8, name + 8, length - 16) == 0)) {
      return static_cast<int>(f);
    }
  }
  return -1;
}

__attribute__((noinline)) const char* JsonMemberTable::FindAndGuess(const char* name,
                                                                   std::atomic<const char*>* previous) const {
  // The guess differs, unless it ends beyond the blocks that the inline
  // comparison reads.
  const char* guess = previous->load(std::memory_order_relaxed);
  const size_t length = m_keys[Record::Of(guess)->index].length;
  if ((reinterpret_cast<uintptr_t>(name) & 15) + length >= 16 * _quarn_vi::kInlineBlocks &&
      _quarn_vi::TerminatedTextEquals(name, guess, length)) {
    return guess;
  }
  const int f = Find(name);
  if (f < 0) return nullptr;
  const char* found = m_names[static_cast<size_t>(f)];
  previous->store(found, std::memory_order_relaxed);
  return found;
}

// Sets the n slots to null: the few of a small table (a nested object's)
// with two overlapping stores, cheaper than a call of memset.
static void ClearSlots(cJSON** slots, size_t n) {
#if defined(__SSE2__)
  if (n - 2 <= 2) {  // 2 to 4
    _mm_storeu_si128(reinterpret_cast<__m128i*>(slots), _mm_setzero_si128());
    _mm_storeu_si128(reinterpret_cast<__m128i*>(slots + n - 2), _mm_setzero_si128());
    return;
  }
#endif
  if (n != 0) std::memset(static_cast<void*>(slots), 0, n * sizeof(*slots));
}

int JsonMemberTable::Gather(cJSON* object, cJSON** slots, const uint8_t* weights) const {
  const size_t count = m_names.size();
  ClearSlots(slots, count);
  if (!IsJsonObject(object) || count == 0) return 0;
  int weight = 0;
  // The guess of the next member: the last one found's.
  std::atomic<const char*>* previous = &reinterpret_cast<const Record*>(m_records.get())->next;
  for (cJSON* m = object->child; m != nullptr; m = m->next) {
    const char* text = m->string;
    if (text == nullptr) continue;
    const char* guess = previous->load(std::memory_order_relaxed);
    if (__builtin_expect(!_quarn_vi::TerminatedTextInBlocks(text, guess, Record::Of(guess)->mask), 0)) {
      guess = FindAndGuess(text, previous);
      if (guess == nullptr) continue;
    }
    const Record* record = Record::Of(guess);
    previous = &record->next;
    const size_t f = record->index;
    cJSON** const slot = slots + f;
    if (*slot == nullptr) {  // the first of duplicates wins
      *slot = m;
      weight += weights[f];
    }
  }
  for (const Repeat& repeat : m_repeats) {
    if (slots[repeat.same_as] != nullptr) {
      slots[repeat.name] = slots[repeat.same_as];
      weight += weights[repeat.name];
    }
  }
  return weight;
}

// ---- Scalar reads -------------------------------------------------------------

namespace {

inline bool IsAsciiSpace(unsigned char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

// An optionally signed decimal integer within int32, white space around it
// allowed.
bool ParseDecimalInt(const char* text, int* out) {
  const char* p = text;
  while (IsAsciiSpace(static_cast<unsigned char>(*p))) ++p;
  bool negative = false;
  if (*p == '+' || *p == '-') negative = (*p++ == '-');
  if (*p < '0' || *p > '9') return false;
  long long value = 0;
  for (; *p >= '0' && *p <= '9'; ++p) {
    value = value * 10 + (*p - '0');
    if (value > static_cast<long long>(INT_MAX) + 1) return false;
  }
  while (IsAsciiSpace(static_cast<unsigned char>(*p))) ++p;
  if (*p != 0) return false;
  if (negative) value = -value;
  if (value > INT_MAX || value < INT_MIN) return false;
  *out = static_cast<int>(value);
  return true;
}

// The text form of a number: plain decimal for integral values within
// +-2^53, else the shortest text that reads back the same double; "inf" and
// "-inf" for the infinities (cJSON reads a number beyond the double range,
// 1e400, as one), "nan" for a NaN of either sign (only a tree built through
// cJSON's API holds one).
size_t FormatNumber(double d, char* buf, size_t size) {
  constexpr double kExact = 9007199254740992.0;  // 2^53
  if (std::isnan(d)) {
    std::memcpy(buf, "nan", 3);
    return 3;
  }
  if (std::isfinite(d) && d == std::trunc(d) && std::fabs(d) <= kExact) {
    auto r = std::to_chars(buf, buf + size, static_cast<long long>(d));
    return static_cast<size_t>(r.ptr - buf);
  }
  auto r = std::to_chars(buf, buf + size, d);
  return static_cast<size_t>(r.ptr - buf);
}

// The text of a scalar node as UTF-8 bytes: *bytes/*length point at the
// node's own text or at `scratch`. False for nodes without a text form.
bool TextBytes(const cJSON* value, char* scratch, size_t scratch_size, const char** bytes,
               size_t* length) {
  if (value == nullptr) return false;
  switch (JsonTypeCode(value)) {
    case cJSON_String:
      *bytes = value->valuestring != nullptr ? value->valuestring : "";
      *length = std::strlen(*bytes);
      return true;
    case cJSON_Number:
      *bytes = scratch;
      *length = FormatNumber(value->valuedouble, scratch, scratch_size);
      return true;
    case cJSON_True:
      *bytes = "true";
      *length = 4;
      return true;
    case cJSON_False:
      *bytes = "false";
      *length = 5;
      return true;
    default:
      return false;
  }
}

}  // namespace

bool JsonReadInt(const cJSON* value, int* out) {
  if (value == nullptr) return false;
  switch (JsonTypeCode(value)) {
    case cJSON_Number: {
      double d = value->valuedouble;
      if (std::isnan(d)) return false;
      if (d >= 2147483647.0) {
        *out = INT_MAX;
      } else if (d <= -2147483648.0) {
        *out = INT_MIN;
      } else {
        *out = static_cast<int>(d);  // truncates toward zero
      }
      return true;
    }
    case cJSON_True:
      *out = 1;
      return true;
    case cJSON_False:
      *out = 0;
      return true;
    case cJSON_String:
      return value->valuestring != nullptr && ParseDecimalInt(value->valuestring, out);
    default:
      return false;
  }
}

bool JsonReadBool(const cJSON* value, bool* out) {
  if (value == nullptr) return false;
  switch (JsonTypeCode(value)) {
    case cJSON_True:
      *out = true;
      return true;
    case cJSON_False:
      *out = false;
      return true;
    case cJSON_Number:
      *out = value->valuedouble != 0.0;
      return true;
    case cJSON_String: {
      const char* s = value->valuestring;
      if (s == nullptr) return false;
      if (std::strcmp(s, "true") == 0 || std::strcmp(s, "1") == 0) {
        *out = true;
        return true;
      }
      if (std::strcmp(s, "false") == 0 || std::strcmp(s, "0") == 0) {
        *out = false;
        return true;
      }
      return false;
    }
    default:
      return false;
  }
}

bool JsonReadScalarText(const cJSON* value, CVString* out) {
  char scratch[32];
  const char* bytes;
  size_t length;
  if (!TextBytes(value, scratch, sizeof(scratch), &bytes, &length)) return false;
  CVString::AssignUtf8(*out, bytes, length);
  return true;
}

namespace {

// Copies whole characters of the n bytes at s into buffer (room bytes and a
// NUL); an invalid subpart becomes U+FFFD (3 bytes).
void CopyWholeCharacters(const unsigned char* s, size_t length, char* buffer, size_t room) {
  size_t o = 0;
  for (size_t i = 0; i < length;) {
    uint32_t cp;
    int subpart = 0;
    int n = s[i] < 0x80 ? 1 : Utf8SequenceAt(s + i, length - i, &cp, &subpart);
    if (n > 0) {
      if (o + static_cast<size_t>(n) > room) break;
      std::memcpy(buffer + o, s + i, static_cast<size_t>(n));
      o += static_cast<size_t>(n);
      i += static_cast<size_t>(n);
    } else {
      if (o + 3 > room) break;
      std::memcpy(buffer + o, "\xEF\xBF\xBD", 3);
      o += 3;
      i += static_cast<size_t>(subpart);
    }
  }
  buffer[o] = 0;
}

}  // namespace

bool JsonReadTextToBuffer(const cJSON* value, char* buffer, int size) {
  if (buffer == nullptr || size < 1) return false;
  const size_t room = static_cast<size_t>(size) - 1;
  if (IsJsonString(value)) {
    // One pass finds the length; an ASCII text is then copied whole.
    _quarn_vi::PaddedText copy;
    const char* text = value->valuestring != nullptr ? value->valuestring : "";
    if (!_quarn_vi::CopyTerminatedText(text, &copy)) {
      CopyWholeCharacters(reinterpret_cast<const unsigned char*>(text), std::strlen(text), buffer, room);
    } else if (copy.ascii) {
      const size_t n = copy.length < room ? copy.length : room;
      std::memcpy(buffer, copy.text, n);
      buffer[n] = 0;
    } else {
      CopyWholeCharacters(copy.text, copy.length, buffer, room);
    }
    return true;
  }
  char scratch[32];
  const char* bytes;
  size_t length;
  if (!TextBytes(value, scratch, sizeof(scratch), &bytes, &length)) return false;
  CopyWholeCharacters(reinterpret_cast<const unsigned char*>(bytes), length, buffer, room);
  return true;
}

int LeadingDecimalInt(const char* text, bool* digits) {
  if (digits != nullptr) *digits = false;
  if (text == nullptr) return 0;
  const char* p = text;
  while (IsAsciiSpace(static_cast<unsigned char>(*p))) ++p;
  bool negative = false;
  if (*p == '+' || *p == '-') negative = (*p++ == '-');
  if (digits != nullptr) *digits = *p >= '0' && *p <= '9';
  // Accumulated as a negative number, whose range holds INT_MIN; the digits
  // past saturation are read and dropped.
  long long value = 0;
  for (; *p >= '0' && *p <= '9'; ++p) {
    if (value > static_cast<long long>(INT_MIN) - 1) value = value * 10 - (*p - '0');
  }
  if (!negative) value = -value;
  if (value > INT_MAX) return INT_MAX;
  if (value < INT_MIN) return INT_MIN;
  return static_cast<int>(value);
}

const char* JsonTypeName(const cJSON* value) {
  if (value == nullptr) return "nothing";
  switch (JsonTypeCode(value)) {
    case cJSON_False:
    case cJSON_True:
      return "boolean";
    case cJSON_NULL:
      return "null";
    case cJSON_Number:
      return "number";
    case cJSON_String:
      return "string";
    case cJSON_Array:
      return "array";
    case cJSON_Object:
      return "object";
    default:
      return "invalid node";
  }
}

}  // namespace _quarn_framework
