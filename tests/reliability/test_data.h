// Keys, ciphertexts and signatures for the reliability tests, made once per process.

#ifndef RELIABILITY_TEST_DATA_H
#define RELIABILITY_TEST_DATA_H

#include <string>

namespace halvex_test {

struct Test_data {
  std::string private_key;       // RSA, 2048 bits
  std::string traditional_key;   // the same in the traditional form
  std::string public_key;        // its public half
  std::string other_public_key;  // of another key
  std::string encrypted_key;     // under a pass phrase: unreadable
  std::string ec_private_key;
  std::string ec_public_key;
  std::string content = "What is signed, encrypted and hashed here";
  std::string too_long = std::string(215, 'x');  // for OAEP with 2048 bits
  std::string content_digest;                    // SHA-256 of `content`
  std::string oaep_ciphertext;                   // of `content`
  std::string legacy_ciphertext;                 // of `content`, PKCS#1 v1.5
  std::string pss_signature;                     // of `content`, SHA-256
  std::string legacy_signature;                  // of `content_digest`, PKCS#1 v1.5, SHA-256
};

// Made by OpenSSL's own calls from the key files on the first call; throws if that fails. Read-only
// after.
[[nodiscard]] const Test_data &test_data();

}  // namespace halvex_test

#endif  // RELIABILITY_TEST_DATA_H
