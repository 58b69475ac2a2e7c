// The commands by which a page reads and changes where the service listens. Several of them have
// nothing to do on this system and give the answers that pages written for others expect.
#include <array>

#include "environment/configuration.h"
#include "environment/logging.h"
#include "environment/module_identity.h"
#include "environment/ports.h"
#include "manager/host_requests.h"
#include "manager/manager_client.h"
#include "manager/messages.h"

namespace {

constexpr const char* kModule = ALIAS_ARY[0];
constexpr const char* kScanningModule = ALIAS_ARY[1];
constexpr int kNoPort = -1;

std::string ModuleText(const char* name, int port, int sslPort) {
  return std::string("\"") + name + "\":{\"port\":\"" + std::to_string(port) + "\",\"sslPort\":\"" +
         std::to_string(sslPort) + "\"}";
}

std::string ServerText(const std::string& host, const ManagerClient::SPorts& scanning,
                       const ManagerClient::SPorts& own) {
  return "{\"Host\":\"" + host + "\"," +
         ModuleText(kScanningModule, scanning.port, scanning.sslPort) + "," +
         ModuleText(kModule, own.port, own.sslPort) + "}";
}

// These two commands answer a wrong parameter type with an empty object instead of an error.
HttpParamRequest* WrongTypeAsEmptyObject(HttpParamRequest* request) {
  LogErr(QTP_InvalidParameterTypeStr);
  return request->GetResultStructByJsonString("{}");
}

}  // namespace

ManagerClient::Result ManagerClient::GetServerInfo(HttpParamRequest* request) {
  const std::string host = GetConfigurationfromInitFile("Server", "", DEFAULT_SECTION);
  const StoredPorts stored = ReadPorts();
  const SPorts scanning = {FindPort(stored.plain, kScanningModule, kNoPort),
                           FindPort(stored.secure, kScanningModule, kNoPort)};
  const SPorts own = {FindPort(stored.plain, kModule, kNoPort),
                      FindPort(stored.secure, kModule, kNoPort)};
  return request->GetResultStructByJsonString(ServerText(host, scanning, own));
}

ManagerClient::Result ManagerClient::SetServerInfo(HttpParamRequest* request) {
  constexpr int kNeeded = 5;
  if (!HasParameters(request, kNeeded)) return WrongParameterCount(request);
  const ParamStack& stack = request->GetParamStack();
  std::string host;
  SPorts own = {kNoPort, kNoPort};
  SPorts scanning = {kNoPort, kNoPort};
  const bool good = JsonCommand::GetUTF8String(stack[0].get(), &host) &&
                    JsonCommand::ConvertInt(stack[1].get(), &own.port) &&
                    JsonCommand::ConvertInt(stack[2].get(), &own.sslPort) &&
                    JsonCommand::ConvertInt(stack[3].get(), &scanning.port) &&
                    JsonCommand::ConvertInt(stack[4].get(), &scanning.sslPort);
  if (!good) return WrongTypeAsEmptyObject(request);

  host = StoredText(std::move(host));
  const bool isStored = SetServer(
      host, {{kScanningModule, scanning.port, scanning.sslPort}, {kModule, own.port, own.sslPort}});
  // The reply has no place for an error: it tells what holds, so what was stored before.
  if (!isStored) return GetServerInfo(request);
  return request->GetResultStructByJsonString(ServerText(host, scanning, own));
}

ManagerClient::Result ManagerClient::ChangePort(HttpParamRequest* request) {
  return BoolResult(request, true);
}

ManagerClient::Result ManagerClient::AddFirewall(HttpParamRequest* request) {
  return BoolResult(request, false);
}

ManagerClient::Result ManagerClient::GetLocalIP(HttpParamRequest* request) {
  return request->GetResultStructByJsonString("[]");
}

ManagerClient::Result ManagerClient::CheckHVNPort(HttpParamRequest* request) {
  constexpr int kNeeded = 3;
  if (!HasParameters(request, kNeeded)) return WrongParameterCount(request);
  ParamStack& stack = request->GetParamStack();
  std::string host;
  std::array<int, 2> ports;
  const bool good = JsonCommand::GetUTF8String(stack[0].get(), &host) &&
                    JsonCommand::ConvertInt(stack[1].get(), &ports[0]) &&
                    JsonCommand::ConvertInt(stack[2].get(), &ports[1]);
  if (!good) return WrongTypeAsEmptyObject(request);
  stack.clear();
  return BoolResult(request, true);
}

ManagerClient::Result ManagerClient::Reboot(HttpParamRequest* request) {
  AskHost(*request, HOST_RESTART_SERVICE);
  return BoolResult(request, true);
}
