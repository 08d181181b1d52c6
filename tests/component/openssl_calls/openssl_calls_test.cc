// Which OpenSSL calls the shipped component makes, in which order, and what it frees.

#include <memory>
#include <new>

#include "openssl_calls/openssl_recorder.h"
#include "sql_functions.h"
#include "support/component_test.h"
#include "support/elf_object.h"
#include "support/reference_implementation.h"
#include "support/sanitizers.h"

namespace halvex_test {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

using Calls = std::vector<std::string>;

Calls operator+(Calls first, const Calls &second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

std::string size_of(const std::string &text) { return std::to_string(text.size()); }

class OpensslCalls : public Component_test {
 protected:
  // The calls of one row, which must leave nothing unfreed.
  Calls calls_of(const std::string &function, const std::vector<Argument> &arguments) {
    Call_site site(server.function(function), arguments);
    const Openssl_recorder recorder;
    last_row = site.row();
    EXPECT_THAT(recorder.unfreed(), IsEmpty());
    return recorder.calls();
  }

  const std::string private_key = fixture("rsa2048.pem");
  const std::string public_key = fixture("rsa2048-public.pem");
  Row_result last_row;
};

// Reading the key of an encryption, decryption or signature, as the `number`th key of the row.
Calls reading_of_private_key(const std::string &pem, const std::string &number = "1") {
  return {"OPENSSL_cleanse data " + size_of(pem),
          "BIO_new_mem_buf data " + size_of(pem) + " -> bio" + number,
          "PEM_read_bio_PrivateKey bio" + number + " null null null -> key" + number,
          "BIO_free bio" + number};
}

Calls reading_of_public_key(const std::string &pem, const std::string &number = "1") {
  return {"OPENSSL_cleanse data " + size_of(pem),
          "BIO_new_mem_buf data " + size_of(pem) + " -> bio" + number,
          "PEM_read_bio_PUBKEY bio" + number + " null null null -> key" + number,
          "BIO_free bio" + number};
}

TEST(OpensslImports, AreAllRecorded) {
  Calls unrecorded;
  for (const Elf_symbol &symbol : dynamic_symbols(component_path())) {
    const bool is_openssl = symbol.name.starts_with("EVP_") || symbol.name.starts_with("BIO_") ||
                            symbol.name.starts_with("PEM_") || symbol.name.starts_with("ERR_") ||
                            symbol.name.starts_with("RSA_") || symbol.name.starts_with("CRYPTO_") ||
                            symbol.name.starts_with("OPENSSL_") || symbol.name.starts_with("UI_");
    if (!symbol.is_defined && is_openssl && !recorded_functions().contains(symbol.name)) {
      unrecorded.push_back(symbol.name);
    }
  }
  EXPECT_THAT(unrecorded, IsEmpty());
}

TEST(OpensslImports, DoNotHoldTheDigestThatIsNeverAskedFor) {
  for (const Elf_symbol &symbol : dynamic_symbols(component_path())) {
    EXPECT_NE(symbol.name, "EVP_sha3_256");
  }
}

// Unloading runs the destructors in the reverse order of their registrations.
TEST(LoadingCalls, BothListsComeFirstThenTheLegacyDigestsThenTheDigestBufferSize) {
  const Recording_server server;
  const Openssl_recorder recorder;
  const Loaded_component component;
  EXPECT_THAT(
      recorder.calls(),
      ElementsAre("__cxa_atexit", "__cxa_atexit", "EVP_sha224 -> SHA224", "EVP_sha256 -> SHA256",
                  "EVP_sha384 -> SHA384", "EVP_sha512 -> SHA512", "__cxa_atexit",
                  "EVP_sha3_512 -> SHA3-512", "EVP_MD_get_size SHA3-512 -> 64"));
}

TEST(LoadingCalls, InitAndDeinitMakeNone) {
  const Recording_server server;
  Loaded_component component;
  const Openssl_recorder recorder;
  EXPECT_EQ(component.init(), 0);
  EXPECT_EQ(component.deinit(), 0);
  EXPECT_THAT(recorder.calls(), IsEmpty());
}

TEST(LoadingCalls, TheDigestBufferIsAsLargeAsOpensslReportsAtLoad) {
  const Recording_server server;
  Openssl_recorder recorder(Forced_failure{"EVP_MD_get_size", 1, 48});
  Loaded_component component;
  ASSERT_EQ(component.init(), 0);
  ASSERT_TRUE(recorder.failed());
  {
    Call_site site(server.function("create_digest"), {"SHA384", "abc"});
    EXPECT_EQ(site.instance().max_length, 48U);
    EXPECT_FALSE(site.row().is_null);
    EXPECT_THAT(site.row({"SHA512", "abc"}), IsSqlNull());
    EXPECT_THAT(server.records(), IsEmpty());
  }
  drain_error_queue();
}

TEST(LoadingCalls, DigestBufferOfANegativeSizeIsAnExceptionOfInit) {
  if (under_address_sanitizer) {
    GTEST_SKIP() << "the sanitizer ends the process instead of throwing";
  }
  const Recording_server server;
  Openssl_recorder recorder(Forced_failure{"EVP_MD_get_size", 1, -1});
  Loaded_component component;
  ASSERT_EQ(component.init(), 0);
  ASSERT_TRUE(recorder.failed());
  EXPECT_THROW(Call_site(server.function("create_digest"), {"SHA256", "abc"}), std::bad_alloc);
  drain_error_queue();
}

// --- digests

TEST_F(OpensslCalls, DigestMakesOneContextAndLeavesTheQueueAlone) {
  EXPECT_THAT(
      calls_of("create_digest", {"sha256", "abc"}),
      ElementsAre("EVP_sha256 -> SHA256", "EVP_MD_get_size SHA256 -> 32",
                  "EVP_MD_CTX_new -> digest_ctx1", "EVP_DigestInit digest_ctx1 SHA256 -> 1",
                  "EVP_DigestUpdate digest_ctx1 data 3 -> 1",
                  "EVP_DigestFinal digest_ctx1 data data -> 1", "EVP_MD_CTX_free digest_ctx1"));
}

TEST_F(OpensslCalls, EveryDigestNameAsksForItsOwnDigestAndSha3With256ForTheShorterOne) {
  const std::vector<std::pair<std::string, std::string>> getters{
      {"SHA224", "EVP_sha224 -> SHA224"},       {"SHA256", "EVP_sha256 -> SHA256"},
      {"SHA384", "EVP_sha384 -> SHA384"},       {"SHA512", "EVP_sha512 -> SHA512"},
      {"SHA3-224", "EVP_sha3_224 -> SHA3-224"}, {"SHA3-256", "EVP_sha3_224 -> SHA3-224"},
      {"SHA3-384", "EVP_sha3_384 -> SHA3-384"}, {"SHA3-512", "EVP_sha3_512 -> SHA3-512"}};
  for (const auto &[name, getter] : getters) {
    const Calls calls = calls_of("create_digest", {name, "abc"});
    ASSERT_EQ(calls.size(), 7U) << name;
    EXPECT_EQ(calls[0], getter) << name;
    EXPECT_EQ(calls[2], "EVP_MD_CTX_new -> digest_ctx1") << name;
  }
}

// --- key creation

TEST_F(OpensslCalls, PrivateKeyIsGeneratedThenWrittenWithoutEncryption) {
  const Calls calls = calls_of("create_asymmetric_priv_key", {"RSA", 2048});
  const std::string size = size_of(last_row.bytes);
  EXPECT_THAT(
      calls,
      ElementsAre("EVP_PKEY_CTX_new_id 6 null -> key_ctx1", "EVP_PKEY_keygen_init key_ctx1 -> 1",
                  "EVP_PKEY_CTX_set_rsa_keygen_bits key_ctx1 2048 -> 1",
                  "EVP_PKEY_keygen key_ctx1 data -> 1 key1", "EVP_PKEY_CTX_free key_ctx1",
                  "BIO_s_mem -> data", "BIO_new data -> bio1",
                  "PEM_write_bio_PrivateKey bio1 key1 null null 0 null null -> 1",
                  "BIO_ctrl bio1 3 0 null -> " + size, "BIO_read bio1 data " + size + " -> " + size,
                  "BIO_free bio1", "EVP_PKEY_free key1", "ERR_clear_error"));
}

TEST_F(OpensslCalls, RejectedKeyLengthOnlyClearsTheQueue) {
  EXPECT_THAT(calls_of("create_asymmetric_priv_key", {"RSA", 1024}),
              ElementsAre("ERR_clear_error"));
}

TEST_F(OpensslCalls, PublicKeyIsWrittenFromTheKeyThatWasRead) {
  const Calls calls = calls_of("create_asymmetric_pub_key", {"RSA", private_key});
  const std::string size = size_of(last_row.bytes);
  EXPECT_THAT(
      calls, ElementsAre("BIO_new_mem_buf data " + size_of(private_key) + " -> bio1",
                         "PEM_read_bio_PrivateKey bio1 null null null -> key1", "BIO_free bio1",
                         "BIO_s_mem -> data", "BIO_new data -> bio2",
                         "PEM_write_bio_PUBKEY bio2 key1 -> 1", "BIO_ctrl bio2 3 0 null -> " + size,
                         "BIO_read bio2 data " + size + " -> " + size, "BIO_free bio2",
                         "EVP_PKEY_free key1", "ERR_clear_error"));
}

TEST_F(OpensslCalls, UnreadablePrivateKeyIsReportedOnceAndNotWritten) {
  const Calls calls = calls_of("create_asymmetric_pub_key", {"RSA", "not a key"});
  ASSERT_EQ(calls.size(), 6U);
  EXPECT_EQ(calls[0], "BIO_new_mem_buf data 9 -> bio1");
  EXPECT_EQ(calls[1], "PEM_read_bio_PrivateKey bio1 null null null -> null");
  EXPECT_TRUE(calls[2].starts_with("ERR_get_error -> "));
  EXPECT_TRUE(calls[3].starts_with("ERR_error_string "));
  EXPECT_EQ(calls[4], "BIO_free bio1");
  EXPECT_EQ(calls[5], "ERR_clear_error");
}

// --- encryption

TEST_F(OpensslCalls, EncryptionAsksForTheSizeThenEncrypts) {
  EXPECT_THAT(calls_of("asymmetric_encrypt", {"RSA", "hello", public_key}),
              ElementsAreArray(
                  reading_of_public_key(public_key) +
                  Calls{"EVP_PKEY_get_size key1 -> 256", "EVP_PKEY_CTX_new key1 null -> key_ctx1",
                        "EVP_PKEY_encrypt_init key_ctx1 -> 1",
                        "EVP_PKEY_CTX_set_rsa_padding key_ctx1 4 -> 1",
                        "EVP_PKEY_encrypt key_ctx1 null data data 5 (0) -> 1 (256)",
                        "EVP_PKEY_encrypt key_ctx1 data data data 5 (256) -> 1 (256)",
                        "EVP_PKEY_CTX_free key_ctx1", "EVP_PKEY_free key1", "ERR_clear_error"}));
}

TEST_F(OpensslCalls, EncryptionWithAPrivateKeyMakesNoContext) {
  EXPECT_THAT(calls_of("asymmetric_encrypt", {"RSA", "hello", private_key}),
              ElementsAreArray(
                  reading_of_private_key(private_key) +
                  Calls{"EVP_PKEY_get_size key1 -> 256", "EVP_PKEY_free key1", "ERR_clear_error"}));
}

TEST_F(OpensslCalls, UnreadablePublicKeyIsReadTwiceAndReportedOnce) {
  const Calls calls = calls_of("asymmetric_encrypt", {"RSA", "hello", "not a key"});
  ASSERT_EQ(calls.size(), 10U);
  EXPECT_EQ(
      Calls(calls.begin(), calls.begin() + 6),
      (Calls{"OPENSSL_cleanse data 9", "BIO_new_mem_buf data 9 -> bio1",
             "PEM_read_bio_PUBKEY bio1 null null null -> null", "BIO_new_mem_buf data 9 -> bio2",
             "PEM_read_bio_PUBKEY bio2 null null null -> null", "BIO_free bio2"}));
  EXPECT_TRUE(calls[6].starts_with("ERR_get_error -> "));
  EXPECT_TRUE(calls[7].starts_with("ERR_error_string "));
  EXPECT_EQ(calls[8], "BIO_free bio1");
  EXPECT_EQ(calls[9], "ERR_clear_error");
}

Calls decryption(const std::string &number, const std::string &padding,
                 const std::string &cipher_size, const std::string &plain_size) {
  const std::string key = "key" + number;
  const std::string ctx = "key_ctx" + number;
  return {"EVP_PKEY_get_size " + key + " -> 256",
          "EVP_PKEY_CTX_new " + key + " null -> " + ctx,
          "EVP_PKEY_decrypt_init " + ctx + " -> 1",
          "EVP_PKEY_CTX_set_rsa_padding " + ctx + " " + padding + " -> 1",
          "EVP_PKEY_decrypt " + ctx + " null data data " + cipher_size + " (0) -> 1 (256)",
          "EVP_PKEY_decrypt " + ctx + " data data data " + cipher_size + " (256) -> 1 (" +
              plain_size + ")",
          "EVP_PKEY_CTX_free " + ctx,
          "EVP_PKEY_free " + key};
}

TEST_F(OpensslCalls, DecryptionAsksForTheSizeThenDecrypts) {
  const std::string ciphertext = reference_encrypt(public_key, "hello", 4);
  EXPECT_THAT(calls_of("asymmetric_decrypt", {"RSA", ciphertext, private_key}),
              ElementsAreArray(reading_of_private_key(private_key) +
                               decryption("1", "4", "256", "5") + Calls{"ERR_clear_error"}));
}

TEST_F(OpensslCalls, LegacyDecryptionFreesTheFirstKeyAndReadsItAgain) {
  switch_legacy_padding(true);
  const std::string ciphertext = reference_encrypt(public_key, "hello", 1);
  const Calls calls = calls_of("asymmetric_decrypt", {"RSA", ciphertext, private_key});
  ASSERT_EQ(last_row.bytes, "hello");
  const Calls last_thirteen(calls.end() - 13, calls.end());
  EXPECT_EQ(calls[calls.size() - 14], "EVP_PKEY_free key1");
  EXPECT_THAT(last_thirteen,
              ElementsAreArray(reading_of_private_key(private_key, "2") +
                               decryption("2", "1", "256", "5") + Calls{"ERR_clear_error"}));
}

// --- signatures

TEST_F(OpensslCalls, SigningAsksForTheSizeThenSigns) {
  const std::string init =
      "EVP_DigestSignInit digest_ctx1 data SHA256 null key1 -> 1 borrowed_key_ctx1";
  EXPECT_THAT(calls_of("asymmetric_sign", {"RSA", "hello", private_key, "sha256"}),
              ElementsAreArray(reading_of_private_key(private_key) +
                               Calls{"EVP_sha256 -> SHA256", "EVP_MD_CTX_new -> digest_ctx1", init,
                                     "EVP_PKEY_CTX_set_rsa_padding borrowed_key_ctx1 6 -> 1",
                                     "EVP_DigestSignUpdate digest_ctx1 data 5 -> 1",
                                     "EVP_DigestSignFinal digest_ctx1 null data (0) -> 1 (256)",
                                     "EVP_DigestSignFinal digest_ctx1 data data (256) -> 1 (256)",
                                     "EVP_MD_CTX_free digest_ctx1", "EVP_PKEY_free key1",
                                     "ERR_clear_error"}));
}

Calls pss_verification(const std::string &result) {
  return {"EVP_sha256 -> SHA256",
          "EVP_MD_CTX_new -> digest_ctx1",
          "EVP_DigestVerifyInit digest_ctx1 data SHA256 null key1 -> 1 borrowed_key_ctx1",
          "EVP_PKEY_CTX_set_rsa_padding borrowed_key_ctx1 6 -> 1",
          "EVP_DigestVerifyUpdate digest_ctx1 data 32 -> 1",
          "EVP_DigestVerifyFinal digest_ctx1 data 256 -> " + result};
}

TEST_F(OpensslCalls, VerificationUpdatesThenChecksTheSignature) {
  const std::string content(32, 'm');
  const std::string signature = reference_sign_pss(private_key, "SHA256", content);
  EXPECT_THAT(calls_of("asymmetric_verify", {"RSA", content, signature, public_key, "SHA256"}),
              ElementsAreArray(
                  reading_of_public_key(public_key) + pss_verification("1") +
                  Calls{"EVP_MD_CTX_free digest_ctx1", "EVP_PKEY_free key1", "ERR_clear_error"}));
}

TEST_F(OpensslCalls, LegacyVerificationFreesTheFirstKeyReadsItAgainAndReportsNothing) {
  switch_legacy_padding(true);
  const std::string digest = reference_digest("SHA256", "hello");
  const std::string signature = reference_sign_digest(private_key, "SHA256", digest);
  const Calls calls =
      calls_of("asymmetric_verify", {"RSA", digest, signature, public_key, "SHA256"});
  EXPECT_EQ(last_row.integer, 1);

  const Calls first = reading_of_public_key(public_key) + pss_verification("0");
  ASSERT_EQ(calls.size(), first.size() + 15);
  EXPECT_EQ(Calls(calls.begin(), calls.begin() + static_cast<long>(first.size())), first);
  EXPECT_TRUE(calls[first.size()].starts_with("ERR_get_error -> "));
  EXPECT_TRUE(calls[first.size() + 1].starts_with("ERR_error_string "));
  EXPECT_THAT(
      Calls(calls.end() - 13, calls.end()),
      ElementsAreArray(
          Calls{"EVP_MD_CTX_free digest_ctx1", "EVP_PKEY_free key1"} +
          reading_of_public_key(public_key, "2") +
          Calls{"EVP_PKEY_CTX_new key2 null -> key_ctx1", "EVP_PKEY_verify_init key_ctx1 -> 1",
                "EVP_PKEY_CTX_set_signature_md key_ctx1 SHA256 -> 1",
                "EVP_PKEY_verify key_ctx1 data 256 data 32 -> 1", "EVP_PKEY_CTX_free key_ctx1",
                "EVP_PKEY_free key2", "ERR_clear_error"}));
}

TEST_F(OpensslCalls, LegacyVerificationWithAnUnknownDigestStopsAfterReadingTheKey) {
  switch_legacy_padding(true);
  const Calls calls = calls_of("asymmetric_verify",
                               {"RSA", "content", std::string(256, 's'), public_key, "SHA3-512"});
  EXPECT_THAT(last_row, IsSqlNull());
  EXPECT_THAT(Calls(calls.end() - 6, calls.end()),
              ElementsAreArray(reading_of_public_key(public_key, "2") +
                               Calls{"EVP_PKEY_free key2", "ERR_clear_error"}));
}

// --- every function

TEST_F(OpensslCalls, NullArgumentReadsNoKeyAndOnlyClearsTheQueue) {
  for (const Sql_function &function : sql_functions()) {
    for (std::size_t i = 0; i < function.arguments.size(); ++i) {
      std::vector<Argument> arguments = function.arguments;
      arguments[i].value.reset();
      EXPECT_THAT(calls_of(function.name, arguments), ElementsAre("ERR_clear_error"))
          << function.name << " argument " << i;
      EXPECT_THAT(last_row, IsSqlNull()) << function.name << " argument " << i;
    }
  }
}

TEST_F(OpensslCalls, UnsupportedNameReadsNoKeyAndOnlyClearsTheQueue) {
  for (const Sql_function &function : sql_functions()) {
    std::vector<Argument> arguments = function.arguments;
    arguments[0].value = "DSA";
    EXPECT_THAT(calls_of(function.name, arguments), ElementsAre("ERR_clear_error"))
        << function.name;
    EXPECT_THAT(last_row, IsSqlNull()) << function.name;
  }
}

// --- the result buffer

// What deinit asks of OpenSSL after a server has changed the function instance.
class ResultBuffer : public OpensslCalls {
 protected:
  Calls calls_of_deinit() {
    const Openssl_recorder recorder;
    site.reset();
    return recorder.calls();
  }

  std::unique_ptr<Call_site> site = nullptr;
};

TEST_F(ResultBuffer, IsWipedWholeByDeinit) {
  site = std::make_unique<Call_site>(server.function("create_digest"),
                                     std::vector<Argument>{"SHA256", "abc"});
  EXPECT_THAT(calls_of_deinit(), ElementsAre("OPENSSL_cleanse data 64"));
  site = std::make_unique<Call_site>(server.function("asymmetric_decrypt"),
                                     std::vector<Argument>{"RSA", "data", private_key});
  EXPECT_THAT(calls_of_deinit(), ElementsAre("OPENSSL_cleanse data 12800"));
}

TEST_F(ResultBuffer, IsWipedUpToMaxLengthAndNeverBeyondItsOwnSize) {
  for (const auto &[max_length, wiped] : std::vector<std::pair<unsigned long, std::string>>{
           {0, "0"}, {255, "255"}, {12800, "12800"}, {12801, "12800"}, {~0UL, "12800"}}) {
    site = std::make_unique<Call_site>(server.function("asymmetric_decrypt"),
                                       std::vector<Argument>{"RSA", "data", private_key});
    site->instance().max_length = max_length;
    EXPECT_THAT(calls_of_deinit(), ElementsAre("OPENSSL_cleanse data " + wiped));
  }
}

TEST_F(ResultBuffer, MayBeReplacedByAnArrayOfTheServer) {
  site = std::make_unique<Call_site>(server.function("create_digest"),
                                     std::vector<Argument>{"SHA256", "abc"});
  delete[] site->instance().ptr;
  site->instance().ptr = new char[32];
  site->instance().max_length = 32;
  EXPECT_EQ(site->row().bytes, reference_digest("SHA256", "abc"));
  EXPECT_THAT(calls_of_deinit(), ElementsAre("OPENSSL_cleanse data 32"));
}

TEST_F(ResultBuffer, MayBeReleasedByTheServer) {
  site = std::make_unique<Call_site>(server.function("create_digest"),
                                     std::vector<Argument>{"SHA256", "abc"});
  delete[] site->instance().ptr;
  site->instance().ptr = nullptr;
  EXPECT_THAT(calls_of_deinit(), IsEmpty());
}

}  // namespace
}  // namespace halvex_test
