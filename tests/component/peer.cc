#include "peer.h"

#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/ui.h>

#include <stdexcept>

#include "support/openssl_library.h"

namespace halvex_test {
namespace {

// The peer's own calls are taken for granted: a failure ends the test.
Key expect_key(Key key) {
  if (!key) {
    throw std::runtime_error("the peer cannot read a key: " + oldest_error());
  }
  return key;
}

Key private_key(const std::string &pem) { return expect_key(read_private_pem(pem)); }

Key public_key(const std::string &pem) { return expect_key(read_public_pem(pem)); }

// An answer leaves no errors to the next one.
bool without_errors(bool answer) {
  ERR_clear_error();
  return answer;
}

std::string error_left_by(Key (*read)(const std::string &), const std::string &pem) {
  ERR_clear_error();
  read(pem);
  std::string text = oldest_error();
  ERR_clear_error();
  return text;
}

}  // namespace

std::string peer_digest(const std::string &digest, const std::string &text) {
  return digest_of(library_digest(digest), text);
}

std::string peer_encrypt(const std::string &public_pem, const std::string &data, int padding) {
  return encrypted(public_key(public_pem).get(), padding, data).value();
}

std::string peer_decrypt(const std::string &private_pem, const std::string &data, int padding) {
  return decrypted(private_key(private_pem).get(), padding, data).value();
}

std::string peer_sign_digest(const std::string &private_pem, const std::string &digest_name,
                             const std::string &digest) {
  return signed_digest(private_key(private_pem).get(), library_digest(digest_name), digest).value();
}

std::string peer_sign_pss(const std::string &private_pem, const std::string &digest_name,
                          const std::string &message) {
  return signed_with_pss(private_key(private_pem).get(), library_digest(digest_name), message)
      .value();
}

bool peer_verifies_pss(const std::string &public_pem, const std::string &digest_name,
                       const std::string &message, const std::string &signature) {
  return without_errors(verifies_as_pss(public_key(public_pem).get(), library_digest(digest_name),
                                        message, signature));
}

bool peer_verifies(const std::string &public_pem, const std::string &digest_name,
                   const std::string &message, const std::string &signature) {
  return without_errors(
      verifies(public_key(public_pem).get(), library_digest(digest_name), message, signature));
}

int peer_bits(const std::string &private_pem) {
  return EVP_PKEY_get_bits(private_key(private_pem).get());
}

std::string peer_public_half(const std::string &private_pem) {
  return public_pem(private_key(private_pem).get()).value();
}

std::string peer_key_type(const std::string &private_pem) {
  return EVP_PKEY_get0_type_name(private_key(private_pem).get());
}

bool peer_reads_private(const std::string &pem) {
  return without_errors(read_private_pem(pem) != nullptr);
}

bool peer_reads_public(const std::string &pem) {
  return without_errors(read_public_pem(pem) != nullptr);
}

std::string error_of_reading_private(const std::string &pem) {
  return error_left_by(read_private_pem, pem);
}

std::string error_of_reading_public(const std::string &pem) {
  return error_left_by(read_public_pem, pem);
}

std::string no_error_text() {
  ERR_clear_error();
  return oldest_error();
}

void silence_pass_phrase_prompt() { UI_set_default_method(UI_null()); }

}  // namespace halvex_test
