// Key_usage_encryption and Key_usage_sign when their subclass fails to set up the context: the
// call fails, and nobody reports it.

#include <openssl/rsa.h>

#include "classes/class_test.h"
#include "halvex_encryption/rsa_implementation.h"
#include "support/reference_implementation.h"

namespace halvex_test {
namespace {

using halvex_encryption::Function_metadata;
using halvex_encryption::Key_reader;
using halvex_encryption::rsa::RSA_encrypt_decrypt;
using halvex_encryption::rsa::RSA_sign_verify;
using ::testing::IsEmpty;

struct Failing_encryption : RSA_encrypt_decrypt {
  explicit Failing_encryption(const std::string &pem)
      : RSA_encrypt_decrypt("a_function", "rsa", pem.data(), pem.size(), RSA_PKCS1_OAEP_PADDING) {}
  bool set_ctx_properties(EVP_PKEY_CTX * /*ctx*/) noexcept override { return true; }
};

struct Failing_signature : RSA_sign_verify {
  explicit Failing_signature(const std::string &pem)
      : RSA_sign_verify(Key_reader("a_function", "rsa", pem.data(), pem.size(),
                                   halvex_encryption::rsa::pkcs1_key_reader),
                        Function_metadata("a_function", "rsa"), RSA_PKCS1_PSS_PADDING) {}
  bool set_ctx_properties(EVP_MD_CTX * /*md_ctx*/, EVP_PKEY_CTX * /*pkey_ctx*/) noexcept override {
    return true;
  }
};

class FailingProperties : public Class_test {
 protected:
  std::string private_key = fixture("rsa2048.pem");
  std::string public_key = fixture("rsa2048-public.pem");
  std::string out = std::string(256, '#');
  unsigned long length = 77;
};

TEST_F(FailingProperties, EndEncryptionSilently) {
  EXPECT_TRUE(Failing_encryption(public_key).encrypt(bytes("text"), 4, bytes(out), 256, &length));
  EXPECT_EQ(length, 0U);
  EXPECT_EQ(out, std::string(256, '#'));
  EXPECT_THAT(server.records(), IsEmpty());
}

TEST_F(FailingProperties, EndDecryptionSilently) {
  const std::string cipher = reference_encrypt(public_key, "text", RSA_PKCS1_OAEP_PADDING);
  EXPECT_TRUE(
      Failing_encryption(private_key).decrypt(bytes(cipher), 256, bytes(out), 256, &length));
  EXPECT_EQ(length, 0U);
  EXPECT_EQ(out, std::string(256, '#'));
  EXPECT_THAT(server.records(), IsEmpty());
}

TEST_F(FailingProperties, EndSigningSilently) {
  EXPECT_TRUE(
      Failing_signature(private_key).sign(bytes("text"), 4, bytes(out), 256, &length, "SHA256"));
  EXPECT_EQ(length, 0U);
  EXPECT_EQ(out, std::string(256, '#'));
  EXPECT_THAT(server.records(), IsEmpty());
}

TEST_F(FailingProperties, EndVerificationSilently) {
  const std::string signature = reference_sign_pss(private_key, "SHA256", "text");
  EXPECT_TRUE(
      Failing_signature(public_key).verify(bytes("text"), 4, bytes(signature), 256, "SHA256"));
  EXPECT_THAT(server.records(), IsEmpty());
}

}  // namespace
}  // namespace halvex_test
