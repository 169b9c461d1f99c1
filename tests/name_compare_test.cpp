// The comparison of a NUL-terminated text with a known name, 16 bytes at a
// time: it must agree with a byte comparison wherever the text lies in its
// block and whatever bytes surround it, and read no page the text is not on.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "foundation/Utf8.h"

namespace {

const std::string kLetters = "abcdefghijklmnopqrstuvwxyz0123456789ABCDEFGHIJKLMNOP";

// A name as the comparison wants it: `fill` in the 16 bytes before it, and
// its NUL followed by 16 more bytes of `fill`.
class PaddedName {
 public:
  PaddedName(const std::string& name, char fill) : m_bytes(16 + name.size() + 1 + 16, fill), m_length(name.size()) {
    std::memcpy(&m_bytes[16], name.c_str(), name.size() + 1);
  }
  const char* text() const { return &m_bytes[16]; }
  size_t length() const { return m_length; }

 private:
  std::vector<char> m_bytes;
  size_t m_length;
};

// Every way the comparison can go wrong: a text equal to the name, a
// prefix of it, the name and one byte more, one byte changed at each
// position, the empty text. Each lies at every offset in its block, with
// bytes around it that are zero, the name's own continuation (a prefix
// would match if its NUL were not compared), or 0xFF.
TEST(TerminatedTextEquals, AgreesWithAByteComparison) {
  for (size_t length = 0; length <= 40; ++length) {
    const std::string name = kLetters.substr(0, length);
    std::vector<std::string> texts = {name, name + "q", name + kLetters.substr(length, 1), ""};
    if (length > 0) texts.push_back(name.substr(0, length - 1));
    for (size_t k = 0; k < length; ++k) {
      std::string changed = name;
      changed[k] = static_cast<char>(changed[k] ^ 0x20);
      texts.push_back(changed);
    }
    for (char name_fill : {'\0', '\xFF'}) {
      const PaddedName padded(name, name_fill);
      for (const std::string& text : texts) {
        for (int fill = 0; fill < 3; ++fill) {
          for (size_t offset = 0; offset < 16; ++offset) {
            alignas(16) char buffer[96];
            std::memset(buffer, fill == 2 ? 0xFF : 0, sizeof(buffer));
            char* at = buffer + offset;
            if (fill == 1) std::memcpy(at, kLetters.data(), kLetters.size());  // the name goes on after the NUL
            std::memcpy(at, text.c_str(), text.size() + 1);
            SCOPED_TRACE(testing::Message() << "name " << name << ", text " << text << ", offset " << offset
                                            << ", fill " << fill);
            const bool equal = text == name;
            EXPECT_EQ(_quarn_vi::TerminatedTextEquals(at, padded.text(), length), equal);
            EXPECT_EQ(_quarn_vi::TerminatedTextEqualsPortable(at, padded.text(), length), equal);
            const bool in_block =
                _quarn_vi::TerminatedTextInBlocks(at, padded.text(), _quarn_vi::NameBytesMask(length));
            if (in_block) EXPECT_TRUE(equal);
            if (offset + length < 16 * _quarn_vi::kInlineBlocks) EXPECT_EQ(in_block, equal);
          }
        }
      }
    }
  }
}

// Texts that end on the last byte of a page, or start on the first, beside
// pages that may not be read; compared with names that are longer, shorter
// or equal, which would make a careless comparison read on.
TEST(TerminatedTextEquals, ReadsNoPageOutsideTheText) {
  const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  void* mapping = mmap(nullptr, 3 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(mapping, MAP_FAILED);
  char* middle = static_cast<char*>(mapping) + page;
  ASSERT_EQ(mprotect(mapping, page, PROT_NONE), 0);
  ASSERT_EQ(mprotect(middle + page, page, PROT_NONE), 0);
  for (size_t text_length = 0; text_length <= 40; ++text_length) {
    const std::string text = kLetters.substr(0, text_length);
    char* at_end = middle + page - 1 - text_length;  // its NUL on the page's last byte
    std::memcpy(at_end, text.c_str(), text_length + 1);
    std::memcpy(middle, text.c_str(), text_length + 1);
    for (size_t length = 0; length <= 40; ++length) {
      const PaddedName name(kLetters.substr(0, length), 'z');
      const bool equal = length == text_length;
      for (const char* at : {static_cast<const char*>(at_end), static_cast<const char*>(middle)}) {
        EXPECT_EQ(_quarn_vi::TerminatedTextEquals(at, name.text(), length), equal) << text_length << " " << length;
        const bool in_block = _quarn_vi::TerminatedTextInBlocks(at, name.text(), _quarn_vi::NameBytesMask(length));
        EXPECT_TRUE(!in_block || equal) << text_length << " " << length;
      }
    }
  }
  munmap(mapping, 3 * page);
}

}  // namespace
