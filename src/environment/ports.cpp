#include "environment/ports.h"

#include <algorithm>
#include <span>
#include <utility>

#include "environment/configuration.h"
#include "environment/module_identity.h"
#include "environment/paths.h"
#include "os/file.h"
#include "platform/profile_view.h"
#include "platform/text.h"

namespace {

constexpr int kMostEntriesWithoutCount = 10;

// The ports that this process has set, guarded by the configuration lock, held exclusively.
struct OwnPorts {
  PortMap plain, secure;
};

OwnPorts& TheOwnPorts() {
  static OwnPorts ports;
  return ports;
}

std::string NameKey(const char* baseKey, int index) {
  return std::string(baseKey) + "_mn_" + std::to_string(index);
}

std::string PortKey(const char* baseKey, int index) {
  return std::string(baseKey) + "_mp_" + std::to_string(index);
}

int ReadInt(const std::string& key, const char* section, const std::string& file) {
  const std::string stored = GetConfigurationfromInitFile(key.c_str(), "0", section, file.c_str());
  return TextToInt(stored.c_str());
}

// The view must outlive it.
ProfileReader ReaderOf(const ProfileView& look) {
  return [&look](std::string_view key) { return std::string(look.Find(DEFAULT_SECTION, key, "")); };
}

PortMap ReadMap(const ProfileReader& stored, const char* baseKey, int count) {
  PortMap map;
  for (int i = 0; i < count; ++i) {
    std::string name = stored(NameKey(baseKey, i));
    if (name.empty()) break;
    map[std::move(name)] = TextToInt(stored(PortKey(baseKey, i)).c_str());
  }
  return map;
}

// The stored form of a map: its entries from the last name to the first, then their number.
void AppendMap(ProfileTexts& texts, const PortMap& map, const char* baseKey) {
  int index = 0;
  for (auto entry = map.rbegin(); entry != map.rend(); ++entry, ++index) {
    texts.emplace_back(NameKey(baseKey, index), entry->first);
    texts.emplace_back(PortKey(baseKey, index), std::to_string(entry->second));
  }
  texts.emplace_back(baseKey, std::to_string(map.size()));
}

// The map is changed in the turn of the write, so the last write has the whole map.
bool SetOwnPort(PortMap& map, const char* baseKey, int port, const std::string& name) {
  return ChangeConfiguration([&](const ProfileReader&) {
    map[name] = port;
    ProfileTexts texts;
    AppendMap(texts, map, baseKey);
    return texts;
  });
}

std::string UserKey(const std::string& name, bool isSecure) {
  return isSecure ? name + "_ssl" : name;
}

}  // namespace

int FindPort(const PortMap& map, const std::string& name, int absent) {
  const auto found = map.find(name);
  return found == map.end() ? absent : found->second;
}

PortMap ReadPort(const char* baseKey, bool useStoredCount) {
  const ProfileView look(GetInitFileCString());
  const ProfileReader stored = ReaderOf(look);
  return ReadMap(stored, baseKey,
                 useStoredCount ? TextToInt(stored(baseKey).c_str()) : kMostEntriesWithoutCount);
}

StoredPorts ReadPorts() {
  const ProfileView look(GetInitFileCString());
  const ProfileReader stored = ReaderOf(look);
  return {ReadMap(stored, PLAIN_PORT_KEY, kMostEntriesWithoutCount),
          ReadMap(stored, SSL_PORT_KEY, kMostEntriesWithoutCount)};
}

PortMap ReadSSLPort(bool useStoredCount) { return ReadPort(SSL_PORT_KEY, useStoredCount); }
PortMap ReadNoSSLPort(bool useStoredCount) { return ReadPort(PLAIN_PORT_KEY, useStoredCount); }

int GetSSLPort(const std::string& name, bool useStoredCount) {
  return FindPort(ReadSSLPort(useStoredCount), name, 0);
}

int GetNoSSLPort(const std::string& name, bool useStoredCount) {
  return FindPort(ReadNoSSLPort(useStoredCount), name, 0);
}

bool SetSSLPort(int port, const std::string& name) {
  return SetOwnPort(TheOwnPorts().secure, SSL_PORT_KEY, port, name);
}

bool SetNoSSLPort(int port, const std::string& name) {
  return SetOwnPort(TheOwnPorts().plain, PLAIN_PORT_KEY, port, name);
}

bool SetServer(const std::string& host, const std::vector<ServerPorts>& modules) {
  return ChangeConfiguration([&](const ProfileReader&) {
    OwnPorts& own = TheOwnPorts();
    for (const ServerPorts& module : modules) {
      own.plain[module.name] = module.port;
      own.secure[module.name] = module.sslPort;
    }
    ProfileTexts texts = {{"Server", host}};
    AppendMap(texts, own.plain, PLAIN_PORT_KEY);
    AppendMap(texts, own.secure, SSL_PORT_KEY);
    return texts;
  });
}

bool StoreOpenedPorts(const std::vector<OpenedPort>& opened) {
  return ChangeConfiguration([&opened](const ProfileReader& stored) {
    ProfileTexts texts;
    for (const bool secure : {false, true}) {
      const char* baseKey = secure ? SSL_PORT_KEY : PLAIN_PORT_KEY;
      const PortMap before = ReadMap(stored, baseKey, kMostEntriesWithoutCount);
      PortMap map = before;
      for (const OpenedPort& port : opened) {
        if (port.secure == secure && FindPort(before, port.name, 0) == port.stored) {
          map[port.name] = port.actual;
        }
      }
      if (map != before) AppendMap(texts, map, baseKey);
    }
    return texts;
  });
}

bool SavePort(const PortMap& map, const char* baseKey) {
  ProfileTexts texts;
  AppendMap(texts, map, baseKey);
  return ChangeConfiguration([&](const ProfileReader&) { return texts; });
}

int GetPort(const char* section, const std::string& name, bool isDefault, bool isSecure) {
  const std::string key = UserKey(name, isSecure) + (isDefault ? "_def" : "");
  return ReadInt(key, section, GetUserConfigFile());
}

bool SavePort(const char* section, const std::string& name, bool alsoDefault, bool isSecure,
              int port) {
  const std::string key = UserKey(name, isSecure);
  const std::string defaultKey = key + "_def";
  const std::string value = std::to_string(port);
  const ProfileEntry entries[] = {{key, value}, {defaultKey, value}};
  return SetConfigurationToInitFile(std::span(entries).first(alsoDefault ? 2 : 1), section,
                                    GetUserConfigFile().c_str());
}

std::vector<int> ReadUserSSLPort() {
  const WorkMode mode = GetProcessMode();
  std::vector<int> ports;
  if (mode != WorkMode::OwnPorts && mode != WorkMode::UserPorts) return ports;
  for (const char* alias : ALIAS_ARY) {
    const int port = ReadInt(UserKey(alias, true), "", GetUserConfigFile());
    if (port != 0) ports.push_back(port);
  }
  return ports;
}

bool SetUserProcessExitFlag(const char* section, bool flag) {
  return SetConfigurationToInitFile("ExitFlag", BoolToText(flag), section,
                                    GetUserConfigFile().c_str());
}

bool GetUserProcessExitFlag(const char* section) {
  return TextToBool(
      GetConfigurationfromInitFile("ExitFlag", "FALSE", section, GetUserConfigFile().c_str()));
}

bool PortIsUsed(const char* filePath, int port) {
  std::string content;
  if (ReadWholeFile(filePath, &content) != 0) return false;
  content.resize(std::min(content.find('\0'), content.size()));
  return content.find(std::to_string(port)) != std::string::npos;
}

int PortIsUsed(int) { return 0; }
