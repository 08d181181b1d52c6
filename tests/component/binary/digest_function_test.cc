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

TEST_F(DigestFunction, LongTextAndNulBytesAreHashedWhole) {
  for (const std::string &text : {std::string("a\0b\0", 4), std::string(100000, 'x')}) {
    EXPECT_EQ(digest("SHA256", text).row.bytes, reference_digest("SHA256", text));
  }
}

TEST_F(DigestFunction, EmptyUnknownOrDifferentlySpelledNameIsNullWithoutARecord) {
  for (const char *name : {"",           "SHA-256",    "SHA1",
                           "MD5",        "SHA3_512",   "SHA3_256",
                           "SHA",        "SHA3",       "SHA2",
                           "SHA25",      "SHA2566",    "SHA256 ",
                           " SHA256",    "SHA3-25",    "SHA3-2566",
                           "SHA512-256", "SHA512/256", "SHA512-224",
                           "SHA512/224", "SHAKE128",   "SHAKE256",
                           "SHA226",     "SHA3-225",   "SHA-1",
                           "SHA-224",    "SHA2-256",   "BLAKE2B512",
                           "BLAKE2S256", "RIPEMD160",  "SM3",
                           "RSA",        "NULL",       "2.16.840.1.101.3.4.2.1"}) {
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
