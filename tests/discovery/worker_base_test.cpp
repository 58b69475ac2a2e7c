#include "discovery/worker_base.h"

#include <gtest/gtest.h>

#include <functional>
#include <semaphore>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;

class TestWorker : public mdns_wrapper::mDNSBase {
 public:
  using Loop = std::function<void(TestWorker&)>;
  explicit TestWorker(Loop loop) : mDNSBase("test"), loop_(std::move(loop)) {}
  ~TestWorker() override { stopForDestruction(); }

  void runMainLoop() override {
    const Visit visit(*this);
    loop_(*this);
  }
  using mDNSBase::waitForStop;

  std::atomic<int> loops{0};
  std::counting_semaphore<> began{0};
  std::counting_semaphore<> ended{0};

 private:
  struct Visit {
    explicit Visit(TestWorker& visited) : worker(visited) {
      EXPECT_EQ(++worker.inLoop_, 1) << "two loops at once";
      ++worker.loops;
      worker.began.release();
    }
    ~Visit() {
      --worker.inLoop_;
      worker.ended.release();
    }
    TestWorker& worker;
  };

  Loop loop_;
  std::atomic<int> inLoop_{0};
};

// A test that waits in vain ends by ctest's time-out, not by a wrong success.
void UntilStopped(TestWorker& worker) {
  while (!worker.waitForStop(24h)) {
  }
}

TEST(Worker, StartsStopsAndRestarts) {
  TestWorker worker(UntilStopped);
  EXPECT_FALSE(worker.isRunning());
  EXPECT_TRUE(worker.stop());
  worker.notifyStop();
  for (int round = 1; round <= 3; ++round) {
    EXPECT_TRUE(worker.start());
    EXPECT_TRUE(worker.start());
    worker.began.acquire();
    EXPECT_TRUE(worker.isRunning());
    EXPECT_TRUE(worker.stop());
    EXPECT_FALSE(worker.isRunning());
    EXPECT_EQ(worker.loops, round);
    EXPECT_TRUE(worker.ended.try_acquire()) << "stop did not wait";
  }
}

TEST(Worker, CountsAsRunningUntilItIsStoppedHoweverItEnded) {
  TestWorker notified(UntilStopped);
  TestWorker shortLived([](TestWorker&) {});
  TestWorker failing([](TestWorker& self) {
    if (self.loops == 1) throw std::runtime_error("no socket");
    throw 7;
  });
  for (TestWorker* worker : {&notified, &shortLived, &failing}) {
    worker->start();
    worker->notifyStop();
    worker->ended.acquire();
    EXPECT_TRUE(worker->isRunning());
    EXPECT_TRUE(worker->start());
    EXPECT_EQ(worker->loops, 1) << "started without a stop";
    worker->stop();
    worker->start();
    worker->began.acquire();
    worker->began.acquire();
    worker->stop();
    EXPECT_EQ(worker->loops, 2);
  }
}

TEST(Worker, TakesCommandsFromManyThreads) {
  TestWorker worker(UntilStopped);
  std::vector<std::jthread> commands;
  for (int i = 0; i < 4; ++i) {
    commands.emplace_back([&, i] {
      for (int round = 0; round < 200; ++round) {
        if (i % 2 == 0) {
          worker.start();
        } else {
          worker.stop();
        }
        if (i == 3) worker.notifyStop();
      }
    });
  }
  commands.clear();
  worker.stop();
  EXPECT_FALSE(worker.isRunning());
}

}  // namespace
