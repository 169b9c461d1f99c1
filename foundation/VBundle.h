// CVBundle: a map from CVString keys to typed values, held by value.
//
// Value types: int, bool, double, string, bundle, array of bundles, array of
// strings. Keys keep their insertion order; storing under a present key
// replaces the value in place (the key keeps its first position).
//
// Getters: GetInt, GetBool and GetDouble return 0 for an absent key or a
// value of another type; GetString, GetBundle, GetBundleArray and
// GetStringArray return null then. Returned pointers stay valid until the
// bundle is changed or destroyed.
//
// Representation: one shared, reference-counted block of entries, from
// operator new. Copying a bundle costs one counter increment, whatever it
// holds (a bundle of 1,000 records included); the first change to a shared
// bundle copies its entry block one level deep (nested bundles and strings
// stay shared, the elements of arrays are copied, each in O(1)), so a copy is
// independent of its original after a change to either. The object is one
// pointer and may be relocated by a plain byte copy, as CVArray does on
// growth.
//
// Keys: an entry is 40 bytes, the key's text block and the value. Permanent
// keys (CVString::Permanent, as the parser's) cost nothing to store and are
// found by comparing addresses; a key given as an ordinary string costs the
// entry a text block (shared with the string when it has one of the exact
// length), freed with the entry.
//
// Limits: at most 2^30 keys; storing one more throws std::length_error.
//
// Failures: std::bad_alloc from operator new (entry and key blocks) passes to
// the caller, the bundle unchanged. When CVMem refuses a block (the copy of
// an array's elements, also when a change to a shared bundle copies it), the
// Set... or Remove call does nothing and reports nothing: the value is left
// out, as CVArray leaves out an element.
//
// The Set... overloads that take an rvalue move the value in (no copy at
// all); the parser uses them for the records it builds in locals.
//
// Thread safety: const methods may be called from several threads without
// external synchronisation, also on copies that share a block; a non-const
// method needs external synchronisation.
#ifndef FOUNDATION_VBUNDLE_H_
#define FOUNDATION_VBUNDLE_H_

#include "engine/dev/inc/vi/vos/VTempl.h"
#include "foundation/VString.h"

namespace _quarn_vi {

class CVBundle {
 public:
  enum ValueType {
    kInt,
    kBool,
    kDouble,
    kString,
    kBundle,
    kBundleArray,
    kStringArray,
  };
  typedef CVArray<CVBundle, CVBundle&> BundleArray;
  typedef CVArray<CVString, CVString&> StringArray;

  CVBundle() noexcept : m_rep(nullptr) {}
  CVBundle(const CVBundle& other) noexcept;
  CVBundle(CVBundle&& other) noexcept : m_rep(other.m_rep) { other.m_rep = nullptr; }
  ~CVBundle();  // not virtual
  CVBundle& operator=(const CVBundle& other) noexcept;
  CVBundle& operator=(CVBundle&& other) noexcept;

  void SetInt(const CVString& key, int value);
  // Stores a bool; any nonzero `value` is stored as true.
  void SetBool(const CVString& key, int value);
  void SetDouble(const CVString& key, double value);
  void SetString(const CVString& key, const CVString& value);
  void SetString(const CVString& key, CVString&& value);
  // SetString of the string that CVString::AssignUtf8Terminated decodes
  // from `text` (NUL-terminated UTF-8; null gives the empty string). A new
  // permanent key's string is decoded straight into its entry: no string in
  // between to construct, move from and destroy (the readers' path for the
  // texts of an answer).
  void SetStringUtf8(const CVString& key, const char* text);
  void SetBundle(const CVString& key, const CVBundle& value);
  void SetBundle(const CVString& key, CVBundle&& value);
  // The const& forms copy the array's elements (each element copy is O(1));
  // they store nothing when CVMem cannot give the copy its block. The &&
  // forms take over the array's block and leave `value` empty (untouched
  // when nothing was stored).
  void SetBundleArray(const CVString& key, const BundleArray& value);
  void SetBundleArray(const CVString& key, BundleArray&& value);
  void SetStringArray(const CVString& key, const StringArray& value);
  void SetStringArray(const CVString& key, StringArray&& value);

  // Removes `key` if present; later keys keep their order.
  void Remove(const CVString& key);
  // Nonzero iff `key` is present.
  int ContainsKey(const CVString& key) const;

  int GetInt(const CVString& key) const;
  int GetBool(const CVString& key) const;
  double GetDouble(const CVString& key) const;
  const CVString* GetString(const CVString& key) const;
  const CVBundle* GetBundle(const CVString& key) const;
  const BundleArray* GetBundleArray(const CVString& key) const;
  const StringArray* GetStringArray(const CVString& key) const;

  // True iff both hold the same keys with equal values of the same types,
  // in any order. Arrays compare element by element.
  bool operator==(const CVBundle& other) const;
  bool operator!=(const CVBundle& other) const { return !(*this == other); }

  // Visiting the keys in insertion order: index i from 0 to GetCount() - 1.
  // REQUIRES: 0 <= i < GetCount(), and the accessor matches GetTypeAt(i)
  // (GetIntAt serves int and bool).
  int GetCount() const;
  // The key as a string sharing the entry's text block.
  CVString GetKeyAt(int i) const;
  ValueType GetTypeAt(int i) const;
  int GetIntAt(int i) const;
  double GetDoubleAt(int i) const;
  const CVString& GetStringAt(int i) const;
  const CVBundle& GetBundleAt(int i) const;
  const BundleArray& GetBundleArrayAt(int i) const;
  const StringArray& GetStringArrayAt(int i) const;

  // Makes room for `count` keys in all, so that filling a record of known
  // size takes one block.
  void Reserve(int count);
  void Swap(CVBundle& other) noexcept {
    Rep* rep = m_rep;
    m_rep = other.m_rep;
    other.m_rep = rep;
  }

  // End of public API. Implementation details follow.
  struct Rep;
  struct Entry;

 private:
  // The entry of `key` if it holds a value of `type`, else null.
  Entry* Find(const CVString& key, ValueType type) const;
  // The entry of `key`, made writable for a value of `type`: its old value
  // destroyed (an existing key) or a new entry appended with the key copied.
  // The caller constructs the value. Null when CVMem refused to unshare.
  Entry* Slot(const CVString& key, ValueType type);
  Entry* SlotSlow(const CVString& key, ValueType type);
  // Slot's common case only: a new entry for a permanent `key` that is not
  // present, appended to the own block with room and no counted keys. Null,
  // changing nothing, in every other case.
  Entry* AppendSlot(const CVString& key, ValueType type);
  // The setters' paths for what AppendSlot does not take.
  void SetScalarSlow(const CVString& key, ValueType type, int value);
  void SetStringSlow(const CVString& key, CVString&& value);
  void SetStringUtf8Slow(const CVString& key, const char* text);
  // Makes the block this bundle's own (copy on write); false, changing
  // nothing, when CVMem refuses a copied array its block.
  bool Detach();

  Rep* m_rep;  // null for an empty bundle that never had a block
};

}  // namespace _quarn_vi

#endif  // FOUNDATION_VBUNDLE_H_
