// What a server is made of: the handlers that run commands, the door, the limits, the pages.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "host/accounts.h"
#include "host/door.h"
#include "host/http/connections.h"
#include "host/http/limits.h"
#include "host/http/upload_file.h"

namespace boost::asio::ssl {
class context;
}

namespace host {

/// A command as it came in, in the terms of DistributeCommand.
struct IncomingCommand {
  int connectionId = 0;
  int kind = 0;
  std::string path;  ///< with its query; for kind 1 the path of direct messages
  std::string text;
  const UploadFile* upload = nullptr;  ///< the binary body, if there is one
  int browserType = 0;
  int socket = -1;
  std::string domain;
};

/// Runs commands. None of the calls may throw.
class CommandHandler {
 public:
  virtual ~CommandHandler() = default;
  /// The path below which pages find the commands, such as "/qtp/".
  virtual std::string_view path() const = 0;
  /// Whether the command takes some microseconds and waits for nothing, so that it may run on the
  /// thread that read it. On a thread of the server.
  virtual bool IsQuick(const IncomingCommand& command) const = 0;
  /// Runs a command, many at a time; those of one connection one after another. On a worker thread,
  /// or on a thread of the server when it is quick. It answers through the connection's id,
  /// normally before it returns.
  virtual void Run(const IncomingCommand& command) = 0;
  /// Replies have gone out, or their client has. On a thread of the server, which must not wait.
  virtual void Answered() = 0;
  /// A WebSocket is closed; its id finds nobody any more. On a thread of the server.
  virtual void Closed(int connectionId) = 0;
};

/// All of it outlives the server.
struct ServerParts {
  Limits limits;
  const Door& door;
  Accounts& accounts;
  Connections& connections;
  /// The certificate for the next secure connection; null closes it. Any thread calls.
  std::function<std::shared_ptr<boost::asio::ssl::context>()> tls;
  /// Where uploads are kept while they come; it ends in "/".
  std::string uploadFolder;
  /// What GET answers, as JSON text, by its path. Threads of the server call, which must not wait.
  std::map<std::string, std::function<std::string()>, std::less<>> pages;
};

}  // namespace host
