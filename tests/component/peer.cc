#include "peer.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/ui.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <memory>

namespace halvex_test {
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
using Key_ctx = std::unique_ptr<EVP_PKEY_CTX, Free_with<EVP_PKEY_CTX_free>>;
using Digest_ctx = std::unique_ptr<EVP_MD_CTX, Free_with<EVP_MD_CTX_free>>;

// The peer's own calls are taken for granted: a failure ends the test process.
void must(bool succeeded, const char *what) {
  if (!succeeded) {
    static_cast<void>(std::fprintf(stderr, "peer: %s failed\n", what));
    ERR_print_errors_fp(stderr);
    std::abort();
  }
}

const unsigned char *bytes(const std::string &text) {
  return reinterpret_cast<const unsigned char *>(text.data());
}

unsigned char *bytes(std::string &text) { return reinterpret_cast<unsigned char *>(text.data()); }

Bio stream(const std::string &pem) {
  Bio bio{BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size()))};
  must(bio != nullptr, "BIO_new_mem_buf");
  return bio;
}

Key read_private(const std::string &pem) {
  return Key{PEM_read_bio_PrivateKey(stream(pem).get(), nullptr, nullptr, nullptr)};
}

Key read_public(const std::string &pem) {
  return Key{PEM_read_bio_PUBKEY(stream(pem).get(), nullptr, nullptr, nullptr)};
}

Key private_key(const std::string &pem) {
  Key key = read_private(pem);
  must(key != nullptr, "reading a private key");
  return key;
}

Key public_key(const std::string &pem) {
  Key key = read_public(pem);
  must(key != nullptr, "reading a public key");
  return key;
}

const EVP_MD *digest_named(const std::string &name) {
  const EVP_MD *digest = EVP_get_digestbyname(name.c_str());
  must(digest != nullptr, "EVP_get_digestbyname");
  return digest;
}

using Init = int (*)(EVP_PKEY_CTX *);
using Transform = int (*)(EVP_PKEY_CTX *, unsigned char *, size_t *, const unsigned char *, size_t);

std::string transformed(const Key &key, const std::string &data, int padding, Init init,
                        Transform transform) {
  const Key_ctx ctx{EVP_PKEY_CTX_new(key.get(), nullptr)};
  size_t size = 0;
  must(ctx && init(ctx.get()) > 0 && EVP_PKEY_CTX_set_rsa_padding(ctx.get(), padding) > 0 &&
           transform(ctx.get(), nullptr, &size, bytes(data), data.size()) > 0,
       "setting up an operation");
  std::string out(size, '\0');
  must(transform(ctx.get(), bytes(out), &size, bytes(data), data.size()) > 0, "an operation");
  out.resize(size);
  return out;
}

bool verifies(const std::string &pem, const std::string &digest_name, const std::string &message,
              const std::string &signature, int padding) {
  const Key key = public_key(pem);
  const Digest_ctx ctx{EVP_MD_CTX_new()};
  EVP_PKEY_CTX *key_ctx = nullptr;
  must(EVP_DigestVerifyInit(ctx.get(), &key_ctx, digest_named(digest_name), nullptr, key.get()) > 0,
       "EVP_DigestVerifyInit");
  must(padding == 0 || EVP_PKEY_CTX_set_rsa_padding(key_ctx, padding) > 0, "setting the padding");
  const bool right = EVP_DigestVerify(ctx.get(), bytes(signature), signature.size(), bytes(message),
                                      message.size()) == 1;
  ERR_clear_error();
  return right;
}

std::string text_of(unsigned long error) {
  std::array<char, 256> text{};
  ERR_error_string(error, text.data());
  return text.data();
}

std::string oldest_error() {
  std::string text = text_of(ERR_get_error());
  ERR_clear_error();
  return text;
}

}  // namespace

std::string peer_digest(const std::string &digest, const std::string &text) {
  std::string out(EVP_MAX_MD_SIZE, '\0');
  unsigned int size = 0;
  must(EVP_Digest(text.data(), text.size(), bytes(out), &size, digest_named(digest), nullptr) == 1,
       "EVP_Digest");
  out.resize(size);
  return out;
}

std::string peer_encrypt(const std::string &public_pem, const std::string &data, int padding) {
  return transformed(public_key(public_pem), data, padding, EVP_PKEY_encrypt_init,
                     EVP_PKEY_encrypt);
}

std::string peer_decrypt(const std::string &private_pem, const std::string &data, int padding) {
  return transformed(private_key(private_pem), data, padding, EVP_PKEY_decrypt_init,
                     EVP_PKEY_decrypt);
}

std::string peer_sign_digest(const std::string &private_pem, const std::string &digest_name,
                             const std::string &digest) {
  const Key key = private_key(private_pem);
  const Key_ctx ctx{EVP_PKEY_CTX_new(key.get(), nullptr)};
  size_t size = 0;
  must(ctx && EVP_PKEY_sign_init(ctx.get()) > 0 &&
           EVP_PKEY_CTX_set_signature_md(ctx.get(), digest_named(digest_name)) > 0 &&
           EVP_PKEY_sign(ctx.get(), nullptr, &size, bytes(digest), digest.size()) > 0,
       "setting up a signature");
  std::string out(size, '\0');
  must(EVP_PKEY_sign(ctx.get(), bytes(out), &size, bytes(digest), digest.size()) > 0,
       "EVP_PKEY_sign");
  out.resize(size);
  return out;
}

std::string peer_sign_pss(const std::string &private_pem, const std::string &digest_name,
                          const std::string &message) {
  const Key key = private_key(private_pem);
  const Digest_ctx ctx{EVP_MD_CTX_new()};
  EVP_PKEY_CTX *key_ctx = nullptr;
  size_t size = 0;
  must(EVP_DigestSignInit(ctx.get(), &key_ctx, digest_named(digest_name), nullptr, key.get()) > 0 &&
           EVP_PKEY_CTX_set_rsa_padding(key_ctx, RSA_PKCS1_PSS_PADDING) > 0 &&
           EVP_DigestSign(ctx.get(), nullptr, &size, bytes(message), message.size()) > 0,
       "setting up a PSS signature");
  std::string out(size, '\0');
  must(EVP_DigestSign(ctx.get(), bytes(out), &size, bytes(message), message.size()) > 0,
       "EVP_DigestSign");
  out.resize(size);
  return out;
}

bool peer_verifies_pss(const std::string &public_pem, const std::string &digest_name,
                       const std::string &message, const std::string &signature) {
  return verifies(public_pem, digest_name, message, signature, RSA_PKCS1_PSS_PADDING);
}

bool peer_verifies(const std::string &public_pem, const std::string &digest_name,
                   const std::string &message, const std::string &signature) {
  return verifies(public_pem, digest_name, message, signature, 0);
}

int peer_bits(const std::string &private_pem) {
  return EVP_PKEY_get_bits(private_key(private_pem).get());
}

std::string peer_public_half(const std::string &private_pem) {
  const Bio bio{BIO_new(BIO_s_mem())};
  must(PEM_write_bio_PUBKEY(bio.get(), private_key(private_pem).get()) == 1,
       "PEM_write_bio_PUBKEY");
  char *text = nullptr;
  const auto size = static_cast<size_t>(BIO_get_mem_data(bio.get(), &text));
  return {text, size};
}

std::string peer_key_type(const std::string &private_pem) {
  return EVP_PKEY_get0_type_name(private_key(private_pem).get());
}

bool peer_reads_private(const std::string &pem) {
  const bool reads = read_private(pem) != nullptr;
  ERR_clear_error();
  return reads;
}

bool peer_reads_public(const std::string &pem) {
  const bool reads = read_public(pem) != nullptr;
  ERR_clear_error();
  return reads;
}

std::string error_of_reading_private(const std::string &pem) {
  ERR_clear_error();
  read_private(pem);
  return oldest_error();
}

std::string error_of_reading_public(const std::string &pem) {
  ERR_clear_error();
  read_public(pem);
  return oldest_error();
}

std::string no_error_text() { return text_of(0); }

void silence_pass_phrase_prompt() { UI_set_default_method(UI_null()); }

}  // namespace halvex_test
