#include "manager/host_requests.h"

#include "frame/http_param_request.h"

int AskHost(HttpParamRequest& request, HostRequest what) {
  const HostDataGetFunc ask = request.GetHostDataGet();
  return ask == nullptr ? -1 : ask(nullptr, nullptr, RESERVED_CMD[what], nullptr, nullptr);
}
