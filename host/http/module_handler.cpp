#include "host/http/module_handler.h"

#include "command/command_table.h"
#include "command/command_text.h"
#include "environment/logging.h"

namespace host {

namespace {

/// The module's way back. A further text beside reply and data has no place on the wire.
signed char SendBack(int connectionId, void* host, const char* text, const void* data,
                     unsigned int length, const char*) {
  try {
    Reply reply;
    if (text != nullptr) reply.text = text;
    if (data != nullptr) reply.data.assign(static_cast<const char*>(data), length);
    return static_cast<Connections*>(host)->Deliver(connectionId, std::move(reply)) ? 1 : 0;
  } catch (const std::exception& problem) {
    LogErr("A reply was lost: %s", problem.what());
    return 0;
  }
}

}  // namespace

bool IsQuickCommand(std::string_view path, std::string_view text) {
  if (path.size() + text.size() > Limits::kQuickBytes) return false;
  const CommandEntry* entry = FindCommand(GlanceAtFunctionName(path, text));
  return entry != nullptr && entry->isQuick;
}

bool ModuleHandler::IsQuick(const IncomingCommand& command) const {
  return own_ && command.upload == nullptr && IsQuickCommand(command.path, command.text);
}

void ModuleHandler::Run(const IncomingCommand& command) {
  struct Count {
    std::atomic<int>& running;
    explicit Count(std::atomic<int>& counter) : running(counter) { ++running; }
    ~Count() { --running; }
  } const count(running_);
  const bool direct = command.kind == 1;
  const UploadFile* const upload = command.upload;
  const HostServices::UploadScope scope(upload != nullptr ? upload->path() : "");
  module_.functions().distributeCommand(
      command.connectionId, &connections_, command.kind,
      direct ? command.text.c_str() : command.path.c_str(), direct ? "" : command.text.c_str(),
      upload != nullptr ? upload->data() : nullptr,
      upload != nullptr ? static_cast<unsigned int>(upload->size()) : 0, command.browserType,
      &SendBack, command.socket, command.domain.c_str(), &HostServices::Get, &HostServices::Set,
      &HostServices::Get);
}

void ModuleHandler::Answered() {
  if (services_.TakeRestart()) restart_();
}

void ModuleHandler::Closed(int connectionId) { module_.functions().closeWebSocket(connectionId); }

}  // namespace host
