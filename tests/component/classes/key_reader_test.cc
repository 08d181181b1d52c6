// Key_reader and rsa::pkcs1_key_reader.

#include <openssl/err.h>
#include <sys/mman.h>

#include <stdexcept>

#include "classes/class_test.h"
#include "halvex_encryption/rsa_implementation.h"

namespace halvex_test {
namespace {

using halvex_encryption::Key_reader;
using halvex_encryption::Pkey_ptr;
using halvex_encryption::Read_function;
using halvex_encryption::rsa::pkcs1_key_reader;
using ::testing::IsEmpty;

class KeyReader : public Class_test {
 protected:
  KeyReader() { ERR_clear_error(); }

  // Reads with the real second reader, and counts how often it is asked.
  Key_reader read(const std::string &pem) {
    return {"a_function", "rsa", pem.data(), pem.size(),
            [this](EVP_PKEY **key, const char *text, std::uint64_t length) {
              ++fallbacks;
              pkcs1_key_reader(key, text, length);
            }};
  }

  int fallbacks = 0;
};

TEST_F(KeyReader, Pkcs8AndTraditionalPrivateKeysAreRead) {
  for (const char *file : {"rsa2048.pem", "rsa2048-traditional.pem"}) {
    const Key_reader reader = read(fixture(file));
    EXPECT_TRUE(reader.is_private) << file;
    ASSERT_NE(reader.key, nullptr) << file;
    EXPECT_EQ(EVP_PKEY_get_bits(reader.key.get()), 2048) << file;
  }
  EXPECT_EQ(fallbacks, 0);
  EXPECT_THAT(server.records(), IsEmpty());
}

TEST_F(KeyReader, KeepsFunctionNameAndUpperCasedAlgorithm) {
  const Key_reader reader = read(fixture("rsa2048-public.pem"));
  EXPECT_EQ(reader.metadata.function_name, "a_function");
  EXPECT_EQ(reader.metadata.algorithm, "RSA");
}

TEST_F(KeyReader, WordsBehindTheBlockCountToo) {
  EXPECT_TRUE(read(fixture("rsa2048-public.pem") + "\nPRIVATE KEY").is_private);
  EXPECT_TRUE(read(std::string("\0 PRIVATE KEY", 13)).is_private);
}

TEST_F(KeyReader, WordsFarBehindTheBlockCountToo) {
  EXPECT_TRUE(read(std::string(1000000, ' ') + "PRIVATE KEY").is_private);
}

TEST_F(KeyReader, LowerCaseOrIncompleteWordsDoNotCountAsPrivate) {
  for (const char *words : {"private key\n", "PRIVATE KE\n", "PRIVATE  KEY\n", "Private Key\n"}) {
    const Key_reader reader = read(words + fixture("rsa2048-public.pem"));
    EXPECT_FALSE(reader.is_private) << words;
    EXPECT_NE(reader.key, nullptr) << words;
  }
}

TEST_F(KeyReader, WordsBehindTheGivenLengthDoNotCount) {
  const std::string text = "PRIVATE KEY";
  EXPECT_FALSE(Key_reader("f", "RSA", text.data(), 10, pkcs1_key_reader).is_private);
}

TEST_F(KeyReader, TextWithoutATerminatorIsRead) {
  const std::string pem = fixture("rsa2048.pem");
  const auto exact = std::make_unique<char[]>(pem.size());
  pem.copy(exact.get(), pem.size());
  EXPECT_NE(Key_reader("f", "RSA", exact.get(), pem.size(), pkcs1_key_reader).key, nullptr);
}

TEST_F(KeyReader, LeavesFurtherErrorsInTheQueue) {
  ERR_raise(ERR_LIB_USER, 1);
  read("");
  EXPECT_NE(ERR_peek_error(), 0U);
  ERR_clear_error();
}

TEST_F(KeyReader, TakesWhateverTheFallbackStores) {
  const std::string stored = fixture("rsa3072-public.pem");
  const std::string text("no key\0 but bytes", 17);
  const char *seen_text = nullptr;
  std::uint64_t seen_length = 0;
  const auto fallback = [&](EVP_PKEY **key, const char *pem, std::uint64_t length) {
    seen_text = pem;
    seen_length = length;
    pkcs1_key_reader(key, stored.data(), stored.size());
  };
  const Key_reader reader("f", "RSA", text.data(), text.size(), fallback);
  EXPECT_EQ(seen_text, text.data());
  EXPECT_EQ(seen_length, text.size());
  ASSERT_NE(reader.key, nullptr);
  EXPECT_EQ(EVP_PKEY_get_bits(reader.key.get()), 3072);
  EXPECT_THAT(server.records(), IsEmpty());
}

// Reads this many zero bytes; they take memory only where the component copies them.
TEST_F(KeyReader, FallbackGetsALengthBeyond31Bits) {
  constexpr std::uint64_t length = (1ULL << 31) + 10;
  void *const text =
      mmap(nullptr, length, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  ASSERT_NE(text, MAP_FAILED);
  std::uint64_t seen_length = 0;
  const Key_reader reader(
      "f", "RSA", static_cast<const char *>(text), length,
      [&](EVP_PKEY ** /*key*/, const char * /*pem*/, std::uint64_t given) { seen_length = given; });
  EXPECT_EQ(munmap(text, length), 0);
  EXPECT_EQ(seen_length, length);
}

TEST(MemoryStream, NarrowsTheLengthToAnInt) {
  const char *text = "text\0 and more";
  const auto stream_size = [&](std::uint64_t length) {
    return BIO_pending(halvex_encryption::memory_stream(text, length).get());
  };
  EXPECT_EQ(stream_size(14), 14);
  EXPECT_EQ(stream_size((1ULL << 32) + 14), 14);
  EXPECT_EQ(stream_size(1ULL << 32), 0);
}

TEST_F(KeyReader, NullTextOfSomeLengthIsALogicError) {
  EXPECT_THROW(Key_reader("f", "RSA", nullptr, 1, pkcs1_key_reader), std::logic_error);
}

TEST_F(KeyReader, EmptyFallbackThatIsNeededIsAnError) {
  const Read_function none;
  EXPECT_THROW(Key_reader("f", "RSA", "no key", 6, none), std::bad_function_call);
  const std::string pem = fixture("rsa2048-public.pem");
  EXPECT_NE(Key_reader("f", "RSA", pem.data(), pem.size(), none).key, nullptr);
}

// --- the fallback alone

class Pkcs1KeyReader : public Class_test {
 protected:
  static Pkey_ptr read(const std::string &pem) {
    EVP_PKEY *key = reinterpret_cast<EVP_PKEY *>(1);  // must be overwritten
    pkcs1_key_reader(&key, pem.data(), pem.size());
    return Pkey_ptr{key};
  }
};

TEST_F(Pkcs1KeyReader, ReadsAnRsaPublicKey) {
  EXPECT_NE(read(fixture("rsa2048-public.pem")), nullptr);
}

TEST_F(Pkcs1KeyReader, StoresNullForKeysThatAreNotRsa) {
  for (const char *file : {"ec-p256-public.pem", "dsa2048-public.pem", "ed25519-public.pem",
                           "rsa-pss2048-public.pem"}) {
    EXPECT_EQ(read(fixture(file)), nullptr) << file;
  }
}

TEST_F(Pkcs1KeyReader, StoresNullForUnreadableTextsWithoutARecord) {
  EXPECT_EQ(read(""), nullptr);
  EXPECT_EQ(read("no key"), nullptr);
  EXPECT_EQ(read(fixture("rsa2048.pem")), nullptr);
  EXPECT_THAT(server.records(), IsEmpty());
}

}  // namespace
}  // namespace halvex_test
