#include "environment/program_information.h"

#include "environment/configuration.h"
#include "environment/logging.h"
#include "environment/paths.h"
#include "support/testing.h"

namespace {

TEST(ProgramInformation, IsTakenFromTheExecutablesFolderOnce) {
  const std::string work = fs::canonical("/proc/self/exe").parent_path().string() + "/";
  Spit(work + "QVConfiguration.ini", "[QV]\nLogLevel=14\nListenType=loop\n");
  Spit(work + "service.ini", "[QV]\nServiceName=Named\nServiceMode=USER\nSingleUser=true\n");
  InitProgramInfo();

  EXPECT_EQ(GetCertPath() + GetServiceConfigName(), work + "cert/" + work + "service.ini");
  for (const char* made : {"log/qvs.log", "cache", "upload"}) EXPECT_TRUE(fs::exists(work + made));
  for (const char* notMade : {"cert", "dump"}) EXPECT_FALSE(fs::exists(work + notMade));
  EXPECT_EQ(GetHostName() + " " + GetListenType() + " " + GetServiceName(), "127.0.0.1 loop Named");
  EXPECT_EQ(GetServiceVersion(), "17.3");
  EXPECT_TRUE(GetServiceRunMode() == 1 && SingleUser() && GetFullLogging());

  SetExeFile("/elsewhere/host");
  InitProgramInfo();
  EXPECT_EQ(GetExeFile(), "/elsewhere/host") << "started twice";
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
