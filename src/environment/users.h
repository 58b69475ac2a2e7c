// Users and processes: who the service runs for, what it starts for them, and how page texts are
// turned into local terms. Any thread may call.
#pragma once

#include <sys/types.h>

#include <string>

/// Name of the user that this process runs as, UTF-8, "" if unknown. The id is not used.
std::string GetCurrentUserName(int id);
/// The user's numeric ids. Returns 0, or -1 for a null argument or an unknown user.
int name_to_uid(const char* name, uid_t* uid, gid_t* gid);

/// Starts the scanning process with the application's path (searched on PATH when it has no "/"),
/// the command line and the extra text, null for ""; nothing else is used. The child is not waited
/// for. Returns 1 or 0.
int CreateProcessAsCurrentLogonUser(const char* application, const char* commandLine,
                                    void* processAttributes, void* threadAttributes,
                                    int inheritHandles, unsigned int flags, const char* extra,
                                    const char* currentFolder);

/// Replaces each ~/ behind a quote or a comma by the home folder: JSON values and comma-separated
/// lists get their paths, other text stays.
std::string DealWithMacHomeDir(const std::string& text);
/// Scheme, host and port of a page's address, the host in ASCII form. "" for what is no http or
/// https address; an empty address and "null" come back as they are.
std::string GetFullDomain(const std::string& address);

/// The certificate and key files for a host: those configured in the section of its name, else the
/// service's own pair for its loopback name (key "LoopbackHost") and its product domain (key
/// "ProductDomain"), else "".
void GetCertName(const std::string& host, std::string& certFile, std::string& keyFile);
/// File name of the scanning program with that index.
std::string GetScanModuleName(int index);

/// There are no per-login tokens on this system: fixed answers.
void GetUserInfo(int id, std::string& name, int& session, int& process);
std::string GetUserSID(int id);
int GetConnectionProcessID(int socket);
int GetProcessSessionID(int process);
int GetClientConnectionSessionID(int socket, int* session);
int GetCurrentUserToken(void** token, int session);
