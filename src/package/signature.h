// What packages are checked with: SHA-256 sums, and Ed25519 signatures (RFC 8032).
#pragma once

#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

struct evp_md_ctx_st;
struct evp_pkey_st;

namespace package {

class Sha256 {
 public:
  Sha256();
  void Add(std::string_view bytes);
  /// In lower case; "" when the library failed, which no expected value equals. Once, at the end.
  std::string Finish();

 private:
  struct Free {
    void operator()(evp_md_ctx_st* context) const;
  };
  std::unique_ptr<evp_md_ctx_st, Free> context_;
  bool good_ = false;
};

/// The sum of a regular file, not reached by a link; "" when it cannot be read.
std::string Sha256OfFile(const std::string& path);

/// The public keys of those who may sign packages: compiled in, and the files of `update_keys/` in
/// the work folder, as they are now. What lies there and is no key that can be trusted does not
/// leave packages unsigned: it is a problem, and counts as a key that signs nothing.
class UpdateKeys {
 public:
  static UpdateKeys Of(const std::string& workFolder);
  /// From PEM texts and from the files of a folder, which ends in "/" and may be missing.
  UpdateKeys(std::span<const char* const> compiledIn, const std::string& folder);

  /// Whether a package must be signed.
  bool AreRequired() const { return !keys_.empty() || !problems_.empty(); }
  /// Whether one of the keys' holders signed these bytes.
  bool Verify(std::string_view bytes, std::string_view signature) const;
  /// A sentence for each file that should be a key and cannot be used.
  const std::vector<std::string>& problems() const { return problems_; }
  /// What holds for packages, for the operator.
  std::string Sentence() const;

 private:
  struct Free {
    void operator()(evp_pkey_st* key) const;
  };
  using Key = std::unique_ptr<evp_pkey_st, Free>;
  static Key Parse(std::string_view pem);
  void ReadFolder(const std::string& folder);
  std::string ReadFile(const std::string& path);

  std::vector<Key> keys_;
  std::vector<std::string> problems_;
};

/// The PEM texts that the build compiled in.
std::span<const char* const> CompiledKeys();

}  // namespace package
