// A host that remembers what the module sends and asks, for tests of one thread.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "frame/http_param_request.h"

struct HostDouble {
  struct Sent {
    int connectionId;
    std::string text;
    std::string data;
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
                                            int connectionId = 3) {
    return std::make_unique<HttpParamRequest>(connectionId, this, text, browserType, 0, "", &Wrap,
                                              &Take, &Ask, nullptr, nullptr, nullptr, 0, true);
  }
};
