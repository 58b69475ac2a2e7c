// A connection that became a WebSocket.
#pragma once

#include <memory>

#include "host/http/http_message.h"
#include "host/http/server_core.h"

namespace host {

/// On the connection's thread.
class WebSocketSession {
 public:
  virtual ~WebSocketSession() = default;
  /// Accepts the upgrade and serves the connection to its end.
  virtual Awaitable<void> Run(const RequestFacts& upgrade) = 0;
  /// Sends the replies that wait and closes: the service is stopping, or another connection needs
  /// the place.
  virtual void GoAway(bool crowded) = 0;
  virtual void Cut() = 0;
};

/// Whether the request asks for a WebSocket.
bool IsUpgrade(const RequestFacts& facts);

/// `pattern` is what all commands of this connection have in common. A path of the modules' own is
/// kept as their path; messages on any other are direct. The place outlives the session's use.
std::shared_ptr<WebSocketSession> MakeWebSocketSession(ServerCore& core,
                                                       std::unique_ptr<Stream> stream,
                                                       CommandHandler& handler, Caller caller,
                                                       OpenConnections::Place& place,
                                                       IncomingCommand pattern);

}  // namespace host
