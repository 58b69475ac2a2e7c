// The one object behind the exported functions: it turns requests into commands, runs them, knows
// when the last one ended, and keeps the image map and the file whitelist.
//
// Any thread may call any operation. The timing lock is held for a single read or write of the
// time, never across a command.
#pragma once

#include <ctime>
#include <memory>
#include <string>

#include "command/http_param_request.h"
#include "frame/image_map.h"
#include "os/mutex.h"
#include "util/reader_writer_lock.h"

class ManagerClient;

/// Calls the host's callback, which counts as activity of the module. Returns its result, 0 when
/// there is no callback.
signed char SendBack(SendBackFunc fn, int connectionId, void* host, const char* text,
                     const void* data, unsigned int len, const char* extra);

class VirtualManagerClient : public ImageMap {
 public:
  using Clock = std::time_t (*)(std::time_t*);

  /// `clock` tells the seconds for the busy window.
  explicit VirtualManagerClient(Clock clock = &std::time);
  virtual ~VirtualManagerClient();
  VirtualManagerClient(const VirtualManagerClient&) = delete;
  VirtualManagerClient& operator=(const VirtualManagerClient&) = delete;

  /// The instance, made on first use. It lives until DeleteInstance and until the last holder of
  /// the pointer lets go.
  static std::shared_ptr<VirtualManagerClient> GetInstance();
  static void DeleteInstance();

  /// 1 while a command runs, before the first one and up to 30 seconds after the last activity;
  /// else 100. Of commands that run side by side the one that ends last counts: 100 does not say
  /// that nothing runs.
  int GetWaitTimeout();
  void ResetTimeout();

  /// Runs a command; returns what its reply's delivery returned.
  int DistributeCommand(HttpParamRequest* request);
  /// Turns a request into a command and runs it. The payload goes along only for paths that take
  /// one. A request that is no command is answered "Invalid command".
  int DistributeHttpCommand(int connectionId, void* host, const std::string& path,
                            const std::string& requestText, int browserType, SendBackFunc sendBack,
                            int socket, const std::string& domain,
                            HttpParamResponse::Payload payload, long payloadLen,
                            HostDataGetFunc get1, HostDataSetFunc set, HostDataGetFunc get2);
  std::string GetQVVersionFromRequestString(const std::string& path) const;

 private:
  class BusyMark;
  void SetLastActivity(std::time_t when);

  const Clock clock_;
  CReaderWriterLock timingLock_;
  /// 0: a command is running, or none has ended yet.
  std::time_t lastActivity_ QV_GUARDED_BY(timingLock_) = 0;
  std::unique_ptr<ManagerClient> manager_;

  static std::shared_ptr<VirtualManagerClient> m_pVirtualManagerClient;
};
