// The port registry: which plain and secure port each module listens on, service-wide in the main
// configuration file and per user in "user_config.ini". Any thread may call.
//
// Setters take (port, name), getters (name, ...), and the types keep the two from being swapped.
#pragma once

#include <map>
#include <string>
#include <vector>

/// Module alias to port.
using PortMap = std::map<std::string, int>;
/// A module's port, or `absent`.
int FindPort(const PortMap& map, const std::string& name, int absent);

inline constexpr const char* PLAIN_PORT_KEY = "Port";
inline constexpr const char* SSL_PORT_KEY = "SSLPort";

/// The stored map under a base key. With `useStoredCount` as many entries as the file says, else up
/// to the first missing name and at most ten.
PortMap ReadPort(const char* baseKey, bool useStoredCount);
PortMap ReadSSLPort(bool useStoredCount);
PortMap ReadNoSSLPort(bool useStoredCount);
/// One module's stored port, 0 if it has none.
int GetSSLPort(const std::string& name, bool useStoredCount);
int GetNoSSLPort(const std::string& name, bool useStoredCount);

/// Remember the port in this process's own map and store that whole map, so the file tells what the
/// process that saved last has set. These and the below return whether they stored, as
/// SetConfigurationToInitFile.
bool SetSSLPort(int port, const std::string& name);
bool SetNoSSLPort(int port, const std::string& name);
/// Where a module shall listen.
struct ServerPorts {
  std::string name;
  int port;
  int sslPort;
};
/// The same for several modules and the host name ("Server") in a single rewrite of the file, so
/// that no crash in between leaves a map without one of them.
bool SetServer(const std::string& host, const std::vector<ServerPorts>& modules);

/// Both stored maps, without their counts, from one look at the file.
struct StoredPorts {
  PortMap plain;
  PortMap secure;
};
StoredPorts ReadPorts();

/// A port that a service has opened for a module.
struct OpenedPort {
  std::string name;
  bool secure;
  int stored;  ///< which port was stored when the service decided what to open, 0 for none
  int actual;
};
/// Stores the actual ports in one step, but of a module whose stored port is not that one any more:
/// somebody has set another since then. Returns false, with errno set, when the file cannot be
/// written.
bool StoreOpenedPorts(const std::vector<OpenedPort>& opened);

/// Stores a whole map in one step: its entries in descending order of their names, then its size.
/// Entries left over from a larger map stay in the file behind it.
bool SavePort(const PortMap& map, const char* baseKey);

/// One user's port of a module (0 if none), in the section that the caller names. It is stored in
/// one step, for the default as well if wanted. Returns whether it was stored.
int GetPort(const char* section, const std::string& name, bool isDefault, bool isSecure);
bool SavePort(const char* section, const std::string& name, bool alsoDefault, bool isSecure,
              int port);

/// The secure ports of a per-user process, this module's first; empty in other work modes.
std::vector<int> ReadUserSSLPort();

/// Asks a user's process to end. Returns whether that was stored.
bool SetUserProcessExitFlag(const char* section, bool flag);
bool GetUserProcessExitFlag(const char* section);

/// Whether the port's decimal text occurs anywhere in the file (80 is found in 8080).
bool PortIsUsed(const char* filePath, int port);
/// Always 0: no port is tested.
int PortIsUsed(int port);
