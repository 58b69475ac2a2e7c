// The process-wide names and places: where the service lives and what it is called. This file only
// keeps them; InitProgramInfo (program_information.h) fills them once, before the first command.
//
// All getters return copies. They may be called from any thread.
#pragma once

#include <string>
#include <string_view>

/// The names directly below the work folder, folders without a "/". Every room asks here.
namespace work_folder {
inline constexpr const char* kSettings = "QVConfiguration.ini";
inline constexpr const char* kUserSettings = "user_config.ini";
inline constexpr const char* kServiceSettings = "service.ini";
inline constexpr const char* kRunRecord = "service.run";
inline constexpr const char* kLog = "log";
inline constexpr const char* kCache = "cache";
inline constexpr const char* kUpload = "upload";
inline constexpr const char* kCert = "cert";
inline constexpr const char* kDump = "dump";
inline constexpr const char* kNginx = "nginx";
inline constexpr const char* kSecurityException = "qv.exception";
inline constexpr const char* kPortLock = "port.lock";
inline constexpr const char* kConsoleToken = "console.token";
inline constexpr const char* kUpdateKeys = "update_keys";  ///< the operator's: who signs packages
inline constexpr const char* kUpdateRecord = "update.state";  ///< what became of the last update
inline constexpr const char* kUpdate = ".qv_update";          ///< there only during an update
}  // namespace work_folder

/// Whether a name relative to the work folder is, or lies in, what belongs to the service's user or
/// to the service itself, so that no package may install it. Hidden and empty names count; cases do
/// not. "service.ini" does not: a package brings its own.
bool IsServiceState(std::string_view name);

/// Everything that is known once the work folder is.
struct ProgramPaths {
  std::string work, log, cache, upload, cert, dump;
  std::string secondLog;  // where the scanning process logs
  std::string securityException;
  std::string config, userConfig, serviceConfig;
  std::string certFile, privateKeyFile, firefoxCert;
  std::string logFile, scanLogFile;
};

/// The paths below a work folder, which ends in "/". The log files are chosen later.
ProgramPaths PathsBelow(const std::string& work);
/// Stores the whole set, with C strings of those names that are needed most.
void SetProgramPaths(const ProgramPaths& paths);

/// The folders end in "/".
std::string GetWorkPath();
std::string GetLogPath();
std::string GetCachePath();
std::string GetUploadPath();
std::string GetCertPath();
std::string GetDumpPath();
/// The folder of the web front end, without a trailing "/".
std::string GetNginxWorkPath();

std::string GetSecurityExceptionFile();
std::string GetInitFile();
std::string GetServiceConfigName();
std::string GetUserConfigFile();
std::string GetSSLCertFile();
std::string GetSSLPriKeyFile();
std::string GetFirefoxCert();
/// The log file of this process: the scanning process has its own.
std::string GetLogFile();

/// The configuration file and the log file as C strings of at most 1,023 characters, "" before
/// start-up, for what every setting and every log line needs. The pointers stay valid and their
/// texts are written once, before the first command.
const char* GetInitFileCString();
const char* GetLogFileCString();

/// The setting that is "1" while an update is in progress, and that of the installed version.
inline constexpr const char* UPDATE_MARK_KEY = "IfUpdate";
inline constexpr const char* INSTALLED_VERSION_KEY = "QVVersion";
/// Where a service package is unpacked, in the cache folder.
inline constexpr const char* PACKAGE_FOLDER = "MarviqueService";

/// File names without a folder.
std::string GetConfigName();
std::string GetUserConfigName();
std::string GetPortLockName();

/// The running executable; the host may replace it by its own value.
std::string GetExeFile();
void SetExeFile(const char* file);
/// The module's file as the host told it, "" until then.
std::string GetModulePath();
void SetModulePath(const char* file);
