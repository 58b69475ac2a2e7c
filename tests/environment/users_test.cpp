#include "environment/users.h"

#include "environment/configuration.h"
#include "environment/paths.h"
#include "environment/program_information.h"
#include "support/testing.h"

namespace {

TEST(Users, AddressesAreReducedToTheirOrigin) {
  for (const auto& [address, origin] : Table<const char*, const char*>{
           {"", ""},
           {"null", "null"},
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

}  // namespace
