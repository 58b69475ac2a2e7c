// The configuration store: typed reads and writes of the service's INI files, the lock that orders
// them, and the settings that other rooms ask for by name.
//
// Every read looks at the file and every write rewrites it, so that settings take effect without a
// restart and the processes of the service share one truth. Values longer than
// 2,046 characters are cut on reading. A missing or unreadable file gives the defaults. Any thread
// may call.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "platform/profile.h"
#include "util/reader_writer_lock.h"

/// The section of all settings that name no other.
inline constexpr const char* DEFAULT_SECTION = "QV";

/// The stored text, or the default when the key is missing or empty. A null section is "QV", an
/// empty one is the section with the empty name; a null default is "". Without a file: the main
/// configuration file. The count of arguments alone selects the form.
std::string GetConfigurationfromInitFile(const char* key, const char* def, const char* section,
                                         const char* file);
std::string GetConfigurationfromInitFile(const char* key, const char* def, const char* section);
/// A boolean of the main configuration file, section "QV": true only for "TRUE" in any case. The
/// default is a text, too.
bool GetConfigurationfromInitFile(const char* key, const char* def);

/// Store a value, or several values of one section in one step. Return whether they were stored;
/// otherwise the old file stays, errno tells why, and so do a Debug line and an Error line, which
/// is in the log whatever its filter says. They wait for other writers, for some seconds at most,
/// with no lock of this process held.
bool SetConfigurationToInitFile(const char* key, const char* value, const char* section,
                                const char* file);
bool SetConfigurationToInitFile(const char* key, const char* value, const char* section);
bool SetConfigurationToInitFile(const char* key, int value, const char* section);
/// Booleans are stored as "TRUE" and "FALSE": say which text is meant.
bool SetConfigurationToInitFile(const char* key, bool value, const char* section) = delete;
bool SetConfigurationToInitFile(std::span<const ProfileEntry> entries, const char* section,
                                const char* file);
bool SetConfigurationToInitFile(std::span<const ProfileEntry> entries, const char* section);

/// Reads section "QV" of the main configuration file and stores what `change` makes of it, in one
/// step that no other writer, of this process or of another, comes between. No texts: nothing is
/// written. `change` must not write settings itself. Returns as the above.
bool ChangeConfiguration(const ProfileChange& change);

/// A page's text as it is stored: without CR, LF and NUL, and no longer than what can be read back,
/// cut where a UTF-8 character begins.
std::string StoredText(std::string text);
/// A text of any length of the main configuration file, section "QV": for lists that must be seen
/// whole or not at all.
std::string GetWholeConfiguration(const char* key);
/// The stored form of a boolean, and its reading: only "TRUE", in any case, is true.
const char* BoolToText(bool value);
bool TextToBool(const std::string& text);

/// The type and name of the source that was used last. The read leaves `type` untouched and returns
/// "" when none is stored.
std::string GetLatestSourceName(int& type);
bool SetLatestSourceName(int type, const char* name);

/// The access password, as the caller chose to store it.
std::string GetSavedAccessPwd();
bool SetAccessPwd(const char* text);

bool GetIfOnlyLoadMarviqueSignedModule();

/// Held exclusively by each write of an INI file of this process, from the read that it begins with
/// on, and shared by whoever reads several settings that must not be written in between. A single
/// read takes no lock: a file is replaced whole, so it sees the old text or the new. Re-entrant. It
/// comes after the turn among all processes, so nobody waits for a stranger while holding it; never
/// taken while the log's own lock is held; nobody calls the host or writes a setting while holding
/// it.
CReaderWriterLock& ConfigurationLock();

/// How the service and this process work; each log line tells both. Further values are possible: a
/// stored number is taken as it is.
enum class WorkMode : std::int32_t {
  Service = 0,
  OwnPorts = 3,  ///< has its own secure ports, as UserPorts
  InPageControl = 4,
  UserPorts = 6,
};

/// The process's own mode, in memory only.
WorkMode GetProcessMode();
void SetProcessMode(WorkMode mode);
/// The service's mode: key "WorkMode", read and written on every call.
WorkMode GetServiceMode();
bool SetServiceMode(WorkMode mode);

// The access switches: read once at start-up and then held in memory, so that what a page may do
// does not change under it.

/// Takes all eight from the configuration file; part of start-up.
void ReadAccessSwitches();

bool GetEnableScannerAccess();
bool GetEnableFileAccess();
bool GetEnableWebcamAccess();
bool GetEnableScannerAccessAuth();
bool GetEnableFileAccessAuth();
bool GetEnableWebcamAccessAuth();
bool GetEnableCORSAll();
bool GetEnableMultipleUserEnhancedMode();

/// Store the switch for the next start; the value in memory stays as it is.
void SetEnableScannerAccess(bool enable);
void SetEnableFileAccess(bool enable);
void SetEnableWebcamAccess(bool enable);
