#include "host/http_message.h"

#include <boost/beast/core/string.hpp>

#include "host/wire_text.h"

namespace host {

namespace {

constexpr const char* kMethods = "POST, GET, HEAD, OPTIONS";

std::vector<std::string> AllOf(const http::request_header<>& header, http::field name) {
  std::vector<std::string> values;
  const auto [begin, end] = header.equal_range(name);
  for (auto field = begin; field != end; ++field) values.emplace_back(field->value());
  return values;
}

Response Plain(const RequestFacts& facts, const Origin& origin, http::status status) {
  Response response(status, facts.version);
  response.set(http::field::cache_control, "no-store");
  response.set("X-Content-Type-Options", "nosniff");
  // The answer to one origin must never be taken for the answer to another.
  response.set(http::field::vary, "Origin");
  if (origin) response.set(http::field::access_control_allow_origin, *origin);
  return response;
}

void SetBody(Response& response, const RequestFacts& facts, const char* mediaType,
             std::string text) {
  response.set(http::field::content_type, mediaType);
  response.content_length(text.size());
  if (facts.verb != http::verb::head) response.body() = std::move(text);
}

}  // namespace

/// Other codings would leave it open where the body ends and the next request begins.
bool PlainCoding(const http::request_header<>& header) {
  const auto codings = AllOf(header, http::field::transfer_encoding);
  if (codings.empty()) return true;
  return codings.size() == 1 && header.version() >= 11 && beast::iequals(codings[0], "chunked");
}

RequestFacts::RequestFacts(const http::request_header<>& header)
    : verb(header.method()),
      version(header.version()),
      target(header.target()),
      hosts(AllOf(header, http::field::host)),
      origins(AllOf(header, http::field::origin)),
      userAgent(header[http::field::user_agent]),
      expectsContinue(header.version() >= 11 &&
                      beast::iequals(header[http::field::expect], "100-continue")),
      plainCoding(PlainCoding(header)) {}

Response TextResponse(const RequestFacts& facts, const Origin& origin, http::status status,
                      std::string text) {
  Response response = Plain(facts, origin, status);
  if (status == http::status::method_not_allowed) response.set(http::field::allow, kMethods);
  SetBody(response, facts, "text/plain; charset=utf-8", ToValidUtf8(std::move(text)) + "\n");
  return response;
}

Response ReplyResponse(const RequestFacts& facts, const Origin& origin, std::string reply) {
  Response response = Plain(facts, origin, http::status::ok);
  const char* mediaType = MediaTypeOf(reply);
  SetBody(response, facts, mediaType, ToValidUtf8(std::move(reply)));
  return response;
}

Response PreflightResponse(const RequestFacts& facts, const Origin& origin,
                           const http::request_header<>& header) {
  Response response = Plain(facts, origin, http::status::no_content);
  if (!origin) {
    response.set(http::field::allow, kMethods);
    return response;
  }
  response.set(http::field::access_control_allow_methods, "POST, GET, OPTIONS");
  const std::string asked(header[http::field::access_control_request_headers]);
  if (IsTokenList(asked)) response.set(http::field::access_control_allow_headers, asked);
  response.set(http::field::access_control_max_age, "600");
  if (header["Access-Control-Request-Private-Network"] == "true") {
    response.set("Access-Control-Allow-Private-Network", "true");
  }
  return response;
}

Response ContinueResponse() { return Response(http::status::continue_, 11); }

}  // namespace host
