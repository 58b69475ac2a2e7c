#include "util/reader_writer_lock.h"

#include <sys/resource.h>

#include <future>

#include "platform/sync.h"
#include "support/testing.h"

namespace {

using namespace std::chrono_literals;

constinit const std::atomic<bool> kAtOnce{true};

/// Whether another thread gets a hold, which it gives back at once. It begins when `go` is set.
template <class Lock>
std::future<bool> Try(Lock& lock, bool writes, unsigned int timeoutMs,
                      const std::atomic<bool>& go = kAtOnce) {
  const auto hold = [&, writes, timeoutMs] {
    while (!go) std::this_thread::yield();
    const bool got = writes ? lock.AcquireWriterLock(timeoutMs) : lock.AcquireReaderLock(timeoutMs);
    if (got) writes ? lock.ReleaseWriterLock() : lock.ReleaseReaderLock();
    return got;
  };
  return std::async(std::launch::async, hold);
}

template <class Lock>
bool OtherCanRead(Lock& lock, unsigned int timeoutMs = 0) {
  return Try(lock, false, timeoutMs).get();
}

template <class Lock>
bool OtherCanWrite(Lock& lock, unsigned int timeoutMs = 0) {
  return Try(lock, true, timeoutMs).get();
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
  EXPECT_TRUE(OtherCanRead(lock));
  EXPECT_FALSE(OtherCanWrite(lock, 20));
  EXPECT_TRUE(OtherCanRead(lock)) << "the writer that gave up still keeps readers out";
  lock.ReleaseReaderLock();

  ASSERT_TRUE(lock.AcquireWriterLock(0));
  EXPECT_FALSE(OtherCanRead(lock, 20));
  EXPECT_FALSE(OtherCanWrite(lock, 20));
  lock.ReleaseWriterLock();
  EXPECT_TRUE(OtherCanWrite(lock));
}

TYPED_TEST(AnyLock, LetsAWaitingWriterGoBeforeNewReaders) {
  auto& lock = this->lock_;
  ASSERT_TRUE(lock.AcquireReaderLock(0));
  auto writer = Try(lock, true, INFINITE);
  while (OtherCanRead(lock)) std::this_thread::yield();
  lock.ReleaseReaderLock();
  EXPECT_TRUE(writer.get());
  EXPECT_TRUE(OtherCanRead(lock));
}

TYPED_TEST(AnyLock, WaitsEvenWhenNoEventCanBeMade) {
  auto& lock = this->lock_;
  ASSERT_TRUE(lock.AcquireWriterLock(0));
  // The threads need descriptors of their own to start: they are there before the limit drops.
  std::atomic<bool> go{false};
  auto reader = Try(lock, false, 10000, go);
  auto writer = Try(lock, true, 10000, go);
  rlimit limit;
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
  const rlimit none = {0, limit.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
  EXPECT_EQ(CreateEvent(nullptr, 0, 0, nullptr), nullptr);
  go = true;
  std::this_thread::sleep_for(20ms);
  lock.ReleaseWriterLock();
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
  EXPECT_TRUE(reader.get());
  EXPECT_TRUE(writer.get());
}

TYPED_TEST(AnyLock, GuardsDataUnderLoadAndLosesNoThread) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 300;
  auto& lock = this->lock_;
  int left = 0;
  int right = 0;
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
  EXPECT_TRUE(OtherCanWrite(lock)) << "a count leaked";
}

TEST(PlainLock, ConvertsUpgradesAndDowngrades) {
  CReaderWriterLockNonReentrance lock;
  ASSERT_TRUE(lock.AcquireReaderLock(0));
  EXPECT_FALSE(lock.UpgradeToWriterLock(0));
  EXPECT_TRUE(OtherCanRead(lock));
  ASSERT_TRUE(lock.UpgradeToWriterLock(10));
  EXPECT_FALSE(OtherCanRead(lock));
  lock.DowngradeFromWriterLock();
  EXPECT_TRUE(OtherCanRead(lock));
  EXPECT_FALSE(OtherCanWrite(lock));

  ASSERT_TRUE(lock.AcquireReaderLock(0));  // a second reader keeps the upgrade waiting
  EXPECT_FALSE(lock.UpgradeToWriterLock(20));
  lock.ReleaseReaderLock();
  EXPECT_FALSE(OtherCanWrite(lock)) << "the failed upgrade lost the read hold";
  lock.ReleaseReaderLock();
  EXPECT_TRUE(OtherCanWrite(lock));
}

TEST(RecursiveLock, CountsHoldsOfAThread) {
  CReaderWriterLock lock;
  const auto state = [&] { return lock.GetCurrentThreadStatus(); };
  ASSERT_TRUE(lock.AcquireReaderLock(0));
  ASSERT_TRUE(lock.AcquireWriterLock(0));
  ASSERT_TRUE(lock.AcquireWriterLock(0));
  ASSERT_TRUE(lock.AcquireReaderLock(0));
  EXPECT_EQ(state(), 0x20002u);

  lock.ReleaseWriterLock();
  EXPECT_FALSE(OtherCanRead(lock));
  lock.ReleaseWriterLock();  // the reads stay: downgraded
  EXPECT_EQ(state(), 2u);
  EXPECT_TRUE(OtherCanRead(lock));
  EXPECT_FALSE(OtherCanWrite(lock));
  lock.ReleaseAllLocks();
  EXPECT_EQ(state(), 0u);
  EXPECT_TRUE(OtherCanWrite(lock));
}

TEST(RecursiveLock, LetsTwoReadersUpgradeOneAfterTheOther) {
  CReaderWriterLock lock;
  std::atomic<int> reading{0};
  int value = 0;
  const auto upgrade = [&] {
    lock.AcquireReaderLock(INFINITE);
    ++reading;
    while (reading < 2) std::this_thread::yield();
    const bool wrote = lock.AcquireWriterLock(INFINITE);
    if (wrote) ++value;
    lock.ReleaseWriterLock();
    lock.ReleaseReaderLock();
    return wrote;
  };
  auto other = std::async(std::launch::async, upgrade);
  EXPECT_TRUE(upgrade());
  EXPECT_TRUE(other.get());
  EXPECT_EQ(value, 2);
  EXPECT_TRUE(OtherCanWrite(lock));
}

}  // namespace
