// Which accounts of this machine may do what. Loopback is open to all of them, and the service acts
// for one: its own.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <string>

#include "host/door.h"
#include "os/mutex.h"

namespace host {

class Accounts {
 public:
  struct Settings {
    /// Accounts that are as good as the service's own: comma-separated names or numbers, and
    /// groups with an "@" before theirs.
    std::string manageUsers;
    bool othersMayAsk = false;
  };

  /// `settings` is asked for each account but the service's own and root.
  explicit Accounts(std::function<Settings()> settings) : settings_(std::move(settings)) {}

  /// The most that a connection of this account may do; nothing is an account that is not known.
  /// May ask the system's lists of users and groups, at most every ten seconds for an account. Any
  /// thread may call.
  Rights MostFor(std::optional<uid_t> account);

 private:
  using Clock = std::chrono::steady_clock;
  struct Known {
    std::string manageUsers;
    Clock::time_point until;
    bool isListed;
  };

  bool IsListed(uid_t account, const std::string& manageUsers);

  const std::function<Settings()> settings_;
  Mutex mutex_;
  std::map<uid_t, Known> known_ QV_GUARDED_BY(mutex_);
};

/// Whether the system tells whose a connection is: tried with one of this process to itself.
bool AreOwnersTold();

}  // namespace host
