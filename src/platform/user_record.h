// The system's record of the user that this process runs as; for the bodies of os.h.
#pragma once

#include <pwd.h>
#include <unistd.h>

#include <string>

namespace os {

/// One text of the record, "" when the user is unknown.
inline std::string ReadUserRecord(char* passwd::*field) {
  char space[16 * 1024];
  passwd record{};
  passwd* found = nullptr;
  if (::getpwuid_r(::geteuid(), &record, space, sizeof space, &found) != 0 || found == nullptr) {
    return {};
  }
  const char* text = found->*field;
  return text != nullptr ? text : "";
}

/// The root folder alone keeps its slash.
inline std::string WithoutTrailingSlash(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

}  // namespace os
