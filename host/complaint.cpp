#include "host/complaint.h"

#include <cstdio>

#include "environment/logging.h"

namespace host {

void Complain(const std::string& sentence) {
  std::fprintf(stderr, "%s\n", sentence.c_str());
  LogErr("%s", sentence.c_str());
}

}  // namespace host
