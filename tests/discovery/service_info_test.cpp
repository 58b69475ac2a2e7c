#include "discovery/service_info.h"

#include "support/testing.h"

namespace {

using namespace std::string_literals;
using mdns_wrapper::Deserialize;
using mdns_wrapper::DNSServiceInfo;
using mdns_wrapper::Serialize;
using mdns_wrapper::ServiceList;

DNSServiceInfo Sample() {
  return {.type = 2,
          .ipv4 = "4",
          .ipv6 = "::6",
          .url = "u",
          .ty = "name",
          .tags = "t\0g"s,
          .id = "",
          .modules = "m",
          .os = "o",
          .accessMode = -2,
          .txtvers = "1.0"};
}

const std::string kSampleBytes =
    "\4\0\0\0name"
    "\xfe\xff\xff\xff"
    "\1\0\0\0004"
    "\3\0\0\0::6"
    "\1\0\0\0m"
    "\1\0\0\0o"
    "\3\0\0\0t\0g"
    "\2\0\0\0"
    "\1\0\0\0u"
    "\0\0\0\0"
    "\3\0\0\0001.0"s;
const std::string kBlankBytes(44, '\0');

TEST(ServiceList, HasItsExactBytes) {
  EXPECT_EQ(Serialize({}), "\0\0\0\0"s);
  const ServiceList services{Sample(), DNSServiceInfo(), Sample()};
  const std::string bytes = "\3\0\0\0"s + kSampleBytes + kBlankBytes + kSampleBytes;
  EXPECT_EQ(Serialize(services), bytes);
  EXPECT_EQ(Deserialize(bytes), services);
}

TEST(ServiceList, ATruncatedListKeepsItsCountAndItsWholeRecords) {
  const ServiceList services{Sample(), Sample()};
  const std::string bytes = Serialize(services);
  for (std::size_t length = 4; length < bytes.size(); ++length) {
    const ServiceList read = Deserialize(bytes.substr(0, length));
    ASSERT_EQ(read.size(), 2U) << length;
    EXPECT_EQ(read[0] == Sample(), length >= 4 + kSampleBytes.size()) << length;
    EXPECT_EQ(read[1].txtvers, "") << length;
  }
}

TEST(ServiceList, BelievesALargeCountOnlyWithTheBytesForIt) {
  for (const auto& [count, records, read] : Table<std::uint32_t, std::size_t, std::size_t>{
           {1024, 0, 1024}, {1025, 0, 0}, {1025, 1024, 0}, {1025, 1025, 1025}, {65536, 2, 0}}) {
    std::string bytes(4, '\0');
    for (int i = 0; i < 4; ++i) bytes[i] = static_cast<char>(count >> (8 * i));
    for (std::size_t i = 0; i < records; ++i) bytes += kBlankBytes;
    EXPECT_EQ(Deserialize(bytes).size(), read) << count << " with " << records;
    if (read > 1024) {
      EXPECT_TRUE(Deserialize(bytes.substr(0, bytes.size() - 1)).empty());
    }
  }
}

TEST(ServiceList, RefusesCountsAndLengthsThatLie) {
  for (const std::string& count : {"\1\0\1\0"s, "\xff\xff\xff\x7f"s, "\xff\xff\xff\xff"s}) {
    EXPECT_TRUE(Deserialize(count + kSampleBytes).empty()) << testing::PrintToString(count);
  }
  for (const std::string& length : {"\xff\xff\xff\xff"s, "\xff\xff\xff\x7f"s, "\x29\0\0\0"s}) {
    EXPECT_EQ(Deserialize("\1\0\0\0"s + length + kBlankBytes.substr(4)), ServiceList(1));
  }
  ServiceList most(mdns_wrapper::MOST_SERVICES);
  const std::string bytes = Serialize(most);
  EXPECT_EQ(bytes.size(), 4 + 44 * most.size());
  EXPECT_EQ(Deserialize(bytes), most);
  most.emplace_back();
  EXPECT_EQ(Serialize(most), "") << "no reader takes it";
}

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
