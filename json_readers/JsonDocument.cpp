// CJsonDocument: see JsonDocument.h for the contract.
//
// Invariants of a document between calls:
// (1) m_impl->text holds a copy of the last text, NUL-terminated at
//     m_impl->length and readable (padding) for kPadding bytes beyond; the
//     leniency scan and cJSON read it there.
// (2) Exactly one of these holds: m_root is null (refused, or no Parse yet);
//     m_own_tree and m_root points into m_impl->nodes, whose strings point
//     into the simdjson parser's string buffer; m_root == m_cjson_tree, a tree
//     of cJSON's allocations that Reset deletes.
// (3) The buffers only grow (the text copy, simdjson's parser, the node
//     block): a text no longer than an earlier one allocates nothing.
#include "json_readers/JsonDocument.h"

#include <climits>
#include <cstdint>
#include <cstring>
#include <string>

#include "foundation/Utf8.h"

#if POIPARSER_WITH_SIMDJSON
#include <simdjson.h>
#endif

namespace _quarn_framework {

using _quarn_vi::Utf8SequenceAt;

namespace {

// cJSON's CJSON_NESTING_LIMIT: it refuses a 1001st nested array or object.
constexpr int kNestingLimit = 1000;
// cJSON 1.7.15 reads at most 63 bytes of a number (see LongestCjsonNumber).
constexpr size_t kCutNumberLength = 63;
#if POIPARSER_WITH_SIMDJSON
constexpr size_t kPadding = simdjson::SIMDJSON_PADDING;

// cJSON 1.7.15 copies at most 63 bytes of a number before strtod reads
// them, and refuses the digits left behind; later releases (and Debian's
// patched 1.7.15) read numbers of any length. The linked cJSON is asked once.
size_t LongestCjsonNumber() {
  static const size_t longest = [] {
    const std::string text = "[" + std::string(kCutNumberLength + 1, '1') + "]";
    cJSON* tree = cJSON_Parse(text.c_str());
    cJSON_Delete(tree);
    return tree == nullptr ? kCutNumberLength : SIZE_MAX;
  }();
  return longest;
}

// cJSON's valueint of a number: saturated at the int range, else truncated.
inline int CjsonValueInt(double number) {
  if (number >= INT_MAX) return INT_MAX;
  if (number <= static_cast<double>(INT_MIN)) return INT_MIN;
  return static_cast<int>(number);
}

#else
constexpr size_t kPadding = 1;
#endif

inline bool IsNumberByte(unsigned char c) {
  return (c >= '0' && c <= '9') || c == '+' || c == '-' || c == 'e' || c == 'E' || c == '.';
}

}  // namespace

// ---- The buffers a document keeps ---------------------------------------------

struct CJsonDocument::Impl {
  std::unique_ptr<char[]> text;  // the copy of the last text, see invariant (1)
  size_t text_capacity = 0;      // bytes of `text`
  size_t length = 0;             // bytes of the last text

#if POIPARSER_WITH_SIMDJSON
  // An open array or object of the conversion: the container around it
  // and that container's last child (the one being filled).
  struct Frame {
    cJSON* container;
    cJSON* last;
  };
  simdjson::dom::parser parser;
  std::unique_ptr<cJSON[]> nodes;  // the node block, not cleared between uses
  size_t node_capacity = 0;
  // frames[k] saves the state of the conversion outside the k-th open
  // container (frames[0] is unused).
  std::unique_ptr<Frame[]> frames{new Frame[kNestingLimit + 1]};

  bool Convert(const char* text, cJSON** root, size_t* bytes);
#endif

  void CopyText(const char* source, size_t size) {
    if (text_capacity < size + kPadding + 1) {
      text_capacity = (size + kPadding + 1 + 4095) & ~static_cast<size_t>(4095);
      text.reset(new char[text_capacity]);
    }
    std::memcpy(text.get(), source, size);
    text[size] = '\0';
    length = size;
  }
};

#if POIPARSER_WITH_SIMDJSON

// simdjson's tape (one 64-bit word per entry, the type in the top byte):
//   'r' root, the first one's payload the index after the closing root word;
//   '{' '[' payload: low 32 bits the index after the matching close;
//   '}' ']' close; '"' payload the string's offset in the string buffer,
//   where a 4-byte length, the bytes and a NUL follow;
//   'l' 'u' 'd' a number, its 64 bits in the next word; 't' 'f' 'n'.
// The structural indexes (stage 1's output) list, in text order, the offset
// of every bracket, comma and colon and of the first byte of every value; the
// conversion counts them in step with the tape to find a number's text.
//
// Returns false to hand the text to cJSON: nesting deeper than cJSON's limit,
// or a number longer than cJSON reads. Writes every field of every node
// (the block is never cleared).
bool CJsonDocument::Impl::Convert(const char* json, cJSON** root_out, size_t* bytes) {
  constexpr uint64_t kPayload = (uint64_t{1} << 56) - 1;
  const uint64_t* tape = parser.doc.tape.get();
  const char* strings = reinterpret_cast<const char*>(parser.doc.string_buf.get());
  const uint32_t* structurals = parser.implementation->structural_indexes.get();
  const size_t tape_end = static_cast<size_t>(tape[0] & kPayload) - 1;  // the closing root word
  const size_t longest_number = LongestCjsonNumber();
  const bool cuts_numbers = longest_number != SIZE_MAX;
  // Every node takes at least one tape word between the two root words.
  if (node_capacity < tape_end) {
    nodes.reset(new cJSON[tape_end]);
    node_capacity = tape_end;
  }
  cJSON* next_node = nodes.get();
  cJSON* root = nullptr;
  // The open container and its last child so far live in registers; the
  // frames keep those of the containers around it.
  Frame* top = frames.get();
  cJSON* container = nullptr;
  cJSON* last = nullptr;
  bool in_object = false;
  // The structural index of the current value, counted from the structure
  // alone (a comma before every element but the first, a name and a colon
  // before every member's value), so that no load waits on another.
  size_t s = 0;
  size_t last_string = 0;  // offset of the last string in the string buffer
  bool any_string = false;
  for (size_t i = 1; i < tape_end;) {
    uint64_t word = tape[i];
    char kind = static_cast<char>(word >> 56);
    if (kind == '}' || kind == ']') {
      cJSON* first = container->child;
      if (first != nullptr) first->prev = last;  // cJSON's last-child link
      container = top->container;
      last = top->last;
      in_object = container != nullptr && container->type == cJSON_Object;
      --top;
      ++i;
      ++s;
      continue;
    }
    s += last != nullptr;  // the comma
    const char* name = nullptr;
    if (in_object) {
      last_string = static_cast<size_t>(word & kPayload);
      any_string = true;
      name = strings + last_string + 4;
      word = tape[++i];
      kind = static_cast<char>(word >> 56);
      s += 2;  // the name and the colon
    }
    cJSON* node = next_node++;
    node->next = nullptr;
    node->prev = last;
    node->child = nullptr;
    node->valuestring = nullptr;
    node->valueint = 0;
    node->valuedouble = 0;
    node->string = const_cast<char*>(name);
    if (last != nullptr) {
      last->next = node;
    } else if (container != nullptr) {
      container->child = node;
    } else {
      root = node;
    }
    last = node;
    double number;
    switch (kind) {
      case '{':
      case '[':
        node->type = kind == '{' ? cJSON_Object : cJSON_Array;
        if (top - frames.get() == kNestingLimit) return false;
        ++top;
        top->container = container;
        top->last = last;
        container = node;
        last = nullptr;
        in_object = kind == '{';
        ++i;
        ++s;
        continue;
      case '"':
        last_string = static_cast<size_t>(word & kPayload);
        any_string = true;
        node->type = cJSON_String;
        node->valuestring = const_cast<char*>(strings + last_string + 4);
        ++i;
        break;
      case 'l':
      case 'u':
      case 'd': {
        const uint64_t bits = tape[i + 1];
        if (kind == 'l') {
          const int64_t value = static_cast<int64_t>(bits);
          number = static_cast<double>(value);
          // simdjson reads "-0" as the integer 0; strtod gives -0.0.
          if (value == 0 && json[structurals[s]] == '-') number = -0.0;
        } else if (kind == 'u') {
          number = static_cast<double>(bits);
        } else {
          std::memcpy(&number, &bits, sizeof(number));
        }
        // The next structural bounds the number's text; look closer only
        // when the gap could hold a number cJSON cuts short.
        if (cuts_numbers && structurals[s + 1] - structurals[s] > longest_number) {
          size_t end = structurals[s];
          while (IsNumberByte(static_cast<unsigned char>(json[end]))) ++end;
          if (end - structurals[s] > longest_number) return false;
        }
        node->type = cJSON_Number;
        node->valuedouble = number;
        node->valueint = CjsonValueInt(number);
        i += 2;
        break;
      }
      case 't':
        node->type = cJSON_True;
        node->valueint = 1;  // as cJSON sets it
        ++i;
        break;
      case 'f':
        node->type = cJSON_False;
        ++i;
        break;
      default:  // 'n'
        node->type = cJSON_NULL;
        ++i;
        break;
    }
    ++s;
  }
  size_t string_bytes = 0;
  if (any_string) {
    uint32_t last_length;
    std::memcpy(&last_length, strings + last_string, sizeof(last_length));
    string_bytes = last_string + 4 + last_length + 1;
  }
  *bytes = static_cast<size_t>(next_node - nodes.get()) * sizeof(cJSON) + string_bytes;
  *root_out = root;
  return true;
}

bool CJsonDocument::UsesSimdjson() { return true; }

#else

bool CJsonDocument::UsesSimdjson() { return false; }

#endif  // POIPARSER_WITH_SIMDJSON

// ---- The document -------------------------------------------------------------

CJsonDocument::CJsonDocument() : m_impl(new Impl) {}

CJsonDocument::~CJsonDocument() { Reset(); }

void CJsonDocument::Reset() {
  if (m_cjson_tree != nullptr) cJSON_Delete(m_cjson_tree);
  m_cjson_tree = nullptr;
  m_root = nullptr;
  m_own_tree = false;
  m_tree_bytes = 0;
  m_error_offset = 0;
  m_error_message = "";
  m_strict = -1;
  m_leniency_offset = 0;
  m_leniency_message = "";
}

cJSON* CJsonDocument::Parse(const char* text, size_t length) {
  Reset();
  m_impl->CopyText(text, length);
  const char* copy = m_impl->text.get();
#if POIPARSER_WITH_SIMDJSON
  // simdjson accepts no NUL byte anywhere, so a text it accepts has none.
  auto parsed = m_impl->parser.parse(copy, length, false);
  if (parsed.error() == simdjson::SUCCESS) {
    cJSON* root = nullptr;
    size_t bytes = 0;
    if (m_impl->Convert(copy, &root, &bytes)) {
      m_root = root;
      m_own_tree = true;
      m_tree_bytes = bytes;
      m_strict = 1;
      return m_root;
    }
  }
#endif
  // cJSON stops at a NUL byte: such a text is refused, not cut short.
  if (const void* nul = std::memchr(copy, 0, length)) {
    m_error_offset = static_cast<size_t>(static_cast<const char*>(nul) - copy);
    m_error_message = "NUL byte in the text";
    return nullptr;
  }
  // The copy with its NUL is what cJSON_ParseWithOpts(copy, &end, 1) reads.
  const char* end = nullptr;
  m_cjson_tree = cJSON_ParseWithLengthOpts(copy, length + 1, &end, 1);
  if (m_cjson_tree == nullptr) {
    m_error_offset = end != nullptr ? static_cast<size_t>(end - copy) : 0;
    m_error_message = DescribeRefusal(copy, length, &m_error_offset);
    return nullptr;
  }
  m_root = m_cjson_tree;
  return m_root;
}

void CJsonDocument::ComputeLeniency() const {
  if (m_strict >= 0 || m_root == nullptr) return;
  size_t offset = 0;
  const char* reason = FindLeniency(m_impl->text.get(), m_impl->length, &offset);
  m_strict = reason == nullptr ? 1 : 0;
  m_leniency_offset = reason == nullptr ? 0 : offset;
  m_leniency_message = reason == nullptr ? "" : reason;
}

bool CJsonDocument::IsStrict() const {
  ComputeLeniency();
  return m_strict == 1;
}

size_t CJsonDocument::LeniencyOffset() const {
  ComputeLeniency();
  return m_leniency_offset;
}

const char* CJsonDocument::LeniencyMessage() const {
  ComputeLeniency();
  return m_leniency_message;
}

// ---- Strict JSON: the first departure ------------------------------------------

namespace {

class StrictScanner {
 public:
  StrictScanner(const char* text, size_t length)
      : m_text(reinterpret_cast<const unsigned char*>(text)), m_length(length) {}

  // Null when strict; else the reason, with *offset.
  const char* Run(size_t* offset) {
    const char* reason = Scan();
    *offset = m_pos;
    return reason;
  }

 private:
  static constexpr int kMaxDepth = 1024;

  bool AtEnd() const { return m_pos >= m_length; }
  unsigned char Peek() const { return m_pos < m_length ? m_text[m_pos] : 0; }

  // Strict white space; stops at a control byte (which cJSON would skip).
  const char* SkipSpace() {
    for (; m_pos < m_length; ++m_pos) {
      const unsigned char c = m_text[m_pos];
      if (c == ' ' || c == '\t' || c == '\n' || c == '\r') continue;
      return c < 0x20 ? "control byte as white space" : nullptr;
    }
    return nullptr;
  }

  const char* Scan() {
    if (m_length >= 3 && m_text[0] == 0xEF && m_text[1] == 0xBB && m_text[2] == 0xBF) return "byte order mark";
    uint64_t is_object[kMaxDepth / 64] = {};
    int depth = 0;
    const char* r;
    for (;;) {
      // A value.
      if ((r = SkipSpace()) != nullptr) return r;
      if (AtEnd()) return "unexpected end of text";
      const unsigned char c = m_text[m_pos];
      if (c == '{' || c == '[') {
        if (depth == kMaxDepth) return "nesting deeper than 1024 levels";
        const bool object = c == '{';
        uint64_t& bits = is_object[depth / 64];
        const uint64_t bit = uint64_t{1} << (depth % 64);
        bits = object ? (bits | bit) : (bits & ~bit);
        ++depth;
        ++m_pos;
        if ((r = SkipSpace()) != nullptr) return r;
        if (Peek() != (object ? '}' : ']')) {
          if (object && (r = Member()) != nullptr) return r;
          continue;  // the first value
        }
        ++m_pos;
        --depth;
      } else if (c == '"') {
        if ((r = String()) != nullptr) return r;
      } else if (c == '-' || (c >= '0' && c <= '9')) {
        if ((r = Number()) != nullptr) return r;
      } else if ((r = Literal()) != nullptr) {
        return r;
      }
      // After a value: a comma, a closing bracket or the end.
      for (;;) {
        if ((r = SkipSpace()) != nullptr) return r;
        if (depth == 0) return AtEnd() ? nullptr : "text after the JSON value";
        const bool object = (is_object[(depth - 1) / 64] >> ((depth - 1) % 64)) & 1;
        const unsigned char d = Peek();
        if (d == ',') {
          ++m_pos;
          if (object && (r = Member()) != nullptr) return r;
          break;  // the next value
        }
        if (d == (object ? '}' : ']')) {
          ++m_pos;
          --depth;
          continue;
        }
        return AtEnd() ? "unexpected end of text" : "unexpected character";
      }
    }
  }

  // A member's name and colon; leaves m_pos at its value.
  const char* Member() {
    const char* r;
    if ((r = SkipSpace()) != nullptr) return r;
    if (Peek() != '"') return AtEnd() ? "unexpected end of text" : "unexpected character";
    if ((r = String()) != nullptr) return r;
    if ((r = SkipSpace()) != nullptr) return r;
    if (Peek() != ':') return AtEnd() ? "unexpected end of text" : "unexpected character";
    ++m_pos;
    return nullptr;
  }

  static int Hex(unsigned char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
  }

  // Four hex digits at m_pos + 2 of a "\u" escape, or -1.
  int Escape16() const {
    if (m_length - m_pos < 6 || m_text[m_pos] != '\\' || m_text[m_pos + 1] != 'u') return -1;
    int value = 0;
    for (size_t k = 2; k < 6; ++k) {
      const int h = Hex(m_text[m_pos + k]);
      if (h < 0) return -1;
      value = value * 16 + h;
    }
    return value;
  }

  const char* String() {
    ++m_pos;  // the opening quote
    for (;;) {
      if (AtEnd()) return "unclosed string";
      const unsigned char c = m_text[m_pos];
      if (c == '"') {
        ++m_pos;
        return nullptr;
      }
      if (c < 0x20) return "unescaped control byte in a string";
      if (c == '\\') {
        if (m_length - m_pos < 2) return "unclosed string";
        const unsigned char e = m_text[m_pos + 1];
        if (e == 'u') {
          const int unit = Escape16();
          if (unit < 0) return "invalid \\u escape";
          if (unit >= 0xDC00 && unit <= 0xDFFF) return "unpaired surrogate in a \\u escape";
          if (unit >= 0xD800 && unit <= 0xDBFF) {
            m_pos += 6;
            const int low = Escape16();
            if (low < 0xDC00 || low > 0xDFFF) return "unpaired surrogate in a \\u escape";
          }
          m_pos += 6;
        } else if (e == '"' || e == '\\' || e == '/' || e == 'b' || e == 'f' || e == 'n' || e == 'r' || e == 't') {
          m_pos += 2;
        } else {
          return "invalid escape in a string";
        }
        continue;
      }
      if (c < 0x80) {
        ++m_pos;
        continue;
      }
      // UTF-8 (RFC 3629): no overlong forms, no surrogates, at most U+10FFFF.
      uint32_t code_point;
      int subpart;
      const int n = Utf8SequenceAt(m_text + m_pos, m_length - m_pos, &code_point, &subpart);
      if (n == 0) return "invalid UTF-8";
      m_pos += static_cast<size_t>(n);
    }
  }

  bool Digit() const { return Peek() >= '0' && Peek() <= '9'; }

  const char* Number() {
    if (Peek() == '-') ++m_pos;
    if (Peek() == '0') {
      ++m_pos;
      if (Digit()) {
        --m_pos;
        return "leading zero in a number";
      }
    } else if (Digit()) {
      while (Digit()) ++m_pos;
    } else {
      return "number without digits";
    }
    if (Peek() == '.') {
      ++m_pos;
      if (!Digit()) return "number without a digit after the point";
      while (Digit()) ++m_pos;
    }
    if (Peek() == 'e' || Peek() == 'E') {
      ++m_pos;
      if (Peek() == '+' || Peek() == '-') ++m_pos;
      if (!Digit()) return "number without exponent digits";
      while (Digit()) ++m_pos;
    }
    return nullptr;
  }

  const char* Literal() {
    for (const char* word : {"true", "false", "null"}) {
      const size_t n = std::strlen(word);
      if (m_length - m_pos >= n && std::memcmp(m_text + m_pos, word, n) == 0) {
        m_pos += n;
        return nullptr;
      }
    }
    return "unexpected character";
  }

  const unsigned char* m_text;
  size_t m_length;
  size_t m_pos = 0;
};

}  // namespace

const char* CJsonDocument::FindLeniency(const char* text, size_t length, size_t* offset) {
  size_t where = 0;
  const char* reason = StrictScanner(text, length).Run(&where);
  if (offset != nullptr) *offset = reason != nullptr ? where : 0;
  return reason;
}

// ---- Why cJSON refused a text ----------------------------------------------------

const char* CJsonDocument::DescribeRefusal(const char* text, size_t length, size_t* offset_io) {
  const unsigned char* t = reinterpret_cast<const unsigned char*>(text);
  size_t offset = *offset_io < length ? *offset_io : length;
  if (const void* nul = std::memchr(text, 0, length)) {
    *offset_io = static_cast<size_t>(static_cast<const unsigned char*>(nul) - t);
    return "NUL byte in the text";
  }
  // The context of `offset`: string or not, the open brackets, a value seen.
  bool in_string = false, seen = false;
  bool is_object[kNestingLimit + 1] = {};
  int depth = 0;
  int depth_before_last = 0;  // the depth before byte offset - 1
  for (size_t i = 0; i < offset; ++i) {
    const unsigned char c = t[i];
    if (i + 1 == offset) depth_before_last = depth;
    if (in_string) {
      if (c == '\\') {
        ++i;
      } else if (c == '"') {
        in_string = false;
      }
      continue;
    }
    if (c <= ' ') continue;  // cJSON's white space
    seen = true;
    if (c == '"') {
      in_string = true;
    } else if (c == '[' || c == '{') {
      if (depth < kNestingLimit) is_object[depth] = c == '{';
      ++depth;
    } else if ((c == ']' || c == '}') && depth > 0) {
      --depth;
    }
  }
  if (offset < length && (t[offset] == '[' || t[offset] == '{') && depth >= kNestingLimit) {
    return "nesting deeper than 1000 levels";
  }
  if (in_string) {
    for (size_t i = offset; i < length; ++i) {
      if (t[i] == '\\') {
        ++i;
      } else if (t[i] == '"') {
        return t[offset] == '\\' ? "invalid escape in a string" : "invalid string";
      }
    }
    // cJSON points one byte past the opening quote.
    if (offset > 0 && t[offset - 1] == '"') *offset_io = offset - 1;
    return "unclosed string";
  }
  // A member name that is not a string: cJSON points one byte past it.
  const int d = depth_before_last;
  if (offset >= 2 && d > 0 && d <= kNestingLimit && is_object[d - 1] && t[offset - 1] > ' ' && t[offset - 1] != '"') {
    size_t before = offset - 2;
    while (before > 0 && t[before] <= ' ') --before;
    if (t[before] == ',' || (t[before] == '{' && t[offset - 1] != '}')) {
      *offset_io = offset - 1;
      return "member name that is not a string";
    }
  }
  if (offset >= length) return seen ? "unexpected end of text" : "empty text";
  if (IsNumberByte(t[offset])) {
    size_t start = offset, end = offset;
    while (start > 0 && IsNumberByte(t[start - 1])) --start;
    while (end < length && IsNumberByte(t[end])) ++end;
    if (end - start > kCutNumberLength) return "number longer than 63 characters";
  }
  if (depth == 0 && seen) return "text after the JSON value";
  return "unexpected character";
}

}  // namespace _quarn_framework
