#include "foundation/VString.h"

#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <new>
#include <utility>

#include "foundation/BlockHeap.h"
#include "foundation/Utf8.h"

namespace _quarn_vi {

namespace {

size_t RepBytes(unsigned int capacity) {
  return offsetof(CVString::Rep, units) + (static_cast<size_t>(capacity) + 1) * sizeof(unsigned short);
}

}  // namespace

CVString::Rep* CVString::NewRep(unsigned int length) {
  static_assert(alignof(Rep) <= CVBlockHeap::kBlockAlign, "the block heap aligns a Rep");
  Rep* rep = static_cast<Rep*>(CVBlockHeap::Allocate(RepBytes(length)));
  new (&rep->refs) std::atomic<int>(1);
  rep->capacity = length;
  rep->units[length] = 0;
  return rep;
}

void CVString::ReleaseRep() noexcept {
  if (m_len <= kInlineCapacity) return;
  Rep* rep = GetRep();
  int refs = rep->refs.load(std::memory_order_acquire);
  if (refs < 0) return;  // permanent
  // A sole owner needs no atomic decrement: nobody else can reach the block.
  if (refs == 1 || rep->refs.fetch_sub(1, std::memory_order_acq_rel) == 1) {
    CVBlockHeap::Free(rep, RepBytes(rep->capacity));
  }
}

unsigned short* CVString::PrepareUnits(CVString& out, unsigned int length) {
  out.ReleaseRep();
  out.m_len = 0;
  out.m_inline[0] = 0;
  if (length <= kInlineCapacity) {
    out.m_len = length;
    out.m_inline[length] = 0;
    return out.m_inline;
  }
  Rep* rep = NewRep(length);
  out.SetRep(rep);
  out.m_len = length;
  return rep->units;
}

void CVString::TruncateUnits(CVString& out, unsigned int length) {
  if (length >= out.m_len) return;
  if (out.m_len <= kInlineCapacity) {
    out.m_len = length;
    out.m_inline[length] = 0;
    return;
  }
  if (length > kInlineCapacity) {
    // The block is ours alone (PrepareUnits made it): shorten in place.
    out.GetRep()->units[length] = 0;
    out.m_len = length;
    return;
  }
  Rep* rep = out.GetRep();
  unsigned short units[kInlineCapacity + 1];
  std::memcpy(units, rep->units, length * sizeof(unsigned short));
  out.ReleaseRep();
  std::memcpy(out.m_inline, units, length * sizeof(unsigned short));
  out.m_inline[length] = 0;
  out.m_len = length;
}

void CVString::AssignLatin1(const char* text, size_t length) {
  if (length > UINT_MAX - 1) throw std::bad_alloc();
  CVString fresh;
  unsigned short* units = PrepareUnits(fresh, static_cast<unsigned int>(length));
  const unsigned char* bytes = reinterpret_cast<const unsigned char*>(text);
  for (size_t i = 0; i < length; ++i) units[i] = bytes[i];
  Swap(fresh);
}

CVString::CVString(const char* text) : m_len(0) {
  m_inline[0] = 0;
  if (text != nullptr) AssignLatin1(text, std::strlen(text));
}

CVString::CVString(const char* text, Permanent) : CVString(text) {
  if (m_len <= kInlineCapacity) return;
  // The block is never freed, so it comes from operator new: carved from a
  // chunk of the block heap, it would keep the whole chunk for good.
  Rep* rep = static_cast<Rep*>(::operator new(RepBytes(m_len)));
  new (&rep->refs) std::atomic<int>(-1);
  rep->capacity = m_len;
  std::memcpy(rep->units, GetRep()->units, (m_len + 1) * sizeof(unsigned short));
  ReleaseRep();
  SetRep(rep);
  uint32_t hash = ComputeHash();
  std::memcpy(m_inline + kHashSlot, &hash, sizeof(hash));
}

void CVString::DiscardPermanent() noexcept {
  if (m_len > kInlineCapacity) ::operator delete(GetRep());
  m_len = 0;
  m_inline[0] = 0;
}

uint32_t CVString::ComputeHash() const {
  uint32_t n = m_len;
  if (n == 0) return 0x9E3779B9u;
  const unsigned short* u = Data();
  uint64_t x = (static_cast<uint64_t>(n) << 48) ^ (static_cast<uint64_t>(u[0]) << 32) ^
               (static_cast<uint64_t>(u[n / 2]) << 16) ^ u[n - 1];
  if (n > 2) x ^= (static_cast<uint64_t>(u[1]) << 40) ^ (static_cast<uint64_t>(u[n - 2]) << 24);
  x *= 0x9E3779B97F4A7C15ULL;
  uint32_t hash = static_cast<uint32_t>(x >> 32);
  return hash != 0 ? hash : 1;  // 0 means "not computed"
}

CVString::CVString(const unsigned short* units, int length) : m_len(0) {
  m_inline[0] = 0;
  if (units == nullptr || length <= 0) return;
  unsigned short* out = PrepareUnits(*this, static_cast<unsigned int>(length));
  std::memcpy(out, units, static_cast<size_t>(length) * sizeof(unsigned short));
}

CVString& CVString::operator=(const CVString& other) noexcept {
  if (this != &other) {
    CVString copy(other);
    Swap(copy);
  }
  return *this;
}

CVString& CVString::operator=(CVString&& other) noexcept {
  if (this != &other) {
    CVString taken(std::move(other));
    Swap(taken);
  }
  return *this;
}

CVString& CVString::operator=(const char* text) {
  if (text == nullptr) {
    CVString empty;
    Swap(empty);
  } else {
    AssignLatin1(text, std::strlen(text));
  }
  return *this;
}

void CVString::Format(const unsigned short* format, ...) {
  va_list args;
  va_start(args, format);
  if (format != nullptr && format[0] == '%' && format[1] == 'd' && format[2] == 0) {
    // The parser's only format: a fast path without printf.
    int value = va_arg(args, int);
    va_end(args);
    char digits[16];
    char* end = digits + sizeof(digits);
    char* p = end;
    unsigned int magnitude = value < 0 ? 0u - static_cast<unsigned int>(value)
                                       : static_cast<unsigned int>(value);
    do {
      *--p = static_cast<char>('0' + magnitude % 10);
      magnitude /= 10;
    } while (magnitude != 0);
    if (value < 0) *--p = '-';
    AssignLatin1(p, static_cast<size_t>(end - p));
    return;
  }
  std::string narrow;
  for (const unsigned short* f = format; f != nullptr && *f != 0; ++f) {
    narrow.push_back(*f < 0x80 ? static_cast<char>(*f) : '?');
  }
  va_list copy;
  va_copy(copy, args);
  int needed = std::vsnprintf(nullptr, 0, narrow.c_str(), copy);
  va_end(copy);
  std::string text;
  if (needed > 0) {
    text.resize(static_cast<size_t>(needed) + 1);
    std::vsnprintf(&text[0], text.size(), narrow.c_str(), args);
    text.resize(static_cast<size_t>(needed));
  }
  va_end(args);
  AssignLatin1(text.data(), text.size());
}

int CVString::Find(const char* text, int start) const {
  if (text == nullptr || start < 0 || start > GetLength()) return -1;
  const unsigned char* needle = reinterpret_cast<const unsigned char*>(text);
  size_t n = std::strlen(text);
  const unsigned short* hay = Data();
  size_t len = m_len;
  if (n > len) return -1;
  for (size_t i = static_cast<size_t>(start); i + n <= len; ++i) {
    size_t k = 0;
    while (k < n && hay[i + k] == needle[k]) ++k;
    if (k == n) return static_cast<int>(i);
  }
  return -1;
}

std::string CVString::ToUtf8() const {
  std::string out;
  AppendUtf16AsUtf8(Data(), m_len, out);
  return out;
}

int _wtoi(const unsigned short* text) {
  if (text == nullptr) return 0;
  const unsigned short* p = text;
  while (*p == ' ' || (*p >= '\t' && *p <= '\r')) ++p;
  bool negative = false;
  if (*p == '+' || *p == '-') negative = (*p++ == '-');
  long long value = 0;
  for (; *p >= '0' && *p <= '9'; ++p) {
    value = value * 10 + (*p - '0');
    if (value > static_cast<long long>(INT_MAX) + 1) value = static_cast<long long>(INT_MAX) + 1;
  }
  if (negative) value = -value;
  if (value > INT_MAX) return INT_MAX;
  if (value < INT_MIN) return INT_MIN;
  return static_cast<int>(value);
}

void CVString::AssignUtf8(CVString& out, const char* text, size_t length) {
  if (text == nullptr || length == 0) {
    PrepareUnits(out, 0);
    return;
  }
  if (length > UINT_MAX - 1) throw std::bad_alloc();
  const unsigned char* bytes = reinterpret_cast<const unsigned char*>(text);
  // A byte never yields more than one code unit (a four-byte sequence yields
  // two), so `length` units always suffice. Short texts decode on the stack
  // and get a block of their exact length.
  constexpr size_t kStackUnits = 512;
  if (length <= kStackUnits) {
    unsigned short units[kStackUnits];
    size_t n = DecodeUtf8(bytes, length, units);
    unsigned short* dest = PrepareUnits(out, static_cast<unsigned int>(n));
    std::memcpy(dest, units, n * sizeof(unsigned short));
    return;
  }
  unsigned short* dest = PrepareUnits(out, static_cast<unsigned int>(length));
  size_t n = DecodeUtf8(bytes, length, dest);
  TruncateUnits(out, static_cast<unsigned int>(n));
}

CVString CVCMMap::Utf8ToUnicode(const char* text, unsigned int length) {
  CVString out;
  CVString::AssignUtf8(out, text, length);
  return out;
}

}  // namespace _quarn_vi
