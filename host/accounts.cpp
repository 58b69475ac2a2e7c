#include "host/accounts.h"

#include <arpa/inet.h>
#include <grp.h>
#include <netinet/in.h>
#include <pwd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <string_view>
#include <vector>

#include "os/file.h"
#include "os/system.h"
#include "os/text.h"

namespace host {

namespace {

/// What is kept of accounts: each is a real one, but an account may have thousands of others.
constexpr std::size_t kMostKnown = 64;
constexpr std::chrono::seconds kKnownFor(10);

/// Looks up a record of the system's lists. `find` is called with memory of growing size: a large
/// group has long records.
template <class Record, class Find>
bool LookUp(Find find, Record* record, std::vector<char>* memory) {
  constexpr std::size_t kMostMemory = 1024 * 1024;
  for (std::size_t size = 4 * 1024; size <= kMostMemory; size *= 4) {
    memory->resize(size);
    Record* found = nullptr;
    const int error = find(record, memory->data(), memory->size(), &found);
    if (error != ERANGE) return error == 0 && found != nullptr;
  }
  return false;
}

std::optional<unsigned int> NumberIn(std::string_view text) {
  unsigned int number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return {};
  return number;
}

/// An account and what the system's list of users says of it, looked up when it is needed.
class Account {
 public:
  explicit Account(uid_t number) : number_(number) {}

  /// Whether an entry of a list means this account.
  bool IsMeantBy(std::string_view entry) {
    if (entry.starts_with('@')) return IsIn(std::string(entry.substr(1)));
    if (const auto number = NumberIn(entry)) return *number == number_;
    return HasRecord() && entry == record_.pw_name;
  }

 private:
  bool HasRecord() {
    if (!isLookedUp_) {
      isLookedUp_ = true;
      hasRecord_ = LookUp([this](auto... rest) { return ::getpwuid_r(number_, rest...); }, &record_,
                          &memory_);
    }
    return hasRecord_;
  }
  bool IsIn(const std::string& group) {
    if (!HasRecord()) return false;
    struct group its {};
    std::vector<char> memory;
    const auto number = NumberIn(group);
    const bool isThere = LookUp(
        [&](auto... rest) {
          return number ? ::getgrgid_r(*number, rest...) : ::getgrnam_r(group.c_str(), rest...);
        },
        &its, &memory);
    if (!isThere) return false;
    if (its.gr_gid == record_.pw_gid) return true;
    for (char** member = its.gr_mem; *member != nullptr; ++member) {
      if (std::string_view(*member) == record_.pw_name) return true;
    }
    return false;
  }

  const uid_t number_;
  bool isLookedUp_ = false;
  bool hasRecord_ = false;
  passwd record_{};
  std::vector<char> memory_;
};

}  // namespace

Rights Accounts::MostFor(std::optional<uid_t> account) {
  if (account && (*account == 0 || *account == ::geteuid())) return Rights::Manage;
  const Settings settings = settings_();
  if (account && IsListed(*account, settings.manageUsers)) return Rights::Manage;
  return settings.othersMayAsk ? Rights::Ask : Rights::None;
}

bool Accounts::IsListed(uid_t account, const std::string& manageUsers) {
  if (manageUsers.empty()) return false;
  const auto now = Clock::now();
  {
    const MutexLock lock(mutex_);
    const auto known = known_.find(account);
    if (known != known_.end() && known->second.manageUsers == manageUsers &&
        known->second.until > now) {
      return known->second.isListed;
    }
  }
  Account its(account);
  const bool isListed =
      AnyEntry(manageUsers, [&its](std::string_view entry) { return its.IsMeantBy(entry); });
  const MutexLock lock(mutex_);
  if (known_.size() >= kMostKnown) known_.clear();
  known_[account] = {manageUsers, now + kKnownFor, isListed};
  return isListed;
}

bool AreOwnersTold() {
  const Descriptor listener(::socket(AF_INET, SOCK_STREAM, 0));
  const Descriptor client(::socket(AF_INET, SOCK_STREAM, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  auto* const any = reinterpret_cast<sockaddr*>(&address);
  socklen_t size = sizeof address;
  if (!listener || !client || ::bind(listener.get(), any, size) != 0 ||
      ::listen(listener.get(), 1) != 0 || ::getsockname(listener.get(), any, &size) != 0 ||
      ::connect(client.get(), any, size) != 0) {
    return false;
  }
  const Descriptor accepted(::accept(listener.get(), nullptr, nullptr));
  return os::OwnerOf(accepted.get()) == ::geteuid();
}

}  // namespace host
