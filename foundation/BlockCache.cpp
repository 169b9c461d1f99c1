#include "foundation/BlockCache.h"

#include <atomic>
#include <cstdlib>
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
// From the sanitizer runtime (g++ ships no header declaring it).
extern "C" size_t __sanitizer_get_allocated_size(const volatile void* block);
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
static_assert(ClassOf(kMaxArrayBlock) <= kClasses, "array blocks have classes");

std::atomic<size_t> g_limit{CVMem::kDefaultBlockCacheLimit};

enum State : unsigned char { kFresh, kOpen, kClosed };

// One thread's cache. Constant-initialised and trivially destructible, so it
// is never destroyed: it stays usable while the thread's thread_local objects
// are destroyed, in any order, and records there that the cache was closed.
// Blocks from operator new and from malloc are kept apart: each goes back
// to the function it came from.
enum Kind { kNew, kMalloc, kKinds };

struct ThreadCache {
  void* heads[kKinds][kClasses + 1];  // freed blocks of each kind and class, linked through their first word
  size_t bytes;                       // bytes held in all classes
  State state;
};
thread_local ThreadCache t_cache;

// A cached block is poisoned for AddressSanitizer, so that a use after free
// is reported as it would be without the cache; taken again, it is
// unpoisoned only as far as its allocation goes, so that a block too small
// for its class would be reported too. The link word stays readable: the
// leak checker ignores pointers held in poisoned memory, and would report
// every block behind the first of a class as leaked.
inline void Poison(void* block, size_t bytes) {
#if defined(BLOCKCACHE_ASAN)
  ASAN_POISON_MEMORY_REGION(static_cast<char*>(block) + sizeof(void*), bytes - sizeof(void*));
#else
  (void)block;
  (void)bytes;
#endif
}
inline void Unpoison(void* block, size_t bytes) {
#if defined(BLOCKCACHE_ASAN)
  const size_t allocated = __sanitizer_get_allocated_size(block);
  ASAN_UNPOISON_MEMORY_REGION(block, allocated < bytes ? allocated : bytes);
#else
  (void)block;
  (void)bytes;
#endif
}

void Empty(ThreadCache& cache) noexcept {
  for (int kind = 0; kind < kKinds; ++kind) {
    for (size_t c = 1; c <= kClasses; ++c) {
      void* block = cache.heads[kind][c];
      while (block != nullptr) {
        Unpoison(block, ClassBytes(c));
        void* next = *static_cast<void**>(block);
        if (kind == kNew) {
          ::operator delete(block);
        } else {
          std::free(block);
        }
        block = next;
      }
      cache.heads[kind][c] = nullptr;
    }
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

// A cached block of class c, or null.
inline void* Pop(ThreadCache& cache, Kind kind, size_t c) {
  void* block = cache.heads[kind][c];
  if (block == nullptr) return nullptr;
  Unpoison(block, ClassBytes(c));
  cache.heads[kind][c] = *static_cast<void**>(block);
  cache.bytes -= ClassBytes(c);
  return block;
}

// Keeps a block of class c if the cache has room; false otherwise.
inline bool Push(ThreadCache& cache, Kind kind, void* block, size_t c) {
  if (cache.bytes + ClassBytes(c) > g_limit.load(std::memory_order_relaxed)) return false;
  if (cache.state != kOpen && !(cache.state == kFresh && Open(cache))) return false;
  *static_cast<void**>(block) = cache.heads[kind][c];
  cache.heads[kind][c] = block;
  cache.bytes += ClassBytes(c);
  Poison(block, ClassBytes(c));
  return true;
}

}  // namespace

void* Allocate(size_t bytes) {
  const size_t c = ClassOf(bytes);
  if (c > kClasses) return ::operator new(bytes);
  void* block = Pop(t_cache, kNew, c);
  return block != nullptr ? block : ::operator new(ClassBytes(c));
}

void Free(void* block, size_t bytes) noexcept {
  const size_t c = ClassOf(bytes);
  if (c > kClasses || !Push(t_cache, kNew, block, c)) ::operator delete(block);
}

void* AllocateArray(size_t bytes) noexcept {
  if (bytes > kMaxArrayBlock) return std::malloc(bytes);
  const size_t c = ClassOf(bytes);
  void* block = Pop(t_cache, kMalloc, c);
  return block != nullptr ? block : std::malloc(ClassBytes(c));
}

void FreeArray(void* block, size_t bytes) noexcept {
  if (bytes > kMaxArrayBlock || !Push(t_cache, kMalloc, block, ClassOf(bytes))) std::free(block);
}

}  // namespace block_cache

void CVMem::SetBlockCacheLimit(size_t bytes) { block_cache::g_limit.store(bytes, std::memory_order_relaxed); }

size_t CVMem::BlockCacheLimit() { return block_cache::g_limit.load(std::memory_order_relaxed); }

void CVMem::ReleaseCachedBlocks() { block_cache::Empty(block_cache::t_cache); }

}  // namespace _quarn_vi
