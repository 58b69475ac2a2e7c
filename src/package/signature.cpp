#include "package/signature.h"

#include <fcntl.h>
#include <openssl/bio.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "environment/paths.h"
#include "os/file.h"
#include "os/text.h"

namespace package {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kSignatureBytes = 64;
constexpr off_t kMostKeyBytes = 64 * 1024;  // a key has about 120

unsigned char const* Bytes(std::string_view text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

/// Who else may write a key or its folder may sign packages.
bool IsOthersToWrite(const struct stat& status) {
  return (status.st_uid != ::geteuid() && status.st_uid != 0) || (status.st_mode & S_IWOTH) != 0;
}

}  // namespace

void Sha256::Free::operator()(evp_md_ctx_st* context) const { ::EVP_MD_CTX_free(context); }

Sha256::Sha256() : context_(::EVP_MD_CTX_new()) {
  good_ = context_ && ::EVP_DigestInit_ex(context_.get(), ::EVP_sha256(), nullptr) == 1;
}

void Sha256::Add(std::string_view bytes) {
  good_ = good_ && ::EVP_DigestUpdate(context_.get(), bytes.data(), bytes.size()) == 1;
}

std::string Sha256::Finish() {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned int length = 0;
  if (!good_ || ::EVP_DigestFinal_ex(context_.get(), digest.data(), &length) != 1) return "";
  return ascii::Hex({digest.data(), length});
}

std::string Sha256OfFile(const std::string& path) {
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat status {};
  if (!file || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return "";
  Sha256 sum;
  std::string buffer(256 * 1024, '\0');
  for (;;) {
    const ssize_t count = ::read(file.get(), buffer.data(), buffer.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return "";
    if (count == 0) return sum.Finish();
    sum.Add({buffer.data(), static_cast<std::size_t>(count)});
  }
}

void UpdateKeys::Free::operator()(evp_pkey_st* key) const { ::EVP_PKEY_free(key); }

UpdateKeys UpdateKeys::Of(const std::string& workFolder) {
  return {CompiledKeys(), workFolder + work_folder::kUpdateKeys + "/"};
}

UpdateKeys::UpdateKeys(std::span<const char* const> compiledIn, const std::string& folder) {
  for (const char* pem : compiledIn) {
    if (Key key = Parse(pem)) {
      keys_.push_back(std::move(key));
    } else {
      problems_.emplace_back("A key that is compiled in is no Ed25519 public key.");
    }
  }
  ReadFolder(folder);
}

/// Null for what is no Ed25519 public key. OpenSSL's own reader of keys takes a millisecond, which
/// is too much for /health: such a key is 32 bytes behind a constant head (RFC 8410, section 4).
UpdateKeys::Key UpdateKeys::Parse(std::string_view pem) {
  constexpr std::string_view kHead("\x30\x2A\x30\x05\x06\x03\x2B\x65\x70\x03\x21\x00", 12);
  constexpr std::size_t kKeyBytes = 32;
  const std::unique_ptr<BIO, decltype(&::BIO_free)> text(
      ::BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())), &::BIO_free);
  char* name = nullptr;
  char* header = nullptr;
  unsigned char* data = nullptr;
  long size = 0;
  Key key;
  if (text && ::PEM_read_bio(text.get(), &name, &header, &data, &size) == 1) {
    const std::string_view bytes(reinterpret_cast<const char*>(data),
                                 static_cast<std::size_t>(size));
    if (std::string_view(name) == PEM_STRING_PUBLIC && bytes.starts_with(kHead) &&
        bytes.size() == kHead.size() + kKeyBytes) {
      key.reset(
          ::EVP_PKEY_new_raw_public_key(EVP_PKEY_ED25519, nullptr, data + kHead.size(), kKeyBytes));
    }
  }
  ::OPENSSL_free(name);
  ::OPENSSL_free(header);
  ::OPENSSL_free(data);
  ::ERR_clear_error();
  return key;
}

void UpdateKeys::ReadFolder(const std::string& folder) {
  const std::string path = folder.substr(0, folder.size() - 1);
  struct stat status {};
  // A link that leads nowhere is there, too.
  if (::lstat(path.c_str(), &status) != 0 && errno == ENOENT) return;
  std::error_code error;
  fs::directory_iterator entries(path, error);
  if (!error && (::stat(path.c_str(), &status) != 0 || IsOthersToWrite(status))) {
    problems_.push_back(path + " may be written by other users.");
    return;
  }
  for (; !error && entries != fs::directory_iterator(); entries.increment(error)) {
    if (entries->path().filename().string().starts_with('.')) continue;
    const std::string problem = ReadFile(entries->path());
    if (!problem.empty()) problems_.push_back(entries->path().string() + " " + problem + ".");
  }
  if (error) problems_.push_back(path + " cannot be read: " + error.message() + ".");
}

/// "", or what is wrong with the file.
std::string UpdateKeys::ReadFile(const std::string& path) {
  // A copy that an editor left must not be a key, nor a key with a wrong name be overlooked.
  if (!path.ends_with(".pem")) return "is no key: its name does not end in .pem";
  std::string text;
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) {
    return std::string("cannot be read: ") + std::strerror(errno);
  }
  if (IsOthersToWrite(status)) return "may be written by other users";
  if (S_ISREG(status.st_mode) && status.st_size <= kMostKeyBytes) {
    const int error = ReadWholeFile(path.c_str(), &text);
    if (error != 0) return std::string("cannot be read: ") + std::strerror(error);
  }
  Key key = Parse(text);
  if (!key) return "is no Ed25519 public key";
  keys_.push_back(std::move(key));
  return "";
}

bool UpdateKeys::Verify(std::string_view bytes, std::string_view signature) const {
  if (signature.size() != kSignatureBytes) return false;
  for (const Key& key : keys_) {
    const std::unique_ptr<EVP_MD_CTX, decltype(&::EVP_MD_CTX_free)> context(::EVP_MD_CTX_new(),
                                                                            &::EVP_MD_CTX_free);
    const bool good =
        context &&
        ::EVP_DigestVerifyInit(context.get(), nullptr, nullptr, nullptr, key.get()) == 1 &&
        ::EVP_DigestVerify(context.get(), Bytes(signature), signature.size(), Bytes(bytes),
                           bytes.size()) == 1;
    ::ERR_clear_error();
    if (good) return true;
  }
  return false;
}

std::string UpdateKeys::Sentence() const {
  if (!AreRequired()) return "Packages are taken without a signature: there is no update key.";
  if (keys_.empty()) return "No package is taken: no update key can be used.";
  const std::string count = std::to_string(keys_.size());
  return "Packages must be signed: there " +
         (keys_.size() == 1 ? "is 1 update key." : "are " + count + " update keys.");
}

}  // namespace package
