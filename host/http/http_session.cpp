#include "host/http/http_session.h"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/beast/http/error.hpp>
#include <cstring>

#include "command/command_text.h"
#include "environment/logging.h"
#include "environment/users.h"
#include "host/http/http_wire.h"
#include "host/http/static_files.h"
#include "host/http/websocket_session.h"
#include "host/http/wire_text.h"
#include "os/system.h"

namespace host {

namespace {

using http::status;

/// The page that is answered from the places kept free.
constexpr std::string_view kHealthPage = "/health";

constexpr const char* kStopping = "The service is stopping.";
constexpr const char* kTooMuchWaits = "Too many texts and replies are waiting: try again later.";

std::string_view PathOf(const RequestFacts& facts) {
  return std::string_view(facts.target).substr(0, facts.target.find('?'));
}

/// A place among the uploads, for the time of a scope.
struct UploadPlace {
  explicit UploadPlace(std::atomic<std::size_t>& counter) : taken(counter), number(++taken) {}
  ~UploadPlace() { --taken; }
  UploadPlace(const UploadPlace&) = delete;
  UploadPlace& operator=(const UploadPlace&) = delete;
  std::atomic<std::size_t>& taken;
  const std::size_t number;
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
        wire_(std::move(stream), limits_) {
    error_code ignored;
    port_ = wire_.socket().local_endpoint(ignored).port();
    wire_.socket().set_option(tcp::no_delay(true), ignored);
  }

  /// Takes a place among the connections in the name of a holder, until the session is destroyed.
  bool Enter(const std::string& holder) {
    const auto end = [weak = weak_from_this(), executor = wire_.get_executor()](Ending ending) {
      net::post(executor, [weak, ending] {
        if (const auto self = weak.lock()) self->End(ending);
      });
    };
    place_ = core_.open.Enter(holder, end);
    if (place_ != nullptr) wire_.Enter(*place_);
    return place_ != nullptr;
  }

  /// Serves the connection to its end.
  Awaitable<void> Run() {
    const int number = place_->number();
    try {
      if (!secure_ || co_await wire_.Handshake()) {
        Next next = closing_ ? Next::HangUp : Next::Exchange;
        while (next == Next::Exchange) {
          next = co_await Exchange();
          if (std::exchange(wasLarge_, false)) core_.GiveMemoryBack();
        }
        if (next == Next::HangUp) co_await wire_.HangUp();
      }
    } catch (const std::exception& problem) {
      LogDebug("Connection %d ended by an exception: %s", number, problem.what());
    }
    LogDebug("Connection %d ended.", number);
  }

 private:
  using Ending = OpenConnections::Ending;
  enum class Next { Exchange, HangUp, Nothing };

  void End(Ending ending);
  Awaitable<Next> Exchange();
  Awaitable<void> InviteBody(const RequestReader& request);
  Awaitable<status> ReadText(RequestReader& request, BudgetShare& share);
  Awaitable<status> ReadUpload(RequestReader& request, UploadFile& file, int* error);
  status BodyStatus(const error_code& ec) const;
  status HeaderStatus(const error_code& ec, bool begun) const;
  std::string RefuseForRoom(const RequestFacts& facts, const Entry& entry);
  Awaitable<Response> Answer(RequestReader& request, const Entry& entry);
  Awaitable<Response> Post(RequestReader& request, const Entry& entry);
  Awaitable<Response> PostUpload(RequestReader& request, const Entry& entry);
  static Response RefuseBody(const RequestFacts& facts, const Entry& entry, status why,
                             std::size_t limit);
  Awaitable<Response> RunCommand(const RequestFacts& facts, const Entry& entry,
                                 IncomingCommand command);
  IncomingCommand MakeCommand(const RequestFacts& facts, const Entry& entry);

  ServerCore& core_;
  const Limits& limits_;
  CommandHandler& handler_;
  const bool secure_;
  const Rights most_;
  std::unique_ptr<OpenConnections::Place> place_;
  HttpWire wire_;
  int port_ = 0;
  bool closing_ = false;
  bool wasLarge_ = false;               // a text or a reply of the last exchange
  std::shared_ptr<FirstReply> answer_;  // until its text has been sent
  std::shared_ptr<WebSocketSession> webSocket_;
};

/// On the connection's thread.
void HttpSession::End(Ending ending) {
  error_code ignored;
  closing_ = true;
  if (webSocket_) {
    ending == Ending::AtOnce ? webSocket_->Cut() : webSocket_->GoAway(ending == Ending::Crowded);
  } else if (ending == Ending::AtOnce) {
    wire_.socket().close(ignored);
  } else if (wire_.waiting() == HttpWire::Waiting::ForBytes ||
             (ending == Ending::Crowded && wire_.waiting() == HttpWire::Waiting::ForRoom)) {
    wire_.socket().cancel(ignored);
  }
}

Awaitable<HttpSession::Next> HttpSession::Exchange() {
  RequestReader request(limits_.headerBytes);
  const RequestFacts& facts = request.facts();
  if (closing_) co_return Next::HangUp;
  const error_code ec = co_await wire_.ReadHeader(request);
  if (ec) {
    const status answer = HeaderStatus(ec, request.begun());
    if (answer == status::unknown) co_return closing_ ? Next::Nothing : Next::HangUp;
    const Response response =
        TextResponse(facts, {}, answer, "The request cannot be read: " + ec.message());
    co_await wire_.Send(response, false);
    co_return Next::HangUp;
  }
  const bool acts = facts.crossSite && (facts.verb != http::verb::get || IsUpgrade(facts));
  const Entry entry = core_.parts.door.Judge(
      {facts.hosts, facts.origins, port_, secure_, facts.token, most_, acts});
  if (std::string refusal = RefuseForRoom(facts, entry); !refusal.empty()) {
    co_await wire_.Send(TextResponse(facts, entry.reader, status::service_unavailable, refusal),
                        false);
    co_return Next::HangUp;
  }
  if (entry.rights != Rights::None && facts.plainCoding && request.done() && !wire_.HasBytes() &&
      IsUpgrade(facts)) {
    IncomingCommand pattern = MakeCommand(facts, entry);  // which asks the wire for its socket
    webSocket_ = MakeWebSocketSession(core_, wire_.TakeStream(), handler_, entry.caller, *place_,
                                      std::move(pattern));
    co_await webSocket_->Run(facts);
    co_return Next::Nothing;
  }
  const Response response = co_await Answer(request, entry);
  // What was refused unread would be taken for the next request.
  const bool keep = request.done() && request.keep_alive() && entry.rights != Rights::None &&
                    facts.plainCoding && !closing_ && !place_->IsReserved();
  const bool sent = co_await wire_.Send(response, keep);
  wasLarge_ = wasLarge_ || response.body().size() >= Limits::kLargeBytes;
  answer_.reset();
  handler_.Answered();
  co_return sent&& keep ? Next::Exchange : Next::HangUp;
}

/// How a header that could not be read is answered; unknown: not at all.
status HttpSession::HeaderStatus(const error_code& ec, bool begun) const {
  if (wire_.TimedOut()) return begun ? status::request_timeout : status::unknown;
  if (ec == http::error::header_limit || ec == http::error::buffer_overflow) {
    return status::request_header_fields_too_large;
  }
  const bool malformed = ec.category() == make_error_code(http::error::bad_method).category() &&
                         ec != http::error::partial_message;
  return malformed ? status::bad_request : status::unknown;
}

/// "" when there is room for what the door has let in, or has refused anyway.
std::string HttpSession::RefuseForRoom(const RequestFacts& facts, const Entry& entry) {
  if (entry.rights == Rights::None) return "";
  // Another account could name any origin, and take its share away.
  const bool isOurs = most_ == Rights::Manage;
  if (!place_->LetIn(isOurs ? entry.caller.origin.value_or("") : "")) {
    return "The origin " + *entry.caller.origin + " has too many connections open.";
  }
  const bool isHealth =
      facts.verb == http::verb::get && PathOf(facts) == kHealthPage && !IsUpgrade(facts);
  return place_->IsReserved() && !isHealth ? "Too many connections are open." : "";
}

IncomingCommand HttpSession::MakeCommand(const RequestFacts& facts, const Entry& entry) {
  IncomingCommand command;
  command.path = facts.target;
  command.browserType = BrowserTypeOf(facts.userAgent);
  command.socket = static_cast<int>(wire_.socket().native_handle());
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
  if (const StaticFile* file = FindStaticFile(PathOf(facts))) {
    co_return FileResponse(facts, entry.reader, *file);
  }
  const auto& pages = core_.parts.pages;
  const auto page = pages.find(PathOf(facts));
  if (page == pages.end()) {
    co_return say(status::not_found, "Commands are sent by POST to " +
                                         std::string(handler_.path()) +
                                         "; GET answers /health and /services.");
  }
  co_return ReplyResponse(facts, entry.reader, page->second());
}

Awaitable<Response> HttpSession::Post(RequestReader& request, const Entry& entry) {
  const RequestFacts& facts = request.facts();
  const bool isUpload = TakesBinaryBody(facts.target);
  const std::size_t limit = isUpload ? limits_.uploadBytes : limits_.textBytes;
  if (const auto length = request.content_length(); length && *length > limit) {
    co_return RefuseBody(facts, entry, status::payload_too_large, limit);
  }
  if (isUpload) co_return co_await PostUpload(request, entry);

  BudgetShare share(core_.queues);
  const status outcome = co_await ReadText(request, share);
  if (outcome != status::ok) co_return RefuseBody(facts, entry, outcome, limit);
  wasLarge_ = request.body().size() >= Limits::kLargeBytes;
  IncomingCommand command = MakeCommand(facts, entry);
  command.text = std::move(request.body());
  if (command.text.find('\0') != command.text.npos) {
    co_return TextResponse(facts, entry.reader, status::bad_request,
                           "The text of a command holds no NUL.");
  }
  co_return co_await RunCommand(facts, entry, std::move(command));
}

Awaitable<Response> HttpSession::PostUpload(RequestReader& request, const Entry& entry) {
  const RequestFacts& facts = request.facts();
  const auto say = [&facts, &entry](status code, std::string text) {
    return TextResponse(facts, entry.reader, code, std::move(text));
  };
  std::string refusal = core_.parts.door.RefuseUpload(entry.caller, entry.rights);
  if (!refusal.empty()) co_return say(status::forbidden, std::move(refusal));
  const UploadPlace place(core_.uploads);
  if (place.number > limits_.uploadsAtOnce) {
    co_return say(status::service_unavailable,
                  "Other uploads are being received: try again later.");
  }
  UploadFile file;
  int error = file.Make(core_.parts.uploadFolder);
  if (error == 0) {
    const status outcome = co_await ReadUpload(request, file, &error);
    if (outcome == status::service_unavailable) co_return say(outcome, kStopping);
    if (outcome != status::ok) {
      co_return RefuseBody(facts, entry, outcome, limits_.uploadBytes);
    }
  }
  if (error == 0) error = file.Map();
  if (error != 0) {
    co_return say(status::insufficient_storage,
                  std::string("The upload cannot be stored: ") + std::strerror(error) + ".");
  }
  IncomingCommand command = MakeCommand(facts, entry);
  command.upload = &file;
  co_return co_await RunCommand(facts, entry, std::move(command));
}

/// Why a body was not taken.
Response HttpSession::RefuseBody(const RequestFacts& facts, const Entry& entry, status why,
                                 std::size_t limit) {
  std::string text = "The body cannot be read.";
  if (why == status::service_unavailable) text = kTooMuchWaits;
  if (why == status::payload_too_large) {
    text = "A body may have " + std::to_string(limit) + " bytes here at most.";
  }
  return TextResponse(facts, entry.reader, why, std::move(text));
}

Awaitable<Response> HttpSession::RunCommand(const RequestFacts& facts, const Entry& entry,
                                            IncomingCommand command) {
  answer_ = std::make_shared<FirstReply>(core_.queues);
  const Registration registration(core_.parts.connections, answer_);
  command.connectionId = registration.id();
  std::string refusal;
  const auto job = [this, &entry, &command, &refusal] {
    refusal =
        core_.parts.door.RefuseCommand(entry.caller, entry.rights, command.path, command.text);
    if (refusal.empty()) handler_.Run(command);
  };
  const bool ran = handler_.IsQuick(command) ? core_.RunHere(job)
                                             : co_await core_.RunOnWorker(place_->holder(), job);
  if (!ran) {
    co_return TextResponse(facts, entry.reader, status::service_unavailable, kStopping);
  }
  if (!refusal.empty()) {
    LogInfo("A command was refused: %s", refusal.c_str());
    co_return TextResponse(facts, entry.reader, status::forbidden, refusal);
  }
  auto reply = answer_->Take();
  if (answer_->overflowed()) {
    co_return TextResponse(facts, entry.reader, status::service_unavailable, kTooMuchWaits);
  }
  if (!reply) {
    co_return TextResponse(facts, entry.reader, status::internal_server_error,
                           "The command gave no reply.");
  }
  co_return ReplyResponse(facts, entry.reader, std::move(reply->text));
}

Awaitable<void> HttpSession::InviteBody(const RequestReader& request) {
  if (!request.facts().expectsContinue || request.done() || wire_.HasBytes()) co_return;
  co_await wire_.Write(kContinue);
}

Awaitable<status> HttpSession::ReadText(RequestReader& request, BudgetShare& share) {
  co_await InviteBody(request);
  while (!request.done()) {
    const error_code ec = co_await wire_.ReadBodyPart(request, limits_.textBytes);
    if (ec) co_return BodyStatus(ec);
    if (!share.Resize(request.body().size())) co_return status::service_unavailable;
  }
  wire_.StopClock();
  co_return status::ok;
}

/// `error` is why it cannot be stored, with the status ok.
Awaitable<status> HttpSession::ReadUpload(RequestReader& request, UploadFile& file, int* error) {
  constexpr std::size_t kPiece = 1024 * 1024;
  request.ReadInPieces();
  co_await InviteBody(request);
  while (!request.done()) {
    const error_code ec = co_await wire_.ReadBodyPart(request, limits_.uploadBytes);
    if (ec) co_return BodyStatus(ec);
    if (request.body().size() < kPiece && !request.done()) continue;
    // A disk may be slow, and this thread serves others.
    wire_.StopClock();
    const auto store = [&] { *error = file.Append(request.body()); };
    const bool ran = co_await core_.RunOnWorker(place_->holder(), store);
    if (!ran) co_return status::service_unavailable;
    if (*error != 0) break;
    request.body().clear();
  }
  wire_.StopClock();
  co_return status::ok;
}

/// How a body that could not be read is answered.
status HttpSession::BodyStatus(const error_code& ec) const {
  if (ec == http::error::body_limit) return status::payload_too_large;
  return wire_.TimedOut() ? status::request_timeout : status::bad_request;
}

}  // namespace

void StartSession(ServerCore& core, Socket socket, bool secure, CommandHandler& handler) {
  const auto context = secure ? core.parts.tls() : nullptr;
  if (secure && context == nullptr) return;
  const auto account = os::OwnerOf(socket.native_handle());
  const Rights most = core.parts.accounts.MostFor(account);
  std::string holder;
  if (most != Rights::Manage) {
    holder = account ? "user " + std::to_string(*account) : "users that are not known";
  }
  const Executor executor = socket.get_executor();
  auto session = std::make_shared<HttpSession>(
      core,
      secure ? MakeSecureStream(std::move(socket), *context) : MakePlainStream(std::move(socket)),
      secure, handler, most);
  if (!session->Enter(holder)) return;
  net::co_spawn(
      executor, [session = std::move(session)] { return session->Run(); }, net::detached);
}

}  // namespace host
