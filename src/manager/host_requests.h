// The services that the module asks its host for, by name.
#pragma once

#include <string>

class HttpParamRequest;

enum HostRequest : int {
  HOST_FILE_IN_WHITE_LIST,
  HOST_ADD_FILE_TO_WHITE_LIST,
  HOST_CREATE_PROCESS,
  HOST_VERIFY,
  HOST_START_MDNS_QUERY,
  HOST_STOP_MDNS_QUERY,
  HOST_START_MDNS,
  HOST_STOP_MDNS,
  HOST_RELOAD_NGINX,
  HOST_GET_SERVICE_INFO,
  HOST_GET_BINARY_FILE_INFO,
  HOST_RESTART_SERVICE,
  HOST_GET_UPLOAD_FILE,
  HOST_REQUEST_COUNT
};

/// The names by HostRequest, one slot of 64 characters each. The first two are also what the host
/// itself asks this module for.
inline constexpr char RESERVED_CMD[HOST_REQUEST_COUNT][64] = {
    "fileInHVNWhiteList", "addFileToWhiteList", "createProcess", "/verify?id=", "startmDNSQuery",
    "stopmDNSQuery",      "startmDNS",          "stopmDNS",      "reloadNginx", "getServiceInfo",
    "getBinaryFileInfo",  "restartService",     "getUploadFile"};

/// Asks the host of this request for a service without input and output. Returns the host's
/// result, -1 when it gave no callback.
int AskHost(HttpParamRequest& request, HostRequest what);

/// Asks for a text in two calls, the size first and then the bytes. Returns what the second call
/// gave, never more than the first announced; "" when the host has none.
std::string AskHostForText(HttpParamRequest& request, HostRequest what);
