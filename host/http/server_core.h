// What the listeners and the connections of a server share: its threads, the commands that run, and
// the table of open connections.
//
// Each thread of the server has a context of its own, and each connection belongs to one of them
// for life: it needs no lock and no strand. One further thread accepts, so that nothing that a
// connection does can keep others from coming in.
#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "host/http/byte_budget.h"
#include "host/http/open_connections.h"
#include "host/http/server_parts.h"
#include "host/http/stream.h"
#include "host/http/workers.h"
#include "os/mutex.h"

namespace host {

class ServerCore {
 public:
  explicit ServerCore(ServerParts serverParts);
  ~ServerCore();
  ServerCore(const ServerCore&) = delete;
  ServerCore& operator=(const ServerCore&) = delete;

  const ServerParts parts;
  OpenConnections open;
  ByteBudget queues;
  std::atomic<std::size_t> uploads = 0;  ///< those that are being received

  /// Of the thread that accepts.
  net::io_context& AcceptContext();
  /// Of the thread for the next connection. On the thread that accepts.
  net::io_context& NextContext();

  /// Both run a job that runs a command, and return false when the server refuses commands: then
  /// the job has not run. The first runs it on the calling thread, the second on a worker thread,
  /// in the name of a holder (Workers), and comes back to the connection's.
  bool RunHere(const std::function<void()>& job);
  Awaitable<bool> RunOnWorker(std::string holder, std::function<void()> job);
  /// Something large has been freed: what memory is free is given back to the system soon. Any
  /// thread.
  void GiveMemoryBack();
  void RefuseCommands() { refusing_ = true; }
  /// Waits for the running ones; false when time ran out before they ended.
  bool WaitForCommands(std::chrono::seconds time);

 private:
  struct Thread;

  bool EnterCommand();
  void LeaveCommand();
  void RunEntered(const std::function<void()>& job);

  std::atomic<std::size_t> commands_ = 0;
  std::atomic<bool> refusing_ = false;
  std::atomic<bool> givingBack_ = false;
  Mutex mutex_;
  std::condition_variable_any changed_;
  std::size_t next_ = 0;
  Workers workers_;
  std::unique_ptr<Thread> accepting_;
  std::vector<std::unique_ptr<Thread>> threads_;
};

}  // namespace host
