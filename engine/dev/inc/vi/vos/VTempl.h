// CVArray: the growable array of the parser's records and strings.
//
// Elements live contiguously in one block from CVMem::Allocate. Growth moves
// them to the new block by a plain byte copy (no constructor or destructor
// runs), so T must hold no pointer into itself; CVString and CVBundle are
// built for that. New slots are zero-filled before they are constructed.
//
// Growth policy (m_nGrowBy == 0, the only mode the parser uses): a first block
// holds exactly the requested slots; later blocks add 4 slots while fewer than
// 32 elements are in use, then an eighth of the elements in use, at most 1024.
// Appending one at a time gives capacities 1, 5, 9, ..., 33, 37, 41, 46, ...
//
// Growth moves the block with CVMem::Reallocate when no CVMem hooks are
// installed and the new block exceeds kVArrayCopyGrowthBytes (the same
// bytes, a large block remapped rather than copied, so that long lists grow
// in linear time); otherwise every growth is one Allocate of the new
// capacity, a byte copy and one Deallocate, so that hooks see exactly the
// requests above.
//
// Failure: the only failure is an exhausted allocator. A failed first block
// leaves the array empty and without block; a failed growth leaves it exactly
// as it was. SetSize then returns 0 and SetAtGrow stores nothing.
//
// Callers read m_nSize and m_pData[i] directly.
//
// Thread safety: none; an array belongs to one thread at a time.
#ifndef ENGINE_DEV_INC_VI_VOS_VTEMPL_H_
#define ENGINE_DEV_INC_VI_VOS_VTEMPL_H_

#include <climits>
#include <cstring>
#include <new>

#include "foundation/VMem.h"

namespace _quarn_vi {

// The allocation tag of every element block; the line tells a first block
// (kVArrayFirstBlockLine) from a growth (kVArrayGrowLine).
inline constexpr const char kVArrayAllocTag[] = "../../../engine/dev/inc/vi/vos/VTempl";
inline constexpr int kVArrayFirstBlockLine = 614;
inline constexpr int kVArrayGrowLine = 660;
// Without hooks, a growth to at most this many bytes takes a new block and
// copies rather than calling realloc: blocks this small come from the
// thread's block cache (CVMem::BlockCacheLimit), which realloc would skip (a
// record's short lists, 1 then 5 slots). Larger blocks go to realloc, which
// remaps a large block instead of copying it.
inline constexpr unsigned int kVArrayCopyGrowthBytes = 1024;

template <class T, class ARG>
class CVArray {
 public:
  CVArray() : m_pData(nullptr), m_nSize(0), m_nMaxSize(0), m_nGrowBy(0) {}
  CVArray(const CVArray&) = delete;
  CVArray& operator=(const CVArray&) = delete;
  virtual ~CVArray() { Release(); }

  // Sets the number of elements to `newSize`. `growBy` == -1 keeps the growth
  // step, any other value replaces it (even when the call then fails).
  // Returns 1 on success, 0 when a block request failed or `newSize` is
  // negative or too large to address in 32-bit bytes.
  int SetSize(int newSize, int growBy);

  // Stores a copy of `value` at `index`, growing the array to index + 1
  // elements first when index >= m_nSize. Stores nothing when that growth
  // fails or `index` is negative.
  void SetAtGrow(int index, ARG value);

  T* m_pData;       // the element block; null when the array has no block
  int m_nSize;      // elements in use
  int m_nMaxSize;   // element slots in the block (capacity)
  int m_nGrowBy;    // growth step in slots; 0 means automatic

 private:
  static bool BlockBytes(long long slots, unsigned int* bytes) {
    unsigned long long total = static_cast<unsigned long long>(slots) * sizeof(T);
    if (slots < 0 || total > UINT_MAX) return false;
    *bytes = static_cast<unsigned int>(total);
    return true;
  }
  // Zero-fills slots [from, to) and default-constructs an element in each.
  static void ConstructRange(T* data, int from, int to) {
    if (to <= from) return;
    std::memset(static_cast<void*>(data + from), 0, sizeof(T) * static_cast<size_t>(to - from));
    for (int i = from; i < to; ++i) ::new (static_cast<void*>(data + i)) T();
  }
  static void DestroyRange(T* data, int from, int to) {
    for (int i = from; i < to; ++i) data[i].~T();
  }
  void Release() {
    if (m_pData != nullptr) {
      DestroyRange(m_pData, 0, m_nSize);
      CVMem::Deallocate(m_pData, static_cast<unsigned int>(sizeof(T) * static_cast<size_t>(m_nMaxSize)));
      m_pData = nullptr;
    }
  }
};

template <class T, class ARG>
int CVArray<T, ARG>::SetSize(int newSize, int growBy) {
  if (growBy != -1) m_nGrowBy = growBy;
  if (newSize < 0) return 0;

  if (newSize == 0) {
    Release();
    m_nSize = 0;
    m_nMaxSize = 0;
    return 1;
  }

  if (m_pData == nullptr) {
    unsigned int bytes = 0;
    void* block = BlockBytes(newSize, &bytes)
                      ? CVMem::Allocate(bytes, kVArrayAllocTag, kVArrayFirstBlockLine)
                      : nullptr;
    if (block == nullptr) {
      m_nSize = 0;
      m_nMaxSize = 0;
      return 0;
    }
    m_pData = static_cast<T*>(block);
    ConstructRange(m_pData, 0, newSize);
    m_nMaxSize = newSize;
    m_nSize = newSize;
    return 1;
  }

  if (newSize <= m_nMaxSize) {
    if (newSize > m_nSize) {
      ConstructRange(m_pData, m_nSize, newSize);
    } else {
      DestroyRange(m_pData, newSize, m_nSize);
    }
    m_nSize = newSize;
    return 1;
  }

  // The automatic step follows the elements in use, not the capacity.
  int step = m_nGrowBy;
  if (step == 0) {
    step = m_nSize < 32 ? 4 : m_nSize / 8;
    if (step > 1024) step = 1024;
  }
  long long capacity = static_cast<long long>(m_nMaxSize) + step;
  if (capacity < newSize) capacity = newSize;
  unsigned int bytes = 0;
  if (capacity > INT_MAX || !BlockBytes(capacity, &bytes)) return 0;
  // Relocation: the live elements move by bytes; none is copied or destroyed.
  T* data;
  if (CVMem::HasHooks() || bytes <= kVArrayCopyGrowthBytes) {
    void* block = CVMem::Allocate(bytes, kVArrayAllocTag, kVArrayGrowLine);
    if (block == nullptr) return 0;
    data = static_cast<T*>(block);
    std::memcpy(static_cast<void*>(data), static_cast<const void*>(m_pData),
                sizeof(T) * static_cast<size_t>(m_nSize));
    CVMem::Deallocate(m_pData, static_cast<unsigned int>(sizeof(T) * static_cast<size_t>(m_nMaxSize)));
  } else {
    // Nobody sees the requests: realloc gives the same bytes, and moves a
    // large block by remapping its pages rather than copying them. Since the
    // step stops at 1024 slots, copying would make appending n elements cost
    // O(n^2 / 1024): 2,000,000 strings took 100 times as long as 200,000.
    void* block = CVMem::Reallocate(m_pData, bytes);
    if (block == nullptr) return 0;
    data = static_cast<T*>(block);
  }
  ConstructRange(data, m_nSize, newSize);
  m_pData = data;
  m_nSize = newSize;
  m_nMaxSize = static_cast<int>(capacity);
  return 1;
}

template <class T, class ARG>
void CVArray<T, ARG>::SetAtGrow(int index, ARG value) {
  if (index < 0 || index == INT_MAX) return;
  if (index >= m_nSize && m_pData != nullptr && &value >= m_pData && &value < m_pData + m_nSize) {
    // `value` lives in this array and growth may move it: copy it first.
    T copy(value);
    if (SetSize(index + 1, -1) != 0) m_pData[index] = copy;
    return;
  }
  if (index >= m_nSize && SetSize(index + 1, -1) == 0) return;
  if (m_pData != nullptr && index < m_nSize) m_pData[index] = value;
}

// Appends `value` as SetAtGrow(array.m_nSize, value) does, with the same
// growth and the same failure behaviour, but moves it in (T::Swap) instead of
// copying it: `value` is left empty, or untouched when the growth failed.
// Returns 1 iff the element was appended.
template <class T, class ARG>
int AppendByMove(CVArray<T, ARG>& array, T& value) {
  if (array.m_nSize == INT_MAX) return 0;
  if (array.SetSize(array.m_nSize + 1, -1) == 0) return 0;
  array.m_pData[array.m_nSize - 1].Swap(value);
  return 1;
}

}  // namespace _quarn_vi

#endif  // ENGINE_DEV_INC_VI_VOS_VTEMPL_H_
