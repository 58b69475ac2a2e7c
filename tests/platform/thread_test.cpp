#include "platform/thread.h"

#include <dlfcn.h>
#include <unistd.h>

#include <csignal>
#include <cstring>

#include "support/testing.h"

namespace {

struct Seen {
  std::atomic<bool> started{false}, wentOn{false};
  DWORD thread = 0, again = 0;
};

void* Look(void* argument) {
  auto* seen = static_cast<Seen*>(argument);
  seen->thread = GetCurrentThreadId();
  seen->again = GetCurrentThreadId();
  seen->started = true;
  return nullptr;
}

void* EndEarly(void* argument) {
  Look(argument);
  endthread(3);
  static_cast<Seen*>(argument)->wentOn = true;
}

// A cancelled thread leaves marks of the sanitizer's on its stack, unless it has none.
__attribute__((no_sanitize("address"))) void* WaitForCancel(void* argument) {
  static_cast<Seen*>(argument)->started = true;
  while (true) ::pause();
}

}  // namespace

TEST(Threads, RunAndAreJoined) {
  for (const ThreadStart start : {&Look, &EndEarly}) {
    pthread_t cell;
    for (const ThreadHandle given : {static_cast<ThreadHandle>(nullptr), &cell}) {
      Seen seen;
      const ThreadHandle handle = CreateThread(nullptr, 0, start, &seen, 0, nullptr, given);
      ASSERT_NE(handle, nullptr);
      EXPECT_TRUE(given == nullptr || handle == given);
      EXPECT_EQ(WaitForThread(handle, INFINITE), 0);
      EXPECT_TRUE(seen.started) << "not waited for";
      EXPECT_FALSE(seen.wentOn);
      EXPECT_NE(seen.thread, GetCurrentThreadId()) << "each has a number of its own";
      EXPECT_EQ(seen.thread, seen.again);
      if (given == nullptr) CloseThread(handle);
    }
  }
  CloseThread(nullptr);
}

TEST(Threads, AreCancelledByALimitedWaitAndByTermination) {
  for (const bool terminate : {false, true}) {
    Seen seen;
    pthread_t cell;
    ASSERT_NE(CreateThread(nullptr, 0, &WaitForCancel, &seen, 0, nullptr, &cell), nullptr);
    EXPECT_TRUE(WaitUntil([&] { return seen.started.load(); }));
    if (terminate) {
      EXPECT_EQ(TerminateThread(&cell, 1), 1);
    }
    EXPECT_EQ(WaitForThread(&cell, terminate ? INFINITE : 1000), 0);
  }
  EXPECT_EQ(WaitForThread(nullptr, INFINITE), -1);
  EXPECT_EQ(TerminateThread(nullptr, 1), 0);
}

TEST(Processes, TellAboutThemselves) {
  EXPECT_EQ(GetCurrentProcessId(), static_cast<DWORD>(::getpid()));
  EXPECT_EQ(GetCurrentProcess(), nullptr);
  char login[1024] = "untouched";
  if (GetLoginUser(login) == 0) {
    EXPECT_STREQ(login, "untouched");
  } else {
    EXPECT_STRNE(login, "untouched");
  }
  constexpr std::size_t kBytes = 64 * 1024 * 1024;
  const std::uint64_t before = GetCurrentProcessVirtualMemSize();
  const std::string touched(kBytes, 'x');
  EXPECT_GT(GetCurrentProcessVirtualMemSize(), before + kBytes / 2) << touched.size();
  for (const auto& [line, number] : Table<std::string, int>{{"VmRSS:\t    1234 kB", 1234},
                                                            {"Rss: 7 kB", 7},
                                                            {"no number", 0},
                                                            {"12", 12},
                                                            {"", 0}}) {
    std::string text = line;
    EXPECT_EQ(parseLine(text.data()), number) << line;
    EXPECT_EQ(std::strlen(text.c_str()), line.size() - (line.size() < 3 ? 0 : 3)) << line;
  }
}

TEST(Processes, TerminateAlwaysKillsTheCaller) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(TerminateProcess(nullptr, 0), testing::KilledBySignal(SIGKILL), "");
}

TEST(Libraries, AreLoadedWholeOrNotAtAll) {
  Dl_info info{};
  ASSERT_NE(::dladdr(::dlsym(RTLD_NEXT, "getpid"), &info), 0);
  void* library = LoadLibrary(info.dli_fname);
  ASSERT_NE(library, nullptr) << info.dli_fname;
  EXPECT_EQ(GetProcAddress(library, "getpid"), info.dli_saddr);
  EXPECT_EQ(GetProcAddress(library, "no such symbol"), nullptr);
  FreeLibrary(library);
  ::dlerror();
  for (const char* path : {"/nowhere/lib.so", static_cast<const char*>(nullptr)}) {
    EXPECT_EQ(LoadLibrary(path), nullptr);
    EXPECT_EQ(::dlerror(), nullptr) << "an error text is left for somebody else to find";
  }
  EXPECT_EQ(GetProcAddress(nullptr, "getpid"), nullptr);
  FreeLibrary(nullptr);
}
