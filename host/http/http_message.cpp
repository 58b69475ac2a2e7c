#include "host/http/http_message.h"

#include "host/http/wire_text.h"

namespace host {

namespace {

constexpr std::string_view kMethods = "POST, GET, HEAD, OPTIONS";

}  // namespace

Response::Response(const RequestFacts& facts, const Origin& origin, http::status status,
                   std::string_view caching)
    : version_(facts.version) {
  head_.reserve(320);
  head_ = version_ == 11 ? "HTTP/1.1 " : "HTTP/1.0 ";
  head_ += std::to_string(static_cast<unsigned>(status)) + " ";
  head_ += std::string_view(http::obsolete_reason(status));
  head_ += "\r\nCache-Control: ";
  head_ += caching;
  head_ +=
      "\r\nX-Content-Type-Options: nosniff"
      // The answer to one origin must never be taken for the answer to another.
      "\r\nVary: Origin\r\n";
  if (origin) Set("Access-Control-Allow-Origin", *origin);
}

void Response::Set(std::string_view name, std::string_view value) {
  head_.append(name).append(": ").append(value).append("\r\n");
}

void Response::SetBody(const RequestFacts& facts, std::string_view mediaType, std::string text) {
  Set("Content-Type", mediaType);
  Set("Content-Length", std::to_string(text.size()));
  if (facts.verb != http::verb::head) body_ = std::move(text);
}

std::string Response::Head(bool keepAlive) const {
  std::string_view connection;
  if (version_ == 11 && !keepAlive) connection = "Connection: close\r\n";
  if (version_ < 11 && keepAlive) connection = "Connection: keep-alive\r\n";
  return std::string(head_).append(connection).append("\r\n");
}

Response TextResponse(const RequestFacts& facts, const Origin& origin, http::status status,
                      std::string text) {
  Response response(facts, origin, status);
  if (status == http::status::method_not_allowed) response.Set("Allow", kMethods);
  response.SetBody(facts, "text/plain; charset=utf-8", ToValidUtf8(std::move(text)) + "\n");
  return response;
}

Response ReplyResponse(const RequestFacts& facts, const Origin& origin, std::string reply) {
  Response response(facts, origin, http::status::ok);
  const char* mediaType = MediaTypeOf(reply);
  response.SetBody(facts, mediaType, ToValidUtf8(std::move(reply)));
  return response;
}

Response PreflightResponse(const RequestFacts& facts, const Origin& origin) {
  Response response(facts, origin, http::status::no_content);
  if (!origin) {
    response.Set("Allow", kMethods);
    return response;
  }
  response.Set("Access-Control-Allow-Methods", "POST, GET, OPTIONS");
  if (IsTokenList(facts.requestedHeaders)) {
    response.Set("Access-Control-Allow-Headers", facts.requestedHeaders);
  }
  response.Set("Access-Control-Max-Age", "600");
  if (facts.asksPrivateNetwork) response.Set("Access-Control-Allow-Private-Network", "true");
  return response;
}

}  // namespace host
