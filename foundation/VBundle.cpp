#include "foundation/VBundle.h"

#include <atomic>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <stdexcept>
#include <utility>

namespace _quarn_vi {

namespace {

// An array stored in a bundle: immutable once stored, shared by copies.
template <class A>
struct ArrayHolder {
  std::atomic<int> refs{1};
  A array;
};
typedef ArrayHolder<CVBundle::BundleArray> BundleArrayHolder;
typedef ArrayHolder<CVBundle::StringArray> StringArrayHolder;

template <class H>
void Retain(H* holder) {
  holder->refs.fetch_add(1, std::memory_order_relaxed);
}

template <class H>
void Release(H* holder) {
  if (holder->refs.load(std::memory_order_acquire) == 1 ||
      holder->refs.fetch_sub(1, std::memory_order_acq_rel) == 1) {
    delete holder;
  }
}

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

// A cheap hash of a key from its length and five of its units: enough to
// tell the keys of one bundle apart without reading long keys whole.
inline uint32_t KeyHash(const CVString& key) {
  uint32_t n = static_cast<uint32_t>(key.GetLength());
  if (n == 0) return 0;
  const unsigned short* u = key.Data();
  uint64_t x = (static_cast<uint64_t>(n) << 48) ^ (static_cast<uint64_t>(u[0]) << 32) ^
               (static_cast<uint64_t>(u[n / 2]) << 16) ^ u[n - 1];
  if (n > 2) x ^= (static_cast<uint64_t>(u[1]) << 40) ^ (static_cast<uint64_t>(u[n - 2]) << 24);
  x *= 0x9E3779B97F4A7C15ULL;
  return static_cast<uint32_t>(x >> 32);
}

}  // namespace

struct CVBundle::Entry {
  CVString key;
  uint32_t hash;
  uint8_t type;
  union {
    int i;
    double d;
    alignas(CVString) unsigned char s[sizeof(CVString)];
    alignas(CVBundle) unsigned char b[sizeof(CVBundle)];
    BundleArrayHolder* bundles;
    StringArrayHolder* strings;
  };

  CVString& Str() { return *std::launder(reinterpret_cast<CVString*>(s)); }
  const CVString& Str() const { return *std::launder(reinterpret_cast<const CVString*>(s)); }
  CVBundle& Bun() { return *std::launder(reinterpret_cast<CVBundle*>(b)); }
  const CVBundle& Bun() const { return *std::launder(reinterpret_cast<const CVBundle*>(b)); }

  // Copies the value of `other` (the key is the caller's business).
  void CopyValueFrom(const Entry& other) noexcept {
    type = other.type;
    switch (type) {
      case kString:
        new (s) CVString(other.Str());
        break;
      case kBundle:
        new (b) CVBundle(other.Bun());
        break;
      case kBundleArray:
        bundles = other.bundles;
        Retain(bundles);
        break;
      case kStringArray:
        strings = other.strings;
        Retain(strings);
        break;
      default:
        d = other.d;  // covers int and bool too
        break;
    }
  }

  void DestroyValue() noexcept {
    switch (type) {
      case kString:
        Str().~CVString();
        break;
      case kBundle:
        Bun().~CVBundle();
        break;
      case kBundleArray:
        Release(bundles);
        break;
      case kStringArray:
        Release(strings);
        break;
      default:
        break;
    }
  }
};

// The entry block: this header, `capacity` entry slots, then, for blocks of
// more than kLinearCapacity slots, an open addressing index of the entries by
// key hash (entry position + 1, 0 for a free slot), at least twice as large
// as the capacity, so that a lookup costs a probe or two whatever the
// bundle's size. Small blocks compare the stored hashes in turn.
struct alignas(CVBundle::Entry) CVBundle::Rep {
  std::atomic<int> refs;
  int size;
  int capacity;
  uint32_t index_mask;  // index slots - 1

  Entry* entries() { return reinterpret_cast<Entry*>(this + 1); }
  const Entry* entries() const { return reinterpret_cast<const Entry*>(this + 1); }
  uint16_t* index() { return reinterpret_cast<uint16_t*>(entries() + capacity); }
  const uint16_t* index() const { return reinterpret_cast<const uint16_t*>(entries() + capacity); }

  // The index holds positions + 1 in 16 bits.
  static constexpr int kMaxCapacity = 65535;

  static constexpr int kLinearCapacity = 8;
  bool HasIndex() const { return capacity > kLinearCapacity; }

  static uint32_t IndexSlots(int capacity) {
    if (capacity <= kLinearCapacity) return 0;
    uint32_t slots = 8;
    while (slots < static_cast<uint32_t>(capacity) * 2) slots *= 2;
    return slots;
  }

  static Rep* New(int capacity) {
    if (capacity > kMaxCapacity) throw std::length_error("CVBundle: too many keys");
    uint32_t slots = IndexSlots(capacity);
    size_t bytes = sizeof(Rep) + sizeof(Entry) * static_cast<size_t>(capacity) + sizeof(uint16_t) * slots;
    Rep* rep = static_cast<Rep*>(::operator new(bytes));
    new (&rep->refs) std::atomic<int>(1);
    rep->size = 0;
    rep->capacity = capacity;
    rep->index_mask = slots - 1;
    if (slots != 0) std::memset(rep->index(), 0, sizeof(uint16_t) * slots);
    return rep;
  }

  static void Destroy(Rep* rep) noexcept {
    for (int i = 0; i < rep->size; ++i) {
      rep->entries()[i].DestroyValue();
      rep->entries()[i].key.~CVString();
    }
    ::operator delete(rep);
  }

  static void Unref(Rep* rep) noexcept {
    if (rep == nullptr) return;
    if (rep->refs.load(std::memory_order_acquire) == 1 ||
        rep->refs.fetch_sub(1, std::memory_order_acq_rel) == 1) {
      Destroy(rep);
    }
  }

  // The entry of `key` (whose hash is `hash`), or null.
  Entry* Find(const CVString& key, uint32_t hash) {
    if (!HasIndex()) {
      Entry* e = entries();
      for (int i = 0; i < size; ++i) {
        if (e[i].hash == hash && e[i].key == key) return &e[i];
      }
      return nullptr;
    }
    const uint16_t* slots = index();
    for (uint32_t slot = hash & index_mask;; slot = (slot + 1) & index_mask) {
      uint16_t position = slots[slot];
      if (position == 0) return nullptr;
      Entry* e = &entries()[position - 1];
      if (e->hash == hash && e->key == key) return e;
    }
  }

  void IndexEntry(int position) {
    if (!HasIndex()) return;
    uint16_t* slots = index();
    uint32_t slot = entries()[position].hash & index_mask;
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
      new (&e->key) CVString(rep->entries()[i].key);
      e->hash = rep->entries()[i].hash;
      e->CopyValueFrom(rep->entries()[i]);
    }
    copy->size = rep->size;
    copy->RebuildIndex();
    return copy;
  }

  // Moves the entries of `rep` by bytes into a new block of `capacity`.
  static Rep* Grow(Rep* rep, int capacity) {
    Rep* bigger = New(capacity);
    std::memcpy(static_cast<void*>(bigger->entries()), static_cast<const void*>(rep->entries()),
                sizeof(Entry) * static_cast<size_t>(rep->size));
    bigger->size = rep->size;
    bigger->RebuildIndex();
    ::operator delete(rep);
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

CVBundle::Entry* CVBundle::Find(const CVString& key) const {
  if (m_rep == nullptr) return nullptr;
  return m_rep->Find(key, KeyHash(key));
}

CVBundle::Entry* CVBundle::Slot(const CVString& key) {
  Detach();
  uint32_t hash = KeyHash(key);
  if (m_rep != nullptr) {
    if (Entry* e = m_rep->Find(key, hash)) {
      e->DestroyValue();
      e->type = kInt;
      e->i = 0;
      return e;
    }
  }
  if (m_rep == nullptr) {
    m_rep = Rep::New(4);
  } else if (m_rep->size == m_rep->capacity) {
    m_rep = Rep::Grow(m_rep, m_rep->capacity * 2);
  }
  int position = m_rep->size;
  Entry* e = &m_rep->entries()[position];
  new (&e->key) CVString(key);
  e->hash = hash;
  e->type = kInt;
  e->i = 0;
  ++m_rep->size;
  m_rep->IndexEntry(position);
  return e;
}

void CVBundle::SetInt(const CVString& key, int value) {
  Entry* e = Slot(key);
  e->type = kInt;
  e->i = value;
}

void CVBundle::SetBool(const CVString& key, int value) {
  Entry* e = Slot(key);
  e->type = kBool;
  e->i = value != 0 ? 1 : 0;
}

void CVBundle::SetDouble(const CVString& key, double value) {
  Entry* e = Slot(key);
  e->type = kDouble;
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
  Entry* e = Slot(key);
  new (e->s) CVString(std::move(value));
  e->type = kString;
}

void CVBundle::SetBundle(const CVString& key, const CVBundle& value) {
  SetBundle(key, CVBundle(value));
}

void CVBundle::SetBundle(const CVString& key, CVBundle&& value) {
  CVBundle taken(std::move(value));  // `value` may be this very bundle
  Entry* e = Slot(key);
  new (e->b) CVBundle(std::move(taken));
  e->type = kBundle;
}

// The copy is made before Slot, which releases the key's old value (`value`
// may be that value); the holder is freed when either throws.
void CVBundle::SetBundleArray(const CVString& key, const BundleArray& value) {
  std::unique_ptr<BundleArrayHolder> holder(new BundleArrayHolder);
  CopyArray(holder->array, value);
  Entry* e = Slot(key);
  e->bundles = holder.release();
  e->type = kBundleArray;
}

// `value` is taken over only once the entry exists: when Slot throws, the
// caller keeps its array.
void CVBundle::SetBundleArray(const CVString& key, BundleArray&& value) {
  std::unique_ptr<BundleArrayHolder> holder(new BundleArrayHolder);
  Entry* e = Slot(key);
  TakeArray(holder->array, value);
  e->bundles = holder.release();
  e->type = kBundleArray;
}

// The copy is made before Slot, which releases the key's old value (`value`
// may be that value); the holder is freed when either throws.
void CVBundle::SetStringArray(const CVString& key, const StringArray& value) {
  std::unique_ptr<StringArrayHolder> holder(new StringArrayHolder);
  CopyArray(holder->array, value);
  Entry* e = Slot(key);
  e->strings = holder.release();
  e->type = kStringArray;
}

// `value` is taken over only once the entry exists: when Slot throws, the
// caller keeps its array.
void CVBundle::SetStringArray(const CVString& key, StringArray&& value) {
  std::unique_ptr<StringArrayHolder> holder(new StringArrayHolder);
  Entry* e = Slot(key);
  TakeArray(holder->array, value);
  e->strings = holder.release();
  e->type = kStringArray;
}

void CVBundle::Remove(const CVString& key) {
  if (Find(key) == nullptr) return;
  Detach();
  Entry* e = Find(key);
  e->DestroyValue();
  e->key.~CVString();
  Entry* end = m_rep->entries() + m_rep->size;
  std::memmove(static_cast<void*>(e), static_cast<const void*>(e + 1),
               sizeof(Entry) * static_cast<size_t>(end - (e + 1)));
  --m_rep->size;
  m_rep->RebuildIndex();
}

int CVBundle::ContainsKey(const CVString& key) const { return Find(key) != nullptr; }

int CVBundle::GetInt(const CVString& key) const {
  const Entry* e = Find(key);
  return e != nullptr && e->type == kInt ? e->i : 0;
}

int CVBundle::GetBool(const CVString& key) const {
  const Entry* e = Find(key);
  return e != nullptr && e->type == kBool ? e->i : 0;
}

double CVBundle::GetDouble(const CVString& key) const {
  const Entry* e = Find(key);
  return e != nullptr && e->type == kDouble ? e->d : 0.0;
}

const CVString* CVBundle::GetString(const CVString& key) const {
  const Entry* e = Find(key);
  return e != nullptr && e->type == kString ? &e->Str() : nullptr;
}

const CVBundle* CVBundle::GetBundle(const CVString& key) const {
  const Entry* e = Find(key);
  return e != nullptr && e->type == kBundle ? &e->Bun() : nullptr;
}

const CVBundle::BundleArray* CVBundle::GetBundleArray(const CVString& key) const {
  const Entry* e = Find(key);
  return e != nullptr && e->type == kBundleArray ? &e->bundles->array : nullptr;
}

const CVBundle::StringArray* CVBundle::GetStringArray(const CVString& key) const {
  const Entry* e = Find(key);
  return e != nullptr && e->type == kStringArray ? &e->strings->array : nullptr;
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
    const Entry* b = other.Find(a.key);
    if (b == nullptr || b->type != a.type) return false;
    switch (a.type) {
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
        if (!ArraysEqual(a.bundles->array, b->bundles->array)) return false;
        break;
      case kStringArray:
        if (!ArraysEqual(a.strings->array, b->strings->array)) return false;
        break;
    }
  }
  return true;
}

int CVBundle::GetCount() const { return m_rep == nullptr ? 0 : m_rep->size; }
const CVString& CVBundle::GetKeyAt(int i) const { return m_rep->entries()[i].key; }
CVBundle::ValueType CVBundle::GetTypeAt(int i) const {
  return static_cast<ValueType>(m_rep->entries()[i].type);
}
int CVBundle::GetIntAt(int i) const { return m_rep->entries()[i].i; }
double CVBundle::GetDoubleAt(int i) const { return m_rep->entries()[i].d; }
const CVString& CVBundle::GetStringAt(int i) const { return m_rep->entries()[i].Str(); }
const CVBundle& CVBundle::GetBundleAt(int i) const { return m_rep->entries()[i].Bun(); }
const CVBundle::BundleArray& CVBundle::GetBundleArrayAt(int i) const {
  return m_rep->entries()[i].bundles->array;
}
const CVBundle::StringArray& CVBundle::GetStringArrayAt(int i) const {
  return m_rep->entries()[i].strings->array;
}

}  // namespace _quarn_vi
