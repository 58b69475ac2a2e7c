#include "host/http/workers.h"

#include <boost/asio/post.hpp>
#include <utility>

#include "host/http/limits.h"

namespace host {

Workers::Workers(std::size_t threads) : share_(ShareOf(threads)), pool_(threads) {}

void Workers::Run(const std::string& holder, std::function<void()> job) {
  if (holder.empty()) {
    boost::asio::post(pool_, std::move(job));
    return;
  }
  {
    const MutexLock lock(mutex_);
    Line& line = lines_[holder];
    if (line.running >= share_) {
      line.waiting.push_back(std::move(job));
      return;
    }
    ++line.running;
  }
  Start(holder, std::move(job));
}

void Workers::Start(const std::string& holder, std::function<void()> job) {
  boost::asio::post(pool_, [this, holder, job = std::move(job)] {
    job();
    RunNext(holder);
  });
}

void Workers::RunNext(const std::string& holder) {
  std::function<void()> job;
  {
    const MutexLock lock(mutex_);
    const auto line = lines_.find(holder);
    if (line->second.waiting.empty()) {
      if (--line->second.running == 0) lines_.erase(line);
      return;
    }
    job = std::move(line->second.waiting.front());
    line->second.waiting.pop_front();
  }
  // Behind what others have brought meanwhile.
  Start(holder, std::move(job));
}

}  // namespace host
