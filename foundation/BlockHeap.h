#ifndef FOUNDATION_BLOCKHEAP_H_
#define FOUNDATION_BLOCKHEAP_H_

// The heap of string and bundle blocks.
//
// A parse makes tens of small blocks per record (texts longer than the inline
// capacity, entry blocks of bundles) and the client drops the whole tree
// together. Taking each from malloc scatters a large tree over the heap and
// pays malloc's bookkeeping twice per block. Instead, each thread carves its
// blocks in order from its current chunk (CVBlockHeap::kChunkBytes, aligned
// to its size, so a block finds its chunk by masking its address); a chunk
// counts its live blocks and goes back to the system when the last one dies.
// Blocks larger than kLargeBlockBytes come from operator new directly.
//
// Contract:
//  - Allocate throws std::bad_alloc like operator new; Free takes the same
//    byte count that Allocate was given (it decides where the block came
//    from by size).
//  - A block may be freed on any thread.
//  - Memory: a chunk stays while any of its blocks lives, so one long-lived
//    small text copied out of a dropped tree holds up to kChunkBytes. Each
//    thread also keeps its current chunk and one spare; ReleaseThreadCache
//    returns them (threads return them on exit).
//  - Blocks are aligned to kBlockAlign bytes.
//  - Under AddressSanitizer, carved blocks are unpoisoned and freed ones
//    poisoned, so a use after free inside a live chunk is still reported.

#include <cstddef>

namespace _quarn_vi {

class CVBlockHeap {
 public:
  static constexpr size_t kChunkBytes = 64 * 1024;
  static constexpr size_t kLargeBlockBytes = 4 * 1024;
  static constexpr size_t kBlockAlign = 8;

  static void* Allocate(size_t bytes);
  static void Free(void* block, size_t bytes) noexcept;

  // Gives the calling thread's current and spare chunks back (each goes when
  // its last block dies). The next Allocate on this thread starts a new one.
  static void ReleaseThreadCache() noexcept;

  // Chunks allocated and not yet freed, in the whole process.
  static long ChunkCount() noexcept;

  // From now on, takes every block from operator new, so that allocation
  // failure tests and memory debuggers see each block. Only possible before
  // the first chunk is made (returns false otherwise, changing nothing).
  static bool TakeEveryBlockFromOperatorNew() noexcept;
};

}  // namespace _quarn_vi

#endif  // FOUNDATION_BLOCKHEAP_H_
