// create_digest.

#include "support/component_test.h"
#include "support/reference_implementation.h"

namespace halvex_test {
namespace {

using ::testing::IsEmpty;

class DigestFunction : public Component_test {
 protected:
  Call_result digest(const std::string &name, const std::string &text) const {
    return call("create_digest", {name, text});
  }
};

TEST_F(DigestFunction, EveryNameGivesItsDigest) {
  // The name and the digest it stands for; 256 among the SHA-3 names is the 224-bit one.
  const std::vector<std::pair<std::string, std::string>> names{
      {"SHA224", "SHA224"},     {"SHA256", "SHA256"},     {"SHA384", "SHA384"},
      {"SHA512", "SHA512"},     {"SHA3-224", "SHA3-224"}, {"SHA3-256", "SHA3-224"},
      {"SHA3-384", "SHA3-384"}, {"SHA3-512", "SHA3-512"}};
  for (const std::string &text : {std::string("abc"), std::string(), std::string(100000, 'x')}) {
    for (const auto &[name, openssl_name] : names) {
      EXPECT_EQ(digest(name, text).row.bytes, reference_digest(openssl_name, text)) << name;
    }
  }
  EXPECT_THAT(server.records(), IsEmpty());
}

TEST_F(DigestFunction, LengthsAreThoseOfTheDigests) {
  const std::vector<std::pair<std::string, size_t>> lengths{
      {"SHA224", 28},   {"SHA256", 32},   {"SHA384", 48},   {"SHA512", 64},
      {"SHA3-224", 28}, {"SHA3-256", 28}, {"SHA3-384", 48}, {"SHA3-512", 64}};
  for (const auto &[name, length] : lengths) {
    EXPECT_EQ(digest(name, "abc").row.bytes.size(), length) << name;
  }
}

TEST_F(DigestFunction, NameInAnyLetterCaseGivesTheSame) {
  const Row_result lower = digest("sha256", "abc").row;
  EXPECT_EQ(lower.bytes.size(), 32U);
  EXPECT_EQ(lower.bytes, digest("SHA256", "abc").row.bytes);
  EXPECT_EQ(lower.bytes, digest("sHa256", "abc").row.bytes);
  EXPECT_EQ(digest("sha3-512", "abc").row.bytes, digest("SHA3-512", "abc").row.bytes);
}

TEST_F(DigestFunction, Sha3With256IsTheSame28BytesAsSha3With224) {
  const Row_result of_256 = digest("SHA3-256", "x").row;
  EXPECT_EQ(of_256.bytes.size(), 28U);
  EXPECT_EQ(of_256.bytes, digest("SHA3-224", "x").row.bytes);
}

TEST_F(DigestFunction, EmptyTextIsHashed) {
  const Row_result row = digest("SHA256", "").row;
  EXPECT_FALSE(row.is_null);
  EXPECT_EQ(row.bytes, reference_digest("SHA256", ""));
}

TEST_F(DigestFunction, TextWithNulBytesIsHashedWhole) {
  const std::string text("a\0b\0", 4);
  EXPECT_EQ(digest("SHA256", text).row.bytes, reference_digest("SHA256", text));
}

TEST_F(DigestFunction, EmptyUnknownOrDifferentlySpelledNameIsNullWithoutARecord) {
  for (const char *name : {"",           "SHA-256",  "SHA1",
                           "MD5",        "SHA3_512", "SHA3_256",
                           "SHA",        "SHA3",     "SHA2",
                           "SHA25",      "SHA2566",  "SHA256 ",
                           " SHA256",    "SHA3-25",  "SHA3-2566",
                           "SHA512-256", "SHAKE256", "SHA226",
                           "SHA3-225",   "RSA",      "2.16.840.1.101.3.4.2.1"}) {
    EXPECT_THAT(digest(name, "abc"), IsSqlNull()) << name;
  }
  EXPECT_THAT(server.records(), IsEmpty());
  EXPECT_THAT(server.log_calls(), IsEmpty());
}

TEST_F(DigestFunction, NameEndsAtItsFirstNulByte) {
  EXPECT_EQ(digest(std::string("SHA256\0 and more", 16), "abc").row.bytes,
            reference_digest("SHA256", "abc"));
  EXPECT_THAT(digest(std::string("\0SHA256", 7), "abc"), IsSqlNull());
}

// No terminator is added: the byte behind a shorter digest is the longer one's before it.
TEST_F(DigestFunction, OnlyTheDigestsOwnBytesAreWritten) {
  Call_site site(server.function("create_digest"), {"SHA512", "abc"});
  const std::string longer = site.row().bytes;
  const std::string shorter = site.row({"SHA256", "abc"}).bytes;
  EXPECT_EQ(std::string(site.instance().ptr, 64), shorter + longer.substr(32));
}

TEST_F(DigestFunction, BufferThatTheServerDeclaredShorterThanTheDigestGivesNullWithoutARecord) {
  Call_site site(server.function("create_digest"), {"SHA256", "abc"});
  site.instance().max_length = 31;
  EXPECT_THAT(site.row(), IsSqlNull());
  site.instance().max_length = 32;
  EXPECT_EQ(site.row().bytes, reference_digest("SHA256", "abc"));
  EXPECT_THAT(server.records(), IsEmpty());
}

}  // namespace
}  // namespace halvex_test
