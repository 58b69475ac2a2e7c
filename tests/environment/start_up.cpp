// Starts as the service does and tells what it found, a line each: start-up fills what it knows
// once a process, so each of its cases needs a process of its own.
#include <cstdio>

#include "environment/configuration.h"
#include "environment/logging.h"
#include "environment/paths.h"
#include "environment/program_information.h"

int main() {
  const auto tell = [](const char* what, const std::string& value) {
    std::printf("%s=%s\n", what, value.c_str());
  };
  tell("before", GetWorkPath() + GetHostName() + BoolToText(GetEnableCORSAll()));
  InitProgramInfo();
  tell("work", GetWorkPath());
  tell("settings", GetInitFile());
  tell("executable", GetExeFile());
  tell("host", GetHostName());
  tell("listen", GetListenType());
  tell("name", GetServiceName() + " " + GetServiceVersion());
  tell("user mode", std::to_string(GetServiceRunMode()) + BoolToText(SingleUser()));
  tell("debug", std::to_string(IsDebugMode()) + BoolToText(GetFullLogging()));
  std::string access;
  for (const bool each :
       {GetEnableScannerAccess(), GetEnableFileAccess(), GetEnableWebcamAccess(),
        GetEnableScannerAccessAuth(), GetEnableFileAccessAuth(), GetEnableWebcamAccessAuth(),
        GetEnableCORSAll(), GetEnableMultipleUserEnhancedMode()}) {
    access += each ? '1' : '0';
  }
  tell("access", access);
  tell("log", GetLogFile());

  SetExeFile("/elsewhere/host");
  SetEnableWebcamAccess(!GetEnableWebcamAccess());
  InitProgramInfo();
  tell("second start", GetExeFile() + (GetEnableWebcamAccess() == (access[2] == '1') ? "" : "!"));
  const std::string guid = GetServiceGUID();
  tell("guid", guid == GetServiceGUID() ? guid : "");
}
