// The server: listeners on the loopback addresses, HTTP and WebSocket on each, commands on worker
// threads. What runs the commands, who may send them and which certificate is shown are handed in.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/connections.h"
#include "host/door.h"
#include "host/limits.h"

namespace boost::asio::ssl {
class context;
}

namespace host {

/// A command as it came in, in the terms of DistributeCommand.
struct Command {
  int connectionId = 0;
  int kind = 0;
  std::string path;  ///< with its query; for kind 1 the path of direct messages
  std::string text;
  std::string payload;  ///< binary body, "" for none
  int browserType = 0;
  int socket = -1;
  std::string domain;
};

/// Runs commands. None of the calls may throw.
class CommandHandler {
 public:
  virtual ~CommandHandler() = default;
  /// Runs a command, on a worker thread, many at a time; those of one connection one after another.
  /// It answers through the connection's id, normally before it returns.
  virtual void Run(const Command& command) = 0;
  /// Replies have gone out, or their client has. On a thread of the server, which must not wait.
  virtual void Answered() = 0;
  /// A WebSocket is closed; its id finds nobody any more. On a thread of the server.
  virtual void Closed(int connectionId) = 0;
};

/// What a server is made of; all of it outlives the server.
struct ServerParts {
  Limits limits;
  const Door& door;
  Connections& connections;
  /// The certificate for the next secure connection; null closes it. Any thread calls.
  std::function<std::shared_ptr<boost::asio::ssl::context>()> tls;
  /// What GET answers, as JSON text, by its path. Worker threads call.
  std::map<std::string, std::function<std::string()>, std::less<>> pages;
};

struct ServerCore;

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
  std::unique_ptr<ServerCore> core_;
};

}  // namespace host
