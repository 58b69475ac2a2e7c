#include "manager/manager_client.h"

#include <pthread.h>

#include <memory>

#include "environment/logging.h"
#include "manager/messages.h"
#include "platform/system_time.h"
#include "platform/text.h"

namespace {

struct LastError {
  int code = 0;
  char message[1024] = "";
};

// A last error for each thread, by a key of its own: a `thread_local` variable would keep the
// module in memory on macOS. The key ends with the module.
class LastErrors {
 public:
  LastErrors() : works_(::pthread_key_create(&key_, &Delete) == 0) {}
  ~LastErrors() {
    if (works_) ::pthread_key_delete(key_);
  }
  LastErrors(const LastErrors&) = delete;
  LastErrors& operator=(const LastErrors&) = delete;

  // The calling thread's, null when it has none.
  LastError* Own() const {
    return works_ ? static_cast<LastError*>(::pthread_getspecific(key_)) : nullptr;
  }
  bool SetOwn(LastError* error) const { return works_ && ::pthread_setspecific(key_, error) == 0; }

 private:
  // A thread that ends runs no command, so what it has is no command's.
  static void Delete(void* error) { delete static_cast<LastError*>(error); }

  pthread_key_t key_{};
  const bool works_;
};
const LastErrors g_lastErrors;

// A command has an error of its own for as long as it runs. A handler's callback into the host may
// run another one on the same thread; the error of the outer one is back when it ends.
class LastErrorScope {
 public:
  LastErrorScope() { g_lastErrors.SetOwn(&own_); }
  ~LastErrorScope() { g_lastErrors.SetOwn(outer_); }
  LastErrorScope(const LastErrorScope&) = delete;
  LastErrorScope& operator=(const LastErrorScope&) = delete;

 private:
  LastError* const outer_ = g_lastErrors.Own();
  LastError own_;
};

}  // namespace

ManagerClient::Handler ManagerClient::HandlerOf(Command command) {
  switch (command) {
    case Command::LoadZipFromBytes:
      return &ManagerClient::LoadZipFromBytes;
    case Command::CheckUpdateFile:
      return &ManagerClient::CheckUpdateFile;
    case Command::GetServerInfo:
      return &ManagerClient::GetServerInfo;
    case Command::SetServerInfo:
      return &ManagerClient::SetServerInfo;
    case Command::ChangePort:
      return &ManagerClient::ChangePort;
    case Command::Reboot:
      return &ManagerClient::Reboot;
    case Command::AddFirewall:
      return &ManagerClient::AddFirewall;
    case Command::GetLocalIP:
      return &ManagerClient::GetLocalIP;
    case Command::CheckHVNPort:
      return &ManagerClient::CheckHVNPort;
    case Command::GetPorts:
      return &ManagerClient::GetPorts;
    case Command::VersionInfo:
      return &ManagerClient::VersionInfo;
    case Command::QVVersion:
      return &ManagerClient::QVVersion;
    case Command::GetCertExpiredDate:
      return &ManagerClient::GetCertExpiredDate;
    case Command::GetBinaryFileInfo:
      return &ManagerClient::GetBinaryFileInfo;
    case Command::GetmDNSQueryService:
      return &ManagerClient::GetmDNSQueryService;
    case Command::SetmDNSQueryService:
      return &ManagerClient::SetmDNSQueryService;
    case Command::GetmDNSService:
      return &ManagerClient::GetmDNSService;
    case Command::SetmDNSService:
      return &ManagerClient::SetmDNSService;
  }
  return nullptr;
}

int ManagerClient::Function(HttpParamRequest* request) {
  if (request == nullptr) return 0;
  const std::string& id = request->GetClientId();
  if (request->IsTraced()) {
    LogDebug("2. Before command actually start cost: %ums. id = [%s].",
             GetTickCount() - request->GetRecTime(), ForLog(id).c_str());
  }
  if (request->GetBowserType() == 0) {
    request->GetBOOLResultStruct(false, nullptr, 0, QTP_INVALID_BROWSER, QTP_InvalidBrowserStr);
    return request->SendBackResult();
  }
  Result result = FunctionInner(request);
  const unsigned int started = request->GetLastTime();
  if (request->IsTraced()) {
    LogDebug("3. Command process cost: %ums. cmd = [%s]. id = [%s].", GetTickCount() - started,
             ForLog(request->GetFunName()).c_str(), ForLog(id).c_str());
  }
  if (result == nullptr) {
    LogDebug("No valid value to return. result = NULL.");
    return 0;
  }
  const int sent = result->SendBackResult();
  const unsigned int processed = result->GetLastTime();
  if (request->IsTraced()) {
    LogDebug("4. Command send back result cost: %ums. id = [%s].\n", GetTickCount() - processed,
             ForLog(id).c_str());
  }
  return sent;
}

ManagerClient::Result ManagerClient::FunctionInner(HttpParamRequest* request) {
  const std::string& name = request->GetFunName();
  const CommandEntry* entry = FindCommand(name);
  if (entry == nullptr) {
    LogErr("Invalid function name: %s.", ForLog(name).c_str());
    return request->GetBOOLResultStruct(false, nullptr, 0, QTP_FUNCTION_NOT_FOUND,
                                        QTP_FunNotFoundStr);
  }
  if (request->IsTraced()) LogDebug("Twain function [%s] begin: ", name.c_str());
  const LastErrorScope ownError;
  SetErrorInfo(QTP_SUCCESS, QTP_SuccessStr);
  return (this->*HandlerOf(entry->command))(request);
}

void ManagerClient::SetErrorInfo(int code, const char* message) {
  LastError* error = g_lastErrors.Own();
  if (error == nullptr) {  // no command runs on this thread
    auto made = std::make_unique<LastError>();
    if (!g_lastErrors.SetOwn(made.get())) return;
    error = made.release();  // the thread's end deletes it
  }
  error->code = code;
  lstrcpyn(error->message, message, sizeof error->message);
}

int ManagerClient::GetErrorCode() {
  const LastError* error = g_lastErrors.Own();
  return error != nullptr ? error->code : 0;
}

const char* ManagerClient::GetErrorMessage() {
  const LastError* error = g_lastErrors.Own();
  return error != nullptr ? error->message : "";
}

bool ManagerClient::HasParameters(HttpParamRequest* request, int needed) {
  const int count = request->GetParameterCount();
  if (count >= needed) return true;
  LogErr("Invalidate parameter count. Need %d parameter, %d parameter actually.", needed, count);
  return false;
}

ManagerClient::Result ManagerClient::WrongParameterCount(HttpParamRequest* request) {
  return request->GetBOOLResultStruct(false, nullptr, 0, QTP_INVALID_PARAMETER_COUNT,
                                      QTP_InvalidParameterCountStr);
}

ManagerClient::Result ManagerClient::WrongParameterType(HttpParamRequest* request) {
  LogErr(QTP_InvalidParameterTypeStr);
  SetErrorInfo(QTP_INVALID_PARAMETER_TYPE, QTP_InvalidParameterTypeStr);
  return BoolResult(request, true);  // the code tells that it is an error
}

ManagerClient::Result ManagerClient::BoolResult(HttpParamRequest* request, bool value) {
  return request->GetBOOLResultStruct(value ? 1 : 0, nullptr, 0, GetErrorCode(), GetErrorMessage());
}
