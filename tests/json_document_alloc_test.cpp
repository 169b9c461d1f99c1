// A warm document parses a strict text without a heap allocation: every
// form of operator new is replaced by a counting one (simdjson and the
// document allocate through them).
#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <string>

#include "TestSupport.h"
#include "json_readers/JsonDocument.h"

namespace {
long g_allocations = 0;

void* Counted(size_t size, size_t alignment) {
  ++g_allocations;
  if (size == 0) size = 1;
  if (alignment <= alignof(std::max_align_t)) return std::malloc(size);
  return std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment);
}
}  // namespace

void* operator new(size_t size) {
  void* p = Counted(size, 0);
  if (p == nullptr) throw std::bad_alloc();
  return p;
}
void* operator new[](size_t size) { return operator new(size); }
void* operator new(size_t size, const std::nothrow_t&) noexcept { return Counted(size, 0); }
void* operator new[](size_t size, const std::nothrow_t&) noexcept { return Counted(size, 0); }
void* operator new(size_t size, std::align_val_t alignment) {
  void* p = Counted(size, static_cast<size_t>(alignment));
  if (p == nullptr) throw std::bad_alloc();
  return p;
}
void* operator new[](size_t size, std::align_val_t alignment) { return operator new(size, alignment); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, size_t) noexcept { std::free(p); }
void operator delete[](void* p, size_t) noexcept { std::free(p); }
void operator delete(void* p, std::align_val_t) noexcept { std::free(p); }
void operator delete[](void* p, std::align_val_t) noexcept { std::free(p); }
void operator delete(void* p, size_t, std::align_val_t) noexcept { std::free(p); }
void operator delete[](void* p, size_t, std::align_val_t) noexcept { std::free(p); }

namespace {

TEST(JsonDocumentAllocations, AWarmDocumentParsesWithoutAllocating) {
  if (!_quarn_framework::CJsonDocument::UsesSimdjson()) GTEST_SKIP() << "built on cJSON alone";
  std::vector<std::string> texts;
  for (const std::string& name : testing_support::ExampleNames()) {
    texts.push_back(testing_support::ReadExample(name));
  }
  _quarn_framework::CJsonDocument document;
  for (const std::string& text : texts) document.Parse(text.data(), text.size());  // warm
  const long before = g_allocations;
  for (int round = 0; round < 3; ++round) {
    for (const std::string& text : texts) {
      ASSERT_NE(document.Parse(text.data(), text.size()), nullptr);
      ASSERT_TRUE(document.TreeIsOwn());
    }
  }
  EXPECT_EQ(g_allocations, before);
}

}  // namespace
