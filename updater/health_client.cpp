#include "updater/health_client.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/asio/ssl/stream.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http.hpp>

namespace update {

namespace {

namespace net = boost::asio;
namespace http = boost::beast::http;
using net::ip::tcp;
using Time = std::chrono::steady_clock::time_point;

constexpr std::size_t kMostBytes = 1024 * 1024;

/// Begins an operation and waits for its end. False when it failed or took too long; then no other
/// may be begun.
template <class Begin>
bool Within(net::io_context& io, Time end, Begin begin) {
  bool good = false;
  begin([&good](const boost::system::error_code& ec, auto&&...) { good = !ec; });
  io.restart();
  io.run_until(end);
  return good;
}

template <class Stream>
std::optional<std::string> Ask(net::io_context& io, Time end, Stream& stream, int port) {
  http::request<http::empty_body> request(http::verb::get, "/health", 11);
  request.set(http::field::host, "127.0.0.1:" + std::to_string(port));
  request.set(http::field::connection, "close");
  boost::beast::flat_buffer buffer(kMostBytes);
  http::response_parser<http::string_body> parser;
  parser.body_limit(kMostBytes);
  const auto write = [&](auto done) { http::async_write(stream, request, std::move(done)); };
  const auto read = [&](auto done) { http::async_read(stream, buffer, parser, std::move(done)); };
  if (!Within(io, end, write) || !Within(io, end, read)) return {};
  if (parser.get().result() != http::status::ok) return {};
  return parser.release().body();
}

}  // namespace

std::optional<std::string> FetchHealth(int port, bool secure, std::chrono::milliseconds limit) {
  const Time end = std::chrono::steady_clock::now() + limit;
  const tcp::endpoint endpoint(net::ip::address_v4::loopback(), static_cast<unsigned short>(port));
  net::ssl::context context(net::ssl::context::tls_client);
  net::io_context io;
  net::ssl::stream<tcp::socket> stream(io, context);
  tcp::socket& socket = stream.next_layer();
  const auto connect = [&](auto done) { socket.async_connect(endpoint, std::move(done)); };
  const auto greet = [&](auto done) {
    stream.async_handshake(net::ssl::stream_base::client, std::move(done));
  };
  if (!Within(io, end, connect)) return {};
  if (!secure) return Ask(io, end, socket, port);
  if (!Within(io, end, greet)) return {};
  return Ask(io, end, stream, port);
}

}  // namespace update
