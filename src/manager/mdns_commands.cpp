// The commands that read and change the two sides of network discovery. The workers belong to the
// host, which is asked to stop and start them.
#include <openssl/evp.h>

#include <optional>

#include "environment/configuration.h"
#include "environment/logging.h"
#include "environment/mdns_settings.h"
#include "manager/host_requests.h"
#include "manager/manager_client.h"
#include "os/text.h"

namespace {

constexpr int kPasswordProtected = 1;

const char* Word(bool value) { return value ? "true" : "false"; }

HttpParamRequest* EmptyText(HttpParamRequest* request) {
  return request->GetResultStructByJsonString("");
}

// A flag of a page. The conversion leaves the text "true" to its caller's own value.
struct Flag {
  signed char value = 1;
  explicit operator bool() const { return value != 0; }
};

// SHA3-512 in lower-case hexadecimal; none when this machine's library has no such digest.
std::optional<std::string> DigestOf(const std::string& password) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  if (EVP_Digest(password.data(), password.size(), digest, &length, EVP_sha3_512(), nullptr) != 1) {
    return std::nullopt;
  }
  return ascii::Hex({digest, length});
}

}  // namespace

ManagerClient::Result ManagerClient::GetmDNSQueryService(HttpParamRequest* request) {
  std::string address;
  std::string notTold;
  int port = 0;
  int sslPort = 0;
  const bool enabled = GetEnablemDNSQueryService(address, port, sslPort, notTold, notTold);
  return request->GetResultStructByJsonString(std::string("[") + Word(enabled) + ",\"" + address +
                                              "\"," + std::to_string(port) + "," +
                                              std::to_string(sslPort) + "]");
}

ManagerClient::Result ManagerClient::SetmDNSQueryService(HttpParamRequest* request) {
  constexpr int kNeeded = 6;  // the last two are not looked at
  if (!HasParameters(request, kNeeded)) return WrongParameterCount(request);
  const ParamStack& stack = request->GetParamStack();
  Flag enable;
  std::string address;
  int port = 0;
  int sslPort = 0;
  const bool good = JsonCommand::ConvertBOOL(stack[0].get(), &enable.value) &&
                    JsonCommand::GetUTF8String(stack[1].get(), &address) &&
                    JsonCommand::ConvertInt(stack[2].get(), &port) &&
                    JsonCommand::ConvertInt(stack[3].get(), &sslPort);
  if (!good) return WrongParameterType(request);
  SetEnablemDNSQUeryService(static_cast<bool>(enable), StoredText(address).c_str(), port, sslPort,
                            "", "");
  AskHost(*request, HOST_STOP_MDNS_QUERY);
  if (enable) AskHost(*request, HOST_START_MDNS_QUERY);
  return EmptyText(request);
}

ManagerClient::Result ManagerClient::GetmDNSService(HttpParamRequest* request) {
  std::string alias;
  std::string tags;
  int accessMode = 0;
  const bool enabled = GetEnablemDNSService(alias, tags, accessMode);
  return request->GetResultStructByJsonString(std::string("[") + Word(enabled) + "," +
                                              std::to_string(accessMode) + ",\"" + alias + "\",\"" +
                                              tags + "\",0,0,0]");
}

ManagerClient::Result ManagerClient::SetmDNSService(HttpParamRequest* request) {
  constexpr int kNeeded = 9;
  if (!HasParameters(request, kNeeded)) return WrongParameterCount(request);
  const ParamStack& stack = request->GetParamStack();
  Flag enable;
  std::string alias;
  std::string tags;
  Flag flags[3];
  int accessMode = 0;
  Flag isProtected;
  std::string password;
  const bool good = JsonCommand::ConvertBOOL(stack[0].get(), &enable.value) &&
                    JsonCommand::GetUTF8String(stack[1].get(), &alias) &&
                    JsonCommand::GetUTF8String(stack[2].get(), &tags) &&
                    JsonCommand::ConvertBOOL(stack[3].get(), &flags[0].value) &&
                    JsonCommand::ConvertBOOL(stack[4].get(), &flags[1].value) &&
                    JsonCommand::ConvertBOOL(stack[5].get(), &flags[2].value) &&
                    JsonCommand::ConvertInt(stack[6].get(), &accessMode) &&
                    JsonCommand::ConvertBOOL(stack[7].get(), &isProtected.value) &&
                    JsonCommand::GetUTF8String(stack[8].get(), &password);
  if (!good) return WrongParameterType(request);
  const bool stored =
      enable && accessMode == kPasswordProtected && isProtected && !password.empty();
  std::optional<std::string> value = "";
  if (stored) value = DigestOf(password);
  if (!value) LogErr("The password cannot be hashed; the stored one is kept.");
  SetEnablemDNSService(static_cast<bool>(enable), StoredText(alias).c_str(),
                       StoredText(tags).c_str(), static_cast<bool>(flags[0]),
                       static_cast<bool>(flags[1]), static_cast<bool>(flags[2]), accessMode,
                       value ? value->c_str() : nullptr);
  AskHost(*request, HOST_STOP_MDNS);
  if (enable) AskHost(*request, HOST_START_MDNS);
  return EmptyText(request);
}
