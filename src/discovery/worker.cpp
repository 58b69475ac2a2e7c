#include "discovery/worker.h"

#include <unistd.h>

#include <cassert>
#include <cerrno>
#include <exception>
#include <system_error>
#include <utility>

#include "environment/logging.h"

namespace mdns_wrapper {

mDNSBase::mDNSBase(std::string role) : role_(std::move(role)) {}

mDNSBase::~mDNSBase() {
  assert(!thread_.joinable() && "the derived destructor stops the worker");
  stopForDestruction();
}

bool mDNSBase::init() {
  char name[256] = {};
  if (::gethostname(name, sizeof name - 1) == 0) {
    const MutexLock lock(mutex_);
    hostName_ = name;
  }
  return true;
}

bool mDNSBase::start() {
  // The loop itself runs only while the worker does.
  if (loopThread_.load() == std::this_thread::get_id()) return true;
  const MutexLock control(controlMutex_);
  if (running_) return true;
  init();
  stopRequest_.takeBack();
  looping_ = true;
  running_ = true;
  try {
    thread_ = std::thread(&mDNSBase::run, this);
  } catch (const std::system_error& error) {
    running_ = false;
    throw std::system_error(error.code(), "thread constructor failed");
  } catch (...) {
    running_ = false;
    throw;
  }
  return true;
}

void mDNSBase::notifyStop() {
  if (running_) stopRequest_.make();
}

bool mDNSBase::stop() {
  if (loopThread_.load() == std::this_thread::get_id()) {
    stopRequest_.make();
    return true;
  }
  const MutexLock control(controlMutex_);
  if (!running_) return true;
  running_ = false;
  stopRequest_.make();
  thread_.join();
  return true;
}

std::string mDNSBase::instanceName() const {
  const MutexLock lock(mutex_);
  return ownName_.empty() ? hostName_ : ownName_;
}

void mDNSBase::setInstanceName(const std::string& name) {
  const MutexLock lock(mutex_);
  ownName_ = name;
}

void mDNSBase::run() noexcept {
  loopThread_ = std::this_thread::get_id();
  try {
    runMainLoop();
  } catch (const std::exception& error) {
    errno = 0;  // the line ends with it
    LogErr("mDNS %s ended: %s\n", role_.c_str(), error.what());
  } catch (...) {
    errno = 0;
    LogErr("mDNS %s ended by an unknown exception\n", role_.c_str());
  }
  loopThread_ = std::thread::id();
  looping_ = false;
}

}  // namespace mdns_wrapper
