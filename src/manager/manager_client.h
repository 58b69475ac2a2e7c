// The handlers of this module's commands, found by the command table.
//
// Commands run in parallel, each on its caller's thread, and may call back into the host, which may
// call in again: no lock is held around a handler. The last error belongs to the thread that runs
// the command. The two user maps share one mutex, which is never held across a callback, a log line
// or a file. Of the two update commands one runs at a time, since they share a folder: another is
// refused meanwhile. Other uploads run beside them; archives change the process's current folder.
#pragma once

#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "command/command_table.h"
#include "command/http_param_request.h"
#include "os/mutex.h"
#include "os/process.h"

class ManagerClient {
 public:
  /// Where a module listens for one user.
  struct SPorts {
    int port;
    int sslPort;
  };
  /// Who was found behind a client's socket.
  struct SUserModuleInfo {
    int sessionId;
    int processId;
  };
  using PortsByModule = std::map<std::string, SPorts>;

  ManagerClient() = default;
  virtual ~ManagerClient() = default;
  ManagerClient(const ManagerClient&) = delete;
  ManagerClient& operator=(const ManagerClient&) = delete;

  /// Runs one command and sends its result back through the request. Returns what the host
  /// returned for the reply, 0 when nothing was sent.
  int Function(HttpParamRequest* request);

  /// Sets the calling thread's last error; the message is cut to 1,023 characters.
  static void SetErrorInfo(int code, const char* message);
  static int GetErrorCode();
  static const char* GetErrorMessage();

  /// The id of the user that owns a client's socket, who is remembered with session and process.
  std::string GetUserSIDBySock(int socket);
  /// One user's ports. On this system nobody has any; `error` tells when the user is empty.
  PortsByModule GetCurrentUserModulePorts(const std::string& user, std::string& error);
  /// One user's ports of both modules as they are stored.
  PortsByModule GetAllListenPorts(const std::string& user);
  /// Asks a user's process to end.
  bool CloseUserProcess(const std::string& user);
  /// The hash of a user id that pages get to see: times 33 plus byte, in 32 bits.
  static int GetHashCode(const std::string& text);

  /// Whether the settings say that a service update is in progress.
  static bool CheckIfUpdate();
  /// Whether the installed version is the given one or newer. A version without a leading number
  /// reads as 0; an empty one is never installed.
  static bool CheckIfAlreadyNewVersion(const std::string& version);
  /// Unpacks a service package to where the updater finds it. False, with the last error set and
  /// nothing left there, when it is none, or when update keys are required and it is not signed as
  /// it must be.
  static bool CheckIfValid(const std::string& package);
  /// Starts the updater and returns 0; otherwise an errno, with the last error set and the mark of
  /// an update in progress taken back.
  int StartUpdateProgress(const std::string& updater);
  /// The same as a yes or no.
  bool UpdateServieInner(const std::string& updater);
  /// Not asked by any command: the first two are always true, the third is false.
  static bool ValidFiles(const std::string& folder);
  static bool ValidSigned(const std::string& folder);
  static bool ValidFileName(const std::string& folder, const std::string& name);

 private:
  using Result = HttpParamRequest*;
  using Handler = Result (ManagerClient::*)(HttpParamRequest*);

  /// The compiler sees to it that every command of the table has one.
  static Handler HandlerOf(Command command);
  Result FunctionInner(HttpParamRequest* request);

  // What every handler begins and ends with.
  static bool HasParameters(HttpParamRequest* request, int needed);
  static Result WrongParameterCount(HttpParamRequest* request);
  static Result WrongParameterType(HttpParamRequest* request);
  static Result BoolResult(HttpParamRequest* request, bool value);

  // Server and ports.
  Result GetServerInfo(HttpParamRequest* request);
  Result SetServerInfo(HttpParamRequest* request);
  Result ChangePort(HttpParamRequest* request);
  Result Reboot(HttpParamRequest* request);
  Result AddFirewall(HttpParamRequest* request);
  Result GetLocalIP(HttpParamRequest* request);
  Result CheckHVNPort(HttpParamRequest* request);
  Result GetPorts(HttpParamRequest* request);

  // Versions and information. GetServiceInfo has no name in the table.
  Result VersionInfo(HttpParamRequest* request);
  Result QVVersion(HttpParamRequest* request);
  Result GetCertExpiredDate(HttpParamRequest* request);
  Result GetBinaryFileInfo(HttpParamRequest* request);
  Result GetServiceInfo(HttpParamRequest* request);

  // Network discovery.
  Result GetmDNSQueryService(HttpParamRequest* request);
  Result SetmDNSQueryService(HttpParamRequest* request);
  Result GetmDNSService(HttpParamRequest* request);
  Result SetmDNSService(HttpParamRequest* request);

  // Updates.
  Result LoadZipFromBytes(HttpParamRequest* request);
  Result CheckUpdateFile(HttpParamRequest* request);
  std::unique_lock<Mutex> TakeUpdateTurn();
  unsigned int UniqueTick();
  bool InstallZip(const HttpParamResponse& body, const std::string& destination);
  bool InstallService(const HttpParamResponse& body, const std::string& version);
  bool BeginUpdate(bool isGood, const std::string& version, const char* updater);

  // The text by which a page may ask for a user's ports later.
  std::string RememberUser(const std::string& user);
  static std::string PortsText(const PortsByModule& modules);

  Mutex usersMutex_;
  std::map<std::string, SUserModuleInfo> users_ QV_GUARDED_BY(usersMutex_);
  std::map<std::string, std::string> userByHash_
      QV_GUARDED_BY(usersMutex_);  // hash as decimal text to user id
  Mutex updateMutex_;              // held for the whole of an update command; nobody waits for it
  Mutex copyMutex_;                // held while the files of one upload are copied
  Mutex tickMutex_;
  unsigned int lastTick_ QV_GUARDED_BY(tickMutex_) = 0;
  ChildProcess updater_;
};
