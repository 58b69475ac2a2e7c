#include "platform/sync.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <semaphore.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <thread>
#include <vector>

#include "platform/system_time.h"
#include "platform/thread.h"

namespace {

const std::string kName = "/qv_event_test_" + std::to_string(::getpid());

}  // namespace

TEST(Sync, EventsLetThroughWhatTheyWereSetFor) {
  EventHandle once = CreateEvent(nullptr, 0, 0, nullptr);
  ASSERT_NE(once, nullptr);
  EXPECT_EQ(WaitForEvent(once, 1), WAIT_TIMEOUT);
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

TEST(Sync, NamedEventsAreSharedUntilClosed) {
  const std::string longName = kName + std::string(40, 'n');
  EventHandle owner = CreateEvent(nullptr, 0, 0, longName.c_str());
  ASSERT_NE(owner, nullptr);
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(CreateEvent(nullptr, 0, 0, longName.c_str()), nullptr);
  EXPECT_EQ(GetLastError(), EEXIST);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(),
            "CreateEvent sem_open failed 17 name " + longName.substr(0, 31) + "\n");
  EventHandle other = OpenEvent(0, 0, longName.c_str());
  ASSERT_NE(other, nullptr);
  SetEvent(owner);
  EXPECT_EQ(WaitForEvent(other, 10), WAIT_OBJECT_0);
  CloseEvent(owner);
  CloseEvent(other);
  EXPECT_EQ(OpenEvent(0, 0, longName.c_str()), nullptr);
}

TEST(Sync, PrivateObjectsPassTakenNamesAndLeaveNone) {
  const int seed = static_cast<int>(::getpid() % 1000);
  SetGlobalSeed(seed);
  EXPECT_EQ(GetGlobalSeed(), seed);
  const auto name = [seed](const char* prefix, int number) {
    return prefix + std::to_string(::getpid()) + "_" + std::to_string(number) + "_" +
           std::to_string(seed);
  };
  constexpr int kTaken = 64;
  for (const char* prefix : {"ce0", "Sem"}) {
    for (int i = 1; i <= kTaken; ++i) {
      sem_t* taken = ::sem_open(name(prefix, i).c_str(), O_CREAT | O_EXCL, 0600, 0);
      ASSERT_NE(taken, SEM_FAILED);
      ::sem_close(taken);
    }
  }
  EventHandle event = CreateEvent(nullptr, 0, 1, nullptr);
  SemaphoreHandle semaphore = CreateSemaphore(nullptr, 1, 1, nullptr);
  ASSERT_NE(event, nullptr);
  ASSERT_NE(semaphore, nullptr);
  for (const char* prefix : {"ce0", "Sem"}) {
    for (int i = 1; i <= 2 * kTaken; ++i) {
      EXPECT_EQ(::sem_unlink(name(prefix, i).c_str()) == 0, i <= kTaken) << prefix << i;
    }
  }
  EXPECT_EQ(WaitForEvent(event, 10), WAIT_OBJECT_0);
  EXPECT_EQ(WaitForSemaphone(semaphore, 10), 0);
  CloseEvent(event);
  CloseSemaphore(semaphore);
}

TEST(Sync, SemaphoresCountAndTimeOutWithFailure) {
  SemaphoreHandle semaphore = CreateSemaphore(nullptr, 2, 1, nullptr);
  ASSERT_NE(semaphore, nullptr);
  int previous = -7;
  EXPECT_EQ(ReleaseSemaphore(semaphore, 5, &previous), 1);
  EXPECT_EQ(previous, 0) << "the initial count is not counted";
  for (const unsigned int timeout : {0u, 1u, INFINITE}) {
    EXPECT_EQ(WaitForSemaphone(semaphore, timeout), 0) << "one count a release";
  }
  const DWORD start = GetTickCount();
  EXPECT_EQ(WaitForSemaphone(semaphore, 100), WAIT_FAILED);
  EXPECT_GE(GetTickCount() - start, 95u);
  EXPECT_EQ(ReleaseSemaphore(semaphore, 1, &previous), 1);
  EXPECT_EQ(previous, -2);
  CloseSemaphore(semaphore);
  EXPECT_EQ(ReleaseSemaphore(nullptr, 1, nullptr), 0);
  EXPECT_EQ(WaitForSemaphone(nullptr, INFINITE), WAIT_FAILED);
}

TEST(Sync, CountersSectionsAndEventsOrderThreads) {
  constexpr int kRounds = 5000;
  CriticalSection section;
  InitializeCriticalSection(&section);
  volatile int atomic = 0;
  int guarded = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < kRounds; ++round) {
        InterlockedIncrement(&atomic);
        InterlockedIncrement(&atomic);
        InterlockedDecrement(&atomic);
        EnterCriticalSection(&section);
        ++guarded;
        LeaveCriticalSection(&section);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  DeleteCriticalSection(&section);
  EXPECT_EQ(atomic, 4 * kRounds);
  EXPECT_EQ(guarded, 4 * kRounds);

  EventHandle ball = CreateEvent(nullptr, 0, 0, nullptr);
  SemaphoreHandle back = CreateSemaphore(nullptr, 0, 1, nullptr);
  int passes = 0;  // handed over by event and semaphore alone
  std::thread player([&] {
    for (int i = 0; i < 50; ++i) {
      ASSERT_EQ(WaitForEvent(ball, INFINITE), WAIT_OBJECT_0);
      ++passes;
      ReleaseSemaphore(back, 1, nullptr);
    }
  });
  for (int i = 0; i < 50; ++i) {
    ++passes;
    SetEvent(ball);
    EXPECT_EQ(WaitForSemaphone(back, INFINITE), 0);
  }
  player.join();
  EXPECT_EQ(passes, 100);
  CloseEvent(ball);
  CloseSemaphore(back);
}

TEST(Thread, StartsJoinsAndCancels) {
  DWORD number = 0;
  const ThreadStart tell = [](void* argument) -> void* {
    *static_cast<DWORD*>(argument) = GetCurrentThreadId();
    endthread(0);
  };
  pthread_t cell{};
  EXPECT_EQ(CreateThread(nullptr, 0, tell, &number, 0, nullptr, &cell), &cell);
  EXPECT_EQ(WaitForThread(&cell, INFINITE), 0);
  EXPECT_NE(number, 0u);
  EXPECT_NE(number, GetCurrentThreadId());
  EXPECT_EQ(GetCurrentThreadId(), GetCurrentThreadId());

  const ThreadStart sleep = [](void*) -> void* {
    for (;;) ::pause();
  };
  for (const bool terminate : {true, false}) {
    ThreadHandle sleeper = CreateThread(nullptr, 0, sleep, nullptr, 0, nullptr, nullptr);
    ASSERT_NE(sleeper, nullptr);
    if (terminate) {
      EXPECT_EQ(TerminateThread(sleeper, 0), 1);
    }
    EXPECT_EQ(WaitForThread(sleeper, terminate ? INFINITE : 5), 0);
    CloseThread(sleeper);
  }
  EXPECT_EQ(WaitForThread(nullptr, INFINITE), -1);
}
