#include "command/command_table.h"

#include <algorithm>
#include <array>

namespace {

using enum Command;
constexpr auto kAsk = CommandRights::Ask;
constexpr auto kManage = CommandRights::Manage;

constexpr std::array kCommands = {
    CommandEntry{LoadZipFromBytes, "LoadZipFromBytes", kManage, false},
    CommandEntry{CheckUpdateFile, "CheckUpdateFile", kManage, false},
    CommandEntry{GetServerInfo, "GetServerInfo", kAsk, true},
    CommandEntry{SetServerInfo, "SetServerInfo", kManage, false},
    CommandEntry{ChangePort, "ChangePort", kManage, false},
    CommandEntry{Reboot, "Reboot", kManage, false},
    CommandEntry{AddFirewall, "AddFirewall", kManage, false},
    CommandEntry{GetLocalIP, "GetLocalIP", kAsk, true},
    CommandEntry{CheckHVNPort, "CheckHVNPort", kAsk, true},
    CommandEntry{GetPorts, "GetPorts", kAsk, false},
    CommandEntry{VersionInfo, "VersionInfo", kAsk, true},
    CommandEntry{QVVersion, "QVVersion", kAsk, true},
    CommandEntry{GetCertExpiredDate, "GetCertExpiredDate", kAsk, false},
    CommandEntry{GetBinaryFileInfo, "GetBinaryFileInfo", kAsk, false},
    CommandEntry{GetmDNSQueryService, "GetmDNSQueryService", kAsk, true},
    CommandEntry{SetmDNSQueryService, "SetmDNSQueryService", kManage, false},
    CommandEntry{GetmDNSService, "GetmDNSService", kAsk, true},
    CommandEntry{SetmDNSService, "SetmDNSService", kManage, false},
};

}  // namespace

std::span<const CommandEntry> AllCommands() { return kCommands; }

const CommandEntry* FindCommand(std::string_view name) {
  const auto* found =
      std::find_if(kCommands.begin(), kCommands.end(),
                   [name](const CommandEntry& entry) { return entry.name == name; });
  return found == kCommands.end() ? nullptr : found;
}

CommandRights RightsNeeded(std::string_view name) {
  const CommandEntry* entry = FindCommand(name);
  return entry == nullptr ? CommandRights::Manage : entry->rights;
}
