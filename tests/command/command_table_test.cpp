#include "command/command_table.h"

#include <set>

#include "support/testing.h"

TEST(CommandTable, FindsEachCommandByItsExactName) {
  int index = 0;
  for (const CommandEntry& entry : AllCommands()) {
    EXPECT_EQ(static_cast<int>(entry.command), index++) << entry.name;
    EXPECT_EQ(FindCommand(entry.name), &entry);
    EXPECT_EQ(RightsNeeded(entry.name), entry.rights);
    EXPECT_TRUE(!entry.isQuick || entry.rights == CommandRights::Ask) << entry.name;
  }
  for (const char* unknown : {"", "reboot", "Reboot ", "GetServerInf"}) {
    EXPECT_EQ(FindCommand(unknown), nullptr);
    EXPECT_EQ(RightsNeeded(unknown), CommandRights::Manage) << "what is unknown is not asked for";
  }
}

TEST(CommandTable, LetsNobodyChangeWhoMayOnlyAsk) {
  std::set<std::string_view> asks, waits;
  for (const CommandEntry& entry : AllCommands()) {
    if (entry.rights == CommandRights::Ask) asks.insert(entry.name);
    if (entry.rights == CommandRights::Ask && !entry.isQuick) waits.insert(entry.name);
  }
  EXPECT_EQ(asks, (std::set<std::string_view>{"CheckHVNPort", "GetBinaryFileInfo",
                                              "GetCertExpiredDate", "GetLocalIP", "GetPorts",
                                              "GetServerInfo", "GetmDNSQueryService",
                                              "GetmDNSService", "QVVersion", "VersionInfo"}));
  EXPECT_EQ(waits,
            (std::set<std::string_view>{"GetBinaryFileInfo", "GetCertExpiredDate", "GetPorts"}));
}
