#include "discovery/worker.h"

#include <functional>
#include <semaphore>
#include <stdexcept>

#include "discovery/network.h"
#include "support/testing.h"

namespace {

using namespace std::chrono_literals;

class TestWorker : public mdns_wrapper::mDNSBase {
 public:
  using Loop = std::function<void(TestWorker&)>;
  explicit TestWorker(Loop loop) : mDNSBase("test"), loop_(std::move(loop)) {}
  ~TestWorker() override { stopForDestruction(); }

  void runMainLoop() override {
    EXPECT_EQ(++inLoop_, 1) << "two loops at once";
    ++loops;
    began.release();
    const std::shared_ptr<void> atTheEnd(nullptr, [this](auto) {
      --inLoop_;
      ended.release();
    });
    loop_(*this);
  }
  using mDNSBase::instanceName;
  using mDNSBase::setInstanceName;
  using mDNSBase::shouldStop;
  using mDNSBase::stopRequest;

  std::atomic<int> loops{0};
  std::counting_semaphore<> began{0};
  std::counting_semaphore<> ended{0};

 private:
  Loop loop_;
  std::atomic<int> inLoop_{0};
};

// A test that waits in vain ends by ctest's time-out, not by a wrong success.
void UntilStopped(TestWorker& worker) {
  mdns_wrapper::SystemNetwork network;
  std::vector<int> none;
  while (!worker.shouldStop()) network.wait({}, 24h, worker.stopRequest(), none);
}

TEST(Worker, StartsStopsAndRestarts) {
  TestWorker worker(UntilStopped);
  EXPECT_TRUE(!worker.isRunning() && worker.stop());
  worker.notifyStop();
  for (int round = 1; round <= 3; ++round) {
    EXPECT_TRUE(worker.start() && worker.start());
    worker.began.acquire();
    EXPECT_TRUE(worker.isRunning());
    EXPECT_TRUE(worker.stop());
    EXPECT_FALSE(worker.isRunning());
    EXPECT_EQ(worker.loops, round);
    EXPECT_TRUE(worker.ended.try_acquire()) << "stop did not wait";
  }
  worker.start();  // to be stopped by the destructor
}

TEST(Worker, CountsAsRunningUntilItIsStoppedHoweverItsLoopEnds) {
  const TestWorker::Loop kLoops[] = {UntilStopped, [](TestWorker&) {},
                                     [](TestWorker&) { throw std::runtime_error("no socket"); },
                                     [](TestWorker&) { throw 7; }};
  for (const TestWorker::Loop& loop : kLoops) {
    TestWorker worker(loop);
    for (int round = 1; round <= 2; ++round) {
      worker.start();
      worker.notifyStop();
      worker.ended.acquire();
      EXPECT_TRUE(worker.isRunning() && worker.start());
      EXPECT_EQ(worker.loops, round) << "started without a stop";
      worker.stop();
    }
  }
}

TEST(Worker, TakesCommandsFromManyThreads) {
  TestWorker worker(UntilStopped);
  std::vector<std::jthread> commands;
  for (int i = 0; i < 4; ++i) {
    commands.emplace_back([&, i] {
      for (int round = 0; round < 200; ++round) {
        i % 2 == 0 ? worker.start() : worker.stop();
        if (i == 3) worker.notifyStop();
        if (i == 2) worker.setInstanceName(worker.instanceName());
      }
    });
  }
  commands.clear();
  worker.stop();
  EXPECT_FALSE(worker.isRunning());
}

}  // namespace
