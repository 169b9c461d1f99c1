// The blocks of texts, bundles and arrays: operator new and delete (malloc
// and free for arrays), behind a small cache of freed blocks per thread.
//
// Why: building a bundle makes a block per long text and per record (about
// 23 per POI) and destroying it frees them all, so a client parsing answer
// after answer asks malloc for hundreds of blocks that it freed a moment
// before. glibc's per-thread cache keeps only seven blocks of each size, and
// beyond them a pair of malloc and free costs about 400 instructions; taking
// a block back from this cache costs about ten. Measured on the build and
// destruction of the 20-POI answer's bundle: see the README.
//
// The cache holds whole blocks from operator new, at most
// CVMem::BlockCacheLimit() bytes per thread, and gives a block back only for
// a request of the same size class, so a kept block never pins another. It is
// emptied when its thread ends (whatever the order of the thread's other
// thread_local objects: blocks freed after that go straight to operator
// delete) and by CVMem::ReleaseCachedBlocks.
//
// Internal to the foundation (not installed).
#ifndef FOUNDATION_BLOCKCACHE_H_
#define FOUNDATION_BLOCKCACHE_H_

#include <cstddef>

namespace _quarn_vi {
namespace block_cache {

// A block of at least `bytes` bytes (aligned as operator new aligns), from
// this thread's cache or operator new. Throws std::bad_alloc as operator new
// does. REQUIRES: bytes > 0.
void* Allocate(size_t bytes);

// Frees a block from Allocate, given the same `bytes`: into this thread's
// cache while it has room, else to operator delete. Any thread may free any
// block.
void Free(void* block, size_t bytes) noexcept;

// The same for the element blocks of CVArray without CVMem hooks, which come
// from malloc (so that realloc may grow them, and hooks forwarding to free
// may free them): a block of at least `bytes` bytes, or null when malloc
// fails. Blocks of at most kMaxArrayBlock bytes are cached apart from the
// others. REQUIRES: bytes > 0.
constexpr size_t kMaxArrayBlock = 1024;
void* AllocateArray(size_t bytes) noexcept;
// Frees a block from AllocateArray, given the same `bytes`, or any malloc
// block of exactly `bytes` bytes when bytes > kMaxArrayBlock.
void FreeArray(void* block, size_t bytes) noexcept;

}  // namespace block_cache
}  // namespace _quarn_vi

#endif  // FOUNDATION_BLOCKCACHE_H_
