#include "foundation/BlockCache.h"

#include <atomic>
#include <new>

#include "foundation/VMem.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define BLOCKCACHE_ASAN 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__)
#define BLOCKCACHE_ASAN 1
#endif
#if defined(BLOCKCACHE_ASAN)
#include <sanitizer/asan_interface.h>
#endif

#if defined(__GNUC__)
#define BLOCKCACHE_NOINLINE __attribute__((noinline))
#else
#define BLOCKCACHE_NOINLINE
#endif

namespace _quarn_vi {
namespace block_cache {
namespace {

// Size classes of 16 bytes, each rounded to the usable size of a 64-bit
// malloc chunk (16n - 8), so that a cached block wastes nothing malloc would
// not: class c holds blocks of ClassBytes(c) bytes. Blocks of more than
// ClassBytes(kClasses) bytes are not cached.
constexpr size_t kClasses = 128;  // up to 2,040 bytes: a POI's place record is 1,228
constexpr size_t ClassOf(size_t bytes) { return (bytes + 23) >> 4; }
constexpr size_t ClassBytes(size_t c) { return (c << 4) - 8; }
static_assert(ClassBytes(ClassOf(1)) >= sizeof(void*), "a cached block holds its link");

std::atomic<size_t> g_limit{CVMem::kDefaultBlockCacheLimit};

enum State : unsigned char { kFresh, kOpen, kClosed };

// One thread's cache. Constant-initialised and trivially destructible, so it
// is never destroyed: it stays usable while the thread's thread_local objects
// are destroyed, in any order, and records there that the cache was closed.
struct ThreadCache {
  void* heads[kClasses + 1];  // freed blocks of each class, linked through their first word
  size_t bytes;               // bytes held in all classes
  State state;
};
thread_local ThreadCache t_cache;

// A cached block is poisoned for AddressSanitizer, so that a use after free
// is reported as it would be without the cache.
inline void Poison(void* block, size_t bytes) {
#if defined(BLOCKCACHE_ASAN)
  ASAN_POISON_MEMORY_REGION(block, bytes);
#else
  (void)block;
  (void)bytes;
#endif
}
inline void Unpoison(void* block, size_t bytes) {
#if defined(BLOCKCACHE_ASAN)
  ASAN_UNPOISON_MEMORY_REGION(block, bytes);
#else
  (void)block;
  (void)bytes;
#endif
}

void Push(ThreadCache& cache, void* block, size_t c) {
  *static_cast<void**>(block) = cache.heads[c];
  cache.heads[c] = block;
  cache.bytes += ClassBytes(c);
  Poison(block, ClassBytes(c));
}

void Empty(ThreadCache& cache) noexcept {
  for (size_t c = 1; c <= kClasses; ++c) {
    void* block = cache.heads[c];
    while (block != nullptr) {
      Unpoison(block, ClassBytes(c));
      void* next = *static_cast<void**>(block);
      ::operator delete(block);
      block = next;
    }
    cache.heads[c] = nullptr;
  }
  cache.bytes = 0;
}

// Empties the thread's cache when the thread ends (or, for the main thread,
// at exit) and closes it: later frees go straight to operator delete.
struct Closer {
  ~Closer() {
    Empty(t_cache);
    t_cache.state = kClosed;
  }
};

// The first free of a thread opens its cache, registering the Closer.
BLOCKCACHE_NOINLINE bool Open(ThreadCache& cache) noexcept {
  static thread_local Closer closer;
  (void)closer;
  cache.state = kOpen;
  return true;
}

}  // namespace

void* Allocate(size_t bytes) {
  const size_t c = ClassOf(bytes);
  if (c > kClasses) return ::operator new(bytes);
  ThreadCache& cache = t_cache;
  void* block = cache.heads[c];
  if (block == nullptr) return ::operator new(ClassBytes(c));
  Unpoison(block, ClassBytes(c));
  cache.heads[c] = *static_cast<void**>(block);
  cache.bytes -= ClassBytes(c);
  return block;
}

void Free(void* block, size_t bytes) noexcept {
  const size_t c = ClassOf(bytes);
  if (c <= kClasses) {
    ThreadCache& cache = t_cache;
    if (cache.bytes + ClassBytes(c) <= g_limit.load(std::memory_order_relaxed) &&
        (cache.state == kOpen || (cache.state == kFresh && Open(cache)))) {
      Push(cache, block, c);
      return;
    }
  }
  ::operator delete(block);
}

}  // namespace block_cache

void CVMem::SetBlockCacheLimit(size_t bytes) { block_cache::g_limit.store(bytes, std::memory_order_relaxed); }

size_t CVMem::BlockCacheLimit() { return block_cache::g_limit.load(std::memory_order_relaxed); }

void CVMem::ReleaseCachedBlocks() { block_cache::Empty(block_cache::t_cache); }

}  // namespace _quarn_vi
