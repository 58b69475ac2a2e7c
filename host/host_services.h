// The services that modules ask the host for by name, through the three callbacks that come with
// every command.
#pragma once

#include <atomic>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/discovery.h"

namespace host {

/// A program file of the service, for those who ask what is installed.
struct BinaryFile {
  std::string path;
  std::string version;
};

/// One at a time in a process: the callbacks that modules get carry no context, so they find the
/// living object by themselves. It outlives all commands.
class HostServices {
 public:
  explicit HostServices(Discovery& discovery);
  ~HostServices();
  HostServices(const HostServices&) = delete;
  HostServices& operator=(const HostServices&) = delete;

  /// What "getBinaryFileInfo" tells of. To be called before the first command.
  void SetFiles(std::vector<BinaryFile> files) { files_ = std::move(files); }

  /// The first and the third callback, of type HostDataGetFunc: they serve every request. A text is
  /// asked for twice, first its size with a null `out`, and then on the same thread its bytes; both
  /// calls are about one text. Returns 0, or -1 for a request that is unknown or failed.
  static int Get(const char*, const char*, const char* name, void* out, unsigned int* length);
  /// The second callback, of type HostDataSetFunc: it serves the requests that have no answer, and
  /// no request that there is takes data. Returns as Get does.
  static int Set(const char*, const char*, const char* name, const void* data, unsigned int length);

  /// While it lives, "getUploadFile" tells this path on the thread that made it: there the command
  /// runs that the upload belongs to.
  class UploadScope {
   public:
    explicit UploadScope(std::string path);
    ~UploadScope();
    UploadScope(const UploadScope&) = delete;
    UploadScope& operator=(const UploadScope&) = delete;
  };

  /// Whether a restart was asked for since the last call. Any thread.
  bool TakeRestart() { return restart_.load() && restart_.exchange(false); }

 private:
  bool Perform(std::string_view request);
  std::optional<std::string> TextFor(std::string_view request);
  int Answer(const std::string& request, void* out, unsigned int* length);
  std::string BinaryFileInfo() const;

  Discovery& discovery_;
  std::vector<BinaryFile> files_;
  std::atomic<bool> restart_ = false;
};

}  // namespace host
