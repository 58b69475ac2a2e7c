#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <string>
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
    void* block;
    void* locked;
    std::size_t size;
  } cases[] = {{plain, plain, 10},
               {movable, *static_cast<char**>(movable), 10},
               {&foreign, nullptr, 0},
               {static_cast<char*>(plain) + 1, nullptr, 0},
               {nullptr, nullptr, 0}};
  for (const auto& c : cases) {
    EXPECT_EQ(GlobalLock(c.block), c.locked);
    EXPECT_EQ(GlobalUnlock(c.block), 1);
    EXPECT_EQ(GlobalSize(c.block), c.size);
    EXPECT_EQ(GlobalReAlloc(c.block, 20, 0), c.block == movable ? movable : nullptr);
  }
  EXPECT_EQ(std::count(static_cast<char*>(plain), static_cast<char*>(plain) + 10, 0), 10);
  EXPECT_EQ(GlobalLock(static_cast<char**>(plain)), nullptr) << "no handle";
  GlobalFree(static_cast<char**>(plain));
  EXPECT_EQ(GlobalSize(plain), 10u) << "nor freed as one";
  GlobalFree(plain);
  GlobalFree(movable);
  GlobalFree(static_cast<void*>(&foreign));
  EXPECT_EQ(GlobalSize(plain) + GlobalSize(movable), 0u);
}

TEST(GlobalMemory, AHandleOutlivesEveryResize) {
  auto* handle = static_cast<char**>(GlobalAlloc(3));
  std::memcpy(GlobalLock(handle), "abc", 3);
  for (const std::size_t size : {100'000, 3, 0, 5}) {
    ASSERT_EQ(GlobalReAlloc(handle, size, GMEM_ZEROINIT), handle);
    EXPECT_EQ(GlobalSize(handle), size);
    ASSERT_NE(*handle, nullptr);
    EXPECT_EQ(GlobalLock(handle), *handle);
    std::string expected = size == 5 ? "" : "abc";  // it was empty in between
    expected.resize(size);
    EXPECT_TRUE(std::string(*handle, size) == expected) << size;
  }
  GlobalReAlloc(handle, 0, 0);
  GlobalFree(static_cast<void*>(handle));
  EXPECT_NE(GlobalLock(handle), nullptr) << "a block of no bytes is left to the other form";
  GlobalFree(handle);
  EXPECT_EQ(GlobalLock(handle), nullptr);
}

TEST(Text, CopiesAreCutAndEnded) {
  // What lies between the copy's own NUL and the last byte is nobody's business.
  for (const std::size_t size : {0, 1, 3, 4, 6}) {
    char target[] = "#######";
    EXPECT_EQ(lstrcpyn(target, "abc", size), target);
    if (size > 0) {
      EXPECT_EQ(target, std::string("abc").substr(0, size - 1));
      EXPECT_EQ(target[size - 1], '\0');
    }
    EXPECT_EQ(target + size, std::string(7 - size, '#')) << size;
  }
}

TEST(Text, SmallHelpers) {
  const struct {
    const char *text, *trimmed;
    int last;
  } cases[] = {{"a//b//", "a//b", 5}, {"////", "", 3}, {"ab", "ab", -1}, {"", "", -1}};
  for (const auto& c : cases) {
    char text[16];
    lstrcpyn(text, c.text, sizeof text);
    EXPECT_EQ(ReverseFindChar(text, '/'), c.last);
    TrimRight(text, '/');
    EXPECT_STREQ(text, c.trimmed);
  }
  for (const auto& [line, number] :
       {std::pair{"VmRSS:\t  1234 kB", 1234}, {"none here", 0}, {"7", 7}, {"12kB", 1}, {"", 0}}) {
    char copy[32];
    EXPECT_EQ(parseLine(lstrcpyn(copy, line, sizeof copy)), number) << line;
  }
  unsigned char bytes[8];
  EXPECT_EQ(strlen(strcpy(bytes, "12345")), 5u);
  EXPECT_EQ(_atoi64("-9000000000x"), -9'000'000'000);
  EXPECT_GT(GetCurrentProcessVirtualMemSize(), 100'000u);
}

TEST(SystemTime, IsLocalAndLeavesMillisecondsAlone) {
  const std::time_t seconds = 951'782'399;
  std::tm local{};
  ::localtime_r(&seconds, &local);
  _SYSTEMTIME time{};
  time.wDayOfWeek = time.wMilliseconds = 9;
  ConvertTimeToSystemTime(&time, seconds);
  EXPECT_EQ(time.wYear, 2000);
  EXPECT_EQ(time.wMonth, local.tm_mon + 1);
  EXPECT_EQ(time.wHour, local.tm_hour);
  EXPECT_EQ(time.wDayOfWeek, 0);
  EXPECT_EQ(time.wMilliseconds, 9);
}
