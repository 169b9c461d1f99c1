#include "json_readers/JsonAccess.h"

#include <charconv>
#include <climits>
#include <cmath>
#include <cstring>
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

JsonMemberTable::JsonMemberTable(const char* const* names, int count) {
  uint32_t slots = 8;
  while (slots < static_cast<uint32_t>(count) * 2) slots *= 2;
  m_index.assign(slots, 0);
  m_mask = slots - 1;
  m_names.reserve(static_cast<size_t>(count));
  m_next.reset(new std::atomic<uint16_t>[static_cast<size_t>(count) + 1]);
  for (int i = 0; i <= count; ++i) m_next[i].store(0, std::memory_order_relaxed);
  for (int i = 0; i < count; ++i) {
    Name name{names[i], KeyOf(names[i], std::strlen(names[i]))};
    for (uint32_t slot = HashOf(name.key) & m_mask;; slot = (slot + 1) & m_mask) {
      if (m_index[slot] == 0) {
        m_index[slot] = static_cast<uint16_t>(i + 1);
        break;
      }
      const Name& other = m_names[m_index[slot] - 1u];
      if (std::strcmp(other.text, name.text) == 0) {
        m_repeats.push_back(Repeat{i, m_index[slot] - 1});
        break;
      }
    }
    m_names.push_back(name);
  }
}

int JsonMemberTable::Find(const char* name) const {
  const size_t length = std::strlen(name);
  const NameKey key = KeyOf(name, length);
  for (uint32_t slot = HashOf(key) & m_mask; m_index[slot] != 0; slot = (slot + 1) & m_mask) {
    const int f = m_index[slot] - 1;
    const Name& candidate = m_names[static_cast<size_t>(f)];
    // Names longer than 16 bytes also compare their middle bytes.
    if (candidate.key == key && (length <= 16 || std::memcmp(candidate.text + 8, name + 8, length - 16) == 0)) {
      return f;
    }
  }
  return -1;
}

int JsonMemberTable::Gather(cJSON* object, cJSON** slots, const uint8_t* weights) const {
  const int count = Count();
  for (int i = 0; i < count; ++i) slots[i] = nullptr;
  if (!IsJsonObject(object)) return 0;
  int weight = 0;
  int previous = 0;  // m_next's position for the last member found
  for (cJSON* m = object->child; m != nullptr; m = m->next) {
    const char* name = m->string;
    if (name == nullptr) continue;
    const int guess = m_next[previous].load(std::memory_order_relaxed) - 1;
    int f = -1;
    if (guess >= 0 && std::strcmp(m_names[static_cast<size_t>(guess)].text, name) == 0) {
      f = guess;
    } else {
      f = Find(name);
      if (f < 0) continue;
      m_next[previous].store(static_cast<uint16_t>(f + 1), std::memory_order_relaxed);
    }
    if (slots[f] == nullptr) {  // the first of duplicates wins
      slots[f] = m;
      weight += weights[f];
    }
    previous = f + 1;
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
