#include "host/console_token.h"

#include <fcntl.h>
#include <openssl/crypto.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include "host/host_log.h"
#include "os/file.h"
#include "os/system.h"
#include "os/text.h"

namespace host {

ConsoleToken::ConsoleToken(std::string file) : file_(std::move(file)) {
  if (Make()) return;
  ReportWarning("The console's token cannot be kept in " + file_ + ": " + std::strerror(errno) +
                ". The console can only look.");
  Remove();
}

bool ConsoleToken::Make() {
  std::array<unsigned char, 32> random{};
  if (!os::FillRandom(random.data(), random.size())) return false;
  std::string token = ascii::Hex(random);
  // What stands there may be readable for others, or a link.
  if (::unlink(file_.c_str()) != 0 && errno != ENOENT) return false;
  const Descriptor file(::open(file_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (!file) return false;
  if (const int error = WriteAll(file.get(), token + "\n")) {
    errno = error;
    return false;
  }
  token_ = std::move(token);
  return true;
}

bool ConsoleToken::Matches(std::string_view text) const {
  return !token_.empty() && text.size() == token_.size() &&
         ::CRYPTO_memcmp(text.data(), token_.data(), token_.size()) == 0;
}

void ConsoleToken::Remove() { ::unlink(file_.c_str()); }

}  // namespace host
