// Access to the parsed JSON tree (cJSON).
//
// Every read of a JSON node by the parser goes through the few functions of
// this header: type tests, member lookup, array walk and scalar reads. They
// are the only code that knows the node's layout, so that another tree
// (another JSON library's DOM) can be served by changing this file alone.
//
// Type codes: Debian's cJSON encodes types as bit flags (cJSON_String = 16,
// cJSON_Array = 32, cJSON_Object = 64) with flag bits above 0xFF
// (cJSON_IsReference, cJSON_StringIsConst); a type test is a null test
// followed by an exact comparison of the masked code.
//
// Member names are compared case-sensitively. The accessors have names of
// their own (FindMember, ArraySize, ArrayElement): cJSON's functions of the
// contract's names behave differently (its member lookup ignores case), so
// the contract's functions of those names (namespace _quarn_vi, at the end)
// are thin wrappers that refuse a `const cJSON*` argument at compile time
// rather than let cJSON's own be picked. Arrays are walked with one cursor
// over the sibling links: index loops over ArrayElement are quadratic.
//
// Thread safety: all functions are reentrant; the tree is only read.
#ifndef JSON_READERS_JSONACCESS_H_
#define JSON_READERS_JSONACCESS_H_

#include <cjson/cJSON.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "foundation/VString.h"

namespace _quarn_framework {

using _quarn_vi::CVString;

// ---- Type tests -------------------------------------------------------------

inline int JsonTypeCode(const cJSON* node) { return node->type & 0xFF; }
inline bool IsJsonObject(const cJSON* node) {
  return node != nullptr && JsonTypeCode(node) == cJSON_Object;
}
inline bool IsJsonArray(const cJSON* node) {
  return node != nullptr && JsonTypeCode(node) == cJSON_Array;
}
inline bool IsJsonString(const cJSON* node) {
  return node != nullptr && JsonTypeCode(node) == cJSON_String;
}

// ---- Member lookup and array access ------------------------------------------

// The member `name` of `node` (case-sensitive; the first of duplicate
// members), or null when `node` or `name` is null, `node` is not an object,
// or it has no such member. Linear in the object's members; to read many
// members of one object, use JsonMemberTable.
const cJSON* FindMember(const cJSON* node, const char* name);
inline cJSON* FindMember(cJSON* node, const char* name) {
  return const_cast<cJSON*>(FindMember(static_cast<const cJSON*>(node), name));
}
// The element count of an array; 0 for a null or non-array node. Linear.
int ArraySize(const cJSON* node);
// Element `index` of an array; null for a null or non-array node or an index
// out of range. Linear in `index`: walk with JsonElements instead.
const cJSON* ArrayElement(const cJSON* node, int index);
inline cJSON* ArrayElement(cJSON* node, int index) {
  return const_cast<cJSON*>(ArrayElement(static_cast<const cJSON*>(node), index));
}

// The children of an object or array in order, for walks over a whole tree
// (diagnostics): FirstChild is null for other nodes and empty containers,
// NextSibling null after the last child. MemberName is a member's name (null
// for an array element).
inline const cJSON* FirstChild(const cJSON* node) {
  return IsJsonObject(node) || IsJsonArray(node) ? node->child : nullptr;
}
inline const cJSON* NextSibling(const cJSON* node) { return node->next; }
inline const char* MemberName(const cJSON* member) { return member->string; }

// ---- Array walk -----------------------------------------------------------

// The elements of an array node in index order; empty for a null or
// non-array node. `for (cJSON* e : JsonElements(node))`.
class JsonElements {
 public:
  class iterator {
   public:
    explicit iterator(cJSON* node) : m_node(node) {}
    cJSON* operator*() const { return m_node; }
    iterator& operator++() {
      m_node = m_node->next;
      return *this;
    }
    bool operator!=(const iterator& other) const { return m_node != other.m_node; }

   private:
    cJSON* m_node;
  };
  explicit JsonElements(cJSON* array) : m_first(IsJsonArray(array) ? array->child : nullptr) {}
  iterator begin() const { return iterator(m_first); }
  iterator end() const { return iterator(nullptr); }
  bool empty() const { return m_first == nullptr; }

 private:
  cJSON* m_first;
};

// ---- Member lookup by table -----------------------------------------------

// A fixed list of member names, looked up in one pass over an object's
// members instead of one linear search per name. A record with 10 to 30
// members reads them all for the price of a single walk. The member names of
// the object must be NUL-terminated (cJSON's are).
class JsonMemberTable {
 public:
  // REQUIRES: 0 <= count < 65535; the `count` names are NUL-terminated and
  // outlive the table (they are not copied).
  JsonMemberTable(const char* const* names, int count);

  int Count() const { return static_cast<int>(m_names.size()); }

  // REQUIRES: `slots` has room for Count() pointers.
  // Sets slots[i] (Count() of them) to the member of `object` named
  // names[i], the first one when the name repeats, or null. A null or
  // non-object `object` gives all nulls. Returns the sum of weights[i] over
  // the members found (a caller's cost of reading them).
  // REQUIRES: `weights` has Count() entries.
  // Thread-safe: concurrent calls on one table only share its guesses of
  // the next member (relaxed atomics; a stale guess costs a comparison).
  int Gather(cJSON* object, cJSON** slots, const uint8_t* weights) const;

 private:
  // A name as its length and its first and last bytes (up to eight each):
  // for names of at most 16 bytes that is the whole name, so a member's name
  // is matched by comparing three words, without a string comparison.
  struct NameKey {
    uint64_t head;
    uint64_t tail;
    uint32_t length;
    bool operator==(const NameKey& o) const { return length == o.length && head == o.head && tail == o.tail; }
  };
  static NameKey KeyOf(const char* name, size_t length);
  static uint32_t HashOf(const NameKey& key) {
    uint64_t x = (key.head * 0x9E3779B97F4A7C15ULL) ^ (key.tail * 0xC2B2AE3D27D4EB4FULL) ^ key.length;
    return static_cast<uint32_t>(x >> 32);
  }
  // The index of the first of names equal to `name`, or -1.
  int Find(const char* name) const;
  // A name's record: its text, and the guess of the member after it
  // (defined in JsonAccess.cpp).
  struct Record;
  // The table's copy of the member `name`, which was not the guess at
  // *previous, or null; *previous then guesses it.
  const char* FindAndGuess(const char* name, std::atomic<const char*>* previous) const;

  // A name equal to an earlier one: its slot copies the earlier one's.
  struct Repeat {
    int name;
    int same_as;
  };
  // The records, one after the other with 16 bytes of zeros after them,
  // the first one (no name) an object's start's: a member's name is
  // compared with a record's name 16 bytes at a time.
  std::unique_ptr<uint64_t[]> m_records;
  std::vector<const char*> m_names;  // the records' names, in table order
  std::vector<NameKey> m_keys;       // of m_names, for Find
  std::vector<Repeat> m_repeats;  // usually empty
  std::vector<uint16_t> m_index;  // open addressing by HashOf: name index + 1, 0 = free
  uint32_t m_mask = 0;
};

// ---- Scalar reads -----------------------------------------------------------
// Each takes a member node (null allowed) and returns true iff it could read
// it, leaving the output unchanged otherwise.

// Integers: a number (fraction truncated toward zero, values beyond int32
// saturate); true/false as 1/0; a string whose whole text, ASCII white space
// around it aside, is an optionally signed decimal integer within int32.
bool JsonReadInt(const cJSON* value, int* out);

// Truth values: true/false; a number (nonzero is true); the strings "true",
// "false", "1" and "0".
bool JsonReadBool(const cJSON* value, bool* out);

// Text: a string (decoded from UTF-8, see CVCMMap::Utf8ToUnicode; a string
// node without text reads as empty); a number (integral values within
// +-2^53 in plain decimal, others in the shortest form that reads back the
// same double; a number beyond the double range, such as 1e400, which cJSON
// reads as an infinity, as "inf" or "-inf"; a NaN, which only a tree built
// through cJSON's API holds, as "nan"); true/false as "true"/"false".
// Performance: a string node, the common case, costs one pass over its text
// (no strlen) and no call beyond the decoding's.
bool JsonReadScalarText(const cJSON* value, CVString* out);  // the other nodes
inline bool JsonReadText(const cJSON* value, CVString* out) {
  if (!IsJsonString(value)) return JsonReadScalarText(value, out);
  CVString::AssignUtf8Terminated(*out, value->valuestring != nullptr ? value->valuestring : "");
  return true;
}

// The same text as JsonReadText, as UTF-8 bytes (invalid input bytes become
// U+FFFD), written into `buffer` of `size` bytes: a text longer than size - 1
// bytes is cut at the last whole character that fits; always NUL-terminated.
// Fails when size < 1.
bool JsonReadTextToBuffer(const cJSON* value, char* buffer, int size);

// The raw 8-bit text of a string node: its valuestring, or null when the node
// is not a string or has no text.
inline const char* JsonStringBytes(const cJSON* value) {
  return IsJsonString(value) ? value->valuestring : nullptr;
}

// The int value of the decimal number at the start of `text`, read by the
// C library's atoi rules: leading ASCII white space (space, \t \n \v \f \r),
// an optional '+' or '-', then digits up to the first other byte. Where atoi
// is undefined, beyond int32, the value saturates at INT_MIN/INT_MAX
// ("99999999999999999999" gives INT_MAX, "-2147483649" INT_MIN), as _wtoi
// does for UTF-16 text. A text without digits there ("", "-", "x1") and a
// null text give 0. `*digits`, when given, says whether digits were found.
// For the numeric texts that the answers hold as strings (a coordinate
// query's level, the indoor flags).
int LeadingDecimalInt(const char* text, bool* digits = nullptr);

// Writes the JSON name of a node's type ("string", "object", ...); for
// diagnostics and messages.
const char* JsonTypeName(const cJSON* value);

}  // namespace _quarn_framework

namespace _quarn_vi {

// ---- The tree access functions of the parser's contract ----------------------
// Thin wrappers over the accessors above, with their contracts. The deleted
// `const cJSON*` forms make a call with a const node ambiguous with cJSON's
// own function (which argument-dependent lookup also finds) instead of
// silently calling it.

inline cJSON* cJSON_GetObjectItem(cJSON* node, const char* name) {
  return _quarn_framework::FindMember(node, name);
}
inline int cJSON_GetArraySize(cJSON* node) { return _quarn_framework::ArraySize(node); }
inline cJSON* cJSON_GetArrayItem(cJSON* node, int index) {
  return _quarn_framework::ArrayElement(node, index);
}
cJSON* cJSON_GetObjectItem(const cJSON* node, const char* name) = delete;
int cJSON_GetArraySize(const cJSON* node) = delete;
cJSON* cJSON_GetArrayItem(const cJSON* node, int index) = delete;

}  // namespace _quarn_vi

#endif  // JSON_READERS_JSONACCESS_H_
