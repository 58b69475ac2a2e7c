#include "environment/program_information.h"

#include <sys/wait.h>

#include <regex>

#include "environment/configuration.h"
#include "environment/paths.h"
#include "support/machine.h"
#include "support/testing.h"

namespace {

/// What a process that starts in a folder finds there.
class StartUp : public ::testing::Test {
 protected:
  std::string Told(const std::string& program) {
    fs::create_directories(fs::path(program).parent_path());
    fs::copy_file(ProgramsOwnFolder() + "start_up", program, fs::copy_options::skip_existing);
    const std::string told = folder_ / "told";
    EXPECT_EQ(std::system(("'" + program + "' >'" + told + "'").c_str()), 0);
    return Slurp(told);
  }
  static std::string Guid(const std::string& told) {
    std::smatch found;
    return std::regex_search(told, found, std::regex("guid=([0-9a-f]{32})\n")) ? found.str(1) : "";
  }

  const TempFolder folder_;
};

TEST_F(StartUp, TakesEverythingFromTheFilesBesideTheProgram) {
  const auto expected = [this](const std::string& middle, const std::string& guid) {
    return "before=TRUE\nwork=" + folder_.path() +
           "\nsettings=" + (folder_ / "QVConfiguration.ini") +
           "\nexecutable=" + (folder_ / "host") + "\n" + middle +
           "log=" + (folder_ / "log/qvs.log") + "\nsecond start=/elsewhere/host\nguid=" + guid +
           "\n";
  };
  const std::string defaults = Told(folder_ / "host");
  const std::string guid = Guid(defaults);
  EXPECT_EQ(guid.size(), 32u);
  EXPECT_EQ(defaults, expected("host=127.0.0.1\nlisten=\nname=Marvique Service 17.3\n"
                               "user mode=0FALSE\ndebug=0FALSE\naccess=11100000\n",
                               guid));
  EXPECT_EQ(Guid(Told(folder_ / "host")), guid) << "the first reader fixes it for good";
  for (const char* made : {"log", "cache", "upload"}) EXPECT_TRUE(fs::exists(folder_ / made));
  for (const char* notMade : {"cert", "dump"}) EXPECT_FALSE(fs::exists(folder_ / notMade));

  const std::string settings = "[QV]\nServiceGuid=kept\nServer=h\nListenType=loop\n";
  for (const auto& [more, service, middle] : Table<std::string, std::string, std::string>{
           {"LogLevel=14\nEnableFileAccess=no\nEnableFileAccessAuth=true\nEnableEnhancedMode="
            "TRUE\n",
            "ServiceName=Named\nServiceMode=USER\nSingleUser=true\nServiceVersion=9\n",
            "name=Named 9\nuser mode=1TRUE\ndebug=1TRUE\naccess=10101001\n"},
           {"LogLevel=12\nEnableScannerAccess=1\nEnableScannerAccessAuth=TRUE\n"
            "EnableWebcamAccessAuth=True\nEnableCORSAll=TRUE\n",
            "ServiceMode=users\n",
            "name=Marvique Service 17.3\nuser mode=0FALSE\ndebug=8FALSE\naccess=01110110\n"}}) {
    Spit(folder_ / "QVConfiguration.ini", settings + more);
    Spit(folder_ / "service.ini", "[QV]\n" + service);
    EXPECT_EQ(Told(folder_ / "host"), expected("host=h\nlisten=loop\n" + middle, "kept"));
  }
}

TEST_F(StartUp, LivesBesideAnApplicationsBundleAndLogsElsewhereIfItMust) {
  fs::create_directories(folder_ / "log/qvs.log");
  const std::string told = Told(folder_ / "A.app/Contents/MacOS/host");
  EXPECT_NE(told.find("work=" + folder_.path() + "\n"), std::string::npos) << told;
  EXPECT_NE(told.find("executable=" + (folder_ / "A.app") + "\n"), std::string::npos) << told;
  EXPECT_TRUE(std::regex_search(told, std::regex("log=.*/log/qvs\\([0-9]+\\)[.]log\n"))) << told;
}

TEST(ProgramInformation, KeepsNamesAndFlagsAsTheyAreSet) {
  InitProgramInfo();
  const std::string work = fs::path(OwnProgram()).parent_path().string() + "/";
  for (const auto& [path, name] :
       Table<std::string, const char*>{{GetLogPath(), "log/"},
                                       {GetCachePath(), "cache/"},
                                       {GetUploadPath(), "upload/"},
                                       {GetCertPath(), "cert/"},
                                       {GetDumpPath(), "dump/"},
                                       {GetNginxWorkPath(), "nginx"},
                                       {GetSecurityExceptionFile(), "qv.exception"},
                                       {GetInitFile(), "QVConfiguration.ini"},
                                       {work + GetConfigName(), "QVConfiguration.ini"},
                                       {GetServiceConfigName(), "service.ini"},
                                       {GetUserConfigFile(), "user_config.ini"},
                                       {work + GetUserConfigName(), "user_config.ini"},
                                       {work + GetPortLockName(), "port.lock"},
                                       {GetSSLCertFile(), "cert/server.pem"},
                                       {GetSSLPriKeyFile(), "cert/server_key.pem"},
                                       {GetFirefoxCert(), "cert/cert.e"}}) {
    EXPECT_EQ(path, work + name);
  }
  SetHostName("elsewhere");
  SetHostName(nullptr);
  EXPECT_EQ(GetHostName(), "elsewhere");
  SetModulePath("module");
  EXPECT_EQ(GetModulePath(), "module");
  Spit(GetServiceConfigName(), "");
  SaveServiceName("New");
  EXPECT_EQ(Slurp(GetServiceConfigName()), "[QV]\nServiceName=New\n");
  EXPECT_NE(GetServiceName(), "New") << "it holds from the next start on";

  fs::create_directories(GetCachePath());
  Spit(GetCachePath() + "left", "");
  EXPECT_EQ(CleanCacheFolder(), 1);
  EXPECT_FALSE(fs::exists(GetCachePath()));
  EXPECT_EQ(CleanCacheFolder(), 0);

  const auto flags = [] {
    return std::vector{GetIfServiceStopped(), GetIfServicePaused(), GetIfServiceRestarted()};
  };
  const bool restarted = GetIfServiceRestarted();
  for (const bool stopped : {true, false}) {
    SetIfServiceStopped(stopped);
    SetIfServicePaused(!stopped);
    EXPECT_EQ(flags(), (std::vector{stopped, !stopped, restarted}));
  }
  SetIfServicePaused(false);
  RestartService();
  EXPECT_EQ(flags(), (std::vector{true, false, true}));
}

}  // namespace
