// Requests and responses of HTTP, apart from the connections that carry them.
#pragma once

#include <boost/beast/http/message.hpp>
#include <boost/beast/http/string_body.hpp>
#include <boost/beast/http/verb.hpp>
#include <string>
#include <vector>

#include "host/door.h"

namespace host {

namespace beast = boost::beast;
namespace http = beast::http;

using Response = http::response<http::string_body>;

/// What the service looks at in a request's header.
struct RequestFacts {
  explicit RequestFacts(const http::request_header<>& header);

  http::verb verb;
  unsigned version;
  std::string target;
  std::vector<std::string> hosts;
  std::vector<std::string> origins;
  std::string userAgent;
  bool expectsContinue;
  bool plainCoding;  ///< the body is sent as it is, or in chunks by a client that may do that
};

/// A response with a text; `origin` is that of the page that may read it, if any.
Response TextResponse(const RequestFacts& facts, const Origin& origin, http::status status,
                      std::string text);
/// A command's reply.
Response ReplyResponse(const RequestFacts& facts, const Origin& origin, std::string reply);
/// The answer to a page's browser that asks whether the page may send a command.
Response PreflightResponse(const RequestFacts& facts, const Origin& origin,
                           const http::request_header<>& header);
/// The interim response that invites the body.
Response ContinueResponse();

}  // namespace host
