#include "util/reader_writer_lock.h"

#include <sys/resource.h>

#include <future>

#include "support/testing.h"

namespace {

/// Whether the thread gets a hold, which it gives back at once.
template <class Lock>
bool Hold(Lock& lock, bool writes, unsigned int timeoutMs) {
  const bool got = writes ? lock.AcquireWriterLock(timeoutMs) : lock.AcquireReaderLock(timeoutMs);
  if (got) writes ? lock.ReleaseWriterLock() : lock.ReleaseReaderLock();
  return got;
}

/// Whether another thread does.
template <class Lock>
std::future<bool> Try(Lock& lock, bool writes, unsigned int timeoutMs) {
  return std::async(std::launch::async,
                    [&, writes, timeoutMs] { return Hold(lock, writes, timeoutMs); });
}

template <class Lock>
std::string OthersMay(Lock& lock) {
  const bool read = Try(lock, false, 0).get(), write = Try(lock, true, 0).get();
  return std::string(read ? "read" : "") + (write ? "write" : "");
}

template <class Lock>
class AnyLock : public ::testing::Test {
 protected:
  Lock lock_;
};

using BothLocks = ::testing::Types<CReaderWriterLock, CReaderWriterLockNonReentrance>;
TYPED_TEST_SUITE(AnyLock, BothLocks);

TYPED_TEST(AnyLock, SharesReadsAndExcludesWrites) {
  auto& lock = this->lock_;
  ASSERT_TRUE(lock.AcquireReaderLock(0));
  EXPECT_FALSE(Try(lock, true, 20).get());
  EXPECT_EQ(OthersMay(lock), "read") << "the writer that gave up still keeps readers out";
  lock.ReleaseReaderLock();
  ASSERT_TRUE(lock.AcquireWriterLock(0));
  for (const bool writes : {false, true}) EXPECT_FALSE(Try(lock, writes, 20).get());
  lock.ReleaseWriterLock();
  EXPECT_EQ(OthersMay(lock), "readwrite");
}

TYPED_TEST(AnyLock, LetsAWaitingWriterGoBeforeNewReaders) {
  auto& lock = this->lock_;
  for (const unsigned int timeoutMs : {20'000u, INFINITE}) {
    ASSERT_TRUE(lock.AcquireReaderLock(0));
    const auto start = std::chrono::steady_clock::now();
    auto writer = Try(lock, true, timeoutMs);
    while (OthersMay(lock) != "") std::this_thread::yield();
    lock.ReleaseReaderLock();
    EXPECT_TRUE(writer.get());
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(950))
        << "it was not woken, but looked by itself after a second";
    EXPECT_EQ(OthersMay(lock), "readwrite");
  }
}

TYPED_TEST(AnyLock, GuardsDataUnderLoadAndLosesNoThread) {
  constexpr int kThreads = 4, kRounds = 300;
  auto& lock = this->lock_;
  int left = 0, right = 0;
  std::atomic<int> torn{0};
  std::vector<std::jthread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < kRounds; ++i) {
        if ((i + t) % 3 == 0) {
          if (!lock.AcquireWriterLock(INFINITE)) continue;
          ++left;
          ++right;
          lock.ReleaseWriterLock();
        } else if (lock.AcquireReaderLock(i % 2 == 0 ? INFINITE : 5)) {
          if (left != right) ++torn;
          lock.ReleaseReaderLock();
        }
      }
    });
  }
  threads.clear();
  EXPECT_EQ(torn, 0);
  EXPECT_EQ(left, kThreads * kRounds / 3);
  EXPECT_EQ(OthersMay(lock), "readwrite") << "a count leaked";
}

// Each look of a waiter is one sleep: on a busy machine there are fewer, never more.
TEST(PlainLock, LooksEveryTwoMillisecondsWhenItWaitsWithoutLimit) {
  const auto sleeps = [] {
    rusage used{};
    ::getrusage(RUSAGE_SELF, &used);
    return used.ru_nvcsw;
  };
  CReaderWriterLockNonReentrance lock;
  lock.AcquireWriterLock(0);
  auto waiter = Try(lock, false, INFINITE);
  const long before = sleeps();
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(waiter.wait_for(std::chrono::milliseconds(300)), std::future_status::timeout);
  const std::chrono::duration<double, std::milli> waited = std::chrono::steady_clock::now() - start;
  EXPECT_LT(static_cast<double>(sleeps() - before), 0.7 * waited.count());
  lock.ReleaseWriterLock();
  EXPECT_TRUE(waiter.get());
}

TEST(PlainLock, ConvertsUpgradesAndDowngrades) {
  CReaderWriterLockNonReentrance lock;
  ASSERT_TRUE(lock.AcquireReaderLock(0));
  EXPECT_FALSE(lock.UpgradeToWriterLock(0));
  EXPECT_EQ(OthersMay(lock), "read");
  ASSERT_TRUE(lock.UpgradeToWriterLock(10));
  EXPECT_EQ(OthersMay(lock), "");
  lock.DowngradeFromWriterLock();
  EXPECT_EQ(OthersMay(lock), "read");
  ASSERT_TRUE(lock.AcquireReaderLock(0));  // a second reader keeps the upgrade waiting
  EXPECT_FALSE(lock.UpgradeToWriterLock(20));
  lock.ReleaseReaderLock();
  EXPECT_EQ(OthersMay(lock), "read") << "the failed upgrade lost the read hold";
  lock.ReleaseReaderLock();
  EXPECT_EQ(OthersMay(lock), "readwrite");
}

TEST(RecursiveLock, CountsHoldsOfAThread) {
  CReaderWriterLock lock;
  const auto state = [&] { return lock.GetCurrentThreadStatus(); };
  ASSERT_TRUE(lock.AcquireReaderLock(0) && lock.AcquireWriterLock(0));
  ASSERT_TRUE(lock.AcquireWriterLock(0) && lock.AcquireReaderLock(0));
  EXPECT_EQ(state(), 0x20002u);
  lock.ReleaseWriterLock();
  EXPECT_EQ(OthersMay(lock), "");
  lock.ReleaseWriterLock();  // the reads stay: downgraded
  EXPECT_EQ(state(), 2u);
  EXPECT_EQ(OthersMay(lock), "read");
  lock.ReleaseAllLocks();
  EXPECT_EQ(state(), 0u);
  EXPECT_EQ(OthersMay(lock), "readwrite");
}

TEST(RecursiveLock, TakesSoManyHoldsOfAKindAndNoMore) {
  for (const bool writes : {false, true}) {
    CReaderWriterLock lock;
    const auto acquire = [&] {
      return writes ? lock.AcquireWriterLock(0) : lock.AcquireReaderLock(0);
    };
    int holds = 0;
    while (holds <= 65535 && acquire()) ++holds;
    EXPECT_EQ(holds, 65535);
    EXPECT_EQ(lock.GetCurrentThreadStatus(), writes ? 0xFFFF0000u : 0xFFFFu);
    writes ? lock.ReleaseWriterLock() : lock.ReleaseReaderLock();
    EXPECT_TRUE(acquire());
    lock.ReleaseAllLocks();
    EXPECT_EQ(OthersMay(lock), "readwrite");
  }
}

TEST(RecursiveLock, LetsTwoReadersUpgradeOneAfterTheOther) {
  CReaderWriterLock lock;
  std::atomic<int> reading{0};
  int value = 0;
  const auto upgrade = [&] {
    lock.AcquireReaderLock(INFINITE);
    ++reading;
    while (reading < 2) std::this_thread::yield();
    EXPECT_TRUE(lock.AcquireWriterLock(INFINITE));
    ++value;
    lock.ReleaseAllLocks();
  };
  auto other = std::async(std::launch::async, upgrade);
  upgrade();
  other.get();
  EXPECT_EQ(value, 2);
  EXPECT_EQ(OthersMay(lock), "readwrite");
}

}  // namespace
