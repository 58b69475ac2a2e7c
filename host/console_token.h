// The secret that tells the service's own console from any other page that was ever served at this
// port: whoever had the port while the service was down owned its origin, too.
#pragma once

#include <string>
#include <string_view>

namespace host {

/// A token of 256 random bits for one run of the service, kept in a file that only its account may
/// read. Any thread may call what is const.
class ConsoleToken {
 public:
  /// Makes a token and the file, which replaces one that an earlier run left. Where that fails
  /// there is no token, and the operator is told.
  explicit ConsoleToken(std::string file);
  ~ConsoleToken() { Remove(); }
  ConsoleToken(const ConsoleToken&) = delete;
  ConsoleToken& operator=(const ConsoleToken&) = delete;

  /// Whether a text is the token. How long that takes does not tell how much of it is right.
  bool Matches(std::string_view text) const;
  /// Removes the file.
  void Remove();

 private:
  bool Make();

  const std::string file_;
  std::string token_;  // "" for none
};

}  // namespace host
