// The service's text log.
//
// Each line carries process and thread, a local time stamp, its level and the two work modes. The
// level filter is read from the configuration file for every line, so that editing one key changes
// a running service; full logging ("LogLevel" 14 at start-up or by SetLogLevel) spares that read.
// A caller formats its line and appends it to a text in memory; a background thread writes that
// text to the file. At most one write runs at a time: lines that arrive meanwhile are written
// together, in order, right after it. The module's unloading waits for the last of them.
//
// Any thread may log. No call throws, and errno is the caller's afterwards.
#pragma once

#include <cstdarg>
#include <string>
#include <string_view>

inline constexpr int LOG_LEVEL_NULL = 1;
inline constexpr int LOG_LEVEL_ERROR = 2;
inline constexpr int LOG_LEVEL_INFO = 4;
inline constexpr int LOG_LEVEL_DEBUG = 8;
inline constexpr int LOG_LEVEL_VERBOSE = 16;
/// Errors, infos and debug lines: the filter of full logging.
inline constexpr int LOG_LEVEL_FULL = 14;

/// Each returns nonzero when the line was queued, 0 when it was filtered out or could not be made.
/// An Error line ends with the errno of the moment of the call.
int LogErr(const char* format, ...) __attribute__((format(printf, 1, 2)));
int LogInfo(const char* format, ...) __attribute__((format(printf, 1, 2)));
int LogDebug(const char* format, ...) __attribute__((format(printf, 1, 2)));
/// A Debug line of the text as it is, with `length` raw bytes and a line feed behind it.
int LogDebug(const char* text, const unsigned char* data, unsigned int length);

int WriteLog(int level, const char* format, std::va_list arguments)
    __attribute__((format(printf, 2, 0)));
int WriteLog(int level, const char* text, const unsigned char* data, unsigned int length);

/// Whether a line of that level would be kept now. One look for several lines that are written one
/// right after the other.
bool IsLogged(int level);

/// Foreign bytes as a log line may hold them: what a page, a neighbour on the network or a file
/// sent goes through here. At most the first 2 KiB, cut where a UTF-8 character begins, each
/// control character (of ASCII and of U+0080 to U+009F) shown as "?", and behind what was cut how
/// long the whole was. Never throws: "" when there is no memory.
std::string ForLog(std::string_view foreign) noexcept;

/// "NULL", "Error", "Info", "Debug" or "Verbose" by the level's lowest bit of those, else "".
const char* GetLogTypeStr(int level);

/// The filter in force: 14 under full logging, else GetLogLevelInLocal.
int GetLogLevel();
/// The configured filter, read from the file: key "LogLevel", 1 when it is missing.
int GetLogLevelInLocal();
bool GetFullLogging();
void SetFullLogging(bool full);

/// Takes finished lines in place of the log file: the level, and the text without head and line
/// feed; that of an Error ends with the errno of its moment unless that was 0. It must neither
/// throw nor log. Any thread calls, several at once.
using LogReceiver = void (*)(int level, std::string_view text);
/// Gives every line of this copy of the logger to `receiver`: what the filter lets through, and
/// Error lines whatever it says. The log file is never opened then. For a program that shares the
/// work folder with the log's owner; to be called once, before InitProgramInfo.
void SetLogReceiver(LogReceiver receiver);
bool HasLogReceiver();

/// Makes the platform layer's Log write here, and its LogFailure, whose lines no filter leaves out.
void ConnectPlatformLog();

/// Stores the level as "LogLevel" and switches full logging on for 14, off for any other. Returns
/// whether full logging is now on.
bool SetLogLevel(int level);
