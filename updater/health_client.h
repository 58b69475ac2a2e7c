// One question to a service on this machine.
#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace update {

/// The answer to GET /health on 127.0.0.1; nothing when it has not come whole within the time. The
/// certificate of a secure port is not looked at: nothing secret is said, and what the answer must
/// prove is the number of a process that the caller knows.
std::optional<std::string> FetchHealth(int port, bool secure, std::chrono::milliseconds limit);

}  // namespace update
