// The error codes of the commands and the texts that go with them. Pages compare both, so they are
// kept as they are, spelling included.
#pragma once

enum ErrorCode : int {
  QTP_SUCCESS = 0,
  QTP_FUNCTION_NOT_FOUND = -2200,
  QTP_INVALID_PARAMETER_TYPE = -2201,
  QTP_INVALID_PARAMETER_COUNT = -2202,
  QTP_INVALID_BROWSER = -2205,
  QTP_UPDATING = -2373,
  QTP_UNZIP_FAILED = -2405,
  QTP_COPY_FAILED = -2406,
  QTP_CREATE_PROGRESS_FAILED = -2407,
  QTP_NO_USER = -2408,
};

inline constexpr const char* QTP_FunNotFoundStr = "Function not found";
inline constexpr const char* QTP_InvalidParameterTypeStr = "Invalid parameter type.";
inline constexpr const char* QTP_InvalidParameterCountStr = "Invalid parameter count.";
inline constexpr const char* QTP_InvalidBrowserStr =
    "Unsupported browser client. Please try Halvorn Suite plugin edition for chrome in Chrome!";
inline constexpr const char* QTP_ModuleNotFoundStr = "Module not found";
inline constexpr const char* QTP_SuccessStr = "";
inline constexpr const char* QTP_UpdattingStr = "is updating, please wait.";
inline constexpr const char* QTP_CheckSignedFailedStr = "The signature failed to be verified.";
inline constexpr const char* QTP_ServiceEXENotFoundStr =
    "The file \"MarviqueService.exe\" is missing in the update package.";
inline constexpr const char* QTP_SocketCoreDllNotFoundStr =
    "The file \"SocketCore.dll\" is missing in the update package.";
inline constexpr const char* QTP_ImageCoreDllNotFoundStr =
    "The file \"ImageCore.dll\" is missing in the update package.";
inline constexpr const char* QTP_QVUpdateEXENotFoundStr =
    "The file \"QVUpdate.exe\" is missing in the update package.";
inline constexpr const char* QTP_UnzipFailedStr = "Failed to unzip file";
inline constexpr const char* QTP_CopyFailedStr = "Failed to copy dir";
inline constexpr const char* QTP_CreateProgressFailedStr = "Create update progress failed.";
inline constexpr const char* QTP_NoUserStr = "User SID is empty.";
