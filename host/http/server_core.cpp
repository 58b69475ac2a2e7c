#include "host/http/server_core.h"

#include <algorithm>
#include <boost/asio/associated_executor.hpp>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/post.hpp>
#include <exception>
#include <thread>

#include "environment/logging.h"
#include "os/system.h"

namespace host {

/// A thread with its context. Every coroutine counts as work of the context: the thread ends when
/// all have ended, once it is told to.
struct ServerCore::Thread {
  Thread() : thread([this] { Serve(); }) {}
  ~Thread() {
    work.reset();
    thread.join();
  }

  void Serve() {
    for (;;) {
      try {
        context.run();
        return;
      } catch (const std::exception& problem) {
        LogErr("A connection ended by an exception: %s", problem.what());
      }
    }
  }

  net::io_context context{1};
  net::executor_work_guard<Executor> work{context.get_executor()};
  std::thread thread;
};

ServerCore::ServerCore(ServerParts serverParts)
    : parts(std::move(serverParts)),
      open(parts.limits),
      queues(parts.limits.queueBytes),
      workers_(std::max(8u, 2 * std::thread::hardware_concurrency())),
      accepting_(std::make_unique<Thread>()) {
  const unsigned count = std::clamp(std::thread::hardware_concurrency(), 2u, 4u);
  for (unsigned i = 0; i < count; ++i) threads_.push_back(std::make_unique<Thread>());
}

ServerCore::~ServerCore() {
  accepting_.reset();
  open.EndAll(OpenConnections::Ending::AtOnce);
  // Those that wait for a command end with it: the workers still run.
  threads_.clear();
  workers_.Join();
}

net::io_context& ServerCore::AcceptContext() { return accepting_->context; }

net::io_context& ServerCore::NextContext() { return threads_[next_++ % threads_.size()]->context; }

bool ServerCore::EnterCommand() {
  // Counted before the look: whoever refuses and then finds the count at 0 has seen the last one.
  ++commands_;
  if (!refusing_) return true;
  LeaveCommand();
  return false;
}

void ServerCore::LeaveCommand() {
  if (--commands_ > 0 || !refusing_) return;
  const MutexLock lock(mutex_);
  changed_.notify_all();
}

void ServerCore::RunEntered(const std::function<void()>& job) {
  try {
    job();
  } catch (const std::exception& problem) {
    LogErr("A command ended by an exception: %s", problem.what());
  }
  LeaveCommand();
}

bool ServerCore::RunHere(const std::function<void()>& job) {
  if (!EnterCommand()) return false;
  RunEntered(job);
  return true;
}

Awaitable<bool> ServerCore::RunOnWorker(std::string holder, std::function<void()> job) {
  if (!EnterCommand()) co_return false;
  co_await net::async_initiate<decltype(kAwait), void(error_code, std::size_t)>(
      [this, &holder, &job](auto handler) {
        const auto executor = net::get_associated_executor(handler);
        // Jobs are copyable, completions are not.
        auto resume = std::make_shared<Completion>(std::move(handler));
        workers_.Run(holder, [this, &job, executor, resume = std::move(resume)] {
          RunEntered(job);
          net::post(executor, [resume] { (*resume)(); });
        });
      },
      kAwait);
  co_return true;
}

void ServerCore::GiveMemoryBack() {
  if (givingBack_.exchange(true)) return;
  workers_.Run("", [this] {
    givingBack_ = false;
    os::GiveMemoryBack();
  });
}

bool ServerCore::WaitForCommands(std::chrono::seconds time) {
  const auto end = std::chrono::steady_clock::now() + time;
  const MutexLock lock(mutex_);
  while (commands_ != 0) {
    if (changed_.wait_until(mutex_, end) == std::cv_status::timeout) return commands_ == 0;
  }
  return true;
}

}  // namespace host
