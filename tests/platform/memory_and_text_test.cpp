#include "platform/global_memory.h"
#include "support/testing.h"

TEST(GlobalMemory, PlainMovableAndForeignPointersAreToldApart) {
  void* plain = GlobalAlloc(GMEM_FIXED, 10);
  void* movable = GlobalAlloc(GMEM_MOVEABLE, 10);
  int foreign = 0;
  EXPECT_EQ(GlobalLock(plain), plain);
  EXPECT_EQ(GlobalLock(movable), *static_cast<void**>(movable));
  EXPECT_EQ(GlobalLock(static_cast<char**>(movable)), GlobalLock(movable));
  EXPECT_EQ(GlobalReAlloc(movable, 20, 0), movable);
  EXPECT_EQ(GlobalReAlloc(plain, 20, 0), nullptr);
  for (void* unknown : {static_cast<void*>(&foreign), static_cast<void*>(nullptr)}) {
    EXPECT_EQ(GlobalLock(unknown), nullptr);
    GlobalFree(unknown);
  }
  GlobalFree(static_cast<char**>(plain));
  EXPECT_EQ(GlobalSize(plain), 10u) << "not freed as a handle";
  for (void* block : {plain, movable}) GlobalFree(block);
  EXPECT_EQ(GlobalSize(plain) + GlobalSize(movable), 0u);
}
