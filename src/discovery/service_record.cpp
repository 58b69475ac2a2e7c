#include "discovery/service_record.h"

#include <string_view>

#include "platform/ascii.h"

namespace mdns_wrapper {
namespace {

/// The field that takes the value of a key as it is, null for the other keys.
std::string* TextField(DNSServiceInfo& info, std::string_view key) {
  const struct {
    std::string_view key;
    std::string* field;
  } kFields[] = {
      {"txtvers", &info.txtvers}, {"ty", &info.ty}, {"id", &info.id},
      {"modules", &info.modules}, {"os", &info.os}, {"url", &info.url},
      {"tags", &info.tags},
  };
  for (const auto& [name, field] : kFields) {
    if (name == key) return field;
  }
  return nullptr;
}

}  // namespace

DNSServiceInfo serviceInfoFromTxt(const std::string& ipv4, const std::string& ipv6,
                                  const std::map<std::string, std::string>& pairs) {
  DNSServiceInfo info;
  info.ipv4 = ipv4;
  info.ipv6 = ipv6;
  for (const auto& [rawKey, value] : pairs) {
    const std::string key = ascii::Lower(rawKey);
    if (key == "type") {
      const std::string kind = ascii::Lower(value);
      if (kind == "marvique_private_cloud_scan") {
        info.type = SERVICE_PRIVATE_CLOUD_SCAN;
      } else if (kind == "twaindirect") {
        info.type = SERVICE_TWAIN_DIRECT;
      } else {
        info.url.clear();
        info.txtvers.clear();
        break;
      }
    } else if (key == "acessmode") {
      const std::string mode = ascii::Lower(value);
      if (mode == "password_proetect") {
        info.accessMode = ACCESS_PASSWORD;
      } else if (mode == "anonymous") {
        info.accessMode = ACCESS_ANONYMOUS;
      }
    } else if (std::string* field = TextField(info, key)) {
      *field = value;
    }
  }
  return info;
}

}  // namespace mdns_wrapper
