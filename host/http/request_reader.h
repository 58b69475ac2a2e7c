// Reads one request out of the bytes that came, on any text without a socket.
#pragma once

#include <boost/asio/buffer.hpp>
#include <boost/beast/http/basic_parser.hpp>
#include <string>

#include "host/http/http_message.h"

namespace host {

/// Keeps of the header only what the service looks at, and the body as one text.
class RequestReader : private http::basic_parser<true> {
 public:
  /// Header fields and request line may have `headerBytes` together.
  explicit RequestReader(std::size_t headerBytes);

  /// What is known so far; whole once the header is.
  const RequestFacts& facts() const { return facts_; }
  bool begun() const { return got_some(); }
  bool header_done() const { return is_header_done(); }
  bool done() const { return is_done(); }
  /// Whether the client wants to go on after this request. Once it is done.
  using basic_parser::content_length;
  using basic_parser::keep_alive;

  /// Takes in what is next, the header first and alone. Returns how many bytes were used up; the
  /// error is need_more when the rest must be given again with more behind it.
  std::size_t TakeHeader(boost::asio::const_buffer bytes, boost::system::error_code& ec);
  /// The same for the body, after the header. The error is body_limit when it has more than `limit`
  /// bytes.
  std::size_t TakeBody(boost::asio::const_buffer bytes, std::size_t limit,
                       boost::system::error_code& ec);
  std::string& body() { return body_; }
  /// From now on the body is what has come of it since it was last cleared.
  void ReadInPieces() { inPieces_ = true; }

 private:
  using View = boost::beast::string_view;
  using error_code = boost::system::error_code;

  std::size_t Append(View part, error_code& ec);

  void on_request_impl(http::verb verb, View, View target, int version, error_code&) override;
  void on_field_impl(http::field name, View, View value, error_code&) override;
  void on_body_init_impl(const boost::optional<std::uint64_t>&, error_code&) override {}
  std::size_t on_body_impl(View part, error_code& ec) override { return Append(part, ec); }
  std::size_t on_chunk_body_impl(std::uint64_t, View part, error_code& ec) override {
    return Append(part, ec);
  }
  void on_response_impl(int, View, int, error_code&) override {}
  void on_header_impl(error_code&) override {}
  void on_chunk_header_impl(std::uint64_t, View, error_code&) override {}
  void on_finish_impl(error_code&) override {}

  RequestFacts facts_;
  std::string body_;
  std::size_t bodyLimit_ = 0;
  std::size_t received_ = 0;  // of the whole body
  bool inPieces_ = false;
  bool codings_ = false;  // a Transfer-Encoding has been seen
};

}  // namespace host
