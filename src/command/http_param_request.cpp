#include "command/http_param_request.h"

#include <json/reader.h>

#include <algorithm>
#include <exception>
#include <utility>

#include "environment/logging.h"
#include "environment/module_identity.h"
#include "platform/system_time.h"

HttpParamRequest::HttpParamRequest(int connectionId, void* host, const std::string& commandText,
                                   int browserType, int socket, const std::string& domain,
                                   SendBackWrapper wrapper, SendBackFunc sendBack,
                                   HostDataGetFunc get1, HostDataSetFunc set, HostDataGetFunc get2,
                                   HttpParamResponse::Payload payload, long payloadLen, bool flag)
    : connectionId_(connectionId),
      host_(host),
      commandText_(commandText),
      browserType_(browserType),
      socket_(socket),
      domain_(domain),
      wrapper_(wrapper),
      sendBack_(sendBack),
      get1_(get1),
      set_(set),
      get2_(get2),
      receiveTime_(GetTickCount()),
      lastTime_(receiveTime_),
      traceTime_(receiveTime_),
      isTraced_(IsLogged(LOG_LEVEL_DEBUG)),
      response_(std::move(payload), static_cast<int>(payloadLen), flag) {
  const JsonCommand command(commandText_);
  clientId_ = command.GetClientID();
  cmdId_ = command.GetCmdId();
  functionName_ = command.GetFunctionName();
  commandType_ = command.GetCommandType();
  parameterCount_ = command.GetParameterCount();
  version_ = command.GetVersion();
  for (int i = 0; i < parameterCount_; ++i) stack_.push_back(command.GetParameter(i));
}

bool HttpParamRequest::IsTraced() {
  const auto now = static_cast<unsigned int>(GetTickCount());
  if (std::exchange(traceTime_, now) != now) isTraced_ = IsLogged(LOG_LEVEL_DEBUG);
  return isTraced_;
}

unsigned int HttpParamRequest::GetLastTime() {
  return std::exchange(lastTime_, static_cast<unsigned int>(GetTickCount()));
}

int HttpParamRequest::Sendback(const char* text, const void* data, unsigned int len,
                               const char* extra) {
  if (wrapper_ == nullptr) return 0;
  return wrapper_(sendBack_, connectionId_, host_, text, data, len, extra);
}

int HttpParamRequest::Sendback(const char* text) { return Sendback(text, nullptr, 0, nullptr); }

int HttpParamRequest::SendBackResult() {
  std::string json = response_.GetJsonResult();
  if (sendBack_ == nullptr || connectionId_ == 0) {
    LogErr("Invalid send back handle. Function must be call in wesocket!");
    return 0;
  }
  if (clientId_.empty()) {
    LogDebug("Invalid json command format. cmd = [%s][%d].", ForLog(commandText_).c_str(),
             connectionId_);
  }
  JsonCommand::AppendCommandId(json, cmdId_);
  if (IsTraced()) LogDebug("result json = [%s].", json.c_str());
  const int result =
      Sendback(json.c_str(), resultData_.get(), static_cast<unsigned int>(resultLen_), nullptr);
  resultData_.reset();
  resultLen_ = 0;
  return result;
}

void HttpParamRequest::AddParam(Json::Value value, bool isEvent, int code,
                                const std::string& message) {
  stack_.push_back(std::make_unique<Json::Value>(std::move(value)));
  response_.SetJsonResult(
      JsonCommand::Encode(clientId_, functionName_, stack_, isEvent, code, message));
}

template <class T>
HttpParamRequest* HttpParamRequest::GetResultStruct(T value, const unsigned char* data, int len,
                                                    int code, const std::string& message) {
  stack_.push_back(std::make_unique<Json::Value>(value));
  if (code == 0 && !message.empty()) {
    stack_.push_back(std::make_unique<Json::Value>(message));
    stack_.push_back(std::make_unique<Json::Value>(MODULE_DESCRIPTION));
  }
  resultData_.reset();
  resultLen_ = 0;
  if (data != nullptr && len >= 0) {
    resultData_ = std::make_unique<unsigned char[]>(static_cast<std::size_t>(len));
    std::copy_n(data, len, resultData_.get());
    resultLen_ = len;
  }
  const std::string& description = code == 0 && message.empty() ? "Successful" : message;
  response_.SetJsonResult(
      JsonCommand::Encode(clientId_, functionName_, stack_, false, code, description));
  return this;
}

template HttpParamRequest* HttpParamRequest::GetResultStruct(int, const unsigned char*, int, int,
                                                             const std::string&);
template HttpParamRequest* HttpParamRequest::GetResultStruct(bool, const unsigned char*, int, int,
                                                             const std::string&);
template HttpParamRequest* HttpParamRequest::GetResultStruct(std::string, const unsigned char*, int,
                                                             int, const std::string&);

HttpParamRequest* HttpParamRequest::GetResultStruct(long value, const unsigned char* data, int len,
                                                    int code, const std::string& message) {
  return GetResultStruct(static_cast<int>(value), data, len, code, message);
}

HttpParamRequest* HttpParamRequest::GetBOOLResultStruct(signed char value,
                                                        const unsigned char* data, int len,
                                                        int code, const std::string& message) {
  return GetResultStruct(value != 0, data, len, code, message);
}

HttpParamRequest* HttpParamRequest::GetStringResultStruct(const std::string& value,
                                                          const unsigned char* data, int len,
                                                          int code, const std::string& message) {
  return GetResultStruct(value, data, len, code, message);
}

HttpParamRequest* HttpParamRequest::GetResultStructByJsonString(const std::string& json) {
  response_.SetJsonResult(json);
  return this;
}

bool HttpParamRequest::AddResultParam(const std::string& value, bool isEvent, int code,
                                      const std::string& message) {
  AddParam(value, isEvent, code, message);
  return true;
}

bool HttpParamRequest::AddStringResultParam(const std::string& value, bool isEvent, int code,
                                            const std::string& message) {
  return AddResultParam(value, isEvent, code, message);
}

bool HttpParamRequest::AddJsonStringResultParam(const std::string& json, bool isEvent, int code,
                                                const std::string& message) {
  Json::Value value;
  try {
    Json::Reader reader;
    if (!reader.parse(json, value, true)) return false;
  } catch (const std::exception&) {  // nested beyond the parser's limit
    return false;
  }
  AddParam(std::move(value), isEvent, code, message);
  return true;
}
