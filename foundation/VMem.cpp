#include "foundation/VMem.h"

#include <cstdlib>

#include "foundation/BlockCache.h"

namespace _quarn_vi {

namespace {

// The installed hooks; `allocate` null means the default malloc/free.
CVMemHooks g_hooks = {nullptr, nullptr, nullptr};
// Set for good by the first SetHooks with hooks: from then on the default
// allocator caches nothing, since a block that hooks made (of exactly its
// requested size) may come back to it, and a cached block must have the room
// of its size class.
bool g_hooks_seen = false;

}  // namespace

void* CVMem::Allocate(unsigned int size, const char* file, int line) {
  if (g_hooks.allocate != nullptr) return g_hooks.allocate(size, file, line, g_hooks.context);
  if (g_hooks_seen || size == 0) return std::malloc(size);
  return block_cache::AllocateArray(size);
}

void CVMem::Deallocate(void* block, unsigned int size) {
  if (block == nullptr) return;
  if (g_hooks.deallocate != nullptr) {
    g_hooks.deallocate(block, g_hooks.context);
  } else if (g_hooks_seen || size == 0) {
    std::free(block);
  } else {
    block_cache::FreeArray(block, size);
  }
}

void CVMem::Deallocate(void* block) {
  if (block == nullptr) return;
  if (g_hooks.deallocate != nullptr) {
    g_hooks.deallocate(block, g_hooks.context);
    return;
  }
  std::free(block);
}

bool CVMem::HasHooks() { return g_hooks.allocate != nullptr; }

void* CVMem::Reallocate(void* block, unsigned int size) { return std::realloc(block, size == 0 ? 1 : size); }

void CVMem::SetHooks(const CVMemHooks* hooks) {
  if (hooks == nullptr || hooks->allocate == nullptr || hooks->deallocate == nullptr) {
    g_hooks = CVMemHooks{nullptr, nullptr, nullptr};
  } else {
    g_hooks = *hooks;
    g_hooks_seen = true;
  }
}

}  // namespace _quarn_vi
