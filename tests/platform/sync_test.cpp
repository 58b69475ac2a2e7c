#include "platform/sync.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <semaphore.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <thread>
#include <vector>

#include "platform/system_time.h"
#include "platform/thread.h"

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
  CloseEvent(nullptr);
  EXPECT_EQ(WaitForEvent(nullptr, INFINITE), WAIT_FAILED);
  EXPECT_EQ(ResetEvent(nullptr) + SetEvent(nullptr), 1);
}

TEST(Sync, NamedEventsAreSharedUntilClosed) {
  const std::string longName = "/qv_test_" + std::to_string(::getpid()) + std::string(40, 'n');
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
  constexpr int kTaken = 64;
  SetGlobalSeed(-7);
  std::vector<std::string> taken;
  for (const std::string prefix : {"ce0", "Sem"}) {
    for (int i = 1; i <= 2 * kTaken; ++i) {
      taken.push_back(prefix + std::to_string(::getpid()) + "_" + std::to_string(i) + "_-7");
      if (i > kTaken) continue;
      sem_t* semaphore = ::sem_open(taken.back().c_str(), O_CREAT | O_EXCL, 0600, 0);
      ASSERT_NE(semaphore, SEM_FAILED);
      ::sem_close(semaphore);
    }
  }
  EventHandle event = CreateEvent(nullptr, 0, 1, nullptr);
  SemaphoreHandle semaphore = CreateSemaphore(nullptr, 1, 1, nullptr);
  EXPECT_EQ(std::count_if(taken.begin(), taken.end(),
                          [](const auto& name) { return ::sem_unlink(name.c_str()) == 0; }),
            2 * kTaken);
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
  ReleaseSemaphore(semaphore, 1, &previous);
  EXPECT_EQ(previous, -2);
  CloseSemaphore(semaphore);
  EXPECT_EQ(ReleaseSemaphore(nullptr, 1, nullptr), 0);
  EXPECT_EQ(WaitForSemaphone(nullptr, INFINITE), WAIT_FAILED);
}

TEST(Sync, CountersSectionsAndEventsOrderThreads) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 2000;
  CriticalSection section;
  InitializeCriticalSection(&section);
  EventHandle turn = CreateEvent(nullptr, 0, 1, nullptr);
  SemaphoreHandle done = CreateSemaphore(nullptr, 0, 1, nullptr);
  volatile int atomic = 0;
  int guarded = 0;
  int passed = 0;
  std::vector<std::jthread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < kRounds; ++round) {
        InterlockedIncrement(&atomic);
        InterlockedIncrement(&atomic);
        InterlockedDecrement(&atomic);
        EnterCriticalSection(&section);
        ++guarded;
        LeaveCriticalSection(&section);
      }
      EXPECT_EQ(WaitForEvent(turn, INFINITE), WAIT_OBJECT_0);
      ++passed;
      SetEvent(turn);
      ReleaseSemaphore(done, 1, nullptr);
    });
  }
  for (int i = 0; i < kThreads; ++i) EXPECT_EQ(WaitForSemaphone(done, INFINITE), 0);
  EXPECT_EQ(passed, kThreads);
  threads.clear();
  EXPECT_EQ(atomic, kThreads * kRounds);
  EXPECT_EQ(guarded, kThreads * kRounds);
  CloseEvent(turn);
  CloseSemaphore(done);
  DeleteCriticalSection(&section);
}

TEST(Thread, StartsJoinsAndCancels) {
  DWORD number = 0;
  pthread_t cell{};
  const ThreadStart tell = [](void* argument) -> void* {
    *static_cast<DWORD*>(argument) = GetCurrentThreadId();
    endthread(0);
  };
  EXPECT_EQ(CreateThread(nullptr, 0, tell, &number, 0, nullptr, &cell), &cell);
  EXPECT_EQ(WaitForThread(&cell, INFINITE), 0);
  EXPECT_NE(number, 0u);
  EXPECT_NE(number, GetCurrentThreadId());

  const ThreadStart sleep = [](void*) -> void* {
    for (;;) ::pause();
  };
  ThreadHandle sleeper = CreateThread(nullptr, 0, sleep, nullptr, 0, nullptr, nullptr);
  ASSERT_NE(sleeper, nullptr);
  EXPECT_EQ(WaitForThread(sleeper, 5), 0) << "a finite wait cancels";
  CloseThread(sleeper);
  EXPECT_EQ(WaitForThread(nullptr, INFINITE), -1);
}
