// rsa::RSA_encrypt_decrypt and the Key_usage_encryption below it.

#include <openssl/err.h>
#include <openssl/rsa.h>

#include "classes/class_test.h"
#include "halvex_encryption/rsa_implementation.h"

namespace halvex_test {
namespace {

using halvex_encryption::rsa::RSA_encrypt_decrypt;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class RsaEncryptDecrypt : public Class_test {
 protected:
  struct Output {
    bool failed = false;
    std::string bytes;
    unsigned long length = 0;

    [[nodiscard]] std::string text() const { return bytes.substr(0, length); }
  };

  static RSA_encrypt_decrypt with_key(const std::string &file,
                                      int padding = RSA_PKCS1_OAEP_PADDING) {
    return with_text(fixture(file), padding);
  }
  static RSA_encrypt_decrypt with_text(const std::string &pem, int padding) {
    return {"a_function", "rsa", pem.data(), pem.size(), padding};
  }

  static Output encrypt(RSA_encrypt_decrypt &&operation, const std::string &data,
                        size_t capacity = 4096) {
    Output out{false, std::string(capacity, '#'), 77};
    out.failed =
        operation.encrypt(bytes(data), data.size(), bytes(out.bytes), capacity, &out.length);
    return out;
  }
  static Output decrypt(RSA_encrypt_decrypt &&operation, const std::string &data,
                        size_t capacity = 4096) {
    Output out{false, std::string(capacity, '#'), 77};
    out.failed =
        operation.decrypt(bytes(data), data.size(), bytes(out.bytes), capacity, &out.length);
    return out;
  }

  const std::string public_key = fixture("rsa2048-public.pem");
  const std::string private_key = fixture("rsa2048.pem");
};

// The negative limit of a small public key is compared as a very large number.
TEST_F(RsaEncryptDecrypt, KeyOfFewerThan42BytesSupportsAnyLength) {
  RSA_encrypt_decrypt operation = with_key("rsa-tiny-public.pem");
  EXPECT_FALSE(operation.supported_length(1));
  EXPECT_FALSE(operation.supported_length(1000000));
  EXPECT_FALSE(operation.supported_length(static_cast<std::uint64_t>(-2)));
  EXPECT_THAT(server.records(), IsEmpty());
  EXPECT_TRUE(operation.supported_length(static_cast<std::uint64_t>(-1)));
  EXPECT_THAT(server.records(),
              ElementsAre(data_too_long("a_function", 18446744073709551615U, -2)));
  EXPECT_TRUE(with_key("rsa-tiny.pem").supported_length(41));
}

TEST_F(RsaEncryptDecrypt, WithoutAKeyEveryOperationFailsWithoutAFurtherRecord) {
  RSA_encrypt_decrypt operation = with_text("no key", RSA_PKCS1_OAEP_PADDING);
  EXPECT_THAT(server.records(), ElementsAre(IsOpensslRecord("a_function", "RSA")));
  server.forget_records();
  EXPECT_TRUE(operation.supported_length(1));
  EXPECT_TRUE(encrypt(with_text("no key", 4), "data").failed);
  EXPECT_TRUE(decrypt(with_text("PRIVATE KEY", 4), "data").failed);
  EXPECT_EQ(server.records().size(), 2U);  // of reading the two keys
}

TEST_F(RsaEncryptDecrypt, WrongKindOfKeyFailsWithoutARecord) {
  const Output encrypted = encrypt(with_key("rsa2048.pem"), "hello");
  EXPECT_TRUE(encrypted.failed);
  EXPECT_EQ(encrypted.length, 0U);
  const Output decrypted = decrypt(with_key("rsa2048-public.pem"), std::string(256, 'c'));
  EXPECT_TRUE(decrypted.failed);
  EXPECT_EQ(decrypted.length, 0U);
  EXPECT_THAT(server.records(), IsEmpty());
}

TEST_F(RsaEncryptDecrypt, EmptyDataOrNoCapacityFailsWithoutARecord) {
  EXPECT_TRUE(encrypt(with_key("rsa2048-public.pem"), "").failed);
  EXPECT_TRUE(decrypt(with_key("rsa2048.pem"), "").failed);
  EXPECT_TRUE(encrypt(with_key("rsa2048-public.pem"), "data", 0).failed);
  EXPECT_TRUE(decrypt(with_key("rsa2048.pem"), "data", 0).failed);
  EXPECT_THAT(server.records(), IsEmpty());
}

TEST_F(RsaEncryptDecrypt, CapacityOf256IsEnoughAnd255IsReported) {
  EXPECT_FALSE(encrypt(with_key("rsa2048-public.pem"), "hello", 256).failed);
  const Output encrypted = encrypt(with_key("rsa2048-public.pem"), "hello", 255);
  EXPECT_TRUE(encrypted.failed);
  EXPECT_EQ(encrypted.length, 0U);
  EXPECT_EQ(encrypted.bytes, std::string(255, '#'));
  EXPECT_THAT(server.records(), ElementsAre(buffer_too_small("encrypt", "a_function", 255, 256)));
}

TEST_F(RsaEncryptDecrypt, DecryptionNeedsTheSizeOfTheModulusAtFirst) {
  const std::string ciphertext = reference_encrypt(public_key, "hello", RSA_PKCS1_OAEP_PADDING);
  EXPECT_FALSE(decrypt(with_key("rsa2048.pem"), ciphertext, 256).failed);
  const Output decrypted = decrypt(with_key("rsa2048.pem"), ciphertext, 255);
  EXPECT_TRUE(decrypted.failed);
  EXPECT_EQ(decrypted.length, 0U);
  EXPECT_THAT(server.records(), ElementsAre(buffer_too_small("decrypt", "a_function", 255, 256)));
}

TEST_F(RsaEncryptDecrypt, FailureOfOpensslIsReportedAndGivesLengthZero) {
  ERR_clear_error();
  const Output decrypted = decrypt(with_key("rsa2048.pem"), std::string(256, 1));
  EXPECT_TRUE(decrypted.failed);
  EXPECT_EQ(decrypted.length, 0U);
  EXPECT_THAT(server.records(), ElementsAre(IsOpensslRecord("a_function", "RSA")));
  ERR_clear_error();
}

TEST_F(RsaEncryptDecrypt, ContextPropertiesNeedAContextAndIgnoreWhatCannotBeSet) {
  RSA_encrypt_decrypt operation = with_key("rsa2048-public.pem");
  EXPECT_TRUE(operation.set_ctx_properties(nullptr));
  const halvex_encryption::Pkey_ctx_ptr unready{EVP_PKEY_CTX_new_id(EVP_PKEY_RSA, nullptr)};
  EXPECT_FALSE(operation.set_ctx_properties(unready.get()));
  ERR_clear_error();
}

}  // namespace
}  // namespace halvex_test
