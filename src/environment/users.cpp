#include "environment/users.h"

#include <pwd.h>
#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>
#include <vector>

#include "environment/configuration.h"
#include "environment/logging.h"
#include "os/process.h"
#include "os/system.h"
#include "os/text.h"
#include "util/cutil.h"

std::string GetCurrentUserName(int) { return os::UserName(); }

int name_to_uid(const char* name, uid_t* uid, gid_t* gid) {
  if (name == nullptr || uid == nullptr || gid == nullptr) return -1;
  const long size = ::sysconf(_SC_GETPW_R_SIZE_MAX);
  std::vector<char> buffer(size > 0 ? static_cast<std::size_t>(size) : 16 * 1024);
  passwd entry;
  passwd* found = nullptr;
  const int error = ::getpwnam_r(name, &entry, buffer.data(), buffer.size(), &found);
  if (error != 0 || found == nullptr) {
    if (error != 0) errno = error;
    LogErr("name_to_uid failed.");
    return -1;
  }
  *uid = found->pw_uid;
  *gid = found->pw_gid;
  return 0;
}

int CreateProcessAsCurrentLogonUser(const char* application, const char* commandLine, void*, void*,
                                    int, unsigned int, const char* extra, const char*) {
  const auto text = [](const char* given) { return std::string(given != nullptr ? given : ""); };
  LogDebug("CreateProcessAsCurrentLogonUser posix_spawnp before\n");
  pid_t child = 0;
  const int ret = os::StartProgram({text(application), "scan", text(commandLine), "1", "1",
                                    GetFullLogging() ? "1" : "0", text(extra)},
                                   {}, &child);
  LogDebug("CreateProcessAsCurrentLogonUser posix_spawnp ret=%d, pid=%d err=%d\n", ret,
           static_cast<int>(child), errno);
  return ret == 0 ? 1 : 0;
}

std::string DealWithMacHomeDir(const std::string& text) {
  std::string expanded = text;
  if (expanded.find("~/") == std::string::npos) return expanded;
  const std::string home = os::HomeFolder();
  CUtil::find_and_replace(expanded, "\"~/", "\"" + home + "/");
  CUtil::find_and_replace(expanded, ",~/", "," + home + "/");
  return expanded;
}

std::string GetFullDomain(const std::string& address) {
  constexpr std::size_t kShortestAddress = 7;
  if (address.empty() || ::strcasecmp(address.c_str(), "null") == 0) return address;
  const std::string lower = ascii::Lower(address);
  if (lower.size() < kShortestAddress) return "";
  if (lower.find("http://") == std::string::npos && lower.find("https://") == std::string::npos) {
    return "";
  }
  const std::size_t scheme = lower.find("://");
  const std::size_t host = scheme == std::string::npos ? 0 : scheme + 3;
  const std::string_view origin = std::string_view(address).substr(0, lower.find('/', host));
  // Only the host has an ASCII form of its own; scheme and port are ASCII or are no origin.
  const std::size_t port = std::min(origin.find(':', host), origin.size());
  const std::string name(origin.substr(host, port - host));
  char ascii[1024];
  if (!CUtil::IdnToAscii(name.c_str(), ascii)) return "";
  std::string result =
      std::string(origin.substr(0, host)) + ascii + std::string(origin.substr(port));
  const bool isPlain =
      std::all_of(result.begin(), result.end(), [](unsigned char c) { return c > 0 && c < 0x80; });
  return isPlain && name.find('\0') == std::string::npos ? result : "";
}

void GetCertName(const std::string& host, std::string& certFile, std::string& keyFile) {
  certFile = GetConfigurationfromInitFile("cert_name", "", host.c_str());
  keyFile = GetConfigurationfromInitFile("key_name", "", host.c_str());
  if (!certFile.empty() || !keyFile.empty()) return;
  const std::string loopback =
      GetConfigurationfromInitFile("LoopbackHost", "127.0.0.1", DEFAULT_SECTION);
  const std::string domain = GetConfigurationfromInitFile("ProductDomain", "", DEFAULT_SECTION);
  const bool isLoopback = !loopback.empty() && ::strcasecmp(host.c_str(), loopback.c_str()) == 0;
  const bool isProduct = !domain.empty() && host.find(domain) != std::string::npos;
  if (!isLoopback && !isProduct) return;
  certFile = "server.pem.lqvc";
  keyFile = "server_key.pem.lqvc";
}

std::string GetScanModuleName(int index) {
  const char* def = index == 5 ? "QVSCN2x64.exe" : "QVSCN2.exe";
  const std::string key = "scan" + std::to_string(index);
  return GetConfigurationfromInitFile(key.c_str(), def, DEFAULT_SECTION);
}

void GetUserInfo(int, std::string& name, int& session, int& process) {
  name.clear();
  session = 0;
  process = 0;
}

std::string GetUserSID(int) { return ""; }
int GetConnectionProcessID(int) { return 0; }
int GetProcessSessionID(int) { return 0; }
int GetClientConnectionSessionID(int, int*) { return 0; }
int GetCurrentUserToken(void**, int) { return -1; }
