#include "discovery/service_record.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

using mdns_wrapper::DNSServiceInfo;

/// From pairs such as "ty=Desk os=linux".
DNSServiceInfo FromTxt(const std::string& pairs) {
  std::map<std::string, std::string> txt;
  std::istringstream words(pairs);
  for (std::string word; words >> word;) {
    const std::size_t equals = word.find('=');
    txt[word.substr(0, equals)] = word.substr(equals + 1);
  }
  return mdns_wrapper::serviceInfoFromTxt("192.0.2.7", "2001:db8::7", txt);
}

TEST(ServiceRecord, TakesTheTextsAsTheyAre) {
  const DNSServiceInfo expected = {.type = mdns_wrapper::SERVICE_TWAIN_DIRECT,
                                   .ipv4 = "192.0.2.7",
                                   .ipv6 = "2001:db8::7",
                                   .url = "https://x/",
                                   .ty = "Desk",
                                   .tags = "A,b",
                                   .id = "x",
                                   .modules = "hvn",
                                   .os = "linux",
                                   .accessMode = mdns_wrapper::ACCESS_PASSWORD,
                                   .txtvers = "1.0"};
  EXPECT_EQ(FromTxt("ty=Desk TAGS=A,b id=x modules=hvn os=linux url=https://x/ txtvers=1.0 note=? "
                    "=? type=TwainDirect acessmode=PASSWORD_PROETECT"),
            expected);
}

TEST(ServiceRecord, TellsKindsAndAccess) {
  const struct {
    const char* pairs;
    int type, accessMode;
    const char *url, *txtvers;
  } kRecords[] = {
      {"type=MARVIQUE_Private_cloud_scan url=u txtvers=1", 2, 0, "u", "1"},
      {"type=printer url=u txtvers=1", 0, 0, "", ""},
      {"TYPE=printer acessmode=password_proetect", 0, 0, "", ""},
      {"URL=u TXTVERS=1 type=", 0, 0, "", ""},
      {"URL=first url=u", 0, 0, "u", ""},
      {"AcessMode=password_proetect acessmode=", 0, 1, "", ""},
      {"AcessMode=password_proetect acessmode=Anonymous", 0, 0, "", ""},
  };
  for (const auto& [pairs, type, accessMode, url, txtvers] : kRecords) {
    const DNSServiceInfo info = FromTxt(pairs);
    EXPECT_EQ(info.type, type) << pairs;
    EXPECT_EQ(info.accessMode, accessMode) << pairs;
    EXPECT_EQ(info.url, url) << pairs;
    EXPECT_EQ(info.txtvers, txtvers) << pairs;
  }
}

}  // namespace
