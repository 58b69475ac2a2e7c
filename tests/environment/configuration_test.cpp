#include "environment/configuration.h"

#include <fcntl.h>
#include <sys/file.h>

#include "environment/mdns_settings.h"
#include "environment/paths.h"
#include "environment/program_information.h"
#include "os/file.h"
#include "support/testing.h"

namespace {

class Configuration : public ::testing::Test {
 protected:
  Configuration() {
    InitProgramInfo();
    Spit(GetInitFile(), "");
  }
  static std::string Text(const char* key, const char* def = "", const char* section = nullptr) {
    return GetConfigurationfromInitFile(key, def, section);
  }
};

TEST_F(Configuration, ReadsEachValueOrItsDefault) {
  Spit(GetInitFile(), "[QV]\nText=stored\nEmpty=\n[]\nText=nameless\n");
  EXPECT_EQ(Text("Text"), "stored");
  EXPECT_EQ(Text("Text", "x", ""), "nameless");
  EXPECT_EQ(Text("Text", "x", "missing"), "x");
  EXPECT_EQ(Text("Empty", "x"), "x");
  EXPECT_EQ(Text("Missing", nullptr), "");
  SetConfigurationToInitFile("Long", std::string(3000, 'v').c_str(), DEFAULT_SECTION);
  EXPECT_EQ(Text("Long"), std::string(2046, 'v'));
  for (const char* stored : {"TRUE", "True", "1", "yes", "FALSE"}) {
    SetConfigurationToInitFile("Flag", stored, DEFAULT_SECTION);
    EXPECT_EQ(GetConfigurationfromInitFile("Flag", "TRUE"), stored[0] == 'T') << stored;
  }
}

TEST_F(Configuration, GoesToTheSectionAndTheFileThatAreNamed) {
  const std::string other = GetWorkPath() + "other.ini";
  Spit(other, "");
  SetConfigurationToInitFile("k", "main", nullptr);
  SetConfigurationToInitFile("k", 5, "");
  SetConfigurationToInitFile("k", "other", nullptr, other.c_str());
  const ProfileEntry entries[] = {{"l", "1"}, {"m", "2"}};
  SetConfigurationToInitFile(entries, nullptr);
  EXPECT_EQ(Slurp(GetInitFile()), "[]\nk=5\n[QV]\nk=main\nl=1\nm=2\n");
  EXPECT_EQ(Slurp(other), "[QV]\nk=other\n");
  EXPECT_EQ(GetConfigurationfromInitFile("k", "x", nullptr, other.c_str()), "other");
}

TEST_F(Configuration, KeepsWhatIsNamedByAFunction) {
  int type = 7;
  EXPECT_EQ(GetLatestSourceName(type) + GetSavedAccessPwd(), "");
  EXPECT_EQ(type, 7) << "nothing is stored";
  EXPECT_TRUE(GetIfOnlyLoadMarviqueSignedModule());
  EXPECT_EQ(GetServiceMode(), WorkMode::Service);
  SetLatestSourceName(-3, "scanner");
  SetAccessPwd("secret");
  SetServiceMode(WorkMode::UserPorts);
  SetConfigurationToInitFile("OnlyLoadMarviqueSignedModule", "False", DEFAULT_SECTION);
  EXPECT_EQ(GetLatestSourceName(type) + GetSavedAccessPwd(), "scannersecret");
  EXPECT_EQ(type, -3);
  EXPECT_FALSE(GetIfOnlyLoadMarviqueSignedModule());
  EXPECT_EQ(GetServiceMode(), WorkMode::UserPorts);
  Spit(GetInitFile(), "[QV]\nLatestSourceType=x\n");
  EXPECT_EQ(GetLatestSourceName(type), "");
  EXPECT_EQ(type, 0);
}

TEST_F(Configuration, TellsAndLogsWhatCannotBeStored) {
  Spit(GetInitFile(), "[QV]\nLogLevel=1\n");  // keeps no other line
  const std::string noFile = GetWorkPath() + "no-file.ini";
  fs::create_directory(noFile);
  EXPECT_FALSE(SetConfigurationToInitFile("AccessPwd", "secret", nullptr, noFile.c_str()));
  EXPECT_EQ(errno, EISDIR);
  EXPECT_TRUE(SetConfigurationToInitFile("k", "v", nullptr));
  const auto log = [] { return Slurp(GetLogFile()); };
  EXPECT_TRUE(WaitUntil([&] {
    return log().find("Not stored in " + noFile +
                      ": AccessPwd. GetLastError = " + std::to_string(EISDIR)) != std::string::npos;
  })) << log();
  EXPECT_EQ(log().find("secret"), std::string::npos);
}

TEST_F(Configuration, IsReadAndLockedWhileAWriteWaitsForAnotherProcess) {
  EXPECT_TRUE(SetConfigurationToInitFile("k", "old", nullptr));
  Descriptor others(::open((GetWorkPath() + ".QVConfiguration.ini.lock").c_str(), O_RDWR));
  ASSERT_EQ(::flock(others.get(), LOCK_EX), 0);
  std::atomic<bool> isStored{false};
  std::jthread writer([&] {
    EXPECT_TRUE(SetEnablemDNSService(true, "alias", "tags", false, false, false, 1, "p"));
    isStored = true;
  });
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(500);
  while (std::chrono::steady_clock::now() < end) {
    ASSERT_TRUE(ConfigurationLock().AcquireWriterLock(0));
    EXPECT_EQ(Text("k"), "old");
    EXPECT_FALSE(isStored);
    ConfigurationLock().ReleaseWriterLock();
  }
  others = Descriptor();
  writer.join();
  EXPECT_EQ(Text("Service_alias"), "alias");
}

TEST_F(Configuration, SwitchesAccessForTheNextStartOnly) {
  Spit(GetInitFile(), "[QV]\nEnableFileAccess=FALSE\n");
  ReadAccessSwitches();
  const auto now = [] {
    return std::vector{GetEnableScannerAccess(), GetEnableFileAccess(), GetEnableWebcamAccess()};
  };
  SetEnableScannerAccess(false);
  SetEnableFileAccess(true);
  SetEnableWebcamAccess(false);
  EXPECT_EQ(now(), (std::vector{true, false, true}));
  EXPECT_EQ(Slurp(GetInitFile()),
            "[QV]\nEnableFileAccess=TRUE\nEnableScannerAccess=FALSE\nEnableWebcamAccess=FALSE\n");
  ReadAccessSwitches();
  EXPECT_EQ(now(), (std::vector{false, true, false}));
}

TEST_F(Configuration, TakesAPagesTextAsOneLineThatCanBeReadBack) {
  using namespace std::string_literals;
  const std::string full(2044, 'x');
  for (const auto& [text, stored] :
       Table<std::string, std::string>{{"a\r\n\0b"s, "ab"},
                                       {full + "yz", full + "yz"},
                                       {full + "yzz", full + "yz"},
                                       {full + "\xE2\x82\xAC", full},
                                       {full + "\xC3\xA4", full + "\xC3\xA4"},
                                       {std::string(2047, '\x80'), ""}}) {
    EXPECT_EQ(StoredText(text), stored) << text.size();
  }
  for (const std::size_t size : {0, 2045, 2046, 2047, 2048, 50'000}) {
    const std::string value(size, 'v');
    SetConfigurationToInitFile("List", value.c_str(), DEFAULT_SECTION);
    EXPECT_EQ(GetWholeConfiguration("List"), value);
  }
}

}  // namespace
