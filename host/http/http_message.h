// Requests and responses of HTTP, apart from the connections that carry them.
#pragma once

#include <boost/beast/http/field.hpp>
#include <boost/beast/http/status.hpp>
#include <boost/beast/http/verb.hpp>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/door.h"

namespace host {

namespace http = boost::beast::http;

/// What the service looks at in a request's header.
struct RequestFacts {
  http::verb verb = http::verb::unknown;
  unsigned version = 11;
  std::string target;
  std::vector<std::string> hosts;
  std::vector<std::string> origins;
  std::string userAgent;
  std::string requestedHeaders;  ///< those that a page's browser asks about
  bool asksPrivateNetwork = false;
  std::string knownTags;   ///< If-None-Match: what the client has already
  std::string token;       ///< of the console
  bool crossSite = false;  ///< sent by a page of another site, as browsers say
  bool expectsContinue = false;
  bool plainCoding =
      true;  ///< the body is sent as it is, or in chunks by a client that may do that
  /// The fields that make a request the beginning of a WebSocket.
  std::vector<std::pair<http::field, std::string>> upgrade;
};

class Response {
 public:
  /// Without a body; `origin` is that of the page that may read it, if any, `caching` the value of
  /// Cache-Control.
  Response(const RequestFacts& facts, const Origin& origin, http::status status,
           std::string_view caching = "no-store");

  void Set(std::string_view name, std::string_view value);
  /// Leaves the text out where only its length is asked for.
  void SetBody(const RequestFacts& facts, std::string_view mediaType, std::string text);
  /// The bytes to be sent, without the body.
  std::string Head(bool keepAlive) const;
  const std::string& body() const { return body_; }

 private:
  const unsigned version_;
  std::string head_;
  std::string body_;
};

/// A response with a sentence.
Response TextResponse(const RequestFacts& facts, const Origin& origin, http::status status,
                      std::string text);
/// A command's reply.
Response ReplyResponse(const RequestFacts& facts, const Origin& origin, std::string reply);
/// The answer to a page's browser that asks whether the page may send a command.
Response PreflightResponse(const RequestFacts& facts, const Origin& origin);
/// The interim response that invites the body.
inline constexpr std::string_view kContinue = "HTTP/1.1 100 Continue\r\n\r\n";

}  // namespace host
