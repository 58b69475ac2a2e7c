#include "environment/paths.h"

#include <mutex>

#include "platform/diagnostics.h"
#include "platform/text.h"

namespace {

// Start-up fills this once; the host may still replace single values afterwards, hence the mutex.
struct Places {
  std::mutex mutex;
  ProgramPaths paths;
  std::string exeFile;
  std::string modulePath;
};

Places& ThePlaces() {
  static Places places;
  return places;
}

constinit char g_initFile[1024] = "";
constinit char g_logFile[1024] = "";
constinit char g_scanLogFile[1024] = "";

std::string CopyOf(const std::string& value) {
  const std::lock_guard lock(ThePlaces().mutex);
  return value;
}

void Store(std::string& target, const char* value) {
  const std::lock_guard lock(ThePlaces().mutex);
  target = value;
}

const ProgramPaths& Paths() { return ThePlaces().paths; }

}  // namespace

void SetProgramPaths(const ProgramPaths& paths) {
  const std::lock_guard lock(ThePlaces().mutex);
  ThePlaces().paths = paths;
  lstrcpyn(g_initFile, paths.config.c_str(), sizeof g_initFile);
  lstrcpyn(g_logFile, paths.logFile.c_str(), sizeof g_logFile);
  lstrcpyn(g_scanLogFile, paths.scanLogFile.c_str(), sizeof g_scanLogFile);
}

std::string GetWorkPath() { return CopyOf(Paths().work); }
std::string GetLogPath() { return CopyOf(Paths().log); }
std::string GetCachePath() { return CopyOf(Paths().cache); }
std::string GetUploadPath() { return CopyOf(Paths().upload); }
std::string GetCertPath() { return CopyOf(Paths().cert); }
std::string GetDumpPath() { return CopyOf(Paths().dump); }
std::string GetNginxWorkPath() { return GetWorkPath() + "nginx"; }
std::string GetSecurityExceptionFile() { return CopyOf(Paths().securityException); }
std::string GetInitFile() { return CopyOf(Paths().config); }
std::string GetServiceConfigName() { return CopyOf(Paths().serviceConfig); }
std::string GetUserConfigFile() { return CopyOf(Paths().userConfig); }
std::string GetSSLCertFile() { return CopyOf(Paths().certFile); }
std::string GetSSLPriKeyFile() { return CopyOf(Paths().privateKeyFile); }
std::string GetFirefoxCert() { return CopyOf(Paths().firefoxCert); }

std::string GetLogFile() { return GetLogFileCString(); }

const char* GetInitFileCString() { return g_initFile; }

const char* GetLogFileCString() { return GetIfScanningProcess() ? g_scanLogFile : g_logFile; }

std::string GetConfigName() { return "QVConfiguration.ini"; }
std::string GetUserConfigName() { return "user_config.ini"; }
std::string GetPortLockName() { return "port.lock"; }

std::string GetExeFile() { return CopyOf(ThePlaces().exeFile); }
void SetExeFile(const char* file) { Store(ThePlaces().exeFile, file); }
std::string GetModulePath() { return CopyOf(ThePlaces().modulePath); }
void SetModulePath(const char* file) { Store(ThePlaces().modulePath, file); }
