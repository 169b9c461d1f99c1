#include "foundation/VBundle.h"

#include <atomic>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <stdexcept>
#include <utility>

#include "foundation/BlockCache.h"


// Keeps a rare path out of its caller, so that the common path saves no
// registers.
#if defined(__GNUC__)
#define VBUNDLE_NOINLINE __attribute__((noinline))
#define VBUNDLE_ALWAYS_INLINE inline __attribute__((always_inline))
#else
#define VBUNDLE_NOINLINE
#define VBUNDLE_ALWAYS_INLINE inline
#endif

namespace _quarn_vi {

namespace {

using KeyRep = CVString::Rep;

// Takes over the block of `from`, leaving it empty.
template <class A>
void TakeArray(A& to, A& from) {
  std::swap(to.m_pData, from.m_pData);
  std::swap(to.m_nSize, from.m_nSize);
  std::swap(to.m_nMaxSize, from.m_nMaxSize);
  std::swap(to.m_nGrowBy, from.m_nGrowBy);
}

// Copies the elements of `from` into the empty `to`; each element copy is
// O(1) (shared storage). Returns false, leaving `to` empty, when CVMem
// refuses the block.
template <class A>
bool CopyArray(A& to, const A& from) {
  if (from.m_nSize == 0) return true;
  if (to.SetSize(from.m_nSize, -1) == 0) return false;
  for (int i = 0; i < from.m_nSize; ++i) to.m_pData[i] = from.m_pData[i];
  return true;
}

// A key to look up: its text and its permanent block, if any. Its hash is
// computed only when an index needs it (a permanent string keeps it).
struct Lookup {
  const CVString& text;
  const KeyRep* permanent;  // null for an ordinary string
};

}  // namespace

// One key and its value: 40 bytes. The key is the address of its text block:
// a permanent block (shared by every bundle and never freed) or, for a key
// given as an ordinary string, a counted block that the entry owns. The
// value's type lives in the block's type array, beside the entries. Arrays
// live in the entry itself (their elements in their own block), so storing
// one costs no allocation.
struct CVBundle::Entry {
  const KeyRep* key;
  union {
    int i;
    double d;
    alignas(CVString) unsigned char s[sizeof(CVString)];
    alignas(CVBundle) unsigned char b[sizeof(CVBundle)];
    alignas(BundleArray) unsigned char ba[sizeof(BundleArray)];
    alignas(StringArray) unsigned char sa[sizeof(StringArray)];
  };

  CVString& Str() { return *std::launder(reinterpret_cast<CVString*>(s)); }
  const CVString& Str() const { return *std::launder(reinterpret_cast<const CVString*>(s)); }
  CVBundle& Bun() { return *std::launder(reinterpret_cast<CVBundle*>(b)); }
  const CVBundle& Bun() const { return *std::launder(reinterpret_cast<const CVBundle*>(b)); }
  BundleArray& Bundles() { return *std::launder(reinterpret_cast<BundleArray*>(ba)); }
  const BundleArray& Bundles() const { return *std::launder(reinterpret_cast<const BundleArray*>(ba)); }
  StringArray& Strings() { return *std::launder(reinterpret_cast<StringArray*>(sa)); }
  const StringArray& Strings() const { return *std::launder(reinterpret_cast<const StringArray*>(sa)); }

  // Copies the value of `other`, of type `type` (the key is the caller's
  // business). Returns false, leaving no value behind, when CVMem refuses an
  // array copy its block.
  bool CopyValueFrom(const Entry& other, uint8_t type) {
    switch (type) {
      case kString:
        new (s) CVString(other.Str());
        return true;
      case kBundle:
        new (b) CVBundle(other.Bun());
        return true;
      case kBundleArray:
        return CopyArrayInto(ba, other.Bundles());
      case kStringArray:
        return CopyArrayInto(sa, other.Strings());
      default:
        d = other.d;  // covers int and bool too
        return true;
    }
  }

  template <class A>
  static bool CopyArrayInto(unsigned char* storage, const A& from) {
    A copy;
    if (!CopyArray(copy, from)) return false;
    TakeArray(*new (storage) A(), copy);
    return true;
  }

  // The destructors are called by their qualified names: the types are
  // exact, so no virtual call is needed.
  void DestroyValue(uint8_t type) noexcept {
    switch (type) {
      case kString:
        Str().CVString::~CVString();
        break;
      case kBundle:
        Bun().~CVBundle();
        break;
      case kBundleArray:
        Bundles().BundleArray::~BundleArray();
        break;
      case kStringArray:
        Strings().StringArray::~StringArray();
        break;
      default:
        break;
    }
  }
};
static_assert(sizeof(CVBundle::BundleArray) <= sizeof(CVString), "an array fits an entry's value");
static_assert(sizeof(CVBundle::Entry) <= 40, "an entry is a key pointer and a 32-byte value");

// The entry block: this header, `capacity` entries, their type bytes, then,
// for blocks of more than kLinearCapacity entries, an open addressing index
// of the entries by key hash (entry position + 1, 0 for a free slot), at
// most two thirds full, so that a lookup costs a probe or two whatever the
// bundle's size. Small blocks compare the keys in turn.
//
// Invariants:
//  (1) A type byte is the value's ValueType, plus kCountedKey when the entry
//      owns a counted key block (a key given as an ordinary string);
//      `counted_keys` is set once any entry had one.
//  (2) Permanent key blocks are unique per text, so two entries with
//      permanent keys have equal keys iff their blocks are the same: a
//      lookup by a permanent key compares texts only with counted keys.
//  (3) Entries [0, size) hold a key and a value of their type; an int, bool
//      or double entry with a permanent key owns nothing, and destruction
//      skips it.
//  (4) Index slots are as narrow as the positions allow: one byte up to
//      kMaxByteCapacity entries, two up to kMaxShortCapacity, four above
//      (a POI record's index is 64 bytes instead of 128).
//  (5) Blocks of up to kLinearCapacity entries have no index: a record of
//      twelve keys (a POI's "show") saves its 32-byte index, for about 2,000
//      more instructions per build of the 20-POI answer (0.3 %; callgrind),
//      which brings a POI's bundle under 4.5 KB.
struct alignas(CVBundle::Entry) CVBundle::Rep {
  std::atomic<int> refs;
  int size;
  int capacity;
  uint8_t index_log2;     // log2 of the index slots; 0 without index
  uint8_t index_width;    // bytes per index slot
  bool counted_keys;      // some entry has (or had) kCountedKey
  uint8_t unused;

  static constexpr uint8_t kCountedKey = 0x80;
  static constexpr uint8_t kTypeMask = 0x7F;
  static constexpr int kLinearCapacity = 12;
  static constexpr int kMaxByteCapacity = 127;
  static constexpr int kMaxShortCapacity = 65535;
  // Doubling beyond this would overflow the index's size.
  static constexpr int kMaxCapacity = 1 << 30;

  Entry* entries() { return reinterpret_cast<Entry*>(this + 1); }
  const Entry* entries() const { return reinterpret_cast<const Entry*>(this + 1); }
  uint8_t* types() { return reinterpret_cast<uint8_t*>(entries() + capacity); }
  const uint8_t* types() const { return reinterpret_cast<const uint8_t*>(entries() + capacity); }
  static size_t TypeBytes(int capacity) { return (static_cast<size_t>(capacity) + 3) & ~size_t{3}; }
  void* index() { return types() + TypeBytes(capacity); }
  const void* index() const { return types() + TypeBytes(capacity); }
  bool HasIndex() const { return capacity > kLinearCapacity; }
  uint32_t IndexMask() const { return (uint32_t{1} << index_log2) - 1; }

  // One-byte slots first: records are small.
  uint32_t IndexAt(uint32_t slot) const {
    if (index_width == 1) return static_cast<const uint8_t*>(index())[slot];
    if (index_width == 2) return static_cast<const uint16_t*>(index())[slot];
    return static_cast<const uint32_t*>(index())[slot];
  }
  void SetIndexAt(uint32_t slot, uint32_t position) {
    if (index_width == 1) {
      static_cast<uint8_t*>(index())[slot] = static_cast<uint8_t>(position);
    } else if (index_width == 2) {
      static_cast<uint16_t*>(index())[slot] = static_cast<uint16_t>(position);
    } else {
      static_cast<uint32_t*>(index())[slot] = position;
    }
  }

  // A power of two (as log2), at least 16 and more than one and a half times
  // the capacity, so that the index is at most two thirds full.
  static uint8_t IndexLog2(int capacity) {
    if (capacity <= kLinearCapacity) return 0;
    const uint32_t wanted = static_cast<uint32_t>(capacity) + static_cast<uint32_t>(capacity) / 2 + 1;
    uint8_t log2 = 4;
    while ((uint32_t{1} << log2) < wanted) ++log2;
    return log2;
  }
  // IndexBytes of this block.
  size_t OwnIndexBytes() const {
    return index_log2 == 0 ? 0 : (size_t{1} << index_log2) * index_width;
  }
  static uint8_t IndexWidth(int capacity) {
    return capacity <= kMaxByteCapacity ? 1 : capacity <= kMaxShortCapacity ? 2 : 4;
  }
  static size_t IndexBytes(int capacity) {
    uint8_t log2 = IndexLog2(capacity);
    return log2 == 0 ? 0 : (size_t{1} << log2) * IndexWidth(capacity);
  }

  // Header, entries, their type bytes (padded to 4) and the index.
  static size_t Bytes(int capacity) {
    return sizeof(Rep) + sizeof(Entry) * static_cast<size_t>(capacity) + TypeBytes(capacity) +
           IndexBytes(capacity);
  }

  static Rep* New(int capacity) {
    if (capacity > kMaxCapacity) throw std::length_error("CVBundle: too many keys");
    Rep* rep = static_cast<Rep*>(block_cache::Allocate(Bytes(capacity)));
    new (&rep->refs) std::atomic<int>(1);
    rep->size = 0;
    rep->capacity = capacity;
    rep->index_log2 = IndexLog2(capacity);
    rep->index_width = IndexWidth(capacity);
    rep->counted_keys = false;
    rep->unused = 0;
    if (rep->HasIndex()) std::memset(rep->index(), 0, rep->OwnIndexBytes());
    return rep;
  }

  static void Free(Rep* rep) noexcept {
    const size_t bytes = Bytes(rep->capacity);
    rep->refs.~atomic<int>();
    block_cache::Free(rep, bytes);
  }

  static void Destroy(Rep* rep) noexcept {
    Entry* e = rep->entries();
    const uint8_t* types = rep->types();
    for (int i = 0, n = rep->size; i < n; ++i) {
      const uint8_t type = types[i];
      if (type < kString) continue;  // a scalar under a permanent key
      if ((type & kCountedKey) != 0) CVString::ReleaseKeyRep(e[i].key);
      e[i].DestroyValue(type & kTypeMask);
    }
    Free(rep);
  }

  static void Unref(Rep* rep) noexcept {
    if (rep == nullptr) return;
    if (rep->refs.load(std::memory_order_acquire) == 1 ||
        rep->refs.fetch_sub(1, std::memory_order_acq_rel) == 1) {
      Destroy(rep);
    }
  }

  bool SameKey(int position, const Lookup& key) const {
    const KeyRep* stored = entries()[position].key;
    if (stored == key.permanent) return true;  // a permanent block (never null)
    if (key.permanent != nullptr && (types()[position] & kCountedKey) == 0) return false;
    return CVString::KeyRepEquals(stored, key.text);
  }

  // The position of `key`, or -1. Small blocks never hash the key; a
  // permanent key in a bundle of permanent keys costs an address comparison
  // per entry.
  int Find(const Lookup& key) const {
    if (!HasIndex()) {
      const Entry* e = entries();
      if (key.permanent != nullptr) {
        for (int i = 0; i < size; ++i) {
          if (e[i].key == key.permanent) return i;
        }
        if (!counted_keys) return -1;
      }
      for (int i = 0; i < size; ++i) {
        if (SameKey(i, key)) return i;
      }
      return -1;
    }
    const uint32_t mask = IndexMask();
    for (uint32_t slot = key.text.Hash() & mask;; slot = (slot + 1) & mask) {
      uint32_t position = IndexAt(slot);
      if (position == 0) return -1;
      if (SameKey(static_cast<int>(position - 1), key)) return static_cast<int>(position - 1);
    }
  }

  // Enters the entry at `position`, whose key hashes to `hash`, in the index.
  void IndexEntry(int position, uint32_t hash) {
    const uint32_t mask = IndexMask();
    uint32_t slot = hash & mask;
    while (IndexAt(slot) != 0) slot = (slot + 1) & mask;
    SetIndexAt(slot, static_cast<uint32_t>(position + 1));
  }

  void RebuildIndex() {
    if (!HasIndex()) return;
    std::memset(index(), 0, OwnIndexBytes());
    for (int i = 0; i < size; ++i) IndexEntry(i, CVString::KeyRepHash(entries()[i].key));
  }

  // The entry at `position`, its value destroyed, typed for a new value of
  // `type` (its key kept).
  Entry* Replace(int position, ValueType type) noexcept {
    Entry* e = &entries()[position];
    uint8_t& type_byte = types()[position];
    e->DestroyValue(type_byte & kTypeMask);
    type_byte = static_cast<uint8_t>(type | (type_byte & kCountedKey));
    return e;
  }

  // A copy of `rep` with room for `capacity` entries, or null when CVMem
  // refuses an array copy its block.
  static Rep* Clone(const Rep* rep, int capacity) {
    Rep* copy = New(capacity);
    for (int i = 0; i < rep->size; ++i) {
      Entry* e = &copy->entries()[i];
      const uint8_t type = rep->types()[i];
      if (!e->CopyValueFrom(rep->entries()[i], type & kTypeMask)) {
        Destroy(copy);  // the entries copied so far
        return nullptr;
      }
      e->key = rep->entries()[i].key;
      if ((type & kCountedKey) != 0) CVString::RetainKeyRep(e->key);
      copy->types()[i] = type;
      copy->size = i + 1;
    }
    copy->counted_keys = rep->counted_keys;
    copy->RebuildIndex();
    return copy;
  }

  // Moves the entries of `rep` by bytes into a new block of `capacity`.
  static Rep* Grow(Rep* rep, int capacity) {
    Rep* bigger = New(capacity);
    std::memcpy(static_cast<void*>(bigger->entries()), static_cast<const void*>(rep->entries()),
                sizeof(Entry) * static_cast<size_t>(rep->size));
    std::memcpy(bigger->types(), rep->types(), static_cast<size_t>(rep->size));
    bigger->size = rep->size;
    bigger->counted_keys = rep->counted_keys;
    bigger->RebuildIndex();
    Free(rep);
    return bigger;
  }
};

static_assert(sizeof(CVBundle::Rep) == 16, "the entry block's header");

namespace {

Lookup LookupOf(const CVString& key) { return Lookup{key, key.PermanentRep()}; }

// False if the permanent `key` (of hash `hash`) is in the index `slots`
// (of `mask` + 1 slots of type T) over the entries `e`; else true after
// entering position `size` in the free slot that ended the probe, for the
// caller to append there.
// REQUIRES: the block has an index, room, and no counted keys.
template <class T>
bool IndexAbsentKey(T* slots, uint32_t mask, uint32_t hash, const CVBundle::Entry* e, const KeyRep* key,
                    int size) {
  uint32_t slot = hash & mask;
  for (uint32_t position; (position = slots[slot]) != 0; slot = (slot + 1) & mask) {
    if (e[position - 1].key == key) return false;
  }
  slots[slot] = static_cast<T>(size + 1);
  return true;
}

}  // namespace

CVBundle::CVBundle(const CVBundle& other) noexcept : m_rep(other.m_rep) {
  if (m_rep != nullptr) m_rep->refs.fetch_add(1, std::memory_order_relaxed);
}

CVBundle::~CVBundle() { Rep::Unref(m_rep); }

CVBundle& CVBundle::operator=(const CVBundle& other) noexcept {
  if (m_rep != other.m_rep) {
    CVBundle copy(other);
    Swap(copy);
  }
  return *this;
}

CVBundle& CVBundle::operator=(CVBundle&& other) noexcept {
  if (this != &other) {
    CVBundle taken(std::move(other));
    Swap(taken);
  }
  return *this;
}

bool CVBundle::Detach() {
  if (m_rep != nullptr && m_rep->refs.load(std::memory_order_acquire) != 1) {
    Rep* copy = Rep::Clone(m_rep, m_rep->capacity);
    if (copy == nullptr) return false;
    Rep::Unref(m_rep);
    m_rep = copy;
  }
  return true;
}

void CVBundle::Reserve(int count) {
  if (m_rep == nullptr) {
    if (count > 0) m_rep = Rep::New(count);
    return;
  }
  if (m_rep->refs.load(std::memory_order_acquire) != 1 && !Detach()) return;
  if (count > m_rep->capacity) m_rep = Rep::Grow(m_rep, count);
}

CVBundle::Entry* CVBundle::Find(const CVString& key, ValueType type) const {
  if (m_rep == nullptr) return nullptr;
  int position = m_rep->Find(LookupOf(key));
  if (position < 0 || (m_rep->types()[position] & Rep::kTypeMask) != type) return nullptr;
  return &m_rep->entries()[position];
}

int CVBundle::ContainsKey(const CVString& key) const {
  return m_rep != nullptr && m_rep->Find(LookupOf(key)) >= 0;
}

// The parser's case, in one pass and without a call: a permanent key that
// is not present yet, stored into the bundle's own block with room and no
// counted keys. One probe sequence both looks the key up and finds the free
// index slot where it goes (looking up, then probing again to enter it, cost
// 109 instructions an entry on the 20-POI answer). Every other case (a
// present key included) returns null having changed nothing, and the caller
// goes to the general path (SlotSlow) out of line. Measured on the 20-POI
// answer: a store takes some 75 instructions, a third of them the checks;
// keeping calls and replacements off this path saved 5,700 instructions a
// build.
VBUNDLE_ALWAYS_INLINE CVBundle::Entry* CVBundle::AppendSlot(const CVString& key, ValueType type) {
  Rep* rep = m_rep;
  const KeyRep* permanent = key.PermanentRep();
  if (rep == nullptr || permanent == nullptr) return nullptr;
  // Kept with a permanent key; read before the atomic load below, so that
  // the compiler sees it is the value PermanentRep tested.
  const uint32_t hash = key.Hash();
  // The block's fields are read once, into locals: the stores below (bytes)
  // would make the compiler read them again.
  const int size = rep->size;
  const int capacity = rep->capacity;
  if (size == capacity || rep->counted_keys || rep->refs.load(std::memory_order_acquire) != 1) return nullptr;
  Entry* e = rep->entries();
  uint8_t* types = reinterpret_cast<uint8_t*>(e + capacity);
  if (capacity <= Rep::kLinearCapacity) {
    for (int i = 0; i < size; ++i) {
      if (e[i].key == permanent) return nullptr;
    }
  } else {
    void* index = types + Rep::TypeBytes(capacity);
    const uint32_t mask = rep->IndexMask();
    const uint8_t width = rep->index_width;
    const bool absent = width == 1   ? IndexAbsentKey(static_cast<uint8_t*>(index), mask, hash, e, permanent, size)
                        : width == 2 ? IndexAbsentKey(static_cast<uint16_t*>(index), mask, hash, e, permanent, size)
                                     : IndexAbsentKey(static_cast<uint32_t*>(index), mask, hash, e, permanent, size);
    if (!absent) return nullptr;
  }
  e[size].key = permanent;
  types[size] = static_cast<uint8_t>(type);
  rep->size = size + 1;
  return &e[size];
}

CVBundle::Entry* CVBundle::Slot(const CVString& key, ValueType type) {
  Entry* e = AppendSlot(key, type);
  return e != nullptr ? e : SlotSlow(key, type);
}

CVBundle::Entry* CVBundle::SlotSlow(const CVString& key, ValueType type) {
  if (m_rep != nullptr && m_rep->refs.load(std::memory_order_acquire) != 1 && !Detach()) return nullptr;
  const Lookup lookup = LookupOf(key);
  int position = m_rep != nullptr ? m_rep->Find(lookup) : -1;
  if (position >= 0) return m_rep->Replace(position, type);
  const KeyRep* key_rep = lookup.permanent != nullptr ? lookup.permanent : key.AcquireKeyRep();
  const bool counted = lookup.permanent == nullptr;
  try {
    if (m_rep == nullptr) {
      m_rep = Rep::New(4);
    } else if (m_rep->size == m_rep->capacity) {
      if (m_rep->capacity >= Rep::kMaxCapacity) throw std::length_error("CVBundle: too many keys");
      m_rep = Rep::Grow(m_rep, m_rep->capacity * 2);
    }
  } catch (...) {
    if (counted) CVString::ReleaseKeyRep(key_rep);
    throw;
  }
  position = m_rep->size;
  Entry* e = &m_rep->entries()[position];
  e->key = key_rep;
  m_rep->types()[position] = static_cast<uint8_t>(type | (counted ? Rep::kCountedKey : 0));
  m_rep->counted_keys |= counted;
  ++m_rep->size;
  if (m_rep->HasIndex()) m_rep->IndexEntry(position, key.Hash());
  return e;
}

// The scalar and string setters try AppendSlot inline and leave every
// other case to a function of its own, called last.
void CVBundle::SetInt(const CVString& key, int value) {
  Entry* e = AppendSlot(key, kInt);
  if (e == nullptr) return SetScalarSlow(key, kInt, value);
  e->i = value;
}

void CVBundle::SetBool(const CVString& key, int value) {
  Entry* e = AppendSlot(key, kBool);
  if (e == nullptr) return SetScalarSlow(key, kBool, value != 0 ? 1 : 0);
  e->i = value != 0 ? 1 : 0;
}

VBUNDLE_NOINLINE void CVBundle::SetScalarSlow(const CVString& key, ValueType type, int value) {
  Entry* e = SlotSlow(key, type);
  if (e != nullptr) e->i = value;
}

void CVBundle::SetDouble(const CVString& key, double value) {
  Entry* e = Slot(key, kDouble);
  if (e != nullptr) e->d = value;
}

// The const& setters copy the value first: it may live in this bundle, and
// Slot may move or release it.
void CVBundle::SetString(const CVString& key, const CVString& value) {
  SetString(key, CVString(value));
}

// An rvalue cannot live in this bundle (its getters give const access only),
// so it moves straight into the entry.
void CVBundle::SetString(const CVString& key, CVString&& value) {
  Entry* e = AppendSlot(key, kString);
  if (e == nullptr) return SetStringSlow(key, std::move(value));
  new (e->s) CVString(std::move(value));
}

VBUNDLE_NOINLINE void CVBundle::SetStringSlow(const CVString& key, CVString&& value) {
  Entry* e = SlotSlow(key, kString);
  if (e != nullptr) new (e->s) CVString(std::move(value));
}

// The entry is appended before the text is decoded into it; when decoding
// throws (std::bad_alloc for a long text), the entry is taken back (its key
// and type are left beyond the size, and the index is built again), so the
// bundle is as it was.
void CVBundle::SetStringUtf8(const CVString& key, const char* text) {
  Entry* e = AppendSlot(key, kString);
  if (e == nullptr) return SetStringUtf8Slow(key, text);
  CVString* value = new (e->s) CVString();
  try {
    CVString::AssignUtf8Terminated(*value, text);
  } catch (...) {
    value->CVString::~CVString();
    --m_rep->size;
    m_rep->RebuildIndex();
    throw;
  }
}

VBUNDLE_NOINLINE void CVBundle::SetStringUtf8Slow(const CVString& key, const char* text) {
  CVString value;
  CVString::AssignUtf8Terminated(value, text);
  SetStringSlow(key, std::move(value));
}

void CVBundle::SetBundle(const CVString& key, const CVBundle& value) {
  SetBundle(key, CVBundle(value));
}

void CVBundle::SetBundle(const CVString& key, CVBundle&& value) {
  CVBundle taken(std::move(value));  // `value` may be this very bundle
  Entry* e = Slot(key, kBundle);
  if (e != nullptr) {
    new (e->b) CVBundle(std::move(taken));
  } else {
    value.Swap(taken);  // not stored: the caller keeps it
  }
}

// The copy is made before Slot, which releases the key's old value (`value`
// may be that value).
void CVBundle::SetBundleArray(const CVString& key, const BundleArray& value) {
  BundleArray copy;
  if (CopyArray(copy, value)) SetBundleArray(key, std::move(copy));
}

// `value` is taken over only once the entry exists: when Slot fails, the
// caller keeps its array.
void CVBundle::SetBundleArray(const CVString& key, BundleArray&& value) {
  Entry* e = Slot(key, kBundleArray);
  if (e != nullptr) TakeArray(*new (e->ba) BundleArray(), value);
}

void CVBundle::SetStringArray(const CVString& key, const StringArray& value) {
  StringArray copy;
  if (CopyArray(copy, value)) SetStringArray(key, std::move(copy));
}

void CVBundle::SetStringArray(const CVString& key, StringArray&& value) {
  Entry* e = Slot(key, kStringArray);
  if (e != nullptr) TakeArray(*new (e->sa) StringArray(), value);
}

void CVBundle::Remove(const CVString& key) {
  if (!ContainsKey(key) || !Detach()) return;
  int position = m_rep->Find(LookupOf(key));
  Entry* e = &m_rep->entries()[position];
  const uint8_t type = m_rep->types()[position];
  e->DestroyValue(type & Rep::kTypeMask);
  if ((type & Rep::kCountedKey) != 0) {
    CVString::ReleaseKeyRep(e->key);
  }
  size_t after = static_cast<size_t>(m_rep->size - position - 1);
  std::memmove(static_cast<void*>(e), static_cast<const void*>(e + 1), sizeof(Entry) * after);
  std::memmove(m_rep->types() + position, m_rep->types() + position + 1, after);
  --m_rep->size;
  m_rep->RebuildIndex();
}

int CVBundle::GetInt(const CVString& key) const {
  const Entry* e = Find(key, kInt);
  return e != nullptr ? e->i : 0;
}

int CVBundle::GetBool(const CVString& key) const {
  const Entry* e = Find(key, kBool);
  return e != nullptr ? e->i : 0;
}

double CVBundle::GetDouble(const CVString& key) const {
  const Entry* e = Find(key, kDouble);
  return e != nullptr ? e->d : 0.0;
}

const CVString* CVBundle::GetString(const CVString& key) const {
  const Entry* e = Find(key, kString);
  return e != nullptr ? &e->Str() : nullptr;
}

const CVBundle* CVBundle::GetBundle(const CVString& key) const {
  const Entry* e = Find(key, kBundle);
  return e != nullptr ? &e->Bun() : nullptr;
}

const CVBundle::BundleArray* CVBundle::GetBundleArray(const CVString& key) const {
  const Entry* e = Find(key, kBundleArray);
  return e != nullptr ? &e->Bundles() : nullptr;
}

const CVBundle::StringArray* CVBundle::GetStringArray(const CVString& key) const {
  const Entry* e = Find(key, kStringArray);
  return e != nullptr ? &e->Strings() : nullptr;
}

namespace {

template <class A>
bool ArraysEqual(const A& a, const A& b) {
  if (&a == &b) return true;
  if (a.m_nSize != b.m_nSize) return false;
  for (int i = 0; i < a.m_nSize; ++i) {
    if (a.m_pData[i] != b.m_pData[i]) return false;
  }
  return true;
}

}  // namespace

bool CVBundle::operator==(const CVBundle& other) const {
  if (m_rep == other.m_rep) return true;
  if (GetCount() != other.GetCount()) return false;
  for (int i = 0, n = GetCount(); i < n; ++i) {
    const Entry& a = m_rep->entries()[i];
    const ValueType type = GetTypeAt(i);
    const Entry* b = other.Find(GetKeyAt(i), type);
    if (b == nullptr) return false;
    switch (type) {
      case kInt:
      case kBool:
        if (a.i != b->i) return false;
        break;
      case kDouble:
        if (!(a.d == b->d)) return false;
        break;
      case kString:
        if (a.Str() != b->Str()) return false;
        break;
      case kBundle:
        if (a.Bun() != b->Bun()) return false;
        break;
      case kBundleArray:
        if (!ArraysEqual(a.Bundles(), b->Bundles())) return false;
        break;
      case kStringArray:
        if (!ArraysEqual(a.Strings(), b->Strings())) return false;
        break;
    }
  }
  return true;
}

int CVBundle::GetCount() const { return m_rep == nullptr ? 0 : m_rep->size; }
CVString CVBundle::GetKeyAt(int i) const { return CVString::FromKeyRep(m_rep->entries()[i].key); }
CVBundle::ValueType CVBundle::GetTypeAt(int i) const {
  return static_cast<ValueType>(m_rep->types()[i] & Rep::kTypeMask);
}
int CVBundle::GetIntAt(int i) const { return m_rep->entries()[i].i; }
double CVBundle::GetDoubleAt(int i) const { return m_rep->entries()[i].d; }
const CVString& CVBundle::GetStringAt(int i) const { return m_rep->entries()[i].Str(); }
const CVBundle& CVBundle::GetBundleAt(int i) const { return m_rep->entries()[i].Bun(); }
const CVBundle::BundleArray& CVBundle::GetBundleArrayAt(int i) const {
  return m_rep->entries()[i].Bundles();
}
const CVBundle::StringArray& CVBundle::GetStringArrayAt(int i) const {
  return m_rep->entries()[i].Strings();
}

}  // namespace _quarn_vi
