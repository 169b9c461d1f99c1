// The block heap: blocks keep their bytes, chunks go with their last block
// wherever it is freed, and a string outlives the bundle it was copied from.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "foundation/BlockHeap.h"
#include "foundation/VBundle.h"
#include "foundation/VString.h"

namespace {

using _quarn_vi::CVBlockHeap;
using _quarn_vi::CVBundle;
using _quarn_vi::CVString;

struct Block {
  unsigned char* bytes;
  size_t size;
  unsigned char fill;
};

// Blocks of sizes from one byte to past kLargeBlockBytes, each filled with
// its own byte.
std::vector<Block> AllocateBlocks(int count) {
  std::vector<Block> blocks;
  for (int i = 0; i < count; ++i) {
    const size_t size = 1 + static_cast<size_t>(i * 37) % (CVBlockHeap::kLargeBlockBytes + 200);
    auto* bytes = static_cast<unsigned char*>(CVBlockHeap::Allocate(size));
    std::memset(bytes, i & 0xFF, size);
    blocks.push_back({bytes, size, static_cast<unsigned char>(i & 0xFF)});
  }
  return blocks;
}

// Frees the blocks after checking that each is aligned and kept its bytes.
void FreeBlocks(std::vector<Block>& blocks) {
  for (const Block& b : blocks) {
    EXPECT_EQ(reinterpret_cast<uintptr_t>(b.bytes) % CVBlockHeap::kBlockAlign, 0u);
    EXPECT_EQ(std::count(b.bytes, b.bytes + b.size, b.fill), static_cast<long>(b.size));
    CVBlockHeap::Free(b.bytes, b.size);
  }
  blocks.clear();
}

// Where the blocks of a thread are freed: by itself, by another thread while
// it still carves, or after it exited; in order or shuffled.
enum class FreedBy { kSameThread, kOtherThread, kOtherThreadAfterExit };

struct ChunkCase {
  FreedBy freed_by;
  bool shuffled;
};

class ChunkLifetime : public ::testing::TestWithParam<ChunkCase> {};

TEST_P(ChunkLifetime, ChunksGoWithTheirLastBlock) {
  const ChunkCase c = GetParam();
  CVBlockHeap::ReleaseThreadCache();
  const long baseline = CVBlockHeap::ChunkCount();
  std::vector<Block> blocks;
  auto free_all = [&] {
    if (c.shuffled) std::shuffle(blocks.begin(), blocks.end(), std::mt19937(7));
    FreeBlocks(blocks);
    CVBlockHeap::ReleaseThreadCache();
  };

  std::thread owner([&] {
    blocks = AllocateBlocks(2000);
    EXPECT_GT(CVBlockHeap::ChunkCount(), baseline + 2);
    if (c.freed_by == FreedBy::kSameThread) free_all();
    if (c.freed_by == FreedBy::kOtherThread) std::thread(free_all).join();
  });
  owner.join();
  if (c.freed_by == FreedBy::kOtherThreadAfterExit) free_all();
  EXPECT_EQ(CVBlockHeap::ChunkCount(), baseline);
}

INSTANTIATE_TEST_SUITE_P(Frees, ChunkLifetime,
                         ::testing::Values(ChunkCase{FreedBy::kSameThread, false}, ChunkCase{FreedBy::kSameThread, true},
                                           ChunkCase{FreedBy::kOtherThread, true},
                                           ChunkCase{FreedBy::kOtherThreadAfterExit, false},
                                           ChunkCase{FreedBy::kOtherThreadAfterExit, true}));

TEST(BlockHeap, AnEmptiedChunkIsCarvedAgainAndLargeBlocksTakeNone) {
  CVBlockHeap::ReleaseThreadCache();
  const long baseline = CVBlockHeap::ChunkCount();
  void* first = CVBlockHeap::Allocate(100);
  CVBlockHeap::Free(first, 100);
  void* again = CVBlockHeap::Allocate(40);
  EXPECT_EQ(again, first);
  EXPECT_EQ(CVBlockHeap::ChunkCount(), baseline + 1);
  void* large = CVBlockHeap::Allocate(CVBlockHeap::kLargeBlockBytes + 1);
  EXPECT_EQ(CVBlockHeap::ChunkCount(), baseline + 1);
  CVBlockHeap::Free(large, CVBlockHeap::kLargeBlockBytes + 1);
  CVBlockHeap::Free(again, 40);
  CVBlockHeap::ReleaseThreadCache();
  EXPECT_EQ(CVBlockHeap::ChunkCount(), baseline);
}

std::string LongText(int i) { return "a text longer than the inline capacity, number " + std::to_string(i); }

// A text copied out of a bundle shares its block: it keeps that one chunk
// (and only that one) after the bundle and the thread's cache are gone.
TEST(BlockHeap, ATextCopiedOutKeepsOnlyItsChunk) {
  CVBlockHeap::ReleaseThreadCache();
  const long baseline = CVBlockHeap::ChunkCount();
  CVString kept;
  {
    CVBundle bundle;
    for (int i = 0; i < 3000; ++i) {
      bundle.SetString(CVString(("k" + std::to_string(i)).c_str()), CVString(LongText(i).c_str()));
    }
    ASSERT_GT(CVBlockHeap::ChunkCount(), baseline + 2);
    kept = *bundle.GetString(CVString("k5"));
  }
  CVBlockHeap::ReleaseThreadCache();
  EXPECT_EQ(CVBlockHeap::ChunkCount(), baseline + 1);
  EXPECT_TRUE(kept == CVString(LongText(5).c_str()));
  kept = CVString();
  CVBlockHeap::ReleaseThreadCache();  // the dead chunk became the spare
  EXPECT_EQ(CVBlockHeap::ChunkCount(), baseline);
}

// A permanent key's block is never freed: it must not keep a chunk.
TEST(BlockHeap, APermanentKeyKeepsNoChunk) {
  CVBlockHeap::ReleaseThreadCache();
  const long baseline = CVBlockHeap::ChunkCount();
  static const CVString key("a permanent key longer than the inline text", CVString::Permanent{});
  CVBlockHeap::ReleaseThreadCache();
  EXPECT_EQ(CVBlockHeap::ChunkCount(), baseline);
  EXPECT_TRUE(key == CVString("a permanent key longer than the inline text"));
}

TEST(BlockHeap, EveryBlockFromOperatorNewOnlyBeforeTheFirstChunk) {
  CVBlockHeap::Free(CVBlockHeap::Allocate(8), 8);  // a chunk exists now
  EXPECT_FALSE(CVBlockHeap::TakeEveryBlockFromOperatorNew());
}

}  // namespace
