#include "environment/program_information.h"

#include <strings.h>

#include <atomic>

#include "environment/configuration.h"
#include "environment/logging.h"
#include "environment/module_identity.h"
#include "environment/paths.h"
#include "os/mutex.h"
#include "platform/diagnostics.h"
#include "platform/file.h"
#include "util/cutil.h"

namespace {

struct Information {
  Mutex mutex;
  std::string hostName QV_GUARDED_BY(mutex);
  std::string listenType QV_GUARDED_BY(mutex);
  std::string serviceName QV_GUARDED_BY(mutex);
  /// Stored by the first GetServiceGUID of a new installation.
  std::string freshGuid QV_GUARDED_BY(mutex);
  bool guidIsUnstorable QV_GUARDED_BY(mutex) = false;
};

Information& TheInformation() {
  static Information information;
  return information;
}

constinit std::atomic<bool> g_stopped{false};
constinit std::atomic<bool> g_paused{false};
constinit std::atomic<bool> g_restarted{false};

std::string TextOf(std::string Information::*member) {
  Information& information = TheInformation();
  const MutexLock lock(information.mutex);
  return information.*member;
}

std::string FromServiceFile(const char* key, const char* def, const std::string& file) {
  return GetConfigurationfromInitFile(key, def, DEFAULT_SECTION, file.c_str());
}

void LogVersionLine() {
  const WorkMode mode = GetProcessMode();
  LogDebug(
      "Version info:%s, %s---%s, \r\n\t\tis64:%d, isScanning=%d, workMode=%d, isHVNActiveX=%d\r\n",
      MODULE_DESCRIPTION, MODULE_NOTICE, MODULE_VERSION, 1, GetIfScanningProcess() ? 1 : 0,
      static_cast<int>(mode), mode == WorkMode::InPageControl ? 1 : 0);
}

}  // namespace

void InitProgramInfo() {
  static constinit Mutex oneAtATime;
  const MutexLock only(oneAtATime);
  if (!GetWorkPath().empty()) return;

  char executable[1025];
  CUtil::GetModulePath(executable);
  const std::string exeFile = executable;
  ProgramPaths paths = PathsBelow(exeFile.substr(0, exeFile.rfind('/') + 1));
  SetExeFile(executable);
  for (const std::string& folder : {paths.cache, paths.log, paths.upload}) {
    ::CreateDirectory(folder.c_str(), nullptr);
  }
  if (!HasLogReceiver()) {
    paths.logFile = MakeSureFileCanBeWritten(paths.log.c_str(), "qvs.log");
    paths.scanLogFile = MakeSureFileCanBeWritten(paths.secondLog.c_str(), "qvs.log");
  }
  SetProgramPaths(paths);
  ConnectPlatformLog();
  SetFullLogging(GetLogLevelInLocal() == LOG_LEVEL_FULL);

  const std::string host = GetConfigurationfromInitFile("Server", nullptr, DEFAULT_SECTION);
  char guid[1024];
  CUtil::CreateUUID(guid);
  ReadAccessSwitches();
  const std::string listenType = GetConfigurationfromInitFile("ListenType", "", DEFAULT_SECTION);
  const std::string name = FromServiceFile("ServiceName", SERVICE_NAME, paths.serviceConfig);
  {
    Information& information = TheInformation();
    const MutexLock lock(information.mutex);
    information.hostName = host.empty() ? "127.0.0.1" : host;
    information.freshGuid = guid;
    information.listenType = listenType;
    information.serviceName = name;
  }
  LogVersionLine();
}

std::string GetHostName() { return TextOf(&Information::hostName); }

void SetHostName(const char* name) {
  if (name == nullptr) return;
  Information& information = TheInformation();
  const MutexLock lock(information.mutex);
  information.hostName = name;
}

std::string GetListenType() { return TextOf(&Information::listenType); }

std::string GetServiceName() { return TextOf(&Information::serviceName); }

void SaveServiceName(const char* name) {
  SetConfigurationToInitFile("ServiceName", name, DEFAULT_SECTION, GetServiceConfigName().c_str());
}

std::string GetServiceGUID() {
  std::string guid = GetConfigurationfromInitFile("ServiceGuid", "", DEFAULT_SECTION);
  if (!guid.empty()) return guid;
  Information& information = TheInformation();
  {
    // Discovery asks every few seconds: where it cannot be stored, that is tried and told once.
    const MutexLock lock(information.mutex);
    if (information.guidIsUnstorable) return information.freshGuid;
  }
  const bool isStored = ChangeConfiguration([&guid](const ProfileReader& stored) -> ProfileTexts {
    guid = stored("ServiceGuid");  // another process may have been first
    if (!guid.empty()) return {};
    guid = TextOf(&Information::freshGuid);
    return {{"ServiceGuid", guid}};
  });
  const MutexLock lock(information.mutex);
  information.guidIsUnstorable = !isStored;
  return guid.empty() ? information.freshGuid : guid;
}

int GetServiceRunMode() {
  const std::string mode = FromServiceFile("ServiceMode", "system", GetServiceConfigName());
  return ::strcasecmp(mode.c_str(), "user") == 0 ? 1 : 0;
}

bool SingleUser() {
  return TextToBool(FromServiceFile("SingleUser", "FALSE", GetServiceConfigName()));
}

std::string GetServiceVersion() { return GetServiceVersion(GetServiceConfigName().c_str()); }

std::string GetServiceVersion(const char* serviceConfigFile) {
  return FromServiceFile("ServiceVersion", "17.3", serviceConfigFile);
}

int IsDebugMode() { return GetFullLogging() ? 1 : GetLogLevelInLocal() & LOG_LEVEL_DEBUG; }

int CleanCacheFolder() { return RemoveDir(GetCachePath().c_str()); }

void InitService() {}
void CheckAndInitUserMode() {}

bool GetIfServiceStopped() { return g_stopped; }
void SetIfServiceStopped(bool stopped) { g_stopped = stopped; }
bool GetIfServicePaused() { return g_paused; }
void SetIfServicePaused(bool paused) { g_paused = paused; }
bool GetIfServiceRestarted() { return g_restarted; }

void RestartService() {
  g_restarted = true;
  g_stopped = true;
}
