#include "environment/paths.h"

#include <algorithm>
#include <array>

#include "os/mutex.h"
#include "os/text.h"
#include "platform/diagnostics.h"
#include "platform/text.h"

namespace {

// Start-up fills this once; the host may still replace single values afterwards, hence the mutex.
struct KnownPaths {
  Mutex mutex;
  ProgramPaths paths QV_GUARDED_BY(mutex);
  std::string exeFile QV_GUARDED_BY(mutex);
  std::string modulePath QV_GUARDED_BY(mutex);
};

KnownPaths& TheKnownPaths() {
  static KnownPaths known;
  return known;
}

constinit char g_initFile[1024] = "";
constinit char g_logFile[1024] = "";
constinit char g_scanLogFile[1024] = "";

std::string PathOf(std::string ProgramPaths::*member) {
  KnownPaths& known = TheKnownPaths();
  const MutexLock lock(known.mutex);
  return known.paths.*member;
}

/// The files that the host tells.
std::string FileTold(std::string KnownPaths::*file) {
  KnownPaths& known = TheKnownPaths();
  const MutexLock lock(known.mutex);
  return known.*file;
}

void TellFile(std::string KnownPaths::*file, const char* path) {
  KnownPaths& known = TheKnownPaths();
  const MutexLock lock(known.mutex);
  known.*file = path;
}

}  // namespace

bool IsServiceState(std::string_view name) {
  // File systems that do not tell cases apart would find the same file.
  static constexpr std::array kStateNames = {
      work_folder::kSettings,   work_folder::kUserSettings,
      work_folder::kRunRecord,  work_folder::kLog,
      work_folder::kCache,      work_folder::kUpload,
      work_folder::kCert,       work_folder::kDump,
      work_folder::kNginx,      work_folder::kSecurityException,
      work_folder::kPortLock,   work_folder::kConsoleToken,
      work_folder::kUpdateKeys, work_folder::kUpdateRecord};
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
  KnownPaths& known = TheKnownPaths();
  const MutexLock lock(known.mutex);
  known.paths = paths;
  lstrcpyn(g_initFile, paths.config.c_str(), sizeof g_initFile);
  lstrcpyn(g_logFile, paths.logFile.c_str(), sizeof g_logFile);
  lstrcpyn(g_scanLogFile, paths.scanLogFile.c_str(), sizeof g_scanLogFile);
}

std::string GetWorkPath() { return PathOf(&ProgramPaths::work); }
std::string GetLogPath() { return PathOf(&ProgramPaths::log); }
std::string GetCachePath() { return PathOf(&ProgramPaths::cache); }
std::string GetUploadPath() { return PathOf(&ProgramPaths::upload); }
std::string GetCertPath() { return PathOf(&ProgramPaths::cert); }
std::string GetDumpPath() { return PathOf(&ProgramPaths::dump); }
std::string GetNginxWorkPath() { return GetWorkPath() + work_folder::kNginx; }
std::string GetSecurityExceptionFile() { return PathOf(&ProgramPaths::securityException); }
std::string GetInitFile() { return PathOf(&ProgramPaths::config); }
std::string GetServiceConfigName() { return PathOf(&ProgramPaths::serviceConfig); }
std::string GetUserConfigFile() { return PathOf(&ProgramPaths::userConfig); }
std::string GetSSLCertFile() { return PathOf(&ProgramPaths::certFile); }
std::string GetSSLPriKeyFile() { return PathOf(&ProgramPaths::privateKeyFile); }
std::string GetFirefoxCert() { return PathOf(&ProgramPaths::firefoxCert); }

std::string GetLogFile() { return GetLogFileCString(); }

const char* GetInitFileCString() { return g_initFile; }

const char* GetLogFileCString() { return GetIfScanningProcess() ? g_scanLogFile : g_logFile; }

std::string GetConfigName() { return work_folder::kSettings; }
std::string GetUserConfigName() { return work_folder::kUserSettings; }
std::string GetPortLockName() { return work_folder::kPortLock; }

std::string GetExeFile() { return FileTold(&KnownPaths::exeFile); }
void SetExeFile(const char* file) { TellFile(&KnownPaths::exeFile, file); }
std::string GetModulePath() { return FileTold(&KnownPaths::modulePath); }
void SetModulePath(const char* file) { TellFile(&KnownPaths::modulePath, file); }
