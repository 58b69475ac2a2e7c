// A connection of HTTP: one exchange after another until one side hangs up or the connection
// becomes a WebSocket.
#pragma once

#include "host/http/server_core.h"

namespace host {

/// Serves a connection until it ends. Returns at once. On the thread that accepts.
void StartSession(ServerCore& core, Socket socket, bool secure, CommandHandler& handler);

}  // namespace host
