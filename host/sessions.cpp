// The one place that pays for the templates of the sessions.
#include <boost/asio/ssl/context.hpp>

#include "host/http_session.h"

namespace host {

namespace {

template <class Stream>
void Start(ServerCore& core, Stream stream, CommandHandler& handler, bool crowded) {
  const auto executor = stream.get_executor();
  auto session = std::make_shared<HttpSession<Stream>>(core, std::move(stream), handler);
  net::co_spawn(
      executor, [session, crowded] { return session->Run(crowded); }, net::detached);
}

}  // namespace

void StartSession(ServerCore& core, tcp::socket socket, bool secure, CommandHandler& handler) {
  // Some more may be told that there are too many; beyond them, and where telling would cost a
  // handshake, the connection is just closed.
  constexpr std::size_t kToldAtOnce = 32;
  const std::size_t count = core.SessionCount(), limit = core.parts.limits.connections;
  const bool crowded = count >= limit;
  if (crowded && (secure || count >= limit + kToldAtOnce)) return;
  if (!secure) {
    Start(core, std::move(socket), handler, crowded);
  } else if (const auto context = core.parts.tls()) {
    Start(core, beast::ssl_stream<tcp::socket>(std::move(socket), *context), handler, false);
  }
}

}  // namespace host
