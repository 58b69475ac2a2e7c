// Commands over HTTP, eight kept-alive connections of another process: a command of the module
// beside the same program that echoes, and beside a bare echo of the HTTP library on one thread.
#include <benchmark/benchmark.h>

#include <boost/asio/awaitable.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/string_body.hpp>
#include <boost/beast/http/write.hpp>
#include <cstdlib>
#include <thread>

#include "running_server.h"
#include "support/temp_folder.h"

namespace {

namespace net = boost::asio;
namespace http = boost::beast::http;
using net::ip::tcp;

/// What the library costs when nothing is looked at and nothing is run.
class BareEcho {
 public:
  static BareEcho& Instance() {
    static BareEcho echo;
    return echo;
  }
  ~BareEcho() {
    io_.stop();
    thread_.join();
  }
  int port() const { return acceptor_.local_endpoint().port(); }

 private:
  BareEcho() {
    net::co_spawn(io_, Accept(), net::detached);
    thread_ = std::thread([this] { io_.run(); });
  }

  net::awaitable<void> Accept() {
    for (;;) {
      net::co_spawn(io_, Serve(co_await acceptor_.async_accept(net::use_awaitable)), net::detached);
    }
  }
  static net::awaitable<void> Serve(tcp::socket socket) {
    socket.set_option(tcp::no_delay(true));
    boost::beast::flat_buffer buffer;
    for (;;) {
      http::request<http::string_body> request;
      co_await http::async_read(socket, buffer, request, net::use_awaitable);
      http::response<http::string_body> response(http::status::ok, request.version());
      response.set(http::field::content_type, "application/json");
      response.body() = std::move(request.body());
      response.prepare_payload();
      co_await http::async_write(socket, response, net::use_awaitable);
    }
  }

  net::io_context io_{1};
  tcp::acceptor acceptor_{io_, {net::ip::address_v4::loopback(), 0}};
  std::thread thread_;
};

void Load(benchmark::State& state, int port, const char* path) {
  constexpr int kRequests = 40'000;
  const std::string load = ProgramsOwnFolder() + "qv_http_load";
  for (auto _ : state) {
    const std::string line = "'" + load + "' " + std::to_string(port) + " 8 " +
                             std::to_string(kRequests) + " " + path + " '" + kCommand + "'";
    if (std::system(line.c_str()) != 0) state.SkipWithError("the load failed");
  }
  state.SetItemsProcessed(state.iterations() * kRequests);
}

void HttpBareEcho(benchmark::State& state) { Load(state, BareEcho::Instance().port(), "/"); }
BENCHMARK(HttpBareEcho)->MeasureProcessCPUTime()->UseRealTime()->Unit(benchmark::kMillisecond);

void HttpEcho(benchmark::State& state) {
  Load(state, RunningServer::Instance().echoPort(), "/echo/");
}
BENCHMARK(HttpEcho)->MeasureProcessCPUTime()->UseRealTime()->Unit(benchmark::kMillisecond);

void HttpCommands(benchmark::State& state) {
  Load(state, RunningServer::Instance().modulePort(), "/qtp/");
}
BENCHMARK(HttpCommands)->MeasureProcessCPUTime()->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace
