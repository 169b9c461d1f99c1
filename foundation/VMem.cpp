#include "foundation/VMem.h"

#include <cstdlib>

namespace _quarn_vi {

namespace {

// The installed hooks; `allocate` null means the default malloc/free.
CVMemHooks g_hooks = {nullptr, nullptr, nullptr};

}  // namespace

void* CVMem::Allocate(unsigned int size, const char* file, int line) {
  if (g_hooks.allocate != nullptr) return g_hooks.allocate(size, file, line, g_hooks.context);
  return std::malloc(size);
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
  }
}

}  // namespace _quarn_vi
