#include "environment/paths.h"

#include <algorithm>
#include <array>
#include <mutex>

#include "os/text.h"
#include "platform/diagnostics.h"
#include "platform/text.h"

namespace {

// Start-up fills this once; the host may still replace single values afterwards, hence the mutex.
struct KnownPaths {
  std::mutex mutex;
  ProgramPaths paths;
  std::string exeFile;
  std::string modulePath;
};

KnownPaths& TheKnownPaths() {
  static KnownPaths known;
  return known;
}

constinit char g_initFile[1024] = "";
constinit char g_logFile[1024] = "";
constinit char g_scanLogFile[1024] = "";

std::string LockedCopy(const std::string& value) {
  const std::lock_guard lock(TheKnownPaths().mutex);
  return value;
}

void LockedSet(std::string& target, const char* value) {
  const std::lock_guard lock(TheKnownPaths().mutex);
  target = value;
}

const ProgramPaths& Paths() { return TheKnownPaths().paths; }

}  // namespace

bool IsServiceState(std::string_view name) {
  // File systems that do not tell cases apart would find the same file.
  static constexpr std::array kStateNames = {
      work_folder::kSettings,  work_folder::kUserSettings,
      work_folder::kRunRecord, work_folder::kLog,
      work_folder::kCache,     work_folder::kUpload,
      work_folder::kCert,      work_folder::kDump,
      work_folder::kNginx,     work_folder::kSecurityException,
      work_folder::kPortLock};
  if (name.empty() || name.front() == '.') return true;
  const std::string first = ascii::Lower(name.substr(0, name.find('/')));
  return std::any_of(kStateNames.begin(), kStateNames.end(),
                     [&first](const char* state) { return first == ascii::Lower(state); });
}

ProgramPaths PathsBelow(const std::string& work) {
  ProgramPaths paths;
  paths.work = work;
  paths.log = work + work_folder::kLog + "/";
  paths.secondLog = paths.log;
  paths.cache = work + work_folder::kCache + "/";
  paths.upload = work + work_folder::kUpload + "/";
  paths.cert = work + work_folder::kCert + "/";
  paths.dump = work + work_folder::kDump + "/";
  paths.securityException = work + work_folder::kSecurityException;
  paths.config = work + work_folder::kSettings;
  paths.userConfig = work + work_folder::kUserSettings;
  paths.serviceConfig = work + work_folder::kServiceSettings;
  paths.certFile = paths.cert + "server.pem";
  paths.privateKeyFile = paths.cert + "server_key.pem";
  paths.firefoxCert = paths.cert + "cert.e";
  return paths;
}

void SetProgramPaths(const ProgramPaths& paths) {
  const std::lock_guard lock(TheKnownPaths().mutex);
  TheKnownPaths().paths = paths;
  lstrcpyn(g_initFile, paths.config.c_str(), sizeof g_initFile);
  lstrcpyn(g_logFile, paths.logFile.c_str(), sizeof g_logFile);
  lstrcpyn(g_scanLogFile, paths.scanLogFile.c_str(), sizeof g_scanLogFile);
}

std::string GetWorkPath() { return LockedCopy(Paths().work); }
std::string GetLogPath() { return LockedCopy(Paths().log); }
std::string GetCachePath() { return LockedCopy(Paths().cache); }
std::string GetUploadPath() { return LockedCopy(Paths().upload); }
std::string GetCertPath() { return LockedCopy(Paths().cert); }
std::string GetDumpPath() { return LockedCopy(Paths().dump); }
std::string GetNginxWorkPath() { return GetWorkPath() + work_folder::kNginx; }
std::string GetSecurityExceptionFile() { return LockedCopy(Paths().securityException); }
std::string GetInitFile() { return LockedCopy(Paths().config); }
std::string GetServiceConfigName() { return LockedCopy(Paths().serviceConfig); }
std::string GetUserConfigFile() { return LockedCopy(Paths().userConfig); }
std::string GetSSLCertFile() { return LockedCopy(Paths().certFile); }
std::string GetSSLPriKeyFile() { return LockedCopy(Paths().privateKeyFile); }
std::string GetFirefoxCert() { return LockedCopy(Paths().firefoxCert); }

std::string GetLogFile() { return GetLogFileCString(); }

const char* GetInitFileCString() { return g_initFile; }

const char* GetLogFileCString() { return GetIfScanningProcess() ? g_scanLogFile : g_logFile; }

std::string GetConfigName() { return work_folder::kSettings; }
std::string GetUserConfigName() { return work_folder::kUserSettings; }
std::string GetPortLockName() { return work_folder::kPortLock; }

std::string GetExeFile() { return LockedCopy(TheKnownPaths().exeFile); }
void SetExeFile(const char* file) { LockedSet(TheKnownPaths().exeFile, file); }
std::string GetModulePath() { return LockedCopy(TheKnownPaths().modulePath); }
void SetModulePath(const char* file) { LockedSet(TheKnownPaths().modulePath, file); }
