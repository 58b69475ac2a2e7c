// How a connection waits: for its client no longer than a deadline, and for its own other parts.
#pragma once

#include <boost/asio/basic_waitable_timer.hpp>
#include <boost/asio/post.hpp>
#include <chrono>
#include <memory>

#include "host/http/stream.h"

namespace host {

/// Cancels what a socket waits for once the time is over. The socket stays open, so that the client
/// can still be told why. Belongs to the socket's thread and must not outlive the socket.
///
/// Starting and stopping only note the time: the timer looks at it when it fires, and is set anew
/// only for a time that ends sooner than it would fire.
class Deadline {
  using Clock = std::chrono::steady_clock;

 public:
  explicit Deadline(Socket& socket) : state_(std::make_shared<State>(socket)) {}
  ~Deadline() {
    state_->socket = nullptr;
    state_->timer.cancel();
  }
  Deadline(const Deadline&) = delete;
  Deadline& operator=(const Deadline&) = delete;

  void Start(Clock::duration time) {
    state_->passed = false;
    state_->end = Clock::now() + time;
    if (!state_->armed || state_->end < state_->timer.expiry()) Arm(state_, state_->end);
  }
  void Stop() { state_->end = kNever; }
  /// Whether the time since the last Start ran out before Stop.
  bool passed() const { return state_->passed; }

 private:
  static constexpr auto kNever = Clock::time_point::max();

  struct State {
    explicit State(Socket& itsSocket) : timer(itsSocket.get_executor()), socket(&itsSocket) {}
    net::basic_waitable_timer<Clock, net::wait_traits<Clock>, Executor> timer;
    Socket* socket;
    Clock::time_point end = kNever;
    bool armed = false;
    bool passed = false;
  };

  static void Arm(const std::shared_ptr<State>& state, Clock::time_point when) {
    state->armed = true;
    state->timer.expires_at(when);
    state->timer.async_wait([state](error_code ec) {
      if (ec || state->socket == nullptr) return;
      state->armed = false;
      if (state->end == kNever) return;
      const auto now = Clock::now();
      if (state->end > now) return Arm(state, state->end);
      state->passed = true;
      state->socket->cancel(ec);
      // An operation of several steps may be between two of them just now: try again until Stop.
      Arm(state, now + std::chrono::milliseconds(50));
    });
  }

  std::shared_ptr<State> state_;
};

/// Lets one coroutine sleep until another part of the same connection wakes it.
class Signal {
 public:
  explicit Signal(Executor executor) : executor_(executor) {}

  /// Returns once Notify has been called since Wait last returned.
  Awaitable<void> Wait() {
    if (!notified_) {
      co_await net::async_initiate<decltype(kAwait), void(error_code, std::size_t)>(
          [this](auto handler) { sleeper_ = Completion(std::move(handler)); }, kAwait);
    }
    notified_ = false;
  }
  void Notify() {
    notified_ = true;
    if (sleeper_) net::post(executor_, std::exchange(sleeper_, Completion()));
  }

 private:
  Executor executor_;
  Completion sleeper_;
  bool notified_ = false;
};

}  // namespace host
