// The published key files of every kind, in every function that takes a key.
//
// Expected: what the library's own reader makes of the text, private or public as the words
// "PRIVATE KEY" in it decide, and what the library then answers, under the rules of the component:
// one record for each failure at the place that notices it.

#include <algorithm>

#include "conformance/expectations.h"
#include "conformance/vector_files.h"
#include "support/reference_implementation.h"

namespace halvex_test {
namespace {

std::string file_text(const std::filesystem::path &path) {
  return vector_file(std::filesystem::relative(path, vectors_folder()));
}

// Every file below the folder with a PEM block in it, in one order.
std::vector<std::filesystem::path> pem_files(const std::string &folder) {
  std::vector<std::filesystem::path> paths;
  for (const auto &entry :
       std::filesystem::recursive_directory_iterator(vectors_folder() / "asymmetric" / folder)) {
    if (entry.is_regular_file() &&
        file_text(entry.path()).find("-----BEGIN ") != std::string::npos) {
      paths.push_back(entry.path());
    }
  }
  std::sort(paths.begin(), paths.end());
  return paths;
}

class KeyFiles : public Conformance_test, public ::testing::WithParamInterface<const char *> {
 protected:
  // Holds every function against the library for one key text.
  void check_once_in_every_function(const std::string &pem) {
    expect(expected_public_key(pem), "create_asymmetric_pub_key", {"RSA", pem});
    set_legacy_padding(true);
    check_encryption("x", pem);
    check_decryption(std::string(256, 'x'), pem);
    check_verification("text", "no signature", pem, "SHA256");
    check_signature("text", pem, "SHA256");
  }

  // The same with texts of several lengths, and both ways of the legacy switch.
  void check_in_every_function(const std::string &pem) {
    expect(expected_public_key(pem), "create_asymmetric_pub_key", {"RSA", pem});
    check_encryption("x", pem);
    check_encryption(std::string(600, 'x'), pem);
    for (const bool legacy : {false, true}) {
      set_legacy_padding(legacy);
      check_decryption("x", pem);
      check_decryption(std::string(256, 'x'), pem);
      check_decryption(std::string(2000, 'x'), pem);
      check_verification("text", "no signature", pem, "SHA256");
      check_verification("text", "no signature", pem, "SHA3-256");
      check_verification(std::string(32, 'x'), std::string(256, 'x'), pem, "sha256");
    }
    check_signature("text", pem, "SHA256");
  }

  // Signs, and verifies with the public key that belongs to it: by the library and by the
  // component.
  void check_what_it_signs(const std::string &pem) {
    for (const char *digest_name : {"SHA224", "SHA3-256", "SHA3-512"}) {
      const Row_result signature = check_signature("text", pem, digest_name);
      if (signature.is_null) {
        continue;
      }
      const Key key = read_private_pem(pem);
      EXPECT_TRUE(
          verifies_as_pss(key.get(), documented_digest(digest_name), "text", signature.bytes));
      const auto belonging = public_pem(key.get());
      ASSERT_TRUE(belonging.has_value());
      set_legacy_padding(false);
      EXPECT_FALSE(check_verification("text", signature.bytes, *belonging, digest_name).is_null);
      EXPECT_TRUE(check_verification("other", signature.bytes, *belonging, digest_name).is_null);
    }
  }
};

TEST_P(KeyFiles, DoInEveryFunctionWhatTheLibraryDoes) {
  const auto paths = pem_files(GetParam());
  ASSERT_FALSE(paths.empty());
  for (const auto &path : paths) {
    SCOPED_TRACE(path.string());
    check_in_every_function(file_text(path));
    check_what_it_signs(file_text(path));
  }
  RecordProperty("files", static_cast<int>(paths.size()));
}

// The same with the texts damaged: truncated in the middle, a character of the body exchanged, the
// label misspelt.
TEST_P(KeyFiles, DoInEveryFunctionWhatTheLibraryDoesWhenDamaged) {
  for (const auto &path : pem_files(GetParam())) {
    SCOPED_TRACE(path.string());
    const std::string pem = file_text(path);
    const auto middle = pem.size() / 2;
    std::string changed = pem;
    changed[middle] = changed[middle] == 'A' ? 'B' : 'A';
    std::string mislabelled = pem;
    mislabelled.replace(pem.find("BEGIN"), 5, "BEGUN");
    for (const std::string &damaged : {pem.substr(0, middle), changed, mislabelled}) {
      check_once_in_every_function(damaged);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Published, KeyFiles,
                         ::testing::Values("PEM_Serialization", "PKCS8",
                                           "Traditional_OpenSSL_Serialization", "public", "Ed25519",
                                           "Ed448", "X25519", "X448", "OpenSSH", "DH"),
                         [](const auto &parameter) {
                           std::string name = parameter.param;
                           name.erase(std::remove(name.begin(), name.end(), '_'), name.end());
                           return name;
                         });

}  // namespace
}  // namespace halvex_test
