#include "platform/system_time.h"

#include <cerrno>

#include "os/mutex.h"
#include "os/system.h"

namespace {

// False, with all fields 0, for a time that has no year in an int.
bool BreakDown(std::time_t seconds, std::tm* local) {
  ::tzset();  // localtime_r alone would keep the zone that it met first
  if (::localtime_r(&seconds, local) != nullptr) return true;
  *local = {};
  return false;
}

void Store(const std::tm& local, _SYSTEMTIME* systemTime) {
  systemTime->wYear = static_cast<std::uint16_t>(local.tm_year + 1900);
  systemTime->wMonth = static_cast<std::uint16_t>(local.tm_mon + 1);
  systemTime->wDayOfWeek = 0;
  systemTime->wDay = static_cast<std::uint16_t>(local.tm_mday);
  systemTime->wHour = static_cast<std::uint16_t>(local.tm_hour);
  systemTime->wMinute = static_cast<std::uint16_t>(local.tm_min);
  systemTime->wSecond = static_cast<std::uint16_t>(local.tm_sec);
}

// The second that was asked for last. Log lines ask for the same one many times over, and breaking
// it down takes longer than all the rest of a time stamp.
class LastSecond {
 public:
  std::tm Local(std::time_t seconds) {
    const MutexLock lock(mutex_);
    if (!known_ || seconds_ != seconds) {
      known_ = BreakDown(seconds, &local_);
      seconds_ = seconds;
    }
    return local_;
  }

 private:
  Mutex mutex_;
  bool known_ QV_GUARDED_BY(mutex_) = false;
  std::time_t seconds_ QV_GUARDED_BY(mutex_) = 0;
  std::tm local_ QV_GUARDED_BY(mutex_){};
};
constinit LastSecond g_last;

}  // namespace

DWORD GetTickCount() { return os::TickCount(); }

void Sleep(DWORD milliseconds) {
  std::timespec left{static_cast<std::time_t>(milliseconds / 1000),
                     static_cast<long>(milliseconds % 1000) * 1'000'000};
  while (::nanosleep(&left, &left) != 0 && errno == EINTR) {
  }
}

BOOL GetSystemTime(_SYSTEMTIME* systemTime) {
  std::timespec now{};
  ::clock_gettime(CLOCK_REALTIME, &now);
  Store(g_last.Local(now.tv_sec), systemTime);
  systemTime->wMilliseconds = static_cast<std::uint16_t>(now.tv_nsec / 1'000'000);
  return 1;
}

void ConvertTimeToSystemTime(_SYSTEMTIME* systemTime, std::time_t seconds) {
  std::tm local{};
  BreakDown(seconds, &local);
  Store(local, systemTime);
}

int GetLastError() { return errno; }
