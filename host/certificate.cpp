#include "host/certificate.h"

#include <openssl/bio.h>
#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

#include <ctime>
#include <initializer_list>
#include <memory>
#include <utility>

namespace host {

namespace {

/// Tells certificates that the service may replace from those of the operator.
constexpr const char* kMaker = "Marvique Service (made on this machine)";

template <auto Free>
struct Deleter {
  template <class T>
  void operator()(T* object) const {
    Free(object);
  }
};
using Bio = std::unique_ptr<BIO, Deleter<BIO_free_all>>;
using Key = std::unique_ptr<EVP_PKEY, Deleter<EVP_PKEY_free>>;
using Certificate = std::unique_ptr<X509, Deleter<X509_free>>;
using Extension = std::unique_ptr<X509_EXTENSION, Deleter<X509_EXTENSION_free>>;
using Serial = std::unique_ptr<BIGNUM, Deleter<BN_free>>;

/// Failures here are told by results: what they leave in the thread's error queue would confuse the
/// connections that share it.
struct QuietErrors {
  ~QuietErrors() { ERR_clear_error(); }
};

int NoPassword(char*, int, int, void*) { return 0; }

Bio Reading(const std::string& text) {
  return Bio(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
}

std::string Written(const Bio& bio) {
  char* data = nullptr;
  const long size = BIO_get_mem_data(bio.get(), &data);
  return size > 0 ? std::string(data, static_cast<std::size_t>(size)) : "";
}

Certificate ParseCertificate(const std::string& text) {
  const Bio bio = Reading(text);
  return Certificate(bio ? PEM_read_bio_X509(bio.get(), nullptr, NoPassword, nullptr) : nullptr);
}

bool AddName(X509_NAME* name, const char* field, const char* text) {
  return X509_NAME_add_entry_by_txt(name, field, MBSTRING_UTF8,
                                    reinterpret_cast<const unsigned char*>(text), -1, -1, 0) == 1;
}

bool SetRandomSerial(X509* certificate) {
  const Serial serial(BN_new());
  return serial && BN_rand(serial.get(), 127, BN_RAND_TOP_ANY, BN_RAND_BOTTOM_ANY) == 1 &&
         BN_to_ASN1_INTEGER(serial.get(), X509_get_serialNumber(certificate)) != nullptr;
}

bool AddExtensions(X509* certificate) {
  X509V3_CTX context;
  X509V3_set_ctx_nodb(&context);
  X509V3_set_ctx(&context, certificate, certificate, nullptr, nullptr, 0);
  const std::initializer_list<std::pair<int, const char*>> extensions = {
      {NID_basic_constraints, "critical,CA:FALSE"},
      {NID_key_usage, "critical,digitalSignature"},
      {NID_ext_key_usage, "serverAuth"},
      {NID_subject_key_identifier, "hash"},
      {NID_subject_alt_name, "DNS:localhost,IP:127.0.0.1,IP:::1"},
  };
  for (const auto& [nid, value] : extensions) {
    const Extension extension(X509V3_EXT_conf_nid(nullptr, &context, nid, value));
    if (!extension || X509_add_ext(certificate, extension.get(), -1) != 1) return false;
  }
  return true;
}

std::chrono::system_clock::time_point ToTime(const ASN1_TIME* time) {
  std::tm parts{};
  if (ASN1_TIME_to_tm(time, &parts) != 1) return {};
  return std::chrono::system_clock::from_time_t(::timegm(&parts));
}

}  // namespace

std::optional<KeyPair> MakeKeyPair(std::chrono::hours lifetime) {
  const QuietErrors quiet;
  const Key key(EVP_EC_gen("P-256"));
  const Certificate certificate(X509_new());
  if (!key || !certificate) return std::nullopt;
  X509* x = certificate.get();
  X509_NAME* name = X509_get_subject_name(x);
  // A little in the past, for clocks that were just set back.
  constexpr long kEarlier = -3600;
  const long seconds = static_cast<long>(std::chrono::seconds(lifetime).count());
  const bool made = X509_set_version(x, X509_VERSION_3) == 1 && SetRandomSerial(x) &&
                    X509_gmtime_adj(X509_getm_notBefore(x), kEarlier) != nullptr &&
                    X509_gmtime_adj(X509_getm_notAfter(x), kEarlier + seconds) != nullptr &&
                    AddName(name, "O", kMaker) && AddName(name, "CN", "localhost") &&
                    X509_set_issuer_name(x, name) == 1 && X509_set_pubkey(x, key.get()) == 1 &&
                    AddExtensions(x) && X509_sign(x, key.get(), EVP_sha256()) != 0;
  const Bio certificateText(BIO_new(BIO_s_mem())), keyText(BIO_new(BIO_s_mem()));
  if (!made || !certificateText || !keyText || PEM_write_bio_X509(certificateText.get(), x) != 1 ||
      PEM_write_bio_PrivateKey(keyText.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr) !=
          1) {
    return std::nullopt;
  }
  return KeyPair{Written(certificateText), Written(keyText)};
}

std::optional<CertificateFacts> ReadCertificate(const std::string& text) {
  const QuietErrors quiet;
  const Certificate certificate = ParseCertificate(text);
  if (!certificate) return std::nullopt;
  X509* x = certificate.get();
  CertificateFacts facts;
  facts.notBefore = ToTime(X509_get0_notBefore(x));
  facts.notAfter = ToTime(X509_get0_notAfter(x));
  const Bio subject(BIO_new(BIO_s_mem()));
  if (subject) {
    X509_NAME_print_ex(subject.get(), X509_get_subject_name(x), 0,
                       XN_FLAG_RFC2253 & ~ASN1_STRFLGS_ESC_MSB);
    facts.subject = Written(subject);
  }
  char maker[128] = "";
  X509_NAME_get_text_by_NID(X509_get_issuer_name(x), NID_organizationName, maker, sizeof maker);
  facts.madeHere = std::string(maker) == kMaker && X509_verify(x, X509_get0_pubkey(x)) == 1;
  return facts;
}

bool KeyMatches(const std::string& certificateText, const std::string& keyText) {
  const QuietErrors quiet;
  const Certificate certificate = ParseCertificate(certificateText);
  const Bio bio = Reading(keyText);
  const Key key(bio ? PEM_read_bio_PrivateKey(bio.get(), nullptr, NoPassword, nullptr) : nullptr);
  return certificate && key && X509_check_private_key(certificate.get(), key.get()) == 1;
}

}  // namespace host
