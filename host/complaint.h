// What the operator must hear: on standard error, for who started the service, and in the log.
#pragma once

#include <string>

namespace host {

/// Any thread may call.
void Complain(const std::string& sentence);

}  // namespace host
