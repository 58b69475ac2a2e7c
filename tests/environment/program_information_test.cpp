#include "environment/program_information.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "environment/configuration.h"
#include "environment/logging.h"
#include "environment/paths.h"
#include "environment/work_mode.h"
#include "support/temp_folder.h"

namespace fs = std::filesystem;

namespace {

TEST(ProgramInformation, IsTakenFromTheExecutablesFolderOnce) {
  const std::string work = fs::canonical("/proc/self/exe").parent_path().string() + "/";
  Spit(work + "QVConfiguration.ini", "[QV]\nLogLevel=14\nListenType=loop\n");
  Spit(work + "service.ini", "[QV]\nServiceName=Named\nServiceMode=USER\nSingleUser=true\n");
  EXPECT_EQ(GetWorkPath(), "");
  InitProgramInfo();

  EXPECT_EQ(GetWorkPath(), work);
  const struct {
    std::string value, expected;
  } kPlaces[] = {{GetLogPath(), "log/"},
                 {GetCachePath(), "cache/"},
                 {GetUploadPath(), "upload/"},
                 {GetCertPath(), "cert/"},
                 {GetDumpPath(), "dump/"},
                 {GetNginxWorkPath(), "nginx"},
                 {GetSecurityExceptionFile(), "qv.exception"},
                 {GetInitFile(), "QVConfiguration.ini"},
                 {GetInitFileCString(), "QVConfiguration.ini"},
                 {GetUserConfigFile(), "user_config.ini"},
                 {GetServiceConfigName(), "service.ini"},
                 {GetSSLCertFile(), "cert/server.pem"},
                 {GetSSLPriKeyFile(), "cert/server_key.pem"},
                 {GetFirefoxCert(), "cert/cert.e"},
                 {GetLogFile(), "log/qvs.log"}};
  for (const auto& [value, expected] : kPlaces) EXPECT_EQ(value, work + expected);
  for (const char* made : {"log", "cache", "upload"}) EXPECT_TRUE(fs::is_directory(work + made));
  for (const char* notMade : {"cert", "dump"}) EXPECT_FALSE(fs::exists(work + notMade));
  EXPECT_EQ(GetExeFile(), fs::canonical("/proc/self/exe").string());
  EXPECT_EQ(GetHostName(), "127.0.0.1");
  EXPECT_EQ(GetListenType(), "loop");
  EXPECT_EQ(GetServiceName(), "Named");
  EXPECT_EQ(GetServiceRunMode(), 1);
  EXPECT_TRUE(SingleUser());
  EXPECT_EQ(GetServiceVersion(), "17.3");
  EXPECT_TRUE(GetFullLogging());

  SetExeFile("/elsewhere/host");
  SetHostName("other");
  SetHostName(nullptr);
  InitProgramInfo();
  EXPECT_EQ(GetExeFile(), "/elsewhere/host");
  EXPECT_EQ(GetHostName(), "other");
}

TEST(ProgramInformation, FixesTheIdentifierWithItsFirstReader) {
  InitProgramInfo();
  const std::string guid = GetServiceGUID();
  EXPECT_EQ(guid.size(), 32u);
  EXPECT_EQ(GetConfigurationfromInitFile("ServiceGuid", "", DEFAULT_SECTION), guid);
  SetConfigurationToInitFile("ServiceGuid", "kept", DEFAULT_SECTION);
  EXPECT_EQ(GetServiceGUID(), "kept");
}

}  // namespace
