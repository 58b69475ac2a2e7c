// Texts from and to the wire, the way of replies, and the services that modules ask for.
#include <semaphore>

#include "host/host_services.h"
#include "host/http/connections.h"
#include "host/http/wire_text.h"
#include "support/testing.h"

namespace {

TEST(WireText, OnlyValidUtf8LeavesTheService) {
  const std::string mark = "\xEF\xBF\xBD";
  for (const auto& [given, sent] : Table<std::string, std::string>{
           {"", ""},
           {"h\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80", "h\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80"},
           {"a\xFFz", "a" + mark + "z"},
           {"\xE2\x82", mark + mark},
           {"x\xC0\xAFy", "x" + mark + mark + "y"},                 // overlong
           {"\xED\xA0\x80", mark + mark + mark},                    // surrogate
           {"\xF4\x90\x80\x80.", mark + mark + mark + mark + "."},  // beyond the last character
           {"\xF0\x9F\x98\x80\x80", "\xF0\x9F\x98\x80" + mark},
       })
    EXPECT_EQ(host::ToValidUtf8(given), sent);
}

TEST(Replies, GoToTheConnectionThatIsStillThere) {
  host::ByteBudget budget(0);  // small replies need none
  host::Connections connections;
  auto first = std::make_shared<host::FirstReply>(budget);
  auto second = std::make_shared<host::FirstReply>(budget);
  const int one = connections.Add(first), two = connections.Add(second);
  EXPECT_TRUE(connections.Deliver(one, {"a", ""}));
  EXPECT_FALSE(connections.Deliver(one, {"b", ""})) << "a request has room for one reply";
  EXPECT_EQ(first->Take()->text, "a");
  second.reset();
  EXPECT_FALSE(connections.Deliver(two, {"x", ""})) << "its client is gone";
}

TEST(Replies, WakeARestingWriterOnceAndOverflowIsTold) {
  int woken = 0;
  host::ByteBudget budget(0);
  host::Outbox outbox(10, budget, [&woken] { ++woken; });
  EXPECT_TRUE(outbox.Deliver({"1234", "56"}) && outbox.Deliver({"7", ""}));
  EXPECT_EQ(woken, 1);
  EXPECT_EQ(outbox.Next()->bytes, "1234");
  EXPECT_TRUE(outbox.Next()->binary);
  EXPECT_EQ(outbox.Next()->bytes, "7");
  EXPECT_FALSE(outbox.Next());
  EXPECT_TRUE(outbox.Deliver({"1234567890", ""}));
  EXPECT_EQ(woken, 2);
  EXPECT_FALSE(outbox.Deliver({"x", ""}));
  EXPECT_TRUE(outbox.overflowed() && !outbox.Next()) << "what waited is dropped with it";
}

TEST(Replies, OfAllConnectionsHaveOneBudget) {
  constexpr std::size_t kBytes = 100'000;
  host::ByteBudget budget(2 * kBytes);
  const auto fits = [&budget] {
    host::FirstReply reply(budget);
    const bool isTaken = reply.Deliver({std::string(kBytes, 'x'), ""});
    EXPECT_NE(isTaken, reply.overflowed());
    return isTaken;
  };
  auto full = std::make_unique<host::Outbox>(1 << 20, budget, [] {});
  EXPECT_TRUE(full->Deliver({std::string(kBytes, 'a'), ""}));
  auto kept = std::make_unique<host::FirstReply>(budget);
  EXPECT_TRUE(kept->Deliver({"", std::string(kBytes, 'b')}));
  EXPECT_FALSE(fits());
  kept->Take();
  EXPECT_FALSE(fits()) << "its text is being sent";
  kept.reset();
  EXPECT_TRUE(fits());
  EXPECT_TRUE(full->Deliver({std::string(kBytes, 'a'), ""}));
  EXPECT_FALSE(full->Deliver({"a", ""})) << "beyond what is free for each";
  EXPECT_TRUE(full->overflowed() && fits()) << "what waited is dropped with it";

  full = std::make_unique<host::Outbox>(1 << 20, budget, [] {});
  EXPECT_TRUE(full->Deliver({std::string(kBytes, 'a'), std::string(kBytes, 'b')}));
  EXPECT_TRUE(full->Next());
  EXPECT_FALSE(fits()) << "the first is being written";
  EXPECT_TRUE(full->Next());
  EXPECT_TRUE(fits());
  full.reset();
  EXPECT_TRUE(budget.Take(2 * kBytes)) << "all was given back";
}

TEST(Replies, ArriveFromManyThreadsOnceEach) {
  constexpr int kThreads = 4, kEach = 500;
  std::counting_semaphore<> woken(0);
  host::ByteBudget budget(0);
  host::Outbox outbox(1 << 20, budget, [&woken] { woken.release(); });
  std::vector<std::jthread> modules;
  for (int t = 0; t < kThreads; ++t) {
    modules.emplace_back([&] {
      for (int i = 0; i < kEach; ++i) outbox.Deliver({"x", ""});
    });
  }
  for (int received = 0; received < kThreads * kEach;) {
    ASSERT_TRUE(woken.try_acquire_for(std::chrono::seconds(30))) << received;
    while (outbox.Next()) ++received;
  }
}

TEST(HostServices, GiveOneAnswerInBothCallsAndNeverBeyondTheBuffer) {
  const TempFolder folder;
  const std::string file = folder / "program";
  host::Discovery discovery(mdns_wrapper::mDNSService::getInstance(),
                            mdns_wrapper::mDNSQueryService::getInstance());
  host::HostServices services(discovery);
  services.SetFiles({{file, "1"}, {"/no/such/file", "3"}});
  const auto ask = [&services](char* out, unsigned int* length) {
    return services.Get(nullptr, nullptr, "getBinaryFileInfo", out, length);
  };
  Spit(file, "short");
  for (const char* size : {R"("size":5)", R"("size":4000)"}) {
    unsigned int length = 0;
    ASSERT_EQ(ask(nullptr, &length), 0);
    Spit(file, Times(1000, "long"));  // between the two calls
    std::string info(length, '\0');
    ASSERT_EQ(ask(info.data(), &length), 0);
    EXPECT_TRUE(info.starts_with(R"([{"date":")") && info.ends_with("}]")) << info;
    EXPECT_NE(info.find(size), info.npos) << info;
  }
  std::string small(4, '#');
  unsigned int length = 3;
  EXPECT_EQ(ask(small.data(), &length), 0);
  EXPECT_TRUE(length == 3 && small[3] == '#');
  EXPECT_EQ(services.Get(nullptr, nullptr, "nonsense", nullptr, nullptr), -1);
}

}  // namespace
