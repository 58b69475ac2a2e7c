// One command in flight: its parsed parts, the host's callbacks, and the result that its handler
// builds and sends back. A request belongs to the one thread that runs it.
#pragma once

#include <memory>
#include <string>

#include "command/json_command.h"
#include "marvique/module.h"

/// Every reply goes through such a wrapper around the host's callback.
using SendBackWrapper = signed char (*)(SendBackFunc fn, int connectionId, void* host,
                                        const char* text, const void* data, unsigned int len,
                                        const char* extra);

/// The payload that came with a request and the reply's JSON text.
class HttpParamResponse {
 public:
  /// Memory of its own, or memory that outlives the command.
  using Payload = std::shared_ptr<const unsigned char[]>;

  HttpParamResponse(Payload data, int len, bool flag)
      : data_(std::move(data)), len_(len), flag_(flag) {}
  virtual ~HttpParamResponse() = default;

  void SetJsonResult(std::string json) { json_ = std::move(json); }
  std::string GetJsonResult() const { return json_; }
  /// The payload, null when there is none; valid as long as the request.
  const unsigned char* GetData() const { return data_.get(); }
  int GetDataLen() const { return len_; }
  /// A file that holds the payload, "" where the host keeps none.
  const std::string& GetFile() const { return file_; }
  void SetFile(std::string path) { file_ = std::move(path); }
  bool GetFlag() const { return flag_; }

 private:
  std::string json_;
  Payload data_;
  std::string file_;
  int len_;
  bool flag_;
};

class HttpParamRequest {
 public:
  HttpParamRequest(int connectionId, void* host, const std::string& commandText, int browserType,
                   int socket, const std::string& domain, SendBackWrapper wrapper,
                   SendBackFunc sendBack, HostDataGetFunc get1, HostDataSetFunc set,
                   HostDataGetFunc get2, HttpParamResponse::Payload payload, long payloadLen,
                   bool flag);
  virtual ~HttpParamRequest() = default;
  HttpParamRequest(const HttpParamRequest&) = delete;
  HttpParamRequest& operator=(const HttpParamRequest&) = delete;

  int GetSocket() const { return socket_; }
  int GetBowserType() const { return browserType_; }
  const std::string& GetClientId() const { return clientId_; }
  const std::string& GetCmdId() const { return cmdId_; }
  const std::string& GetDomain() const { return domain_; }
  const std::string& GetCMDString() const { return commandText_; }
  const std::string& GetFunName() const { return functionName_; }
  const std::string& GetVersion() const { return version_; }
  CommandType GetCommandType() const { return commandType_; }
  /// How many parameters the client sent; results that were added do not count.
  int GetParameterCount() const { return parameterCount_; }
  ParamStack& GetParamStack() { return stack_; }
  HttpParamResponse* GetHttpParamResponse() { return &response_; }
  HostDataGetFunc GetHostDataGet() const { return get1_; }
  HostDataSetFunc GetHostDataSet() const { return set_; }
  HostDataGetFunc GetHostDataGet2() const { return get2_; }

  /// Whether the Debug lines that follow this command's course are wanted. One look at the log's
  /// filter serves for those of one millisecond.
  bool IsTraced();

  /// Tick of construction, and the time of the last call of GetLastTime, which laps.
  unsigned int GetRecTime() const { return receiveTime_; }
  unsigned int GetLastTime();

  /// Sends something as it is. Returns what the host returned, 0 without a wrapper.
  int Sendback(const char* text, const void* data, unsigned int len, const char* extra);
  int Sendback(const char* text);
  /// Sends the result, with the command id put in as its last member, and drops the result data.
  /// Returns what the host returned, 0 when there is nobody to send to.
  int SendBackResult();

  // The result family. Each adds a value behind the parameters and makes the reply anew, so all
  // values are kept and the last code and message win. The first group takes bytes to send beside
  // the reply (copied; null for none) and returns this request.

  /// For int, bool and std::string. A success with a message adds that message and this module's
  /// description as two further values.
  template <class T>
  HttpParamRequest* GetResultStruct(T value, const unsigned char* data, int len, int code,
                                    const std::string& message);
  HttpParamRequest* GetResultStruct(long value, const unsigned char* data, int len, int code,
                                    const std::string& message);
  HttpParamRequest* GetBOOLResultStruct(signed char value, const unsigned char* data, int len,
                                        int code, const std::string& message);
  HttpParamRequest* GetStringResultStruct(const std::string& value, const unsigned char* data,
                                          int len, int code, const std::string& message);
  /// Takes a text for the whole reply, as it is.
  HttpParamRequest* GetResultStructByJsonString(const std::string& json);

  /// These return true.
  bool AddResultParam(const std::string& value, bool isEvent, int code, const std::string& message);
  bool AddStringResultParam(const std::string& value, bool isEvent, int code,
                            const std::string& message);
  /// Adds the value that the text holds; false, nothing changed, when it is no JSON.
  bool AddJsonStringResultParam(const std::string& json, bool isEvent, int code,
                                const std::string& message);

 private:
  void AddParam(Json::Value value, bool isEvent, int code, const std::string& message);

  const int connectionId_;
  void* const host_;
  const std::string commandText_;
  const int browserType_;
  const int socket_;
  const std::string domain_;
  std::string clientId_;
  std::string cmdId_;
  std::string functionName_;
  CommandType commandType_ = COMMAND_NONE;
  int parameterCount_ = 0;
  ParamStack stack_;
  std::unique_ptr<unsigned char[]> resultData_;
  int resultLen_ = 0;
  const SendBackWrapper wrapper_;
  const SendBackFunc sendBack_;
  const HostDataGetFunc get1_;
  const HostDataSetFunc set_;
  const HostDataGetFunc get2_;
  const unsigned int receiveTime_;
  unsigned int lastTime_;
  unsigned int traceTime_;
  bool isTraced_;
  HttpParamResponse response_;
  std::string version_;
};
