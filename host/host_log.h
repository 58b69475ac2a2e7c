// What the host itself has to say: on standard error, a line an event, each with its time (UTC) and
// level. The log file is the module's.
#pragma once

#include <chrono>
#include <string>
#include <string_view>

namespace host {

/// As 2024-01-31T23:59:59Z. Any thread may call.
std::string IsoTime(std::chrono::system_clock::time_point time);

/// Makes the log lines of this program's own code go where its other words go: errors always, infos
/// and debug lines as far as LogLevel lets them through. Once, before anything logs.
void SendLogToStandardError();

/// A line for the operator: what failed, or what should be looked at. Any thread may call.
void ReportError(std::string_view sentence);
void ReportWarning(std::string_view sentence);

}  // namespace host
