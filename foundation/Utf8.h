// UTF-8 and UTF-16 conversions shared by CVString, the JSON readers and the
// bundle writer. Internal to the library.
//
// The decoder follows the WHATWG UTF-8 decoder: every maximal invalid subpart
// (an invalid lead byte, or the valid prefix of a sequence cut short by a bad
// or missing continuation byte) becomes one U+FFFD. Overlong forms, encoded
// surrogates and code points above U+10FFFF are invalid.
//
// ASCII runs are widened 16 bytes at a time with SSE2 (x86-64) or NEON
// (AArch64; 32-bit ARM built with NEON, as Android's armeabi-v7a is), and
// 8 bytes at a time in portable C++ everywhere (the rest of a run, and the
// whole run on targets with neither, such as Debian's armhf). All paths give
// the same units; the tests run the SSE2 one natively, NEON under
// qemu-aarch64 and the portable one alone under qemu-arm. The NEON path is
// the SSE2 one's counterpart, not a measured choice: emulation cannot time it.
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
