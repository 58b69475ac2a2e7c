#include "host/http/request_reader.h"

#include <algorithm>
#include <boost/beast/core/string.hpp>
#include <utility>

namespace host {

RequestReader::RequestReader(std::size_t headerBytes) {
  header_limit(static_cast<std::uint32_t>(headerBytes));
  body_limit(boost::none);  // it depends on the path, which is not known yet
}

std::size_t RequestReader::TakeHeader(boost::asio::const_buffer bytes, error_code& ec) {
  return put(bytes, ec);
}

std::size_t RequestReader::TakeBody(boost::asio::const_buffer bytes, std::size_t limit,
                                    error_code& ec) {
  bodyLimit_ = limit;
  eager(true);
  return put(bytes, ec);
}

std::size_t RequestReader::Append(View part, error_code& ec) {
  if (part.size() > bodyLimit_ - received_) {
    ec = http::error::body_limit;
    return 0;
  }
  // A length is believed once its first part has come: no length that a client claims reserves
  // memory. Growing by doubling would hold up to twice as much.
  if (!body_.empty() && !inPieces_) {
    body_.reserve(std::min<std::uint64_t>(content_length().value_or(0), bodyLimit_));
  }
  body_.append(part.data(), part.size());
  received_ += part.size();
  return part.size();
}

void RequestReader::on_request_impl(http::verb verb, View, View target, int version, error_code&) {
  facts_.verb = verb;
  facts_.target = target;
  facts_.version = static_cast<unsigned>(version);
}

void RequestReader::on_field_impl(http::field name, View text, View value, error_code&) {
  switch (name) {
    case http::field::host:
      facts_.hosts.emplace_back(value);
      break;
    case http::field::origin:
      facts_.origins.emplace_back(value);
      break;
    case http::field::user_agent:
      if (facts_.userAgent.empty()) facts_.userAgent = value;
      break;
    case http::field::expect:
      facts_.expectsContinue = facts_.version >= 11 && boost::beast::iequals(value, "100-continue");
      break;
    case http::field::transfer_encoding:
      // Any other coding, or one more, would leave it open where the body ends.
      facts_.plainCoding = !std::exchange(codings_, true) && facts_.version >= 11 &&
                           boost::beast::iequals(value, "chunked");
      break;
    case http::field::access_control_request_headers:
      facts_.requestedHeaders = value;
      break;
    case http::field::if_none_match:
      facts_.knownTags = value;
      break;
    case http::field::connection:
    case http::field::upgrade:
    case http::field::sec_websocket_key:
    case http::field::sec_websocket_version:
      facts_.upgrade.emplace_back(name, value);
      break;
    default:
      if (boost::beast::iequals(text, "Access-Control-Request-Private-Network")) {
        facts_.asksPrivateNetwork = value == "true";
      } else if (boost::beast::iequals(text, "X-Marvique-Token")) {
        facts_.token = value;
      } else if (boost::beast::iequals(text, "Sec-Fetch-Site")) {
        facts_.crossSite = facts_.crossSite || value == "cross-site";
      }
  }
}

}  // namespace host
