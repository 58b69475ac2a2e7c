// Somebody who signs packages, for tests.
#pragma once

#include <openssl/evp.h>
#include <openssl/pem.h>

#include <memory>
#include <string>

class Signer {
 public:
  /// A key made of one byte: equal bytes are equal keys.
  explicit Signer(unsigned char seed)
      : key_(::EVP_PKEY_new_raw_private_key(EVP_PKEY_ED25519, nullptr,
                                            reinterpret_cast<const unsigned char*>(
                                                std::string(32, static_cast<char>(seed)).data()),
                                            32),
             &::EVP_PKEY_free) {}

  std::string PublicPem() const { return Pem(&::PEM_write_bio_PUBKEY); }
  std::string PrivatePem() const {
    return Pem([](BIO* out, EVP_PKEY* key) {
      return ::PEM_write_bio_PrivateKey(out, key, nullptr, nullptr, 0, nullptr, nullptr);
    });
  }

  std::string Sign(const std::string& text) const {
    const std::unique_ptr<EVP_MD_CTX, decltype(&::EVP_MD_CTX_free)> context(::EVP_MD_CTX_new(),
                                                                            &::EVP_MD_CTX_free);
    unsigned char signature[64];
    std::size_t length = sizeof signature;
    ::EVP_DigestSignInit(context.get(), nullptr, nullptr, nullptr, key_.get());
    ::EVP_DigestSign(context.get(), signature, &length,
                     reinterpret_cast<const unsigned char*>(text.data()), text.size());
    return {reinterpret_cast<char*>(signature), length};
  }

 private:
  std::string Pem(auto write) const {
    const std::unique_ptr<BIO, decltype(&::BIO_free)> out(::BIO_new(::BIO_s_mem()), &::BIO_free);
    write(out.get(), key_.get());
    char* text = nullptr;
    const long size = BIO_get_mem_data(out.get(), &text);
    return {text, static_cast<std::size_t>(size)};
  }

  std::unique_ptr<EVP_PKEY, decltype(&::EVP_PKEY_free)> key_;
};
