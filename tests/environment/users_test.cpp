#include "environment/users.h"

#include <sys/wait.h>
#include <unistd.h>

#include "environment/configuration.h"
#include "environment/logging.h"
#include "environment/paths.h"
#include "environment/program_information.h"
#include "os/system.h"
#include "support/testing.h"

namespace {

TEST(Users, AddressesAreReducedToTheirOrigin) {
  for (const auto& [address, origin] : Table<const char*, const char*>{
           {"", ""},
           {"null", "null"},
           {"NULL", "NULL"},
           {"http:/", ""},
           {"http://a", "http://a"},
           {"ftp://host/x", ""},
           {"https://Host.Example:8443/path?q=1", "https://Host.Example:8443"},
           {"https://b\xC3\xBC.de:1/x", "https://xn--b-eha.de:1"},
           {"https://[::1]:18626/", "https://[::1]:18626"},
           {"https://\xFF/x", ""},
           {"http://a:b@b\xC3\xBC.de/", ""}}) {
    EXPECT_EQ(GetFullDomain(address), origin) << address;
  }
}

TEST(Users, CertificatesAreChosenByHost) {
  InitProgramInfo();
  Spit(GetInitFile(), "");
  const auto named = [](const char* host) {
    std::string cert = "old", key = "old";
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

TEST(Users, HomeFoldersArePutInBehindQuotesAndCommas) {
  const std::string home = os::HomeFolder() + "/";
  for (const auto& [text, expanded] : Table<const char*, std::string>{
           {"~/a", "~/a"},
           {R"({"a":"~/b"})", R"({"a":")" + home + R"(b"})"},
           {R"("~/~/",~/,~/x~/)", "\"" + home + "~/\"," + home + "," + home + "x~/"},
           {R"(" ~/", ~/)", R"(" ~/", ~/)"},
           {R"("~x",~)", R"("~x",~)"}}) {
    EXPECT_EQ(DealWithMacHomeDir(text), expanded);
  }
}

TEST(Users, AreKnownByNameAndHaveNoTokensOnThisSystem) {
  uid_t uid = 7;
  gid_t gid = 7;
  EXPECT_EQ(name_to_uid("root", &uid, &gid), 0);
  EXPECT_TRUE(uid == 0 && gid == 0);
  EXPECT_EQ(name_to_uid(GetCurrentUserName(5).c_str(), &uid, &gid), 0);
  EXPECT_EQ(uid, ::geteuid());
  EXPECT_EQ(name_to_uid("no such user", &uid, &gid) + name_to_uid(nullptr, &uid, &gid) +
                name_to_uid("root", nullptr, &gid) + name_to_uid("root", &uid, nullptr),
            -4);
  std::string name = "x";
  int session = 7, process = 7;
  GetUserInfo(1, name, session, process);
  EXPECT_EQ(name + GetUserSID(1), "");
  EXPECT_EQ(session + process + GetConnectionProcessID(1) + GetProcessSessionID(1), 0);
  EXPECT_EQ(GetClientConnectionSessionID(1, &session), 0);
  EXPECT_EQ(GetCurrentUserToken(nullptr, 1), -1);
}

TEST(Users, GetTheirScanningProgram) {
  InitProgramInfo();
  Spit(GetInitFile(), "[QV]\nscan3=own.exe\n");
  for (const auto& [index, name] : Table<int, const char*>{
           {5, "QVSCN2x64.exe"}, {0, "QVSCN2.exe"}, {-1, "QVSCN2.exe"}, {3, "own.exe"}}) {
    EXPECT_EQ(GetScanModuleName(index), name);
  }
  const TempFolder folder;
  const std::string told = folder / "told";
  const std::string program = folder / "program";
  Spit(program, "#!/bin/sh\nprintf '%s|' \"$@\" >'" + told + ".tmp'\nmv '" + told + ".tmp' '" +
                    told + "'\n");
  const auto start = [](const char* file, const char* text, const char* extra) {
    return CreateProcessAsCurrentLogonUser(file, text, nullptr, nullptr, 0, 0, extra, nullptr);
  };
  EXPECT_EQ(start(program.c_str(), "a b", "extra"), 0) << "no program";
  EXPECT_EQ(start(nullptr, nullptr, nullptr), 0);
  fs::permissions(program, fs::perms::owner_all);
  for (const char* full : {"0", "1"}) {
    fs::remove(told);
    SetFullLogging(full[0] == '1');
    EXPECT_EQ(start(program.c_str(), "a b", "extra"), 1);
    EXPECT_TRUE(WaitUntil([&] { return fs::exists(told); }));
    EXPECT_EQ(Slurp(told), std::string("scan|a b|1|1|") + full + "|extra|");
  }
  SetFullLogging(false);
  EXPECT_EQ(start("true", nullptr, nullptr), 1);
  while (::wait(nullptr) > 0) continue;
}

}  // namespace
