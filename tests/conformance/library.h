// What the cryptographic library itself answers, asked directly and without the component: keys
// made of numbers, digests, and single operations.
//
// The operations leave their errors in the calling thread's queue, as the library does; a caller
// that compares error texts empties the queue first and takes the errors from it in the same order.

#ifndef HALVEX_TESTS_CONFORMANCE_LIBRARY_H
#define HALVEX_TESTS_CONFORMANCE_LIBRARY_H

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/evp.h>

#include <map>
#include <memory>
#include <optional>
#include <string>

namespace halvex_test {

template <auto free_function>
struct Free_by {
  template <typename T>
  void operator()(T *object) const noexcept {
    free_function(object);
  }
};

using Library_bio = std::unique_ptr<BIO, Free_by<BIO_free_all>>;
using Library_key = std::unique_ptr<EVP_PKEY, Free_by<EVP_PKEY_free>>;
using Library_key_context = std::unique_ptr<EVP_PKEY_CTX, Free_by<EVP_PKEY_CTX_free>>;
using Library_digest_context = std::unique_ptr<EVP_MD_CTX, Free_by<EVP_MD_CTX_free>>;

// A digest by the library's own name of it; throws std::runtime_error if there is none.
const EVP_MD *library_digest(const std::string &name);
std::string digest_of(const EVP_MD *digest, const std::string &text);

// An RSA key of hexadecimal numbers by the library's parameter names ("n", "e", "d",
// "rsa-factor1", ...). With "d" a private key, else a public one. Throws if the library refuses.
Library_key rsa_key(const std::map<std::string, std::string> &numbers);

// A new key, for instance on the curve "P-256" of the algorithm "EC".
Library_key new_key(const char *algorithm, const char *parameter);

// PEM text: unencrypted PKCS#8, and SubjectPublicKeyInfo; nothing if the library refuses.
std::optional<std::string> private_pem(EVP_PKEY *key);
std::optional<std::string> public_pem(EVP_PKEY *key);

// What one PEM reader of the library makes of a text; null if nothing.
Library_key read_private_pem(const std::string &pem);
Library_key read_public_pem(const std::string &pem);

// The library's answers; nothing where it refuses. A padding that it cannot set is left unset.
std::optional<std::string> encrypted(EVP_PKEY *key, int padding, const std::string &text);
std::optional<std::string> decrypted(EVP_PKEY *key, int padding, const std::string &text);
std::optional<std::string> signed_with_pss(EVP_PKEY *key, const EVP_MD *digest,
                                           const std::string &text);
bool verifies_as_pss(EVP_PKEY *key, const EVP_MD *digest, const std::string &text,
                     const std::string &signature);

// What EVP_PKEY_verify returns for a digest's value and a signature with the library's default
// padding; -1 if it cannot be set up.
int raw_verify_result(EVP_PKEY *key, const EVP_MD *digest, const std::string &digest_value,
                      const std::string &signature);

// The oldest error in the calling thread's queue as text, "error:00000000:..." if there is none;
// later ones stay queued.
std::string oldest_error();

}  // namespace halvex_test

#endif  // HALVEX_TESTS_CONFORMANCE_LIBRARY_H
