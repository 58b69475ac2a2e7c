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

/// Keys and texts that are stored together; a null text is left out.
class Settings {
 public:
  Settings& Add(const char* key, const char* text) {
    if (text != nullptr) texts_.emplace_back(key, text);
    return *this;
  }
  Settings& Add(const char* key, int value) { return Add(key, std::to_string(value).c_str()); }
  bool Store() const {
    std::vector<ProfileEntry> entries;
    for (const auto& [key, text] : texts_) entries.push_back({key, text});
    return SetConfigurationToInitFile(entries, DEFAULT_SECTION);
  }

 private:
  ProfileTexts texts_;
};

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

bool SetEnablemDNSService(bool enable, const char* alias, const char* tags, bool, bool, bool,
                          int accessMode, const char* password) {
  Settings settings;
  settings.Add(kAdvertise, BoolToText(enable));
  if (enable) {
    settings.Add(kAlias, alias).Add(kTags, tags).Add(kAccessMode, accessMode);
    settings.Add(kPassword, password);
  }
  return settings.Store();
}

int GetmDNSAnswersPerSecond() {
  constexpr int kDefault = 1000;
  constexpr int kMost = 10'000'000;
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

bool SetEnablemDNSQUeryService(bool enable, const char* proxyIP, int port, int sslPort,
                               const char* cert, const char* key) {
  Settings settings;
  settings.Add(kBrowse, BoolToText(enable)).Add(kProxyAddress, proxyIP).Add(kProxyPort, port);
  settings.Add(kProxySslPort, sslPort).Add(kProxyCert, cert).Add(kProxyKey, key);
  return settings.Store();
}
