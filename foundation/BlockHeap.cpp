#include "foundation/BlockHeap.h"

#include <atomic>
#include <cstdint>
#include <new>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#define POIPARSER_POISON(p, n) ASAN_POISON_MEMORY_REGION(p, n)
#define POIPARSER_UNPOISON(p, n) ASAN_UNPOISON_MEMORY_REGION(p, n)
#else
#define POIPARSER_POISON(p, n) ((void)(p), (void)(n))
#define POIPARSER_UNPOISON(p, n) ((void)(p), (void)(n))
#endif

namespace _quarn_vi {

namespace {

// A chunk's header: how many of its blocks live. While a thread carves from
// the chunk the count carries a bias, so that frees by other threads, which
// only decrement, cannot reach zero before the thread retires the chunk and
// takes the bias back, less the blocks still alive by its own counts. Those
// counts (blocks carved, and blocks it freed itself meanwhile) stay
// thread-local, so carving, and freeing into the chunk being carved, cost no
// atomic read-modify-write.
struct alignas(64) Chunk {
  std::atomic<int64_t> live;
};

constexpr int64_t kBias = int64_t{1} << 40;
constexpr size_t kFirstBlock = sizeof(Chunk);
static_assert(kFirstBlock % CVBlockHeap::kBlockAlign == 0, "blocks start aligned");
static_assert(CVBlockHeap::kLargeBlockBytes <= CVBlockHeap::kChunkBytes - kFirstBlock,
              "a small block fits an empty chunk");

std::atomic<long> g_chunks{0};
std::atomic<bool> g_chunk_made{false};
std::atomic<bool> g_every_block_from_new{false};

size_t Rounded(size_t bytes) { return (bytes + CVBlockHeap::kBlockAlign - 1) & ~(CVBlockHeap::kBlockAlign - 1); }

bool FromOperatorNew(size_t bytes) {
  return bytes > CVBlockHeap::kLargeBlockBytes || g_every_block_from_new.load(std::memory_order_relaxed);
}

Chunk* ChunkOf(void* block) {
  return reinterpret_cast<Chunk*>(reinterpret_cast<uintptr_t>(block) & ~(CVBlockHeap::kChunkBytes - 1));
}

char* FirstBlock(Chunk* chunk) { return reinterpret_cast<char*>(chunk) + kFirstBlock; }

Chunk* NewChunk() {
  void* memory = ::operator new(CVBlockHeap::kChunkBytes, std::align_val_t{CVBlockHeap::kChunkBytes});
  g_chunks.fetch_add(1, std::memory_order_relaxed);
  g_chunk_made.store(true, std::memory_order_relaxed);
  Chunk* chunk = new (memory) Chunk{{kBias}};
  POIPARSER_POISON(FirstBlock(chunk), CVBlockHeap::kChunkBytes - kFirstBlock);
  return chunk;
}

void DeleteChunk(Chunk* chunk) noexcept {
  g_chunks.fetch_sub(1, std::memory_order_relaxed);
  chunk->~Chunk();
  POIPARSER_UNPOISON(chunk, CVBlockHeap::kChunkBytes);
  ::operator delete(chunk, std::align_val_t{CVBlockHeap::kChunkBytes});
}

struct ThreadCache {
  Chunk* chunk = nullptr;  // the chunk being carved, holding the bias
  char* next = nullptr;
  char* end = nullptr;
  int64_t carved = 0;      // blocks carved from `chunk`
  int64_t freed = 0;       // of those, freed by this thread
  Chunk* spare = nullptr;  // an empty chunk kept for the next refill
  bool closed = false;     // the thread is exiting: keep nothing

  ~ThreadCache() {
    Release();
    closed = true;
  }

  void* Carve(size_t bytes) {
    void* block = next;
    next += bytes;
    ++carved;
    POIPARSER_UNPOISON(block, bytes);
    return block;
  }

  void* CarveFromNewChunk(size_t bytes) {
    Refill();
    void* block = Carve(bytes);
    // Blocks made while the thread exits (by later destructors) get a chunk
    // each, which nothing would ever retire otherwise.
    if (closed) Retire();
    return block;
  }

  void Refill() {
    Chunk* fresh = spare != nullptr ? spare : NewChunk();
    spare = nullptr;
    Retire();
    chunk = fresh;
    chunk->live.store(kBias, std::memory_order_relaxed);
    next = FirstBlock(chunk);
    end = reinterpret_cast<char*>(chunk) + CVBlockHeap::kChunkBytes;
    carved = freed = 0;
  }

  // Hands the current chunk over to its blocks: the last one to die frees it.
  void Retire() noexcept {
    if (chunk == nullptr) return;
    int64_t unheld = kBias - carved + freed;
    if (chunk->live.fetch_sub(unheld, std::memory_order_acq_rel) == unheld) Drop(chunk);
    chunk = nullptr;
    next = end = nullptr;
    carved = freed = 0;
  }

  // Frees a block of the current chunk. Once every carved block is dead
  // (none can be in another thread's hands then), carving starts again from
  // the chunk's start, where the cache is warm.
  void FreeOwn() noexcept {
    ++freed;
    int64_t freed_elsewhere = kBias - chunk->live.load(std::memory_order_acquire);
    if (freed + freed_elsewhere == carved) {
      chunk->live.store(kBias, std::memory_order_relaxed);
      next = FirstBlock(chunk);
      carved = freed = 0;
    }
  }

  // A chunk whose blocks are all dead: keep one as the spare.
  void Drop(Chunk* dead) noexcept {
    if (spare == nullptr && !closed) {
      spare = dead;
    } else {
      DeleteChunk(dead);
    }
  }

  void Release() noexcept {
    Retire();
    if (spare != nullptr) DeleteChunk(spare);
    spare = nullptr;
  }
};

thread_local ThreadCache t_cache;

}  // namespace

void* CVBlockHeap::Allocate(size_t bytes) {
  if (FromOperatorNew(bytes)) return ::operator new(bytes);
  bytes = Rounded(bytes);
  ThreadCache& cache = t_cache;
  if (static_cast<size_t>(cache.end - cache.next) < bytes) return cache.CarveFromNewChunk(bytes);
  return cache.Carve(bytes);
}

void CVBlockHeap::Free(void* block, size_t bytes) noexcept {
  if (block == nullptr) return;
  if (FromOperatorNew(bytes)) {
    ::operator delete(block);
    return;
  }
  POIPARSER_POISON(block, Rounded(bytes));
  Chunk* chunk = ChunkOf(block);
  ThreadCache& cache = t_cache;
  if (chunk == cache.chunk) {
    cache.FreeOwn();
  } else if (chunk->live.fetch_sub(1, std::memory_order_acq_rel) == 1) {
    cache.Drop(chunk);  // retired, and this was its last block
  }
}

void CVBlockHeap::ReleaseThreadCache() noexcept { t_cache.Release(); }

long CVBlockHeap::ChunkCount() noexcept { return g_chunks.load(std::memory_order_relaxed); }

bool CVBlockHeap::TakeEveryBlockFromOperatorNew() noexcept {
  // Once a chunk was made, blocks may live in chunks, and Free must go on
  // telling them from operator new's by size.
  if (g_chunk_made.load(std::memory_order_relaxed)) return false;
  g_every_block_from_new.store(true, std::memory_order_relaxed);
  return true;
}

}  // namespace _quarn_vi
