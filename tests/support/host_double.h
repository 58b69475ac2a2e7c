// A host that remembers what the module sends and asks, for tests of one thread, and a fixture that
// runs commands for it.
#pragma once

#include <json/json.h>

#include "command/http_param_request.h"
#include "environment/configuration.h"
#include "environment/paths.h"
#include "environment/program_information.h"
#include "manager/manager_client.h"
#include "support/testing.h"

struct HostDouble {
  struct Sent {
    int connectionId;
    std::string text, data;
  };
  std::vector<Sent> sent;
  signed char result = 1;

  static inline std::vector<std::string> asked;

  static signed char Take(int connectionId, void* host, const char* text, const void* data,
                          unsigned int len, const char*) {
    auto* self = static_cast<HostDouble*>(host);
    self->sent.push_back({connectionId, text, std::string(static_cast<const char*>(data), len)});
    return self->result;
  }
  static signed char Wrap(SendBackFunc fn, int connectionId, void* host, const char* text,
                          const void* data, unsigned int len, const char* extra) {
    return fn(connectionId, host, text, data, len, extra);
  }
  static int Ask(const char*, const char*, const char* name, void*, unsigned int*) {
    asked.emplace_back(name);
    return 0;
  }

  std::unique_ptr<HttpParamRequest> Request(const std::string& text, int browserType = 1,
                                            int connectionId = 3, HostDataGetFunc ask = &Ask) {
    return std::make_unique<HttpParamRequest>(connectionId, this, text, browserType, 0, "", &Wrap,
                                              &Take, ask, nullptr, nullptr, nullptr, 0, true);
  }
};

class Commands : public ::testing::Test {
 protected:
  Commands() {
    InitProgramInfo();
    Spit(GetInitFile(), "");
    HostDouble::asked.clear();
  }

  std::string Reply(const std::string& method, const std::string& parameters, int browserType = 1,
                    const std::string& version = "") {
    HostDouble host;
    host.result = 5;
    const std::string command = R"({"id":"1","version":")" + version + R"(","method":")" + method +
                                R"(","parameter":)" + parameters + "}";
    EXPECT_EQ(manager_.Function(host.Request(command, browserType).get()), 5) << method;
    EXPECT_EQ(host.sent.size(), 1u) << method;
    return host.sent.empty() ? "" : host.sent[0].text;
  }

  static Json::Value Parsed(const std::string& text) {
    Json::Value value;
    EXPECT_TRUE(Json::Reader().parse(text, value)) << text;
    return value;
  }

  static std::string Stored(const char* key) {
    return GetConfigurationfromInitFile(key, "", DEFAULT_SECTION);
  }

  ManagerClient manager_;
};
