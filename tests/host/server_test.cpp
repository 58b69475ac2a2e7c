// The server with a handler of the test's own: which thread runs what, and in which order.
#include "host/http/server.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
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
  void Get(const std::string& path) { Send("GET " + path + head_ + "\r\n"); }
  void Post(const std::string& text) {
    Send("POST /x" + head_ + "Content-Length: " + std::to_string(text.size()) + "\r\n\r\n" + text);
  }
  void Upgrade() {
    Send("GET /" + head_ +
         "Upgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Version: 13\r\n"
         "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n\r\n");
  }
  /// A text of less than 126 bytes, masked with zeros.
  void Message(const std::string& text) {
    Send("\x81" + std::string(1, static_cast<char>(0x80 | text.size())) + std::string(4, '\0') +
         text);
  }
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
  ServerTest() : port_(server_.Open(0, false, handler_).port) {}
  ~ServerTest() override {
    handler_.LetGo();
    server_.RefuseCommands();
    EXPECT_TRUE(server_.WaitForCommands(kPatience));
    server_.CloseConnections();
  }

  host::Connections connections_;
  host::Door door_{[] { return host::OriginLists(); }};
  Handler handler_{connections_};
  host::Accounts accounts_{[] { return host::Accounts::Settings(); }};
  host::Server server_{
      {{}, door_, accounts_, connections_, [] { return nullptr; }, {{"/page", [] {
                                                                       return std::string(
                                                                           "{\"page\":1}");
                                                                     }}}}};
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
