// Writes bundles as JSON text, for the poiparse tool, tests and diagnostics.
//
// Format: keys in insertion order; int -> JSON integer; bool -> true/false;
// double -> a number that always shows a fraction or an exponent (1.0, -0.5,
// 1e+20; a non-finite double, which JSON cannot hold, -> null); string ->
// JSON string in UTF-8, a lone surrogate written as a \uD800-style escape;
// bundle -> object; arrays -> arrays. Nesting of any depth is written
// without recursion (the walk's stack is on the heap). Pretty-printed with a two-space indent,
// or compact on one line; optionally coloured with ANSI escapes as jq does.
//
// Thread safety: a writer belongs to one thread; separate writers are
// independent.
#ifndef FOUNDATION_BUNDLEJSONWRITER_H_
#define FOUNDATION_BUNDLEJSONWRITER_H_

#include <string>
#include <vector>

#include "foundation/VBundle.h"
#include "foundation/VString.h"

namespace _quarn_vi {

class CVJsonWriter {
 public:
  struct Options {
    bool pretty = true;  // two-space indent and one member per line
    bool color = false;  // ANSI colours (keys, strings, literals)
  };

  // Appends to `out`, which must outlive the writer.
  CVJsonWriter(std::string& out, Options options);

  void BeginObject();
  void EndObject();
  void BeginArray();
  void EndArray();
  // The next member's name; the value follows with one of the calls below.
  void Key(const char* utf8);
  void Key(const CVString& key);
  void Int(long long value);
  void Bool(bool value);
  void Double(double value);
  void String(const CVString& value);
  void StringUtf8(const std::string& utf8);
  void Bundle(const CVBundle& bundle);
  void BundleArray(const CVBundle::BundleArray& array);
  void StringArray(const CVBundle::StringArray& array);

 private:
  void BeforeValue();
  void Newline();
  void Colored(const char* color, const std::string& text);
  void QuotedUtf16(const unsigned short* units, size_t n);
  // Writes one bundle (an object) or one array of bundles, and everything
  // nested in it, without recursion.
  void Nested(const CVBundle* bundle, const CVBundle::BundleArray* array);

  std::string& m_out;
  Options m_options;
  std::vector<bool> m_hasItems;  // per open container: a member was written
  bool m_afterKey = false;
};

// The JSON text of a bundle (an object), pretty or compact.
std::string BundleToJson(const CVBundle& bundle, bool pretty);

}  // namespace _quarn_vi

#endif  // FOUNDATION_BUNDLEJSONWRITER_H_
