// Round trips over WebSockets, eight connections at once: a command of the module beside the same
// program that echoes the message instead of calling the module.
#include <benchmark/benchmark.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core/buffers_to_string.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/websocket/stream.hpp>

#include "running_server.h"

namespace {

namespace net = boost::asio;
namespace websocket = boost::beast::websocket;

void RoundTrips(benchmark::State& state, int port) {
  net::io_context io;
  websocket::stream<net::ip::tcp::socket> ws(io);
  ws.next_layer().connect({net::ip::address_v4::loopback(), static_cast<unsigned short>(port)});
  ws.next_layer().set_option(net::ip::tcp::no_delay(true));
  ws.set_option(websocket::stream_base::decorator([](websocket::request_type& request) {
    request.set(boost::beast::http::field::user_agent, "bench");
  }));
  ws.handshake("127.0.0.1:" + std::to_string(port), "/qtp/");
  boost::beast::flat_buffer reply;
  for (auto _ : state) {
    ws.write(net::buffer(std::string_view(kCommand)));
    reply.clear();
    ws.read(reply);
  }
  if (boost::beast::buffers_to_string(reply.data()).find("exception") != std::string::npos) {
    state.SkipWithError("the command failed");
  }
  state.SetItemsProcessed(state.iterations());
  ws.close(websocket::close_code::normal);
}

void EchoRoundTrips(benchmark::State& state) {
  RoundTrips(state, RunningServer::Instance().echoPort());
}
BENCHMARK(EchoRoundTrips)->Threads(8)->UseRealTime();

void WorkerEchoRoundTrips(benchmark::State& state) {
  RoundTrips(state, RunningServer::Instance().workerEchoPort());
}
BENCHMARK(WorkerEchoRoundTrips)->Threads(8)->UseRealTime();

void CommandRoundTrips(benchmark::State& state) {
  RoundTrips(state, RunningServer::Instance().modulePort());
}
BENCHMARK(CommandRoundTrips)->Threads(8)->UseRealTime();

}  // namespace
