#include <gtest/gtest.h>

#include <algorithm>

#include "platform/global_memory.h"

TEST(GlobalMemory, PlainMovableAndForeignPointersAreToldApart) {
  void* plain = GlobalAlloc(GMEM_FIXED | GMEM_ZEROINIT, 10);
  void* movable = GlobalAlloc(GMEM_MOVEABLE, 10);
  int foreign = 0;
  const struct {
    void *block, *locked;
    std::size_t size;
  } cases[] = {{plain, plain, 10},
               {movable, *static_cast<char**>(movable), 10},
               {static_cast<char*>(plain) + 1, nullptr, 0},
               {&foreign, nullptr, 0},
               {nullptr, nullptr, 0}};
  for (const auto& c : cases) {
    EXPECT_EQ(GlobalLock(c.block), c.locked);
    EXPECT_EQ(GlobalSize(c.block), c.size);
    EXPECT_EQ(GlobalReAlloc(c.block, 20, 0), c.block == movable ? movable : nullptr);
  }
  EXPECT_EQ(std::count(static_cast<char*>(plain), static_cast<char*>(plain) + 10, 0), 10);
  GlobalFree(static_cast<char**>(plain));
  EXPECT_EQ(GlobalSize(plain), 10u) << "not freed as a handle";
  for (void* block : {plain, movable, static_cast<void*>(&foreign)}) GlobalFree(block);
  EXPECT_EQ(GlobalSize(plain) + GlobalSize(movable), 0u);
}
