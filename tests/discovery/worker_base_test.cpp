#include "discovery/worker_base.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <functional>
#include <semaphore>
#include <stdexcept>
#include <system_error>
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
  using mDNSBase::instanceName;
  using mDNSBase::setInstanceName;
  using mDNSBase::shouldStop;
  using mDNSBase::stopRequest;
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
  EXPECT_FALSE(worker.waitForStop(0ms) && !worker.shouldStop());
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
    EXPECT_FALSE(worker.stopRequest().made());
    EXPECT_TRUE(worker.stop());
    EXPECT_FALSE(worker.isRunning());
    EXPECT_EQ(worker.loops, round);
    EXPECT_TRUE(worker.ended.try_acquire()) << "stop did not wait";
  }
}

TEST(Worker, CountsAsRunningUntilItIsStopped) {
  TestWorker notified(UntilStopped);
  TestWorker shortLived([](TestWorker&) {});
  for (TestWorker* worker : {&notified, &shortLived}) {
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

TEST(Worker, StopsInItsDestructor) {
  std::atomic<bool> ended{false};
  {
    TestWorker worker([&](TestWorker& self) {
      UntilStopped(self);
      ended = true;
    });
    worker.start();
    worker.began.acquire();
  }
  EXPECT_TRUE(ended);
}

TEST(Worker, SurvivesExceptions) {
  TestWorker worker([](TestWorker& self) {
    if (self.loops == 1) throw std::runtime_error("no socket");
    throw 7;
  });
  for (int round = 1; round <= 2; ++round) {
    worker.start();
    worker.ended.acquire();
    EXPECT_TRUE(worker.isRunning());
    worker.stop();
    EXPECT_EQ(worker.loops, round);
  }
}

TEST(Worker, MayStopItself) {
  TestWorker worker([](TestWorker& self) {
    EXPECT_TRUE(self.start());
    EXPECT_TRUE(self.stop());
    EXPECT_TRUE(self.shouldStop());
  });
  worker.start();
  worker.ended.acquire();
  EXPECT_TRUE(worker.stop());
  EXPECT_FALSE(worker.isRunning());
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
        if (i == 2) worker.setInstanceName(worker.instanceName());
      }
    });
  }
  commands.clear();
  worker.stop();
  EXPECT_FALSE(worker.isRunning());
}

TEST(Worker, IsNamedAfterTheMachineUnlessToldOtherwise) {
  char host[256] = {};
  ASSERT_EQ(::gethostname(host, sizeof host - 1), 0);
  TestWorker worker([](TestWorker&) {});
  EXPECT_EQ(worker.instanceName(), "mdns-marviqueservice");
  EXPECT_TRUE(worker.init());
  EXPECT_EQ(worker.instanceName(), host);
  worker.setInstanceName("desk");
  worker.start();
  EXPECT_EQ(worker.instanceName(), "desk");
  worker.setInstanceName("");
  EXPECT_EQ(worker.instanceName(), host);
}

#ifdef __GLIBC__
/// While it lives, no thread can be made: each would get a stack larger than the address space.
class NoThreads {
 public:
  NoThreads() {
    EXPECT_EQ(::pthread_getattr_default_np(&usual_), 0);
    pthread_attr_t huge;
    EXPECT_EQ(::pthread_attr_init(&huge), 0);
    EXPECT_EQ(::pthread_attr_setstacksize(&huge, std::size_t{1} << 50), 0);
    EXPECT_EQ(::pthread_setattr_default_np(&huge), 0);
    ::pthread_attr_destroy(&huge);
  }
  ~NoThreads() {
    ::pthread_setattr_default_np(&usual_);
    ::pthread_attr_destroy(&usual_);
  }

 private:
  pthread_attr_t usual_;
};

TEST(Worker, IsStoppedWhenThereIsNoThread) {
  TestWorker worker(UntilStopped);
  {
    const NoThreads none;
    try {
      worker.start();
      FAIL() << "a thread was made";
    } catch (const std::system_error& error) {
      EXPECT_EQ(error.code(), std::errc::resource_unavailable_try_again);
      EXPECT_NE(std::string(error.what()).find("thread constructor failed"), std::string::npos);
    }
    EXPECT_FALSE(worker.isRunning());
    EXPECT_TRUE(worker.stop());
  }
  EXPECT_TRUE(worker.start());
  worker.began.acquire();
  EXPECT_EQ(worker.loops, 1);
}
#endif

}  // namespace
