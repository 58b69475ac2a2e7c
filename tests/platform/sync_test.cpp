#include "platform/sync.h"

#include <semaphore.h>
#include <unistd.h>

#include <algorithm>
#include <future>

#include "os/system.h"
#include "platform/system_time.h"
#include "support/testing.h"

namespace {

/// A name of this process's own, with room for something behind it.
std::string Name(const std::string& text) { return "/qvt" + std::to_string(::getpid()) + text; }

}  // namespace

TEST(Sync, EventsLetThroughWhatTheyWereSetFor) {
  EventHandle once = CreateEvent(nullptr, 0, 0, nullptr);
  ASSERT_NE(once, nullptr);
  const DWORD start = GetTickCount();
  EXPECT_EQ(WaitForEvent(once, 4295), WAIT_TIMEOUT);
  EXPECT_LT(GetTickCount() - start, 2000u) << "the budget wraps in 32 bits of nanoseconds";
  EXPECT_EQ(SetEvent(once) + SetEvent(once), 2);
  EXPECT_EQ(WaitForEvent(once, 0), WAIT_TIMEOUT) << "no time, no try";
  EXPECT_EQ(WaitForEvent(once, 10), WAIT_OBJECT_0);
  EXPECT_EQ(WaitForEvent(once, INFINITE), WAIT_OBJECT_0);
  EXPECT_EQ(WaitForEvent(once, 1), WAIT_TIMEOUT);
  CloseEvent(once);

  EventHandle manual = CreateEvent(nullptr, 1, 1, nullptr);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(WaitForEvent(manual, 10), WAIT_OBJECT_0);
  SetEvent(manual);
  EXPECT_EQ(ResetEvent(manual), 1);
  EXPECT_EQ(WaitForEvent(manual, 1), WAIT_TIMEOUT) << "a reset takes all counts";
  CloseEvent(manual);

  EXPECT_EQ(WaitForEvent(nullptr, INFINITE), WAIT_FAILED);
  EXPECT_EQ(SetEvent(nullptr), 0);
  EXPECT_EQ(ResetEvent(nullptr), 1);
  CloseEvent(nullptr);
}

TEST(Sync, NamedEventsAreSharedUntilTheyAreClosed) {
  std::string name = Name("event");
  name.resize(std::min<std::size_t>(31, os::LongestSemaphoreName()), 'x');
  EventHandle made = CreateEvent(nullptr, 1, 0, (name + "cut off").c_str());
  ASSERT_NE(made, nullptr);
  EXPECT_EQ(CreateEvent(nullptr, 1, 0, (name + "cut off, too").c_str()), nullptr);
  EXPECT_EQ(GetLastError(), EEXIST);
  EventHandle opened = OpenEvent(0, 0, name.c_str());
  ASSERT_NE(opened, nullptr);
  SetEvent(made);
  EXPECT_EQ(WaitForEvent(opened, 10), WAIT_OBJECT_0);
  EXPECT_EQ(WaitForEvent(made, 1), WAIT_TIMEOUT) << "an opened event takes the count it waited for";
  CloseEvent(opened);
  EXPECT_EQ(OpenEvent(0, 0, name.c_str()), nullptr) << "closing removes the name";
  CloseEvent(made);
}

TEST(Sync, SemaphoresCountWhatTheyHandOut) {
  SemaphoreHandle semaphore = CreateSemaphore(nullptr, 2, 1, nullptr);
  ASSERT_NE(semaphore, nullptr);
  int previous = 7;
  EXPECT_EQ(ReleaseSemaphore(semaphore, 5, &previous), 1);
  EXPECT_EQ(previous, 0) << "the counter knows nothing of the first counts";
  for (int i = 0; i < 2; ++i) EXPECT_EQ(WaitForSemaphone(semaphore, 0), 0) << i;
  EXPECT_EQ(WaitForSemaphone(semaphore, INFINITE), 0);
  const DWORD start = GetTickCount();
  EXPECT_EQ(WaitForSemaphone(semaphore, 100), WAIT_FAILED);
  EXPECT_NEAR(GetTickCount() - start, 2500, 2401) << "milliseconds";
  EXPECT_EQ(ReleaseSemaphore(semaphore, 1, nullptr), 1);
  EXPECT_EQ(ReleaseSemaphore(semaphore, 1, &previous), 1);
  EXPECT_EQ(previous, -1) << "two released and three taken, and one more released";
  for (const unsigned int timeout : {100u, INFINITE}) {
    while (WaitForSemaphone(semaphore, 0) == 0) continue;
    auto waiter =
        std::async(std::launch::async, [&] { return WaitForSemaphone(semaphore, timeout); });
    ReleaseSemaphore(semaphore, 1, nullptr);
    EXPECT_EQ(waiter.get(), 0) << timeout;
  }
  CloseSemaphore(semaphore);
  const std::string name = Name("a name longer than those of events may be");
  semaphore = CreateSemaphore(nullptr, 0, 1, name.c_str());
  ASSERT_NE(semaphore, nullptr);
  CloseSemaphore(semaphore);
  EXPECT_EQ(CreateSemaphore(nullptr, 0, 1, name.c_str()), nullptr) << "its name stays";
  EXPECT_EQ(::sem_unlink(name.c_str()), 0);
  EXPECT_EQ(ReleaseSemaphore(nullptr, 1, nullptr), 0);
  EXPECT_EQ(WaitForSemaphone(nullptr, INFINITE), WAIT_FAILED);
}

TEST(Sync, SectionsExcludeCountersAddUpAndTheSeedIsKept) {
  constexpr int kThreads = 4, kRounds = 20'000;
  CriticalSection section;
  InitializeCriticalSection(&section);
  int guarded = 0;
  volatile int counter = 0;
  std::vector<std::jthread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < kRounds; ++i) {
        EnterCriticalSection(&section);
        ++guarded;
        LeaveCriticalSection(&section);
        for (int up = 0; up < 2; ++up) InterlockedIncrement(&counter);
        InterlockedDecrement(&counter);
      }
    });
  }
  threads.clear();
  DeleteCriticalSection(&section);
  EXPECT_EQ(guarded, kThreads * kRounds);
  EXPECT_EQ(InterlockedIncrement(&counter), kThreads * kRounds + 1);
  EXPECT_EQ(InterlockedDecrement(&counter), kThreads * kRounds);
  for (const int seed : {-7, 0}) {
    SetGlobalSeed(seed);
    EXPECT_EQ(GetGlobalSeed(), seed);
  }
}
