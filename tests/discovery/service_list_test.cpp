#include "discovery/service_list.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include "util/mem_buffer.h"

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
  const struct {
    ServiceList services;
    std::string bytes;
  } kLists[] = {
      {{}, "\0\0\0\0"s},
      {{DNSServiceInfo()}, "\1\0\0\0"s + kBlankBytes},
      {{Sample(), DNSServiceInfo(), Sample()},
       "\3\0\0\0"s + kSampleBytes + kBlankBytes + kSampleBytes},
  };
  for (const auto& [services, bytes] : kLists) {
    EXPECT_EQ(Serialize(services), bytes);
    EXPECT_EQ(Deserialize(bytes), services);
    EXPECT_EQ(Deserialize(bytes + "more"), services);
    for (std::size_t length = 0; length < bytes.size(); ++length) {
      EXPECT_EQ(Deserialize(bytes.substr(0, length)), ServiceList()) << length;
    }
  }
}

TEST(ServiceList, RefusesCountsAndLengthsThatLie) {
  for (const std::string& bytes : {
           "\1\0\1\0"s + kSampleBytes,          // 65,537
           "\xff\xff\xff\x7f"s + kSampleBytes,  // the largest
           "\xff\xff\xff\xff"s + kSampleBytes,  // -1
           "\0\0\0\0"s + kSampleBytes,
           "\2\0\0\0"s + kSampleBytes + "\xff\xff\xff\xff"s + kBlankBytes,
           "\1\0\0\0"s + "\x29\0\0\0"s + kBlankBytes.substr(4),
       }) {
    EXPECT_TRUE(Deserialize(bytes).empty()) << testing::PrintToString(bytes.substr(0, 4));
  }
  ServiceList most(mdns_wrapper::MOST_SERVICES);
  const std::string bytes = Serialize(most);
  EXPECT_EQ(bytes.size(), 4 + 44 * most.size());
  EXPECT_EQ(Deserialize(bytes), most);
  most.emplace_back();
  EXPECT_EQ(Serialize(most), "") << "no reader takes it";
  EXPECT_TRUE(Deserialize("\1\0\1\0"s + bytes.substr(4) + kBlankBytes).empty());
}

long PeakKilobytes() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

TEST(ServiceList, TakesNoMemoryForACountAlone) {
  // In a process of its own, whose peak is what it has now.
  const auto growth = [] {
    const long before = PeakKilobytes();
    const bool refused = Deserialize("\0\0\1\0"s + kBlankBytes).empty();
    ::_exit(refused && PeakKilobytes() - before < 8 * 1024 ? 0 : 1);
  };
  EXPECT_EXIT(growth(), testing::ExitedWithCode(0), "");
}

TEST(ServiceList, GrowsBeyondTheFirstBlock) {
  ServiceList services{Sample()};
  services[0].ty.assign(3 << 20, 'x');
  EXPECT_EQ(Deserialize(Serialize(services)), services);
}

TEST(ServiceList, ReadsOneString) {
  CMemBuffer stream(64);
  stream.WriteString("a\0b", 3);
  stream.WriteString("");
  stream.Write("\x7f\0\0\0x", 5);
  stream.Seek(0, 0);
  EXPECT_EQ(mdns_wrapper::ReadString(stream), "a\0b"s);
  EXPECT_EQ(mdns_wrapper::ReadString(stream), "");
  EXPECT_EQ(stream.GetPosition(), 11u);
  EXPECT_EQ(mdns_wrapper::ReadString(stream), "");
  EXPECT_EQ(stream.GetPosition(), 11u);
}

}  // namespace
