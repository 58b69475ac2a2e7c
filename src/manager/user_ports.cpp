// Users behind connections and the ports of their modules.
#include <cstdint>

#include "environment/logging.h"
#include "environment/module_identity.h"
#include "environment/ports.h"
#include "environment/users.h"
#include "manager/manager_client.h"
#include "manager/messages.h"

std::string ManagerClient::GetUserSIDBySock(int socket) {
  std::string user;
  SUserModuleInfo info = {};
  GetUserInfo(socket, user, info.sessionId, info.processId);
  LogDebug("User=%s, sock=%d, session=%d, process=%d", user.c_str(), socket, info.sessionId,
           info.processId);
  const MutexLock lock(usersMutex_);
  users_[user] = info;
  return user;
}

ManagerClient::PortsByModule ManagerClient::GetCurrentUserModulePorts(const std::string& user,
                                                                      std::string& error) {
  LogDebug("GetCurrentUserModulePorts user=%s", user.c_str());
  if (user.empty()) error = QTP_NoUserStr;
  return {};
}

ManagerClient::PortsByModule ManagerClient::GetAllListenPorts(const std::string& user) {
  PortsByModule ports;
  for (const char* alias : ALIAS_ARY) {
    const SPorts found = {GetPort(user.c_str(), alias, false, false),
                          GetPort(user.c_str(), alias, false, true)};
    LogDebug("port:%d--%d, %s", found.port, found.sslPort, alias);
    ports[alias] = found;
  }
  return ports;
}

bool ManagerClient::CloseUserProcess(const std::string& user) {
  return SetUserProcessExitFlag(user.c_str(), true);
}

int ManagerClient::GetHashCode(const std::string& text) {
  std::uint32_t hash = 0;
  for (const char c : text) {
    hash = hash * 33 + static_cast<std::uint32_t>(static_cast<signed char>(c));
  }
  return static_cast<int>(hash);
}

ManagerClient::Result ManagerClient::GetPorts(HttpParamRequest* request) {
  if (!HasParameters(request, 1)) return WrongParameterCount(request);
  std::string key;
  JsonCommand::GetUTF8String(request->GetParamStack()[0].get(), &key);
  std::string user;
  {
    // A key that nobody has stays unknown: pages may ask for as many as they like.
    const MutexLock lock(usersMutex_);
    if (const auto found = userByHash_.find(key); found != userByHash_.end()) user = found->second;
  }
  std::string error;
  const PortsByModule modules = GetCurrentUserModulePorts(user, error);
  if (!error.empty()) {
    SetErrorInfo(QTP_NO_USER, error.c_str());
    return BoolResult(request, false);
  }
  request->AddJsonStringResultParam(PortsText(modules), false, QTP_SUCCESS, "");
  return request;
}

std::string ManagerClient::PortsText(const PortsByModule& modules) {
  std::string json = "{";
  for (const auto& [name, ports] : modules) {
    if (json.size() > 1) json += ",";
    json += "\"" + name + "\":{\"port\":" + std::to_string(ports.port) +
            ",\"sslPort\":" + std::to_string(ports.sslPort) + "}";
  }
  return json + "}";
}

std::string ManagerClient::RememberUser(const std::string& user) {
  std::string hash = std::to_string(static_cast<std::uint32_t>(GetHashCode(user)));
  const MutexLock lock(usersMutex_);
  userByHash_[hash] = user;
  return hash;
}
