// The service without what surrounds it: the server with two handlers, each on a port. One calls
// the module, the other echoes the text of the command.
#pragma once

#include <memory>

#include "host/http/module_handler.h"
#include "host/http/server.h"

/// The command that is measured.
inline constexpr const char* kCommand = R"({"id":"1","method":"GetLocalIP","parameter":[]})";

class EchoHandler : public host::CommandHandler {
 public:
  EchoHandler(host::Connections& connections, bool quick)
      : connections_(connections), quick_(quick) {}
  std::string_view path() const override { return "/echo/"; }
  bool IsQuick(const host::IncomingCommand&) const override { return quick_; }
  void Run(const host::IncomingCommand& command) override {
    connections_.Deliver(command.connectionId, {command.text, ""});
  }
  void Answered() override {}
  void Closed(int) override {}

 private:
  host::Connections& connections_;
  const bool quick_;
};

class RunningServer {
 public:
  /// Started by the first call, for all benchmarks of the program.
  static RunningServer& Instance();
  ~RunningServer();
  /// Echoes where the message was read, as the command runs that it is compared with.
  int echoPort() const { return echoPort_; }
  /// Echoes on a worker thread, as commands run that are not quick.
  int workerEchoPort() const { return workerEchoPort_; }
  int modulePort() const { return modulePort_; }

 private:
  RunningServer();

  host::Connections connections_;
  host::Discovery discovery_{mdns_wrapper::mDNSService::getInstance(),
                             mdns_wrapper::mDNSQueryService::getInstance()};
  host::HostServices services_{discovery_};
  std::unique_ptr<host::ModuleLibrary> module_;
  std::unique_ptr<host::ModuleHandler> handler_;
  EchoHandler echo_{connections_, true};
  EchoHandler workerEcho_{connections_, false};
  host::Door door_{[] { return host::OriginLists(); }};
  host::Accounts accounts_{[] { return host::Accounts::Settings(); }};
  host::Server server_{{{}, door_, accounts_, connections_, [] { return nullptr; }, "", {}}};
  int echoPort_ = 0;
  int workerEchoPort_ = 0;
  int modulePort_ = 0;
};
