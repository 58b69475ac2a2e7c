#include "environment/mdns_settings.h"

#include "environment/configuration.h"
#include "platform/text.h"

namespace {

constexpr const char* kAdvertise = "EnablemDNSService";
constexpr const char* kAlias = "Service_alias";
constexpr const char* kTags = "Service_tags";
constexpr const char* kAccessMode = "Service_am";
constexpr const char* kPassword = "Service_pwd";
constexpr const char* kAnswersPerSecond = "mDNSAnswersPerSecond";
constexpr const char* kBrowse = "EnablemDNSQueryService";
constexpr const char* kProxyAddress = "Proxy_IP";
constexpr const char* kProxyPort = "Proxy_Port";
constexpr const char* kProxySslPort = "Proxy_SSLPORT";
constexpr const char* kProxyCert = "Proxy_Cert";
constexpr const char* kProxyKey = "Proxy_Key";

std::string ReadText(const char* key) {
  return GetConfigurationfromInitFile(key, "", DEFAULT_SECTION);
}

int ReadInt(const char* key, int absent) {
  const std::string text = ReadText(key);
  return text.empty() ? absent : TextToInt(text.c_str());
}

void WriteText(const char* key, const char* value) {
  if (value != nullptr) SetConfigurationToInitFile(key, value, DEFAULT_SECTION);
}

void WriteInt(const char* key, int value) {
  SetConfigurationToInitFile(key, value, DEFAULT_SECTION);
}

}  // namespace

bool GetEnablemDNSService() { return GetConfigurationfromInitFile(kAdvertise, "FALSE"); }

bool GetEnablemDNSService(std::string& alias, std::string& tags, int& accessMode) {
  const bool enabled = GetEnablemDNSService();
  alias = enabled ? ReadText(kAlias) : "";
  tags = enabled ? ReadText(kTags) : "";
  accessMode = enabled ? ReadInt(kAccessMode, -1) : -1;
  return enabled;
}

std::string GetmDNSServicePwd() { return ReadText(kPassword); }

void SetEnablemDNSService(bool enable, const char* alias, const char* tags, bool, bool, bool,
                          int accessMode, const char* password) {
  WriteText(kAdvertise, BoolToText(enable));
  if (!enable) return;
  WriteText(kAlias, alias);
  WriteText(kTags, tags);
  WriteInt(kAccessMode, accessMode);
  WriteText(kPassword, password);
}

int GetmDNSAnswersPerSecond() {
  constexpr int kDefault = 1000;
  constexpr int kMost = 1'000'000;
  const int answers = ReadInt(kAnswersPerSecond, kDefault);
  return answers >= 1 && answers <= kMost ? answers : kDefault;
}

bool GetEnablemDNSQueryService() { return GetConfigurationfromInitFile(kBrowse, "FALSE"); }

bool GetEnablemDNSQueryService(std::string& proxyIP, int& port, int& sslPort, std::string& cert,
                               std::string& key) {
  const bool enabled = GetEnablemDNSQueryService();
  if (!enabled) return false;
  proxyIP = ReadText(kProxyAddress);
  port = ReadInt(kProxyPort, 0);
  sslPort = ReadInt(kProxySslPort, 0);
  cert = ReadText(kProxyCert);
  key = ReadText(kProxyKey);
  return true;
}

void SetEnablemDNSQUeryService(bool enable, const char* proxyIP, int port, int sslPort,
                               const char* cert, const char* key) {
  WriteText(kBrowse, BoolToText(enable));
  WriteText(kProxyAddress, proxyIP);
  WriteInt(kProxyPort, port);
  WriteInt(kProxySslPort, sslPort);
  WriteText(kProxyCert, cert);
  WriteText(kProxyKey, key);
}
