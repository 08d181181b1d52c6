// Keys that are no ordinary RSA keys, in every function. Each test states what must come out; whole
// records are held against the library's own answers.

#include <openssl/core_names.h>
#include <openssl/rsa.h>

#include "conformance/expectations.h"
#include "support/function_names.h"
#include "support/reference_implementation.h"

namespace halvex_test {
namespace {

struct Key_pair {
  explicit Key_pair(const std::string &name)
      : private_pem(fixture(name + ".pem")), public_pem(fixture(name + "-public.pem")) {}

  std::string private_pem;
  std::string public_pem;
};

class UnusualKeys : public Conformance_test {
 protected:
  void expect_derivation(const Key_pair &pair) {
    EXPECT_EQ(value_of(derive, {"RSA", pair.private_pem}), pair.public_pem);
  }

  // The operation is none for such a key: the library's word for it, then the function's own
  // record.
  void expect_no_encryption(const Key_pair &pair) {
    const Expectation encryption = expected_encryption("x", pair.public_pem);
    EXPECT_THAT(encryption.records,
                ::testing::ElementsAre(IsOpensslRecord(encrypt, "RSA"), encryption_failed(1)));
    expect(encryption, encrypt, {"RSA", "x", pair.public_pem});

    const Expectation decryption = expected_decryption("x", pair.private_pem, false);
    EXPECT_THAT(decryption.records,
                ::testing::ElementsAre(IsOpensslRecord(decrypt, "RSA"), decryption_failed(1)));
    expect(decryption, decrypt, {"RSA", "x", pair.private_pem});
    set_legacy_padding(true);
    EXPECT_TRUE(check_decryption("x", pair.private_pem).is_null);
    set_legacy_padding(false);
  }

  // Signs and verifies, and rejects another text.
  std::string expect_signing(const Key_pair &pair, const char *digest_name) {
    std::string signature = value_of(sign, {"RSA", "text", pair.private_pem, digest_name});
    const Key key = read_public_pem(pair.public_pem);
    EXPECT_TRUE(verifies_as_pss(key.get(), documented_digest(digest_name), "text", signature));
    EXPECT_FALSE(check_verification("text", signature, pair.public_pem, digest_name).is_null);
    EXPECT_TRUE(check_verification("other", signature, pair.public_pem, digest_name).is_null);
    return signature;
  }

  void expect_no_signing(const Key_pair &pair, const char *digest_name) {
    EXPECT_TRUE(check_signature("text", pair.private_pem, digest_name).is_null);
  }
};

// The padding cannot be set for such keys, which nobody minds: the signature is an ECDSA one.
TEST_F(UnusualKeys, EllipticCurveKeysSignInTheirOwnWay) {
  const Key_pair pair("ec-p256");
  expect_derivation(pair);
  expect_no_encryption(pair);
  for (const char *digest_name : {"SHA224", "SHA256", "SHA384", "SHA512", "SHA3-256", "SHA3-512"}) {
    const std::string signature = expect_signing(pair, digest_name);
    EXPECT_EQ(signature.substr(0, 1), "\x30") << "no DER sequence";
    EXPECT_LE(signature.size(), 72U);
  }
}

// Older libraries queue no error for a mismatch, and the report then names error 0.
TEST_F(UnusualKeys, EllipticCurveMismatchesAreReportedAsTheLibraryDoes) {
  const Key_pair pair("ec-p256");
  const std::string signature = value_of(sign, {"RSA", "text", pair.private_pem, "SHA256"});
  const Expectation mismatch =
      expected_verification("other", signature, pair.public_pem, "SHA256", false);
  EXPECT_EQ(mismatch.records.size(), 1U);
  expect(mismatch, verify, {"RSA", "other", signature, pair.public_pem, "SHA256"});
}

// The legacy check fails on a negative answer only: -1 for what is no DER and a content as long as
// the digest; 0, hence success, for the rest.
TEST_F(UnusualKeys, EllipticCurveKeysMeetTheLenientLegacyCheck) {
  const Key_pair pair("ec-p256");
  const std::string digest = value_of("create_digest", {"SHA256", "text"});
  const std::string signature = value_of(sign, {"RSA", "text", pair.private_pem, "SHA256"});
  set_legacy_padding(true);
  EXPECT_FALSE(check_verification(digest, signature, pair.public_pem, "SHA256").is_null);
  EXPECT_FALSE(
      check_verification(std::string(32, 'x'), signature, pair.public_pem, "SHA256").is_null);
  EXPECT_TRUE(check_verification(digest, std::string(70, 'x'), pair.public_pem, "SHA256").is_null);
  EXPECT_FALSE(check_verification("text", std::string(70, 'x'), pair.public_pem, "SHA256").is_null);
}

TEST_F(UnusualKeys, DsaKeysSignInTheirOwnWay) {
  const Key_pair pair("dsa2048");
  expect_derivation(pair);
  expect_no_encryption(pair);
  for (const char *digest_name : {"SHA224", "SHA256", "SHA3-256"}) {
    const std::string signature = expect_signing(pair, digest_name);
    EXPECT_EQ(signature.substr(0, 1), "\x30") << "no DER sequence";
  }
}

// Ed25519 takes no digest, so nothing can be signed. The legacy check cannot be set up with such a
// key in OpenSSL 3.0; in 3.5 it can, and accepts what does not match.
TEST_F(UnusualKeys, Ed25519KeysOnlyGiveTheirPublicKey) {
  const Key_pair pair("ed25519");
  const std::string signature(64, 'x');
  expect_derivation(pair);
  expect_no_encryption(pair);
  expect_no_signing(pair, "SHA256");
  EXPECT_TRUE(check_verification("text", signature, pair.public_pem, "SHA256").is_null);
  const bool accepted = raw_verify_result(read_public_pem(pair.public_pem).get(),
                                          documented_digest("SHA256"), "text", signature) >= 0;
  set_legacy_padding(true);
  EXPECT_EQ(check_verification("text", signature, pair.public_pem, "SHA256").is_null, !accepted);
}

// Size - 42 is negative and counts as a huge number. Intentional: no length is rejected before the
// library sees it, and the library then rejects every one.
TEST_F(UnusualKeys, TinyKeysLetEveryLengthReachTheLibrary) {
  const Key_pair pair("rsa-tiny");
  expect_derivation(pair);
  for (const std::size_t length : {1U, 40U, 41U, 10000U}) {
    const std::string text(length, 'x');
    const Expectation encryption = expected_encryption(text, pair.public_pem);
    EXPECT_THAT(encryption.records,
                ::testing::ElementsAre(IsOpensslRecord(encrypt, "RSA"), encryption_failed(length)));
    expect(encryption, encrypt, {"RSA", text, pair.public_pem});
  }
  // A private key's limit is its own size.
  expect_null({data_too_long(decrypt, 41, 40)}, decrypt,
              {"RSA", std::string(41, 'x'), pair.private_pem});
  EXPECT_TRUE(check_decryption(std::string(40, 'x'), pair.private_pem).is_null);
  // 40 bytes have room for a digest of 32, not of 48.
  EXPECT_EQ(expect_signing(pair, "SHA256").size(), 40U);
  expect_no_signing(pair, "SHA384");
}

TEST_F(UnusualKeys, ThreePrimesWorkAsTwo) {
  const Key_pair pair("rsa2048-three-primes");
  expect_derivation(pair);
  const std::string cipher = value_of(encrypt, {"RSA", "text", pair.public_pem});
  EXPECT_EQ(value_of(decrypt, {"RSA", cipher, pair.private_pem}), "text");
  EXPECT_EQ(expect_signing(pair, "SHA512").size(), 256U);
}

// This key allows SHA256 with a salt of 32 bytes and more, and signatures only.
TEST_F(UnusualKeys, PssKeysKeepTheirOwnParameters) {
  const Key_pair pair("rsa-pss2048");
  expect_derivation(pair);
  expect_no_encryption(pair);
  EXPECT_EQ(expect_signing(pair, "SHA256").size(), 256U);
  for (const char *digest_name : {"SHA224", "SHA384", "SHA512", "SHA3-256"}) {
    expect_no_signing(pair, digest_name);
  }
  const std::string signature = value_of(sign, {"RSA", "text", pair.private_pem, "SHA256"});
  EXPECT_TRUE(check_verification("text", signature, pair.public_pem, "SHA512").is_null);
  for (const char *digest_name : {"SHA256", "SHA512"}) {
    set_legacy_padding(true);
    check_verification("other", signature, pair.public_pem, digest_name);
    check_verification(digest_of(documented_digest(digest_name), "text"), signature,
                       pair.public_pem, digest_name);
  }
}

TEST_F(UnusualKeys, OldPublicFormIsReadAsTheLibraryReadsIt) {
  const std::string pem = fixture("rsa2048-rsa-public.pem");
  const std::string private_pem = fixture("rsa2048.pem");
  const Row_result cipher = check_encryption("text", pem);
  ASSERT_EQ(cipher.is_null, read_public_pem(pem) == nullptr);
  const std::string signature = value_of(sign, {"RSA", "text", private_pem, "SHA256"});
  EXPECT_EQ(check_verification("text", signature, pem, "SHA256").is_null, cipher.is_null);
  if (!cipher.is_null) {
    EXPECT_EQ(value_of(decrypt, {"RSA", cipher.bytes, private_pem}), "text");
  }
}

TEST_F(UnusualKeys, WordsInACommentMakeAPublicKeyUnreadable) {
  const std::string pem = fixture("rsa2048-public-with-words.pem");
  const Expectation encryption = expected_encryption("text", pem);
  EXPECT_THAT(encryption.records, ::testing::ElementsAre(IsOpensslRecord(encrypt, "RSA")));
  expect(encryption, encrypt, {"RSA", "text", pem});
  EXPECT_TRUE(check_verification("text", std::string(256, 'x'), pem, "SHA256").is_null);
}

TEST_F(UnusualKeys, LargestKeysWorkInEveryFunction) {
  const Key_pair pair("rsa16384");
  expect_derivation(pair);
  const std::string text(2048 - 42, 'x');
  const std::string cipher = value_of(encrypt, {"RSA", text, pair.public_pem});
  EXPECT_EQ(cipher.size(), 2048U);
  EXPECT_EQ(value_of(decrypt, {"RSA", cipher, pair.private_pem}), text);
  expect_null({data_too_long(encrypt, 2007, 2006)}, encrypt, {"RSA", text + "x", pair.public_pem});
  EXPECT_EQ(expect_signing(pair, "SHA256").size(), 2048U);
}

// A key of 16384 bits whose numbers are as large as numbers of their lengths can be; no real key's
// text is longer.
TEST_F(UnusualKeys, PrivateTextOfTheLargestKeyFitsTheResultBuffer) {
  const std::string full(16384 / 4, 'f');
  const std::string half(8192 / 4, 'f');
  const Key key = rsa_key({{OSSL_PKEY_PARAM_RSA_N, full},
                           {OSSL_PKEY_PARAM_RSA_E, "10001"},
                           {OSSL_PKEY_PARAM_RSA_D, full},
                           {OSSL_PKEY_PARAM_RSA_FACTOR1, half},
                           {OSSL_PKEY_PARAM_RSA_FACTOR2, half},
                           {OSSL_PKEY_PARAM_RSA_EXPONENT1, half},
                           {OSSL_PKEY_PARAM_RSA_EXPONENT2, half},
                           {OSSL_PKEY_PARAM_RSA_COEFFICIENT1, half}});
  const std::size_t longest = private_pem(key.get()).value().size();
  RecordProperty("longest", static_cast<int>(longest));
  EXPECT_GE(longest, fixture("rsa16384.pem").size());
  Call_site site(server.function(create), {"RSA", 16384});
  EXPECT_LE(longest + 1, site.instance().max_length);
}

// The library reads such a modulus and gives its size, and rejects only the operation.
TEST_F(UnusualKeys, KeysBeyondTheLargestFailInTheOperation) {
  const Key key = rsa_key(
      {{OSSL_PKEY_PARAM_RSA_N, std::string(16392 / 4, 'f')}, {OSSL_PKEY_PARAM_RSA_E, "10001"}});
  const std::string pem = public_pem(key.get()).value();
  const Expectation encryption = expected_encryption("x", pem);
  EXPECT_THAT(encryption.records,
              ::testing::ElementsAre(IsOpensslRecord(encrypt, "RSA"), encryption_failed(1)));
  expect(encryption, encrypt, {"RSA", "x", pem});
  EXPECT_TRUE(check_verification("text", std::string(2049, 'x'), pem, "SHA256").is_null);
}

}  // namespace
}  // namespace halvex_test
