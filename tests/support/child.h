// Work in a process of its own, also as another account.
#pragma once

#include <grp.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <vector>

/// Starts `work` in a process of its own, which ends with its result.
template <class Work>
pid_t Start(Work work) {
  const pid_t child = ::fork();
  if (child == 0) std::_Exit(work());
  return child;
}

inline int ResultOf(pid_t child) {
  int status = 0;
  return ::waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

/// An account by its number, which needs no entry anywhere, and its further groups.
struct Account {
  uid_t user;
  std::vector<gid_t> groups = {};
};
inline const Account kStranger{65534};

/// Starts `work` as that account, which only root can.
template <class Work>
pid_t StartAs(const Account& account, Work work) {
  return Start([&] {
    constexpr int kNoRights = 127;
    if (::setgroups(account.groups.size(), account.groups.data()) != 0 ||
        ::setgid(account.user) != 0 || ::setuid(account.user) != 0) {
      return kNoRights;
    }
    return work();
  });
}
