#include "conformance/expectations.h"

#include <openssl/err.h>
#include <openssl/rsa.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <map>

#include "dovrin_host/row_context.h"
#include "dovrin_host/server.h"
#include "support/function_names.h"
#include "support/host_rows.h"
#include "support/reference_implementation.h"
#include "support/temporary_folder.h"

namespace halvex_test {

namespace {

// Empties the library's error queue before and after an expectation is worked out.
class Own_errors {
 public:
  Own_errors() { ERR_clear_error(); }
  ~Own_errors() { ERR_clear_error(); }
  Own_errors(const Own_errors &) = delete;
  Own_errors &operator=(const Own_errors &) = delete;
};

std::string upper_cased(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](char byte) {
    return static_cast<char>(std::toupper(static_cast<unsigned char>(byte)));
  });
  return text;
}

// The words decide, wherever they stand.
bool counts_as_private(const std::string &pem) {
  return pem.find("PRIVATE KEY") != std::string::npos;
}

Record library_record(const char *function) {
  return openssl_record(function, "RSA", oldest_error());
}

// Reads a key argument as every function but the two that create keys does; an unreadable one is
// reported once, and public text is read twice before that.
Key key_argument(const std::string &pem, const char *function, std::vector<Record> &records) {
  Key key;
  if (counts_as_private(pem)) {
    key = read_private_pem(pem);
  } else {
    key = read_public_pem(pem);
    if (key == nullptr) {
      key = read_public_pem(pem);
    }
  }
  if (key == nullptr) {
    records.push_back(library_record(function));
  }
  return key;
}

// The longest text that is let through to the operation, compared as an unsigned number: a public
// key of fewer than 42 bytes lets everything through.
bool length_is_supported(EVP_PKEY *key, const std::string &pem, const std::string &text,
                         const char *function, std::vector<Record> &records) {
  const int limit = EVP_PKEY_get_size(key) - (counts_as_private(pem) ? 0 : 42);
  if (static_cast<unsigned long long>(limit) >= text.size()) {
    return true;
  }
  records.push_back(data_too_long(function, text.size(), limit));
  return false;
}

void succeed(Expectation &expectation, std::optional<std::string> bytes = std::nullopt) {
  expectation.is_null = false;
  expectation.bytes = std::move(bytes);
}

// The value is a random one of this length.
void succeed_with_length(Expectation &expectation, std::size_t length) {
  expectation.is_null = false;
  expectation.length = length;
}

// One decryption attempt with one padding.
bool attempt_decryption(const std::string &text, const std::string &pem, int padding,
                        Expectation &expectation) {
  const Key key = key_argument(pem, decrypt, expectation.records);
  if (key == nullptr || !length_is_supported(key.get(), pem, text, decrypt, expectation.records)) {
    return false;
  }
  if (!text.empty() && counts_as_private(pem)) {
    if (auto plain = decrypted(key.get(), padding, text)) {
      succeed(expectation, std::move(plain));
      return true;
    }
    expectation.records.push_back(library_record(decrypt));
  }
  expectation.records.push_back(decryption_failed(text.size()));
  return false;
}

bool attempt_pss(const std::string &text, const std::string &signature, const std::string &pem,
                 const std::string &digest_name, std::vector<Record> &records) {
  const Key key = key_argument(pem, verify, records);
  const EVP_MD *digest = documented_digest(digest_name);
  if (key == nullptr || text.empty() || counts_as_private(pem) || digest == nullptr) {
    return false;
  }
  if (verifies_as_pss(key.get(), digest, text, signature)) {
    return true;
  }
  records.push_back(library_record(verify));
  return false;
}

// The text is taken as the digest's value, only the four SHA-2 names count, and a signature that
// does not match is accepted as long as the library answers 0 and not less.
bool attempt_legacy(const std::string &text, const std::string &signature, const std::string &pem,
                    const std::string &digest_name, std::vector<Record> &records) {
  const Key key = key_argument(pem, verify, records);
  const std::string name = upper_cased(digest_name);
  if (key == nullptr || text.empty() || counts_as_private(pem) || name.starts_with("SHA3-") ||
      documented_digest(name) == nullptr) {
    return false;
  }
  return raw_verify_result(key.get(), documented_digest(name), text, signature) >= 0;
}

// Installs a copy of the component into the stand-in server, once. One object serves one server,
// and the recording server has the original.
void install_in_host() {
  static const bool installed = [] {
    const Temporary_folder folder;
    const std::string copy = folder / std::filesystem::path(component_path()).filename();
    std::filesystem::copy_file(component_path(), copy);
    return dovrin_host::Server::instance().install(copy).ok();
  }();
  ASSERT_TRUE(installed);
}

void expect_alike_in_both_contexts(const std::string &function,
                                   const std::vector<Argument> &arguments) {
  install_in_host();
  std::vector<dovrin_host::Argument> strings;
  for (const Argument &argument : arguments) {
    strings.push_back(dovrin_host::Argument::string(argument.value.value()));
  }
  const Both_rows rows = run_in_both_contexts(function, strings);
  EXPECT_TRUE(rows.alike) << rows;
}

}  // namespace

const EVP_MD *documented_digest(const std::string &name) {
  static const std::map<std::string, const EVP_MD *> digests = {
      {"SHA224", EVP_sha224()},     {"SHA256", EVP_sha256()},     {"SHA384", EVP_sha384()},
      {"SHA512", EVP_sha512()},     {"SHA3-224", EVP_sha3_224()}, {"SHA3-256", EVP_sha3_224()},
      {"SHA3-384", EVP_sha3_384()}, {"SHA3-512", EVP_sha3_512()}};
  const auto found = digests.find(upper_cased(name));
  return found == digests.end() ? nullptr : found->second;
}

Expectation expected_public_key(const std::string &private_pem) {
  const Own_errors own;
  Expectation expectation;
  // Any private key that the library reads gives its public key, of whatever kind.
  const Key key = read_private_pem(private_pem);
  if (auto pem = key == nullptr ? std::nullopt : public_pem(key.get())) {
    succeed(expectation, std::move(pem));
    return expectation;
  }
  expectation.records.push_back(library_record(derive));
  expectation.records.push_back(public_key_failed());
  return expectation;
}

Expectation expected_encryption(const std::string &text, const std::string &pem) {
  const Own_errors own;
  Expectation expectation;
  const Key key = key_argument(pem, encrypt, expectation.records);
  if (key == nullptr || !length_is_supported(key.get(), pem, text, encrypt, expectation.records)) {
    return expectation;
  }
  if (!text.empty() && !counts_as_private(pem)) {
    if (const auto cipher = encrypted(key.get(), RSA_PKCS1_OAEP_PADDING, text)) {
      succeed_with_length(expectation, cipher->size());
      return expectation;
    }
    expectation.records.push_back(library_record(encrypt));
  }
  expectation.records.push_back(encryption_failed(text.size()));
  return expectation;
}

Expectation expected_decryption(const std::string &text, const std::string &pem, bool legacy) {
  const Own_errors own;
  Expectation expectation;
  if (!attempt_decryption(text, pem, RSA_PKCS1_OAEP_PADDING, expectation) && legacy) {
    attempt_decryption(text, pem, RSA_PKCS1_PADDING, expectation);
  }
  return expectation;
}

Expectation expected_signature(const std::string &text, const std::string &pem,
                               const std::string &digest_name) {
  const Own_errors own;
  Expectation expectation;
  const Key key = key_argument(pem, sign, expectation.records);
  const EVP_MD *digest = documented_digest(digest_name);
  if (key != nullptr && !text.empty() && counts_as_private(pem) && digest != nullptr) {
    if (const auto signature = signed_with_pss(key.get(), digest, text)) {
      // Only RSA signatures have one length.
      if (EVP_PKEY_is_a(key.get(), "RSA") == 1 || EVP_PKEY_is_a(key.get(), "RSA-PSS") == 1) {
        succeed_with_length(expectation, signature->size());
      } else {
        succeed(expectation);
      }
      return expectation;
    }
    expectation.records.push_back(library_record(sign));
  }
  expectation.records.push_back(signing_failed(upper_cased(digest_name)));
  return expectation;
}

Expectation expected_verification(const std::string &text, const std::string &signature,
                                  const std::string &pem, const std::string &digest_name,
                                  bool legacy) {
  const Own_errors own;
  Expectation expectation;
  if (attempt_pss(text, signature, pem, digest_name, expectation.records) ||
      (legacy && attempt_legacy(text, signature, pem, digest_name, expectation.records))) {
    succeed(expectation);
  }
  return expectation;
}

void Conformance_test::set_legacy_padding(bool on) {
  legacy_ = on;
  install_in_host();
  set_host_legacy_padding(on);
  switch_legacy_padding(on);
}

Call_result Conformance_test::call_everywhere(const std::string &function,
                                              const std::vector<Argument> &arguments) {
  if (dovrin_host::describe_function(function).has(dovrin_host::Argument_kind::key)) {
    expect_alike_in_both_contexts(function, arguments);
  }
  return call(function, arguments);
}

Row_result Conformance_test::expect(const Expectation &expectation, const std::string &function,
                                    const std::vector<Argument> &arguments) {
  const Call_result result = call_everywhere(function, arguments);
  EXPECT_EQ(result.rejection, std::nullopt);
  EXPECT_EQ(result.row.is_null, expectation.is_null);
  EXPECT_FALSE(result.row.error);
  EXPECT_EQ(result.row.integer, function == verify && !expectation.is_null ? 1 : 0);
  if (expectation.bytes) {
    EXPECT_EQ(result.row.bytes, *expectation.bytes);
  }
  if (expectation.length) {
    EXPECT_EQ(result.row.bytes.size(), *expectation.length);
  }
  EXPECT_EQ(server.records(), expectation.records);
  EXPECT_EQ(ERR_peek_error(), 0U);
  server.forget_records();
  return result.row;
}

std::string Conformance_test::value_of(const std::string &function,
                                       const std::vector<Argument> &arguments) {
  const Call_result result = call_everywhere(function, arguments);
  EXPECT_EQ(result.rejection, std::nullopt);
  EXPECT_FALSE(result.row.is_null);
  EXPECT_EQ(server.records(), std::vector<Record>());
  server.forget_records();
  return result.row.bytes;
}

void Conformance_test::expect_null(const std::vector<Record> &records, const std::string &function,
                                   const std::vector<Argument> &arguments) {
  Expectation expectation;
  expectation.records = records;
  expect(expectation, function, arguments);
}

Row_result Conformance_test::check_encryption(const std::string &text, const std::string &pem) {
  return expect(expected_encryption(text, pem), encrypt, {"RSA", text, pem});
}

Row_result Conformance_test::check_decryption(const std::string &text, const std::string &pem) {
  return expect(expected_decryption(text, pem, legacy_), decrypt, {"RSA", text, pem});
}

Row_result Conformance_test::check_signature(const std::string &text, const std::string &pem,
                                             const std::string &digest_name) {
  return expect(expected_signature(text, pem, digest_name), sign, {"RSA", text, pem, digest_name});
}

Row_result Conformance_test::check_verification(const std::string &text,
                                                const std::string &signature,
                                                const std::string &pem,
                                                const std::string &digest_name) {
  return expect(expected_verification(text, signature, pem, digest_name, legacy_), verify,
                {"RSA", text, signature, pem, digest_name});
}

}  // namespace halvex_test
