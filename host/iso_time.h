// Times as the host tells them.
#pragma once

#include <chrono>
#include <string>

namespace host {

/// As 2024-01-31T23:59:59Z. Any thread may call.
std::string IsoTime(std::chrono::system_clock::time_point time);

}  // namespace host
