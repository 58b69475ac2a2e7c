// The thread of a discovery worker.
//
// start, stop and notifyStop may be called from any threads, the worker's own loop among them; the
// first two take turns. A worker's loop polls the stop request at least once a second, and waits
// where that cuts the wait short.
#pragma once

#include <atomic>
#include <string>
#include <thread>

#include "discovery/network.h"
#include "os/mutex.h"

namespace mdns_wrapper {

class mDNSBase {
 public:
  /// The role names the worker in the log.
  explicit mDNSBase(std::string role);
  mDNSBase(const mDNSBase&) = delete;
  mDNSBase& operator=(const mDNSBase&) = delete;

  /// The loop uses members of the derived class, so that class's own destructor calls
  /// stopForDestruction first; a build with assertions insists on it.
  virtual ~mDNSBase();
  /// Takes the machine's host name and starts a thread that runs the loop. A worker that is running
  /// stays as it is. Returns true. When there is no thread to be had, throws a std::system_error
  /// "thread constructor failed", and the worker is stopped.
  virtual bool start();
  /// Asks the loop to end and waits until it has. On the worker's own thread it only asks, and the
  /// next stop from elsewhere waits. Returns true.
  virtual bool stop();
  /// The worker's task, on the worker's thread. An exception ends it, and is logged.
  virtual void runMainLoop() = 0;

  /// Takes the machine's host name as instance name. Returns true.
  bool init();
  /// Asks the loop to end, without waiting for it. The worker counts as running until stop.
  void notifyStop();
  /// From start to stop, even when the loop has ended by itself meanwhile.
  bool isRunning() const { return running_.load(); }
  /// Whether the loop has ended although nobody stopped the worker.
  bool hasGivenUp() const { return running_.load() && !looping_.load(); }

 protected:
  void stopForDestruction() { mDNSBase::stop(); }

  bool shouldStop() const { return stopRequest_.made(); }
  /// For functions that poll it.
  const StopRequest& stopRequest() const { return stopRequest_; }

  /// The name set with setInstanceName, else the host name.
  std::string instanceName() const;
  /// Outlasts each start; "" goes back to the host name. It holds from the loop's next start.
  void setInstanceName(const std::string& name);
  const std::string& serviceType() const { return serviceType_; }

 private:
  void run() noexcept;

  const std::string role_;
  const std::string serviceType_ = "_privet._tcp.local.";

  Mutex controlMutex_;  ///< held by one start or stop at a time, through the join
  std::thread thread_ QV_GUARDED_BY(controlMutex_);
  std::atomic<std::thread::id> loopThread_;
  std::atomic<bool> running_{false};
  std::atomic<bool> looping_{false};  ///< from start until the loop has ended
  StopRequest stopRequest_;

  mutable Mutex mutex_;  ///< held briefly
  std::string hostName_ QV_GUARDED_BY(mutex_) = "mdns-marviqueservice";
  std::string ownName_ QV_GUARDED_BY(mutex_);
};

}  // namespace mdns_wrapper
