#include "environment/users.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "environment/configuration.h"
#include "environment/paths.h"
#include "environment/program_information.h"
#include "platform/os.h"
#include "support/temp_folder.h"

namespace {

TEST(Users, HomeFoldersGoIntoValuesAndLists) {
  const std::string home = os::HomeFolder();
  ASSERT_FALSE(home.empty());
  const struct {
    std::string text, expanded;
  } kTexts[] = {{R"(["~/a",1])", "[\"" + home + "/a\",1]"},
                {"x,~/a,~/b", "x," + home + "/a," + home + "/b"},
                {"~/a", "~/a"},
                {R"("x~/a")", R"("x~/a")"},
                {R"("~)", R"("~)"},
                {R"("~/"~/)", "\"" + home + "/\"" + home + "/"}};
  for (const auto& [text, expanded] : kTexts) EXPECT_EQ(DealWithMacHomeDir(text), expanded);
}

TEST(Users, AddressesAreReducedToTheirOrigin) {
  const struct {
    const char *address, *origin;
  } kAddresses[] = {{"", ""},
                    {"NULL", "NULL"},
                    {"null", "null"},
                    {"http:", ""},
                    {"ftp://host/x", ""},
                    {"https://Host.Example:8443/path?q=1", "https://Host.Example:8443"},
                    {"HTTP://host", "HTTP://host"},
                    {"https://b\xC3\xBC"
                     "cher.example:1/x",
                     "https://xn--bcher-kva.example:1"},
                    {"https://[::1]:18626/", "https://[::1]:18626"},
                    {"https://\xFF/x", ""},
                    {"http://a:b@b\xC3\xBC.de/", ""}};
  for (const auto& [address, origin] : kAddresses) {
    EXPECT_EQ(GetFullDomain(address), origin) << address;
  }
}

TEST(Users, CertificatesAreChosenByHost) {
  InitProgramInfo();
  const auto named = [](const char* host) {
    std::string cert = "old";
    std::string key = "old";
    GetCertName(host, cert, key);
    return cert + "|" + key;
  };
  const std::string own = "server.pem.lqvc|server_key.pem.lqvc";
  EXPECT_EQ(named("127.0.0.1"), own);
  EXPECT_EQ(named("scan.products.example"), "|");
  Spit(GetInitFile(),
       "[QV]\nLoopbackHost=Local.Example\nProductDomain=.products.example\n"
       "[local.example]\nkey_name=mine.key\n");
  EXPECT_EQ(named("local.EXAMPLE"), "|mine.key") << "a configured pair wins";
  EXPECT_EQ(named("scan.products.example"), own);
  EXPECT_EQ(named("127.0.0.1"), "|");
}

TEST(Users, GetTheScanningProcessStarted) {
  const TempFolder temp;
  Spit(temp / "scanner", "#!/bin/sh\nprintf '%s|' \"$@\" > \"$6\"\n");
  ASSERT_EQ(::chmod((temp / "scanner").c_str(), 0755), 0);
  EXPECT_EQ(CreateProcessAsCurrentLogonUser((temp / "scanner").c_str(), "a b", nullptr, nullptr, 0,
                                            0, (temp / "out").c_str(), nullptr),
            1);
  ASSERT_GT(::wait(nullptr), 0);
  EXPECT_EQ(Slurp(temp / "out"), "scan|a b|1|1|0|" + (temp / "out") + "|");
  EXPECT_EQ(CreateProcessAsCurrentLogonUser((temp / "missing").c_str(), "", nullptr, nullptr, 0, 0,
                                            "", nullptr),
            0);
}

TEST(Users, NameTheScanningProgram) {
  InitProgramInfo();
  Spit(GetInitFile(), "[QV]\nscan1=own\n");
  EXPECT_EQ(GetScanModuleName(5), "QVSCN2x64.exe");
  EXPECT_EQ(GetScanModuleName(0), "QVSCN2.exe");
  EXPECT_EQ(GetScanModuleName(1), "own");
}

}  // namespace
