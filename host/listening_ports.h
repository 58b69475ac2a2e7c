// The ports that the service listens on: which each module asked for, and what came of it.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "environment/ports.h"
#include "host/http/server.h"
#include "os/mutex.h"

namespace host {

struct PortState {
  std::string alias;  ///< of the module
  bool secure = false;
  int requested = 0;
  int actual = 0;  ///< 0 when nothing listens
  std::vector<std::string> addresses;
  std::string problem;  ///< "" when the requested port is listening
};

/// Opens, moves and remembers ports. All calls but Snapshot are for one controlling thread.
class ListeningPorts {
 public:
  /// Tells the door which origins are the service's own.
  ListeningPorts(Server& server, Door& door) : server_(server), door_(door) {}

  /// A port to open. Unless it was `chosen` on the command line the settings decide, and the
  /// module's default where they are silent or no port number.
  void Add(const std::string& alias, bool secure, std::optional<int> chosen, int byDefault,
           CommandHandler& handler);

  /// Opens what is not open yet. Secure ports stay closed with a `secureProblem`, a reason for the
  /// lack of a certificate. Tells on standard output where it listens, on standard error
  /// why it does not. The ports that it opened are stored in the settings, unless somebody has
  /// stored another since the settings were read.
  void Open(const std::string& secureProblem);
  /// The same after reading the settings anew: a port that moved is opened before the old one is
  /// closed, and stays where it is when that fails.
  void Reopen(const std::string& secureProblem);
  void CloseAll();

  bool IsListening() const;
  std::vector<PortState> Snapshot() const;

 private:
  struct Slot {
    PortState state;
    int stored = 0;             ///< the port in the settings at the last look, 0 for none
    bool isToBeStored = false;  ///< the actual port is news for the settings
    int listener = 0;           ///< the server's id, 0 for none
    int byDefault = 0;
    CommandHandler* handler = nullptr;
  };
  void ReadSettings(Slot& slot, const StoredPorts& stored, std::optional<int> chosen);
  void Open(Slot& slot, const std::string& secureProblem);
  void Close(Slot& slot);
  void Settle();
  void Publish();
  void Store();

  Server& server_;
  Door& door_;
  std::vector<Slot> slots_;
  std::vector<std::string> news_;  ///< lines not told yet
  mutable Mutex mutex_;
  std::vector<PortState> published_ QV_GUARDED_BY(mutex_);
};

}  // namespace host
