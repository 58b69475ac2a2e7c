// An HTTP connection, plain or secure: one exchange after another until one side hangs up or the
// connection becomes a WebSocket. One coroutine on the connection's strand.
#pragma once

#include <boost/asio/redirect_error.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/buffer_body.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/write.hpp>
#include <boost/beast/ssl/ssl_stream.hpp>
#include <boost/beast/websocket/rfc6455.hpp>

#include "environment/users.h"
#include "host/http_message.h"
#include "host/websocket_session.h"
#include "host/wire_text.h"

namespace host {

template <class Stream>
class HttpSession : public std::enable_shared_from_this<HttpSession<Stream>> {
 public:
  HttpSession(ServerCore& core, Stream stream, CommandHandler& handler)
      : core_(core),
        limits_(core.parts.limits),
        handler_(handler),
        stream_(std::move(stream)),
        deadline_(socket()) {
    error_code ignored;
    port_ = socket().local_endpoint(ignored).port();
    socket().set_option(tcp::no_delay(true), ignored);
  }

  /// Serves the connection to its end; a crowded server only says that it is.
  net::awaitable<void> Run(bool crowded) {
    const int entry = core_.AddSession(
        [weak = this->weak_from_this(), executor = stream_.get_executor()](auto ending) {
          net::post(executor, [weak, ending] {
            if (const auto self = weak.lock()) self->End(ending);
          });
        });
    try {
      if (co_await Handshake()) {
        Next next = crowded ? co_await RefuseCrowd() : closing_ ? Next::HangUp : Next::Exchange;
        while (next == Next::Exchange) next = co_await Exchange();
        if (next == Next::HangUp) co_await HangUp();
      }
    } catch (const std::exception& problem) {
      LogDebug("Connection %d ended by an exception: %s", entry, problem.what());
    }
    LogDebug("Connection %d ended.", entry);
    core_.RemoveSession(entry);
  }

 private:
  static constexpr bool kSecure = !std::is_same_v<Stream, tcp::socket>;
  static constexpr std::size_t kChunk = 64 * 1024;
  enum class Next { Exchange, HangUp, Nothing };
  using Parser = http::request_parser<http::buffer_body>;

  tcp::socket& socket() { return beast::get_lowest_layer(stream_); }

  /// On the strand.
  void End(ServerCore::Ending ending) {
    const bool atOnce = ending == ServerCore::Ending::AtOnce;
    error_code ignored;
    closing_ = true;
    if (webSocket_) {
      atOnce ? webSocket_->Cut() : webSocket_->GoAway();
    } else if (atOnce) {
      socket().close(ignored);
    } else if (!busy_) {
      socket().cancel(ignored);
    }
  }

  net::awaitable<bool> Handshake() {
    error_code ec;
    if constexpr (kSecure) {
      deadline_.Start(limits_.patience);
      co_await stream_.async_handshake(net::ssl::stream_base::server,
                                       net::redirect_error(net::use_awaitable, ec));
      deadline_.Stop();
    }
    co_return !ec;
  }

  net::awaitable<Next> RefuseCrowd() {
    const RequestFacts none{http::request_header<>()};
    Response response =
        TextResponse(none, {}, http::status::service_unavailable, "Too many connections are open.");
    response.keep_alive(false);
    co_await Write(response);
    co_return Next::HangUp;
  }

  net::awaitable<Next> Exchange() {
    Parser parser;
    parser.header_limit(static_cast<std::uint32_t>(limits_.headerBytes));
    parser.body_limit(boost::none);  // it depends on the path, which is not known yet
    busy_ = false;
    if (closing_) co_return Next::HangUp;
    error_code ec;
    deadline_.Start(limits_.patience);
    co_await http::async_read_header(stream_, buffer_, parser,
                                     net::redirect_error(net::use_awaitable, ec));
    deadline_.Stop();
    busy_ = true;

    const RequestFacts facts(parser.get().base());
    Response response;
    bool keep = false;
    if (ec) {
      const http::status status = HeaderStatus(ec, parser.got_some());
      if (status == http::status::unknown) co_return closing_ ? Next::Nothing : Next::HangUp;
      response = TextResponse(facts, {}, status, "The request cannot be read: " + ec.message());
    } else {
      const Entry entry = core_.parts.door.Judge(facts.hosts, facts.origins, port_, kSecure);
      if (entry.rights == Rights::None) {
        LogInfo("A request was refused: %s", entry.refusal.c_str());
        response = TextResponse(facts, {}, http::status::forbidden, entry.refusal);
      } else if (!facts.plainCoding) {
        response = TextResponse(facts, entry.origin, http::status::not_implemented,
                                "A body is sent as it is or in chunks.");
      } else if (websocket::is_upgrade(parser.get()) && parser.is_done() && buffer_.size() == 0) {
        webSocket_ = std::make_shared<WebSocketSession<Stream>>(
            core_, std::move(stream_), handler_, entry.origin, MakeCommand(facts, entry));
        co_await webSocket_->Run(parser.get());
        co_return Next::Nothing;
      } else {
        response = co_await Answer(parser, facts, entry);
        // What was refused unread would be taken for the next request.
        keep = parser.is_done() && parser.keep_alive() && !closing_;
      }
    }
    response.keep_alive(keep);
    if (!co_await Write(response)) keep = false;
    handler_.Answered();
    co_return keep ? Next::Exchange : Next::HangUp;
  }

  /// How a header that could not be read is answered; unknown: not at all.
  http::status HeaderStatus(const error_code& ec, bool begun) const {
    if (deadline_.passed()) return begun ? http::status::request_timeout : http::status::unknown;
    if (ec == http::error::header_limit || ec == http::error::buffer_overflow) {
      return http::status::request_header_fields_too_large;
    }
    const bool malformed = ec.category() == make_error_code(http::error::bad_method).category() &&
                           ec != http::error::end_of_stream && ec != http::error::partial_message;
    return malformed ? http::status::bad_request : http::status::unknown;
  }

  Command MakeCommand(const RequestFacts& facts, const Entry& entry) {
    Command command;
    command.path = facts.target;
    command.browserType = BrowserTypeOf(facts.userAgent);
    command.socket = static_cast<int>(socket().native_handle());
    command.domain = GetFullDomain(entry.origin.value_or(""));
    return command;
  }

  net::awaitable<Response> Answer(Parser& parser, const RequestFacts& facts, const Entry& entry) {
    using http::status;
    const std::string path = facts.target.substr(0, facts.target.find('?'));
    if (!path.starts_with('/')) {
      co_return TextResponse(facts, entry.origin, status::bad_request, "A path begins with '/'.");
    }
    switch (facts.verb) {
      case http::verb::post:
        co_return co_await Post(parser, facts, entry);
      case http::verb::options:
        co_return PreflightResponse(facts, entry.origin, parser.get().base());
      case http::verb::get:
      case http::verb::head:
        break;
      default:
        co_return TextResponse(facts, entry.origin, status::method_not_allowed,
                               "Commands are sent by POST.");
    }
    const auto page = core_.parts.pages.find(path);
    if (page == core_.parts.pages.end()) {
      co_return TextResponse(
          facts, entry.origin, status::not_found,
          "Commands are sent by POST to /qtp/; GET answers /health and /services.");
    }
    std::string text;
    auto job = [&page, &text] { text = page->second(); };
    if (!co_await OnWorker(core_, std::move(job))) co_return Stopping(facts, entry);
    co_return ReplyResponse(facts, entry.origin, std::move(text));
  }

  net::awaitable<Response> Post(Parser& parser, const RequestFacts& facts, const Entry& entry) {
    using http::status;
    const Door& door = core_.parts.door;
    const bool upload = TakesBinaryBody(facts.target);
    const std::size_t limit = upload ? limits_.uploadBytes : limits_.textBytes;
    const std::string tooLarge =
        "A body may have " + std::to_string(limit) + " bytes here at most.";
    if (const auto length = parser.content_length(); length && *length > limit) {
      co_return TextResponse(facts, entry.origin, status::payload_too_large, tooLarge);
    }
    if (upload) {
      // The path alone names the function: what is refused need not be sent.
      const std::string refusal = door.RefuseCommand(entry.origin, entry.rights, facts.target, "");
      if (!refusal.empty()) {
        co_return TextResponse(facts, entry.origin, status::forbidden, refusal);
      }
    }
    const Slot slot(core_.uploads, upload);
    if (slot.number > limits_.uploadsAtOnce) {
      co_return TextResponse(facts, entry.origin, status::service_unavailable,
                             "Other uploads are being received: try again later.");
    }
    Command command = MakeCommand(facts, entry);
    const status outcome = co_await ReadBody(parser, facts, limit, command.text);
    if (outcome == status::payload_too_large) {
      co_return TextResponse(facts, entry.origin, outcome, tooLarge);
    }
    if (outcome != status::ok) {
      co_return TextResponse(facts, entry.origin, outcome, "The body cannot be read.");
    }
    if (upload) {
      command.payload = std::exchange(command.text, "");
    } else if (command.text.find('\0') != command.text.npos) {
      co_return TextResponse(facts, entry.origin, status::bad_request,
                             "The text of a command holds no NUL.");
    }

    const auto answer = std::make_shared<FirstReply>();
    const Registration registration(core_.parts.connections, answer);
    command.connectionId = registration.id();
    std::string refusal;
    auto job = [this, &door, &entry, &command, &refusal] {
      refusal = door.RefuseCommand(entry.origin, entry.rights, command.path, command.text);
      if (refusal.empty()) handler_.Run(command);
    };
    if (!co_await OnWorker(core_, std::move(job))) co_return Stopping(facts, entry);
    if (!refusal.empty()) {
      LogInfo("A command was refused: %s", refusal.c_str());
      co_return TextResponse(facts, entry.origin, status::forbidden, refusal);
    }
    auto reply = answer->Take();
    if (!reply) {
      co_return TextResponse(facts, entry.origin, status::internal_server_error,
                             "The command gave no reply.");
    }
    co_return ReplyResponse(facts, entry.origin, std::move(reply->text));
  }

  static Response Stopping(const RequestFacts& facts, const Entry& entry) {
    return TextResponse(facts, entry.origin, http::status::service_unavailable,
                        "The service is stopping.");
  }

  /// Reads the body as it comes: no length that a client claims reserves memory.
  net::awaitable<http::status> ReadBody(Parser& parser, const RequestFacts& facts,
                                        std::size_t limit, std::string& body) {
    if (facts.expectsContinue && !parser.is_done() && buffer_.size() == 0) {
      Response invitation = ContinueResponse();
      co_await Write(invitation);
    }
    while (!parser.is_done()) {
      const std::size_t size = body.size();
      // A length is believed once its first part has come; growing by doubling would hold up to
      // twice as much.
      if (size > 0)
        body.reserve(std::min<std::uint64_t>(parser.content_length().value_or(0), limit));
      const std::size_t rest = parser.content_length_remaining().value_or(kChunk);
      const std::size_t room = std::min(kChunk, std::max<std::size_t>(rest, 1));
      body.resize(size + room);
      auto& target = parser.get().body();
      target.data = body.data() + size;
      target.size = room;
      error_code ec;
      deadline_.Start(limits_.patience);
      busy_ = false;
      co_await http::async_read(stream_, buffer_, parser,
                                net::redirect_error(net::use_awaitable, ec));
      busy_ = true;
      deadline_.Stop();
      body.resize(size + room - target.size);
      if (deadline_.passed()) co_return http::status::request_timeout;
      if (ec && ec != http::error::need_buffer) co_return http::status::bad_request;
      if (body.size() > limit) co_return http::status::payload_too_large;
    }
    co_return http::status::ok;
  }

  net::awaitable<bool> Write(Response& response) {
    error_code ec;
    deadline_.Start(limits_.patience);
    co_await http::async_write(stream_, response, net::redirect_error(net::use_awaitable, ec));
    deadline_.Stop();
    co_return !ec;
  }

  /// Ends our side first and drains the client's: a reset would take back what was just written.
  net::awaitable<void> HangUp() {
    error_code ec;
    deadline_.Start(limits_.closing);
    if constexpr (kSecure) {
      co_await stream_.async_shutdown(net::redirect_error(net::use_awaitable, ec));
    }
    socket().shutdown(tcp::socket::shutdown_send, ec);
    std::array<char, 4096> sink;
    while (!ec && !deadline_.passed()) {
      co_await socket().async_read_some(net::buffer(sink),
                                        net::redirect_error(net::use_awaitable, ec));
    }
    deadline_.Stop();
  }

  /// A place among the uploads, for the time of a scope.
  struct Slot {
    Slot(std::atomic<std::size_t>& counter, bool wanted) : taken(wanted ? &counter : nullptr) {
      if (taken != nullptr) number = ++*taken;
    }
    ~Slot() {
      if (taken != nullptr) --*taken;
    }
    Slot(const Slot&) = delete;
    Slot& operator=(const Slot&) = delete;
    std::atomic<std::size_t>* taken;
    std::size_t number = 0;
  };

  ServerCore& core_;
  const Limits& limits_;
  CommandHandler& handler_;
  Stream stream_;
  Deadline deadline_;
  // Its bound also holds for what no other limit counts, such as the line before a chunk.
  beast::flat_buffer buffer_{limits_.headerBytes + kChunk};
  int port_ = 0;
  bool busy_ = false;  // a command of this connection has begun, or its reply is being written
  bool closing_ = false;
  std::shared_ptr<WebSocketSession<Stream>> webSocket_;
};

}  // namespace host
