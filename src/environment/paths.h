// The process-wide names and places: where the service lives and what it is called. This file only
// keeps them; InitProgramInfo (program_information.h) fills them once, before the first command.
//
// All getters return copies. They may be called from any thread.
#pragma once

#include <string>

/// Everything that is known once the work folder is.
struct ProgramPaths {
  std::string work, log, cache, upload, cert, dump;
  std::string secondLog;  // where the scanning process logs
  std::string securityException;
  std::string config, userConfig, serviceConfig;
  std::string certFile, privateKeyFile, firefoxCert;
  std::string logFile, scanLogFile;
};

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
