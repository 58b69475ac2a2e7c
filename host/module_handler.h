// Hands commands to a module and its replies to the connections.
#pragma once

#include <functional>

#include "host/host_services.h"
#include "host/module_library.h"
#include "host/server.h"

namespace host {

class ModuleHandler : public CommandHandler {
 public:
  /// All outlive the handler. `restart` is called when a module asked for it and the reply to that
  /// command has gone out, on a thread of the server, which must not wait.
  ModuleHandler(const ModuleLibrary& module, Connections& connections, HostServices& services,
                std::function<void()> restart)
      : module_(module),
        connections_(connections),
        services_(services),
        restart_(std::move(restart)) {}

  void Run(const Command& command) override;
  void Answered() override;
  void Closed(int connectionId) override;

 private:
  const ModuleLibrary& module_;
  Connections& connections_;
  HostServices& services_;
  const std::function<void()> restart_;
};

}  // namespace host
