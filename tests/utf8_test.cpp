// The text paths of the readers: the one-pass copy of NUL-terminated texts,
// every form of the padded decoder, and the strings made from them. Each is
// compared with a byte-at-a-time decoder on the same bytes.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <climits>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "foundation/Utf8.h"
#include "foundation/VString.h"

using _quarn_vi::CVCMMap;
using _quarn_vi::CVString;
using _quarn_vi::PaddedText;

namespace {

using Units = std::vector<unsigned>;

// The WHATWG rule spelt out one sequence at a time.
Units Slow(const std::string& bytes) {
  const unsigned char* s = reinterpret_cast<const unsigned char*>(bytes.data());
  Units out;
  for (size_t i = 0; i < bytes.size();) {
    uint32_t cp = 0;
    int subpart = 0;
    const int len = _quarn_vi::Utf8SequenceAt(s + i, bytes.size() - i, &cp, &subpart);
    if (len == 0) {
      out.push_back(0xFFFD);
      i += static_cast<size_t>(subpart);
    } else if (cp >= 0x10000) {
      out.push_back(0xD800 + ((cp - 0x10000) >> 10));
      out.push_back(0xDC00 + ((cp - 0x10000) & 0x3FF));
      i += static_cast<size_t>(len);
    } else {
      out.push_back(cp);
      i += static_cast<size_t>(len);
    }
  }
  return out;
}

Units UnitsOf(const CVString& s) { return Units(s.Data(), s.Data() + s.GetLength()); }

struct Form {
  const char* name;
  _quarn_vi::PaddedDecoder decode;
};

// Every form this build has: its vector form and the portable one.
std::vector<Form> Forms() {
  std::vector<Form> forms = {{"portable", _quarn_vi::DecodeUtf8PaddedPortable}};
#if defined(__SSE2__)
  forms.push_back({"sse2", _quarn_vi::DecodeUtf8PaddedSse2});
#endif
#if defined(__ARM_NEON)
  forms.push_back({"neon", _quarn_vi::DecodeUtf8PaddedNeon});
#endif
  forms.push_back({"chosen", _quarn_vi::DecodeUtf8Padded});
  return forms;
}

// Decodes `bytes` with every form and compares each with Slow.
void ExpectFormsAgree(const std::string& bytes) {
  ASSERT_LE(bytes.size(), _quarn_vi::kPaddedTextMax);
  const Units expected = Slow(bytes);
  PaddedText copy;
  _quarn_vi::CopyText(bytes.data(), bytes.size(), &copy);
  for (const Form& form : Forms()) {
    unsigned short out[_quarn_vi::kPaddedTextBytes];
    const size_t n = form.decode(copy.text, copy.length, out);
    EXPECT_EQ(Units(out, out + n), expected) << form.name << ": " << testing::PrintToString(bytes);
  }
}

// Sequences to put everywhere: valid ones of each length and the invalid
// forms closest to a valid three-byte character.
const char* const kPieces[] = {
    "a",
    "\xC3\xA9",          // é
    "\xE5\x8C\x97",      // 北
    "\xEF\xBF\xBF",      // U+FFFF
    "\xE0\xA0\x80",      // U+0800, the smallest three-byte character
    "\xF0\x9F\x98\x80",  // U+1F600
    "\x80",              // lone continuation
    "\xFF",
    "\xE5\x8C",          // cut short
    "\xE0\x80\x80",      // overlong
    "\xE0\x9F\xBF",      // overlong, just below U+0800
    "\xED\xA0\x80",      // surrogate
    "\xED\x9F\xBF",      // U+D7FF, just below the surrogates
    "\xEE\x80\x80",      // U+E000, just above them
    "\xC0\xAF",
    "\xF4\x90\x80\x80",  // beyond U+10FFFF
    "\xE5" "A" "\x97",   // ASCII where a continuation byte belongs
};

// Runs in which the pieces go: CJK, ASCII, and the mix of the answers'
// addresses.
const char* const kRuns[] = {
    "\xE5\x8C\x97\xE4\xBA\xAC\xE5\xB8\x82\xE6\xB5\xB7\xE6\xB7\x80\xE5\x8C\xBA\xE6\x9C\x9B\xE4\xBA\xAC",
    "The quick brown fox jumps over the lazy dog 0123",
    "\xE5\x8C\x97\xE4\xBA\xAC\xE5\xB8\x82" "49" "\xE5\x8F\xB7" "(010)" "\xE5\xBA\x97",
};

TEST(Utf8Padded, EveryFormDecodesEachPieceAtEveryByteOfARun) {
  for (const char* run : kRuns) {
    const std::string base = run;
    for (const char* piece : kPieces) {
      for (size_t at = 0; at <= base.size(); ++at) {
        ExpectFormsAgree(base.substr(0, at) + piece + base.substr(at));
      }
    }
  }
}

TEST(Utf8Padded, EveryFormDecodesRunsOfEveryLength) {
  // Runs of one piece, 0 to 20 long, between ASCII: a sixteen-byte ASCII
  // step ends at every place of a run.
  for (const char* piece : kPieces) {
    std::string run;
    for (int count = 0; count <= 20; ++count) {
      ExpectFormsAgree(run);
      ExpectFormsAgree("x" + run + "7");
      run += piece;
    }
  }
}

TEST(Utf8Padded, EveryFormAgreesOnMixedBytes) {
  // A fixed pseudo-random mix of pieces and raw bytes, 0 to 80 bytes long.
  uint32_t state = 12345;
  auto next = [&state] { return state = state * 1103515245u + 12345u, state >> 8; };
  for (int round = 0; round < 3000; ++round) {
    std::string bytes;
    const size_t length = next() % 80;
    while (bytes.size() < length) {
      if (next() % 4 == 0) {
        bytes.push_back(static_cast<char>(next() & 0xFF));
      } else {
        bytes += kPieces[next() % (sizeof(kPieces) / sizeof(kPieces[0]))];
      }
    }
    ExpectFormsAgree(bytes);
  }
}

// A text copied from every offset of an aligned block, with bytes that must
// not count around it: non-ASCII bytes before it in its first block, and
// after its NUL.
TEST(CopyTerminatedText, FindsLengthAndAsciiAtEveryAlignment) {
  const size_t lengths[] = {0, 1, 9, 10, 15, 16, 17, 31, 32, 33, 100, 511, 512, 513, 600};
  alignas(16) static unsigned char area[16 + 640 + 32];
  for (size_t length : lengths) {
    for (size_t offset = 0; offset < 16; ++offset) {
      for (int ascii = 0; ascii < 2; ++ascii) {
        std::memset(area, 0xE5, sizeof(area));
        unsigned char* text = area + offset;
        for (size_t k = 0; k < length; ++k) text[k] = static_cast<unsigned char>('a' + k % 26);
        if (!ascii && length > 0) text[length / 2] = 0x97;
        text[length] = 0;
        SCOPED_TRACE(testing::Message() << "length " << length << " at offset " << offset);
        PaddedText copy, reference;
        const bool fits = _quarn_vi::CopyTerminatedText(reinterpret_cast<char*>(text), &copy);
        ASSERT_TRUE(_quarn_vi::CopyTerminatedTextPortable(reinterpret_cast<char*>(text), &reference) ||
                    length > _quarn_vi::kPaddedTextMax);
        if (length <= _quarn_vi::kPaddedTextMax) {
          ASSERT_TRUE(fits);
        }
        if (!fits) continue;
        ASSERT_EQ(copy.length, length);
        EXPECT_EQ(copy.ascii, ascii == 1 || length == 0);
        EXPECT_EQ(std::memcmp(copy.text, text, length), 0);
        for (size_t k = 0; k < 16; ++k) EXPECT_EQ(copy.text[length + k], 0) << k;
      }
    }
  }
}

// Texts that end on the last byte of a page, or start on the first, beside
// a page that may not be read.
TEST(CopyTerminatedText, ReadsNoPageOutsideTheText) {
  const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  void* mapping = mmap(nullptr, 3 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(mapping, MAP_FAILED);
  char* first = static_cast<char*>(mapping);
  char* middle = first + page;
  ASSERT_EQ(mprotect(first, page, PROT_NONE), 0);
  ASSERT_EQ(mprotect(middle + page, page, PROT_NONE), 0);
  const std::string bytes = "\xE5\x8C\x97" "49 abcdefghijklmnopqrstuvwxyz" "\xE5\x8F\xB7";
  for (size_t length = 0; length <= bytes.size(); ++length) {
    const std::string text = bytes.substr(0, length);
    const CVString expected = CVCMMap::Utf8ToUnicode(text.data(), static_cast<unsigned>(length));
    // Its NUL on the page's last byte.
    char* at_end = middle + page - 1 - length;
    std::memcpy(at_end, text.c_str(), length + 1);
    CVString read;
    CVString::AssignUtf8Terminated(read, at_end);
    EXPECT_EQ(read, expected) << length;
    EXPECT_EQ(CVString(at_end).GetLength(), static_cast<int>(length));
    // Its first byte on the page's first.
    std::memcpy(middle, text.c_str(), length + 1);
    CVString::AssignUtf8Terminated(read, middle);
    EXPECT_EQ(read, expected) << length;
  }
  munmap(mapping, 3 * page);
}

// The string made from a NUL-terminated text is the one the length-given
// decoder makes, whatever the text's length: inline (up to 9 units), in an
// exact block, or (beyond the copy's room) by the long path; and whatever
// the string held before.
TEST(VStringText, TerminatedTextsDecodeAsTheLengthGivenOnes) {
  const char* const fillers[] = {"x", "\xE5\x8C\x97", "\xF0\x9F\x98\x80", "\xFF", "\xC3\xA9"};
  const size_t counts[] = {0, 1, 8, 9, 10, 15, 16, 17, 33, 200, 700};
  for (const char* filler : fillers) {
    for (size_t count : counts) {
      std::string text;
      for (size_t k = 0; k < count; ++k) text += (k % 3 == 2) ? std::string("7") : std::string(filler);
      const CVString expected = CVCMMap::Utf8ToUnicode(text.data(), static_cast<unsigned>(text.size()));
      EXPECT_EQ(UnitsOf(expected), Slow(text)) << testing::PrintToString(text);
      CVString fresh;
      CVString::AssignUtf8Terminated(fresh, text.c_str());
      EXPECT_EQ(UnitsOf(fresh), UnitsOf(expected)) << testing::PrintToString(text);
      EXPECT_EQ(fresh.Data()[fresh.GetLength()], 0);
      CVString held("a text long enough to be held in a block of its own");
      CVString shared = held;
      CVString::AssignUtf8Terminated(held, text.c_str());
      EXPECT_EQ(held, expected);
      EXPECT_EQ(shared, CVString("a text long enough to be held in a block of its own"));
    }
  }
  CVString cleared("something");
  CVString::AssignUtf8Terminated(cleared, nullptr);
  EXPECT_TRUE(cleared.IsEmpty());
}

// Texts widened byte by byte (the text mode flag clear) and the numbers
// formatted as text, at the lengths around the inline room.
TEST(VStringText, WideningAndNumbersAtTheInlineBoundary) {
  for (size_t length : {0, 1, 9, 10, 15, 16, 17, 40}) {
    std::string text;
    for (size_t k = 0; k < length; ++k) text.push_back(static_cast<char>(k % 2 ? 0xE5 : 'a' + k));
    const CVString widened(text.c_str());
    ASSERT_EQ(widened.GetLength(), static_cast<int>(length));
    for (size_t k = 0; k < length; ++k) EXPECT_EQ(widened.Data()[k], static_cast<unsigned char>(text[k]));
    EXPECT_EQ(widened.Data()[length], 0);
  }
  const unsigned short format[] = {'%', 'd', 0};
  for (int value : {0, -1, 123456789, -12345678, 1234567890, INT_MAX, INT_MIN}) {
    CVString s("a text long enough to be held in a block of its own");
    s.Format(format, value);
    EXPECT_EQ(s.ToUtf8(), std::to_string(value));
  }
}

}  // namespace
