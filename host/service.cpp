#include "host/service.h"

#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <utility>

#include "environment/configuration.h"
#include "environment/paths.h"
#include "environment/program_information.h"
#include "host/console_token.h"
#include "host/discovery.h"
#include "host/health.h"
#include "host/host_log.h"
#include "host/http/module_handler.h"
#include "host/modules.h"
#include "host/own_process.h"
#include "host/tls_identity.h"
#include "os/system.h"
#include "package/signature.h"

namespace host {

namespace {

namespace net = boost::asio;
using std::chrono::seconds;

constexpr seconds kCertificatePause = std::chrono::hours(12);
/// A machine that changes networks is found at its new address this soon.
constexpr seconds kDiscoveryPause(2);
constexpr seconds kUpdatePause(5);
constexpr seconds kUpdateRetryPause(60);

OriginLists ReadOriginLists() {
  return {GetWholeConfiguration("AllowedOrigins"), GetWholeConfiguration("ManageOrigins"),
          GetEnableCORSAll()};
}

Accounts::Settings ReadAccounts() {
  return {GetWholeConfiguration("ManageUsers"), GetServiceRunMode() == 0};
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
  const std::size_t others = kForFiles + 2 * limits.reservedConnections;
  const std::size_t left = descriptors > 2 * others ? descriptors - others : descriptors / 2;
  limits.connections = std::min(limits.connections, left);
  limits.patience = options.patience.value_or(limits.patience);
  return limits;
}

/// Says who may sign packages, and what is wrong with the keys.
void TellUpdateKeys() {
  const auto keys = package::UpdateKeys::Of(GetWorkPath());
  for (const std::string& problem : keys.problems()) ReportError(problem);
  std::printf("%s\n", keys.Sentence().c_str());
  std::fflush(stdout);
}

/// How a run of the service ended.
enum class Ending {
  NotStarted,  ///< a module is missing, or no port is to be had
  Stopped,     ///< by a signal
  StartAgain,  ///< an update has left what only a service at its start can end
};

/// The running service. Its members are made in the order in which they stand and end the other way
/// round: first the server, whose threads use all the others, and the modules before what they
/// call.
class Service {
 public:
  /// The parts outlive the service.
  Service(const Options& options, OwnProcess& process, const ConsoleToken& token);

  /// Starts the modules, listens, serves until there is a reason to stop, and stops: after this no
  /// command runs and no client is connected, but for what HasRunningCommand tells.
  Ending Run();
  /// Whether a command did not end in time. Then neither its module's code nor what that refers to
  /// may be taken away: the object must not be destroyed, and the process must leave without that.
  bool HasRunningCommand() const { return hasRunningCommand_; }

 private:
  bool StartModules();
  Ending Serve();
  void Stop();

  void OpenPorts(bool reopen);
  std::string RefreshCertificate();
  void ReopenLater();
  /// Calls `action` after `pause`, and again after each pause that it returns.
  void Repeat(net::steady_timer& timer, seconds pause, std::function<seconds()> action);
  std::string HealthNow() const;

  const Options& options_;
  const Limits limits_;
  const std::chrono::system_clock::time_point started_ = std::chrono::system_clock::now();
  OwnProcess& process_;
  Connections connections_;
  Discovery discovery_;
  HostServices services_;
  Modules modules_;
  std::vector<std::unique_ptr<ModuleHandler>> handlers_;
  net::io_context control_;
  net::signal_set signals_;
  net::steady_timer certificateTimer_;
  net::steady_timer discoveryTimer_;
  net::steady_timer updateTimer_;
  std::atomic<bool> reopening_{false};
  Door door_;
  Accounts accounts_{ReadAccounts};
  TlsIdentity identity_;
  Server server_;
  ListeningPorts ports_;
  bool hasRunningCommand_ = false;
};

Service::Service(const Options& options, OwnProcess& process, const ConsoleToken& token)
    : options_(options),
      limits_(LimitsFrom(options)),
      process_(process),
      discovery_(mdns_wrapper::mDNSService::getInstance(),
                 mdns_wrapper::mDNSQueryService::getInstance()),
      services_(discovery_),
      signals_(control_, SIGINT, SIGTERM),
      certificateTimer_(control_),
      discoveryTimer_(control_),
      updateTimer_(control_),
      door_(ReadOriginLists, [&token](std::string_view text) { return token.Matches(text); }),
      server_({limits_,
               door_,
               accounts_,
               connections_,
               [this] { return identity_.Context(); },
               GetCachePath(),
               {{"/health", [this] { return HealthNow(); }},
                {"/services", [this] { return discovery_.ServicesText(); }}}}),
      ports_(server_, door_) {}

Ending Service::Run() {
  if (!StartModules()) return Ending::NotStarted;
  TellUpdateKeys();
  OpenPorts(false);
  if (const std::string file = identity_.File(); !file.empty()) {
    std::printf("The certificate is %s\n", file.c_str());
    std::fflush(stdout);
  }
  if (!AreOwnersTold()) {
    ReportWarning(
        "This system does not tell whose a connection is: every client counts as another "
        "user of this machine.");
  }
  if (!ports_.IsListening()) {
    ReportError("The service listens nowhere and ends.");
    return Ending::NotStarted;
  }
  const Ending ending = Serve();
  Stop();
  return ending;
}

bool Service::StartModules() {
  const std::string& program = process_.record().program;
  std::vector<std::string> files = options_.modules;
  if (files.empty()) files.push_back(program.substr(0, program.rfind('/') + 1) + DEFAULT_MODULE);
  if (std::string why; !modules_.Start(files, program, &why)) {
    ReportError(why);
    return false;
  }
  std::vector<BinaryFile> programFiles = modules_.Files();
  programFiles.insert(programFiles.begin(), {program, process_.build()});
  services_.SetFiles(std::move(programFiles));

  std::optional<int> port = options_.port, sslPort = options_.sslPort;
  for (const auto& module : modules_.all()) {
    handlers_.push_back(std::make_unique<ModuleHandler>(*module, connections_, services_,
                                                        [this] { ReopenLater(); }));
    ports_.Add(module->alias(), false, port, module->DefaultPort(false), *handlers_.back());
    ports_.Add(module->alias(), true, sslPort, module->DefaultPort(true), *handlers_.back());
    port = sslPort = std::nullopt;
  }
  return true;
}

Ending Service::Serve() {
  Ending ending = Ending::Stopped;
  signals_.async_wait([this](boost::system::error_code ec, int) {
    if (!ec) control_.stop();
  });
  Repeat(certificateTimer_, kCertificatePause, [this] {
    OpenPorts(false);
    return kCertificatePause;
  });
  discovery_.StartAdvertising();
  discovery_.StartBrowsing();
  Repeat(discoveryTimer_, kDiscoveryPause, [this] {
    discovery_.Watch();
    return kDiscoveryPause;
  });
  const auto updatePause = [this] {
    return process_.updateEndFailed() ? kUpdateRetryPause : kUpdatePause;
  };
  Repeat(updateTimer_, updatePause(), [this, &ending, updatePause] {
    if (process_.WatchUpdates()) {
      ending = Ending::StartAgain;
      control_.stop();
    }
    return updatePause();
  });
  control_.run();
  // From now on a second signal ends the program at once.
  signals_.clear();
  return ending;
}

void Service::Stop() {
  discovery_.StopAll();
  ports_.CloseAll();
  modules_.AnnounceStop();
  server_.RefuseCommands();
  hasRunningCommand_ = !server_.WaitForCommands(limits_.stopping);
  if (hasRunningCommand_) {
    ReportError("A command did not end: the service leaves without unloading its modules.");
  }
  server_.CloseConnections();
}

void Service::Repeat(net::steady_timer& timer, seconds pause, std::function<seconds()> action) {
  timer.expires_after(pause);
  timer.async_wait([this, &timer, action = std::move(action)](boost::system::error_code ec) {
    if (!ec) Repeat(timer, action(), action);
  });
}

/// Any number of restarts that were asked for meanwhile is one, and none holds up the end. A thread
/// of the server calls.
void Service::ReopenLater() {
  if (reopening_.exchange(true)) return;
  net::post(control_, [this] {
    reopening_ = false;
    OpenPorts(true);
  });
}

void Service::OpenPorts(bool reopen) {
  const std::string secureProblem = RefreshCertificate();
  reopen ? ports_.Reopen(secureProblem) : ports_.Open(secureProblem);
  int first[] = {0, 0};
  for (const PortState& port : ports_.Snapshot()) {
    if (first[port.secure] == 0) first[port.secure] = port.actual;
  }
  process_.TellPorts(first[false], first[true]);
  discovery_.Describe(first[true], modules_.Aliases());
}

/// "", or why there is no certificate to be shown.
std::string Service::RefreshCertificate() {
  std::string why, warning;
  const bool isUsable = identity_.Refresh(&why, &warning) || identity_.Context() != nullptr;
  if (!warning.empty()) ReportWarning(warning);
  if (isUsable && !why.empty()) ReportError(why);
  return isUsable ? "" : why;
}

std::string Service::HealthNow() const {
  Health health;
  health.name = GetServiceName();
  health.version = GetServiceVersion();
  health.build = process_.build();
  health.pid = process_.record().pid;
  for (std::size_t i = 0; i < handlers_.size(); ++i) {
    const ModuleLibrary& module = *modules_.all()[i];
    health.modules.push_back({module.alias(), module.VersionDescription(), handlers_[i]->IsBusy()});
  }
  health.ports = ports_.Snapshot();
  health.certificate = identity_.Facts();
  health.started = started_;
  health.connections = server_.ConnectionCount();
  const std::string work = GetWorkPath();
  health.update = package::ReadUpdateRecord(work + work_folder::kUpdateRecord);
  health.packages = package::UpdateKeys::Of(work).Sentence();
  return HealthText(health);
}

}  // namespace

int RunService(const Options& options, const std::string& build) {
  // A client that goes away must not end the service.
  std::signal(SIGPIPE, SIG_IGN);
  os::KeepLittleMemory();
  SendLogToStandardError();
  InitProgramInfo();
  OwnProcess process(build, options.arguments);
  if (!process.TakeFolder()) return 1;

  Ending ending = Ending::NotStarted;
  {
    ConsoleToken token(GetWorkPath() + work_folder::kConsoleToken);
    Service service(options, process, token);
    ending = service.Run();
    if (ending == Ending::Stopped) process.TellEnd();
    if (service.HasRunningCommand()) {
      token.Remove();
      if (ending == Ending::StartAgain) process.StartAgain();
      std::fflush(nullptr);
      std::_Exit(1);
    }
  }
  if (ending == Ending::StartAgain) process.StartAgain();
  return ending == Ending::Stopped ? 0 : 1;
}

}  // namespace host
