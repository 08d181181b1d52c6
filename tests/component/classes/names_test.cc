// Function_metadata, HX_functions::get_algorithm and get_digest_mode.

#include "classes/class_test.h"
#include "halvex_encryption/algorithm_implementation.h"
#include "halvex_encryption/functions.h"

namespace halvex_test {
namespace {

using halvex_encryption::Algorithm_type;
using halvex_encryption::Function_metadata;
using halvex_encryption::get_digest_mode;
using halvex_encryption::HX_functions;

TEST(FunctionMetadata, UpperCasesItsCopyOfTheAlgorithmAlone) {
  const std::string function = "a_function";
  const std::string algorithm = "rsa-Pss 1\xe4";
  const Function_metadata metadata(function, algorithm);
  EXPECT_EQ(metadata.function_name, "a_function");
  EXPECT_EQ(metadata.algorithm, "RSA-PSS 1\xe4");
  EXPECT_EQ(algorithm, "rsa-Pss 1\xe4");
}

TEST(FunctionMetadata, KeepsNulBytes) {
  EXPECT_EQ(Function_metadata("f", std::string("a\0b", 3)).algorithm, std::string("A\0B", 3));
}

TEST(GetAlgorithm, KnowsRsaInAnyCaseAndChangesTheCallersString) {
  for (std::string name : {"RSA", "rsa", "rSa"}) {
    EXPECT_EQ(HX_functions::get_algorithm(name), Algorithm_type::RSA_ALGORITHM);
    EXPECT_EQ(name, "RSA");
  }
}

TEST(GetAlgorithm, KnowsNothingElse) {
  for (std::string name : {"", "R", "RS", "RSAX", "RSA ", "DSA", "RSB", "ASR"}) {
    EXPECT_EQ(HX_functions::get_algorithm(name), Algorithm_type::UNSUPPORTED_ALGORITHM) << name;
  }
  std::string with_nul("rsa\0", 4);
  EXPECT_EQ(HX_functions::get_algorithm(with_nul), Algorithm_type::UNSUPPORTED_ALGORITHM);
}

TEST(GetAlgorithm, KindsHaveTheirNumbers) {
  EXPECT_EQ(static_cast<int>(Algorithm_type::RSA_ALGORITHM), 1);
  EXPECT_EQ(static_cast<int>(Algorithm_type::UNSUPPORTED_ALGORITHM), 2);
}

TEST(GetDigestMode, KnowsEightNames) {
  EXPECT_EQ(get_digest_mode("SHA224"), EVP_sha224());
  EXPECT_EQ(get_digest_mode("SHA256"), EVP_sha256());
  EXPECT_EQ(get_digest_mode("SHA384"), EVP_sha384());
  EXPECT_EQ(get_digest_mode("SHA512"), EVP_sha512());
  EXPECT_EQ(get_digest_mode("SHA3-224"), EVP_sha3_224());
  EXPECT_EQ(get_digest_mode("SHA3-256"), EVP_sha3_224());
  EXPECT_EQ(get_digest_mode("SHA3-384"), EVP_sha3_384());
  EXPECT_EQ(get_digest_mode("SHA3-512"), EVP_sha3_512());
}

TEST(GetDigestMode, IsCaseSensitiveAndKnowsNoOtherSpelling) {
  for (const char *name : {"", "sha256", "SHA-256", "SHA1", "MD5", "SHA3_256", "SHA25", "SHA2567",
                           "SHA3-2567", "SHA3-25", " SHA256", "SHA"}) {
    EXPECT_EQ(get_digest_mode(name), nullptr) << name;
  }
  EXPECT_EQ(get_digest_mode(std::string("SHA256\0", 7)), nullptr);
}

}  // namespace
}  // namespace halvex_test
