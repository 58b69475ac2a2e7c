// A bound on how long a connection waits for its client.
#pragma once

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <memory>

namespace host {

/// Cancels what a socket waits for once the time is over. The socket stays open, so that the client
/// can still be told why. Belongs to the socket's strand and must not outlive the socket.
class Deadline {
 public:
  explicit Deadline(boost::asio::ip::tcp::socket& socket)
      : state_(std::make_shared<State>(socket)) {}
  ~Deadline() {
    Stop();
    state_->socket = nullptr;
  }
  Deadline(const Deadline&) = delete;
  Deadline& operator=(const Deadline&) = delete;

  void Start(std::chrono::steady_clock::duration time) {
    state_->passed = false;
    state_->timer.expires_after(time);
    Wait(state_);
  }
  void Stop() { state_->timer.expires_at(std::chrono::steady_clock::time_point::max()); }
  /// Whether the time since the last Start ran out before Stop.
  bool passed() const { return state_->passed; }

 private:
  struct State {
    explicit State(boost::asio::ip::tcp::socket& itsSocket)
        : timer(itsSocket.get_executor()), socket(&itsSocket) {}
    boost::asio::steady_timer timer;
    boost::asio::ip::tcp::socket* socket;
    bool passed = false;
  };

  static void Wait(const std::shared_ptr<State>& state) {
    state->timer.async_wait([state](boost::system::error_code ec) {
      const auto now = std::chrono::steady_clock::now();
      if (ec || state->socket == nullptr || state->timer.expiry() > now) return;
      state->passed = true;
      state->socket->cancel(ec);
      // An operation of several steps may be between two of them just now: try again until Stop.
      state->timer.expires_after(std::chrono::milliseconds(50));
      Wait(state);
    });
  }

  std::shared_ptr<State> state_;
};

}  // namespace host
