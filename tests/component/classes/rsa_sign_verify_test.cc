// rsa::RSA_sign_verify, rsa::RSA_legacy_verifier and the Key_usage_sign below them.

#include <openssl/err.h>
#include <openssl/rsa.h>

#include "classes/class_test.h"
#include "halvex_encryption/rsa_implementation.h"

namespace halvex_test {
namespace {

using halvex_encryption::Function_metadata;
using halvex_encryption::Key_reader;
using halvex_encryption::Key_usage_sign;
using halvex_encryption::rsa::pkcs1_key_reader;
using halvex_encryption::rsa::RSA_legacy_verifier;
using halvex_encryption::rsa::RSA_sign_verify;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

Key_reader key_of(const std::string &pem) {
  return {"a_function", "rsa", pem.data(), pem.size(), pkcs1_key_reader};
}

struct Signed {
  bool failed = false;
  std::string bytes;
  unsigned long length = 0;

  [[nodiscard]] std::string text() const { return bytes.substr(0, length); }
};

Signed sign(Key_usage_sign &&signer, const std::string &message, const std::string &digest,
            size_t capacity = 1024) {
  Signed out{false, std::string(capacity, '#'), 77};
  out.failed =
      signer.sign(bytes(message), message.size(), bytes(out.bytes), capacity, &out.length, digest);
  return out;
}

bool rejects(Key_usage_sign &&verifier, const std::string &message, const std::string &signature,
             const std::string &digest) {
  return verifier.verify(bytes(message), message.size(), bytes(signature), signature.size(),
                         digest);
}

RSA_sign_verify pss(const std::string &file) {
  return {key_of(fixture(file)), Function_metadata("a_function", "rsa"), RSA_PKCS1_PSS_PADDING};
}

RSA_legacy_verifier legacy_with_key(const std::string &pem) {
  return {key_of(pem), Function_metadata("a_function", "rsa")};
}

RSA_legacy_verifier legacy(const std::string &file) { return legacy_with_key(fixture(file)); }

class RsaSignVerify : public Class_test {
 protected:
  RsaSignVerify() { ERR_clear_error(); }
};

TEST_F(RsaSignVerify, SigningWithAPublicKeyFailsWithoutARecord) {
  const Signed signature = sign(pss("rsa2048-public.pem"), "message", "SHA256");
  EXPECT_TRUE(signature.failed);
  EXPECT_EQ(signature.length, 0U);
  EXPECT_THAT(server.records(), IsEmpty());
}

TEST_F(RsaSignVerify, EmptyMessageNoCapacityOrUnknownDigestFailsWithoutARecord) {
  EXPECT_TRUE(sign(pss("rsa2048.pem"), "", "SHA256").failed);
  EXPECT_TRUE(sign(pss("rsa2048.pem"), "message", "SHA256", 0).failed);
  EXPECT_TRUE(sign(pss("rsa2048.pem"), "message", "MD5").failed);
  EXPECT_TRUE(sign(pss("rsa2048.pem"), "message", "sha256").failed);
  EXPECT_TRUE(rejects(pss("rsa2048-public.pem"), "", "signature", "SHA256"));
  EXPECT_TRUE(rejects(pss("rsa2048-public.pem"), "message", "signature", "MD5"));
  EXPECT_THAT(server.records(), IsEmpty());
}

TEST_F(RsaSignVerify, BufferOfTheModulusIsEnoughAndOneByteLessIsReported) {
  EXPECT_FALSE(sign(pss("rsa2048.pem"), "message", "SHA256", 256).failed);
  const Signed signature = sign(pss("rsa2048.pem"), "message", "SHA256", 255);
  EXPECT_TRUE(signature.failed);
  EXPECT_EQ(signature.length, 0U);
  EXPECT_EQ(signature.bytes, std::string(255, '#'));
  EXPECT_THAT(server.records(), ElementsAre(buffer_too_small("sign", "a_function", 255, 256)));
}

TEST_F(RsaSignVerify, ContextPropertiesNeedAKeyContextAndIgnoreWhatCannotBeSet) {
  RSA_sign_verify signer = pss("rsa2048.pem");
  EXPECT_TRUE(signer.set_ctx_properties(nullptr, nullptr));
  const halvex_encryption::Pkey_ctx_ptr unready{EVP_PKEY_CTX_new_id(EVP_PKEY_RSA, nullptr)};
  EXPECT_FALSE(signer.set_ctx_properties(nullptr, unready.get()));
  ERR_clear_error();
}

class RsaLegacyVerifier : public RsaSignVerify {
 protected:
  const std::string digest = reference_digest("SHA256", "message");
  const std::string signature = reference_sign_digest(fixture("rsa2048.pem"), "SHA256", digest);
};

TEST_F(RsaLegacyVerifier, Sha3AndUnknownNamesFailWithoutARecord) {
  for (const char *name : {"SHA3-224", "SHA3-256", "SHA3-384", "SHA3-512", "MD5", "sha256", ""}) {
    EXPECT_TRUE(rejects(legacy("rsa2048-public.pem"), digest, signature, name)) << name;
  }
  EXPECT_THAT(server.records(), IsEmpty());
}

// A key for key exchange alone. With an Ed25519 key newer libraries accept the set-up calls.
TEST_F(RsaLegacyVerifier, KeyThatCannotVerifyFailsWithoutARecord) {
  const std::string pem = public_pem(new_key("X25519", nullptr).get()).value();
  EXPECT_TRUE(rejects(legacy_with_key(pem), digest, signature, "SHA256"));
  EXPECT_THAT(server.records(), IsEmpty());
}

TEST_F(RsaLegacyVerifier, SignFailsWhateverItIsGivenAndTouchesNothing) {
  for (const char *file : {"rsa2048.pem", "rsa2048-public.pem"}) {
    const Signed out = sign(legacy(file), "message", "SHA256");
    EXPECT_TRUE(out.failed);
    EXPECT_EQ(out.length, 77U);
    EXPECT_EQ(out.bytes, std::string(1024, '#'));
  }
  EXPECT_THAT(server.records(), IsEmpty());
}

TEST_F(RsaLegacyVerifier, ContextPropertiesAreLeftAlone) {
  EXPECT_FALSE(legacy("rsa2048-public.pem").set_ctx_properties(nullptr, nullptr));
}

}  // namespace
}  // namespace halvex_test
