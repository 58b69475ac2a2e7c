#include "frame/virtual_manager_client.h"

#include <gtest/gtest.h>

#include <atomic>

#include "frame/host_double.h"

namespace {

constinit std::atomic<std::time_t> g_now{1000};

std::time_t FakeTime(std::time_t*) { return g_now; }

class VirtualManagerClientTest : public ::testing::Test {
 protected:
  VirtualManagerClientTest() { InitProgramInfo(); }

  int Run(HostDouble& host, const std::string& path, const std::string& text) {
    return client_.DistributeHttpCommand(3, &host, path, text, 0, &HostDouble::Take, 0, "", nullptr,
                                         0, nullptr, nullptr, nullptr);
  }

  HostDouble host_;
  VirtualManagerClient client_{&FakeTime};
};

TEST_F(VirtualManagerClientTest, IsBusyForThirtySecondsAfterACommand) {
  EXPECT_EQ(client_.GetWaitTimeout(), 1);
  Run(host_, "/qtp/", "{}");
  const struct { int seconds, timeout; } kTimes[] = {{0, 1}, {30, 1}, {31, 100}, {-500, 1}};
  const std::time_t end = g_now;
  for (const auto& [seconds, timeout] : kTimes) {
    g_now = end + seconds;
    EXPECT_EQ(client_.GetWaitTimeout(), timeout) << seconds;
  }
  g_now = end;
}

TEST_F(VirtualManagerClientTest, AnswersWhatIsNoCommand) {
  host_.result = 9;
  EXPECT_EQ(Run(host_, "/qtp/", ""), 9);
  EXPECT_EQ(host_.sent.at(0).text, "Invalid command");
  EXPECT_EQ(Run(host_, "/qtp/", "no json"), 9);
  EXPECT_NE(host_.sent.at(1).text.find("-2205"), std::string::npos);
}

TEST_F(VirtualManagerClientTest, KeepsImagesOfOneSize) {
  std::vector<unsigned char> out(2052, 0xAA);
  unsigned int len = 0;
  const char* get = "/GetEncryptedImageMap?GUID=abc&x=1";
  EXPECT_EQ(client_.GetImage(get, out.data(), &len), 0);
  EXPECT_EQ(client_.SetImage("/SetEncryptedImageMap?GUID=abc&x=1", "0123456789", 10), 1);
  EXPECT_EQ(client_.GetImage(get, nullptr, &len), 1);
  EXPECT_EQ(len, 2052u);
  EXPECT_EQ(client_.GetImage(get, out.data(), &len), 1);
  EXPECT_EQ(std::string(out.begin(), out.end()), "0123456789" + std::string(2042, '\0'));

  const std::string large(5000, 'y');
  EXPECT_EQ(client_.SetImage("/SetEncryptedImageMap?GUID=abc&x=1", large.data(), 5000), 1);
  EXPECT_EQ(client_.GetImage(get, out.data(), &len), 1);
  EXPECT_EQ(std::string(out.begin(), out.end()), std::string(2052, 'y'));
  EXPECT_EQ(client_.SetImage("/SetEncryptedImageMap?GUID=abc&x=1", nullptr, 0), 1);
  EXPECT_EQ(client_.GetImage(get, out.data(), &len), 0);
  for (const char* url : {"/other?GUID=abc", "/SetEncryptedImageMap?GUID=", "", "GUID"}) {
    EXPECT_EQ(client_.SetImage(url, "x", 1), 0) << url;
  }
}

}  // namespace
