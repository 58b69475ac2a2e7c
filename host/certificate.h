// Certificates: making one that this machine signs for itself, and reading what one says. Texts are
// PEM. Nothing throws but bad_alloc, nothing prompts for a password.
#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace host {

struct KeyPair {
  std::string certificate;
  std::string key;
};

/// A P-256 key and a certificate for localhost, 127.0.0.1 and [::1] that is valid from about now
/// on. Nothing when the library refuses.
std::optional<KeyPair> MakeKeyPair(std::chrono::hours lifetime);

struct CertificateFacts {
  std::string subject;
  std::chrono::system_clock::time_point notBefore;
  std::chrono::system_clock::time_point notAfter;
  bool madeHere = false;  ///< by MakeKeyPair, on any machine
};

/// Nothing when the text holds no certificate.
std::optional<CertificateFacts> ReadCertificate(const std::string& certificate);

/// Whether the key can be read and belongs to the certificate.
bool KeyMatches(const std::string& certificate, const std::string& key);

}  // namespace host
