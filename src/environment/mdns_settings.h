// The settings of network discovery: advertising this service and browsing for others. They live in
// the main configuration file, section "QV"; nothing is cached. Any thread may call.
#pragma once

#include <string>

/// Whether the service is advertised.
bool GetEnablemDNSService();
/// The same, and when it is its alias, tags and access mode (-1 if none is stored); otherwise both
/// texts are emptied and the mode is -1.
bool GetEnablemDNSService(std::string& alias, std::string& tags, int& accessMode);
/// The stored password value, "" if none is.
std::string GetmDNSServicePwd();
/// Stores the switch and, only when enabling, the rest; a null password leaves the stored one. The
/// three flags are not used. Disabling keeps everything for the next time. One write; returns
/// whether it was done, as SetConfigurationToInitFile.
bool SetEnablemDNSService(bool enable, const char* alias, const char* tags, bool, bool, bool,
                          int accessMode, const char* password);

/// How many answers single askers are sent in one second, all together: 1 to 10,000,000; 1,000 when
/// none or nonsense is stored.
int GetmDNSAnswersPerSecond();

/// Whether other services are browsed for.
bool GetEnablemDNSQueryService();
/// The same, and when it is on the proxy's address, ports, certificate and key.
bool GetEnablemDNSQueryService(std::string& proxyIP, int& port, int& sslPort, std::string& cert,
                               std::string& key);
/// Stores everything, whatever the switch; a null text leaves the stored one. One write, as above.
bool SetEnablemDNSQUeryService(bool enable, const char* proxyIP, int port, int sslPort,
                               const char* cert, const char* key);
