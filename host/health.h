// The answer to GET /health.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "host/certificate.h"
#include "host/listening_ports.h"
#include "package/update_record.h"

namespace host {

struct ModuleHealth {
  std::string alias;
  std::string description;
  bool busy = false;
};

struct Health {
  std::string name;
  std::string version;  ///< of the installation, as its settings tell it
  std::string build;    ///< of the running program
  int pid = 0;
  std::vector<ModuleHealth> modules;
  std::vector<PortState> ports;
  std::optional<CertificateFacts> certificate;
  std::chrono::system_clock::time_point started;
  std::size_t connections = 0;
  package::UpdateRecord update;
  std::string packages;  ///< whether they must be signed, in a sentence
};

/// As JSON text of several lines.
std::string HealthText(const Health& health);

}  // namespace host
