// What the listeners and the sessions of a server share.
#pragma once

#include <atomic>
#include <boost/asio/associated_executor.hpp>
#include <boost/asio/async_result.hpp>
#include <boost/asio/awaitable.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/thread_pool.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <condition_variable>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "environment/logging.h"
#include "host/server.h"

namespace host {

namespace net = boost::asio;
using tcp = net::ip::tcp;

struct ListenerState;

struct ServerCore {
  explicit ServerCore(ServerParts serverParts);
  ~ServerCore();

  /// Counts the commands that run, so that the end can wait for them. Enter fails once no command
  /// may begin.
  bool EnterCommand();
  void LeaveCommand();
  void RefuseCommands();
  bool WaitForCommands(std::chrono::seconds time);

  /// How a connection ends: after what it is doing, or at once.
  enum class Ending { InOrder, AtOnce };
  /// The open connections, each with a function that makes it end, called by any thread.
  int AddSession(std::function<void(Ending)> end);
  void RemoveSession(int id);
  std::size_t SessionCount() const;
  /// Also for connections that are added later. Waits a while for those that end in order.
  void EndSessions(Ending ending);

  const ServerParts parts;
  std::atomic<std::size_t> uploads = 0;

 private:
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::size_t commands_ = 0;
  bool refusing_ = false;
  std::optional<Ending> ending_;
  int lastSession_ = 0;
  std::map<int, std::function<void(Ending)>> sessions_;

 public:
  // Every coroutine counts as work of the context: its threads return when all have ended.
  net::io_context io;
  net::executor_work_guard<net::io_context::executor_type> work{io.get_executor()};
  std::map<int, std::shared_ptr<ListenerState>> listeners;
  int lastListener = 0;
  net::thread_pool workers;
  std::vector<std::thread> threads;
};

/// Runs `job` on a worker thread and comes back. False when the server refuses commands, and then
/// the job has not run.
template <class Job>
net::awaitable<bool> OnWorker(ServerCore& core, Job job) {
  if (!core.EnterCommand()) co_return false;
  co_await net::async_initiate<decltype(net::use_awaitable), void()>(
      [&core, &job](auto resume) {
        net::post(core.workers, [&core, &job, resume = std::move(resume)]() mutable {
          try {
            job();
          } catch (const std::exception& problem) {
            LogErr("A command ended by an exception: %s", problem.what());
          }
          core.LeaveCommand();
          auto executor = net::get_associated_executor(resume);
          net::post(executor, std::move(resume));
        });
      },
      net::use_awaitable);
  co_return true;
}

/// Serves a connection until it ends. Returns at once. (Defined with the sessions, the one place
/// that pays for their templates.)
void StartSession(ServerCore& core, tcp::socket socket, bool secure, CommandHandler& handler);

}  // namespace host
