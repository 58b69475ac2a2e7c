#include "frame/virtual_manager_client.h"

#include <algorithm>
#include <exception>

#include "command/command_text.h"
#include "environment/logging.h"
#include "manager/manager_client.h"

namespace {

constexpr std::time_t kBusySeconds = 30;
constexpr int kBusyTimeout = 1;
constexpr int kIdleTimeout = 100;

CReaderWriterLock gMClientLock;  // guards the instance pointer

}  // namespace

std::shared_ptr<VirtualManagerClient> VirtualManagerClient::m_pVirtualManagerClient;

signed char SendBack(SendBackFunc fn, int connectionId, void* host, const char* text,
                     const void* data, unsigned int len, const char* extra) {
  VirtualManagerClient::GetInstance()->ResetTimeout();
  if (fn == nullptr) return 0;
  return fn(connectionId, host, text, data, len, extra);
}

VirtualManagerClient::VirtualManagerClient(Clock clock)
    : clock_(clock), manager_(std::make_unique<ManagerClient>()) {}

VirtualManagerClient::~VirtualManagerClient() = default;

std::shared_ptr<VirtualManagerClient> VirtualManagerClient::GetInstance() {
  {
    const ReadHold hold(gMClientLock);
    if (m_pVirtualManagerClient != nullptr) return m_pVirtualManagerClient;
  }
  const WriteHold hold(gMClientLock);
  if (m_pVirtualManagerClient == nullptr) {
    m_pVirtualManagerClient = std::make_shared<VirtualManagerClient>();
  }
  return m_pVirtualManagerClient;
}

void VirtualManagerClient::DeleteInstance() {
  std::shared_ptr<VirtualManagerClient> last;  // destroyed outside the lock
  const WriteHold hold(gMClientLock);
  last.swap(m_pVirtualManagerClient);
}

int VirtualManagerClient::GetWaitTimeout() {
  const ReadHold hold(timingLock_);
  const std::time_t now = clock_(nullptr);
  return lastActivity_ != 0 && now - lastActivity_ > kBusySeconds ? kIdleTimeout : kBusyTimeout;
}

void VirtualManagerClient::ResetTimeout() { SetLastActivity(clock_(nullptr)); }

void VirtualManagerClient::SetLastActivity(std::time_t when) {
  const WriteHold hold(timingLock_);
  lastActivity_ = when;
}

// Busy for the time of a scope, and active at its end however that comes.
class VirtualManagerClient::BusyMark {
 public:
  explicit BusyMark(VirtualManagerClient& client) : client_(client) { client_.SetLastActivity(0); }
  ~BusyMark() { client_.ResetTimeout(); }
  BusyMark(const BusyMark&) = delete;
  BusyMark& operator=(const BusyMark&) = delete;

 private:
  VirtualManagerClient& client_;
};

int VirtualManagerClient::DistributeCommand(HttpParamRequest* request) {
  if (request == nullptr) {
    LogErr("HttpParamRequest is NULL");
    return 0;
  }
  const BusyMark busy(*this);
  if (request->IsTraced()) LogDebug("Receive Command: %s", ForLog(request->GetCMDString()).c_str());
  try {
    return manager_->Function(request);
  } catch (const std::exception& error) {
    LogErr("Command %s failed: %s", ForLog(request->GetFunName()).c_str(), error.what());
  } catch (...) {
    LogErr("Command %s failed.", ForLog(request->GetFunName()).c_str());
  }
  return 0;
}

int VirtualManagerClient::DistributeHttpCommand(
    int connectionId, void* host, const std::string& path, const std::string& requestText,
    int browserType, SendBackFunc sendBack, int socket, const std::string& domain,
    HttpParamResponse::Payload payload, long payloadLen, HostDataGetFunc get1, HostDataSetFunc set,
    HostDataGetFunc get2) {
  const CommandText command = BuildCommandText(path, requestText);
  if (command.text.empty()) {
    return SendBack(sendBack, connectionId, host, "Invalid command", nullptr, 0, nullptr);
  }
  if (command.payload == PayloadSource::BehindSeparator) {
    const std::size_t length = requestText.size() - command.payloadOffset;
    auto copy = std::make_unique<unsigned char[]>(length);
    std::copy_n(requestText.begin() + static_cast<std::ptrdiff_t>(command.payloadOffset), length,
                copy.get());
    payload = std::move(copy);
    payloadLen = static_cast<long>(length);
  } else if (command.payload == PayloadSource::None) {
    payload.reset();
    payloadLen = 0;
  }
  HttpParamRequest request(connectionId, host, command.text, browserType, socket, domain, &SendBack,
                           sendBack, get1, set, get2, std::move(payload), payloadLen, true);
  if (request.IsTraced()) {
    LogDebug("Url encode json command succeed. Processing...");
    LogDebug("cmd = [%s]", ForLog(command.text).c_str());
  }
  return DistributeCommand(&request);
}

std::string VirtualManagerClient::GetQVVersionFromRequestString(const std::string& path) const {
  return GetQVVersionFromPath(path);
}
