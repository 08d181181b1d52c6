// asymmetric_decrypt against the published encryption examples.

#include <openssl/core_names.h>

#include "conformance/expectations.h"
#include "conformance/vector_files.h"
#include "support/hexadecimal.h"
#include "support/reference_implementation.h"

namespace halvex_test {
namespace {

constexpr const char *decrypt = "asymmetric_decrypt";

// The PEM text of the private key whose numbers a vector gives.
std::string private_key_of(const Vector &vector) {
  const Key key = rsa_key({{OSSL_PKEY_PARAM_RSA_N, vector.at("Modulus")},
                           {OSSL_PKEY_PARAM_RSA_E, vector.at("Public exponent")},
                           {OSSL_PKEY_PARAM_RSA_D, vector.at("Exponent")},
                           {OSSL_PKEY_PARAM_RSA_FACTOR1, vector.at("Prime 1")},
                           {OSSL_PKEY_PARAM_RSA_FACTOR2, vector.at("Prime 2")},
                           {OSSL_PKEY_PARAM_RSA_EXPONENT1, vector.at("Prime exponent 1")},
                           {OSSL_PKEY_PARAM_RSA_EXPONENT2, vector.at("Prime exponent 2")},
                           {OSSL_PKEY_PARAM_RSA_COEFFICIENT1, vector.at("Coefficient")}});
  return private_pem(key.get()).value();
}

struct EncryptionVectors : Conformance_test {
  // Vectors of one file, with the number of lines that announce one.
  std::vector<Vector> read(const std::filesystem::path &path) {
    std::vector<Vector> vectors = read_headed_file(path, "# Example", "Encryption");
    EXPECT_EQ(vectors.size(), lines_beginning_with(path, "# Encryption:"));
    return vectors;
  }

  static std::string text(const Vector &vector, const char *name) {
    return from_hex(vector.at(name));
  }
};

// Expected: the message, without a record, whatever the legacy switch: the examples use OAEP with
// SHA-1 and an empty label, which is what the component uses.
TEST_F(EncryptionVectors, OaepExamplesGiveTheirMessages) {
  for (const bool legacy : {false, true}) {
    set_legacy_padding(legacy);
    for (const Vector &vector : read("asymmetric/RSA/pkcs-1v2-1d2-vec/oaep-vect.txt")) {
      ASSERT_EQ(
          to_hex(value_of(decrypt, {"RSA", text(vector, "Encryption"), private_key_of(vector)})),
          vector.at("Message"));
    }
  }
}

// Expected: NULL; the attempt reports the error of the library, then that decryption failed. The
// ciphertexts are good, but their OAEP uses another digest or mask than SHA-1. Three of each file
// show it.
TEST_F(EncryptionVectors, OaepWithOtherDigestsIsRejected) {
  std::size_t files = 0;
  for (const auto &entry :
       std::filesystem::directory_iterator(vectors_folder() / "asymmetric/RSA/oaep-custom")) {
    ++files;
    std::vector<Vector> vectors = read(std::filesystem::relative(entry.path(), vectors_folder()));
    vectors.resize(3);
    for (const Vector &vector : vectors) {
      ASSERT_TRUE(check_decryption(text(vector, "Encryption"), private_key_of(vector)).is_null);
    }
  }
  EXPECT_EQ(files, 24U);
}

// Expected with the switch off: NULL, one OpenSSL report and one 13926. With the switch on: the
// message, after the same two records of the OAEP attempt that came first.
TEST_F(EncryptionVectors, Pkcs1ExamplesNeedTheLegacySwitch) {
  for (const Vector &vector : read("asymmetric/RSA/pkcs1v15crypt-vectors.txt")) {
    const std::string pem = private_key_of(vector);
    const std::string cipher = text(vector, "Encryption");
    const std::vector<Record> oaep_attempt = expected_decryption(cipher, pem, false).records;
    ASSERT_EQ(oaep_attempt.size(), 2U);
    EXPECT_THAT(oaep_attempt[0], IsOpensslRecord(decrypt, "RSA"));

    set_legacy_padding(false);
    expect_null(oaep_attempt, decrypt, {"RSA", cipher, pem});

    set_legacy_padding(true);
    Expectation message;
    message.is_null = false;
    message.bytes = text(vector, "Message");
    message.records = oaep_attempt;
    expect(message, decrypt, {"RSA", cipher, pem});
    if (HasFailure()) {
      FAIL() << "ciphertext " << to_hex(cipher);
    }
  }
}

// Expected with one byte of the ciphertext changed: what the library makes of it, attempt by
// attempt; its answer to a wrongly padded v1.5 text differs between releases, that of OAEP does
// not.
TEST_F(EncryptionVectors, ChangedCiphertextsAreRejected) {
  std::size_t vector_number = 0;
  for (const Vector &vector : read("asymmetric/RSA/pkcs-1v2-1d2-vec/oaep-vect.txt")) {
    const std::string pem = private_key_of(vector);
    std::string cipher = text(vector, "Encryption");
    // Not the first byte, so that the number stays below the modulus.
    char &changed = cipher[1 + vector_number++ % (cipher.size() - 1)];
    changed = static_cast<char>(changed ^ 1);
    set_legacy_padding(false);
    ASSERT_TRUE(check_decryption(cipher, pem).is_null);
    set_legacy_padding(true);
    check_decryption(cipher, pem);
  }
}

}  // namespace
}  // namespace halvex_test
