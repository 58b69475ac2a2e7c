#include "frame/virtual_manager_client.h"

#include "environment/logging.h"
#include "support/host_double.h"
#include "support/testing.h"

namespace {

constinit std::atomic<std::time_t> g_now{0};

std::time_t FakeTime(std::time_t*) { return g_now; }

/// What a client told while its command's reply was delivered.
struct Asking {
  VirtualManagerClient* client;
  int timeout;
  static signed char Take(int, void* self, const char*, const void*, unsigned int, const char*) {
    auto* asking = static_cast<Asking*>(self);
    asking->timeout = asking->client->GetWaitTimeout();
    return 1;
  }
};

TEST(VirtualManagerClient, IsBusyWhileACommandRunsAndThirtySecondsAfterIt) {
  InitProgramInfo();
  g_now = 1000;
  VirtualManagerClient client(&FakeTime);
  EXPECT_EQ(client.GetWaitTimeout(), 1) << "a fresh one";
  client.ResetTimeout();
  g_now = 2000;
  EXPECT_EQ(client.GetWaitTimeout(), 100);
  Asking asking{&client, 0};
  client.DistributeHttpCommand(3, &asking, "/qtp/", R"({"id":"1","method":"GetLocalIP"})", 0,
                               &Asking::Take, 0, "", nullptr, 0, nullptr, nullptr, nullptr);
  EXPECT_EQ(asking.timeout, 1) << "however long the last command is ago";
  for (const auto& [seconds, timeout] : {std::pair{0, 1}, {30, 1}, {31, 100}, {-500, 1}}) {
    g_now = 2000 + seconds;
    EXPECT_EQ(client.GetWaitTimeout(), timeout) << seconds;
  }
}

TEST(VirtualManagerClient, LogsAtMostTwoKibibytesOfATextAndNoForgedLine) {
  InitProgramInfo();
  SetFullLogging(true);
  VirtualManagerClient client(&FakeTime);
  HostDouble host;
  const std::string method = "x\\u000aforged " + std::string(50'000, 'y');
  const std::string command = "{\"id\":\"1\",\n\"method\":\"" + method + "\"}";
  client.DistributeHttpCommand(3, &host, "/qtp/", command, 1, &HostDouble::Take, 0, "", nullptr, 0,
                               nullptr, nullptr, nullptr);
  const auto log = [] { return Slurp(GetLogFile()); };
  EXPECT_TRUE(WaitUntil([&] { return log().find("4. Command send back") != std::string::npos; }));
  SetFullLogging(false);
  const std::string masked = "{\"id\":\"1\",?\"method\":\"x";
  EXPECT_NE(log().find("]: Receive Command: " + masked), std::string::npos);
  EXPECT_NE(log().find("]: cmd = [" + masked), std::string::npos);
  EXPECT_NE(log().find("]: Invalid function name: x?forged y"), std::string::npos);
  const std::string before = log().substr(0, log().find("]: result json = "));
  EXPECT_EQ(before.find(std::string(2049, 'y')), std::string::npos);
}

TEST(VirtualManagerClient, HandsAPayloadOnOnlyWhereThePathTakesOne) {
  InitProgramInfo();
  VirtualManagerClient client(&FakeTime);
  const std::string zip = "some bytes, PK\5\6" + std::string(18, '\0');  // of nothing
  const std::string command = R"({"method":"LoadZipFromBytes","parameter":[0,""]})";
  for (const auto& [path, text, body, arrives] : Table<const char*, std::string, std::string, bool>{
           {"/LoadZipFromBytes?type=0&", "", zip, true},
           {"/LoadZipFromBytes?type=0&", "", "no zip", false},
           {"/qtp/", command, zip, false},
           {"/qtp/", command + "\r\n\r\n" + zip, "", true},
           {"/qtp/", command + "\r\n\r\n", zip, false}}) {
    HostDouble host;
    auto payload = std::make_unique<unsigned char[]>(body.size());
    std::copy(body.begin(), body.end(), payload.get());
    EXPECT_EQ(client.DistributeHttpCommand(3, &host, path, text, 1, &HostDouble::Take, 0, "",
                                           std::move(payload), static_cast<long>(body.size()),
                                           nullptr, nullptr, nullptr),
              1);
    ASSERT_EQ(host.sent.size(), 1u);
    EXPECT_EQ(host.sent[0].text.find("holds no files") != std::string::npos, arrives)
        << path << host.sent[0].text;
  }
}

}  // namespace
