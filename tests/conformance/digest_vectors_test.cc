// create_digest against the published SHA-2 and SHA-3 messages.

#include <algorithm>
#include <cctype>
#include <ostream>

#include "conformance/expectations.h"
#include "conformance/vector_files.h"
#include "support/hexadecimal.h"
#include "support/reference_implementation.h"

namespace halvex_test {
namespace {

struct Message_file {
  const char *digest_name;  // as the SQL user writes it
  const char *path;
};

// How GoogleTest shows it.
void PrintTo(const Message_file &file, std::ostream *out) { *out << file.path; }

// A message of "Len" bits; the file writes the empty one as a zero byte.
std::string message_of_vector(const Vector &vector) {
  return from_hex(vector.at("Msg")).substr(0, std::stoul(vector.at("Len")) / 8);
}

class DigestVectors : public Conformance_test,
                      public ::testing::WithParamInterface<Message_file> {};

// Expected: the digest in the file. For "SHA3-256" the SHA3-224 digest of the same message, which
// is worked out by the library: the component intentionally never uses SHA3-256. The file's own
// digest is held against the library's, so that a message read wrongly is noticed there too.
TEST_P(DigestVectors, EveryMessageHasItsDigest) {
  const auto [name, path] = GetParam();
  const std::vector<Vector> vectors = read_response_file(path, "MD");
  EXPECT_EQ(vectors.size(), lines_beginning_with(path, "MD = "));
  for (const Vector &vector : vectors) {
    const std::string message = message_of_vector(vector);
    const std::string published = from_hex(vector.at("MD"));
    ASSERT_EQ(digest_of(library_digest(name), message), published);
    const std::string expected =
        std::string(name) == "SHA3-256" ? digest_of(EVP_sha3_224(), message) : published;
    ASSERT_EQ(to_hex(value_of("create_digest", {name, message})), to_hex(expected))
        << "message of " << vector.at("Len") << " bits";
  }
  RecordProperty("vectors", static_cast<int>(vectors.size()));
}

INSTANTIATE_TEST_SUITE_P(
    Published, DigestVectors,
    ::testing::Values(Message_file{"SHA224", "hashes/SHA2/SHA224ShortMsg.rsp"},
                      Message_file{"SHA224", "hashes/SHA2/SHA224LongMsg.rsp"},
                      Message_file{"SHA256", "hashes/SHA2/SHA256ShortMsg.rsp"},
                      Message_file{"SHA256", "hashes/SHA2/SHA256LongMsg.rsp"},
                      Message_file{"SHA384", "hashes/SHA2/SHA384ShortMsg.rsp"},
                      Message_file{"SHA384", "hashes/SHA2/SHA384LongMsg.rsp"},
                      Message_file{"SHA512", "hashes/SHA2/SHA512ShortMsg.rsp"},
                      Message_file{"SHA512", "hashes/SHA2/SHA512LongMsg.rsp"},
                      Message_file{"SHA3-224", "hashes/SHA3/SHA3_224ShortMsg.rsp"},
                      Message_file{"SHA3-224", "hashes/SHA3/SHA3_224LongMsg.rsp"},
                      Message_file{"SHA3-256", "hashes/SHA3/SHA3_256ShortMsg.rsp"},
                      Message_file{"SHA3-256", "hashes/SHA3/SHA3_256LongMsg.rsp"},
                      Message_file{"SHA3-384", "hashes/SHA3/SHA3_384ShortMsg.rsp"},
                      Message_file{"SHA3-384", "hashes/SHA3/SHA3_384LongMsg.rsp"},
                      Message_file{"SHA3-512", "hashes/SHA3/SHA3_512ShortMsg.rsp"},
                      Message_file{"SHA3-512", "hashes/SHA3/SHA3_512LongMsg.rsp"}),
    [](const auto &parameter) {
      std::string name = std::filesystem::path(parameter.param.path).stem().string();
      name.erase(std::remove(name.begin(), name.end(), '_'), name.end());
      return name;
    });

class DigestChain : public Conformance_test, public ::testing::WithParamInterface<Message_file> {};

// The chain of the Monte files: every digest is the next message. Of SHA-2, each link hashes the
// last three digests together; of SHA-3, the last one. Expected: the file's checkpoints. "SHA3-256"
// is left out, since its chain is that of another digest.
TEST_P(DigestChain, EveryCheckpointIsReached) {
  const auto [name, path] = GetParam();
  const std::vector<Vector> checkpoints = read_response_file(path, "MD");
  const bool of_three = std::string(name).find('-') == std::string::npos;
  std::string seed = from_hex(checkpoints.front().at("Seed"));
  for (std::size_t checkpoint = 0; checkpoint < 3; ++checkpoint) {
    std::string third = seed;
    std::string second = seed;
    std::string last = seed;
    for (int link = 0; link < 1000; ++link) {
      std::string message = last;
      if (of_three) {
        message.insert(0, second).insert(0, third);
      }
      std::string next = value_of("create_digest", {name, message});
      third = std::exchange(second, std::exchange(last, std::move(next)));
    }
    ASSERT_EQ(to_hex(last), checkpoints.at(checkpoint).at("MD"));
    seed = last;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Published, DigestChain,
    ::testing::Values(Message_file{"SHA224", "hashes/SHA2/SHA224Monte.rsp"},
                      Message_file{"SHA256", "hashes/SHA2/SHA256Monte.rsp"},
                      Message_file{"SHA384", "hashes/SHA2/SHA384Monte.rsp"},
                      Message_file{"SHA512", "hashes/SHA2/SHA512Monte.rsp"},
                      Message_file{"SHA3-224", "hashes/SHA3/SHA3_224Monte.rsp"},
                      Message_file{"SHA3-384", "hashes/SHA3/SHA3_384Monte.rsp"},
                      Message_file{"SHA3-512", "hashes/SHA3/SHA3_512Monte.rsp"}),
    [](const auto &parameter) {
      std::string name = std::filesystem::path(parameter.param.path).stem().string();
      name.erase(std::remove(name.begin(), name.end(), '_'), name.end());
      return name;
    });

struct DigestNames : Conformance_test {};

// Expected: the same digest, whatever the letter case of the name.
TEST_F(DigestNames, AreAcceptedInEveryLetterCase) {
  for (const char *name :
       {"SHA224", "SHA256", "SHA384", "SHA512", "SHA3-224", "SHA3-256", "SHA3-384", "SHA3-512"}) {
    std::string spelling = name;
    for (std::size_t place = 0; place < 3; ++place) {
      spelling[place] = static_cast<char>(std::tolower(spelling[place]));
      EXPECT_EQ(value_of("create_digest", {spelling, "abc"}),
                digest_of(documented_digest(name), "abc"));
    }
  }
}

}  // namespace
}  // namespace halvex_test
