// UTF-8 and UTF-16 conversions shared by CVString, the JSON readers and the
// bundle writer. Internal to the library.
//
// The decoder follows the WHATWG UTF-8 decoder: every maximal invalid subpart
// (an invalid lead byte, or the valid prefix of a sequence cut short by a bad
// or missing continuation byte) becomes one U+FFFD. Overlong forms, encoded
// surrogates and code points above U+10FFFF are invalid.
//
// Two decoders give the same units. DecodeUtf8 reads exactly the bytes it is
// given (long texts, and any caller without a padded copy). DecodeUtf8Padded,
// the readers' hot path, reads a zero-padded stack copy of a text (see
// PaddedText), made in one pass over a NUL-terminated text.
//
// ASCII runs are widened 16 bytes at a time with SSE2 (x86-64) or NEON
// (AArch64; 32-bit ARM built with NEON, as Android's armeabi-v7a is), and
// 8 bytes at a time in portable C++ (the whole run on targets with neither,
// such as Debian's armhf). Other characters are decoded one at a time, which
// measured faster than vector steps over CJK runs (see DecodeUtf8PaddedSse2).
// All paths give the same units; the tests run every form the build has, the
// portable one everywhere, NEON under qemu-aarch64 and the portable one
// alone under qemu-arm. The NEON forms are the x86 ones' counterparts, not
// measured choices: emulation cannot time them.
#ifndef FOUNDATION_UTF8_H_
#define FOUNDATION_UTF8_H_

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#if defined(__SSE2__)
#include <emmintrin.h>
#elif defined(__ARM_NEON)
#include <arm_neon.h>
#endif

namespace _quarn_vi {

constexpr unsigned short kReplacementChar = 0xFFFD;

// Length of the valid UTF-8 sequence that starts at s[0] (1 to 4), or 0 when
// the bytes at s (n of them) start with an invalid sequence; in that case
// *subpart receives the length of the maximal invalid subpart (1 to 3).
// On success *code_point receives the decoded value.
inline int Utf8SequenceAt(const unsigned char* s, size_t n, uint32_t* code_point, int* subpart) {
  unsigned char b = s[0];
  if (b < 0x80) {
    *code_point = b;
    return 1;
  }
  int needed;
  uint32_t cp;
  unsigned char lower = 0x80, upper = 0xBF;
  if (b >= 0xC2 && b <= 0xDF) {
    needed = 1;
    cp = b & 0x1F;
  } else if (b >= 0xE0 && b <= 0xEF) {
    needed = 2;
    cp = b & 0x0F;
    if (b == 0xE0) lower = 0xA0;  // overlong
    if (b == 0xED) upper = 0x9F;  // surrogates
  } else if (b >= 0xF0 && b <= 0xF4) {
    needed = 3;
    cp = b & 0x07;
    if (b == 0xF0) lower = 0x90;  // overlong
    if (b == 0xF4) upper = 0x8F;  // beyond U+10FFFF
  } else {
    *subpart = 1;
    return 0;
  }
  for (int k = 1; k <= needed; ++k) {
    if (static_cast<size_t>(k) >= n || s[k] < lower || s[k] > upper) {
      *subpart = k;
      return 0;
    }
    lower = 0x80;
    upper = 0xBF;
    cp = (cp << 6) | (s[k] & 0x3F);
  }
  *code_point = cp;
  return needed + 1;
}

// Decodes n bytes into `out`, which has room for n units; returns the units
// written (never more than n). ASCII runs go 16 bytes at a time (SSE2 or
// NEON) and valid three-byte sequences (CJK) take a short path of their own.
inline size_t DecodeUtf8(const unsigned char* s, size_t n, unsigned short* out) {
  size_t i = 0, o = 0;
  while (i < n) {
#if defined(__SSE2__)
    while (i + 16 <= n) {
      __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + i));
      if (_mm_movemask_epi8(bytes) != 0) break;
      __m128i zero = _mm_setzero_si128();
      _mm_storeu_si128(reinterpret_cast<__m128i*>(out + o), _mm_unpacklo_epi8(bytes, zero));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(out + o + 8), _mm_unpackhi_epi8(bytes, zero));
      i += 16;
      o += 16;
    }
#elif defined(__ARM_NEON)
    while (i + 16 <= n) {
      uint8x16_t bytes = vld1q_u8(s + i);
      // One test for both ISAs (AArch64's vmaxvq_u8 is not in 32-bit NEON).
      uint64x2_t words = vreinterpretq_u64_u8(bytes);
      if (((vgetq_lane_u64(words, 0) | vgetq_lane_u64(words, 1)) & 0x8080808080808080ULL) != 0) break;
      vst1q_u16(out + o, vmovl_u8(vget_low_u8(bytes)));
      vst1q_u16(out + o + 8, vmovl_u8(vget_high_u8(bytes)));
      i += 16;
      o += 16;
    }
#endif
    while (i + 8 <= n) {
      uint64_t word;
      std::memcpy(&word, s + i, sizeof(word));
      if ((word & 0x8080808080808080ULL) != 0) break;
      for (int k = 0; k < 8; ++k) out[o + k] = s[i + k];
      i += 8;
      o += 8;
    }
    if (i >= n) break;
    unsigned char b = s[i];
    if (b < 0x80) {
      out[o++] = b;
      ++i;
      continue;
    }
    if ((b & 0xF0) == 0xE0) {
      // A run of three-byte characters (CJK text) stays in this loop.
      size_t start = o;
      while (i + 2 < n && (s[i] & 0xF0) == 0xE0 && (s[i + 1] & 0xC0) == 0x80 && (s[i + 2] & 0xC0) == 0x80) {
        uint32_t cp = (static_cast<uint32_t>(s[i] & 0x0F) << 12) |
                      (static_cast<uint32_t>(s[i + 1] & 0x3F) << 6) | (s[i + 2] & 0x3F);
        if (cp < 0x800 || (cp >= 0xD800 && cp <= 0xDFFF)) break;  // overlong or a surrogate
        out[o++] = static_cast<unsigned short>(cp);
        i += 3;
      }
      if (o != start) continue;
    }
    uint32_t cp = 0;
    int subpart = 0;
    int len = Utf8SequenceAt(s + i, n - i, &cp, &subpart);
    if (len == 0) {
      out[o++] = kReplacementChar;
      i += static_cast<size_t>(subpart);
    } else if (cp >= 0x10000) {
      cp -= 0x10000;
      out[o++] = static_cast<unsigned short>(0xD800 + (cp >> 10));
      out[o++] = static_cast<unsigned short>(0xDC00 + (cp & 0x3FF));
      i += static_cast<size_t>(len);
    } else {
      out[o++] = static_cast<unsigned short>(cp);
      i += static_cast<size_t>(len);
    }
  }
  return o;
}

// Widens each of the n bytes to one unit (ISO-8859-1; for ASCII also the
// UTF-8 decoding), 16 at a time with SSE2 or NEON.
inline void WidenBytes(const unsigned char* s, size_t n, unsigned short* out) {
  size_t i = 0;
#if defined(__SSE2__)
  const __m128i zero = _mm_setzero_si128();
  for (; i + 16 <= n; i += 16) {
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + i));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), _mm_unpacklo_epi8(bytes, zero));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i + 8), _mm_unpackhi_epi8(bytes, zero));
  }
#elif defined(__ARM_NEON)
  for (; i + 16 <= n; i += 16) {
    const uint8x16_t bytes = vld1q_u8(s + i);
    vst1q_u16(out + i, vmovl_u8(vget_low_u8(bytes)));
    vst1q_u16(out + i + 8, vmovl_u8(vget_high_u8(bytes)));
  }
#endif
  for (; i < n; ++i) out[i] = s[i];
}

// Widens exactly 10 bytes (a string's inline room and its NUL); at least
// 16 bytes at s may be read.
inline void WidenTenBytes(const unsigned char* s, unsigned short* out) {
#if defined(__SSE2__)
  const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_unpacklo_epi8(bytes, _mm_setzero_si128()));
  const uint32_t last = static_cast<uint32_t>(_mm_cvtsi128_si32(_mm_unpackhi_epi8(bytes, _mm_setzero_si128())));
  std::memcpy(out + 8, &last, sizeof(last));
#elif defined(__ARM_NEON)
  const uint8x16_t bytes = vld1q_u8(s);
  vst1q_u16(out, vmovl_u8(vget_low_u8(bytes)));
  out[8] = s[8];
  out[9] = s[9];
#else
  for (int k = 0; k < 10; ++k) out[k] = s[k];
#endif
}

// The same for n >= 8 bytes, ending with one step that overlaps the one
// before it instead of a byte loop (writes out[0..n) only).
inline void WidenBytesOverlapping(const unsigned char* s, size_t n, unsigned short* out) {
#if defined(__SSE2__)
  const __m128i zero = _mm_setzero_si128();
  if (n < 16) {
    const __m128i head = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(s));
    const __m128i tail = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(s + n - 8));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_unpacklo_epi8(head, zero));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + n - 8), _mm_unpacklo_epi8(tail, zero));
    return;
  }
  WidenBytes(s, n & ~size_t{15}, out);
  const __m128i last = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + n - 16));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(out + n - 16), _mm_unpacklo_epi8(last, zero));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(out + n - 8), _mm_unpackhi_epi8(last, zero));
#elif defined(__ARM_NEON)
  if (n < 16) {
    vst1q_u16(out, vmovl_u8(vld1_u8(s)));
    vst1q_u16(out + n - 8, vmovl_u8(vld1_u8(s + n - 8)));
    return;
  }
  WidenBytes(s, n & ~size_t{15}, out);
  const uint8x16_t last = vld1q_u8(s + n - 16);
  vst1q_u16(out + n - 16, vmovl_u8(vget_low_u8(last)));
  vst1q_u16(out + n - 8, vmovl_u8(vget_high_u8(last)));
#else
  WidenBytes(s, n, out);
#endif
}

// ---- Texts read from a padded copy -------------------------------------------
//
// The readers' hot path (every string of an answer) takes a text through a
// stack copy followed by zero bytes, so that one pass finds the NUL of a
// NUL-terminated text while copying it, and the decoder then loads 16 bytes
// at a time and looks at the bytes after a lead byte without bounds checks.
// On the 20-POI answer (808 texts of 14 bytes on average, two fifths of them
// CJK mixed with ASCII digits) the texts of a build cost about 160,000
// instructions this way, against 254,000 for strlen, then DecodeUtf8 into a
// stack buffer, then a copy (callgrind).
//
// Invariants of a PaddedText after a successful copy:
//  (1) text[0..length) are the text's bytes and text[length..length+16) are
//      zero; so is every byte of `bytes` from text + length on to the end of
//      its 16-byte block and the whole block after it.
//  (2) length + 16 <= kPaddedTextBytes: a decoder writing 16 units past the
//      text's length stays inside a buffer of kPaddedTextBytes units.
//  (3) `ascii` is true iff no byte of the text is >= 0x80 (set by
//      CopyTerminatedText only; CopyText leaves it false).

// The room of a copy: 32 blocks of 16 bytes for the text, its NUL and the
// offset of a copy that starts mid-block, and two blocks of zeros.
constexpr size_t kPaddedTextBytes = 544;
// Texts of at most this many bytes always fit a PaddedText.
constexpr size_t kPaddedTextMax = 512;

struct PaddedText {
  alignas(16) unsigned char bytes[kPaddedTextBytes];
  // Set by a copy (left unset until then: a copy per text of an answer).
  const unsigned char* text;  // the copy's first byte, in `bytes`
  size_t length;              // bytes before the NUL
  bool ascii;                 // see invariant (3)
};

// Copies `length` bytes (NULs allowed) into `copy`. REQUIRES: length <=
// kPaddedTextMax.
inline void CopyText(const char* text, size_t length, PaddedText* copy) {
  std::memcpy(copy->bytes, text, length);
  std::memset(copy->bytes + length, 0, 32);
  copy->text = copy->bytes;
  copy->length = length;
  copy->ascii = false;
}

// Portable form of CopyTerminatedText (below), byte by byte; the only form
// on targets without SSE2 or NEON, and the reference the tests compare the
// vector forms with.
inline bool CopyTerminatedTextPortable(const char* text, PaddedText* copy) {
  const unsigned char* s = reinterpret_cast<const unsigned char*>(text);
  unsigned char* out = copy->bytes;
  unsigned char seen = 0;
  size_t n = 0;
  for (unsigned char c; (c = s[n]) != 0; ++n) {
    if (n == kPaddedTextMax) return false;
    out[n] = c;
    seen |= c;
  }
  std::memset(out + n, 0, 32);
  copy->text = out;
  copy->length = n;
  copy->ascii = seen < 0x80;
  return true;
}

// The text's bytes are read with aligned 16-byte loads: an aligned load never
// crosses a page, so it cannot fault even where it reads past the NUL (or
// before the text's first byte, in its first block); the bytes outside the
// text are masked off. Nor does it cross a 16-byte granule of memory
// tagging (ARM MTE, HWASan), so it reads no byte of another tagged object.
// Those loads are the reason for the attribute: the sanitizers would see a
// read outside the text's object, which the masks make harmless.
#if defined(__clang__)
#define POIPARSER_BLOCK_READS __attribute__((noinline, no_sanitize("address", "thread", "hwaddress")))
#elif defined(__GNUC__)
#define POIPARSER_BLOCK_READS __attribute__((noinline, no_sanitize_address, no_sanitize_thread))
#else
#define POIPARSER_BLOCK_READS
#endif

// The same for a function small enough to inline into a hot loop: forced
// inline where no sanitizer checks the build, out of line where one does
// (inlined into a checked caller, its loads would be checked too).
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || defined(__SANITIZE_HWADDRESS__)
#define POIPARSER_SANITIZED_BUILD 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(hwaddress_sanitizer)
#define POIPARSER_SANITIZED_BUILD 1
#endif
#endif
#if defined(POIPARSER_SANITIZED_BUILD)
#define POIPARSER_INLINE_BLOCK_READS POIPARSER_BLOCK_READS
#else
#define POIPARSER_INLINE_BLOCK_READS __attribute__((always_inline))
#endif

#if defined(__ARM_NEON)
// A NEON comparison result as a mask of 4 bits per byte, in byte order
// (NEON has no movemask; a narrowing shift packs the bytes instead).
inline uint64_t NeonByteMask(uint8x16_t lanes) {
  return vget_lane_u64(vreinterpret_u64_u8(vshrn_n_u16(vreinterpretq_u16_u8(lanes), 4)), 0);
}
#endif

// Copies the NUL-terminated `text` into `copy` in one pass, finding its
// length and whether it is all ASCII on the way; returns false, leaving
// `copy` unusable, when the text is longer than the copy's room (it always
// fits when it has at most kPaddedTextMax bytes). Reads no page that holds
// no byte of the text.
#if defined(__SSE2__)
POIPARSER_INLINE_BLOCK_READS inline bool CopyTerminatedText(const char* text, PaddedText* copy) {
  const uintptr_t address = reinterpret_cast<uintptr_t>(text);
  const unsigned skip = static_cast<unsigned>(address & 15);
  const unsigned char* block = reinterpret_cast<const unsigned char*>(address - skip);
  unsigned char* out = copy->bytes;
  const __m128i zero = _mm_setzero_si128();
  __m128i v = _mm_load_si128(reinterpret_cast<const __m128i*>(block));
  const unsigned first = 0xFFFFu << skip;  // the block's bytes that belong to the text
  unsigned nuls = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(v, zero))) & first;
  unsigned high = static_cast<unsigned>(_mm_movemask_epi8(v)) & first;
  unsigned high_before = 0;  // of the blocks before the NUL's
  size_t offset = 0;
  while (nuls == 0) {
    high_before |= high;
    _mm_store_si128(reinterpret_cast<__m128i*>(out + offset), v);
    offset += 16;
    if (offset + 32 > kPaddedTextBytes) return false;
    v = _mm_load_si128(reinterpret_cast<const __m128i*>(block + offset));
    nuls = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(v, zero)));
    high = static_cast<unsigned>(_mm_movemask_epi8(v));
  }
  const unsigned nul = static_cast<unsigned>(__builtin_ctz(nuls));
  const __m128i iota = _mm_setr_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
  const __m128i keep = _mm_cmpgt_epi8(_mm_set1_epi8(static_cast<char>(nul)), iota);
  _mm_store_si128(reinterpret_cast<__m128i*>(out + offset), _mm_and_si128(v, keep));
  _mm_store_si128(reinterpret_cast<__m128i*>(out + offset + 16), zero);
  copy->text = out + skip;
  copy->length = offset + nul - skip;
  copy->ascii = (high_before | (high & (nuls ^ (nuls - 1)))) == 0;  // up to the NUL
  return true;
}
#elif defined(__ARM_NEON)
POIPARSER_INLINE_BLOCK_READS inline bool CopyTerminatedText(const char* text, PaddedText* copy) {
  const uintptr_t address = reinterpret_cast<uintptr_t>(text);
  const unsigned skip = static_cast<unsigned>(address & 15);
  const unsigned char* block = reinterpret_cast<const unsigned char*>(address - skip);
  unsigned char* out = copy->bytes;
  const uint8x16_t zero = vdupq_n_u8(0);
  uint8x16_t v = vld1q_u8(block);
  const uint64_t first = ~0ULL << (4 * skip);
  uint64_t nuls = NeonByteMask(vceqq_u8(v, zero)) & first;
  uint64_t high = NeonByteMask(vcgeq_u8(v, vdupq_n_u8(0x80))) & first;
  bool seen_high = false;
  size_t offset = 0;
  while (nuls == 0) {
    seen_high |= high != 0;
    vst1q_u8(out + offset, v);
    offset += 16;
    if (offset + 32 > kPaddedTextBytes) return false;
    v = vld1q_u8(block + offset);
    nuls = NeonByteMask(vceqq_u8(v, zero));
    high = NeonByteMask(vcgeq_u8(v, vdupq_n_u8(0x80)));
  }
  const unsigned nul = static_cast<unsigned>(__builtin_ctzll(nuls)) / 4;
  static const uint8_t kIota[16] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
  const uint8x16_t keep = vcltq_u8(vld1q_u8(kIota), vdupq_n_u8(static_cast<uint8_t>(nul)));
  vst1q_u8(out + offset, vandq_u8(v, keep));
  vst1q_u8(out + offset + 16, zero);
  const uint64_t before_nul = nul == 0 ? 0 : ~0ULL >> (64 - 4 * nul);
  copy->text = out + skip;
  copy->length = offset + nul - skip;
  copy->ascii = !seen_high && (high & before_nul) == 0;
  return true;
}
#else
inline bool CopyTerminatedText(const char* text, PaddedText* copy) {
  return CopyTerminatedTextPortable(text, copy);
}
#endif

// ---- Comparing a text with a known name --------------------------------------
//
// Whether the NUL-terminated `text` is the name of `length` bytes at `name`
// (no NUL among them; name[length] is its NUL). `name` lies in a padded
// buffer of the caller's: the 15 bytes before it and the 16 after its NUL
// may be read. The text is read as CopyTerminatedText reads it, with
// aligned 16-byte loads, block by block, and a block is read only when the
// ones before it matched: the text then reaches into it. Reads no page that
// holds no byte of the text.
//
// TerminatedTextInBlocks, small enough to inline into a loop, answers for
// the common case, a name that ends in the text's first kInlineBlocks
// blocks (`mask`, NameBytesMask(length), says where it ends); its false is
// "different, or ending beyond them", which TerminatedTextEquals sorts out
// for a name that ends beyond them.

// Portable form: byte by byte up to the first difference (at the latest the
// text's NUL or the name's).
inline bool TerminatedTextEqualsPortable(const char* text, const char* name, size_t length) {
  for (size_t i = 0; i <= length; ++i) {
    if (text[i] != name[i]) return false;
  }
  return true;
}

#if defined(__SSE2__) || defined(__ARM_NEON)
// A block's comparison: kBitsPerByte bits per byte, in byte order.
#if defined(__SSE2__)
constexpr unsigned kBitsPerByte = 1;
using ByteMask = uint32_t;
POIPARSER_INLINE_BLOCK_READS inline ByteMask EqualBytes(uintptr_t block, const char* name) {
  const __m128i text = _mm_load_si128(reinterpret_cast<const __m128i*>(block));
  const __m128i other = _mm_loadu_si128(reinterpret_cast<const __m128i*>(name));
  return static_cast<ByteMask>(_mm_movemask_epi8(_mm_cmpeq_epi8(text, other)));
}
#else
constexpr unsigned kBitsPerByte = 4;
using ByteMask = uint64_t;
POIPARSER_INLINE_BLOCK_READS inline ByteMask EqualBytes(uintptr_t block, const char* name) {
  const uint8x16_t text = vld1q_u8(reinterpret_cast<const uint8_t*>(block));
  const uint8x16_t other = vld1q_u8(reinterpret_cast<const uint8_t*>(name));
  return NeonByteMask(vceqq_u8(text, other));
}
#endif

// The mask of the first n (1 to 16) bytes of a block.
inline ByteMask FirstBytes(size_t n) {
  return static_cast<ByteMask>((uint64_t{2} << (kBitsPerByte * n - 1)) - 1);
}

// The bytes of the text's first block that differ from the name's, from
// the text's start on (bit 0: the text's first byte); the bytes past the
// block count as differing.
POIPARSER_INLINE_BLOCK_READS inline ByteMask DifferingFirstBytes(const char* text, const char* name) {
  const uintptr_t address = reinterpret_cast<uintptr_t>(text);
  const uintptr_t skip = address & 15;  // the block's bytes before the text
  const ByteMask equal = EqualBytes(address & ~uintptr_t{15}, name - skip);
#if defined(__SSE2__)
  return ~equal >> skip;  // the 16 bits above the block's shift in as ones
#else
  return (~equal >> (kBitsPerByte * skip)) | ~(~ByteMask{0} >> (kBitsPerByte * skip));
#endif
}

#if defined(__SSE2__)
// The blocks of the text that TerminatedTextInBlocks reads: a name that
// ends beyond them is left to TerminatedTextEquals.
constexpr size_t kInlineBlocks = 2;

// A name's bytes and its NUL, a bit each, as TerminatedTextInBlocks wants
// them; all bits for a name too long for two blocks.
inline uint64_t NameBytesMask(size_t length) { return length < 63 ? (uint64_t{2} << length) - 1 : ~uint64_t{0}; }

POIPARSER_INLINE_BLOCK_READS inline bool TerminatedTextInBlocks(const char* text, const char* name, uint64_t mask) {
  const ByteMask differ = DifferingFirstBytes(text, name);
  if (__builtin_expect((differ & mask) == 0, 1)) return true;  // within the first block
  const uintptr_t address = reinterpret_cast<uintptr_t>(text);
  const uintptr_t skip = address & 15;
  if ((differ & (0xFFFFu >> skip)) != 0) return false;  // a difference in the first block
  // The text's bytes in its first block are the name's, none its NUL: it
  // goes on into the next block. Bit k: the text's byte k differs, from the
  // second block's first on (16 - skip); ones from the block's end on.
  const uint64_t next = ~uint64_t{EqualBytes((address & ~uintptr_t{15}) + 16, name - skip + 16)};
  return ((next << (16 - skip)) & mask) == 0;
}
#else
constexpr size_t kInlineBlocks = 1;

// A name's bytes and its NUL as they lie from the start of a block; none
// for a name of 16 bytes or more, which never fits one block (the block's
// 64 bits leave none to mark the bytes past it).
inline uint64_t NameBytesMask(size_t length) { return length < 16 ? FirstBytes(length + 1) : 0; }

POIPARSER_INLINE_BLOCK_READS inline bool TerminatedTextInBlocks(const char* text, const char* name, uint64_t mask) {
  return mask != 0 && (DifferingFirstBytes(text, name) & mask) == 0;
}
#endif

POIPARSER_BLOCK_READS inline bool TerminatedTextEquals(const char* text, const char* name, size_t length) {
  const ByteMask differ = DifferingFirstBytes(text, name);
  const size_t skip = reinterpret_cast<uintptr_t>(text) & 15;
  if (skip + length < 16) return (differ & FirstBytes(length + 1)) == 0;
  if ((differ & FirstBytes(16 - skip)) != 0) return false;
  uintptr_t block = reinterpret_cast<uintptr_t>(text) - skip;
  name -= skip;  // the name's bytes at the text's offsets in the blocks
  for (size_t end = skip + length + 1 - 16;; end -= 16) {  // the bytes left to compare
    block += 16;
    name += 16;
    const ByteMask equal = EqualBytes(block, name);
    if (end <= 16) return (~equal & FirstBytes(end)) == 0;
    if (equal != FirstBytes(16)) return false;
  }
}
#else
constexpr size_t kInlineBlocks = 0;
inline uint64_t NameBytesMask(size_t) { return 0; }
inline bool TerminatedTextInBlocks(const char*, const char*, uint64_t) { return false; }
inline bool TerminatedTextEquals(const char* text, const char* name, size_t length) {
  return TerminatedTextEqualsPortable(text, name, length);
}
#endif

// Decodes a character that starts with a byte >= 0x80 at s[i] (of n), as
// DecodeUtf8 does, into out[o]; advances i and o. Valid two- and
// three-byte sequences take a short path: the bytes after s[i] may be read
// without a bounds check because the text is padded with zeros, which no
// sequence accepts.
inline void DecodePaddedSequence(const unsigned char* s, size_t n, size_t& i, unsigned short* out, size_t& o) {
  const uint32_t b0 = s[i];
  const uint32_t b1 = s[i + 1];
  if ((b0 & 0xF0) == 0xE0) {
    const uint32_t b2 = s[i + 2];
    const uint32_t cp = ((b0 & 0x0F) << 12) | ((b1 & 0x3F) << 6) | (b2 & 0x3F);
    // Both continuation bytes, neither overlong nor a surrogate.
    if (((b1 & 0xC0) | ((b2 & 0xC0) << 8)) == 0x8080 && cp >= 0x800 && (cp & 0xF800) != 0xD800) {
      out[o++] = static_cast<unsigned short>(cp);
      i += 3;
      return;
    }
  } else if (b0 >= 0xC2 && b0 <= 0xDF && (b1 & 0xC0) == 0x80) {
    out[o++] = static_cast<unsigned short>(((b0 & 0x1F) << 6) | (b1 & 0x3F));
    i += 2;
    return;
  }
  uint32_t cp = 0;
  int subpart = 0;
  const int len = Utf8SequenceAt(s + i, n - i, &cp, &subpart);
  if (len == 0) {
    out[o++] = kReplacementChar;
    i += static_cast<size_t>(subpart);
  } else if (cp >= 0x10000) {
    cp -= 0x10000;
    out[o++] = static_cast<unsigned short>(0xD800 + (cp >> 10));
    out[o++] = static_cast<unsigned short>(0xDC00 + (cp & 0x3FF));
    i += static_cast<size_t>(len);
  } else {
    out[o++] = static_cast<unsigned short>(cp);
    i += static_cast<size_t>(len);
  }
}

// The forms of DecodeUtf8Padded (below). Each takes ASCII in wide steps
// and hands a byte >= 0x80 to its run loop, which stays until the next
// ASCII byte; they differ in their steps only. All give the units of
// DecodeUtf8; the tests run every form the machine has on the same inputs.
using PaddedDecoder = size_t (*)(const unsigned char* s, size_t n, unsigned short* out);

// Portable: ASCII 8 bytes at a time, the rest character by character.
inline size_t DecodeUtf8PaddedPortable(const unsigned char* s, size_t n, unsigned short* out) {
  size_t i = 0, o = 0;
  while (i < n) {
    uint64_t word;
    std::memcpy(&word, s + i, sizeof(word));
    for (int k = 0; k < 8; ++k) out[o + k] = s[i + k];
    if ((word & 0x8080808080808080ULL) == 0) {
      i += 8;
      o += 8;
      continue;
    }
    while (s[i] < 0x80) ++i, ++o;  // stops before n: these 8 bytes hold a byte >= 0x80
    do {
      DecodePaddedSequence(s, n, i, out, o);
    } while (s[i] >= 0x80);  // the zeros after the text end the run
  }
  return o - (i - n);  // the zeros read past the text were counted as units
}

#if defined(__SSE2__)
// Widens the 16 bytes at s into out[0..16); returns how many of them lead
// the block as ASCII (16 when all do).
inline unsigned AsciiStepSse2(const unsigned char* s, unsigned short* out) {
  const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s));
  const __m128i zero = _mm_setzero_si128();
  _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_unpacklo_epi8(bytes, zero));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 8), _mm_unpackhi_epi8(bytes, zero));
  const unsigned high = static_cast<unsigned>(_mm_movemask_epi8(bytes));
  return high == 0 ? 16 : static_cast<unsigned>(__builtin_ctz(high));
}

// SSE2: ASCII 16 bytes at a time, the rest character by character. The
// padded decoder of x86-64, measured against a form that decoded CJK runs
// five characters per SSSE3 step: on the 20-POI answer (323 non-ASCII
// texts of 2 to 16 characters, CJK runs broken by digits and punctuation)
// that form took 6.8 % fewer instructions per build but the build took 8 %
// longer (36.8 against 34.0 us, best of 200 batches, alternating builds of
// one tree). Each of its steps waited for the one before it (the next
// step's start came from a shuffle, a compare and a bit count) and a run's
// end was a branch it could not foresee; a character decoded alone is a
// branch that CJK text always takes the same way.
inline size_t DecodeUtf8PaddedSse2(const unsigned char* s, size_t n, unsigned short* out) {
  size_t i = 0, o = 0;
  while (i < n) {
    const unsigned ascii = AsciiStepSse2(s + i, out + o);
    i += ascii;
    o += ascii;
    if (ascii == 16) continue;
    do {
      DecodePaddedSequence(s, n, i, out, o);
    } while (s[i] >= 0x80);  // the zeros after the text end the run
  }
  return o - (i - n);
}

#endif  // __SSE2__

#if defined(__ARM_NEON)
// NEON: as SSE2.
inline size_t DecodeUtf8PaddedNeon(const unsigned char* s, size_t n, unsigned short* out) {
  size_t i = 0, o = 0;
  while (i < n) {
    const uint8x16_t bytes = vld1q_u8(s + i);
    vst1q_u16(out + o, vmovl_u8(vget_low_u8(bytes)));
    vst1q_u16(out + o + 8, vmovl_u8(vget_high_u8(bytes)));
    const uint64_t high = NeonByteMask(vcgeq_u8(bytes, vdupq_n_u8(0x80)));
    const unsigned ascii = high == 0 ? 16 : static_cast<unsigned>(__builtin_ctzll(high)) / 4;
    i += ascii;
    o += ascii;
    if (ascii == 16) continue;
    do {
      DecodePaddedSequence(s, n, i, out, o);
    } while (s[i] >= 0x80);
  }
  return o - (i - n);
}
#endif  // __ARM_NEON

// Decodes the n bytes of a padded text (PaddedText invariant (1): 16 zero
// bytes after them) into `out`, which has room for n + 16 units; returns the
// units of the text (never more than n), exactly as DecodeUtf8 gives them.
// Writes scratch units after them. ASCII goes 16 bytes at a time, all 16
// widened and stored before the first non-ASCII byte is looked for, so that
// a short ASCII run costs one step.
inline size_t DecodeUtf8Padded(const unsigned char* s, size_t n, unsigned short* out) {
#if defined(__ARM_NEON)
  return DecodeUtf8PaddedNeon(s, n, out);
#elif defined(__SSE2__)
  return DecodeUtf8PaddedSse2(s, n, out);
#else
  return DecodeUtf8PaddedPortable(s, n, out);
#endif
}

// True iff the n bytes are valid UTF-8.
inline bool IsValidUtf8(const unsigned char* s, size_t n) {
  size_t i = 0;
  while (i < n) {
    if (s[i] < 0x80) {
      ++i;
      continue;
    }
    uint32_t cp;
    int subpart;
    int len = Utf8SequenceAt(s + i, n - i, &cp, &subpart);
    if (len == 0) return false;
    i += static_cast<size_t>(len);
  }
  return true;
}

inline void AppendUtf8CodePoint(uint32_t cp, std::string& out) {
  if (cp < 0x80) {
    out.push_back(static_cast<char>(cp));
  } else if (cp < 0x800) {
    out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  } else if (cp < 0x10000) {
    out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  } else {
    out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  }
}

// Appends the UTF-8 form of n UTF-16 units; a lone surrogate becomes U+FFFD.
inline void AppendUtf16AsUtf8(const unsigned short* units, size_t n, std::string& out) {
  for (size_t i = 0; i < n; ++i) {
    uint32_t u = units[i];
    if (u >= 0xD800 && u <= 0xDBFF && i + 1 < n && units[i + 1] >= 0xDC00 && units[i + 1] <= 0xDFFF) {
      u = 0x10000 + ((u - 0xD800) << 10) + (units[i + 1] - 0xDC00);
      ++i;
    } else if (u >= 0xD800 && u <= 0xDFFF) {
      u = kReplacementChar;
    }
    AppendUtf8CodePoint(u, out);
  }
}

}  // namespace _quarn_vi

#endif  // FOUNDATION_UTF8_H_
