#include "manager/certificate_date.h"

#include <openssl/asn1.h>
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <climits>
#include <memory>

namespace {

struct Release {
  void operator()(BIO* stream) const { BIO_free(stream); }
  void operator()(X509* certificate) const { X509_free(certificate); }
};

int RefusePassword(char*, int, int, void*) { return -1; }

// Reads pairs of digits from the front of a text.
class PairReader {
 public:
  explicit PairReader(std::string_view text) : text_(text) {}

  bool Pair(int least, int most, int* value) {
    if (text_.size() < 2 || !IsDigit(text_[0]) || !IsDigit(text_[1])) return false;
    *value = (text_[0] - '0') * 10 + (text_[1] - '0');
    text_.remove_prefix(2);
    return *value >= least && *value <= most;
  }
  bool AtDigit() const { return !text_.empty() && IsDigit(text_[0]); }
  bool Zone() {
    if (text_ == "Z") return true;
    if (text_.empty() || (text_[0] != '+' && text_[0] != '-')) return false;
    text_.remove_prefix(1);
    int hours = 0;
    int minutes = 0;
    return Pair(0, 99, &hours) && Pair(0, 99, &minutes) && text_.empty();
  }

 private:
  static bool IsDigit(char c) { return c >= '0' && c <= '9'; }

  std::string_view text_;
};

}  // namespace

bool openssl_asn1_utctime_to_tm(const asn1_string_st* time, std::tm* fields) {
  constexpr int kShortest = 11;
  if (time == nullptr || fields == nullptr || ASN1_STRING_type(time) != V_ASN1_UTCTIME ||
      ASN1_STRING_length(time) < kShortest) {
    return false;
  }
  PairReader reader({reinterpret_cast<const char*>(ASN1_STRING_get0_data(time)),
                     static_cast<std::size_t>(ASN1_STRING_length(time))});
  std::tm read{};
  int year = 0;
  int month = 0;
  if (!reader.Pair(0, 99, &year) || !reader.Pair(1, 12, &month) ||
      !reader.Pair(1, 31, &read.tm_mday) || !reader.Pair(0, 23, &read.tm_hour) ||
      !reader.Pair(0, 59, &read.tm_min)) {
    return false;
  }
  if (reader.AtDigit() && !reader.Pair(0, 59, &read.tm_sec)) return false;
  if (!reader.Zone()) return false;
  read.tm_year = year < 50 ? year + 100 : year;
  read.tm_mon = month - 1;
  *fields = read;
  return true;
}

std::optional<std::tm> CertificateExpiry(std::string_view pem) {
  if (pem.empty() || pem.size() > INT_MAX) return std::nullopt;
  const std::unique_ptr<BIO, Release> stream(BIO_new(BIO_s_mem()));
  if (stream == nullptr) return std::nullopt;
  const int size = static_cast<int>(pem.size());
  if (BIO_write(stream.get(), pem.data(), size) != size) return std::nullopt;
  const std::unique_ptr<X509, Release> certificate(
      PEM_read_bio_X509(stream.get(), nullptr, &RefusePassword, nullptr));
  ERR_clear_error();
  std::tm fields;
  if (certificate == nullptr ||
      !openssl_asn1_utctime_to_tm(X509_getm_notAfter(certificate.get()), &fields)) {
    return std::nullopt;
  }
  return fields;
}
