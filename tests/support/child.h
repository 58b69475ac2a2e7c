// Work in a process of its own, also as another account.
#pragma once

#include <grp.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
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

/// What `work` does on a disk that has no room for files of more than a page.
template <class Work>
auto OnAFullDisk(Work work) {
  return [work] {
    constexpr rlimit kFull{4096, 4096};
    std::signal(SIGXFSZ, SIG_IGN);
    ::setrlimit(RLIMIT_FSIZE, &kFull);
    return work();
  };
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
