// libFuzzer target: any bytes as the text of a JSON string, through the
// text paths of the readers: UTF-8 decoding (every form of the decoder, and
// the one-pass reading of NUL-terminated texts), the text-to-buffer cut, the
// telephone normaliser, the geometry reader, the integer readers and the
// substring search. Each result is checked against what the contract says;
// a failed check aborts.
//
// Input: one control byte (the buffer size of the cut, 1 to 128), then the
// text; a NUL byte in the text ends it, as it ends a cJSON string, and the
// bytes after the first 0xFF are the needle of the substring search.
#include <cjson/cJSON.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "foundation/Utf8.h"
#include "json_readers/JsonAccess.h"
#include "json_readers/JsonObjParser.h"

namespace {

using _quarn_framework::CJsonObjParser;
using _quarn_vi::CVString;

void Check(bool condition, const char* what) {
  if (!condition) {
    std::fprintf(stderr, "check failed: %s\n", what);
    std::abort();
  }
}

std::string Decoded(const std::string& bytes) {
  return _quarn_vi::CVCMMap::Utf8ToUnicode(bytes.data(), static_cast<unsigned>(bytes.size())).ToUtf8();
}

bool IsTelSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

// Decoding: at most one unit per byte, and the decoded text re-encodes to
// UTF-8 that decodes to itself.
void CheckDecoding(const std::string& text) {
  const CVString decoded = _quarn_vi::CVCMMap::Utf8ToUnicode(text.data(), static_cast<unsigned>(text.size()));
  Check(decoded.GetLength() <= static_cast<int>(text.size()), "no more units than bytes");
  const std::string utf8 = decoded.ToUtf8();
  Check(Decoded(utf8) == utf8, "decoded text is valid UTF-8");
  Check(CJsonObjParser::ConvertTextByRule(text.c_str()).GetLength() == static_cast<int>(text.size()),
        "the text rule widens each byte when the flag is clear");
  CVString terminated;
  CVString::AssignUtf8Terminated(terminated, text.c_str());
  Check(terminated == decoded, "a NUL-terminated text reads as its bytes decode");
  CJsonObjParser::isParsePHPUI2Res = 1;
  Check(CJsonObjParser::ConvertTextByRule(text.c_str()).ToUtf8() == utf8, "the text rule decodes when set");
  CJsonObjParser::isParsePHPUI2Res = 0;
}

// Every form of the padded decoder gives the units of the plain one.
void CheckDecoderForms(const std::string& text) {
  if (text.size() > _quarn_vi::kPaddedTextMax) return;
  const unsigned char* bytes = reinterpret_cast<const unsigned char*>(text.data());
  unsigned short expected[_quarn_vi::kPaddedTextBytes];
  const size_t n = _quarn_vi::DecodeUtf8(bytes, text.size(), expected);
  _quarn_vi::PaddedText copy;
  _quarn_vi::CopyText(text.data(), text.size(), &copy);
  std::vector<_quarn_vi::PaddedDecoder> forms = {_quarn_vi::DecodeUtf8PaddedPortable, _quarn_vi::DecodeUtf8Padded};
#if defined(__SSE2__)
  forms.push_back(_quarn_vi::DecodeUtf8PaddedSse2);
#endif
  for (_quarn_vi::PaddedDecoder decode : forms) {
    unsigned short units[_quarn_vi::kPaddedTextBytes];
    Check(decode(copy.text, copy.length, units) == n && std::memcmp(units, expected, n * sizeof(units[0])) == 0,
          "every decoder form gives the same units");
  }
}

// The cut: whole characters of the decoded text that fit in size - 1 bytes.
void CheckCut(cJSON* node, const std::string& text, int size) {
  char buffer[129];
  Check(_quarn_framework::JsonReadTextToBuffer(node, buffer, size), "a string node reads into a buffer");
  const size_t length = std::strlen(buffer);
  Check(length < static_cast<size_t>(size), "the cut fits its buffer");
  const std::string whole = Decoded(text);
  Check(whole.compare(0, length, buffer) == 0, "the cut is a prefix of the decoded text");
  Check(length == whole.size() || Decoded(std::string(buffer, length)) == std::string(buffer, length),
        "the cut ends at a whole character");
}

// The telephone normaliser: shorter, idempotent, no empty numbers.
void CheckTel(const std::string& text) {
  std::string tel = text;
  const int length = CJsonObjParser::ProcessTelNum(&tel[0]);
  Check(length == static_cast<int>(std::strlen(tel.c_str())) && length <= static_cast<int>(text.size()),
        "the telephone text only shrinks");
  const std::string once(tel.c_str());
  std::string twice = once;
  CJsonObjParser::ProcessTelNum(&twice[0]);
  Check(once == std::string(twice.c_str()), "normalising twice changes nothing");
  if (!once.empty()) {
    Check(once.front() != ',' && once.back() != ',' && !IsTelSpace(once.front()) && !IsTelSpace(once.back()),
          "no separator or space at the ends");
    Check(once.find(",,") == std::string::npos, "no empty number");
  }
}

// Integers: _wtoi and LeadingDecimalInt read as strtol does, saturated to
// int32; the JSON integer reader takes a string only when all of it is one
// integer within int32.
void CheckIntegers(cJSON* node, const std::string& text) {
  errno = 0;
  char* end = nullptr;
  long long value = std::strtoll(text.c_str(), &end, 10);
  const long long saturated = value > INT_MAX ? INT_MAX : value < INT_MIN ? INT_MIN : value;
  const CVString wide(text.c_str());
  Check(_quarn_vi::_wtoi(wide.Data()) == saturated, "_wtoi reads as strtol, saturated");
  bool digits = false;
  Check(_quarn_framework::LeadingDecimalInt(text.c_str(), &digits) == saturated,
        "LeadingDecimalInt reads as strtol, saturated");
  Check(digits == (end != text.c_str()), "LeadingDecimalInt finds digits where strtol does");
  int read = 0;
  if (_quarn_framework::JsonReadInt(node, &read)) {
    Check(end != text.c_str() && errno == 0 && value == read, "an integer text is read whole");
  }
}

// The geometry reader: refusal leaves the geometry empty.
void CheckGeometry(cJSON* object) {
  _quarn_vi::CComplexPt geometry;
  geometry.AddPart();
  if (!CJsonObjParser::GetJsonItem(object, "geo", geometry)) {
    Check(geometry.GetPartSize() == 0, "a refused geometry is empty");
  }
  for (int part = 0; part < geometry.GetPartSize(); ++part) {
    Check(geometry.GetPartContentSize(part) >= 1, "every part has a point");
  }
}

// Find agrees with std::string::find on the widened texts.
void CheckFind(const std::string& haystack, const std::string& needle) {
  const CVString wide(haystack.c_str());
  const size_t expected = haystack.find(needle);
  const int found = wide.Find(needle.c_str(), 0);
  Check(expected == std::string::npos ? found == -1 : found == static_cast<int>(expected), "Find as find");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  const int buffer_size = data[0] % 128 + 1;
  std::string input(reinterpret_cast<const char*>(data + 1), size - 1);
  input = input.c_str();  // a cJSON string ends at its first NUL
  const size_t split = input.find('\xFF');
  const std::string needle = split == std::string::npos ? std::string() : input.substr(split + 1);

  cJSON* object = cJSON_CreateObject();
  cJSON* node = cJSON_AddStringToObject(object, "geo", input.c_str());
  if (node == nullptr) {
    cJSON_Delete(object);
    return 0;
  }
  CheckDecoding(input);
  CheckDecoderForms(input);
  CheckCut(node, input, buffer_size);
  CheckTel(input);
  CheckIntegers(node, input);
  CheckGeometry(object);
  CheckFind(input.substr(0, split), needle);
  cJSON_Delete(object);
  return 0;
}
