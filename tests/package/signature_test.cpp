#include "package/signature.h"

#include <openssl/rsa.h>
#include <sys/stat.h>

#include <functional>

#include "support/signer.h"
#include "support/testing.h"

namespace package {
std::span<const char* const> PublishedKeys();
}

namespace {

using package::UpdateKeys;

// RFC 8032, section 7.1, test 2.
TEST(UpdateKeys, VerifyAPublishedExampleByAKeyThatIsCompiledIn) {
  const unsigned char kSignature[] = {
      0x92, 0xa0, 0x09, 0xa9, 0xf0, 0xd4, 0xca, 0xb8, 0x72, 0x0e, 0x82, 0x0b, 0x5f,
      0x64, 0x25, 0x40, 0xa2, 0xb2, 0x7b, 0x54, 0x16, 0x50, 0x3f, 0x8f, 0xb3, 0x76,
      0x22, 0x23, 0xeb, 0xdb, 0x69, 0xda, 0x08, 0x5a, 0xc1, 0xe4, 0x3e, 0x15, 0x99,
      0x6e, 0x45, 0x8f, 0x36, 0x13, 0xd0, 0xf1, 0x1d, 0x8c, 0x38, 0x7b, 0x2e, 0xae,
      0xb4, 0x30, 0x2a, 0xee, 0xb0, 0x0d, 0x29, 0x16, 0x12, 0xbb, 0x0c, 0x00};
  const std::string signature(reinterpret_cast<const char*>(kSignature), sizeof kSignature);
  const UpdateKeys keys(package::PublishedKeys(), "/missing/");
  EXPECT_TRUE(keys.AreRequired());
  EXPECT_TRUE(keys.Verify("\x72", signature));
  EXPECT_FALSE(keys.Verify("\x73", signature));
  EXPECT_FALSE(keys.Verify("\x72", signature.substr(1)));
  EXPECT_FALSE(keys.Verify("\x72", signature + "0"));
}

std::string RsaPem() {
  const std::unique_ptr<EVP_PKEY, decltype(&::EVP_PKEY_free)> key(EVP_RSA_gen(1024),
                                                                  &::EVP_PKEY_free);
  const std::unique_ptr<BIO, decltype(&::BIO_free)> out(::BIO_new(::BIO_s_mem()), &::BIO_free);
  ::PEM_write_bio_PUBKEY(out.get(), key.get());
  char* text = nullptr;
  const long size = BIO_get_mem_data(out.get(), &text);
  return {text, static_cast<std::size_t>(size)};
}

TEST(UpdateKeys, AreFilesOfAFolderAndABrokenOneIsNoWayIn) {
  const Signer mine(1), other(2);
  const std::string good = mine.PublicPem();
  enum Then { kUnsigned, kMine, kNobody };
  const Table<const char*, std::function<void(const std::string&)>, Then, std::size_t> cases = {
      {"no folder", [](auto& keys) { fs::remove(keys); }, kUnsigned, 0},
      {"an empty folder", [](auto&) {}, kUnsigned, 0},
      {"a hidden file", [&](auto& keys) { Spit(keys + "/.a.pem", good); }, kUnsigned, 0},
      {"a key", [&](auto& keys) { Spit(keys + "/a.pem", good); }, kMine, 0},
      {"two keys",
       [&](auto& keys) {
         Spit(keys + "/a.pem", other.PublicPem());
         Spit(keys + "/b.pem", good);
       },
       kMine, 0},
      {"another's key", [&](auto& keys) { Spit(keys + "/a.pem", other.PublicPem()); }, kNobody, 0},
      {"a key and a broken one",
       [&](auto& keys) {
         Spit(keys + "/a.pem", good.substr(0, 60));
         Spit(keys + "/b.pem", good);
       },
       kMine, 1},
      {"an empty file", [](auto& keys) { Spit(keys + "/a.pem", ""); }, kNobody, 1},
      {"a private key", [&](auto& keys) { Spit(keys + "/a.pem", mine.PrivatePem()); }, kNobody, 1},
      {"a key of another kind", [](auto& keys) { Spit(keys + "/a.pem", RsaPem()); }, kNobody, 1},
      {"another name", [&](auto& keys) { Spit(keys + "/a.pem~", good); }, kNobody, 1},
      {"a folder", [](auto& keys) { fs::create_directory(keys + "/a.pem"); }, kNobody, 1},
      {"a link to nothing", [](auto& keys) { fs::create_symlink("x", keys + "/a.pem"); }, kNobody,
       1},
      {"a file that all may write",
       [&](auto& keys) {
         Spit(keys + "/a.pem", good);
         ::chmod((keys + "/a.pem").c_str(), 0666);
       },
       kNobody, 1},
      {"a folder that all may write",
       [&](auto& keys) {
         Spit(keys + "/a.pem", good);
         ::chmod(keys.c_str(), 0777);
       },
       kNobody, 1},
      {"a file in the folder's place",
       [&](auto& keys) {
         fs::remove(keys);
         Spit(keys, good);
       },
       kNobody, 1},
      {"a link to no folder",
       [](auto& keys) {
         fs::remove(keys);
         fs::create_symlink("x", keys);
       },
       kNobody, 1},
  };
  for (const auto& [what, make, then, problems] : cases) {
    SCOPED_TRACE(what);
    const TempFolder temp;
    fs::create_directory(temp / "update_keys");
    make(temp / "update_keys");
    const UpdateKeys keys({}, temp / "update_keys/");
    EXPECT_EQ(keys.AreRequired(), then != kUnsigned) << keys.Sentence();
    EXPECT_EQ(keys.Verify("text", mine.Sign("text")), then == kMine);
    EXPECT_EQ(keys.problems().size(), problems);
  }
}

TEST(UpdateKeys, ThatAreCompiledInAndBrokenAreNoWayInEither) {
  const char* const broken[] = {"-----BEGIN PUBLIC KEY-----\nAAAA\n-----END PUBLIC KEY-----\n"};
  EXPECT_TRUE(UpdateKeys(broken, "/missing/").AreRequired());
}

}  // namespace
