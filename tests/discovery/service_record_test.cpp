#include "discovery/service_record.h"

#include "support/testing.h"

namespace {

using mdns_wrapper::DNSServiceInfo;

using Txt = std::map<std::string, std::string>;

TEST(ServiceRecord, TellsKindsAndAccess) {
  for (const auto& [txt, type, accessMode, url] : Table<Txt, int, int, std::string>{
           {{{"type", "MARVIQUE_Private_cloud_scan"}, {"url", "u"}}, 2, 0, "u"},
           {{{"type", "printer"}, {"url", "u"}, {"txtvers", "1"}}, 0, 0, ""},
           {{{"URL", "u"}, {"TXTVERS", "1"}, {"type", ""}}, 0, 0, ""},
           {{{"URL", "first"}, {"url", "u"}}, 0, 0, "u"},
           {{{"AcessMode", "password_proetect"}, {"acessmode", ""}}, 0, 1, ""},
           {{{"AcessMode", "password_proetect"}, {"acessmode", "Anonymous"}}, 0, 0, ""}}) {
    const DNSServiceInfo info = mdns_wrapper::serviceInfoFromTxt("", "", txt);
    EXPECT_EQ(std::tuple(info.type, info.accessMode, info.url), std::tuple(type, accessMode, url));
    EXPECT_EQ(info.txtvers, "");
  }
}

}  // namespace
