#include "foundation/VString.h"

#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <new>
#include <string>
#include <unordered_map>
#include <utility>

#include "foundation/BlockCache.h"

#include "foundation/Utf8.h"

namespace _quarn_vi {

// Keeps a function with a large frame out of its callers' fast paths.
#if defined(__GNUC__)
#define POIPARSER_NOINLINE __attribute__((noinline))
#else
#define POIPARSER_NOINLINE
#endif

namespace {

size_t RepBytes(unsigned int capacity) {
  return offsetof(CVString::Rep, units) + (static_cast<size_t>(capacity) + 1) * sizeof(unsigned short);
}

void FreeRep(CVString::Rep* rep) noexcept {
  const size_t bytes = RepBytes(rep->capacity);
  rep->refs.~atomic<int>();
  block_cache::Free(rep, bytes);
}

// A permanent block: the text's hash ahead of it, so that a bundle holding
// only the block's address finds the hash for its index.
struct PermanentText {
  uint32_t hash;
  CVString::Rep rep;
};

const PermanentText* PermanentOf(const CVString::Rep* rep) {
  return reinterpret_cast<const PermanentText*>(reinterpret_cast<const char*>(rep) -
                                                offsetof(PermanentText, rep));
}

// The table of permanent blocks, one per distinct text. It is never
// destroyed: bundles and static keys use its blocks until the process ends
// (and leak checkers find them through it).
struct PermanentTable {
  std::mutex mutex;
  std::unordered_map<std::u16string, const CVString::Rep*> blocks;
};

PermanentTable& Permanents() {
  static PermanentTable* table = new PermanentTable();
  return *table;
}

}  // namespace

CVString::Rep* CVString::NewRep(unsigned int length) {
  Rep* rep = static_cast<Rep*>(block_cache::Allocate(RepBytes(length)));
  new (&rep->refs) std::atomic<int>(1);
  rep->capacity = length;
  rep->units[length] = 0;
  return rep;
}

void CVString::ReleaseRep() noexcept {
  if (!HasRep()) return;
  Rep* rep = GetRep();
  int refs = rep->refs.load(std::memory_order_acquire);
  if (refs < 0) return;  // permanent
  // A sole owner needs no atomic decrement: nobody else can reach the block.
  if (refs == 1 || rep->refs.fetch_sub(1, std::memory_order_acq_rel) == 1) FreeRep(rep);
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
  if (length > kMaxLength) throw std::bad_alloc();
  Rep* rep = NewRep(length);
  out.SetRep(rep, length);
  return rep->units;
}

void CVString::TruncateUnits(CVString& out, unsigned int length) {
  if (length >= out.Length()) return;
  if (!out.HasRep()) {
    out.m_len = length;
    out.m_inline[length] = 0;
    return;
  }
  if (length > kInlineCapacity) {
    // The block is ours alone (PrepareUnits made it): shorten in place.
    out.GetRep()->units[length] = 0;
    out.m_len = length | kRepBit;
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
  if (length > kMaxLength) throw std::bad_alloc();
  CVString fresh;
  unsigned short* units = PrepareUnits(fresh, static_cast<unsigned int>(length));
  WidenBytes(reinterpret_cast<const unsigned char*>(text), length, units);
  Swap(fresh);
}

void CVString::AssignUnitsPadded(const unsigned short* units, size_t length) {
  if (length <= kInlineCapacity) {
    ReleaseRep();
    std::memcpy(m_inline, units, sizeof(m_inline));  // a fixed size: a few moves, no call
    m_inline[length] = 0;
    m_len = static_cast<unsigned int>(length);
    return;
  }
  Rep* rep = NewRep(static_cast<unsigned int>(length));  // may throw: nothing changed yet
  std::memcpy(rep->units, units, length * sizeof(unsigned short));
  ReleaseRep();
  SetRep(rep, static_cast<unsigned int>(length));
}

void CVString::AssignBytesPadded(const unsigned char* s, size_t length) {
  if (length <= kInlineCapacity) {
    ReleaseRep();
    // The NUL and the zeros after the text fill the rest.
    static_assert(kInlineCapacity + 1 == 10, "the inline room is widened as ten bytes");
    WidenTenBytes(s, m_inline);
    m_len = static_cast<unsigned int>(length);
    return;
  }
  Rep* rep = NewRep(static_cast<unsigned int>(length));
  WidenBytesOverlapping(s, length, rep->units);
  ReleaseRep();
  SetRep(rep, static_cast<unsigned int>(length));
}

CVString::CVString(const char* text) : m_len(0) {
  m_inline[0] = 0;
  if (text == nullptr) return;
  PaddedText copy;
  if (CopyTerminatedText(text, &copy)) {
    AssignBytesPadded(copy.text, copy.length);
  } else {
    AssignLatin1(text, std::strlen(text));
  }
}

CVString::CVString(const char* text, Permanent) : m_len(0) {
  m_inline[0] = 0;
  const CVString plain(text);
  const unsigned int length = plain.Length();
  std::u16string key(reinterpret_cast<const char16_t*>(plain.Data()), length);
  PermanentTable& table = Permanents();
  const Rep* rep;
  {
    std::lock_guard<std::mutex> lock(table.mutex);
    auto found = table.blocks.find(key);
    if (found != table.blocks.end()) {
      rep = found->second;
    } else {
      void* memory = ::operator new(offsetof(PermanentText, rep) + RepBytes(length));
      PermanentText* block = static_cast<PermanentText*>(memory);
      block->hash = HashUnits(plain.Data(), length);
      new (&block->rep.refs) std::atomic<int>(-1);
      block->rep.capacity = length;
      std::memcpy(block->rep.units, plain.Data(), length * sizeof(unsigned short));
      block->rep.units[length] = 0;
      try {
        table.blocks.emplace(std::move(key), &block->rep);
      } catch (...) {
        ::operator delete(memory);
        throw;
      }
      rep = &block->rep;
    }
  }
  SetRep(rep, length);
  const uint32_t hash = PermanentOf(rep)->hash;
  std::memcpy(m_inline + kHashSlot, &hash, sizeof(hash));
}

uint32_t CVString::HashUnits(const unsigned short* u, unsigned int n) noexcept {
  if (n == 0) return 0x9E3779B9u;
  uint64_t x = (static_cast<uint64_t>(n) << 48) ^ (static_cast<uint64_t>(u[0]) << 32) ^
               (static_cast<uint64_t>(u[n / 2]) << 16) ^ u[n - 1];
  if (n > 2) x ^= (static_cast<uint64_t>(u[1]) << 40) ^ (static_cast<uint64_t>(u[n - 2]) << 24);
  x *= 0x9E3779B97F4A7C15ULL;
  uint32_t hash = static_cast<uint32_t>(x >> 32);
  return hash != 0 ? hash : 1;  // 0 means "not permanent" in a string's hash slot
}

const CVString::Rep* CVString::AcquireKeyRep() const {
  if (HasRep()) {
    Rep* rep = GetRep();
    if (CachedHash() != 0) return rep;  // permanent
    if (rep->capacity == Length()) {
      rep->refs.fetch_add(1, std::memory_order_relaxed);
      return rep;
    }
  }
  Rep* rep = NewRep(Length());
  std::memcpy(rep->units, Data(), Length() * sizeof(unsigned short));
  return rep;
}

void CVString::RetainKeyRep(const Rep* rep) noexcept {
  if (!IsPermanent(rep)) const_cast<Rep*>(rep)->refs.fetch_add(1, std::memory_order_relaxed);
}

void CVString::ReleaseKeyRep(const Rep* rep) noexcept {
  Rep* block = const_cast<Rep*>(rep);
  int refs = block->refs.load(std::memory_order_acquire);
  if (refs < 0) return;
  if (refs == 1 || block->refs.fetch_sub(1, std::memory_order_acq_rel) == 1) FreeRep(block);
}

CVString CVString::FromKeyRep(const Rep* rep) noexcept {
  CVString out;
  out.SetRep(rep, rep->capacity);
  if (IsPermanent(rep)) {
    const uint32_t hash = PermanentOf(rep)->hash;
    std::memcpy(out.m_inline + kHashSlot, &hash, sizeof(hash));
  } else {
    RetainKeyRep(rep);
  }
  return out;
}

uint32_t CVString::KeyRepHash(const Rep* rep) noexcept {
  return IsPermanent(rep) ? PermanentOf(rep)->hash : HashUnits(rep->units, rep->capacity);
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

void CVString::AssignDecimal(CVString& out, int value) {
  // The digits are written backwards, ending at units[kEnd]; the zeros after
  // them are the room AssignUnitsPadded may read (and the NUL).
  constexpr int kEnd = 11;  // "-2147483648"
  unsigned short units[kEnd + kInlineCapacity + 1];
  std::memset(units + kEnd, 0, (kInlineCapacity + 1) * sizeof(unsigned short));
  unsigned short* p = units + kEnd;
  unsigned int magnitude = value < 0 ? 0u - static_cast<unsigned int>(value) : static_cast<unsigned int>(value);
  do {
    *--p = static_cast<unsigned short>('0' + magnitude % 10);
    magnitude /= 10;
  } while (magnitude != 0);
  if (value < 0) *--p = '-';
  out.AssignUnitsPadded(p, static_cast<size_t>(units + kEnd - p));
}

void CVString::Format(const unsigned short* format, ...) {
  va_list args;
  va_start(args, format);
  if (format != nullptr && format[0] == '%' && format[1] == 'd' && format[2] == 0) {
    const int value = va_arg(args, int);
    va_end(args);
    AssignDecimal(*this, value);
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
  size_t len = Length();
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
  AppendUtf16AsUtf8(Data(), Length(), out);
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

POIPARSER_NOINLINE void CVString::AssignUtf8(CVString& out, const char* text, size_t length) {
  if (text == nullptr || length == 0) {
    PrepareUnits(out, 0);
    return;
  }
  if (length > kMaxLength) throw std::bad_alloc();
  if (length <= kPaddedTextMax) {
    PaddedText copy;
    CopyText(text, length, &copy);
    out.AssignDecodedPadded(copy.text, copy.length);
    return;
  }
  // A byte never yields more than one code unit (a four-byte sequence yields
  // two), so `length` units always suffice; the block is then cut to size.
  unsigned short* dest = PrepareUnits(out, static_cast<unsigned int>(length));
  size_t n = DecodeUtf8(reinterpret_cast<const unsigned char*>(text), length, dest);
  TruncateUnits(out, static_cast<unsigned int>(n));
}

POIPARSER_NOINLINE void CVString::AssignDecodedPadded(const unsigned char* s, size_t length) {
  unsigned short units[kPaddedTextBytes];
  AssignUnitsPadded(units, DecodeUtf8Padded(s, length, units));
}

void CVString::AssignUtf8Terminated(CVString& out, const char* text) {
  // The common case keeps a small frame: the decoder's buffer and the path
  // of texts beyond the copy's room are in functions of their own.
  PaddedText copy;
  if (text == nullptr || !CopyTerminatedText(text, &copy)) {
    AssignUtf8(out, text, text == nullptr ? 0 : std::strlen(text));
  } else if (copy.ascii) {
    out.AssignBytesPadded(copy.text, copy.length);
  } else {
    out.AssignDecodedPadded(copy.text, copy.length);
  }
}

CVString CVCMMap::Utf8ToUnicode(const char* text, unsigned int length) {
  CVString out;
  CVString::AssignUtf8(out, text, length);
  return out;
}

}  // namespace _quarn_vi
