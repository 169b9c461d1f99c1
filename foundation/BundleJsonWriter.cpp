#include "foundation/BundleJsonWriter.h"

#include <charconv>
#include <cmath>
#include <cstring>

#include "foundation/Utf8.h"

namespace _quarn_vi {

namespace {

// jq's default colours.
constexpr const char kColorKey[] = "\x1b[34;1m";
constexpr const char kColorString[] = "\x1b[0;32m";
constexpr const char kColorLiteral[] = "\x1b[0;39m";
constexpr const char kColorNull[] = "\x1b[1;30m";
constexpr const char kColorBracket[] = "\x1b[1;39m";
constexpr const char kColorReset[] = "\x1b[0m";

void AppendHexEscape(unsigned int unit, std::string& out) {
  static const char kHex[] = "0123456789ABCDEF";
  out += "\\u";
  for (int shift = 12; shift >= 0; shift -= 4) out.push_back(kHex[(unit >> shift) & 0xF]);
}

}  // namespace

CVJsonWriter::CVJsonWriter(std::string& out, Options options) : m_out(out), m_options(options) {}

void CVJsonWriter::Newline() {
  if (!m_options.pretty) return;
  m_out.push_back('\n');
  m_out.append(m_hasItems.size() * 2, ' ');
}

void CVJsonWriter::BeforeValue() {
  if (m_afterKey) {
    m_afterKey = false;
    return;
  }
  if (m_hasItems.empty()) return;
  if (m_hasItems.back()) m_out.push_back(',');
  m_hasItems.back() = true;
  Newline();
}

void CVJsonWriter::Colored(const char* color, const std::string& text) {
  if (m_options.color) m_out += color;
  m_out += text;
  if (m_options.color) m_out += kColorReset;
}

void CVJsonWriter::BeginObject() {
  BeforeValue();
  Colored(kColorBracket, "{");
  m_hasItems.push_back(false);
}

void CVJsonWriter::EndObject() {
  bool had = m_hasItems.back();
  m_hasItems.pop_back();
  if (had) Newline();
  Colored(kColorBracket, "}");
}

void CVJsonWriter::BeginArray() {
  BeforeValue();
  Colored(kColorBracket, "[");
  m_hasItems.push_back(false);
}

void CVJsonWriter::EndArray() {
  bool had = m_hasItems.back();
  m_hasItems.pop_back();
  if (had) Newline();
  Colored(kColorBracket, "]");
}

void CVJsonWriter::Key(const char* utf8) { Key(CVCMMap::Utf8ToUnicode(utf8, static_cast<unsigned int>(std::strlen(utf8)))); }

void CVJsonWriter::Key(const CVString& key) {
  BeforeValue();
  if (m_options.color) m_out += kColorKey;
  QuotedUtf16(key.Data(), static_cast<size_t>(key.GetLength()));
  if (m_options.color) m_out += kColorReset;
  m_out += m_options.pretty ? ": " : ":";
  m_afterKey = true;
}

void CVJsonWriter::Int(long long value) {
  BeforeValue();
  char buf[24];
  auto r = std::to_chars(buf, buf + sizeof(buf), value);
  Colored(kColorLiteral, std::string(buf, r.ptr));
}

void CVJsonWriter::Bool(bool value) {
  BeforeValue();
  Colored(kColorLiteral, value ? "true" : "false");
}

void CVJsonWriter::Double(double value) {
  BeforeValue();
  if (!std::isfinite(value)) {
    Colored(kColorNull, "null");
    return;
  }
  char buf[40];
  auto r = std::to_chars(buf, buf + sizeof(buf), value);
  std::string text(buf, r.ptr);
  if (text.find_first_of(".e") == std::string::npos) text += ".0";
  Colored(kColorLiteral, text);
}

void CVJsonWriter::QuotedUtf16(const unsigned short* units, size_t n) {
  std::string& out = m_out;
  out.push_back('"');
  for (size_t i = 0; i < n; ++i) {
    unsigned int u = units[i];
    switch (u) {
      case '"': out += "\\\""; continue;
      case '\\': out += "\\\\"; continue;
      case '\b': out += "\\b"; continue;
      case '\f': out += "\\f"; continue;
      case '\n': out += "\\n"; continue;
      case '\r': out += "\\r"; continue;
      case '\t': out += "\\t"; continue;
      default: break;
    }
    if (u < 0x20) {
      AppendHexEscape(u, out);
    } else if (u >= 0xD800 && u <= 0xDBFF && i + 1 < n && units[i + 1] >= 0xDC00 &&
               units[i + 1] <= 0xDFFF) {
      AppendUtf8CodePoint(0x10000 + ((u - 0xD800) << 10) + (units[i + 1] - 0xDC00u), out);
      ++i;
    } else if (u >= 0xD800 && u <= 0xDFFF) {
      AppendHexEscape(u, out);  // a lone surrogate has no UTF-8 form
    } else {
      AppendUtf8CodePoint(u, out);
    }
  }
  out.push_back('"');
}

void CVJsonWriter::String(const CVString& value) {
  BeforeValue();
  if (m_options.color) m_out += kColorString;
  QuotedUtf16(value.Data(), static_cast<size_t>(value.GetLength()));
  if (m_options.color) m_out += kColorReset;
}

void CVJsonWriter::StringUtf8(const std::string& utf8) {
  String(CVCMMap::Utf8ToUnicode(utf8.data(), static_cast<unsigned int>(utf8.size())));
}

void CVJsonWriter::Bundle(const CVBundle& bundle) { Nested(&bundle, nullptr); }

void CVJsonWriter::BundleArray(const CVBundle::BundleArray& array) { Nested(nullptr, &array); }

// Bundles and arrays of bundles nest as deep as a client makes them, so the
// walk keeps its own stack (on the heap) instead of recursing.
void CVJsonWriter::Nested(const CVBundle* bundle, const CVBundle::BundleArray* array) {
  struct Frame {
    const CVBundle* bundle;             // an object being written, or
    const CVBundle::BundleArray* array;  // an array being written
    int next;                           // its next entry or element
  };
  std::vector<Frame> stack;
  auto open = [&](const CVBundle* b, const CVBundle::BundleArray* a) {
    if (b != nullptr) {
      BeginObject();
    } else {
      BeginArray();
    }
    stack.push_back(Frame{b, a, 0});
  };
  open(bundle, array);
  while (!stack.empty()) {
    Frame& top = stack.back();
    if (top.array != nullptr) {
      if (top.next == top.array->m_nSize) {
        stack.pop_back();
        EndArray();
      } else {
        open(&top.array->m_pData[top.next++], nullptr);  // `top` is not used after
      }
      continue;
    }
    const CVBundle& b = *top.bundle;
    if (top.next == b.GetCount()) {
      stack.pop_back();
      EndObject();
      continue;
    }
    const int i = top.next++;
    Key(b.GetKeyAt(i));
    switch (b.GetTypeAt(i)) {
      case CVBundle::kInt:
        Int(b.GetIntAt(i));
        break;
      case CVBundle::kBool:
        Bool(b.GetIntAt(i) != 0);
        break;
      case CVBundle::kDouble:
        Double(b.GetDoubleAt(i));
        break;
      case CVBundle::kString:
        String(b.GetStringAt(i));
        break;
      case CVBundle::kBundle:
        open(&b.GetBundleAt(i), nullptr);
        break;
      case CVBundle::kBundleArray:
        open(nullptr, &b.GetBundleArrayAt(i));
        break;
      case CVBundle::kStringArray:
        StringArray(b.GetStringArrayAt(i));
        break;
    }
  }
}

void CVJsonWriter::StringArray(const CVBundle::StringArray& array) {
  BeginArray();
  for (int i = 0; i < array.m_nSize; ++i) String(array.m_pData[i]);
  EndArray();
}

std::string BundleToJson(const CVBundle& bundle, bool pretty) {
  std::string out;
  CVJsonWriter::Options options;
  options.pretty = pretty;
  CVJsonWriter writer(out, options);
  writer.Bundle(bundle);
  return out;
}

}  // namespace _quarn_vi
