// The commands of this module: what each is called and what it needs. The manager finds its
// handlers by this table and the door of the host its rules, so that the two cannot differ.
#pragma once

#include <span>
#include <string_view>

/// One value a command, in the table's order.
enum class Command {
  LoadZipFromBytes,
  CheckUpdateFile,
  GetServerInfo,
  SetServerInfo,
  ChangePort,
  Reboot,
  AddFirewall,
  GetLocalIP,
  CheckHVNPort,
  GetPorts,
  VersionInfo,
  QVVersion,
  GetCertExpiredDate,
  GetBinaryFileInfo,
  GetmDNSQueryService,
  SetmDNSQueryService,
  GetmDNSService,
  SetmDNSService,
};

/// Who may send a command: whoever may ask, or only who may change the service.
enum class CommandRights { Ask, Manage };

struct CommandEntry {
  Command command;
  std::string_view name;
  CommandRights rights;
  /// Looks at a few settings and answers: no file of unknown size, no callback into the host, no
  /// wait for another command. It may run on a thread that serves sockets.
  bool isQuick;
};

std::span<const CommandEntry> AllCommands();

/// The entry of a function name, null for a name that is no command's. Any thread may call.
const CommandEntry* FindCommand(std::string_view name);

/// What a function name needs: Manage unless the table says that it may be asked.
CommandRights RightsNeeded(std::string_view name);
