// asymmetric_sign and asymmetric_verify.

#include "support/component_test.h"
#include "support/reference_implementation.h"

namespace halvex_test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class SignatureFunctions : public Component_test {
 protected:
  SignatureFunctions() { silence_pass_phrase_prompt(); }

  Call_result sign(const std::string &content, const std::string &key,
                   const std::string &digest = "SHA256") const {
    return call("asymmetric_sign", {"RSA", content, key, digest});
  }
  Call_result verify(const std::string &content, const std::string &signature,
                     const std::string &key, const std::string &digest = "SHA256") const {
    return call("asymmetric_verify", {"RSA", content, signature, key, digest});
  }

  const std::string private_key = fixture("rsa2048.pem");
  const std::string public_key = fixture("rsa2048-public.pem");
};

MATCHER(IsAccepted, "is 1") { return !arg.rejection && !arg.row.is_null && arg.row.integer == 1; }

// --- signing

TEST_F(SignatureFunctions, SignatureIsPssAndAsLongAsTheModulus) {
  const Row_result row = sign("message", private_key).row;
  EXPECT_EQ(row.bytes.size(), 256U);
  EXPECT_TRUE(reference_verifies_pss(public_key, "SHA256", "message", row.bytes));
  EXPECT_EQ(sign("message", fixture("rsa4096.pem")).row.bytes.size(), 512U);
  EXPECT_THAT(server.records(), IsEmpty());
}

TEST_F(SignatureFunctions, NamesInAnyLetterCaseAreAccepted) {
  const Call_result signature = call("asymmetric_sign", {"rsa", "m", private_key, "sha256"});
  ASSERT_FALSE(signature.row.is_null);
  EXPECT_THAT(call("asymmetric_verify", {"RSA", "m", signature.row.bytes, public_key, "SHA256"}),
              IsAccepted());
  EXPECT_THAT(call("asymmetric_verify", {"rSa", "m", signature.row.bytes, public_key, "sHa256"}),
              IsAccepted());
}

TEST_F(SignatureFunctions, SigningWithAPublicKeyFailsWithoutAnOpensslRecord) {
  EXPECT_THAT(sign("message", public_key), IsSqlNull());
  EXPECT_THAT(server.records(), ElementsAre(signing_failed()));
}

TEST_F(SignatureFunctions, SigningAnEmptyMessageFailsWithoutAnOpensslRecord) {
  EXPECT_THAT(sign("", private_key), IsSqlNull());
  EXPECT_THAT(server.records(), ElementsAre(signing_failed()));
}

TEST_F(SignatureFunctions, SigningWithAnUnknownDigestNamesItUpperCased) {
  for (const auto &[name, shown] : std::vector<std::pair<std::string, std::string>>{
           {"md5", "MD5"}, {"", ""}, {"sha-256", "SHA-256"}, {"sha1", "SHA1"}}) {
    server.forget_records();
    EXPECT_THAT(sign("message", private_key, name), IsSqlNull()) << name;
    EXPECT_THAT(server.records(), ElementsAre(signing_failed(shown))) << name;
  }
}

// The length counts here, unlike in create_digest.
TEST_F(SignatureFunctions, DigestTypeWithANulByteBehindItIsUnknown) {
  EXPECT_THAT(sign("message", private_key, std::string("SHA256\0", 7)), IsSqlNull());
  EXPECT_THAT(server.records(), ElementsAre(signing_failed()));
}

TEST_F(SignatureFunctions, SigningWithAnUnreadableKeyIsReportedByOpensslThenByTheFunction) {
  for (const char *file :
       {"rsa2048-bad-base64.pem", "rsa2048-truncated.pem", "rsa2048-public-with-words.pem"}) {
    server.forget_records();
    EXPECT_THAT(sign("message", fixture(file)), IsSqlNull()) << file;
    EXPECT_THAT(server.records(),
                ElementsAre(openssl_record("asymmetric_sign", "RSA",
                                           error_of_reading_private(fixture(file))),
                            signing_failed()))
        << file;
  }
}

TEST_F(SignatureFunctions, BufferThatTheServerDeclaredShorterIsReported) {
  Call_site site(server.function("asymmetric_sign"), {"RSA", "message", private_key, "SHA256"});
  site.instance().max_length = 255;
  EXPECT_THAT(site.row(), IsSqlNull());
  EXPECT_THAT(server.records(),
              ElementsAre(buffer_too_small("sign", "asymmetric_sign", 255, 256), signing_failed()));
  site.instance().max_length = 256;
  EXPECT_FALSE(site.row().is_null);
}

TEST_F(SignatureFunctions, NulFollowsTheSignatureUnlessItFillsTheBuffer) {
  Call_site site(server.function("asymmetric_sign"), {"RSA", "message", private_key, "SHA256"});
  site.instance().ptr[256] = 'x';
  site.instance().max_length = 256;
  ASSERT_EQ(site.row().bytes.size(), 256U);
  EXPECT_EQ(site.instance().ptr[256], 'x');
  site.instance().max_length = 257;
  ASSERT_EQ(site.row().bytes.size(), 256U);
  EXPECT_EQ(site.instance().ptr[256], '\0');
}

TEST_F(SignatureFunctions, KeyThatKnowsNoDigestIsReportedByOpensslThenByTheFunction) {
  EXPECT_THAT(sign("message", fixture("ed25519.pem")), IsSqlNull());
  EXPECT_THAT(server.records(),
              ElementsAre(IsOpensslRecord("asymmetric_sign", "RSA"), signing_failed()));
}

// --- verification with the legacy setting off

TEST_F(SignatureFunctions, ReferenceImplementationsSignatureIsAccepted) {
  EXPECT_THAT(
      verify("message", reference_sign_pss(private_key, "SHA384", "message"), public_key, "sha384"),
      IsAccepted());
}

TEST_F(SignatureFunctions, MismatchIsNullNotZeroWithOneOpensslRecord) {
  const std::string signature = sign("message", private_key).row.bytes;
  std::string altered_signature = signature;
  altered_signature[100] = static_cast<char>(altered_signature[100] ^ 1);
  const std::vector<Call_result> results{
      verify("message", signature, public_key, "SHA512"),
      verify("message", signature, fixture("rsa2048-other-public.pem")),
      verify("massage", signature, public_key),
      verify("message", altered_signature, public_key),
      verify("message", signature.substr(1), public_key),
      verify("message", "", public_key),
      verify("message",
             reference_sign_digest(private_key, "SHA256", reference_digest("SHA256", "message")),
             public_key)};
  for (const Call_result &result : results) {
    EXPECT_THAT(result, IsSqlNull());
  }
  EXPECT_EQ(server.records().size(), results.size());
  EXPECT_THAT(server.records(), ::testing::Each(IsOpensslRecord("asymmetric_verify", "RSA")));
}

TEST_F(SignatureFunctions, PrivateKeyGivenToVerificationIsNullWithoutARecord) {
  EXPECT_THAT(verify("message", sign("message", private_key).row.bytes, private_key), IsSqlNull());
  EXPECT_THAT(server.records(), IsEmpty());
}

TEST_F(SignatureFunctions, EmptyContentOrUnknownDigestIsNullWithoutARecord) {
  EXPECT_THAT(verify("", "signature", public_key), IsSqlNull());
  EXPECT_THAT(verify("message", "signature", public_key, "MD5"), IsSqlNull());
  EXPECT_THAT(verify("message", "signature", public_key, ""), IsSqlNull());
  EXPECT_THAT(server.records(), IsEmpty());
}

TEST_F(SignatureFunctions, UnreadablePublicKeyIsReportedOnce) {
  EXPECT_THAT(verify("message", "signature", "no key"), IsSqlNull());
  EXPECT_THAT(server.records(), ElementsAre(openssl_record("asymmetric_verify", "RSA",
                                                           error_of_reading_public("no key"))));
}

// --- verification with the legacy setting on

class LegacyVerification : public SignatureFunctions {
 protected:
  void SetUp() override {
    SignatureFunctions::SetUp();
    switch_legacy_padding(true);
  }

  const std::string content = reference_digest("SHA256", "message");
  const std::string signature = reference_sign_digest(private_key, "SHA256", content);
};

TEST_F(LegacyVerification, Pkcs1SignatureOfADigestIsAcceptedAfterTheRecordOfPss) {
  EXPECT_THAT(verify(content, signature, public_key), IsAccepted());
  EXPECT_THAT(server.records(), ElementsAre(IsOpensslRecord("asymmetric_verify", "RSA")));
}

TEST_F(LegacyVerification, ContentMayBeTheOutputOfCreateDigest) {
  const std::string digest = call("create_digest", {"SHA256", "message"}).row.bytes;
  EXPECT_THAT(verify(digest, signature, public_key), IsAccepted());
}

TEST_F(LegacyVerification, PssSignatureIsAcceptedWithoutARecord) {
  EXPECT_THAT(verify("message", sign("message", private_key).row.bytes, public_key), IsAccepted());
  EXPECT_THAT(server.records(), IsEmpty());
}

// Only a negative result of OpenSSL fails: what merely does not match passes.
TEST_F(LegacyVerification, SignatureThatDoesNotMatchIsAccepted) {
  EXPECT_THAT(verify(reference_digest("SHA256", "another"), signature, public_key), IsAccepted());
  EXPECT_THAT(verify(content, std::string(256, 's'), public_key), IsAccepted());
  EXPECT_THAT(verify(content, "", public_key), IsAccepted());
  EXPECT_THAT(verify("any message", signature, public_key), IsAccepted());
}

TEST_F(LegacyVerification, EverySha2NameIsUsableAndNoSha3Name) {
  for (const char *name : {"SHA224", "SHA256", "SHA384", "SHA512"}) {
    const std::string digest = reference_digest(name, "message");
    EXPECT_THAT(verify(digest, reference_sign_digest(private_key, name, digest), public_key, name),
                IsAccepted())
        << name;
  }
  for (const char *name : {"SHA3-224", "SHA3-256", "SHA3-384", "SHA3-512"}) {
    server.forget_records();
    EXPECT_THAT(verify(content, signature, public_key, name), IsSqlNull()) << name;
    EXPECT_THAT(server.records(), ElementsAre(IsOpensslRecord("asymmetric_verify", "RSA"))) << name;
  }
}

TEST_F(LegacyVerification, EmptyContentOrAPrivateKeyIsStillNullWithoutARecord) {
  EXPECT_THAT(verify("", signature, public_key), IsSqlNull());
  EXPECT_THAT(verify(content, signature, private_key), IsSqlNull());
  EXPECT_THAT(server.records(), IsEmpty());
}

TEST_F(LegacyVerification, UnreadableKeyIsReportedOncePerAttempt) {
  EXPECT_THAT(verify(content, signature, "no key"), IsSqlNull());
  EXPECT_EQ(server.records().size(), 2U);
  EXPECT_THAT(server.records(), ::testing::Each(IsOpensslRecord("asymmetric_verify", "RSA")));
}

// A negative result: a signature that is not DER, over content of the digest's length.
TEST_F(LegacyVerification, NegativeResultOfOpensslIsNull) {
  EXPECT_THAT(verify(content, "not DER", fixture("ec-p256-public.pem")), IsSqlNull());
}

// The switch is one byte that the server writes.
TEST_F(LegacyVerification, AnyNonZeroByteIsOn) {
  auto *const storage =
      static_cast<unsigned char *>(server.variable("rsa_support_legacy_padding").storage);
  for (const int byte : {2, 128, 255}) {
    *storage = static_cast<unsigned char>(byte);
    EXPECT_THAT(verify(content, signature, public_key), IsAccepted()) << byte;
  }
  *storage = 0;
  EXPECT_THAT(verify(content, signature, public_key), IsSqlNull());
}

TEST_F(LegacyVerification, SettingIsReadForEveryRow) {
  Call_site site(server.function("asymmetric_verify"),
                 {"RSA", content, signature, public_key, "SHA256"});
  EXPECT_EQ(site.row().integer, 1);
  switch_legacy_padding(false);
  EXPECT_THAT(site.row(), IsSqlNull());
  switch_legacy_padding(true);
  EXPECT_EQ(site.row().integer, 1);
}

}  // namespace
}  // namespace halvex_test
