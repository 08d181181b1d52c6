// The algorithm names and digest types that the shipped object accepts: all of them are found, and
// each must have a known answer here and a place in the README.

#include <algorithm>
#include <cctype>
#include <map>
#include <set>

#include "support/component_test.h"
#include "support/elf_object.h"
#include "support/hexadecimal.h"
#include "support/reference_implementation.h"

namespace halvex_test {
namespace {

// Every string constant of the shipped object that could be a name, in capital letters, and every
// end of one, because the linker stores a constant that is the end of another only once.
std::set<std::string> possible_names() {
  constexpr std::size_t longest_name = 24;
  std::set<std::string> names;
  for (const std::string &section : constant_sections(component_path())) {
    std::string text;
    for (const char byte : section) {
      if (byte > ' ' && byte <= '~') {
        text += static_cast<char>(std::toupper(byte));
        continue;
      }
      for (std::size_t n = 2; byte == '\0' && n <= std::min(text.size(), longest_name); ++n) {
        names.insert(text.substr(text.size() - n));
      }
      text.clear();
    }
  }
  return names;
}

struct Known_digest {
  std::string library_name;
  std::string of_abc;  // in hexadecimal, from FIPS 180-4 and FIPS 202
};

const std::string sha3_224_of_abc = "e642824c3f8cf24ad09234ee7d3c766fc9a3a5168d0c94ad73b46fdf";

// The digest types, in alphabetical order.
const std::map<std::string, Known_digest> known_digests{
    {"SHA224", {"SHA224", "23097d223405d8228642a477bda255b32aadbce4bda0b3f7e36c9da7"}},
    {"SHA256", {"SHA256", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"}},
    {"SHA3-224", {"SHA3-224", sha3_224_of_abc}},
    {"SHA3-256", {"SHA3-224", sha3_224_of_abc}},  // Intentional: stored digests rely on it.
    {"SHA3-384",
     {"SHA3-384",
      "ec01498288516fc926459f58e2c6ad8df9b473cb0fc08c2596da7cf0e49be4b298d88cea927ac7f539f1edf2"
      "28376d25"}},
    {"SHA3-512",
     {"SHA3-512",
      "b751850b1a57168a5693cd924b6b096e08f621827444f70d884f5d0240d2712e10e116e9192af3c91a7ec576"
      "47e3934057340b4cf408d5a56592f8274eec53f0"}},
    {"SHA384",
     {"SHA384",
      "cb00753f45a35e8bb5a03d699ac65007272c32ab0eded1631a8b605a43ff5bed8086072ba1e7cc2358baeca1"
      "34c825a7"}},
    {"SHA512",
     {"SHA512",
      "ddaf35a193617abacc417349ae20413112e6fa4e89a97ea20a9eeee64b55d39a2192992a274fc1a836ba3c23"
      "a3feebbd454d4423643ce80e2a9ac94fa54ca49f"}},
};

const std::vector<std::string> known_algorithms{"RSA"};

class AcceptedNames : public Component_test {
 protected:
  const std::string readme = project_file("README.md");
  const std::string functions_page = project_file("docs/functions.md");
};

TEST_F(AcceptedNames, EveryDigestTypeHasAKnownAnswer) {
  Call_site digest(server.function("create_digest"), {"SHA256", "abc"});
  std::vector<std::string> accepted;
  for (const std::string &name : possible_names()) {
    const Row_result row = digest.row({name, "abc"});
    if (row.is_null) {
      continue;
    }
    accepted.push_back(name);
    ASSERT_TRUE(known_digests.contains(name)) << name << " has no known answer";
    EXPECT_EQ(to_hex(row.bytes), known_digests.at(name).of_abc) << name;
  }
  std::vector<std::string> expected;
  for (const auto &[name, known] : known_digests) {
    expected.push_back(name);
  }
  EXPECT_EQ(accepted, expected);
}

TEST_F(AcceptedNames, EveryDigestTypeSignsWithThatDigest) {
  const std::string key = fixture("rsa2048.pem");
  const std::string public_key = reference_public_half(key);
  for (const auto &[name, known] : known_digests) {
    const Row_result row = call("asymmetric_sign", {"RSA", "abc", key, name}).row;
    EXPECT_TRUE(reference_verifies_pss(public_key, known.library_name, "abc", row.bytes)) << name;
    EXPECT_EQ(call("asymmetric_verify", {"RSA", "abc", row.bytes, public_key, name}).row.integer, 1)
        << name;
  }
  EXPECT_THAT(server.records(), ::testing::IsEmpty());
}

TEST_F(AcceptedNames, EveryAlgorithmIsKnown) {
  constexpr long long unsupported_algorithm = 13920;
  Call_site encrypt(server.function("asymmetric_encrypt"), {"RSA", "abc", "no key"});
  std::vector<std::string> accepted;
  for (const std::string &name : possible_names()) {
    encrypt.row({name, "abc", "no key"});
    if (server.records().front().code != unsupported_algorithm) {
      accepted.push_back(name);
    }
    server.forget_records();
    server.forget_calls();
  }
  EXPECT_EQ(accepted, known_algorithms);
}

TEST_F(AcceptedNames, EveryAlgorithmServesAllFunctions) {
  for (const std::string &name : known_algorithms) {
    const std::string key = call("create_asymmetric_priv_key", {name, 2048}).row.bytes;
    const std::string public_key = call("create_asymmetric_pub_key", {name, key}).row.bytes;
    const std::string ciphertext = call("asymmetric_encrypt", {name, "abc", public_key}).row.bytes;
    EXPECT_EQ(call("asymmetric_decrypt", {name, ciphertext, key}).row.bytes, "abc") << name;
    const std::string signature = call("asymmetric_sign", {name, "abc", key, "SHA256"}).row.bytes;
    EXPECT_EQ(call("asymmetric_verify", {name, "abc", signature, public_key, "SHA256"}).row.integer,
              1)
        << name;
  }
}

TEST_F(AcceptedNames, DocumentsListThemAll) {
  for (const std::string &name : known_algorithms) {
    EXPECT_NE(readme.find("`'" + name + "'`"), std::string::npos) << name;
  }
  for (const auto &[name, known] : known_digests) {
    EXPECT_NE(readme.find("`" + name + "`"), std::string::npos) << name;
    EXPECT_NE(functions_page.find("`" + name + "`"), std::string::npos) << name;
  }
}

}  // namespace
}  // namespace halvex_test
