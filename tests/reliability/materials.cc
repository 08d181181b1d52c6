#include "materials.h"

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

#include <cstdio>
#include <cstdlib>
#include <memory>

#include "support/fixture.h"

namespace reliability {
namespace {

template <auto free_function>
struct Free_with {
  template <typename Object>
  void operator()(Object *object) const noexcept {
    free_function(object);
  }
};
using Bio = std::unique_ptr<BIO, Free_with<BIO_free>>;
using Key = std::unique_ptr<EVP_PKEY, Free_with<EVP_PKEY_free>>;
using Key_context = std::unique_ptr<EVP_PKEY_CTX, Free_with<EVP_PKEY_CTX_free>>;
using Digest_context = std::unique_ptr<EVP_MD_CTX, Free_with<EVP_MD_CTX_free>>;

void require(bool done, const char *what) {
  if (!done) {
    static_cast<void>(std::fprintf(stderr, "materials: %s failed\n", what));
    std::abort();
  }
}

const unsigned char *bytes_of(const std::string &text) {
  return reinterpret_cast<const unsigned char *>(text.data());
}

unsigned char *bytes_of(std::string &text) {
  return reinterpret_cast<unsigned char *>(text.data());
}

Key read_key(const std::string &pem) {
  const Bio bio{BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size()))};
  Key key{PEM_read_bio_PrivateKey(bio.get(), nullptr, nullptr, nullptr)};
  require(key != nullptr, "reading a key");
  return key;
}

std::string digest_of(const std::string &text) {
  std::string digest(EVP_MAX_MD_SIZE, '\0');
  unsigned int length = 0;
  require(
      EVP_Digest(text.data(), text.size(), bytes_of(digest), &length, EVP_sha256(), nullptr) == 1,
      "hashing");
  digest.resize(length);
  return digest;
}

std::string encrypted(EVP_PKEY *key, int padding, const std::string &text) {
  const Key_context context{EVP_PKEY_CTX_new(key, nullptr)};
  std::string out(4096, '\0');
  std::size_t length = out.size();
  require(
      EVP_PKEY_encrypt_init(context.get()) > 0 &&
          EVP_PKEY_CTX_set_rsa_padding(context.get(), padding) > 0 &&
          EVP_PKEY_encrypt(context.get(), bytes_of(out), &length, bytes_of(text), text.size()) > 0,
      "encryption");
  out.resize(length);
  return out;
}

std::string pss_signed(EVP_PKEY *key, const std::string &text) {
  const Digest_context context{EVP_MD_CTX_new()};
  EVP_PKEY_CTX *key_context = nullptr;  // belongs to `context`
  std::string out(4096, '\0');
  std::size_t length = out.size();
  require(
      EVP_DigestSignInit(context.get(), &key_context, EVP_sha256(), nullptr, key) > 0 &&
          EVP_PKEY_CTX_set_rsa_padding(key_context, RSA_PKCS1_PSS_PADDING) > 0 &&
          EVP_DigestSign(context.get(), bytes_of(out), &length, bytes_of(text), text.size()) > 0,
      "signing");
  out.resize(length);
  return out;
}

std::string legacy_signed(EVP_PKEY *key, const std::string &digest) {
  const Key_context context{EVP_PKEY_CTX_new(key, nullptr)};
  std::string out(4096, '\0');
  std::size_t length = out.size();
  require(
      EVP_PKEY_sign_init(context.get()) > 0 &&
          EVP_PKEY_CTX_set_signature_md(context.get(), EVP_sha256()) > 0 &&
          EVP_PKEY_sign(context.get(), bytes_of(out), &length, bytes_of(digest), digest.size()) > 0,
      "signing a digest");
  out.resize(length);
  return out;
}

Materials make() {
  using halvex_test::fixture;
  Materials made;
  made.private_key = fixture("rsa2048.pem");
  made.traditional_key = fixture("rsa2048-traditional.pem");
  made.public_key = fixture("rsa2048-public.pem");
  made.other_public_key = fixture("rsa2048-other-public.pem");
  made.encrypted_key = fixture("rsa2048-encrypted.pem");
  made.ec_private_key = fixture("ec-p256.pem");
  made.ec_public_key = fixture("ec-p256-public.pem");
  const Key key = read_key(made.private_key);
  made.content_digest = digest_of(made.content);
  made.oaep_ciphertext = encrypted(key.get(), RSA_PKCS1_OAEP_PADDING, made.content);
  made.legacy_ciphertext = encrypted(key.get(), RSA_PKCS1_PADDING, made.content);
  made.pss_signature = pss_signed(key.get(), made.content);
  made.legacy_signature = legacy_signed(key.get(), made.content_digest);
  return made;
}

}  // namespace

const Materials &materials() {
  static const Materials made = make();
  return made;
}

}  // namespace reliability
