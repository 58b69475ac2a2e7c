// The commands that tell a page which module it talks to and what the service knows.
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "discovery/service_info.h"
#include "environment/configuration.h"
#include "environment/module_identity.h"
#include "environment/paths.h"
#include "environment/users.h"
#include "manager/certificate_date.h"
#include "manager/host_requests.h"
#include "manager/manager_client.h"
#include "manager/messages.h"
#include "platform/file.h"

namespace {

void AddText(HttpParamRequest* request, const std::string& value) {
  request->AddStringResultParam(value, false, QTP_SUCCESS, "");
}

std::string ServiceCertificate() {
  const std::string loopback =
      GetConfigurationfromInitFile("LoopbackHost", "127.0.0.1", DEFAULT_SECTION);
  std::string certFile;
  std::string keyFile;
  GetCertName(loopback, certFile, keyFile);
  return GetCertPath() + certFile;
}

std::string DateList(const std::string& certificateFile) {
  unsigned char* bytes = nullptr;
  DWORD length = 0;
  ReadFileByName(certificateFile.c_str(), &bytes, &length);
  const std::unique_ptr<unsigned char, decltype(&std::free)> owner(bytes, &std::free);
  const auto expiry = CertificateExpiry({reinterpret_cast<const char*>(bytes), length});
  if (!expiry) return "[]";
  char date[64];
  std::snprintf(date, sizeof date, "[\"%04d-%02d-%02d\"]", expiry->tm_year + 1900,
                expiry->tm_mon + 1, expiry->tm_mday);
  return date;
}

}  // namespace

ManagerClient::Result ManagerClient::VersionInfo(HttpParamRequest* request) {
  const bool compatible = request->GetVersion() == COMPATIBLE_CLIENT;
  request->GetStringResultStruct(compatible ? COMPATIBLE_VERSION : MODULE_VERSION, nullptr, 0,
                                 QTP_SUCCESS, "");
  AddText(request, MODULE_DESCRIPTION);
  const std::string user = GetUserSIDBySock(request->GetSocket());
  AddText(request, RememberUser(user));
  const bool enhanced =
      GetServiceMode() == WorkMode::Service && GetEnableMultipleUserEnhancedMode();
  AddText(request, enhanced ? "true" : "false");
  AddText(request, "32");
  std::string notReported;
  AddText(request, GetEnableMultipleUserEnhancedMode()
                       ? PortsText(GetCurrentUserModulePorts(user, notReported))
                       : "{}");
  return request;
}

ManagerClient::Result ManagerClient::QVVersion(HttpParamRequest* request) {
  std::string version;
  if (request->GetParameterCount() == 0) {
    version = GetConfigurationfromInitFile("QVVersion", "0", DEFAULT_SECTION);
  }
  request->GetStringResultStruct(version, nullptr, 0, QTP_SUCCESS, "");
  AddText(request, SERVICE_NAME);
  return request;
}

ManagerClient::Result ManagerClient::GetCertExpiredDate(HttpParamRequest* request) {
  return request->GetResultStructByJsonString(DateList(ServiceCertificate()));
}

ManagerClient::Result ManagerClient::GetBinaryFileInfo(HttpParamRequest* request) {
  return request->GetResultStructByJsonString(AskHostForText(*request, HOST_GET_BINARY_FILE_INFO));
}

ManagerClient::Result ManagerClient::GetServiceInfo(HttpParamRequest* request) {
  const std::string services = AskHostForText(*request, HOST_GET_SERVICE_INFO);
  mdns_wrapper::Deserialize(services);  // nothing is made of the list yet
  return request->GetResultStructByJsonString(services);
}
