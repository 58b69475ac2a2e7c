#include "host/host_services.h"

#include <json/value.h>
#include <json/writer.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <string_view>

#include "environment/logging.h"
#include "host/iso_time.h"

namespace host {

namespace {

std::atomic<HostServices*> current = nullptr;

/// The two calls of an answer: first its size is told, then at most that many bytes are copied.
int Fill(std::string_view answer, void* out, unsigned int* length) {
  if (length == nullptr) return -1;
  const auto size = static_cast<unsigned int>(answer.size());
  *length = out == nullptr ? size : std::min(*length, size);
  if (out != nullptr) std::memcpy(out, answer.data(), *length);
  return 0;
}

using DiscoveryCall = void (Discovery::*)();

/// Null for requests of other kinds.
DiscoveryCall DiscoveryCallOf(std::string_view name) {
  constexpr std::pair<std::string_view, DiscoveryCall> kCalls[] = {
      {"startmDNS", &Discovery::StartAdvertising},
      {"stopmDNS", &Discovery::StopAdvertising},
      {"startmDNSQuery", &Discovery::StartBrowsing},
      {"stopmDNSQuery", &Discovery::StopBrowsing},
  };
  for (const auto& [request, call] : kCalls) {
    if (request == name) return call;
  }
  return nullptr;
}

}  // namespace

HostServices::HostServices(std::vector<BinaryFile> files, Discovery& discovery)
    : files_(std::move(files)), discovery_(discovery) {
  current = this;
}

HostServices::~HostServices() { current = nullptr; }

int HostServices::Get(const char*, const char*, const char* name, void* out, unsigned int* length) {
  HostServices* services = current;
  if (services == nullptr || name == nullptr) return -1;
  try {
    return services->Answer(name, out, length);
  } catch (const std::exception& problem) {
    LogErr("The host request %s failed: %s", name, problem.what());
    return -1;
  }
}

int HostServices::Answer(const std::string& name, void* out, unsigned int* length) {
  if (name == "restartService") {
    restart_ = true;
    return 0;
  }
  if (name == "getServiceInfo") {
    // Both calls are about one list, even if another one is found between them.
    static thread_local std::string announced;
    if (out == nullptr || announced.empty()) announced = discovery_.EncodedServices();
    const int result = Fill(announced, out, length);
    if (out != nullptr) announced.clear();
    return result;
  }
  if (name == "getBinaryFileInfo") return Fill(BinaryFileInfo(), out, length);
  if (const DiscoveryCall call = DiscoveryCallOf(name)) {
    (discovery_.*call)();
    return 0;
  }
  LogErr("The host request %s is unknown.", name.c_str());
  return -1;
}

std::string HostServices::BinaryFileInfo() const {
  Json::Value list(Json::arrayValue);
  for (const BinaryFile& file : files_) {
    struct stat status {};
    if (::stat(file.path.c_str(), &status) != 0) continue;
    Json::Value item(Json::objectValue);
    item["name"] = file.path.substr(file.path.rfind('/') + 1);
    item["version"] = file.version;
    item["size"] = Json::Int64(status.st_size);
    item["date"] = IsoTime(std::chrono::system_clock::from_time_t(status.st_mtime));
    list.append(item);
  }
  Json::StreamWriterBuilder oneLine;
  oneLine["indentation"] = "";
  return Json::writeString(oneLine, list);
}

}  // namespace host
