#include "host/http/server.h"

#include <fcntl.h>

#include <boost/asio/basic_socket_acceptor.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/ip/v6_only.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <future>

#include "environment/logging.h"
#include "host/http/http_session.h"
#include "host/http/server_core.h"

namespace host {

namespace {

using Acceptor = net::basic_socket_acceptor<tcp, Executor>;

/// Programs that a command starts must not inherit the service's sockets.
template <class Socket>
void CloseOnExec(Socket& socket) {
  ::fcntl(socket.native_handle(), F_SETFD, FD_CLOEXEC);
}

bool IsMissingAddress(const error_code& ec) {
  return ec == net::error::address_family_not_supported || ec.value() == EADDRNOTAVAIL;
}

/// Of use when there is no error.
Acceptor OpenAcceptor(net::io_context& context, const tcp::endpoint& endpoint, error_code& ec) {
  Acceptor acceptor(context);
  acceptor.open(endpoint.protocol(), ec);
  if (!ec) CloseOnExec(acceptor);
  // Lets a restarted service have its port again while old connections are still fading away.
  if (!ec) acceptor.set_option(Acceptor::reuse_address(true), ec);
  if (!ec && endpoint.address().is_v6()) acceptor.set_option(net::ip::v6_only(true), ec);
  if (!ec) acceptor.bind(endpoint, ec);
  if (!ec) acceptor.listen(net::socket_base::max_listen_connections, ec);
  return acceptor;
}

}  // namespace

/// One port: an acceptor for each address. Once they accept they belong to that thread.
struct Server::Listener {
  Listener(bool isSecure, CommandHandler& itsHandler, std::vector<Acceptor> itsAcceptors)
      : secure(isSecure), handler(itsHandler), acceptors(std::move(itsAcceptors)) {}

  bool secure;
  CommandHandler& handler;
  std::vector<Acceptor> acceptors;

  /// Accepts until the acceptor is closed. Any other failure, such as no free descriptor, passes.
  static Awaitable<void> Accept(ServerCore& core, std::shared_ptr<Listener> listener,
                                Acceptor& acceptor) {
    net::steady_timer pause(core.AcceptContext());
    while (acceptor.is_open()) {
      error_code ec;
      Socket socket = co_await acceptor.async_accept(core.NextContext(), Into(ec));
      if (!ec) {
        CloseOnExec(socket);
        try {
          StartSession(core, std::move(socket), listener->secure, listener->handler);
        } catch (const std::exception& problem) {
          LogErr("A connection could not be served: %s", problem.what());
        }
      } else if (ec != net::error::operation_aborted) {
        LogErr("A connection could not be accepted: %s", ec.message().c_str());
        pause.expires_after(std::chrono::milliseconds(100));
        co_await pause.async_wait(Into(ec));
      }
    }
  }
};

Server::Server(ServerParts parts) : core_(std::make_unique<ServerCore>(std::move(parts))) {}

Server::~Server() {
  while (!listeners_.empty()) Close(listeners_.begin()->first);
}

Server::Listening Server::Open(int port, bool secure, CommandHandler& handler) {
  const auto v4 = net::ip::address_v4::loopback();
  const auto v6 = net::ip::address_v6::loopback();
  const auto endpoint = [](const net::ip::address& address, int number) {
    return tcp::endpoint(address, static_cast<unsigned short>(number));
  };
  Listening result;
  // A port that is free on one address may be taken on the other: then another free one is tried.
  for (int attempt = 0; attempt < 20; ++attempt) {
    error_code ec;
    result = {};
    std::vector<Acceptor> acceptors;
    acceptors.push_back(OpenAcceptor(core_->AcceptContext(), endpoint(v4, port), ec));
    if (!ec) {
      result.port = acceptors.front().local_endpoint().port();
      result.addresses.emplace_back("127.0.0.1");
      Acceptor second = OpenAcceptor(core_->AcceptContext(), endpoint(v6, result.port), ec);
      if (!ec) {
        result.addresses.emplace_back("[::1]");
        acceptors.push_back(std::move(second));
      } else if (IsMissingAddress(ec)) {
        result.note = "This machine has no address [::1]: " + ec.message() + ".";
        ec = {};
      }
    }
    if (!ec) {
      result.id = ++lastListener_;
      const auto listener = std::make_shared<Listener>(secure, handler, std::move(acceptors));
      listeners_.emplace(result.id, listener);
      for (Acceptor& acceptor : listener->acceptors) {
        net::co_spawn(core_->AcceptContext(), Listener::Accept(*core_, listener, acceptor),
                      net::detached);
      }
      return result;
    }
    result = {};
    result.error = "Port " + std::to_string(port) + " cannot be opened: " + ec.message() + ".";
    if (port != 0) break;
  }
  return result;
}

void Server::Close(int id) {
  const auto entry = listeners_.find(id);
  if (entry == listeners_.end()) return;
  const auto listener = std::move(entry->second);
  listeners_.erase(entry);
  std::promise<void> closed;
  net::post(core_->AcceptContext(), [&] {
    for (Acceptor& acceptor : listener->acceptors) {
      error_code ignored;
      acceptor.close(ignored);
    }
    closed.set_value();
  });
  closed.get_future().wait();
}

std::size_t Server::ConnectionCount() const { return core_->open.Count(); }

void Server::RefuseCommands() { core_->RefuseCommands(); }

bool Server::WaitForCommands(std::chrono::seconds time) { return core_->WaitForCommands(time); }

void Server::CloseConnections() { core_->open.EndAll(OpenConnections::Ending::InOrder); }

}  // namespace host
