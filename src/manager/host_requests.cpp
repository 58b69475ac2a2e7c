#include "manager/host_requests.h"

#include <algorithm>
#include <climits>
#include <new>

#include "command/http_param_request.h"

int AskHost(HttpParamRequest& request, HostRequest what) {
  const HostDataGetFunc ask = request.GetHostDataGet();
  return ask == nullptr ? -1 : ask(nullptr, nullptr, RESERVED_CMD[what], nullptr, nullptr);
}

std::string AskHostForText(HttpParamRequest& request, HostRequest what) {
  const HostDataGetFunc ask = request.GetHostDataGet();
  if (ask == nullptr) return "";
  unsigned int size = 0;
  ask(nullptr, nullptr, RESERVED_CMD[what], nullptr, &size);
  if (size == 0 || size > INT_MAX) return "";
  std::string text;
  try {
    text.resize(size);
  } catch (const std::bad_alloc&) {
    return "";
  }
  unsigned int filled = size;
  ask(nullptr, nullptr, RESERVED_CMD[what], text.data(), &filled);
  text.resize(std::min(filled, size));
  return text;
}
