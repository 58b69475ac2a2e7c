#include "host/tls_identity.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include "environment/configuration.h"
#include "environment/paths.h"
#include "environment/users.h"
#include "host/host_log.h"
#include "os/file.h"

namespace host {

namespace {

using std::chrono::system_clock;

constexpr auto kLifetime = std::chrono::hours(24 * 820);  // browsers refuse more than 825 days
constexpr auto kRenewBefore = std::chrono::hours(24 * 30);

/// Where the pair is: names relative to the certificate folder, as the settings have them.
struct Place {
  std::string host;
  std::string certificate, key;
  bool named = false;  ///< by the settings

  std::string CertificateFile() const { return GetCertPath() + certificate; }
  std::string KeyFile() const { return GetCertPath() + key; }
};

std::string BaseName(const std::string& path) { return path.substr(path.rfind('/') + 1); }

bool Exists(const std::string& file) { return ::access(file.c_str(), F_OK) == 0; }

Place FindPlace() {
  Place place;
  place.host = GetConfigurationfromInitFile("LoopbackHost", "127.0.0.1", DEFAULT_SECTION);
  const char* section = place.host.c_str();
  place.named = !GetConfigurationfromInitFile("cert_name", "", section).empty() ||
                !GetConfigurationfromInitFile("key_name", "", section).empty();
  GetCertName(place.host, place.certificate, place.key);
  // The names that stand in when none is configured belong to a pair that an installer may leave.
  if (!place.named && (place.certificate.empty() || !Exists(place.CertificateFile()))) {
    place.certificate = BaseName(GetSSLCertFile());
    place.key = BaseName(GetSSLPriKeyFile());
  }
  return place;
}

void NameInSettings(const Place& place) {
  if (place.named) return;
  const std::array<ProfileEntry, 2> entries = {ProfileEntry{"cert_name", place.certificate},
                                               ProfileEntry{"key_name", place.key}};
  SetConfigurationToInitFile(entries, place.host.c_str());
  if (GetConfigurationfromInitFile("cert_name", "", place.host.c_str()) != place.certificate) {
    ReportError(
        "QVConfiguration.ini cannot be written: what is set is lost, the certificate's name too.");
  }
}

bool Write(const std::string& file, const std::string& content, mode_t mode, std::string* why) {
  // An existing file keeps its mode, so it must be right before the content is there.
  if (Exists(file)) ::chmod(file.c_str(), mode);
  const int failed = WriteWholeFile(file.c_str(), content, mode);
  if (failed != 0) *why = file + " cannot be written: " + std::strerror(failed) + ".";
  return failed == 0;
}

std::optional<KeyPair> MakeAt(const Place& place, std::string* why) {
  ::mkdir(GetCertPath().c_str(), 0700);
  auto pair = MakeKeyPair(kLifetime);
  if (!pair) {
    *why = "A certificate cannot be made.";
    return std::nullopt;
  }
  // A key without its certificate may be somebody's: it is put aside, not lost.
  if (!Exists(place.CertificateFile()) && Exists(place.KeyFile())) {
    ::rename(place.KeyFile().c_str(), (place.KeyFile() + ".old").c_str());
  }
  if (!Write(place.KeyFile(), pair->key, 0600, why) ||
      !Write(place.CertificateFile(), pair->certificate, 0644, why)) {
    return std::nullopt;
  }
  NameInSettings(place);
  return pair;
}

}  // namespace

bool TlsIdentity::Refresh(std::string* why, std::string* warning) {
  why->clear();
  warning->clear();
  const Place place = FindPlace();
  const std::string file = place.CertificateFile();
  const bool ourNames =
      place.certificate == BaseName(GetSSLCertFile()) && place.key == BaseName(GetSSLPriKeyFile());
  if (place.certificate.empty() || place.key.empty()) {
    *why = "Section " + place.host +
           " of QVConfiguration.ini names only one of cert_name and key_name.";
    return false;
  }

  KeyPair pair;
  const int unread = ReadWholeFile(file.c_str(), &pair.certificate);
  if (unread == ENOENT && ourNames) {
    const auto made = MakeAt(place, why);
    return made && Load(file, *made, why);
  }
  const auto facts = unread == 0 ? ReadCertificate(pair.certificate) : std::nullopt;
  if (!facts) {
    *why = unread == 0
               ? "The file " + file + " holds no certificate."
               : "The certificate " + file + " cannot be read: " + std::strerror(unread) + ".";
    return false;
  }

  const int keyUnread = ReadWholeFile(place.KeyFile().c_str(), &pair.key);
  const bool usable = keyUnread == 0 && KeyMatches(pair.certificate, pair.key);
  const bool ending = facts->notAfter - system_clock::now() < kRenewBefore;
  // A key that is there but cannot be read now may be good: users trust its certificate.
  const bool wrongKey = !usable && (keyUnread == 0 || keyUnread == ENOENT);
  if (facts->madeHere && (ending || wrongKey)) {
    const auto made = MakeAt(place, why);
    if (made) return Load(file, *made, why);
    if (!usable) return false;
    *warning = std::exchange(*why, "") + " ";
  }
  if (!usable) {
    *why = "The key " + place.KeyFile() +
           (keyUnread != 0 ? std::string(" cannot be read: ") + std::strerror(keyUnread)
                           : " does not belong to the certificate " + file) +
           ".";
    return false;
  }
  if (ending) *warning += "The certificate " + file + " ends on " + IsoTime(facts->notAfter) + ".";
  NameInSettings(place);
  return Load(file, pair, why);
}

bool TlsIdentity::Load(const std::string& file, const KeyPair& pair, std::string* why) {
  namespace ssl = boost::asio::ssl;
  boost::system::error_code ec;
  const auto context = std::make_shared<ssl::context>(ssl::context::tls_server);
  SSL_CTX_set_min_proto_version(context->native_handle(), TLS1_2_VERSION);
  context->use_certificate_chain(boost::asio::buffer(pair.certificate), ec);
  if (!ec) context->use_private_key(boost::asio::buffer(pair.key), ssl::context::pem, ec);
  if (ec) {
    *why = "The certificate " + file + " cannot be used: " + ec.message() + ".";
    return false;
  }
  const MutexLock lock(mutex_);
  context_ = context;
  facts_ = ReadCertificate(pair.certificate);
  file_ = file;
  return true;
}

std::shared_ptr<boost::asio::ssl::context> TlsIdentity::Context() const {
  const MutexLock lock(mutex_);
  return context_;
}

std::optional<CertificateFacts> TlsIdentity::Facts() const {
  const MutexLock lock(mutex_);
  return facts_;
}

std::string TlsIdentity::File() const {
  const MutexLock lock(mutex_);
  return file_;
}

}  // namespace host
