#include "host/host_services.h"

#include <json/value.h>
#include <json/writer.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <exception>
#include <utility>

#include "environment/logging.h"
#include "host/host_log.h"

namespace host {

namespace {

constexpr int kDone = 0;
constexpr int kNotDone = -1;

std::atomic<HostServices*> current = nullptr;

/// The text whose size was told last on this thread, until its bytes are fetched.
struct AnnouncedText {
  std::string request;
  std::string text;
};
thread_local AnnouncedText announced;

/// Where the upload can be opened whose command runs on this thread, "" for none.
thread_local std::string uploadPath;

/// Calls the living object. What it throws must not reach the module.
template <class Call>
int Guarded(const char* request, Call call) {
  HostServices* services = current;
  if (services == nullptr || request == nullptr) return kNotDone;
  try {
    return call(*services);
  } catch (const std::exception& problem) {
    LogErr("The host request %s failed: %s", request, problem.what());
    return kNotDone;
  }
}

int Refuse(const char* request) {
  LogErr("The host request %s is refused: it is unknown here.", request);
  return kNotDone;
}

}  // namespace

HostServices::HostServices(Discovery& discovery) : discovery_(discovery) { current = this; }

HostServices::~HostServices() { current = nullptr; }

HostServices::UploadScope::UploadScope(std::string path) { uploadPath = std::move(path); }

HostServices::UploadScope::~UploadScope() { uploadPath.clear(); }

int HostServices::Get(const char*, const char*, const char* name, void* out, unsigned int* length) {
  return Guarded(name, [&](HostServices& services) {
    return services.Perform(name) ? kDone : services.Answer(name, out, length);
  });
}

int HostServices::Set(const char*, const char*, const char* name, const void*, unsigned int) {
  return Guarded(
      name, [&](HostServices& services) { return services.Perform(name) ? kDone : Refuse(name); });
}

/// False for other requests than those that have no answer.
bool HostServices::Perform(std::string_view request) {
  if (request == "restartService") {
    restart_ = true;
  } else if (request == "startmDNS") {
    discovery_.StartAdvertising();
  } else if (request == "stopmDNS") {
    discovery_.StopAdvertising();
  } else if (request == "startmDNSQuery") {
    discovery_.StartBrowsing();
  } else if (request == "stopmDNSQuery") {
    discovery_.StopBrowsing();
  } else {
    return false;
  }
  return true;
}

/// Nothing for other requests than those that have a text for an answer.
std::optional<std::string> HostServices::TextFor(std::string_view request) {
  if (request == "getServiceInfo") return discovery_.EncodedServices();
  if (request == "getBinaryFileInfo") return BinaryFileInfo();
  if (request == "getUploadFile") return uploadPath;
  return std::nullopt;
}

int HostServices::Answer(const std::string& request, void* out, unsigned int* length) {
  if (out == nullptr || announced.request != request) {
    std::optional<std::string> text = TextFor(request);
    if (!text) return Refuse(request.c_str());
    announced = {request, std::move(*text)};
  }
  if (length == nullptr) return kNotDone;
  const auto size = static_cast<unsigned int>(announced.text.size());
  *length = out == nullptr ? size : std::min(*length, size);
  if (out != nullptr) {
    std::memcpy(out, announced.text.data(), *length);
    announced = {};
  }
  return kDone;
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
