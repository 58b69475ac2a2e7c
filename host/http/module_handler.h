// Hands commands to a module and its replies to the connections.
#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <string_view>

#include "environment/module_identity.h"
#include "host/host_services.h"
#include "host/http/server_parts.h"
#include "host/modules.h"

namespace host {

/// Whether a command of our own module may run on a thread that serves sockets: a text in which a
/// glance shows that it runs a quick command or none. Any thread may call.
bool IsQuickCommand(std::string_view path, std::string_view text);

class ModuleHandler : public CommandHandler {
 public:
  /// All outlive the handler. `restart` is called when a module asked for it, with the first reply
  /// of this handler that has gone out since, on a thread of the server, which must not wait.
  ModuleHandler(const ModuleLibrary& module, Connections& connections, HostServices& services,
                std::function<void()> restart)
      : module_(module),
        connections_(connections),
        services_(services),
        restart_(std::move(restart)),
        path_("/" + module.alias() + "/"),
        own_(module.alias() == ALIAS_ARY[0]) {}

  std::string_view path() const override { return path_; }
  bool IsQuick(const IncomingCommand& command) const override;
  void Run(const IncomingCommand& command) override;
  void Answered() override;
  void Closed(int connectionId) override;

  /// Whether a command of the module is running. Any thread may call.
  bool IsBusy() const { return running_ > 0; }

 private:
  const ModuleLibrary& module_;
  Connections& connections_;
  HostServices& services_;
  const std::function<void()> restart_;
  const std::string path_;
  const bool own_;  // the module whose commands the table lists
  std::atomic<int> running_{0};
};

}  // namespace host
