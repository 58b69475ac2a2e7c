#include "running_server.h"

#include <stdexcept>

#include "bare_read.h"
#include "environment/paths.h"
#include "environment/program_information.h"
#include "support/temp_folder.h"

RunningServer& RunningServer::Instance() {
  static RunningServer running;
  return running;
}

RunningServer::RunningServer() {
  InitProgramInfo();
  SpitAndAge(GetInitFile(), "[QV]\nLogLevel=1\n");  // as a fresh service, whatever ran before
  std::string why;
  module_ = host::ModuleLibrary::Load(ProgramsOwnFolder() + DEFAULT_MODULE, &why);
  if (module_ == nullptr || !module_->Start("bench", 1)) throw std::runtime_error(why);
  handler_ = std::make_unique<host::ModuleHandler>(*module_, connections_, services_, [] {});
  echoPort_ = server_.Open(0, false, echo_).port;
  workerEchoPort_ = server_.Open(0, false, workerEcho_).port;
  modulePort_ = server_.Open(0, false, *handler_).port;
}

RunningServer::~RunningServer() {
  server_.RefuseCommands();
  server_.WaitForCommands(std::chrono::seconds(10));
  server_.CloseConnections();
  module_->AnnounceStop();
  module_->Finish();
}
