// Program information: where the service lives, what it is called and in which state it is.
#pragma once

#include <string>

/// Fills everything that paths.h, access_switches.h and this page tell, makes the cache, log and
/// upload folders and chooses the log file. Only the first call does anything.
void InitProgramInfo();

/// The host name of the service, "127.0.0.1" when none is configured. Setting ignores null.
std::string GetHostName();
void SetHostName(const char* name);
std::string GetListenType();
std::string GetServiceName();
/// Stores the name in the service file, for the next start.
void SaveServiceName(const char* name);
/// The service's identifier: 32 hexadecimal digits, fixed for good by the first call ever.
std::string GetServiceGUID();

/// Settings of "service.ini", read on every call.
int GetServiceRunMode();  ///< 1 for "user", 0 for "system"
bool SingleUser();
std::string GetServiceVersion();
std::string GetServiceVersion(const char* serviceConfigFile);

/// Nonzero when Debug lines are logged: 1 under full logging, else the Debug bit of the level.
int IsDebugMode();

/// Clears the cache folder as RemoveDir does, and returns its result.
int CleanCacheFolder();
/// Do nothing: the service needs no preparation on this system.
void InitService();
void CheckAndInitUserMode();

/// Flags for the host and for long work to poll. Nothing clears stopped and restarted.
bool GetIfServiceStopped();
void SetIfServiceStopped(bool stopped);
bool GetIfServicePaused();
void SetIfServicePaused(bool paused);
bool GetIfServiceRestarted();
/// Sets both the restarted and the stopped flag.
void RestartService();
