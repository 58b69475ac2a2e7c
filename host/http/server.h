// The server: listeners on the loopback addresses, HTTP and WebSocket on each.
#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/http/server_parts.h"

namespace host {

class ServerCore;

/// The calls below are for one controlling thread. The destructor cuts what is still open and waits
/// for running commands.
class Server {
 public:
  explicit Server(ServerParts parts);
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  struct Listening {
    int id = 0;                          ///< for Close; 0 when nothing listens
    int port = 0;                        ///< the actual one, the same on all addresses
    std::vector<std::string> addresses;  ///< as in an URL
    std::string error;                   ///< why nothing listens, "" when something does
    std::string note;                    ///< what is missing although something listens
  };
  /// Listens on 127.0.0.1 and [::1]; 0 takes a free port. The handler serves what comes in there.
  Listening Open(int port, bool secure, CommandHandler& handler);
  /// Stops listening before it returns; open connections live on.
  void Close(int id);

  std::size_t ConnectionCount() const;

  /// The end, in this order. No command is begun any more:
  void RefuseCommands();
  /// Waits for the running ones; false when time ran out before they ended.
  bool WaitForCommands(std::chrono::seconds time);
  /// Closes all connections, WebSockets by saying that the service goes away.
  void CloseConnections();

 private:
  struct Listener;

  const std::unique_ptr<ServerCore> core_;
  std::map<int, std::shared_ptr<Listener>> listeners_;
  int lastListener_ = 0;
};

}  // namespace host
