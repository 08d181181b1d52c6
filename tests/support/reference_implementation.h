// The reference implementation: what the cryptographic library itself answers, asked directly and
// without the component. First with keys as objects, then with keys as PEM texts.
//
// The operations leave their errors in the calling thread's queue, as the library does; a caller
// that compares error texts empties the queue first and takes the errors from it in the same order.

#ifndef HALVEX_TESTS_SUPPORT_REFERENCE_IMPLEMENTATION_H
#define HALVEX_TESTS_SUPPORT_REFERENCE_IMPLEMENTATION_H

#include <openssl/evp.h>

#include <map>
#include <optional>
#include <string>

#include "halvex_encryption/openssl_owners.h"

namespace halvex_test {

using Bio = halvex_encryption::Bio_ptr;
using Key = halvex_encryption::Pkey_ptr;
using Key_context = halvex_encryption::Pkey_ctx_ptr;
using Digest_context = halvex_encryption::Md_ctx_ptr;

// A digest by the library's own name of it; throws std::runtime_error if there is none.
const EVP_MD *library_digest(const std::string &name);
std::string digest_of(const EVP_MD *digest, const std::string &text);

// An RSA key of hexadecimal numbers by the library's parameter names ("n", "e", "d",
// "rsa-factor1", ...). With "d" a private key, else a public one. Throws if the library fails.
Key rsa_key(const std::map<std::string, std::string> &numbers);

// A new key, for instance on the curve "P-256" of the algorithm "EC".
Key new_key(const char *algorithm, const char *parameter);

// PEM text: unencrypted PKCS#8, and SubjectPublicKeyInfo; nothing if the library fails.
std::optional<std::string> private_pem(EVP_PKEY *key);
std::optional<std::string> public_pem(EVP_PKEY *key);

// What one PEM reader of the library makes of a text; null if nothing.
Key read_private_pem(const std::string &pem);
Key read_public_pem(const std::string &pem);

// The library's answers; nothing where it fails. A padding that it cannot set is left unset.
std::optional<std::string> encrypted(EVP_PKEY *key, int padding, const std::string &text);
std::optional<std::string> decrypted(EVP_PKEY *key, int padding, const std::string &text);
std::optional<std::string> signed_with_pss(EVP_PKEY *key, const EVP_MD *digest,
                                           const std::string &text);
bool verifies_as_pss(EVP_PKEY *key, const EVP_MD *digest, const std::string &text,
                     const std::string &signature);
// The same in the key's own way: ECDSA, DSA, PKCS#1 v1.5.
bool verifies(EVP_PKEY *key, const EVP_MD *digest, const std::string &text,
              const std::string &signature);

// A signature over a digest's value, with the library's default padding; nothing if it rejects.
std::optional<std::string> signed_digest(EVP_PKEY *key, const EVP_MD *digest,
                                         const std::string &digest_value);

// What EVP_PKEY_verify returns for a digest's value and a signature with the library's default
// padding; -1 if it cannot be set up.
int raw_verify_result(EVP_PKEY *key, const EVP_MD *digest, const std::string &digest_value,
                      const std::string &signature);

// The oldest error in the calling thread's queue as text, "error:00000000:..." if there is none;
// later ones stay queued.
std::string oldest_error();

// The same with keys as PEM texts. These throw std::runtime_error or std::bad_optional_access on
// failure and leave the queue as it was, or empty.

// The digest of `text` by OpenSSL's digest name, for instance "SHA256".
std::string reference_digest(const std::string &digest, const std::string &text);

// RSA with a padding mode of OpenSSL (1 PKCS#1 v1.5, 4 OAEP). Keys are PEM texts. Throws on
// failure.
std::string reference_encrypt(const std::string &public_pem, const std::string &data, int padding);
std::string reference_decrypt(const std::string &private_pem, const std::string &data, int padding);

// A PKCS#1 v1.5 signature of a digest that was computed before.
std::string reference_sign_digest(const std::string &private_pem, const std::string &digest_name,
                                  const std::string &digest);
// A PSS signature of a message, and whether one is right, with OpenSSL's default salt.
std::string reference_sign_pss(const std::string &private_pem, const std::string &digest_name,
                               const std::string &message);
bool reference_verifies_pss(const std::string &public_pem, const std::string &digest_name,
                            const std::string &message, const std::string &signature);
// A signature in the key's own way (ECDSA, DSA) and whether one is right.
bool reference_verifies(const std::string &public_pem, const std::string &digest_name,
                        const std::string &message, const std::string &signature);

// A key's size in bits, its public half as SubjectPublicKeyInfo PEM, and OpenSSL's name of its
// type.
int reference_bits(const std::string &private_pem);
std::string reference_public_half(const std::string &private_pem);
std::string reference_key_type(const std::string &private_pem);

// Whether the library reads the text as a private or a public key.
bool reference_reads_private(const std::string &pem);
bool reference_reads_public(const std::string &pem);
// The oldest error that reading leaves in an empty queue, as ERR_error_string renders it.
std::string error_of_reading_private(const std::string &pem);
std::string error_of_reading_public(const std::string &pem);
// The text of error 0.
std::string no_error_text();

// Turns off the prompt for pass phrases in this process.
void silence_pass_phrase_prompt();

}  // namespace halvex_test

#endif  // HALVEX_TESTS_SUPPORT_REFERENCE_IMPLEMENTATION_H
