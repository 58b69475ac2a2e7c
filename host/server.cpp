#include "host/server.h"

#include <fcntl.h>

#include <algorithm>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/ip/v6_only.hpp>
#include <boost/asio/redirect_error.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/strand.hpp>
#include <future>

#include "environment/logging.h"
#include "host/server_core.h"

namespace host {

using boost::system::error_code;

/// One port: an acceptor for each address, all on one strand.
struct ListenerState {
  ListenerState(net::io_context& io, bool isSecure, CommandHandler& itsHandler)
      : strand(net::make_strand(io)), secure(isSecure), handler(itsHandler) {}

  net::strand<net::io_context::executor_type> strand;
  const bool secure;
  CommandHandler& handler;
  std::vector<tcp::acceptor> acceptors;
};

ServerCore::ServerCore(ServerParts serverParts)
    : parts(std::move(serverParts)),
      workers(std::max(8u, 2 * std::thread::hardware_concurrency())) {
  const unsigned count = std::clamp(std::thread::hardware_concurrency(), 2u, 4u);
  for (unsigned i = 0; i < count; ++i) {
    threads.emplace_back([this] {
      for (;;) {
        try {
          io.run();
          return;
        } catch (const std::exception& problem) {
          LogErr("A session ended by an exception: %s", problem.what());
        }
      }
    });
  }
}

ServerCore::~ServerCore() {
  EndSessions(Ending::AtOnce);
  work.reset();
  for (std::thread& thread : threads) thread.join();
  workers.join();
}

bool ServerCore::EnterCommand() {
  const std::lock_guard lock(mutex_);
  if (refusing_) return false;
  ++commands_;
  return true;
}

void ServerCore::LeaveCommand() {
  const std::lock_guard lock(mutex_);
  if (--commands_ == 0) changed_.notify_all();
}

void ServerCore::RefuseCommands() {
  const std::lock_guard lock(mutex_);
  refusing_ = true;
}

bool ServerCore::WaitForCommands(std::chrono::seconds time) {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, time, [this] { return commands_ == 0; });
}

int ServerCore::AddSession(std::function<void(Ending)> end) {
  const std::lock_guard lock(mutex_);
  if (ending_) end(*ending_);
  sessions_.emplace(++lastSession_, std::move(end));
  return lastSession_;
}

void ServerCore::RemoveSession(int id) {
  const std::lock_guard lock(mutex_);
  sessions_.erase(id);
  if (sessions_.empty()) changed_.notify_all();
}

std::size_t ServerCore::SessionCount() const {
  const std::lock_guard lock(mutex_);
  return sessions_.size();
}

void ServerCore::EndSessions(Ending ending) {
  std::unique_lock lock(mutex_);
  ending_ = ending;
  for (const auto& [id, end] : sessions_) end(ending);
  if (ending == Ending::AtOnce) return;
  changed_.wait_for(lock, 2 * parts.limits.closing, [this] { return sessions_.empty(); });
}

namespace {

/// Programs that a command starts must not inherit the service's sockets.
template <class Socket>
void CloseOnExec(Socket& socket) {
  ::fcntl(socket.native_handle(), F_SETFD, FD_CLOEXEC);
}

bool IsMissingAddress(const error_code& ec) {
  return ec == net::error::address_family_not_supported || ec.value() == EADDRNOTAVAIL;
}

void OpenAcceptor(ListenerState& listener, const tcp::endpoint& endpoint, error_code& ec) {
  tcp::acceptor acceptor(listener.strand);
  acceptor.open(endpoint.protocol(), ec);
  if (!ec) CloseOnExec(acceptor);
  // Lets a restarted service have its port again while old connections are still fading away.
  if (!ec) acceptor.set_option(tcp::acceptor::reuse_address(true), ec);
  if (!ec && endpoint.address().is_v6()) acceptor.set_option(net::ip::v6_only(true), ec);
  if (!ec) acceptor.bind(endpoint, ec);
  if (!ec) acceptor.listen(net::socket_base::max_listen_connections, ec);
  if (!ec) listener.acceptors.push_back(std::move(acceptor));
}

/// Accepts until the acceptor is closed. Any other failure, such as no free descriptor, passes.
net::awaitable<void> Accept(ServerCore& core, std::shared_ptr<ListenerState> listener,
                            tcp::acceptor& acceptor) {
  net::steady_timer pause(listener->strand);
  while (acceptor.is_open()) {
    error_code ec;
    tcp::socket socket = co_await acceptor.async_accept(
        net::make_strand(core.io), net::redirect_error(net::use_awaitable, ec));
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
      co_await pause.async_wait(net::redirect_error(net::use_awaitable, ec));
    }
  }
}

}  // namespace

Server::Server(ServerParts parts) : core_(std::make_unique<ServerCore>(std::move(parts))) {}

Server::~Server() {
  while (!core_->listeners.empty()) Close(core_->listeners.begin()->first);
}

Server::Listening Server::Open(int port, bool secure, CommandHandler& handler) {
  const auto v4 = net::ip::address_v4::loopback();
  const auto v6 = net::ip::address_v6::loopback();
  const auto endpoint = [](const net::ip::address& address, int number) {
    return tcp::endpoint(address, static_cast<unsigned short>(number));
  };
  Listening result;
  auto listener = std::make_shared<ListenerState>(core_->io, secure, handler);
  // A port that is free on one address may be taken on the other: then another free one is tried.
  for (int attempt = 0; attempt < 20; ++attempt) {
    error_code ec;
    result = {};
    listener->acceptors.clear();
    OpenAcceptor(*listener, endpoint(v4, port), ec);
    if (!ec) {
      result.port = listener->acceptors.front().local_endpoint().port();
      result.addresses.emplace_back("127.0.0.1");
      OpenAcceptor(*listener, endpoint(v6, result.port), ec);
      if (!ec) {
        result.addresses.emplace_back("[::1]");
      } else if (IsMissingAddress(ec)) {
        result.note = "This machine has no address [::1]: " + ec.message() + ".";
        ec = {};
      }
    }
    if (!ec) {
      result.id = ++core_->lastListener;
      core_->listeners.emplace(result.id, listener);
      for (tcp::acceptor& acceptor : listener->acceptors) {
        net::co_spawn(listener->strand, Accept(*core_, listener, acceptor), net::detached);
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
  const auto entry = core_->listeners.find(id);
  if (entry == core_->listeners.end()) return;
  const auto listener = std::move(entry->second);
  core_->listeners.erase(entry);
  std::promise<void> closed;
  net::post(listener->strand, [&] {
    for (tcp::acceptor& acceptor : listener->acceptors) {
      error_code ignored;
      acceptor.close(ignored);
    }
    closed.set_value();
  });
  closed.get_future().wait();
}

std::size_t Server::ConnectionCount() const { return core_->SessionCount(); }

void Server::RefuseCommands() { core_->RefuseCommands(); }

bool Server::WaitForCommands(std::chrono::seconds time) { return core_->WaitForCommands(time); }

void Server::CloseConnections() { core_->EndSessions(ServerCore::Ending::InOrder); }

}  // namespace host
