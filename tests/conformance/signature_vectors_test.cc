// asymmetric_verify against the published signature files.
//
// Two rules of the component make the expected result differ from a file's own verdict. SHA-1 is no
// digest of the component, so its vectors are rejected without a record, valid or not. And while
// the legacy switch is on, a SHA-2 signature that PSS rejects is checked again as PKCS#1 v1.5 with
// the content as the digest itself, where anything but a negative answer of EVP_PKEY_verify counts
// as success; for RSA keys the library never answers less than 0.

#include <openssl/core_names.h>

#include "conformance/expectations.h"
#include "conformance/vector_files.h"
#include "support/hexadecimal.h"
#include "support/reference_implementation.h"

namespace halvex_test {
namespace {

constexpr const char *verify = "asymmetric_verify";

std::string public_key_of(const Vector &vector) {
  const Key key =
      rsa_key({{OSSL_PKEY_PARAM_RSA_N, vector.at("n")}, {OSSL_PKEY_PARAM_RSA_E, vector.at("e")}});
  return public_pem(key.get()).value();
}

std::vector<Vector> without_sha1(std::vector<Vector> vectors) {
  std::erase_if(vectors, [](const Vector &vector) { return vector.at("SHAAlg") == "SHA1"; });
  return vectors;
}

struct Signed_text {
  explicit Signed_text(const Vector &vector)
      : digest_name(vector.at("SHAAlg")),
        text(from_hex(vector.at("Msg"))),
        signature(from_hex(vector.at("S"))),
        pem(public_key_of(vector)) {}

  [[nodiscard]] std::vector<Argument> arguments() const {
    return {"RSA", text, signature, pem, digest_name};
  }
  [[nodiscard]] std::string digest() const { return digest_of(library_digest(digest_name), text); }

  std::string digest_name;
  std::string text;
  std::string signature;
  std::string pem;
};

struct SignatureVectors : Conformance_test {
  std::vector<Vector> read(const std::string &name, const std::string &last) {
    const std::filesystem::path path = "asymmetric/RSA/" + name;
    std::vector<Vector> vectors = read_response_file(path, last);
    EXPECT_EQ(vectors.size(), lines_beginning_with(path, last + " ="));
    return vectors;
  }

  void expect_one(const std::vector<Record> &records, const std::vector<Argument> &arguments) {
    Expectation expectation;
    expectation.is_null = false;
    expectation.records = records;
    expect(expectation, verify, arguments);
  }

  // The one record of a PSS check that failed.
  static std::vector<Record> rejection(const Signed_text &item) {
    return expected_verification(item.text, item.signature, item.pem, item.digest_name, false)
        .records;
  }

  // A signature that is no PSS one of the text: NULL and one report while the switch is off, 1
  // after the same report while it is on.
  void expect_lenience_alone(const Signed_text &item) {
    const std::vector<Record> records = rejection(item);
    ASSERT_THAT(records, ::testing::ElementsAre(IsOpensslRecord(verify, "RSA")));
    set_legacy_padding(false);
    expect_null(records, verify, item.arguments());
    set_legacy_padding(true);
    expect_one(records, item.arguments());
  }
};

// Expected: the file's verdict while the switch is off; 1 for every vector while it is on. A valid
// one is never looked at twice, so it gives no record either way.
TEST_F(SignatureVectors, PssVerificationFollowsTheFile) {
  std::size_t passes = 0;
  for (const Vector &vector : without_sha1(read("FIPS_186-2/SigVerPSS_186-3.rsp", "Result"))) {
    const Signed_text item(vector);
    if (vector.at("Result") == "P") {
      ++passes;
      for (const bool legacy : {false, true}) {
        set_legacy_padding(legacy);
        expect_one({}, item.arguments());
      }
    } else {
      expect_lenience_alone(item);
    }
    ASSERT_FALSE(HasFailure()) << "signature " << to_hex(item.signature);
  }
  EXPECT_EQ(passes, 60U);
}

// Expected: 1 without a record: all are valid, with salts of 20 bytes and of none.
TEST_F(SignatureVectors, GeneratedPssSignaturesAreValid) {
  for (const char *file : {"FIPS_186-2/SigGenPSS_186-2.rsp", "FIPS_186-2/SigGenPSS_186-3.rsp"}) {
    for (const Vector &vector : without_sha1(read(file, "S"))) {
      const Signed_text item(vector);
      expect_one({}, item.arguments());
      ASSERT_FALSE(HasFailure()) << "signature " << to_hex(item.signature);
    }
  }
}

// Expected for the message itself: no v1.5 signature is a PSS one, so NULL while the switch is off,
// and 1 while it is on, by lenience: the message is no digest (one key size shows it). Expected for
// the message's digest: the same results, but now the library's own answer is the file's
// verdict: 1 for "P", 0 else.
TEST_F(SignatureVectors, Pkcs1VerificationNeedsTheLegacySwitch) {
  std::size_t passes = 0;
  for (const char *file : {"FIPS_186-2/SigVer15_186-3.rsp", "SigVer15EMTest.txt"}) {
    for (const Vector &vector : without_sha1(read(file, "Result"))) {
      Signed_text item(vector);
      if (vector.at("mod") == "2048") {
        expect_lenience_alone(item);
      }

      item.text = item.digest();
      const Key key = read_public_pem(item.pem);
      const bool valid = vector.at("Result") == "P";
      passes += valid ? 1 : 0;
      EXPECT_EQ(
          raw_verify_result(key.get(), library_digest(item.digest_name), item.text, item.signature),
          valid ? 1 : 0);
      expect_lenience_alone(item);
      ASSERT_FALSE(HasFailure()) << "signature " << to_hex(item.signature);
    }
  }
  EXPECT_EQ(passes, 60U);
}

// Expected for the digest of the message: 1 while the switch is on, after the report of the PSS
// attempt; NULL while it is off. All are valid: the library's own answer is 1, not 0.
TEST_F(SignatureVectors, GeneratedPkcs1SignaturesAreValidInLegacyMode) {
  for (const char *file : {"FIPS_186-2/SigGen15_186-2.rsp", "FIPS_186-2/SigGen15_186-3.rsp"}) {
    for (const Vector &vector : without_sha1(read(file, "S"))) {
      Signed_text item(vector);
      item.text = item.digest();
      const Key key = read_public_pem(item.pem);
      EXPECT_EQ(
          raw_verify_result(key.get(), library_digest(item.digest_name), item.text, item.signature),
          1);
      expect_lenience_alone(item);
      ASSERT_FALSE(HasFailure()) << "signature " << to_hex(item.signature);
    }
  }
}

// Expected: NULL without any record, whatever the file's verdict and the switch: the digest has no
// name here.
TEST_F(SignatureVectors, Sha1SignaturesAreRejectedSilently) {
  std::size_t count = 0;
  for (const char *file : {"FIPS_186-2/SigVerPSS_186-3.rsp", "FIPS_186-2/SigVer15_186-3.rsp"}) {
    for (const Vector &vector : read(file, "Result")) {
      if (vector.at("SHAAlg") == "SHA1") {
        ++count;
        for (const bool legacy : {false, true}) {
          set_legacy_padding(legacy);
          expect_null({}, verify, Signed_text(vector).arguments());
        }
      }
    }
  }
  EXPECT_EQ(count, 180U);
}

// Expected: a valid signature is one under the name of its digest alone. With a SHA-3 name the
// switch makes no difference, since the legacy check knows no SHA-3 name.
TEST_F(SignatureVectors, ValidSignaturesAreRejectedUnderAnotherDigest) {
  for (const Vector &vector : read("FIPS_186-2/SigVerPSS_186-3.rsp", "Result")) {
    if (vector.at("Result") != "P" || vector.at("SHAAlg") == "SHA1" || vector.at("mod") != "2048") {
      continue;
    }
    Signed_text item(vector);
    for (const char *other : {"SHA3-224", "SHA3-256", "SHA3-384", "SHA3-512"}) {
      item.digest_name = other;
      const std::vector<Record> records = rejection(item);
      ASSERT_THAT(records, ::testing::ElementsAre(IsOpensslRecord(verify, "RSA")));
      for (const bool legacy : {false, true}) {
        set_legacy_padding(legacy);
        expect_null(records, verify, item.arguments());
      }
    }
    for (const char *other : {"SHA224", "SHA256", "SHA384", "SHA512"}) {
      if (vector.at("SHAAlg") != other) {
        item.digest_name = other;
        expect_lenience_alone(item);
      }
    }
  }
}

}  // namespace
}  // namespace halvex_test
