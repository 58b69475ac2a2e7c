#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <tuple>
#include <utility>

#include "platform/global_memory.h"
#include "platform/system_time.h"
#include "platform/text.h"
#include "platform/thread.h"

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

TEST(GlobalMemory, AHandleOutlivesEveryResize) {
  auto* handle = static_cast<char**>(GlobalAlloc(3));
  std::memcpy(GlobalLock(handle), "abc", 3);
  for (const std::size_t size : {100'000, 3, 0, 5}) {
    ASSERT_EQ(GlobalReAlloc(handle, size, GMEM_ZEROINIT), handle);
    EXPECT_EQ(GlobalLock(handle), *handle);
    std::string expected = size == 5 ? "" : "abc";  // it was empty in between
    expected.resize(size);
    EXPECT_TRUE(std::string(*handle, GlobalSize(handle)) == expected) << size;
  }
  GlobalReAlloc(handle, 0, 0);
  GlobalFree(static_cast<void*>(handle));
  EXPECT_NE(GlobalLock(handle), nullptr) << "a block of no bytes is left to the other form";
  GlobalFree(handle);
  EXPECT_EQ(GlobalLock(handle), nullptr);
}

TEST(Text, IsCopiedCutAndRead) {
  for (const std::size_t size : {0, 1, 3, 4, 6}) {
    char target[] = "#######";
    lstrcpyn(target, "abc", size);
    EXPECT_EQ(target + size, std::string(7 - size, '#')) << size;
    if (size == 0) continue;
    EXPECT_EQ(target, std::string("abc").substr(0, size - 1));
    EXPECT_EQ(target[size - 1], '\0');
  }
  for (const auto& [line, number] :
       {std::pair{"VmRSS:\t  1234 kB", 1234}, {"none here", 0}, {"7", 7}, {"12kB", 1}, {"", 0}}) {
    char copy[32];
    EXPECT_EQ(parseLine(lstrcpyn(copy, line, sizeof copy)), number) << line;
  }
  EXPECT_EQ(ReverseFindChar("a//b//", '/'), 5);
  EXPECT_EQ(ReverseFindChar("ab", '/'), -1);
  EXPECT_EQ(_atoi64("-9000000000x"), -9'000'000'000);
  EXPECT_GT(GetCurrentProcessVirtualMemSize(), 100'000u);
}

TEST(SystemTime, IsLocalFollowsTheZoneAndLeavesMillisecondsAlone) {
  const char* zone = std::getenv("TZ");
  const std::string before = zone != nullptr ? zone : "";
  std::time_t seconds = 951'782'399;  // a second before midnight, in Greenwich
  for (const auto& [name, day, hour] : {std::tuple{"UTC0", 28, 23}, {"EAST-2", 29, 1}}) {
    ::setenv("TZ", name, 1);
    _SYSTEMTIME time{};
    time.wDayOfWeek = time.wMilliseconds = 9;
    ConvertTimeToSystemTime(&time, seconds--);
    EXPECT_EQ(time.wYear * 100 + time.wMonth, 200'002);
    EXPECT_EQ(time.wDay, day);
    EXPECT_EQ(time.wHour, hour);
    EXPECT_EQ(time.wDayOfWeek, 0);
    EXPECT_EQ(time.wMilliseconds, 9);
  }
  zone != nullptr ? ::setenv("TZ", before.c_str(), 1) : ::unsetenv("TZ");
}
