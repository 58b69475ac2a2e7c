// The server with a handler of the test's own: which thread runs what, and in which order.
#include "host/http/server.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

#include "host/http/module_handler.h"
#include "support/testing.h"

namespace {

constexpr auto kPatience = std::chrono::seconds(60);

/// Answers each command by its text. What begins with "wait" is not quick and waits to be let go.
class Handler : public host::CommandHandler {
 public:
  explicit Handler(host::Connections& connections) : connections_(connections) {}
  std::string_view path() const override { return "/other/"; }
  bool IsQuick(const host::IncomingCommand& command) const override {
    return !command.text.starts_with("wait");
  }
  void Run(const host::IncomingCommand& command) override {
    if (!IsQuick(command)) {
      std::unique_lock lock(mutex_);
      ++waiting_;
      changed_.notify_all();
      changed_.wait_for(lock, kPatience, [this] { return open_; });
    }
    connections_.Deliver(command.connectionId, {command.text, ""});
  }
  void Answered() override {}
  void Closed(int) override {}

  bool WaitUntilSoManyWait(unsigned count) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, kPatience, [&] { return waiting_ >= count; });
  }
  void LetGo() {
    const std::lock_guard lock(mutex_);
    open_ = true;
    changed_.notify_all();
  }

 private:
  host::Connections& connections_;
  std::mutex mutex_;
  std::condition_variable changed_;
  unsigned waiting_ = 0;
  bool open_ = false;
};

class Client {
 public:
  explicit Client(int port) : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const timeval limit{kPatience.count(), 0};
    ::setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<in_port_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(::connect(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    head_ = " HTTP/1.1\r\nHost: localhost:" + std::to_string(port) + "\r\n";
  }
  ~Client() { ::close(socket_); }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  void Send(const std::string& bytes) {
    EXPECT_EQ(::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(bytes.size()));
  }
  /// What follows is sent in the name of a page.
  void SetOrigin(const std::string& origin) { head_ += "Origin: " + origin + "\r\n"; }
  void Get(const std::string& path) { Send("GET " + path + head_ + "\r\n"); }
  void Post(const std::string& text, std::size_t sent = std::string::npos) {
    Send("POST /x" + head_ + "Content-Length: " + std::to_string(text.size()) + "\r\n\r\n" +
         text.substr(0, sent));
  }
  void Upgrade(const std::string& path = "/") {
    Send("GET " + path + head_ +
         "Upgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Version: 13\r\n"
         "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n\r\n");
  }
  /// A text, masked with zeros.
  void Message(const std::string& text) {
    std::string size(1, static_cast<char>(0x80 | std::min<std::size_t>(text.size(), 127)));
    if (text.size() >= 126) {
      for (int shift = 56; shift >= 0; shift -= 8) size += static_cast<char>(text.size() >> shift);
    }
    Send("\x81" + size + std::string(4, '\0') + text);
  }
  /// Whether the other side ends the connection without a word.
  bool IsEnded() {
    char byte = 0;
    const ssize_t count = ::recv(socket_, &byte, 1, 0);
    return count == 0 || (count < 0 && errno == ECONNRESET);
  }
  /// The status of the reply that comes next and ends with a line feed.
  std::string Status() { return ReadUntil(".\n").substr(9, 3); }
  /// All that came up to `end`, which must come; what came behind it too is kept.
  std::string ReadUntil(const std::string& end) {
    while (received_.find(end) == received_.npos) {
      char bytes[4096];
      const ssize_t count = ::recv(socket_, bytes, sizeof bytes, 0);
      if (count <= 0) {
        ADD_FAILURE() << "waited in vain for " << end << " behind " << received_;
        return "";
      }
      received_.append(bytes, static_cast<std::size_t>(count));
    }
    const auto size = received_.find(end) + end.size();
    const std::string text = received_.substr(0, size);
    received_.erase(0, size);
    return text;
  }

 private:
  const int socket_;
  std::string head_;
  std::string received_;
};

class ServerTest : public ::testing::Test {
 protected:
  explicit ServerTest(const host::Limits& limits = {})
      : server_(
            {limits,
             door_,
             accounts_,
             connections_,
             [] { return nullptr; },
             folder_.path(),
             {{"/page", [] { return "{\"page\":1}"; }}, {"/health", [] { return "well.\n"; }}}}),
        port_(server_.Open(0, false, handler_).port) {}
  ~ServerTest() override {
    handler_.LetGo();
    server_.RefuseCommands();
    EXPECT_TRUE(server_.WaitForCommands(kPatience));
    server_.CloseConnections();
  }

  const TempFolder folder_;
  host::Connections connections_;
  host::Door door_{[] { return host::OriginLists{"", "", true}; }};
  Handler handler_{connections_};
  host::Accounts accounts_{[] { return host::Accounts::Settings(); }};
  host::Server server_;
  const int port_;
};

TEST_F(ServerTest, PagesAndQuickCommandsNeedNoWorker) {
  const unsigned workers = std::max(8u, 2 * std::thread::hardware_concurrency());
  std::vector<std::unique_ptr<Client>> waiting;
  for (unsigned i = 0; i < workers + 1; ++i) {
    waiting.push_back(std::make_unique<Client>(port_));
    waiting.back()->Post("wait" + std::to_string(i));
  }
  ASSERT_TRUE(handler_.WaitUntilSoManyWait(workers));
  // More than there are threads: none of them may be held up.
  for (int i = 0; i < 9; ++i) {
    Client client(port_);
    client.Get("/page?x");
    EXPECT_TRUE(client.ReadUntil("{\"page\":1}").starts_with("HTTP/1.1 200 OK\r\n"));
    client.Post("quick");
    EXPECT_TRUE(client.ReadUntil("\r\n\r\nquick").starts_with("HTTP/1.1 200 OK\r\n"));
  }
  handler_.LetGo();
  for (unsigned i = 0; i < waiting.size(); ++i) {
    waiting[i]->ReadUntil("\r\n\r\nwait" + std::to_string(i));
  }
}

TEST_F(ServerTest, AQuickCommandWaitsForTheOnesBeforeIt) {
  Client socket(port_);
  socket.Upgrade();
  EXPECT_TRUE(socket.ReadUntil("\r\n\r\n").starts_with("HTTP/1.1 101 "));
  for (const char* text : {"first", "wait a", "second", "wait b", "third"}) socket.Message(text);
  EXPECT_EQ(socket.ReadUntil("first"),
            "\x81\x05"
            "first");
  ASSERT_TRUE(handler_.WaitUntilSoManyWait(1));
  handler_.LetGo();
  EXPECT_EQ(socket.ReadUntil("third"), "\x81\x06wait a\x81\x06second\x81\x06wait b\x81\x05third");
}

TEST_F(ServerTest, APageThatIsNotThereIsToldTheWayOfThisPortsCommands) {
  Client client(port_);
  client.Get("/qtp/");
  const std::string reply = client.ReadUntil(".\n");
  EXPECT_TRUE(reply.starts_with("HTTP/1.1 404 "));
  EXPECT_NE(reply.find("Commands are sent by POST to /other/;"), reply.npos) << reply;
}

/// A server with few places.
class CrowdedServer : public ServerTest {
 protected:
  static constexpr int kMost = 8;
  static constexpr std::size_t kQueues = 1024 * 1024;
  CrowdedServer()
      : ServerTest({.connections = kMost, .reservedConnections = 2, .queueBytes = kQueues}) {}

  std::unique_ptr<Client> Connect(const std::string& origin = "") const {
    auto client = std::make_unique<Client>(port_);
    if (!origin.empty()) client->SetOrigin(origin);
    return client;
  }
  /// That it is let in has been seen.
  std::unique_ptr<Client> ConnectAndAsk(const std::string& origin = "") const {
    auto client = Connect(origin);
    client->Get("/health");
    EXPECT_EQ(client->Status(), "200");
    return client;
  }
};

TEST_F(CrowdedServer, TheOneIdleLongestGoesFirstOfThoseThatWereNotLetIn) {
  std::vector<std::unique_ptr<Client>> clients;
  clients.push_back(ConnectAndAsk());
  for (int i = 1; i < kMost; ++i) clients.push_back(Connect());
  ASSERT_TRUE(WaitUntil([this] { return server_.ConnectionCount() == kMost; }));
  for (int i = 1; i < kMost; ++i) clients.push_back(ConnectAndAsk());
  for (unsigned i = 1; i < kMost; ++i) EXPECT_TRUE(clients[i]->IsEnded()) << i;
  const auto last = ConnectAndAsk();
  EXPECT_TRUE(clients[0]->IsEnded()) << "all others were heard of later";
  for (unsigned i = kMost; i < clients.size(); ++i) {
    clients[i]->Post("still here.\n");
    EXPECT_EQ(clients[i]->Status(), "200") << i;
  }
}

TEST_F(CrowdedServer, WhileAllWorkThePlacesKeptFreeTellTheHealth) {
  std::vector<std::unique_ptr<Client>> working, silent;
  for (int i = 0; i < kMost; ++i) {
    working.push_back(Connect());
    working.back()->Post("wait.\n");
  }
  ASSERT_TRUE(handler_.WaitUntilSoManyWait(kMost));
  // Those that were ended for others take a moment to go.
  const auto settle = [this] {
    EXPECT_TRUE(WaitUntil([this] { return server_.ConnectionCount() <= kMost + 1; }));
  };
  for (int i = 0; i < 5; ++i) {
    settle();
    silent.push_back(Connect());
    Client client(port_);
    client.Get("/health?x");
    EXPECT_EQ(client.Status(), "200");
    EXPECT_TRUE(client.IsEnded());
  }
  const std::function<void(Client&)> others[] = {
      [](Client& client) { client.Get("/page"); },
      [](Client& client) { client.Post("quick.\n"); },
      [](Client& client) { client.Upgrade("/health"); },
  };
  for (const auto& ask : others) {
    settle();
    Client client(port_);
    ask(client);
    EXPECT_EQ(client.Status(), "503");
  }
  handler_.LetGo();
  for (const auto& client : working) EXPECT_EQ(client->Status(), "200");
}

TEST_F(CrowdedServer, OneOriginHasAQuarterOfTheConnections) {
  const auto first = ConnectAndAsk("https://a.example"),
             second = ConnectAndAsk("https://a.example");
  const auto third = Connect("https://a.example");
  third->Get("/health");
  EXPECT_EQ(third->Status(), "503");
  EXPECT_TRUE(third->IsEnded());
  ConnectAndAsk("https://b.example");
  std::vector<std::unique_ptr<Client>> own;
  for (int i = 0; i < 4; ++i) own.push_back(ConnectAndAsk());
  // A browser may use one connection for several pages, one after another.
  own[0]->SetOrigin("https://b.example");
  own[0]->Get("/health");
  EXPECT_EQ(own[0]->Status(), "200");
  own[1]->SetOrigin("https://a.example");
  own[1]->Get("/health");
  EXPECT_EQ(own[1]->Status(), "503");
}

TEST_F(CrowdedServer, AllTextsTogetherHaveOneBudget) {
  // One fits with its reply, and another one before it runs.
  std::string large(kQueues * 2 / 5, 'x');
  large += ".\n";
  const auto status = [&] {
    Client client(port_);
    client.Post(large);
    return client.Status();
  };
  {
    Client half(port_);
    half.Post(large, large.size() - 1);
    ASSERT_TRUE(WaitUntil([&] { return status() == "503"; })) << "until it has come";
    Client socket(port_);
    socket.Upgrade();
    socket.ReadUntil("\r\n\r\n");
    socket.Message("small");
    socket.ReadUntil("small");
    socket.Message(large + large);
    socket.ReadUntil("Too many texts and replies are waiting");
    Client small(port_);
    small.Post("small.\n");
    EXPECT_EQ(small.Status(), "200");
  }
  EXPECT_TRUE(WaitUntil([&] { return status() == "200"; }));
}

TEST_F(ServerTest, OneOriginHasAQuarterOfTheWorkers) {
  const unsigned workers = std::max(8u, 2 * std::thread::hardware_concurrency());
  std::vector<std::unique_ptr<Client>> pages, programs;
  for (unsigned i = 0; i < workers; ++i) {
    pages.push_back(std::make_unique<Client>(port_));
    pages.back()->SetOrigin("https://a.example");
    pages.back()->Post("wait.\n");
  }
  ASSERT_TRUE(handler_.WaitUntilSoManyWait(workers / 4));
  for (unsigned i = 0; i < workers - workers / 4; ++i) {
    programs.push_back(std::make_unique<Client>(port_));
    programs.back()->Post("wait.\n");
  }
  // Had a page's command more than its share, one of these would not run.
  ASSERT_TRUE(handler_.WaitUntilSoManyWait(workers));
  handler_.LetGo();
  for (const auto* clients : {&pages, &programs}) {
    for (const auto& client : *clients) EXPECT_EQ(client->Status(), "200");
  }
}

TEST(QuickCommands, AreThoseThatCanRunNothingElse) {
  const std::string shortOne = R"({"method":"GetLocalIP","parameter":[]})";
  EXPECT_TRUE(host::IsQuickCommand("/qtp/", shortOne));
  EXPECT_TRUE(host::IsQuickCommand("/qtp/x", "{\"id\":1,\n \"method\" :\t\"GetServerInfo\"}"));
  // What the module finds nothing in is answered as quickly.
  EXPECT_TRUE(host::IsQuickCommand("/qtp/", R"(/* "method":"GetLocalIP" */{})"));
  for (const auto& [path, text] : Table<std::string, std::string>{
           {"/elsewhere", shortOne},
           {"/qtp/LoadZipFromBytes?type=1&", shortOne},
           {"/qtp/CheckUpdateFile?qvver=1&", R"({"method":"CheckUpdateFile","parameter":["a",]})"},
           {"/qtp/", R"({"event":"Reboot","method":"GetLocalIP"})"},
           {"/qtp/", R"({"property":"Reboot","method":"GetLocalIP"})"},
           {"/qtp/", R"({"method":"GetLocalIP","method":"CheckUpdateFile"})"},
           {"/qtp/", R"({"method":"CheckUpdateFile","a":{"method":"GetLocalIP"}})"},
           {"/qtp/", R"({"method":"GetLocalIP","parameter":["~/x"]})"},
           {"/qtp/", R"({"method":)"},
           {"/qtp/", R"({"method":"GetLocalIP)"},
           {"/qtp/", R"({"method":"GetLocalIP","method":"CheckUpdate\u0046ile"})"},
           {"/qtp/", R"({"method":"GetBinaryFileInfo"})"},
           {"/qtp/", R"({"method":"Nope"})"},
           {"/qtp/", ""},
           {"/qtp/", shortOne + std::string(8192, ' ')},  // long to read, whatever it runs
       })
    EXPECT_FALSE(host::IsQuickCommand(path, text)) << path << " " << text;
}

}  // namespace
