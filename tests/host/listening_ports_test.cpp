// The ports that the service listens on, and what of them is stored.
#include "host/listening_ports.h"

#include <boost/asio/ssl/context.hpp>

#include "environment/paths.h"
#include "environment/ports.h"
#include "environment/program_information.h"
#include "support/testing.h"

namespace {

struct NoCommands : host::CommandHandler {
  std::string_view path() const override { return "/qtp/"; }
  bool IsQuick(const host::IncomingCommand&) const override { return false; }
  void Run(const host::IncomingCommand&) override {}
  void Answered() override {}
  void Closed(int) override {}
};

class ListeningPorts : public ::testing::Test {
 protected:
  ListeningPorts() {
    InitProgramInfo();
    Spit(GetInitFile(), "");
  }
  void Store(int plain, int secure) { SetServer("", {{"qtp", plain, secure}}); }
  std::vector<int> Stored() { return {GetNoSSLPort("qtp", false), GetSSLPort("qtp", false)}; }

  host::Connections connections_;
  host::Door door_{[] { return host::OriginLists{}; }};
  NoCommands handler_;
  host::Accounts accounts_{[] { return host::Accounts::Settings(); }};
  host::Server server_{{{}, door_, accounts_, connections_, [] { return nullptr; }, "", {}}};
  host::ListeningPorts ports_{server_, door_};
};

TEST_F(ListeningPorts, StoresWhatACallOpenedUnlessTheSettingsChangedMeanwhile) {
  const std::string noCertificate = "none";
  ports_.Add("qtp", false, 0, 0, handler_);
  ports_.Add("qtp", true, 0, 0, handler_);
  ports_.Open(noCertificate);
  const int plain = ports_.Snapshot()[0].actual;
  EXPECT_EQ(Stored(), (std::vector{plain, 0})) << "the secure one is closed";
  // Looking again opens nothing: what a page has stored meanwhile for the next restart stays.
  Store(20001, 20002);
  ports_.Open(noCertificate);
  EXPECT_EQ(Stored(), (std::vector{20001, 20002}));
  ports_.Open("");
  EXPECT_NE(ports_.Snapshot()[1].actual, 0);
  EXPECT_EQ(Stored(), (std::vector{20001, 20002})) << "it opens the port that was requested before";
  Store(plain, 0);
  ports_.Reopen("");
  EXPECT_EQ(Stored(), (std::vector{plain, ports_.Snapshot()[1].actual}));
}

TEST_F(ListeningPorts, ARestartOnTheDefaultPortReplacesAStoredNumberThatIsNoPort) {
  const host::Server::Listening probe = server_.Open(0, false, handler_);
  server_.Close(probe.id);
  ports_.Add("qtp", false, std::nullopt, probe.port, handler_);
  ports_.Open("");
  for (const int nonsense : {70000, 0, -1}) {
    Store(nonsense, 0);
    ports_.Reopen("");
    EXPECT_EQ(Stored()[0], probe.port) << nonsense;
  }
}

}  // namespace
