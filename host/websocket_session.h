// A WebSocket: reads ahead while a command runs, runs the commands one after another, and writes
// the replies. Each of the three is a coroutine on the connection's strand that lives as long as
// there is something to do.
#pragma once

#include <boost/asio/buffer.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/redirect_error.hpp>
#include <boost/beast/core/stream_traits.hpp>
#include <boost/beast/websocket/ssl.hpp>
#include <boost/beast/websocket/stream.hpp>
#include <deque>
#include <optional>

#include "frame/command_text.h"
#include "host/deadline.h"
#include "host/server_core.h"

namespace host {

namespace websocket = boost::beast::websocket;
using boost::system::error_code;

template <class Stream>
class WebSocketSession : public std::enable_shared_from_this<WebSocketSession<Stream>> {
 public:
  /// `pattern` is what all commands of this connection have in common. A path of the modules' own
  /// is kept as their path; messages on any other are direct.
  WebSocketSession(ServerCore& core, Stream stream, CommandHandler& handler, Origin origin,
                   Command pattern)
      : core_(core),
        limits_(core.parts.limits),
        handler_(handler),
        origin_(std::move(origin)),
        pattern_(std::move(pattern)),
        ws_(std::move(stream)),
        deadline_(boost::beast::get_lowest_layer(ws_)),
        wakeUp_(ws_.get_executor()) {
    pattern_.kind = pattern_.path.starts_with(DIRECT_PATH) ? 0 : 1;
    if (pattern_.kind == 1) pattern_.path = DIRECT_PATH;
  }

  /// Accepts the upgrade and serves the connection to its end.
  template <class Request>
  net::awaitable<void> Run(const Request& request) {
    SetIdleTime(limits_.patience);
    ws_.read_message_max(limits_.textBytes);
    ws_.auto_fragment(false);
    error_code ec;
    co_await ws_.async_accept(request, net::redirect_error(net::use_awaitable, ec));
    if (ec) co_return;

    outbox_ = std::make_shared<Outbox>(
        limits_.outboundBytes, [weak = this->weak_from_this(), executor = ws_.get_executor()] {
          net::post(executor, [weak] {
            if (const auto self = weak.lock()) self->StartWriting();
          });
        });
    const Registration registration(core_.parts.connections, outbox_);
    pattern_.connectionId = registration.id();
    open_ = true;
    co_await Read();
    outbox_->Close();
    // What was received is run, although its client may be gone.
    while (running_ || writing_) co_await Sleep();
    handler_.Answered();
    handler_.Closed(registration.id());
  }

  /// Both are called on the strand: the first sends the replies that wait before it closes.
  void GoAway() { RequestClose(websocket::close_code::going_away, "The service is stopping."); }
  void Cut() {
    error_code ignored;
    boost::beast::get_lowest_layer(ws_).close(ignored);
  }

 private:
  void RequestClose(websocket::close_code code, const char* reason) {
    if (!open_ || close_) return;
    close_.emplace(code, reason);
    outbox_->Close();
    StartWriting();
  }

  void SetIdleTime(std::chrono::steady_clock::duration time) {
    ws_.set_option(websocket::stream_base::timeout{limits_.closing, time, true});
  }

  bool IsFull() const {
    return inbound_.size() >= limits_.waitingMessages || inboundBytes_ >= limits_.waitingBytes;
  }

  /// Until WakeUp is called.
  net::awaitable<void> Sleep() {
    error_code ec;
    wakeUp_.expires_at(std::chrono::steady_clock::time_point::max());
    co_await wakeUp_.async_wait(net::redirect_error(net::use_awaitable, ec));
  }
  void WakeUp() { wakeUp_.cancel(); }

  net::awaitable<void> Read() {
    for (;;) {
      if (IsFull()) {
        // While nothing is read no ping can be answered either: silence is our own doing.
        SetIdleTime(websocket::stream_base::none());
        while (IsFull()) co_await Sleep();
        SetIdleTime(limits_.patience);
      }
      std::string message;
      auto buffer = net::dynamic_buffer(message);
      error_code ec;
      co_await ws_.async_read(buffer, net::redirect_error(net::use_awaitable, ec));
      if (ec) {
        if (!close_) Cut();
        co_return;
      }
      if (close_) continue;
      if (ws_.got_binary()) {
        RequestClose(websocket::close_code::unknown_data, "Messages are texts.");
        co_return;
      }
      if (message.find('\0') != message.npos) {
        RequestClose(websocket::close_code::bad_payload, "A message holds no NUL.");
        co_return;
      }
      inboundBytes_ += message.size();
      inbound_.push_back(std::move(message));
      if (!std::exchange(running_, true)) Spawn(&WebSocketSession::RunCommands);
    }
  }

  net::awaitable<void> RunCommands() {
    while (!inbound_.empty()) {
      Command command = pattern_;
      command.text = std::move(inbound_.front());
      inbound_.pop_front();
      inboundBytes_ -= command.text.size();
      WakeUp();
      auto job = [this, &command] {
        // The lists may have been edited since the connection was made.
        const Door& door = core_.parts.door;
        const std::string refusal =
            door.RefuseCommand(origin_, door.RightsOf(origin_), command.path, command.text);
        if (refusal.empty()) {
          handler_.Run(command);
        } else {
          outbox_->Deliver({EncodeRefusal(command.path, command.text, refusal), ""});
        }
      };
      if (!co_await OnWorker(core_, std::move(job))) {
        inbound_.clear();
        inboundBytes_ = 0;
        GoAway();
      }
    }
    running_ = false;
    WakeUp();
    if (!writing_) handler_.Answered();
  }

  void StartWriting() {
    if (!std::exchange(writing_, true)) Spawn(&WebSocketSession::Write);
  }

  net::awaitable<void> Write() {
    error_code ec;
    while (auto frame = outbox_->Next()) {
      ws_.binary(frame->binary);
      deadline_.Start(limits_.patience);
      co_await ws_.async_write(net::buffer(frame->bytes),
                               net::redirect_error(net::use_awaitable, ec));
      deadline_.Stop();
      if (ec) break;
    }
    handler_.Answered();
    if (outbox_->overflowed() && !close_) {
      close_.emplace(websocket::close_code::try_again_later, "Replies are not taken.");
    }
    if (ec) {
      outbox_->Close();
      Cut();
    } else if (close_) {
      co_await ws_.async_close(*close_, net::redirect_error(net::use_awaitable, ec));
    }
    writing_ = false;
    WakeUp();
  }

  void Spawn(net::awaitable<void> (WebSocketSession::*coroutine)()) {
    net::co_spawn(
        ws_.get_executor(),
        [self = this->shared_from_this(), coroutine] { return ((*self).*coroutine)(); },
        net::detached);
  }

  ServerCore& core_;
  const Limits& limits_;
  CommandHandler& handler_;
  const Origin origin_;
  Command pattern_;
  websocket::stream<Stream, false> ws_;
  Deadline deadline_;
  net::steady_timer wakeUp_;
  std::shared_ptr<Outbox> outbox_;
  std::deque<std::string> inbound_;
  std::size_t inboundBytes_ = 0;
  bool open_ = false;
  bool running_ = false;
  bool writing_ = false;
  std::optional<websocket::close_reason> close_;
};

}  // namespace host
