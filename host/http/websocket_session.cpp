// Reads ahead while a command runs, runs the commands one after another, and writes the replies.
// Each of the three is a coroutine on the connection's thread.
#include "host/http/websocket_session.h"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/dispatch.hpp>
#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/websocket/rfc6455.hpp>
#include <boost/beast/websocket/stream.hpp>
#include <deque>
#include <optional>

#include "command/command_text.h"
#include "environment/logging.h"
#include "host/http/waiting.h"

namespace host {

namespace {

namespace websocket = boost::beast::websocket;
constexpr const char* kTooMuchWaits = "Too many texts and replies are waiting: try again later.";
using UpgradeRequest = http::request<http::empty_body>;

UpgradeRequest MakeUpgradeRequest(const RequestFacts& facts) {
  UpgradeRequest request(facts.verb, facts.target, facts.version);
  for (const std::string& value : facts.hosts) request.insert(http::field::host, value);
  for (const auto& [name, value] : facts.upgrade) request.insert(name, value);
  return request;
}

class BeastSession : public WebSocketSession, public std::enable_shared_from_this<BeastSession> {
 public:
  BeastSession(ServerCore& core, std::unique_ptr<Stream> stream, CommandHandler& handler,
               Caller caller, OpenConnections::Place& place, IncomingCommand pattern)
      : core_(core),
        limits_(core.parts.limits),
        handler_(handler),
        caller_(std::move(caller)),
        place_(place),
        pattern_(std::move(pattern)),
        stream_(std::move(stream)),
        ws_(*stream_),
        deadline_(stream_->socket()),
        toWrite_(stream_->get_executor()),
        progress_(stream_->get_executor()),
        share_(core.queues) {
    pattern_.kind = pattern_.path.starts_with(DIRECT_PATH) ? 0 : 1;
    if (pattern_.kind == 1) pattern_.path = DIRECT_PATH;
  }

  Awaitable<void> Run(const RequestFacts& upgrade) override;
  void GoAway(bool crowded) override {
    if (!crowded) {
      RequestClose(websocket::close_code::going_away, "The service is stopping.");
    } else if (sending_) {
      Cut();  // the client would not get to read it
    } else {
      RequestClose(websocket::close_code::try_again_later, "Too many connections are open.");
    }
  }
  void Cut() override { beast_close_socket(*stream_); }

 private:
  /// Lets the writer end when Run ends, also by an exception: it would wait for ever.
  struct EndOfReading {
    ~EndOfReading() {
      if (!session.readingEnded_) session.Cut();
      session.EndReading();
    }
    BeastSession& session;
  };
  /// Whatever ends the commands: others wait for that, and what gave no reply has been answered.
  struct EndOfRunning {
    ~EndOfRunning() {
      session.running_ = false;
      session.place_.Rest();
      session.progress_.Notify();
      session.toWrite_.Notify();
    }
    BeastSession& session;
  };
  void EndReading();
  void RequestClose(websocket::close_code code, const char* reason);
  void SetIdleTime(std::chrono::steady_clock::duration time) {
    ws_.set_option(websocket::stream_base::timeout{limits_.closing, time, true});
  }
  bool IsFull() const {
    return inbound_.size() >= limits_.waitingMessages || inboundBytes_ >= limits_.waitingBytes;
  }
  Awaitable<void> Read();
  Awaitable<error_code> ReadMessage(std::string& message);
  /// Counts what has been received and is not through yet. False when there is no room for it.
  bool CountInbound() { return share_.Resize(inboundBytes_ + readingBytes_ + runningBytes_); }
  void Take(std::string message);
  IncomingCommand MakeCommand(std::string text) const;
  void RunOrRefuse(const IncomingCommand& command);
  Awaitable<void> RunCommands();
  Awaitable<bool> RunNext();
  Awaitable<void> Write();
  void Spawn(Awaitable<void> (BeastSession::*coroutine)());

  ServerCore& core_;
  const Limits& limits_;
  CommandHandler& handler_;
  const Caller caller_;
  OpenConnections::Place& place_;
  IncomingCommand pattern_;
  const std::unique_ptr<Stream> stream_;
  websocket::stream<Stream&, false> ws_;
  Deadline deadline_;
  Signal toWrite_;   // there are frames, or a close was asked for, or reading has ended
  Signal progress_;  // something of what Run and Read wait for has changed
  std::shared_ptr<Outbox> outbox_;
  std::deque<std::string> inbound_;
  std::size_t inboundBytes_ = 0;
  std::size_t readingBytes_ = 0;  // of the message that is coming
  std::size_t runningBytes_ = 0;  // of the one that runs
  BudgetShare share_;
  bool open_ = false;
  bool readingEnded_ = false;
  bool running_ = false;
  bool writing_ = false;
  bool sending_ = false;  // a frame is on its way
  std::optional<websocket::close_reason> close_;
};

Awaitable<void> BeastSession::Run(const RequestFacts& upgrade) {
  SetIdleTime(limits_.patience);
  ws_.read_message_max(limits_.textBytes);
  ws_.auto_fragment(false);
  error_code ec;
  const UpgradeRequest request = MakeUpgradeRequest(upgrade);
  co_await ws_.async_accept(request, Into(ec));
  if (ec) co_return;

  outbox_ = std::make_shared<Outbox>(limits_.outboundBytes, core_.queues,
                                     [weak = weak_from_this(), executor = stream_->get_executor()] {
                                       net::dispatch(executor, [weak] {
                                         if (const auto self = weak.lock()) self->toWrite_.Notify();
                                       });
                                     });
  const Registration registration(core_.parts.connections, outbox_);
  pattern_.connectionId = registration.id();
  open_ = true;
  place_.Rest();
  Spawn(&BeastSession::Write);
  const EndOfReading end{*this};
  co_await Read();
  outbox_->Close();
  // What was received is run, although its client may be gone.
  while (running_) co_await progress_.Wait();
  EndReading();
  while (writing_) co_await progress_.Wait();
  handler_.Answered();
  handler_.Closed(registration.id());
}

void BeastSession::EndReading() {
  readingEnded_ = true;
  outbox_->Close();
  toWrite_.Notify();
}

void BeastSession::RequestClose(websocket::close_code code, const char* reason) {
  if (!open_ || close_) return;
  close_.emplace(code, reason);
  outbox_->Close();
  toWrite_.Notify();
}

Awaitable<void> BeastSession::Read() {
  for (;;) {
    if (IsFull()) {
      // While nothing is read no ping can be answered either: silence is our own doing.
      SetIdleTime(websocket::stream_base::none());
      while (IsFull()) co_await progress_.Wait();
      SetIdleTime(limits_.patience);
    }
    std::string message;
    const error_code ec = co_await ReadMessage(message);
    if (ec == net::error::no_buffer_space) {
      RequestClose(websocket::close_code::try_again_later, kTooMuchWaits);
      co_return;
    }
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
    Take(std::move(message));
  }
}

/// The error is no_buffer_space when all queues together hold too much.
Awaitable<error_code> BeastSession::ReadMessage(std::string& message) {
  constexpr std::size_t kPart = 64 * 1024;
  auto buffer = net::dynamic_buffer(message);
  error_code ec;
  do {
    co_await ws_.async_read_some(buffer, kPart, Into(ec));
    readingBytes_ = message.size();
    if (!ec && !CountInbound()) ec = net::error::no_buffer_space;
  } while (!ec && !ws_.is_message_done());
  readingBytes_ = 0;
  co_return ec;
}

void BeastSession::Take(std::string message) {
  if (!running_) {
    place_.Rest();
    IncomingCommand command = MakeCommand(std::move(message));
    if (handler_.IsQuick(command)) {
      if (!core_.RunHere([this, &command] { RunOrRefuse(command); })) GoAway(false);
      return;
    }
    message = std::move(command.text);
  }
  inboundBytes_ += message.size();
  CountInbound();  // as much as while it came
  inbound_.push_back(std::move(message));
  if (!std::exchange(running_, true)) Spawn(&BeastSession::RunCommands);
}

IncomingCommand BeastSession::MakeCommand(std::string text) const {
  IncomingCommand command = pattern_;
  command.text = std::move(text);
  return command;
}

void BeastSession::RunOrRefuse(const IncomingCommand& command) {
  // The lists may have been edited since the connection was made.
  const Door& door = core_.parts.door;
  const std::string refusal =
      door.RefuseCommand(caller_, door.RightsOf(caller_), command.path, command.text);
  if (refusal.empty()) {
    handler_.Run(command);
  } else {
    outbox_->Deliver({EncodeRefusal(command.path, command.text, refusal), ""});
  }
}

Awaitable<void> BeastSession::RunCommands() {
  const EndOfRunning end{*this};
  place_.Work();
  while (!inbound_.empty()) {
    const bool ran = co_await RunNext();
    if (std::exchange(runningBytes_, 0) >= Limits::kLargeBytes) core_.GiveMemoryBack();
    CountInbound();
    if (!ran) {
      inbound_.clear();
      inboundBytes_ = 0;
      GoAway(false);
    }
  }
}

/// False when no command is run any more.
Awaitable<bool> BeastSession::RunNext() {
  const IncomingCommand command = MakeCommand(std::move(inbound_.front()));
  inbound_.pop_front();
  runningBytes_ = command.text.size();
  inboundBytes_ -= runningBytes_;
  progress_.Notify();
  const auto job = [this, &command] { RunOrRefuse(command); };
  if (handler_.IsQuick(command)) co_return core_.RunHere(job);
  co_return co_await core_.RunOnWorker(place_.holder(), job);
}

/// From the beginning to the end of the connection.
Awaitable<void> BeastSession::Write() {
  error_code ec;
  writing_ = true;
  for (;;) {
    bool wasLarge = false;
    while (auto frame = outbox_->Next()) {
      wasLarge = wasLarge || frame->bytes.size() >= Limits::kLargeBytes;
      ws_.binary(frame->binary);
      deadline_.Start(limits_.patience);
      sending_ = true;
      co_await ws_.async_write(net::buffer(frame->bytes), Into(ec));
      sending_ = false;
      deadline_.Stop();
      if (ec) break;
    }
    if (wasLarge) core_.GiveMemoryBack();
    handler_.Answered();
    if (outbox_->overflowed() && !close_) {
      close_.emplace(websocket::close_code::try_again_later, "Replies are not taken.");
    }
    if (ec || close_ || readingEnded_) break;
    co_await toWrite_.Wait();
  }
  if (ec) {
    outbox_->Close();
    Cut();
  } else if (close_) {
    co_await ws_.async_close(*close_, Into(ec));
  }
  writing_ = false;
  progress_.Notify();
}

void BeastSession::Spawn(Awaitable<void> (BeastSession::*coroutine)()) {
  net::co_spawn(
      stream_->get_executor(),
      [self = shared_from_this(), coroutine] { return ((*self).*coroutine)(); }, net::detached);
}

}  // namespace

bool IsUpgrade(const RequestFacts& facts) {
  return !facts.upgrade.empty() && websocket::is_upgrade(MakeUpgradeRequest(facts));
}

std::shared_ptr<WebSocketSession> MakeWebSocketSession(ServerCore& core,
                                                       std::unique_ptr<Stream> stream,
                                                       CommandHandler& handler, Caller caller,
                                                       OpenConnections::Place& place,
                                                       IncomingCommand pattern) {
  return std::make_shared<BeastSession>(core, std::move(stream), handler, std::move(caller), place,
                                        std::move(pattern));
}

}  // namespace host
