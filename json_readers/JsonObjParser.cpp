#include "json_readers/JsonObjParser.h"

#include <charconv>
#include <climits>
#include <cmath>
#include <cstring>

#include "json_readers/Diagnostics.h"
#include "json_readers/FieldTable.h"
#include "poi_parser/BundleKeys.h"

namespace _quarn_framework {

int CJsonObjParser::isParsePHPUI2Res = 0;

int CJsonObjParser::GetJsonItem(cJSON* node, const char* name, int& value) {
  return JsonReadInt(FindMember(node, name), &value) ? 1 : 0;
}

int CJsonObjParser::GetJsonItem(cJSON* node, const char* name, CVString& value) {
  return JsonReadText(FindMember(node, name), &value) ? 1 : 0;
}

int CJsonObjParser::GetJsonItem(cJSON* node, const char* name, char* buffer, int size, int) {
  return JsonReadTextToBuffer(FindMember(node, name), buffer, size) ? 1 : 0;
}

namespace {

// A number of the geometry text: [+-] digits [. digits] [e [+-] digits], at
// least one digit before the exponent. Advances *p past it; false when the
// text there is not such a number or its truncated value is outside int32.
bool ParseCoordinate(const char** p, const char* end, int* out) {
  const char* s = *p;
  bool negative = false;
  if (s < end && (*s == '+' || *s == '-')) negative = (*s++ == '-');
  const char* digits = s;
  int count = 0;
  while (s < end && *s >= '0' && *s <= '9') ++s, ++count;
  if (s < end && *s == '.') {
    ++s;
    while (s < end && *s >= '0' && *s <= '9') ++s, ++count;
  }
  if (count == 0) return false;
  bool tiny_exponent = false;
  if (s < end && (*s == 'e' || *s == 'E')) {
    const char* e = s + 1;
    if (e < end && (*e == '+' || *e == '-')) tiny_exponent = (*e++ == '-');
    if (e >= end || *e < '0' || *e > '9') return false;
    while (e < end && *e >= '0' && *e <= '9') ++e;
    s = e;
  }
  double magnitude = 0;
  auto result = std::from_chars(digits, s, magnitude);
  if (result.ec == std::errc::result_out_of_range) {
    if (!tiny_exponent) return false;  // overflow: outside int32 anyway
    magnitude = 0.0;                   // underflow reads as 0
  } else if (result.ec != std::errc() || result.ptr != s) {
    return false;
  }
  double value = std::trunc(negative ? -magnitude : magnitude);
  if (!(value >= static_cast<double>(INT_MIN) && value <= static_cast<double>(INT_MAX))) {
    return false;
  }
  *out = static_cast<int>(value);
  *p = s;
  return true;
}

// One part: point { ';' point } [';'] over [s, end).
bool ParsePart(const char* s, const char* end, CComplexPt& geometry) {
  geometry.AddPart();
  for (;;) {
    int x, y;
    if (!ParseCoordinate(&s, end, &x)) return false;
    if (s >= end || *s != ',') return false;
    ++s;
    if (!ParseCoordinate(&s, end, &y)) return false;
    geometry.AddPoint(x, y);
    if (s == end) return true;
    if (*s != ';') return false;
    ++s;
    if (s == end) return true;  // the optional trailing ';'
  }
}

bool ParseGeometry(const char* text, CComplexPt& geometry) {
  const char* end = text + std::strlen(text);
  const char* field = text;
  bool first = true;
  while (field <= end) {
    const char* bar = static_cast<const char*>(std::memchr(field, '|', static_cast<size_t>(end - field)));
    const char* field_end = bar != nullptr ? bar : end;
    bool has_comma = std::memchr(field, ',', static_cast<size_t>(field_end - field)) != nullptr;
    if (first && !has_comma) {
      // A type tag: skipped.
    } else if (field_end > field && !ParsePart(field, field_end, geometry)) {
      return false;
    }
    first = false;
    if (bar == nullptr) break;
    field = bar + 1;
  }
  return true;
}

}  // namespace

int CJsonObjParser::GetJsonItem(cJSON* node, const char* name, CComplexPt& value) {
  value.Clear();
  const char* text = JsonStringBytes(FindMember(node, name));
  if (text == nullptr) return 0;
  if (!ParseGeometry(text, value)) {
    value.Clear();
    return 0;
  }
  return 1;
}

int CJsonObjParser::GetJsonArrayItem(cJSON* array, int index, int& value) {
  return JsonReadInt(ArrayElement(array, index), &value) ? 1 : 0;
}

int CJsonObjParser::GetJsonIntItem(cJSON* node, const char* name, const CVString& key,
                                   CVBundle& bundle) {
  return field::StoreInt(FindMember(node, name), key, bundle);
}

int CJsonObjParser::GetJsonStringItem(cJSON* node, const char* name, const CVString& key,
                                      CVBundle& bundle, int) {
  return field::StoreString(FindMember(node, name), key, bundle);
}

int CJsonObjParser::GetJsonBoolItem(cJSON* node, const char* name, const CVString& key,
                                    CVBundle& bundle) {
  return field::StoreBool(FindMember(node, name), key, bundle);
}

int CJsonObjParser::GetJsonStringArray(cJSON* node, const char* name, CVBundle& bundle) {
  return field::StoreStringArray(FindMember(node, name), CVString(name), bundle);
}

namespace {

// "level" is always stored: 0 when absent or unreadable.
constexpr FieldRow kCurrentCityRows[] = {
    IntField("code", keys::kCode),
    StringField("name", keys::kName),
    IntField("type", keys::kType),
    StringField("geo", keys::kGeo),
    IntAlwaysField("level", keys::kLevel, 0),
};

}  // namespace

const FieldTable& CurrentCityTable() {
  static const FieldTable table(kCurrentCityRows);
  return table;
}

int CJsonObjParser::GetCurrentCityFromJson(cJSON* node, CVBundle& record) {
  return CurrentCityTable().ReadRecord(node, record);
}

int CJsonObjParser::int2PoiType(int poiType) {
  switch (poiType) {
    case kPoiTypePlace:
    case kPoiTypeBusStop:
    case kPoiTypeBusLine:
    case kPoiTypeSubwayStation:
    case kPoiTypeSubwayLine:
      return poiType;
    default:
      return kPoiTypePlace;
  }
}

namespace {

// Length of the separator at p (';' ',' or the full-width U+FF1B, U+FF0C
// in UTF-8), or 0.
inline int SeparatorAt(const char* p) {
  if (*p == ';' || *p == ',') return 1;
  if (static_cast<unsigned char>(p[0]) == 0xEF && static_cast<unsigned char>(p[1]) == 0xBC &&
      (static_cast<unsigned char>(p[2]) == 0x9B || static_cast<unsigned char>(p[2]) == 0x8C)) {
    return 3;
  }
  return 0;
}

inline bool IsTelSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

}  // namespace

int CJsonObjParser::ProcessTelNum(char* text) {
  if (text == nullptr) return 0;
  // Split at separators, trim each number, drop empty ones, join with ','.
  // The write position never passes the read position, so this works in place.
  char* out = text;
  const char* p = text;
  while (*p != 0) {
    const char* number = p;
    int sep = 0;
    for (;;) {  // strcspn skips the bytes that start no separator
      p += std::strcspn(p, ";,\xEF");
      if (*p == 0 || (sep = SeparatorAt(p)) != 0) break;
      ++p;
    }
    const char* number_end = p;
    while (number < number_end && IsTelSpace(*number)) ++number;
    while (number_end > number && IsTelSpace(number_end[-1])) --number_end;
    if (number_end > number) {
      if (out != text) *out++ = ',';
      if (out != number) std::memmove(out, number, static_cast<size_t>(number_end - number));
      out += number_end - number;
    }
    if (*p != 0) p += sep;
  }
  *out = 0;
  return static_cast<int>(out - text);
}

CVString CJsonObjParser::ConvertTextByRule(const char* text) {
  if (text == nullptr) return CVString();
  if (isParsePHPUI2Res != 0) {
    return _quarn_vi::CVCMMap::Utf8ToUnicode(text, static_cast<unsigned int>(std::strlen(text)));
  }
  return CVString(text);
}

}  // namespace _quarn_framework
