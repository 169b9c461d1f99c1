#include "foundation/VBundle.h"

#include <atomic>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <stdexcept>
#include <utility>

#include "foundation/BlockHeap.h"

namespace _quarn_vi {

namespace {

// Takes over the block of `from`, leaving it empty.
template <class A>
void TakeArray(A& to, A& from) {
  std::swap(to.m_pData, from.m_pData);
  std::swap(to.m_nSize, from.m_nSize);
  std::swap(to.m_nMaxSize, from.m_nMaxSize);
  std::swap(to.m_nGrowBy, from.m_nGrowBy);
}

// Copies the elements of `from` into the empty `to`; each element copy is
// O(1) (shared storage). Throws std::bad_alloc when CVMem refuses the block.
template <class A>
void CopyArray(A& to, const A& from) {
  if (from.m_nSize == 0) return;
  if (to.SetSize(from.m_nSize, -1) == 0) throw std::bad_alloc();
  for (int i = 0; i < from.m_nSize; ++i) to.m_pData[i] = from.m_pData[i];
}

inline uint32_t KeyHash(const CVString& key) { return key.Hash(); }

}  // namespace

// One key and its value: 64 bytes. The value's type lives in the block's
// type array, beside the entries, so that an entry fills a cache line. Arrays
// live in the entry itself (their elements in their own block), so storing
// one costs no allocation.
struct CVBundle::Entry {
  CVString key;
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
  // business). Only an array copy can fail (std::bad_alloc); it then leaves
  // no value behind.
  void CopyValueFrom(const Entry& other, uint8_t type) {
    switch (type) {
      case kString:
        new (s) CVString(other.Str());
        break;
      case kBundle:
        new (b) CVBundle(other.Bun());
        break;
      case kBundleArray:
        CopyArrayInto(ba, other.Bundles());
        break;
      case kStringArray:
        CopyArrayInto(sa, other.Strings());
        break;
      default:
        d = other.d;  // covers int and bool too
        break;
    }
  }

  template <class A>
  static void CopyArrayInto(unsigned char* storage, const A& from) {
    A copy;
    CopyArray(copy, from);
    TakeArray(*new (storage) A(), copy);
  }

  void DestroyValue(uint8_t type) noexcept {
    switch (type) {
      case kString:
        Str().~CVString();
        break;
      case kBundle:
        Bun().~CVBundle();
        break;
      case kBundleArray:
        Bundles().~BundleArray();
        break;
      case kStringArray:
        Strings().~StringArray();
        break;
      default:
        break;
    }
  }
};
static_assert(sizeof(CVBundle::BundleArray) <= sizeof(CVString), "an array fits an entry's value");

// The entry block: this header, `capacity` entries, their value types (one
// byte each), then, for blocks of more than kLinearCapacity entries, an open
// addressing index of the entries by key hash (entry position + 1, 0 for a
// free slot), at least twice as large as the capacity, so that a lookup
// costs a probe or two whatever the bundle's size. Small blocks compare the
// keys in turn.
struct alignas(CVBundle::Entry) CVBundle::Rep {
  std::atomic<int> refs;
  int size;
  int capacity;
  uint32_t index_mask;  // index slots - 1

  Entry* entries() { return reinterpret_cast<Entry*>(this + 1); }
  const Entry* entries() const { return reinterpret_cast<const Entry*>(this + 1); }
  uint8_t* types() { return reinterpret_cast<uint8_t*>(entries() + capacity); }
  const uint8_t* types() const { return reinterpret_cast<const uint8_t*>(entries() + capacity); }
  uint16_t* index() { return reinterpret_cast<uint16_t*>(types() + ((capacity + 1) & ~1)); }
  const uint16_t* index() const { return reinterpret_cast<const uint16_t*>(types() + ((capacity + 1) & ~1)); }

  // The index holds positions + 1 in 16 bits.
  static constexpr int kMaxCapacity = 65535;
  static constexpr int kLinearCapacity = 8;
  bool HasIndex() const { return capacity > kLinearCapacity; }

  static uint32_t IndexSlots(int capacity) {
    if (capacity <= kLinearCapacity) return 0;
    uint32_t slots = 16;
    while (slots < static_cast<uint32_t>(capacity) * 2) slots *= 2;
    return slots;
  }

  // Header, entries, their value types (padded to even) and the index.
  static size_t Bytes(int capacity) {
    return sizeof(Rep) + sizeof(Entry) * static_cast<size_t>(capacity) +
           static_cast<size_t>((capacity + 1) & ~1) + sizeof(uint16_t) * IndexSlots(capacity);
  }

  static Rep* New(int capacity) {
    static_assert(alignof(Rep) <= CVBlockHeap::kBlockAlign, "the block heap aligns a Rep");
    if (capacity > kMaxCapacity) throw std::length_error("CVBundle: too many keys");
    uint32_t slots = IndexSlots(capacity);
    Rep* rep = static_cast<Rep*>(CVBlockHeap::Allocate(Bytes(capacity)));
    new (&rep->refs) std::atomic<int>(1);
    rep->size = 0;
    rep->capacity = capacity;
    rep->index_mask = slots - 1;
    if (slots != 0) std::memset(rep->index(), 0, sizeof(uint16_t) * slots);
    return rep;
  }

  static void Free(Rep* rep) noexcept { CVBlockHeap::Free(rep, Bytes(rep->capacity)); }

  static void Destroy(Rep* rep) noexcept {
    for (int i = 0; i < rep->size; ++i) {
      rep->entries()[i].DestroyValue(rep->types()[i]);
      rep->entries()[i].key.~CVString();
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

  // The position of `key`, or -1. Small blocks never hash the key.
  int Find(const CVString& key) const {
    const Entry* e = entries();
    if (!HasIndex()) {
      for (int i = 0; i < size; ++i) {
        if (e[i].key == key) return i;
      }
      return -1;
    }
    const uint16_t* slots = index();
    for (uint32_t slot = KeyHash(key) & index_mask;; slot = (slot + 1) & index_mask) {
      uint16_t position = slots[slot];
      if (position == 0) return -1;
      if (e[position - 1].key == key) return position - 1;
    }
  }

  void IndexEntry(int position) {
    if (!HasIndex()) return;
    uint16_t* slots = index();
    uint32_t slot = KeyHash(entries()[position].key) & index_mask;
    while (slots[slot] != 0) slot = (slot + 1) & index_mask;
    slots[slot] = static_cast<uint16_t>(position + 1);
  }

  void RebuildIndex() {
    if (!HasIndex()) return;
    std::memset(index(), 0, sizeof(uint16_t) * (index_mask + 1));
    for (int i = 0; i < size; ++i) IndexEntry(i);
  }

  // A copy of `rep` with room for `capacity` entries.
  static Rep* Clone(const Rep* rep, int capacity) {
    Rep* copy = New(capacity);
    for (int i = 0; i < rep->size; ++i) {
      Entry* e = &copy->entries()[i];
      try {
        e->CopyValueFrom(rep->entries()[i], rep->types()[i]);
      } catch (...) {
        Destroy(copy);  // the entries copied so far
        throw;
      }
      new (&e->key) CVString(rep->entries()[i].key);
      copy->types()[i] = rep->types()[i];
      copy->size = i + 1;
    }
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
    bigger->RebuildIndex();
    Free(rep);
    return bigger;
  }
};

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

void CVBundle::Detach() {
  if (m_rep != nullptr && m_rep->refs.load(std::memory_order_acquire) != 1) {
    Rep* copy = Rep::Clone(m_rep, m_rep->capacity);
    Rep::Unref(m_rep);
    m_rep = copy;
  }
}

void CVBundle::Reserve(int count) {
  if (m_rep == nullptr) {
    if (count > 0) m_rep = Rep::New(count);
    return;
  }
  Detach();
  if (count > m_rep->capacity) m_rep = Rep::Grow(m_rep, count);
}

CVBundle::Entry* CVBundle::Find(const CVString& key, ValueType type) const {
  if (m_rep == nullptr) return nullptr;
  int position = m_rep->Find(key);
  if (position < 0 || m_rep->types()[position] != type) return nullptr;
  return &m_rep->entries()[position];
}

int CVBundle::ContainsKey(const CVString& key) const {
  return m_rep != nullptr && m_rep->Find(key) >= 0;
}

CVBundle::Entry* CVBundle::Slot(const CVString& key, ValueType type) {
  Detach();
  int position = m_rep != nullptr ? m_rep->Find(key) : -1;
  if (position >= 0) {
    Entry* e = &m_rep->entries()[position];
    e->DestroyValue(m_rep->types()[position]);
    m_rep->types()[position] = static_cast<uint8_t>(type);
    return e;
  }
  if (m_rep == nullptr) {
    m_rep = Rep::New(4);
  } else if (m_rep->size == m_rep->capacity) {
    m_rep = Rep::Grow(m_rep, m_rep->capacity * 2);
  }
  position = m_rep->size;
  Entry* e = &m_rep->entries()[position];
  new (&e->key) CVString(key);
  m_rep->types()[position] = static_cast<uint8_t>(type);
  ++m_rep->size;
  m_rep->IndexEntry(position);
  return e;
}

void CVBundle::SetInt(const CVString& key, int value) {
  Entry* e = Slot(key, kInt);
  e->i = value;
}

void CVBundle::SetBool(const CVString& key, int value) {
  Entry* e = Slot(key, kBool);
  e->i = value != 0 ? 1 : 0;
}

void CVBundle::SetDouble(const CVString& key, double value) {
  Entry* e = Slot(key, kDouble);
  e->d = value;
}

// The const& setters copy the value first: it may live in this bundle, and
// Slot may move or release it.
void CVBundle::SetString(const CVString& key, const CVString& value) {
  SetString(key, CVString(value));
}

// An rvalue cannot live in this bundle (its getters give const access only),
// so it moves straight into the entry.
void CVBundle::SetString(const CVString& key, CVString&& value) {
  Entry* e = Slot(key, kString);
  new (e->s) CVString(std::move(value));
}

void CVBundle::SetBundle(const CVString& key, const CVBundle& value) {
  SetBundle(key, CVBundle(value));
}

void CVBundle::SetBundle(const CVString& key, CVBundle&& value) {
  CVBundle taken(std::move(value));  // `value` may be this very bundle
  Entry* e = Slot(key, kBundle);
  new (e->b) CVBundle(std::move(taken));
}

// The copy is made before Slot, which releases the key's old value (`value`
// may be that value).
void CVBundle::SetBundleArray(const CVString& key, const BundleArray& value) {
  BundleArray copy;
  CopyArray(copy, value);
  SetBundleArray(key, std::move(copy));
}

// `value` is taken over only once the entry exists: when Slot throws, the
// caller keeps its array.
void CVBundle::SetBundleArray(const CVString& key, BundleArray&& value) {
  Entry* e = Slot(key, kBundleArray);
  TakeArray(*new (e->ba) BundleArray(), value);
}

void CVBundle::SetStringArray(const CVString& key, const StringArray& value) {
  StringArray copy;
  CopyArray(copy, value);
  SetStringArray(key, std::move(copy));
}

void CVBundle::SetStringArray(const CVString& key, StringArray&& value) {
  Entry* e = Slot(key, kStringArray);
  TakeArray(*new (e->sa) StringArray(), value);
}

void CVBundle::Remove(const CVString& key) {
  if (!ContainsKey(key)) return;
  Detach();
  int position = m_rep->Find(key);
  Entry* e = &m_rep->entries()[position];
  e->DestroyValue(m_rep->types()[position]);
  e->key.~CVString();
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
    const ValueType type = static_cast<ValueType>(m_rep->types()[i]);
    const Entry* b = other.Find(a.key, type);
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
const CVString& CVBundle::GetKeyAt(int i) const { return m_rep->entries()[i].key; }
CVBundle::ValueType CVBundle::GetTypeAt(int i) const {
  return static_cast<ValueType>(m_rep->types()[i]);
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
