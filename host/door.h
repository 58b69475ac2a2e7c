// The door: who may come in, and what they may ask. Pure policy, without sockets.
//
// Any page in any browser on this machine can reach the service, so a request must be addressed to
// this machine by name (which defeats names that were rebound to it), and a page's origin must be
// known. Browsers put the origin on every request that can run a command; what carries none comes
// from a program of the connection's account. What that account may do at most (accounts.h) no
// origin exceeds.
//
// Any thread may call.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "os/mutex.h"

namespace host {

/// Each holds those above it.
enum class Rights {
  None,
  Ask,     ///< the commands that the command table opens for this
  Manage,  ///< every function
};

/// The settings that the operator keeps: comma-separated origins, and whether any may ask.
struct OriginLists {
  std::string allowed;
  std::string manage;
  bool anyMayAsk = false;
};

/// Where a request comes from: the page's origin, none for a program of this machine.
using Origin = std::optional<std::string>;

/// What the door looks at in a request and its connection.
struct Visit {
  const std::vector<std::string>& hosts;    ///< of all Host headers
  const std::vector<std::string>& origins;  ///< of all Origin headers
  int port = 0;                             ///< that it came in by
  bool secure = false;
  std::string_view token = {};   ///< that was sent along, "" for none
  Rights most = Rights::Manage;  ///< that the account at the other end may have
  /// A browser says that a page of another site sends it, and it is more than a look at a page.
  bool actsAcrossSites = false;
};

/// Who sends commands, as far as it stays the same: for a WebSocket from beginning to end.
struct Caller {
  Origin origin;
  Rights most = Rights::Manage;  ///< that its account may have
  bool hasToken = false;         ///< it showed the console's token
};

struct Entry {
  Rights rights = Rights::None;
  Caller caller;
  Origin reader;        ///< the page that may read the answer, if any
  std::string refusal;  ///< a sentence for the client when the rights are None
};

class Door {
 public:
  /// `lists` is asked on every look at a foreign origin, so that edited lists take effect at once.
  /// `isToken` tells whether a text is the console's token.
  explicit Door(std::function<OriginLists()> lists,
                std::function<bool(std::string_view)> isToken = {})
      : lists_(std::move(lists)), isToken_(std::move(isToken)) {}

  /// The ports that the service listens on now: pages of its own origins may ask, and manage with
  /// the console's token.
  void SetOwnPorts(const std::vector<int>& plain, const std::vector<int>& secure);

  Entry Judge(const Visit& visit) const;
  Rights RightsOf(const Caller& caller) const;
  /// "" when a caller with these rights may send the command, else the sentence that refuses it.
  std::string RefuseCommand(const Caller& caller, Rights rights, std::string_view path,
                            std::string_view text) const;
  /// The same for an upload, of which nothing but its beginning has come.
  std::string RefuseUpload(const Caller& caller, Rights rights) const;

 private:
  Rights RightsByOrigin(const Caller& caller) const;
  std::string RefuseManaging(const Caller& caller, std::string_view name) const;
  bool IsOwn(const std::string& origin) const;

  std::function<OriginLists()> lists_;
  std::function<bool(std::string_view)> isToken_;
  mutable Mutex mutex_;
  std::vector<std::string> own_ QV_GUARDED_BY(mutex_);
};

/// The reply to a refused command of a WebSocket, in the form of every reply: its parameters and
/// false, code -2205, the reason.
std::string EncodeRefusal(std::string_view path, std::string_view text, const std::string& reason);

}  // namespace host
