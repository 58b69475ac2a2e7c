#include "host/service.h"

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <utility>

#include "environment/access_switches.h"
#include "environment/configuration.h"
#include "environment/paths.h"
#include "environment/program_information.h"
#include "host/complaint.h"
#include "host/discovery.h"
#include "host/health.h"
#include "host/module_handler.h"
#include "host/modules.h"
#include "host/own_process.h"
#include "host/tls_identity.h"
#include "platform/os.h"
#include "platform/program_words.h"
#include "updater/recovery.h"

namespace host {

namespace {

namespace net = boost::asio;

constexpr auto kCertificateCheck = std::chrono::hours(12);
/// A machine that changes networks is found at its new address this soon.
constexpr auto kDiscoveryCheck = std::chrono::seconds(2);
constexpr auto kUpdateCheck = std::chrono::seconds(5);
constexpr auto kUpdateRetry = std::chrono::minutes(1);

OriginLists ReadOriginLists() {
  return {GetWholeConfiguration("AllowedOrigins"), GetWholeConfiguration("ManageOrigins"),
          GetEnableCORSAll()};
}

/// How many files and sockets this process may have open, raised as far as it may raise it.
std::size_t DescriptorLimit() {
  constexpr rlim_t kWanted = 4096;
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return kWanted;
  if (limit.rlim_cur < kWanted) {
    limit.rlim_cur = std::min(limit.rlim_max, kWanted);
    ::setrlimit(RLIMIT_NOFILE, &limit);
    ::getrlimit(RLIMIT_NOFILE, &limit);
  }
  return std::min(limit.rlim_cur, kWanted);
}

Limits LimitsFrom(const Options& options) {
  Limits limits;
  // Settings are files: what commands and the log need must not be eaten up by connections.
  constexpr std::size_t kForFiles = 64;
  const std::size_t descriptors = DescriptorLimit();
  const std::size_t left = descriptors > 2 * kForFiles ? descriptors - kForFiles : descriptors / 2;
  limits.connections = std::min(limits.connections, left);
  limits.patience = options.patience.value_or(limits.patience);
  return limits;
}

/// Everything that lives while the service serves. The members are in the order of their making;
/// the server, whose threads use all the others, is the last to come and the first to go.
class Service {
 public:
  Service(const Options& options, OwnProcess& self, Modules& modules, Connections& connections,
          HostServices& services, Discovery& discovery);
  /// Serves until a signal, or until there is an update to be ended that only a service at its
  /// start can end. Returns whether the end was in good order: then nothing runs any more.
  bool Serve();
  /// Whether the second was the reason.
  bool IsToBeginAnew() const { return beginAnew_; }

  bool IsListening() const { return ports_.IsListening(); }

 private:
  void OpenPorts(bool reopen);
  std::string RefreshCertificate();
  void WatchCertificate();
  void WatchDiscovery();
  void WatchUpdates();
  std::string HealthNow() const;
  bool Stop();

  const Limits limits_;
  const std::chrono::system_clock::time_point started_ = std::chrono::system_clock::now();
  OwnProcess& self_;
  Modules& modules_;
  Connections& connections_;
  HostServices& services_;
  Discovery& discovery_;
  net::io_context control_;
  net::signal_set signals_;
  net::steady_timer certificateTimer_;
  net::steady_timer discoveryTimer_;
  net::steady_timer updateTimer_;
  updater::Left left_ = updater::Left::Nothing;
  bool beginAnew_ = false;
  std::atomic<bool> reopening_{false};
  Door door_{ReadOriginLists};
  TlsIdentity identity_;
  std::vector<std::unique_ptr<ModuleHandler>> handlers_;
  Server server_;
  ListeningPorts ports_;
};

Service::Service(const Options& options, OwnProcess& self, Modules& modules,
                 Connections& connections, HostServices& services, Discovery& discovery)
    : limits_(LimitsFrom(options)),
      self_(self),
      modules_(modules),
      connections_(connections),
      services_(services),
      discovery_(discovery),
      signals_(control_, SIGINT, SIGTERM),
      certificateTimer_(control_),
      discoveryTimer_(control_),
      updateTimer_(control_),
      server_({limits_,
               door_,
               connections_,
               [this] { return identity_.Context(); },
               {{"/health", [this] { return HealthNow(); }},
                {"/services", [this] { return discovery_.ServicesText(); }}}}),
      ports_(server_, door_) {
  std::optional<int> port = options.port, sslPort = options.sslPort;
  for (const auto& module : modules_.all()) {
    handlers_.push_back(std::make_unique<ModuleHandler>(*module, connections_, services_, [this] {
      // Any number of restarts that were asked for meanwhile is one, and none holds up the end.
      if (reopening_.exchange(true)) return;
      net::post(control_, [this] {
        reopening_ = false;
        OpenPorts(true);
      });
    }));
    ports_.Add(module->alias(), false, port.value_or(-1), module->DefaultPort(false),
               *handlers_.back());
    ports_.Add(module->alias(), true, sslPort.value_or(-1), module->DefaultPort(true),
               *handlers_.back());
    port = sslPort = std::nullopt;
  }
  OpenPorts(false);
  if (const std::string file = identity_.File(); !file.empty()) {
    std::printf("The certificate is %s\n", file.c_str());
    std::fflush(stdout);
  }
}

void Service::OpenPorts(bool reopen) {
  const std::string secureProblem = RefreshCertificate();
  reopen ? ports_.Reopen(secureProblem) : ports_.Open(secureProblem);
  self_.record.port = self_.record.sslPort = 0;
  for (const PortState& port : ports_.Snapshot()) {
    int& first = port.secure ? self_.record.sslPort : self_.record.port;
    if (first == 0) first = port.actual;
  }
  self_.record.serving = ports_.IsListening();
  self_.runFile.Write(self_.record);
  discovery_.Describe(self_.record.sslPort, modules_.Aliases());
}

std::string Service::RefreshCertificate() {
  std::string error, warning;
  const bool usable = identity_.Refresh(error, warning) || identity_.Context() != nullptr;
  if (!warning.empty()) Complain(warning);
  if (usable && !error.empty()) Complain(error);
  return usable ? "" : error;
}

void Service::WatchCertificate() {
  certificateTimer_.expires_after(kCertificateCheck);
  certificateTimer_.async_wait([this](boost::system::error_code ec) {
    if (ec) return;
    OpenPorts(false);
    WatchCertificate();
  });
}

void Service::WatchDiscovery() {
  discoveryTimer_.expires_after(kDiscoveryCheck);
  discoveryTimer_.async_wait([this](boost::system::error_code ec) {
    if (ec) return;
    discovery_.Watch();
    WatchDiscovery();
  });
}

/// An updater may be killed while the service runs. The update would be in progress for ever.
void Service::WatchUpdates() {
  updateTimer_.expires_after(self_.recoveryFailed ? kUpdateRetry : kUpdateCheck);
  updateTimer_.async_wait([this](boost::system::error_code ec) {
    if (ec) return;
    // Only what is still left at the second look: an updater may just be about to take its lock.
    const updater::Left before = std::exchange(left_, updater::FindLeft(self_.updatePaths));
    // Where the start itself could not end it, a further one would not either.
    beginAnew_ = left_ == updater::Left::Programs && before == left_ && !self_.recoveryFailed;
    if (beginAnew_) {
      signals_.cancel();
      return;
    }
    const bool mayEnd = left_ == updater::Left::Traces || left_ == updater::Left::LockNotTaken;
    if (mayEnd && before == left_) self_.EndEarlierUpdate(false);
    WatchUpdates();
  });
}

bool Service::Serve() {
  bool clean = false;
  signals_.async_wait([this, &clean](boost::system::error_code ec, int) {
    beginAnew_ = beginAnew_ && ec;
    // A second signal ends the program at once.
    signals_.clear();
    certificateTimer_.cancel();
    discoveryTimer_.cancel();
    updateTimer_.cancel();
    clean = Stop();
    control_.stop();
  });
  WatchCertificate();
  discovery_.StartAdvertising();
  discovery_.StartBrowsing();
  WatchDiscovery();
  WatchUpdates();
  control_.run();
  return clean;
}

bool Service::Stop() {
  discovery_.StopAll();
  ports_.CloseAll();
  modules_.AnnounceStop();
  server_.RefuseCommands();
  const bool idle = server_.WaitForCommands(limits_.stopping);
  if (!idle) Complain("A command did not end: the service leaves without unloading its modules.");
  server_.CloseConnections();
  return idle;
}

std::string Service::HealthNow() const {
  Health health;
  health.name = GetServiceName();
  health.version = GetServiceVersion();
  health.build = self_.build;
  health.pid = self_.record.pid;
  for (std::size_t i = 0; i < handlers_.size(); ++i) {
    const ModuleLibrary& module = *modules_.all()[i];
    health.modules.push_back({module.alias(), module.VersionDescription(), handlers_[i]->IsBusy()});
  }
  health.ports = ports_.Snapshot();
  health.certificate = identity_.Facts();
  health.started = started_;
  health.connections = server_.ConnectionCount();
  return HealthText(health);
}

}  // namespace

int RunService(const Options& options, const std::string& build) {
  // A client that goes away must not end the service.
  std::signal(SIGPIPE, SIG_IGN);
  InitProgramInfo();
  const std::string program = os::ExecutablePath();
  std::error_code ignored;
  const std::string folder = std::filesystem::current_path(ignored).string();
  OwnProcess self;
  self.build = build;
  self.updatePaths = updater::UpdatePathsIn(GetWorkPath());
  self.record.pid = ::getpid();
  self.record.build = build;
  self.record.program = program;
  self.record.folder = folder;
  self.record.arguments = options.arguments;
  self.record.environment = OwnEnvironment();
  if (std::string error; !self.runFile.Take(self.updatePaths.runRecord, error)) {
    Complain(error);
    return 1;
  }
  self.runFile.Write(self.record);
  if (!self.EndEarlierUpdate(true)) return 1;

  std::vector<std::string> files = options.modules;
  if (files.empty()) files.push_back(program.substr(0, program.rfind('/') + 1) + DEFAULT_MODULE);

  // Modules may answer and ask until they are finished, so what they call outlives that.
  Connections connections;
  Modules modules;
  if (!modules.Start(files, program)) {
    modules.Finish();
    return 1;
  }
  Discovery discovery(mdns_wrapper::mDNSService::getInstance(),
                      mdns_wrapper::mDNSQueryService::getInstance());
  std::vector<BinaryFile> programFiles = modules.Files();
  programFiles.insert(programFiles.begin(), {program, build});
  HostServices services(std::move(programFiles), discovery);
  bool served = false, beginAnew = false;
  {
    Service service(options, self, modules, connections, services, discovery);
    if (service.IsListening()) {
      served = true;
      if (!service.Serve()) {
        // A module still runs: neither its code nor what it refers to may be taken away.
        if (service.IsToBeginAnew()) self.BeginAnew();
        std::fflush(nullptr);
        std::_Exit(1);
      }
      beginAnew = service.IsToBeginAnew();
    } else {
      Complain("The service listens nowhere and ends.");
      modules.AnnounceStop();
    }
  }
  modules.Finish();
  if (beginAnew) self.BeginAnew();
  return served && !beginAnew ? 0 : 1;
}

}  // namespace host
