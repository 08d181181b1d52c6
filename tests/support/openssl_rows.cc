#include "support/openssl_rows.h"

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

#include <cstdlib>
#include <iostream>

#include "support/reference_implementation.h"

namespace halvex_test {
namespace {

void require(bool done) {
  if (!done) {
    std::cerr << "an OpenSSL call failed\n";
    std::abort();
  }
}

Key read_private_key(const std::string &pem) {
  Key key = read_private_pem(pem);
  require(key != nullptr);
  return key;
}

Key read_public_key(const std::string &pem) {
  Key key = read_public_pem(pem);
  require(key != nullptr);
  return key;
}

const unsigned char *bytes(std::string_view value) {
  return reinterpret_cast<const unsigned char *>(value.data());
}

}  // namespace

std::size_t digest_row(std::string_view content, Row_buffer &out) {
  const Digest_context context{EVP_MD_CTX_new()};
  unsigned int length = 0;
  require(EVP_DigestInit(context.get(), EVP_sha256()) == 1 &&
          EVP_DigestUpdate(context.get(), content.data(), content.size()) == 1 &&
          EVP_DigestFinal(context.get(), out.data(), &length) == 1);
  return length;
}

std::size_t encrypt_row(const std::string &public_key, std::string_view content, Row_buffer &out) {
  const Key key = read_public_key(public_key);
  const Key_context context{EVP_PKEY_CTX_new(key.get(), nullptr)};
  std::size_t length = out.size();
  require(EVP_PKEY_encrypt_init(context.get()) > 0 &&
          EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_OAEP_PADDING) > 0 &&
          EVP_PKEY_encrypt(context.get(), out.data(), &length, bytes(content), content.size()) > 0);
  return length;
}

std::size_t decrypt_row(const std::string &private_key, std::string_view ciphertext,
                        Row_buffer &out) {
  const Key key = read_private_key(private_key);
  const Key_context context{EVP_PKEY_CTX_new(key.get(), nullptr)};
  std::size_t length = out.size();
  require(EVP_PKEY_decrypt_init(context.get()) > 0 &&
          EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_OAEP_PADDING) > 0 &&
          EVP_PKEY_decrypt(context.get(), out.data(), &length, bytes(ciphertext),
                           ciphertext.size()) > 0);
  return length;
}

std::size_t sign_row(const std::string &private_key, std::string_view content, Row_buffer &out) {
  const Key key = read_private_key(private_key);
  const Digest_context context{EVP_MD_CTX_new()};
  EVP_PKEY_CTX *key_context = nullptr;  // belongs to `context`
  std::size_t length = out.size();
  require(EVP_DigestSignInit(context.get(), &key_context, EVP_sha256(), nullptr, key.get()) > 0 &&
          EVP_PKEY_CTX_set_rsa_padding(key_context, RSA_PKCS1_PSS_PADDING) > 0 &&
          EVP_DigestSign(context.get(), out.data(), &length, bytes(content), content.size()) > 0);
  return length;
}

void verify_row(const std::string &public_key, std::string_view content,
                std::string_view signature) {
  const Key key = read_public_key(public_key);
  const Digest_context context{EVP_MD_CTX_new()};
  EVP_PKEY_CTX *key_context = nullptr;  // belongs to `context`
  require(EVP_DigestVerifyInit(context.get(), &key_context, EVP_sha256(), nullptr, key.get()) > 0 &&
          EVP_PKEY_CTX_set_rsa_padding(key_context, RSA_PKCS1_PSS_PADDING) > 0 &&
          EVP_DigestVerify(context.get(), bytes(signature), signature.size(), bytes(content),
                           content.size()) == 1);
}

void public_key_row(const std::string &private_key) {
  const Key key = read_private_key(private_key);
  const Bio bio{BIO_new(BIO_s_mem())};
  require(PEM_write_bio_PUBKEY(bio.get(), key.get()) == 1);
}

void create_key_row(int bits) {
  const Key_context context{EVP_PKEY_CTX_new_id(EVP_PKEY_RSA, nullptr)};
  EVP_PKEY *generated = nullptr;
  require(EVP_PKEY_keygen_init(context.get()) > 0 &&
          EVP_PKEY_CTX_set_rsa_keygen_bits(context.get(), bits) > 0 &&
          EVP_PKEY_keygen(context.get(), &generated) > 0);
  const Key key{generated};
  const Bio bio{BIO_new(BIO_s_mem())};
  require(PEM_write_bio_PrivateKey(bio.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr) ==
          1);
}

}  // namespace halvex_test
