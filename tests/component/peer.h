// What the tests ask libcrypto for themselves: the other side of an exchange, and the texts of its
// errors.

#ifndef HALVEX_TESTS_COMPONENT_PEER_H
#define HALVEX_TESTS_COMPONENT_PEER_H

#include <string>
#include <vector>

namespace halvex_test {

// The digest of `text` by OpenSSL's digest name, for instance "SHA256".
std::string peer_digest(const std::string &digest, const std::string &text);

// RSA with a padding mode of OpenSSL (1 PKCS#1 v1.5, 4 OAEP). Keys are PEM texts. Throws on
// failure.
std::string peer_encrypt(const std::string &public_pem, const std::string &data, int padding);
std::string peer_decrypt(const std::string &private_pem, const std::string &data, int padding);

// A PKCS#1 v1.5 signature of a digest that was computed before.
std::string peer_sign_digest(const std::string &private_pem, const std::string &digest_name,
                             const std::string &digest);
// A PSS signature of a message, and whether one is right, with OpenSSL's default salt.
std::string peer_sign_pss(const std::string &private_pem, const std::string &digest_name,
                          const std::string &message);
bool peer_verifies_pss(const std::string &public_pem, const std::string &digest_name,
                       const std::string &message, const std::string &signature);
// A signature in the key's own way (ECDSA, DSA) and whether one is right.
bool peer_verifies(const std::string &public_pem, const std::string &digest_name,
                   const std::string &message, const std::string &signature);

// A key's size in bits, its public half as SubjectPublicKeyInfo PEM, and OpenSSL's name of its
// type.
int peer_bits(const std::string &private_pem);
std::string peer_public_half(const std::string &private_pem);
std::string peer_key_type(const std::string &private_pem);

// Whether the library reads the text as a private or a public key.
bool peer_reads_private(const std::string &pem);
bool peer_reads_public(const std::string &pem);
// The oldest error that reading leaves in an empty queue, as ERR_error_string renders it.
std::string error_of_reading_private(const std::string &pem);
std::string error_of_reading_public(const std::string &pem);
// The text of error 0.
std::string no_error_text();

// Turns off the prompt for pass phrases in this process.
void silence_pass_phrase_prompt();

}  // namespace halvex_test

#endif  // HALVEX_TESTS_COMPONENT_PEER_H
