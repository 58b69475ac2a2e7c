#include "environment/configuration.h"

#include <strings.h>

#include <algorithm>
#include <atomic>
#include <cerrno>

#include "environment/paths.h"
#include "platform/diagnostics.h"
#include "platform/profile_view.h"
#include "platform/text.h"

namespace {

constexpr std::size_t kLongestValue = 2046;

/// By way of the platform's log: logging itself reads its level from here. The Error line is
/// without the values, which may be passwords.
void LogLostWrite(const ProfileTexts& texts, const char* file) {
  const int error = errno;
  std::string keys;
  for (const auto& [key, value] : texts) {
    Log(0, "Set configuration to init file failed. Key = %s, Value = %s. (%d)", key.c_str(),
        value.c_str(), error);
    keys += (keys.empty() ? "" : ", ") + key;
  }
  errno = error;
  LogFailure("Not stored in %s: %s.", file != nullptr ? file : "(no file)",
             keys.empty() ? "it cannot be read" : keys.c_str());
  errno = error;
}

/// The one way in which settings are stored: the turn among all processes comes first, because it
/// may take seconds. `texts` are those that are known before the file is read, for the log.
bool Change(const ProfileChange& change, const char* section, const char* file,
            ProfileTexts texts = {}) {
  if (section == nullptr) section = DEFAULT_SECTION;
  const auto keep = [&](const ProfileReader& stored) { return texts = change(stored); };
  {
    const ProfileLock turn(file);
    const WriteHold hold(ConfigurationLock());
    if (ChangePrivateProfile(section, keep, file, turn)) return true;
  }
  LogLostWrite(texts, file);
  return false;
}

bool Store(const ProfileTexts& texts, const char* section, const char* file) {
  return Change([&](const ProfileReader&) { return texts; }, section, file, texts);
}

constinit std::atomic<WorkMode> g_processMode{WorkMode::Service};

struct Switch {
  const char* key;
  const char* defaultInFile;
  std::atomic<bool> on;  // until start-up reads the file: the value given here

  void Read() { on = GetConfigurationfromInitFile(key, defaultInFile); }
  void StoreForNextStart(bool enable) const {
    SetConfigurationToInitFile(key, BoolToText(enable), DEFAULT_SECTION);
  }
};

constinit Switch g_scannerAccess{"EnableScannerAccess", "TRUE", true};
constinit Switch g_fileAccess{"EnableFileAccess", "TRUE", true};
constinit Switch g_webcamAccess{"EnableWebcamAccess", "TRUE", true};
constinit Switch g_scannerAccessAuth{"EnableScannerAccessAuth", "FALSE", false};
constinit Switch g_fileAccessAuth{"EnableFileAccessAuth", "FALSE", false};
constinit Switch g_webcamAccessAuth{"EnableWebcamAccessAuth", "FALSE", false};
constinit Switch g_corsAll{"EnableCORSAll", "FALSE", true};
constinit Switch g_enhancedMode{"EnableEnhancedMode", "FALSE", false};

}  // namespace

CReaderWriterLock& ConfigurationLock() {
  static CReaderWriterLock lock;
  return lock;
}

std::string GetConfigurationfromInitFile(const char* key, const char* def, const char* section,
                                         const char* file) {
  if (section == nullptr) section = DEFAULT_SECTION;
  if (def == nullptr) def = "";
  const ProfileView look(file);
  const std::string_view value = look.Find(section, key, def);
  if (value.empty()) return def;
  return std::string(value.substr(0, std::min(kLongestValue, value.find('\0'))));
}

std::string GetConfigurationfromInitFile(const char* key, const char* def, const char* section) {
  return GetConfigurationfromInitFile(key, def, section, GetInitFileCString());
}

bool GetConfigurationfromInitFile(const char* key, const char* def) {
  return TextToBool(GetConfigurationfromInitFile(key, def, DEFAULT_SECTION));
}

bool SetConfigurationToInitFile(const char* key, const char* value, const char* section,
                                const char* file) {
  return Store({{key != nullptr ? key : "", value != nullptr ? value : ""}}, section, file);
}

bool SetConfigurationToInitFile(const char* key, const char* value, const char* section) {
  return SetConfigurationToInitFile(key, value, section, GetInitFileCString());
}

bool SetConfigurationToInitFile(const char* key, int value, const char* section) {
  return SetConfigurationToInitFile(key, std::to_string(value).c_str(), section);
}

bool SetConfigurationToInitFile(std::span<const ProfileEntry> entries, const char* section,
                                const char* file) {
  ProfileTexts texts;
  for (const auto& [key, value] : entries) texts.emplace_back(key, value);
  return Store(texts, section, file);
}

bool SetConfigurationToInitFile(std::span<const ProfileEntry> entries, const char* section) {
  return SetConfigurationToInitFile(entries, section, GetInitFileCString());
}

bool ChangeConfiguration(const ProfileChange& change) {
  return Change(change, DEFAULT_SECTION, GetInitFileCString());
}

std::string StoredText(std::string text) {
  std::erase_if(text, [](char c) { return c == '\r' || c == '\n' || c == '\0'; });
  if (text.size() > kLongestValue) {
    std::size_t length = kLongestValue;
    while (length > 0 && (static_cast<unsigned char>(text[length]) & 0xC0) == 0x80) --length;
    text.resize(length);
  }
  return text;
}

std::string GetWholeConfiguration(const char* key) {
  const ProfileView look(GetInitFileCString());
  const std::string_view value = look.Find(DEFAULT_SECTION, key, "");
  return std::string(value.substr(0, value.find('\0')));
}

const char* BoolToText(bool value) { return value ? "TRUE" : "FALSE"; }

bool TextToBool(const std::string& text) { return ::strcasecmp(text.c_str(), "TRUE") == 0; }

std::string GetLatestSourceName(int& type) {
  const std::string stored = GetConfigurationfromInitFile("LatestSourceType", "", DEFAULT_SECTION);
  if (stored.empty()) return "";
  type = TextToInt(stored.c_str());
  return GetConfigurationfromInitFile("LatestSourceName", "", DEFAULT_SECTION);
}

bool SetLatestSourceName(int type, const char* name) {
  const std::string number = std::to_string(type);
  const ProfileEntry entries[] = {{"LatestSourceType", number},
                                  {"LatestSourceName", name != nullptr ? name : ""}};
  return SetConfigurationToInitFile(entries, DEFAULT_SECTION);
}

std::string GetSavedAccessPwd() {
  return GetConfigurationfromInitFile("AccessPwd", "", DEFAULT_SECTION);
}

bool SetAccessPwd(const char* text) {
  return SetConfigurationToInitFile("AccessPwd", text, DEFAULT_SECTION);
}

bool GetIfOnlyLoadMarviqueSignedModule() {
  return GetConfigurationfromInitFile("OnlyLoadMarviqueSignedModule", "TRUE");
}

WorkMode GetProcessMode() { return g_processMode.load(std::memory_order_relaxed); }

void SetProcessMode(WorkMode mode) { g_processMode.store(mode, std::memory_order_relaxed); }

WorkMode GetServiceMode() {
  const std::string stored = GetConfigurationfromInitFile("WorkMode", "0", DEFAULT_SECTION);
  return static_cast<WorkMode>(TextToInt(stored.c_str()));
}

bool SetServiceMode(WorkMode mode) {
  return SetConfigurationToInitFile("WorkMode", static_cast<int>(mode), DEFAULT_SECTION);
}

void ReadAccessSwitches() {
  for (Switch* each : {&g_scannerAccess, &g_fileAccess, &g_webcamAccess, &g_scannerAccessAuth,
                       &g_fileAccessAuth, &g_webcamAccessAuth, &g_corsAll, &g_enhancedMode}) {
    each->Read();
  }
}

bool GetEnableScannerAccess() { return g_scannerAccess.on; }
bool GetEnableFileAccess() { return g_fileAccess.on; }
bool GetEnableWebcamAccess() { return g_webcamAccess.on; }
bool GetEnableScannerAccessAuth() { return g_scannerAccessAuth.on; }
bool GetEnableFileAccessAuth() { return g_fileAccessAuth.on; }
bool GetEnableWebcamAccessAuth() { return g_webcamAccessAuth.on; }
bool GetEnableCORSAll() { return g_corsAll.on; }
bool GetEnableMultipleUserEnhancedMode() { return g_enhancedMode.on; }

void SetEnableScannerAccess(bool enable) { g_scannerAccess.StoreForNextStart(enable); }
void SetEnableFileAccess(bool enable) { g_fileAccess.StoreForNextStart(enable); }
void SetEnableWebcamAccess(bool enable) { g_webcamAccess.StoreForNextStart(enable); }
