#include "environment/configuration.h"

#include <strings.h>

#include <algorithm>
#include <atomic>

#include "environment/paths.h"
#include "platform/diagnostics.h"
#include "platform/profile_view.h"
#include "platform/system_time.h"
#include "platform/text.h"

namespace {

constexpr std::size_t kLongestValue = 2046;

/// By way of the platform's log: logging itself reads its level from here.
void LogLostWrite(const char* key, const char* value) {
  Log(0, "Set configuration to init file failed. Key = %s, Value = %s. (%d)", key, value,
      GetLastError());
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

void SetConfigurationToInitFile(const char* key, const char* value, const char* section,
                                const char* file) {
  if (section == nullptr) section = DEFAULT_SECTION;
  const WriteHold hold(ConfigurationLock());
  if (!WritePrivateProfileStringA(section, key, value, file)) LogLostWrite(key, value);
}

void SetConfigurationToInitFile(const char* key, const char* value, const char* section) {
  SetConfigurationToInitFile(key, value, section, GetInitFileCString());
}

void SetConfigurationToInitFile(const char* key, int value, const char* section) {
  SetConfigurationToInitFile(key, std::to_string(value).c_str(), section);
}

void SetConfigurationToInitFile(std::span<const ProfileEntry> entries, const char* section) {
  if (section == nullptr) section = DEFAULT_SECTION;
  const WriteHold hold(ConfigurationLock());
  if (WritePrivateProfileEntries(section, entries, GetInitFileCString())) return;
  for (const auto& [key, value] : entries) {
    LogLostWrite(std::string(key).c_str(), std::string(value).c_str());
  }
}

bool ChangeConfiguration(const std::function<ProfileTexts(const ProfileReader&)>& change) {
  const WriteHold hold(ConfigurationLock());
  return ChangePrivateProfile(DEFAULT_SECTION, change, GetInitFileCString()) != 0;
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

void SetLatestSourceName(int type, const char* name) {
  SetConfigurationToInitFile("LatestSourceType", type, DEFAULT_SECTION);
  SetConfigurationToInitFile("LatestSourceName", name, DEFAULT_SECTION);
}

std::string GetSavedAccessPwd() {
  return GetConfigurationfromInitFile("AccessPwd", "", DEFAULT_SECTION);
}

void SetAccessPwd(const char* text) {
  SetConfigurationToInitFile("AccessPwd", text, DEFAULT_SECTION);
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

void SetServiceMode(WorkMode mode) {
  SetConfigurationToInitFile("WorkMode", static_cast<int>(mode), DEFAULT_SECTION);
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
