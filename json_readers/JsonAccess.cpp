#include "json_readers/JsonAccess.h"

#include <charconv>
#include <climits>
#include <cmath>
#include <cstring>
#include <string>

#include "foundation/Utf8.h"

namespace _quarn_vi {

cJSON* cJSON_GetObjectItem(cJSON* node, const char* name) {
  if (!IsJsonObject(node) || name == nullptr) return nullptr;
  for (cJSON* m = node->child; m != nullptr; m = m->next) {
    if (m->string != nullptr && std::strcmp(m->string, name) == 0) return m;
  }
  return nullptr;
}

int cJSON_GetArraySize(cJSON* node) {
  int n = 0;
  for (cJSON* e : JsonElements(node)) {
    (void)e;
    if (n == INT_MAX) break;
    ++n;
  }
  return n;
}

cJSON* cJSON_GetArrayItem(cJSON* node, int index) {
  if (index < 0) return nullptr;
  for (cJSON* e : JsonElements(node)) {
    if (index-- == 0) return e;
  }
  return nullptr;
}

// ---- JsonMemberTable ----------------------------------------------------------

JsonMemberTable::JsonMemberTable(const char* const* names, int count) {
  m_names.reserve(static_cast<size_t>(count));
  for (int i = 0; i < count; ++i) {
    Name name{names[i], -1};
    for (int j = 0; j < i; ++j) {
      if (std::strcmp(names[j], names[i]) == 0) {
        name.same_as = m_names[static_cast<size_t>(j)].same_as >= 0 ? m_names[static_cast<size_t>(j)].same_as : j;
        break;
      }
    }
    m_names.push_back(name);
  }
  // Counting sort of the distinct names by bucket.
  uint16_t counts[kBuckets] = {};
  for (const Name& name : m_names) {
    if (name.same_as < 0) ++counts[Bucket(name.text)];
  }
  for (int b = 0; b < kBuckets; ++b) m_bucketStart[b + 1] = static_cast<uint16_t>(m_bucketStart[b] + counts[b]);
  m_candidates.assign(m_bucketStart[kBuckets], 0);
  uint16_t fill[kBuckets];
  std::memcpy(fill, m_bucketStart, sizeof(fill));
  for (int i = 0; i < count; ++i) {
    if (m_names[static_cast<size_t>(i)].same_as < 0) {
      m_candidates[fill[Bucket(m_names[static_cast<size_t>(i)].text)]++] = static_cast<uint16_t>(i);
    }
  }
}

namespace {

// libc's strcmp compares a word or a vector at a time without reading past
// the terminator's page: faster than a byte loop for names of 5 to 25 bytes.
inline bool SameName(const char* a, const char* b) { return a[0] == b[0] && std::strcmp(a, b) == 0; }

}  // namespace

void JsonMemberTable::Gather(cJSON* object, cJSON** slots) const {
  const int count = Count();
  for (int i = 0; i < count; ++i) slots[i] = nullptr;
  if (!IsJsonObject(object)) return;
  for (cJSON* m = object->child; m != nullptr; m = m->next) {
    const char* name = m->string;
    if (name == nullptr) continue;
    unsigned bucket = Bucket(name);
    for (unsigned c = m_bucketStart[bucket], end = m_bucketStart[bucket + 1]; c < end; ++c) {
      int f = m_candidates[c];
      if (SameName(m_names[static_cast<size_t>(f)].text, name)) {
        if (slots[f] == nullptr) slots[f] = m;  // the first of duplicates wins
        break;
      }
    }
  }
  for (int i = 0; i < count; ++i) {
    int same = m_names[static_cast<size_t>(i)].same_as;
    if (same >= 0) slots[i] = slots[same];
  }
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
// +-2^53, else the shortest text that reads back the same double.
size_t FormatNumber(double d, char* buf, size_t size) {
  constexpr double kExact = 9007199254740992.0;  // 2^53
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

bool JsonReadText(const cJSON* value, CVString* out) {
  char scratch[32];
  const char* bytes;
  size_t length;
  if (!TextBytes(value, scratch, sizeof(scratch), &bytes, &length)) return false;
  CVString::AssignUtf8(*out, bytes, length);
  return true;
}

bool JsonReadTextToBuffer(const cJSON* value, char* buffer, int size) {
  if (buffer == nullptr || size < 1) return false;
  char scratch[32];
  const char* bytes;
  size_t length;
  if (!TextBytes(value, scratch, sizeof(scratch), &bytes, &length)) return false;
  const unsigned char* s = reinterpret_cast<const unsigned char*>(bytes);
  const size_t room = static_cast<size_t>(size) - 1;
  size_t o = 0;
  for (size_t i = 0; i < length;) {
    // Copy whole characters; an invalid subpart becomes U+FFFD (3 bytes).
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
  return true;
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

}  // namespace _quarn_vi
