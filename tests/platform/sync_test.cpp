#include "platform/sync.h"

#include "platform/system_time.h"
#include "support/testing.h"

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
  ResetEvent(manual);
  EXPECT_EQ(WaitForEvent(manual, 1), WAIT_TIMEOUT) << "a reset takes all counts";
  CloseEvent(manual);
  EXPECT_EQ(WaitForEvent(nullptr, INFINITE), WAIT_FAILED);
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
}
