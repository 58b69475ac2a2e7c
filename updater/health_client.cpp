#include "updater/health_client.h"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/asio/ssl/stream.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http.hpp>
#include <exception>

namespace update {

namespace {

namespace net = boost::asio;
namespace http = boost::beast::http;
using net::ip::tcp;

constexpr std::size_t kMostBytes = 1024 * 1024;

template <class Stream>
net::awaitable<std::string> Ask(Stream& stream, const std::string& host) {
  http::request<http::empty_body> request(http::verb::get, "/health", 11);
  request.set(http::field::host, host);
  request.set(http::field::connection, "close");
  co_await http::async_write(stream, request, net::use_awaitable);
  boost::beast::flat_buffer buffer(kMostBytes);
  http::response_parser<http::string_body> parser;
  parser.body_limit(kMostBytes);
  co_await http::async_read(stream, buffer, parser, net::use_awaitable);
  const bool good = parser.get().result() == http::status::ok;
  co_return good ? parser.release().body() : std::string();
}

net::awaitable<std::string> Fetch(net::io_context& io, int port, bool secure) {
  const tcp::endpoint endpoint(net::ip::address_v4::loopback(), static_cast<unsigned short>(port));
  const std::string host = "127.0.0.1:" + std::to_string(port);
  tcp::socket socket(io);
  co_await socket.async_connect(endpoint, net::use_awaitable);
  if (!secure) co_return co_await Ask(socket, host);
  net::ssl::context context(net::ssl::context::tls_client);
  net::ssl::stream<tcp::socket&> stream(socket, context);
  co_await stream.async_handshake(net::ssl::stream_base::client, net::use_awaitable);
  co_return co_await Ask(stream, host);
}

}  // namespace

std::optional<std::string> FetchHealth(int port, bool secure, std::chrono::milliseconds limit) {
  std::optional<std::string> answer;
  net::io_context io;
  net::co_spawn(io, Fetch(io, port, secure), [&](std::exception_ptr problem, std::string text) {
    if (problem == nullptr && !text.empty()) answer = std::move(text);
  });
  io.run_for(limit);
  return answer;
}

}  // namespace update
