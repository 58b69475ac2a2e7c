// The threads that run what may take long.
#pragma once

#include <boost/asio/thread_pool.hpp>
#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <string>

#include "os/mutex.h"

namespace host {

/// Any thread may call.
class Workers {
 public:
  explicit Workers(std::size_t threads);

  /// Runs a job, which must not throw. Those of one holder take a quarter of the threads at most
  /// and wait for each other; the holder "" may take all.
  void Run(const std::string& holder, std::function<void()> job);
  /// Waits until all jobs have ended, once nobody brings further ones.
  void Join() { pool_.join(); }

 private:
  struct Line {
    std::size_t running = 0;
    std::deque<std::function<void()>> waiting;
  };

  void Start(const std::string& holder, std::function<void()> job);
  void RunNext(const std::string& holder);

  const std::size_t share_;
  Mutex mutex_;
  std::map<std::string, Line> lines_ QV_GUARDED_BY(mutex_);
  boost::asio::thread_pool pool_;
};

}  // namespace host
