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
