// The ten exported functions: each checks its pointers, copies what it is given and hands it on.
#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>

#include "command/command_text.h"
#include "environment/configuration.h"
#include "environment/logging.h"
#include "environment/module_identity.h"
#include "environment/paths.h"
#include "environment/program_information.h"
#include "frame/virtual_manager_client.h"
#include "manager/host_requests.h"
#include "marvique/module.h"
#include "platform/sync.h"
#include "util/cutil.h"

namespace {

enum Action : unsigned int {
  ACTION_START = 0,
  ACTION_STOPPING = 2,
  ACTION_UNLOAD = 3,
  ACTION_START_HELPER = 4,
};

enum RequestKind : int { KIND_ADDRESSED = 0, KIND_DIRECT = 1 };

constexpr int kReservedNameLength = 18;

// Nothing may leave the module as an exception: the other side may be written in C.
template <class Result, class Call>
Result Guarded(const char* function, Result failure, Call call) {
  try {
    return call();
  } catch (const std::exception& error) {
    LogErr("%s failed: %s", function, error.what());
  } catch (...) {
    LogErr("%s failed.", function);
  }
  return failure;
}

bool NameBegins(const char* name, HostRequest request) {
  return std::strncmp(name, RESERVED_CMD[request], kReservedNameLength) == 0;
}

}  // namespace

bool DoAction(unsigned int action, const char* exeFile, const char* modulePath, unsigned int seed) {
  return Guarded("DoAction", false, [&] {
    switch (action) {
      case ACTION_START:
        InitProgramInfo();
        SetProcessMode(GetServiceMode());
        break;
      case ACTION_START_HELPER:
        // The mode comes first here: start-up already logs and reads in it.
        SetProcessMode(WorkMode::OwnPorts);
        InitProgramInfo();
        break;
      case ACTION_STOPPING:
        SetIfServiceStopped(true);
        return true;
      case ACTION_UNLOAD:
        VirtualManagerClient::DeleteInstance();
        return true;
      default:
        return false;
    }
    if (modulePath != nullptr) SetModulePath(modulePath);
    if (exeFile != nullptr) SetExeFile(exeFile);
    SetGlobalSeed(static_cast<int>(seed));
    return true;
  });
}

int DistributeCommand(int connectionId, void* host, int kind, const char* text1, const char* text2,
                      const void* data, unsigned int dataLen, int browserType,
                      SendBackFunc sendBack, int socket, const char* domain, HostDataGetFunc get1,
                      HostDataSetFunc set, HostDataGetFunc get2) {
  if (kind != KIND_ADDRESSED && kind != KIND_DIRECT) return 0;
  return Guarded("DistributeCommand", 0, [&] {
    const bool direct = kind == KIND_DIRECT;
    const char* const path = direct ? DIRECT_PATH.data() : text1;
    const char* const text = direct ? text1 : text2;
    if (path == nullptr || text == nullptr || domain == nullptr ||
        (data != nullptr && dataLen > INT_MAX)) {
      LogErr("DistributeCommand was given a null text or too many bytes.");
      return 0;
    }
    // The host's own memory: the command has ended when this call returns.
    HttpParamResponse::Payload payload(HttpParamResponse::Payload(),
                                       static_cast<const unsigned char*>(data));
    return VirtualManagerClient::GetInstance()->DistributeHttpCommand(
        connectionId, host, path, text, browserType, sendBack, socket, domain, std::move(payload),
        static_cast<long>(data == nullptr ? 0 : dataLen), get1, set, get2);
  });
}

void CloseWebSocket(int) {}

int GetWaitTimeout(void) {
  return Guarded("GetWaitTimeout", 1,
                 [] { return VirtualManagerClient::GetInstance()->GetWaitTimeout(); });
}

int GetAlias(unsigned int* alias) {
  constexpr unsigned int kAlias = 'q' | 't' << 8 | 'p' << 16;
  if (alias != nullptr) *alias = kAlias;
  return sizeof kAlias;
}

int GetVersionDesc(char* out) {
  char digits[1024];
  std::snprintf(digits, sizeof digits, "%s", MODULE_VERSION);
  CUtil::RemoveChar(digits, ',');
  CUtil::RemoveChar(digits, ' ');
  char description[1024];
  std::snprintf(description, sizeof description, "hvasm2_%.1000s", digits);
  const std::size_t size = std::strlen(description) + 1;
  if (out != nullptr) std::memcpy(out, description, size);
  return static_cast<int>(size);
}

int GetPorts(unsigned char ssl, unsigned int* port) {
  if (port != nullptr) *port = ssl != 0 ? DEFAULT_SSL_PORT : DEFAULT_PORT;
  return 1;
}

int GetImage(const char* url, void* out, unsigned int* len) {
  if (url == nullptr || len == nullptr) return 0;
  return Guarded("GetImage", 0,
                 [&] { return VirtualManagerClient::GetInstance()->GetImage(url, out, len); });
}

int SetImage(const char* url, const void* data, unsigned int len) {
  if (url == nullptr) return 0;
  return Guarded("SetImage", 0,
                 [&] { return VirtualManagerClient::GetInstance()->SetImage(url, data, len); });
}

int Reserved(const char* name, const char* path, const void* mustBeNull) {
  if (name == nullptr || path == nullptr || mustBeNull != nullptr) return -1;
  return Guarded("Reserved", -1, [&] {
    const auto instance = VirtualManagerClient::GetInstance();
    if (NameBegins(name, HOST_FILE_IN_WHITE_LIST)) {
      return instance->FileIsInWhiteList(path) ? 0 : -1;
    }
    if (!NameBegins(name, HOST_ADD_FILE_TO_WHITE_LIST)) return -1;
    instance->AddFileToWhiteList(path);
    return 0;
  });
}
