// CVString: a string of UTF-16 code units, held by value.
//
// Representation: texts of up to kInlineCapacity code units live inside the
// object (so a short ASCII key never touches the heap); longer texts live in a
// shared, reference-counted, immutable block, so a copy costs one counter
// increment and a change makes a new block (copy on write). Text blocks come
// from operator new, each freed by its last owner. The object holds no
// pointer into itself: it may be relocated by a plain byte copy, as CVArray
// does on growth.
//
// Permanent strings (the parser's keys) always keep their text in a block
// that is never freed, whatever its length, and equal texts share one block:
// a bundle stores such a key as the block's address and finds it again by
// comparing addresses.
//
// Text conversions:
//   - CVString(const char*) and operator=(const char*) widen each byte to one
//     code unit (ISO-8859-1): lossless, ASCII keeps its value, null gives the
//     empty string. They never decode UTF-8; CVCMMap::Utf8ToUnicode does.
//   - ToUtf8 encodes the code units as UTF-8, a lone surrogate as U+FFFD.
//
// Thread safety: const methods may be called from several threads without
// external synchronisation, also on copies that share a block; a non-const
// method needs external synchronisation.
#ifndef FOUNDATION_VSTRING_H_
#define FOUNDATION_VSTRING_H_

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

namespace _quarn_vi {

class CVString {
 public:
  // Texts of at most this many code units are stored inline.
  static constexpr int kInlineCapacity = 9;

  // Tag for strings that live as long as the program (the parser's static
  // keys): the text goes to a process-wide table of permanent blocks (one per
  // distinct text, never freed; making one takes a lock), and copies share
  // the block without touching its counter. Use it for a fixed set of keys,
  // not for texts read from answers: every distinct text stays until exit.
  struct Permanent {};

  CVString() noexcept : m_len(0) { m_inline[0] = 0; }
  CVString(const char* text);  // NOLINT: implicit, as keys are made from literals
  CVString(const char* text, Permanent);
  CVString(const unsigned short* units, int length);
  CVString(const CVString& other) noexcept : m_len(other.m_len) {
    std::memcpy(m_inline, other.m_inline, sizeof(m_inline));
    if (HasRep()) Retain();
  }
  CVString(CVString&& other) noexcept : m_len(other.m_len) {
    std::memcpy(m_inline, other.m_inline, sizeof(m_inline));
    other.m_len = 0;
    other.m_inline[0] = 0;
  }
  virtual ~CVString() {
    if (HasRep()) ReleaseRep();
  }

  CVString& operator=(const CVString& other) noexcept;
  CVString& operator=(CVString&& other) noexcept;
  CVString& operator=(const char* text);

  // printf-style formatting of an ASCII format given in UTF-16 (the parser
  // passes only "%d", which goes to AssignDecimal); replaces the contents.
  // Performance: the variadic call costs some 40 instructions more than
  // AssignDecimal (about 95 against 55); code that only wants an int's text
  // calls AssignDecimal.
  void Format(const unsigned short* format, ...);

  // Replaces the contents of `out` with the decimal text of `value`, as "%d"
  // writes it: a '-' for a negative value, then the digits without leading
  // zeros ("0", "-1", "-2147483648"). Up to nine characters stay inline and
  // allocate nothing; the ten- and eleven-character texts take a block
  // (std::bad_alloc then leaves `out` unchanged).
  static void AssignDecimal(CVString& out, int value);

  // Index of the first occurrence of the 8-bit text `text` (widened as by
  // CVString(const char*)) at or after `start`, or -1. An empty text is found
  // at `start` when start <= length.
  int Find(const char* text, int start) const;

  // Nonzero iff the string has no code units.
  int IsEmpty() const { return Length() == 0; }
  int GetLength() const { return static_cast<int>(Length()); }

  // The NUL-terminated UTF-16 text; valid until the string is changed or
  // destroyed. The argument is ignored (callers pass 0).
  const unsigned short* GetBuffer(int /*minLength*/) const { return Data(); }
  operator const unsigned short*() const { return Data(); }
  const unsigned short* Data() const {
    return HasRep() ? GetRep()->units : m_inline;
  }

  bool operator==(const CVString& other) const {
    if (Length() != other.Length()) return false;
    if (HasRep() && other.HasRep() && GetRep() == other.GetRep()) return true;
    return std::memcmp(Data(), other.Data(), Length() * sizeof(unsigned short)) == 0;
  }
  bool operator!=(const CVString& other) const { return !(*this == other); }

  // Exchanges the texts (each object keeps its own vtable pointer).
  void Swap(CVString& other) noexcept {
    unsigned int len = m_len;
    m_len = other.m_len;
    other.m_len = len;
    unsigned short units[kInlineCapacity + 1];
    std::memcpy(units, m_inline, sizeof(m_inline));
    std::memcpy(m_inline, other.m_inline, sizeof(m_inline));
    std::memcpy(other.m_inline, units, sizeof(m_inline));
  }

  // A hash of the text for lookups (bundle keys): from the length and five
  // of the units. Computed once for a permanent string, then kept with it.
  uint32_t Hash() const {
    uint32_t cached = CachedHash();
    return cached != 0 ? cached : HashUnits(Data(), Length());
  }

  // The text as UTF-8 (for printing); a lone surrogate becomes U+FFFD.
  std::string ToUtf8() const;

  // End of public API. Implementation details follow.

  // The shared block of a long text. `refs` < 0 marks a permanent block.
  struct Rep {
    std::atomic<int> refs;
    unsigned int capacity;    // units the block has room for, less the NUL
    unsigned short units[1];  // the text (Length() units) and a NUL
  };
  // The longest text a string holds, in code units.
  static constexpr unsigned int kMaxLength = 0x7FFFFFFEu;

  // Bundle keys. A key block holds exactly its key's text (capacity is the
  // length) and never changes.
  // The permanent block of this string's text, or null when it is not a
  // permanent string (nor a copy of one).
  const Rep* PermanentRep() const { return CachedHash() != 0 ? GetRep() : nullptr; }
  // A key block of this string's text, owned by the caller (nothing to own
  // for a permanent block): this string's own block when it fits exactly,
  // else a new one. Throws std::bad_alloc like operator new.
  const Rep* AcquireKeyRep() const;
  static void RetainKeyRep(const Rep* rep) noexcept;
  static void ReleaseKeyRep(const Rep* rep) noexcept;
  static bool IsPermanent(const Rep* rep) { return rep->refs.load(std::memory_order_relaxed) < 0; }
  // A string sharing a key block (counted unless permanent).
  static CVString FromKeyRep(const Rep* rep) noexcept;
  // The Hash() of a key block's text (kept with a permanent block).
  static uint32_t KeyRepHash(const Rep* rep) noexcept;
  // True iff the key block holds the text of `key`.
  static bool KeyRepEquals(const Rep* rep, const CVString& key) noexcept {
    return rep->capacity == key.Length() &&
           std::memcmp(rep->units, key.Data(), key.Length() * sizeof(unsigned short)) == 0;
  }
  static uint32_t HashUnits(const unsigned short* units, unsigned int length) noexcept;
  // Makes a string of `length` units whose text the caller writes through
  // the returned pointer (room for length + 1 units; the NUL is written).
  static unsigned short* PrepareUnits(CVString& out, unsigned int length);
  // Shortens a string made by PrepareUnits to `length` units.
  static void TruncateUnits(CVString& out, unsigned int length);
  // Replaces the contents of `out` with `length` bytes of UTF-8, decoded as
  // CVCMMap::Utf8ToUnicode does.
  static void AssignUtf8(CVString& out, const char* text, size_t length);
  // The same for a NUL-terminated text (null gives the empty string), read
  // in one pass: the readers' path for every string of an answer.
  static void AssignUtf8Terminated(CVString& out, const char* text);

 private:
  static Rep* NewRep(unsigned int length);
  // Counts one more owner of the block (nothing for a permanent one).
  void Retain() const noexcept {
    Rep* rep = GetRep();
    if (rep->refs.load(std::memory_order_relaxed) >= 0) rep->refs.fetch_add(1, std::memory_order_relaxed);
  }
  void ReleaseRep() noexcept;
  void AssignLatin1(const char* text, size_t length);
  // Replaces the contents with `length` units from `units`, which may be
  // read up to kInlineCapacity + 1 units whatever `length` is.
  void AssignUnitsPadded(const unsigned short* units, size_t length);
  // Replaces the contents with the bytes s[0..length), each widened to one
  // unit; at least kInlineCapacity + 1 zero bytes follow them.
  void AssignBytesPadded(const unsigned char* s, size_t length);
  // Replaces the contents with the decoding of the padded text s[0..length)
  // (PaddedText in Utf8.h).
  void AssignDecodedPadded(const unsigned char* s, size_t length);
  // Invariants:
  //  (1) HasRep() iff the text lives in a Rep; then the block pointer is kept
  //      in the first bytes of m_inline, so the object stays 32 bytes on 64-bit
  //      targets, 28 on 32-bit ones (vtable pointer, 20 bytes of text, length).
  //  (2) Only permanent strings hold a text of at most kInlineCapacity units
  //      in a Rep (and a bundle's copy of a key, FromKeyRep); every other
  //      short text is inline.
  //  (3) After the block pointer, a string with a Rep keeps a hash, nonzero
  //      iff the block is permanent (computed once, when the block was made).
  static constexpr unsigned int kRepBit = 0x80000000u;
  static constexpr int kHashSlot = 4;
  bool HasRep() const { return (m_len & kRepBit) != 0; }
  unsigned int Length() const { return m_len & ~kRepBit; }
  Rep* GetRep() const {
    Rep* rep;
    std::memcpy(&rep, m_inline, sizeof(rep));
    return rep;
  }
  uint32_t CachedHash() const {
    if (!HasRep()) return 0;
    uint32_t cached;
    std::memcpy(&cached, m_inline + kHashSlot, sizeof(cached));
    return cached;
  }
  // Points the string at `rep` holding `length` units (the hash slot
  // cleared: not permanent).
  void SetRep(const Rep* rep, unsigned int length) {
    std::memset(m_inline, 0, sizeof(m_inline));
    std::memcpy(m_inline, &rep, sizeof(rep));
    m_len = length | kRepBit;
  }

  unsigned short m_inline[kInlineCapacity + 1];  // text and NUL, or the Rep*
  unsigned int m_len;  // length in code units, with kRepBit when in a Rep
};

// The int value of the decimal number at the start of a UTF-16 text, as atoi
// gives it for 8-bit text: leading white space, an optional sign, digits.
// Values beyond int32 saturate at INT_MIN/INT_MAX; a null text gives 0.
int _wtoi(const unsigned short* text);

class CVCMMap {
 public:
  // Decodes exactly `length` bytes of UTF-8 into UTF-16. Code points above
  // U+FFFF become surrogate pairs; every invalid, overlong, surrogate-encoding
  // or truncated sequence becomes one U+FFFD per maximal invalid subpart
  // (the WHATWG decoder's rule). Null text gives the empty string.
  static CVString Utf8ToUnicode(const char* text, unsigned int length);
};

}  // namespace _quarn_vi

#endif  // FOUNDATION_VSTRING_H_
