#include "frame/virtual_manager_client.h"

#include "frame/host_double.h"
#include "support/testing.h"

namespace {

constinit std::atomic<std::time_t> g_now{1000};

std::time_t FakeTime(std::time_t*) { return g_now; }

class VirtualManagerClientTest : public ::testing::Test {
 protected:
  VirtualManagerClientTest() { InitProgramInfo(); }

  VirtualManagerClient client_{&FakeTime};
};

TEST_F(VirtualManagerClientTest, IsBusyForThirtySecondsAfterACommand) {
  EXPECT_EQ(client_.GetWaitTimeout(), 1);
  HostDouble host;
  client_.DistributeHttpCommand(3, &host, "/qtp/", "{}", 0, &HostDouble::Take, 0, "", nullptr, 0,
                                nullptr, nullptr, nullptr);
  const std::time_t end = g_now;
  for (const auto& [seconds, timeout] : {std::pair{0, 1}, {30, 1}, {31, 100}, {-500, 1}}) {
    g_now = end + seconds;
    EXPECT_EQ(client_.GetWaitTimeout(), timeout) << seconds;
  }
  g_now = end;
}

TEST_F(VirtualManagerClientTest, KeepsImagesOfOneSize) {
  std::vector<unsigned char> out(2052, 0xAA);
  unsigned int len = 0;
  const char* get = "/GetEncryptedImageMap?GUID=abc&x=1";
  const char* set = "/SetEncryptedImageMap?GUID=abc&x=1";
  for (const std::string& image : {std::string("0123456789"), std::string(5000, 'y')}) {
    EXPECT_EQ(client_.SetImage(set, image.data(), static_cast<unsigned int>(image.size())), 1);
    EXPECT_EQ(client_.GetImage(get, out.data(), &len), 1);
    std::string kept = image;
    kept.resize(2052);
    EXPECT_EQ(std::string(out.begin(), out.end()), kept);
  }
  EXPECT_EQ(len, 2052u);
  EXPECT_EQ(client_.GetImage("/GetEncryptedImageMap?GUID=abc", out.data(), &len), 0);
  EXPECT_EQ(client_.SetImage(set, nullptr, 0), 1);
  EXPECT_EQ(client_.GetImage(get, out.data(), &len), 0);
  for (const char* url : {"/other?GUID=abc", "/SetEncryptedImageMap?GUID=", "", "GUID"}) {
    EXPECT_EQ(client_.SetImage(url, "x", 1), 0) << url;
  }
}

}  // namespace
