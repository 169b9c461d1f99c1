// The tagged allocator of the foundation library.
//
// Every element block of a CVArray comes from CVMem::Allocate, which takes
// the source text and line of the request as a tag. By default requests go
// to malloc/free (blocks of up to 1 KiB by way of the thread's block cache,
// see BlockCacheLimit) and the tag is ignored; tests and diagnostics replace the
// process-wide allocator with CVMem::SetHooks to see every request or to make
// a chosen one fail.
//
// Thread safety: Allocate and Deallocate may be called from several threads.
// SetHooks must not be called while another thread allocates (it swaps a
// plain process-wide table, without synchronisation).
#ifndef FOUNDATION_VMEM_H_
#define FOUNDATION_VMEM_H_

#include <cstddef>

namespace _quarn_vi {

// A replacement allocator. `allocate` returns null to report an exhausted
// allocator; `deallocate` is never given null.
struct CVMemHooks {
  void* (*allocate)(unsigned int size, const char* file, int line, void* context);
  void (*deallocate)(void* block, void* context);
  void* context;
};

class CVMem {
 public:
  // Returns a block of `size` bytes, or null when memory is exhausted.
  static void* Allocate(unsigned int size, const char* file, int line);
  // Frees a block from Allocate. Deallocate(nullptr) is harmless.
  static void Deallocate(void* block);
  // The same, given the `size` the block was allocated (or last
  // reallocated) with, which lets the default allocator keep a small block
  // in its thread's cache for the next request of that size (see
  // BlockCacheLimit). Hooks see it as Deallocate(block).
  static void Deallocate(void* block, unsigned int size);
  // True iff hooks are installed (SetHooks with non-null hooks).
  static bool HasHooks();
  // Resizes a block from Allocate to `size` bytes as realloc does: the first
  // bytes are kept (the block may move; large blocks move by remapping their
  // pages instead of copying them); null, the block untouched, when memory is
  // exhausted. REQUIRES: !HasHooks(): hooks see every request as an
  // Allocate and a Deallocate, so the caller does those instead.
  static void* Reallocate(void* block, unsigned int size);
  // Installs `hooks` (copied) as the process-wide allocator; null restores
  // malloc/free. Blocks must be freed by the allocator that made them, so
  // hooks are swapped only while no CVMem block is alive, or by hooks that
  // forward to the default (malloc/free).
  static void SetHooks(const CVMemHooks* hooks);

  // The text blocks of CVString and the entry blocks of CVBundle come from
  // operator new (hooks do not see them), and each thread keeps the ones it
  // frees, up to BlockCacheLimit() bytes, for its next blocks of the same
  // size: a client parsing answer after answer then rarely calls operator
  // new. A thread's cached blocks go to operator delete when the thread ends
  // (for the main thread, at exit) or when it calls ReleaseCachedBlocks.
  static constexpr size_t kDefaultBlockCacheLimit = 128 * 1024;
  // Sets the limit for every thread (0 turns the cache off); a thread whose
  // cache holds more keeps it until its next ReleaseCachedBlocks or its end,
  // but caches nothing more meanwhile. Safe to call from any thread.
  static void SetBlockCacheLimit(size_t bytes);
  static size_t BlockCacheLimit();
  // Frees the calling thread's cached blocks (for example when the platform
  // warns of low memory).
  static void ReleaseCachedBlocks();
};

}  // namespace _quarn_vi

#endif  // FOUNDATION_VMEM_H_
