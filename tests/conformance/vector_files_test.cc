// The readers of vector files: they read what the files hold, and nothing is passed over in
// silence.

#include "conformance/vector_files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "support/hexadecimal.h"

namespace halvex_test {
namespace {

TEST(VectorFiles, AreThere) { EXPECT_TRUE(std::filesystem::is_directory(vectors_folder())); }

TEST(VectorFiles, FailTheTestWhenMissing) {
  EXPECT_THROW(vector_file("hashes/none.rsp"), std::runtime_error);
  EXPECT_THROW(read_response_file("hashes/none.rsp", "MD"), std::runtime_error);
  EXPECT_THROW(read_headed_file("hashes/none.txt", "# Example", "Encryption"), std::runtime_error);
}

TEST(VectorFiles, FailTheTestWhenTheyHoldNoVector) {
  EXPECT_THROW(read_response_file("hashes/SHA2/SHA256ShortMsg.rsp", "Digest"), std::runtime_error);
  EXPECT_THROW(read_headed_file("hashes/SHA2/SHA256ShortMsg.rsp", "# Example", "Encryption"),
               std::runtime_error);
}

TEST(VectorFiles, ResponsesKeepValuesUntilTheyChange) {
  const std::vector<Vector> vectors =
      read_response_file("asymmetric/RSA/FIPS_186-2/SigVerPSS_186-3.rsp", "Result");
  ASSERT_EQ(vectors.size(), 450U);
  EXPECT_EQ(vectors.front().at("mod"), "1024");
  EXPECT_EQ(vectors.back().at("mod"), "4096");
  EXPECT_EQ(vectors[0].at("n"), vectors[1].at("n"));
  EXPECT_NE(vectors[0].at("S"), vectors[1].at("S"));
}

TEST(VectorFiles, HeadedOnesJoinTheirLines) {
  const std::vector<Vector> vectors =
      read_headed_file("asymmetric/RSA/pkcs-1v2-1d2-vec/oaep-vect.txt", "# Example", "Encryption");
  ASSERT_EQ(vectors.size(), 60U);
  EXPECT_EQ(from_hex(vectors.front().at("Modulus")).size(), 128U);
  EXPECT_EQ(vectors.front().at("Public exponent"), "010001");
  EXPECT_EQ(from_hex(vectors.front().at("Exponent")).size(), 128U);
  EXPECT_EQ(from_hex(vectors.back().at("Encryption")).size(), 256U);
}

TEST(VectorFiles, HexDigitsAreBytes) {
  EXPECT_EQ(from_hex("00ffA0 0a"), std::string("\x00\xff\xa0\x0a", 4));
  EXPECT_EQ(to_hex(std::string("\x00\xff\xa0\x0a", 4)), "00ffa00a");
  EXPECT_THROW(from_hex("0g"), std::runtime_error);
  EXPECT_THROW(from_hex("012"), std::runtime_error);
}

}  // namespace
}  // namespace halvex_test
