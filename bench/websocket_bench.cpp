// Round trips over WebSockets, eight connections at once: a command of the module beside the same
// program that echoes the message instead of calling the module.
#include <benchmark/benchmark.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core/buffers_to_string.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/websocket/stream.hpp>
#include <memory>
#include <mutex>

#include "environment/paths.h"
#include "environment/program_information.h"
#include "host/http/module_handler.h"
#include "host/http/server.h"
#include "support/temp_folder.h"

namespace {

namespace net = boost::asio;
namespace websocket = boost::beast::websocket;

constexpr const char* kCommand = R"({"id":"1","method":"GetLocalIP","parameter":[]})";

class EchoHandler : public host::CommandHandler {
 public:
  explicit EchoHandler(host::Connections& connections) : connections_(connections) {}
  std::string_view path() const override { return "/echo/"; }
  bool IsQuick(const host::IncomingCommand&) const override { return true; }
  void Run(const host::IncomingCommand& command) override {
    connections_.Deliver(command.connectionId, {command.text, ""});
  }
  void Answered() override {}
  void Closed(int) override {}

 private:
  host::Connections& connections_;
};

// The service without what surrounds it: the server with both handlers, each on a port.
class Running {
 public:
  static Running& Instance() {
    static Running running;
    return running;
  }
  ~Running() {
    server_.RefuseCommands();
    server_.WaitForCommands(std::chrono::seconds(10));
    server_.CloseConnections();
    module_->AnnounceStop();
    module_->Finish();
  }
  int echoPort() const { return echoPort_; }
  int modulePort() const { return modulePort_; }

 private:
  Running() {
    InitProgramInfo();
    Spit(GetInitFile(), "[QV]\nLogLevel=1\n");  // as a fresh service, whatever ran before
    std::string error;
    module_ = host::ModuleLibrary::Load(ProgramsOwnFolder() + "libqtp.so", error);
    if (module_ == nullptr || !module_->Start("bench", 1)) throw std::runtime_error(error);
    handler_ = std::make_unique<host::ModuleHandler>(*module_, connections_, services_, [] {});
    echoPort_ = server_.Open(0, false, echo_).port;
    modulePort_ = server_.Open(0, false, *handler_).port;
  }

  host::Connections connections_;
  host::Discovery discovery_{mdns_wrapper::mDNSService::getInstance(),
                             mdns_wrapper::mDNSQueryService::getInstance()};
  host::HostServices services_{{}, discovery_};
  std::unique_ptr<host::ModuleLibrary> module_;
  std::unique_ptr<host::ModuleHandler> handler_;
  EchoHandler echo_{connections_};
  host::Door door_{[] { return host::OriginLists(); }};
  host::Server server_{{{}, door_, connections_, [] { return nullptr; }, {}}};
  int echoPort_ = 0;
  int modulePort_ = 0;
};

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

void EchoRoundTrips(benchmark::State& state) { RoundTrips(state, Running::Instance().echoPort()); }
BENCHMARK(EchoRoundTrips)->Threads(8)->UseRealTime();

void CommandRoundTrips(benchmark::State& state) {
  RoundTrips(state, Running::Instance().modulePort());
}
BENCHMARK(CommandRoundTrips)->Threads(8)->UseRealTime();

}  // namespace
