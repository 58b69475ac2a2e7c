#include "platform/global_memory.h"

#include <cstring>

#include "support/testing.h"

namespace {

char* BytesOf(void* block) { return static_cast<char*>(GlobalLock(block)); }

}  // namespace

TEST(GlobalMemory, KnowsPlainAndMovableBlocks) {
  for (const auto& [flags, size, movable] :
       Table<unsigned int, std::size_t, bool>{{GMEM_FIXED, 10, false},
                                              {GMEM_ZEROINIT, 10, false},
                                              {GMEM_MOVEABLE, 10, true},
                                              {GMEM_MOVEABLE | GMEM_ZEROINIT, 4096, true},
                                              {GMEM_MOVEABLE, 0, true}}) {
    void* block = GlobalAlloc(flags, size);
    ASSERT_NE(block, nullptr);
    char* bytes = BytesOf(block);
    ASSERT_NE(bytes, nullptr);
    EXPECT_EQ(bytes == block, !movable);
    EXPECT_EQ(GlobalLock(static_cast<char**>(block)), movable ? bytes : nullptr);
    EXPECT_TRUE(!movable || *static_cast<char**>(block) == bytes);
    EXPECT_EQ(GlobalSize(block), size);
    const bool isZeroed = std::string(bytes, size) == std::string(size, '\0');
    EXPECT_TRUE(isZeroed || (flags & GMEM_ZEROINIT) == 0);
    std::memset(bytes, 'x', size);
    EXPECT_EQ(GlobalUnlock(block), 1);
    EXPECT_EQ(GlobalFlags(block), 0u);

    GlobalFree(block);
    EXPECT_EQ(GlobalLock(block) == nullptr, size > 0) << "a block of no bytes stays";
    if (size == 0) GlobalFree(static_cast<char**>(block));
    EXPECT_EQ(GlobalLock(block), nullptr);
  }
  void* zeroed = GlobalAlloc(std::size_t{3});
  EXPECT_EQ(std::string(GlobalLock(static_cast<char**>(zeroed)), 3), std::string(3, '\0'));
  GlobalFree(zeroed);
}

TEST(GlobalMemory, ResizesMovableBlocksUnderTheirHandle) {
  void* handle = GlobalAlloc(GMEM_MOVEABLE, 4);
  std::memcpy(BytesOf(handle), "abcd", 4);
  const Table<std::size_t, std::string> steps{
      {100'000, "abcd" + std::string(99'996, '\0')}, {2, "ab"}, {5, std::string("ab\0\0\0", 5)}};
  for (const auto& [size, content] : steps) {
    EXPECT_EQ(GlobalReAlloc(handle, size, GMEM_MOVEABLE | GMEM_ZEROINIT), handle);
    EXPECT_EQ(GlobalSize(handle), size);
    EXPECT_EQ(std::string(BytesOf(handle), size), content);
    EXPECT_EQ(*static_cast<char**>(handle), BytesOf(handle));
  }
  GlobalFree(static_cast<char**>(handle));
  EXPECT_EQ(GlobalSize(handle), 0u);
}

TEST(GlobalMemory, LeavesWhatIsNoBlockAlone) {
  char own[8] = "own";
  void* plain = GlobalAlloc(GMEM_FIXED, 8);
  for (void* other : {static_cast<void*>(own), static_cast<void*>(nullptr),
                      static_cast<void*>(static_cast<char*>(plain) + 1)}) {
    EXPECT_EQ(GlobalLock(other), nullptr);
    EXPECT_EQ(GlobalLock(static_cast<char**>(other)), nullptr);
    EXPECT_EQ(GlobalSize(other), 0u);
    EXPECT_EQ(GlobalReAlloc(other, 16, 0), nullptr);
    GlobalFree(other);
    GlobalFree(static_cast<char**>(other));
  }
  EXPECT_EQ(GlobalReAlloc(plain, 16, GMEM_MOVEABLE), nullptr) << "a plain block does not move";
  GlobalFree(static_cast<char**>(plain));
  EXPECT_EQ(GlobalSize(plain), 8u) << "a plain block has no handle to be freed by";
  GlobalFree(plain);
}
