#include "frame/virtual_manager_client.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "environment/program_information.h"
#include "frame/host_double.h"

namespace {

constinit std::atomic<std::time_t> g_now{1000};

std::time_t FakeTime(std::time_t*) { return g_now; }

class VirtualManagerClientTest : public ::testing::Test {
 protected:
  VirtualManagerClientTest() { InitProgramInfo(); }

  int Run(const std::string& path, const std::string& text) {
    return client_.DistributeHttpCommand(3, &host_, path, text, 0, &HostDouble::Take, 0, "",
                                         nullptr, 0, nullptr, nullptr, nullptr);
  }

  HostDouble host_;
  VirtualManagerClient client_{&FakeTime};
};

TEST_F(VirtualManagerClientTest, IsBusyForThirtySecondsAfterACommand) {
  EXPECT_EQ(client_.GetWaitTimeout(), 1);
  Run("/qtp/", "{}");
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
  EXPECT_EQ(Run("/x/qtp/abc", "{}"), 9);
  EXPECT_EQ(host_.sent.at(0).text, "Invalid command");
  EXPECT_EQ(Run("/qtp/", ""), 9);
  EXPECT_EQ(host_.sent.at(1).text, "Invalid command");
  EXPECT_EQ(client_.DistributeCommand(nullptr), 0);
  EXPECT_EQ(Run("/qtp/", "no json"), 9);
  EXPECT_NE(host_.sent.at(2).text.find("-2205"), std::string::npos);
}

TEST_F(VirtualManagerClientTest, KeepsImagesOfOneSize) {
  std::vector<unsigned char> out(2052, 0xAA);
  unsigned int len = 0;
  const char* get = "/GetEncryptedImageMap?GUID=abc&x=1";
  EXPECT_EQ(client_.GetImage(get, out.data(), &len), 0);
  EXPECT_EQ(client_.SetImage("/SetEncryptedImageMap?GUID=abc&x=1", "0123456789", 10), 1);
  EXPECT_EQ(client_.GetImage("/GetEncryptedImageMap?GUID=abc", out.data(), &len), 0);
  EXPECT_EQ(client_.GetImage(get, nullptr, &len), 1);
  EXPECT_EQ(len, 2052u);
  EXPECT_EQ(client_.GetImage(get, out.data(), &len), 1);
  EXPECT_EQ(std::string(out.begin(), out.end()), "0123456789" + std::string(2042, '\0'));

  const std::string large(5000, 'y');
  EXPECT_EQ(client_.SetImage("/SetEncryptedImageMap?GUID=abc&x=1", large.data(), 5000), 1);
  EXPECT_EQ(client_.GetImage(get, out.data(), &len), 1);
  EXPECT_EQ(std::string(out.begin(), out.end()), std::string(2052, 'y'));
  EXPECT_EQ(client_.SetImage("/SetEncryptedImageMap?GUID=abc&x=1", nullptr, 0), 1);
  EXPECT_EQ(client_.SetImage("/SetEncryptedImageMap?GUID=never", nullptr, 0), 1);
  EXPECT_EQ(client_.GetImage(get, out.data(), &len), 0);
  for (const char* url : {"/other?GUID=abc", "/SetEncryptedImageMap?GUID=",
                          "/SetEncryptedImageMap?guid=abc", "", "GUID"}) {
    EXPECT_EQ(client_.SetImage(url, "x", 1), 0) << url;
  }
  EXPECT_EQ(VirtualManagerClient::GetGUID("GUID=1/p?", "/p?"), "1/p?");
  EXPECT_EQ(VirtualManagerClient::GetGUID("GUID=1", ""), "1");
}

TEST_F(VirtualManagerClientTest, KnowsListedFilesByTheirExactPath) {
  client_.AddFileToWhiteList("C:\\dir\\file.txt");
  EXPECT_TRUE(client_.FileIsInWhiteList("C:/dir/file.txt"));
  EXPECT_TRUE(client_.FileIsInWhiteList("C:\\dir/file.txt"));
  EXPECT_FALSE(client_.FileIsInWhiteList("c:/dir/file.txt"));
  EXPECT_FALSE(client_.FileIsInWhiteList("C:/dir//file.txt"));
}

TEST_F(VirtualManagerClientTest, ServesManyThreads) {
  std::vector<std::jthread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([this, t] {
      HostDouble host;
      const std::string guid = "GUID=" + std::to_string(t % 2);
      unsigned char image[2052];
      unsigned int len = 0;
      for (int i = 0; i < 50; ++i) {
        client_.SetImage(("/SetEncryptedImageMap?" + guid).c_str(), "x", 1);
        client_.GetImage(("/GetEncryptedImageMap?" + guid).c_str(), image, &len);
        client_.AddFileToWhiteList(guid.c_str());
        client_.FileIsInWhiteList("/x");
        client_.DistributeHttpCommand(1, &host, "/qtp/", R"({"method":"GetServerInfo"})", 1,
                                      &HostDouble::Take, 0, "", nullptr, 0, nullptr, nullptr,
                                      nullptr);
        client_.GetWaitTimeout();
        if (t == 0) VirtualManagerClient::DeleteInstance();
      }
      EXPECT_EQ(host.sent.size(), 50u);
    });
  }
}

}  // namespace
