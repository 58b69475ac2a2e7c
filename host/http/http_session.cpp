#include "host/http/http_session.h"

#include <algorithm>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/error.hpp>

#include "command/command_text.h"
#include "environment/logging.h"
#include "environment/users.h"
#include "host/http/request_reader.h"
#include "host/http/waiting.h"
#include "host/http/websocket_session.h"
#include "host/http/wire_text.h"
#include "os/system.h"

namespace host {

namespace {

using http::status;

/// Stops a deadline at the end of a scope, however that comes.
struct StopAtEnd {
  ~StopAtEnd() { deadline.Stop(); }
  Deadline& deadline;
};

/// A place among the uploads, for the time of a scope.
struct UploadPlace {
  UploadPlace(std::atomic<std::size_t>& counter, bool wanted) : taken(wanted ? &counter : nullptr) {
    if (taken != nullptr) number = ++*taken;
  }
  ~UploadPlace() {
    if (taken != nullptr) --*taken;
  }
  UploadPlace(const UploadPlace&) = delete;
  UploadPlace& operator=(const UploadPlace&) = delete;
  std::atomic<std::size_t>* taken;
  std::size_t number = 0;
};

class HttpSession : public std::enable_shared_from_this<HttpSession> {
 public:
  HttpSession(ServerCore& core, std::unique_ptr<Stream> stream, bool secure,
              CommandHandler& handler, Rights most)
      : core_(core),
        limits_(core.parts.limits),
        handler_(handler),
        secure_(secure),
        most_(most),
        stream_(std::move(stream)),
        deadline_(stream_->socket()) {
    error_code ignored;
    port_ = stream_->socket().local_endpoint(ignored).port();
    stream_->socket().set_option(tcp::no_delay(true), ignored);
  }
  ~HttpSession() {
    if (number_ != 0) core_.RemoveConnection(number_);
  }
  HttpSession(const HttpSession&) = delete;
  HttpSession& operator=(const HttpSession&) = delete;

  /// Enters the list of connections, until it is destroyed.
  void Enter() {
    const auto end = [weak = weak_from_this(), executor = stream_->get_executor()](auto ending) {
      net::post(executor, [weak, ending] {
        if (const auto self = weak.lock()) self->End(ending);
      });
    };
    number_ = core_.AddConnection(end);
  }

  /// Serves the connection to its end; a crowded server only says that it is.
  Awaitable<void> Run(bool crowded) {
    try {
      if (co_await Handshake()) {
        Next next = closing_ ? Next::HangUp : Next::Exchange;
        if (crowded) next = co_await RefuseCrowd();
        while (next == Next::Exchange) next = co_await Exchange();
        if (next == Next::HangUp) co_await HangUp();
      }
    } catch (const std::exception& problem) {
      LogDebug("Connection %d ended by an exception: %s", number_, problem.what());
    }
    LogDebug("Connection %d ended.", number_);
  }

 private:
  static constexpr std::size_t kFirstRead = 4 * 1024;
  static constexpr std::size_t kChunk = 64 * 1024;
  enum class Next { Exchange, HangUp, Nothing };

  void End(ServerCore::Ending ending);
  Awaitable<bool> Handshake();
  Awaitable<Next> RefuseCrowd();
  Awaitable<Next> Exchange();
  Awaitable<error_code> ReadHeader(RequestReader& request);
  Awaitable<status> ReadBody(RequestReader& request, std::size_t limit);
  status HeaderStatus(const error_code& ec, bool begun) const;
  Awaitable<Response> Answer(RequestReader& request, const Entry& entry);
  Awaitable<Response> Post(RequestReader& request, const Entry& entry);
  Awaitable<Response> RunCommand(const RequestFacts& facts, const Entry& entry,
                                 IncomingCommand command);
  IncomingCommand MakeCommand(const RequestFacts& facts, const Entry& entry);
  Awaitable<error_code> ReadMore(std::size_t most);
  Awaitable<bool> Write(std::string_view bytes);
  Awaitable<bool> Send(const Response& response, bool keepAlive);
  Awaitable<void> HangUp();

  ServerCore& core_;
  const Limits& limits_;
  CommandHandler& handler_;
  const bool secure_;
  const Rights most_;
  std::unique_ptr<Stream> stream_;
  Deadline deadline_;
  // Its bound also holds for what no other limit counts, such as the line before a chunk.
  boost::beast::flat_buffer buffer_{limits_.headerBytes + kChunk};
  int number_ = 0;
  int port_ = 0;
  bool busy_ = false;  // a command of this connection has begun, or its reply is being written
  bool closing_ = false;
  std::shared_ptr<WebSocketSession> webSocket_;
};

/// On the connection's thread.
void HttpSession::End(ServerCore::Ending ending) {
  const bool atOnce = ending == ServerCore::Ending::AtOnce;
  error_code ignored;
  closing_ = true;
  if (webSocket_) {
    atOnce ? webSocket_->Cut() : webSocket_->GoAway();
  } else if (atOnce) {
    stream_->socket().close(ignored);
  } else if (!busy_) {
    stream_->socket().cancel(ignored);
  }
}

Awaitable<bool> HttpSession::Handshake() {
  if (!secure_) co_return true;
  error_code ec;
  deadline_.Start(limits_.patience);
  co_await stream_->async_handshake(Into(ec));
  deadline_.Stop();
  co_return !ec;
}

Awaitable<HttpSession::Next> HttpSession::RefuseCrowd() {
  const Response response =
      TextResponse({}, {}, status::service_unavailable, "Too many connections are open.");
  co_await Send(response, false);
  co_return Next::HangUp;
}

Awaitable<HttpSession::Next> HttpSession::Exchange() {
  RequestReader request(limits_.headerBytes);
  const RequestFacts& facts = request.facts();
  busy_ = false;
  if (closing_) co_return Next::HangUp;
  const error_code ec = co_await ReadHeader(request);
  busy_ = true;

  if (ec) {
    const status answer = HeaderStatus(ec, request.begun());
    if (answer == status::unknown) co_return closing_ ? Next::Nothing : Next::HangUp;
    const Response response =
        TextResponse(facts, {}, answer, "The request cannot be read: " + ec.message());
    co_await Send(response, false);
    co_return Next::HangUp;
  }
  const bool acts = facts.crossSite && (facts.verb != http::verb::get || IsUpgrade(facts));
  const Entry entry = core_.parts.door.Judge(
      {facts.hosts, facts.origins, port_, secure_, facts.token, most_, acts});
  if (entry.rights != Rights::None && facts.plainCoding && request.done() && buffer_.size() == 0 &&
      IsUpgrade(facts)) {
    IncomingCommand pattern = MakeCommand(facts, entry);  // which asks the stream for its socket
    webSocket_ =
        MakeWebSocketSession(core_, std::move(stream_), handler_, entry.caller, std::move(pattern));
    co_await webSocket_->Run(facts);
    co_return Next::Nothing;
  }
  const Response response = co_await Answer(request, entry);
  // What was refused unread would be taken for the next request.
  const bool keep = request.done() && request.keep_alive() && entry.rights != Rights::None &&
                    facts.plainCoding && !closing_;
  const bool sent = co_await Send(response, keep);
  handler_.Answered();
  co_return sent&& keep ? Next::Exchange : Next::HangUp;
}

Awaitable<error_code> HttpSession::ReadHeader(RequestReader& request) {
  error_code ec;
  deadline_.Start(limits_.patience);
  while (!request.header_done()) {
    if (buffer_.size() > 0) {
      buffer_.consume(request.TakeHeader(buffer_.data(), ec));
      if (!ec) continue;
      if (ec != http::error::need_more) break;
    }
    ec = co_await ReadMore(kFirstRead);
    if (ec == net::error::eof && request.begun()) ec = http::error::partial_message;
    if (ec) break;
  }
  deadline_.Stop();
  co_return ec;
}

/// How a header that could not be read is answered; unknown: not at all.
status HttpSession::HeaderStatus(const error_code& ec, bool begun) const {
  if (deadline_.passed()) return begun ? status::request_timeout : status::unknown;
  if (ec == http::error::header_limit || ec == http::error::buffer_overflow) {
    return status::request_header_fields_too_large;
  }
  const bool malformed = ec.category() == make_error_code(http::error::bad_method).category() &&
                         ec != http::error::partial_message;
  return malformed ? status::bad_request : status::unknown;
}

IncomingCommand HttpSession::MakeCommand(const RequestFacts& facts, const Entry& entry) {
  IncomingCommand command;
  command.path = facts.target;
  command.browserType = BrowserTypeOf(facts.userAgent);
  command.socket = static_cast<int>(stream_->socket().native_handle());
  if (entry.caller.origin) command.domain = GetFullDomain(*entry.caller.origin);
  return command;
}

Awaitable<Response> HttpSession::Answer(RequestReader& request, const Entry& entry) {
  const RequestFacts& facts = request.facts();
  const auto say = [&facts, &entry](status code, std::string text) {
    return TextResponse(facts, entry.reader, code, std::move(text));
  };
  if (entry.rights == Rights::None) {
    LogInfo("A request was refused: %s", entry.refusal.c_str());
    co_return TextResponse(facts, entry.reader, status::forbidden, entry.refusal);
  }
  if (!facts.plainCoding) {
    co_return say(status::not_implemented, "A body is sent as it is or in chunks.");
  }
  if (!facts.target.starts_with('/')) co_return say(status::bad_request, "A path begins with '/'.");
  switch (facts.verb) {
    case http::verb::post:
      co_return co_await Post(request, entry);
    case http::verb::options:
      co_return PreflightResponse(facts, entry.reader);
    case http::verb::get:
    case http::verb::head:
      break;
    default:
      co_return say(status::method_not_allowed, "Commands are sent by POST.");
  }
  const auto& pages = core_.parts.pages;
  const auto page = pages.find(std::string_view(facts.target).substr(0, facts.target.find('?')));
  if (page == pages.end()) {
    co_return say(status::not_found, "Commands are sent by POST to " +
                                         std::string(handler_.path()) +
                                         "; GET answers /health and /services.");
  }
  co_return ReplyResponse(facts, entry.reader, page->second());
}

Awaitable<Response> HttpSession::Post(RequestReader& request, const Entry& entry) {
  const RequestFacts& facts = request.facts();
  const auto say = [&facts, &entry](status code, std::string text) {
    return TextResponse(facts, entry.reader, code, std::move(text));
  };
  const bool upload = TakesBinaryBody(facts.target);
  const std::size_t limit = upload ? limits_.uploadBytes : limits_.textBytes;
  const std::string tooLarge = "A body may have " + std::to_string(limit) + " bytes here at most.";
  if (const auto length = request.content_length(); length && *length > limit) {
    co_return say(status::payload_too_large, tooLarge);
  }
  if (upload) {
    std::string refusal = core_.parts.door.RefuseUpload(entry.caller, entry.rights);
    if (!refusal.empty()) co_return say(status::forbidden, std::move(refusal));
  }
  const UploadPlace place(core_.uploads, upload);
  if (place.number > limits_.uploadsAtOnce) {
    co_return say(status::service_unavailable,
                  "Other uploads are being received: try again later.");
  }
  const status outcome = co_await ReadBody(request, limit);
  if (outcome == status::payload_too_large) co_return say(outcome, tooLarge);
  if (outcome != status::ok) co_return say(outcome, "The body cannot be read.");

  IncomingCommand command = MakeCommand(facts, entry);
  (upload ? command.payload : command.text) = std::move(request.body());
  if (command.text.find('\0') != command.text.npos) {
    co_return say(status::bad_request, "The text of a command holds no NUL.");
  }
  co_return co_await RunCommand(facts, entry, std::move(command));
}

Awaitable<Response> HttpSession::RunCommand(const RequestFacts& facts, const Entry& entry,
                                            IncomingCommand command) {
  const auto answer = std::make_shared<FirstReply>();
  const Registration registration(core_.parts.connections, answer);
  command.connectionId = registration.id();
  std::string refusal;
  const auto job = [this, &entry, &command, &refusal] {
    refusal =
        core_.parts.door.RefuseCommand(entry.caller, entry.rights, command.path, command.text);
    if (refusal.empty()) handler_.Run(command);
  };
  const bool ran = handler_.IsQuick(command) ? core_.RunHere(job) : co_await core_.RunOnWorker(job);
  if (!ran) {
    co_return TextResponse(facts, entry.reader, status::service_unavailable,
                           "The service is stopping.");
  }
  if (!refusal.empty()) {
    LogInfo("A command was refused: %s", refusal.c_str());
    co_return TextResponse(facts, entry.reader, status::forbidden, refusal);
  }
  auto reply = answer->Take();
  if (!reply) {
    co_return TextResponse(facts, entry.reader, status::internal_server_error,
                           "The command gave no reply.");
  }
  co_return ReplyResponse(facts, entry.reader, std::move(reply->text));
}

Awaitable<status> HttpSession::ReadBody(RequestReader& request, std::size_t limit) {
  if (request.facts().expectsContinue && !request.done() && buffer_.size() == 0) {
    co_await Write(kContinue);
  }
  const StopAtEnd stopAtEnd{deadline_};
  // The deadline is for so many bytes, not for the next one: nobody may send one a minute.
  std::size_t sinceStart = kChunk;
  while (!request.done()) {
    error_code ec;
    if (buffer_.size() > 0) {
      buffer_.consume(request.TakeBody(buffer_.data(), limit, ec));
      if (ec == http::error::body_limit) co_return status::payload_too_large;
      if (!ec) continue;
      if (ec != http::error::need_more) co_return status::bad_request;
    }
    if (sinceStart >= kChunk) {
      deadline_.Start(limits_.patience);
      sinceStart = 0;
    }
    const std::size_t before = buffer_.size();
    busy_ = false;
    ec = co_await ReadMore(kChunk);
    busy_ = true;
    sinceStart += buffer_.size() - before;
    if (deadline_.passed()) co_return status::request_timeout;
    if (ec) co_return status::bad_request;
  }
  co_return status::ok;
}

Awaitable<error_code> HttpSession::ReadMore(std::size_t most) {
  error_code ec;
  const std::size_t room = std::min(most, buffer_.max_size() - buffer_.size());
  if (room == 0) co_return http::error::buffer_overflow;
  buffer_.commit(co_await stream_->async_read_some(buffer_.prepare(room), Into(ec)));
  co_return ec;
}

Awaitable<bool> HttpSession::Write(std::string_view bytes) {
  error_code ec;
  bytes.remove_prefix(stream_->WriteNow(net::buffer(bytes), ec));
  if (bytes.empty() || ec) co_return !ec;
  deadline_.Start(limits_.patience);
  while (!bytes.empty() && !ec) {
    bytes.remove_prefix(co_await stream_->async_write_some(net::buffer(bytes), Into(ec)));
  }
  deadline_.Stop();
  co_return !ec;
}

Awaitable<bool> HttpSession::Send(const Response& response, bool keepAlive) {
  std::string head = response.Head(keepAlive);
  // One packet for what is small, no copy of what is large.
  const bool small = response.body().size() <= kChunk;
  if (small) head += response.body();
  const bool sent = co_await Write(head);
  if (small || !sent) co_return sent;
  co_return co_await Write(response.body());
}

Awaitable<void> HttpSession::HangUp() {
  error_code ec;
  deadline_.Start(limits_.closing);
  co_await stream_->async_hang_up(Into(ec));
  deadline_.Stop();
}

}  // namespace

void StartSession(ServerCore& core, Socket socket, bool secure, CommandHandler& handler) {
  // Some more may be told that there are too many; beyond them, and where telling would cost a
  // handshake, the connection is just closed.
  constexpr std::size_t kToldAtOnce = 32;
  const std::size_t count = core.ConnectionCount(), limit = core.parts.limits.connections;
  const bool crowded = count >= limit;
  if (crowded && (secure || count >= limit + kToldAtOnce)) return;
  const auto context = secure ? core.parts.tls() : nullptr;
  if (secure && context == nullptr) return;
  const Executor executor = socket.get_executor();
  const Rights most = core.parts.accounts.MostFor(os::OwnerOf(socket.native_handle()));
  auto session = std::make_shared<HttpSession>(
      core,
      secure ? MakeSecureStream(std::move(socket), *context) : MakePlainStream(std::move(socket)),
      secure, handler, most);
  session->Enter();
  net::co_spawn(
      executor, [session = std::move(session), crowded] { return session->Run(crowded); },
      net::detached);
}

}  // namespace host
