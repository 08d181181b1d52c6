// What each function does when one of its OpenSSL calls fails: the records, the result, what is
// left in the error queue and what is freed.

#include <algorithm>
#include <cstdlib>

#include "openssl_calls/openssl_recorder.h"
#include "sql_functions.h"
#include "support/component_test.h"
#include "support/reference_implementation.h"

namespace halvex_test {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;
using ::testing::Matcher;

using Records = std::vector<Matcher<const Record &>>;

const std::string &private_key() {
  static const std::string pem = fixture("rsa2048.pem");
  return pem;
}

const std::string &public_key() {
  static const std::string pem = fixture("rsa2048-public.pem");
  return pem;
}

// One function called with arguments that succeed when OpenSSL does.
struct Working_call {
  std::string function;
  std::vector<Argument> arguments;
  bool legacy = false;
};

Working_call working_call(const char *name) { return {name, sql_function(name).arguments}; }

Working_call digest() { return working_call("create_digest"); }
Working_call key_generation() { return working_call("create_asymmetric_priv_key"); }
Working_call public_half() { return working_call("create_asymmetric_pub_key"); }
Working_call encryption() { return working_call("asymmetric_encrypt"); }
Working_call decryption() { return working_call("asymmetric_decrypt"); }
Working_call signing() { return working_call("asymmetric_sign"); }
Working_call verification() { return working_call("asymmetric_verify"); }
// Its PSS attempt fails by itself; the legacy attempt accepts.
Working_call legacy_verification() {
  const std::string content = reference_digest("SHA256", "hello");
  return {"asymmetric_verify",
          {"RSA", content, reference_sign_digest(private_key(), "SHA256", content), public_key(),
           "SHA256"},
          true};
}

// What the failure itself is reported as.
Record report_of(const std::string &function, const std::string &algorithm = "RSA") {
  return openssl_record(function, algorithm, forced_error_text());
}

Records failed_digest() { return {report_of("create_digest", "SHA256")}; }
Records failed_generation() {
  return {report_of("create_asymmetric_priv_key"), key_creation_failed(2048)};
}
Records silently_failed_generation() { return {key_creation_failed(2048)}; }
Records failed_public_half() {
  return {report_of("create_asymmetric_pub_key"), public_key_failed()};
}
Records failed_encryption() { return {report_of("asymmetric_encrypt"), encryption_failed(5)}; }
Records failed_decryption() { return {report_of("asymmetric_decrypt"), decryption_failed(256)}; }
Records failed_signing() { return {report_of("asymmetric_sign"), signing_failed()}; }
Records silently_failed_signing() { return {signing_failed()}; }
Records failed_verification() { return {report_of("asymmetric_verify")}; }
Records nothing() { return {}; }
// Only the PSS attempt's own mismatch.
Records mismatch() { return {IsOpensslRecord("asymmetric_verify", "RSA")}; }

struct Failure_case {
  std::string name;
  Working_call (*call)();
  Forced_failure failure;
  Records (*records)();
  bool succeeds = false;  // the result of the failing call does not matter
};

void PrintTo(const Failure_case &failure_case, std::ostream *out) { *out << failure_case.name; }

class OpensslFailure : public Component_test, public ::testing::WithParamInterface<Failure_case> {
 protected:
  // The queue of a server's thread is empty when a row starts.
  OpensslFailure() { drain_error_queue(); }
};

// A call that reports an error, frees an object, or clears.
MATCHER(EndsACall, "") {
  return arg.starts_with("ERR_") || arg.find("_free ") != std::string::npos;
}

int reports_among(const std::vector<Record> &records) {
  return static_cast<int>(std::count_if(records.begin(), records.end(),
                                        [](const Record &record) { return record.code == 13928; }));
}

TEST_P(OpensslFailure, GivesExactlyTheseRecordsAndLeavesNothingBehind) {
  const Failure_case &expected = GetParam();
  const Working_call working = expected.call();
  switch_legacy_padding(working.legacy);
  Call_site site(server.function(working.function), working.arguments);

  Openssl_recorder recorder(expected.failure);
  std::size_t records_at_last_free = 0;
  recorder.before_key_is_freed = [&] { records_at_last_free = server.records().size(); };
  const Row_result row = site.row();

  ASSERT_TRUE(recorder.failed());
  EXPECT_THAT(server.records(), ElementsAreArray(expected.records()));
  EXPECT_EQ(row.is_null, !expected.succeeds);
  EXPECT_EQ(row.integer, expected.succeeds && working.function == "asymmetric_verify" ? 1 : 0);
  EXPECT_FALSE(row.error);
  EXPECT_THAT(recorder.unfreed(), IsEmpty());
  EXPECT_THAT(drain_error_queue(), IsEmpty());
  EXPECT_EQ(recorder.count("ERR_clear_error"), 1);
  EXPECT_EQ(recorder.calls().back(), "ERR_clear_error");
  EXPECT_EQ(recorder.count("ERR_get_error"), reports_among(server.records()));
  const std::vector<std::string> after_failure = recorder.calls_after_failure();
  if (std::count(after_failure.begin(), after_failure.end(), "EVP_PKEY_free key1") > 0) {
    EXPECT_EQ(records_at_last_free, server.records().size()) << "a record came after the object";
  }
  // A stream that could not be made is read all the same.
  if (!expected.succeeds && expected.failure.function != "BIO_new_mem_buf") {
    EXPECT_THAT(after_failure, Each(EndsACall()));
  }
}

// The row after a failed one is not affected by it.
TEST_P(OpensslFailure, LeavesTheNextRowUnharmed) {
  const Failure_case &expected = GetParam();
  const Working_call working = expected.call();
  switch_legacy_padding(working.legacy);
  Call_site site(server.function(working.function), working.arguments);
  {
    const Openssl_recorder recorder(expected.failure);
    site.row();
  }
  EXPECT_FALSE(site.row().is_null);
}

// One case per value that counts as a failure.
std::vector<Failure_case> each_value(const std::string &name, Working_call (*call)(),
                                     const std::string &function, int occurrence,
                                     const std::vector<int> &values, Records (*records)(),
                                     bool succeeds = false) {
  std::vector<Failure_case> cases;
  for (const int value : values) {
    std::string case_name = name + (value < 0 ? "GivesMinus" : "Gives");
    case_name += std::to_string(std::abs(value));
    cases.push_back({case_name, call, {function, occurrence, value}, records, succeeds});
  }
  return cases;
}

std::vector<Failure_case> all(const std::vector<std::vector<Failure_case>> &groups) {
  std::vector<Failure_case> cases;
  for (const auto &group : groups) {
    cases.insert(cases.end(), group.begin(), group.end());
  }
  return cases;
}

std::string name_of_case(const ::testing::TestParamInfo<Failure_case> &info) {
  return info.param.name;
}

INSTANTIATE_TEST_SUITE_P(
    Digest, OpensslFailure,
    ::testing::ValuesIn(all({
        // A size below zero or above the buffer's 64 bytes fails without a record.
        each_value("MdGetSize", digest, "EVP_MD_get_size", 1, {-1, 65}, nothing),
        {{"MdCtxNew", digest, {"EVP_MD_CTX_new"}, failed_digest}},
        // Only exactly 1 is success.
        each_value("DigestInit", digest, "EVP_DigestInit", 1, {0, -1, 2}, failed_digest),
        each_value("DigestUpdate", digest, "EVP_DigestUpdate", 1, {0, -1, 2}, failed_digest),
        each_value("DigestFinal", digest, "EVP_DigestFinal", 1, {0, -1, 2}, failed_digest),
    })),
    name_of_case);

INSTANTIATE_TEST_SUITE_P(
    KeyGeneration, OpensslFailure,
    ::testing::ValuesIn(all({
        {{"CtxNewId", key_generation, {"EVP_PKEY_CTX_new_id"}, failed_generation}},
        each_value("KeygenInit", key_generation, "EVP_PKEY_keygen_init", 1, {0, -2},
                   failed_generation),
        // A length that cannot be set has no report of its own.
        each_value("SetKeygenBits", key_generation, "EVP_PKEY_CTX_set_rsa_keygen_bits", 1, {0, -2},
                   silently_failed_generation),
        each_value("Keygen", key_generation, "EVP_PKEY_keygen", 1, {0, -1}, failed_generation),
        {{"BioNew", key_generation, {"BIO_new"}, failed_generation},
         {"PemWrite", key_generation, {"PEM_write_bio_PrivateKey"}, failed_generation}},
    })),
    name_of_case);

INSTANTIATE_TEST_SUITE_P(
    PublicHalf, OpensslFailure,
    ::testing::Values(
        Failure_case{"BioNewMemBuf", public_half, {"BIO_new_mem_buf"}, failed_public_half},
        Failure_case{"PemRead", public_half, {"PEM_read_bio_PrivateKey"}, failed_public_half},
        Failure_case{"BioNew", public_half, {"BIO_new"}, failed_public_half},
        Failure_case{"PemWrite", public_half, {"PEM_write_bio_PUBKEY"}, failed_public_half}),
    name_of_case);

Records unreadable_key_of_encryption() { return {report_of("asymmetric_encrypt")}; }
Records limit_of_four() { return {data_too_long("asymmetric_encrypt", 5, 4)}; }

INSTANTIATE_TEST_SUITE_P(
    Encryption, OpensslFailure,
    ::testing::ValuesIn(all({
        // The second reading, on a stream of its own, makes up for the first.
        {{"BioNewMemBufOnce", encryption, {"BIO_new_mem_buf"}, nothing, true},
         {"PemReadOnce", encryption, {"PEM_read_bio_PUBKEY"}, nothing, true},
         {"BioNewMemBufTwice",
          encryption,
          {"BIO_new_mem_buf", 1, 0, 2},
          unreadable_key_of_encryption},
         {"PemReadTwice",
          encryption,
          {"PEM_read_bio_PUBKEY", 1, 0, 2},
          unreadable_key_of_encryption},
         {"CtxNew", encryption, {"EVP_PKEY_CTX_new"}, failed_encryption}},
        each_value("GetSize", encryption, "EVP_PKEY_get_size", 1, {46}, limit_of_four),
        // A negative limit accepts every length.
        each_value("GetSize", encryption, "EVP_PKEY_get_size", 1, {0, 41, -1}, nothing, true),
        each_value("EncryptInit", encryption, "EVP_PKEY_encrypt_init", 1, {0, -1, -2},
                   failed_encryption),
        each_value("SetPadding", encryption, "EVP_PKEY_CTX_set_rsa_padding", 1, {0, -1, -2},
                   nothing, true),
        each_value("SizeQuery", encryption, "EVP_PKEY_encrypt", 1, {0, -1, -2}, failed_encryption),
        each_value("Encrypt", encryption, "EVP_PKEY_encrypt", 2, {0, -1, -2}, failed_encryption),
    })),
    name_of_case);

Records unreadable_key_of_decryption() { return {report_of("asymmetric_decrypt")}; }

INSTANTIATE_TEST_SUITE_P(
    Decryption, OpensslFailure,
    ::testing::ValuesIn(all({
        {{"BioNewMemBuf", decryption, {"BIO_new_mem_buf"}, unreadable_key_of_decryption},
         {"PemRead", decryption, {"PEM_read_bio_PrivateKey"}, unreadable_key_of_decryption},
         {"CtxNew", decryption, {"EVP_PKEY_CTX_new"}, failed_decryption}},
        each_value("DecryptInit", decryption, "EVP_PKEY_decrypt_init", 1, {0, -1, -2},
                   failed_decryption),
        each_value("SizeQuery", decryption, "EVP_PKEY_decrypt", 1, {0, -1, -2}, failed_decryption),
        each_value("Decrypt", decryption, "EVP_PKEY_decrypt", 2, {0, -1, -2}, failed_decryption),
    })),
    name_of_case);

Records unreadable_key_of_signing() { return {report_of("asymmetric_sign"), signing_failed()}; }

INSTANTIATE_TEST_SUITE_P(
    Signing, OpensslFailure,
    ::testing::ValuesIn(all({
        {{"BioNewMemBuf", signing, {"BIO_new_mem_buf"}, unreadable_key_of_signing},
         {"PemRead", signing, {"PEM_read_bio_PrivateKey"}, unreadable_key_of_signing},
         // A digest context that cannot be made has no report of its own.
         {"MdCtxNew", signing, {"EVP_MD_CTX_new"}, silently_failed_signing}},
        each_value("SignInit", signing, "EVP_DigestSignInit", 1, {0, -1}, failed_signing),
        each_value("SetPadding", signing, "EVP_PKEY_CTX_set_rsa_padding", 1, {0, -1, -2}, nothing,
                   true),
        each_value("SignUpdate", signing, "EVP_DigestSignUpdate", 1, {0, -1}, failed_signing),
        each_value("SizeQuery", signing, "EVP_DigestSignFinal", 1, {0, -1}, failed_signing),
        each_value("SignFinal", signing, "EVP_DigestSignFinal", 2, {0, -1}, failed_signing),
    })),
    name_of_case);

INSTANTIATE_TEST_SUITE_P(
    Verification, OpensslFailure,
    ::testing::ValuesIn(all({
        {{"BioNewMemBufOnce", verification, {"BIO_new_mem_buf"}, nothing, true},
         {"PemReadOnce", verification, {"PEM_read_bio_PUBKEY"}, nothing, true},
         {"PemReadTwice", verification, {"PEM_read_bio_PUBKEY", 1, 0, 2}, failed_verification},
         {"MdCtxNew", verification, {"EVP_MD_CTX_new"}, nothing}},
        each_value("VerifyInit", verification, "EVP_DigestVerifyInit", 1, {0, -1},
                   failed_verification),
        each_value("VerifyUpdate", verification, "EVP_DigestVerifyUpdate", 1, {0, -1},
                   failed_verification),
        // Only exactly 1 is success.
        each_value("VerifyFinal", verification, "EVP_DigestVerifyFinal", 1, {0, -1, 2},
                   failed_verification),
    })),
    name_of_case);

// The queue holds the mismatch's further errors by then, so the oldest is one of those.
Records mismatch_then_unreadable_key() {
  return {IsOpensslRecord("asymmetric_verify", "RSA"), IsOpensslRecord("asymmetric_verify", "RSA")};
}

INSTANTIATE_TEST_SUITE_P(
    LegacyVerification, OpensslFailure,
    ::testing::ValuesIn(all({
        {{"SecondPemReadOnce", legacy_verification, {"PEM_read_bio_PUBKEY", 2}, mismatch, true},
         {"SecondPemReadTwice",
          legacy_verification,
          {"PEM_read_bio_PUBKEY", 2, 0, 2},
          mismatch_then_unreadable_key},
         {"CtxNew", legacy_verification, {"EVP_PKEY_CTX_new"}, mismatch}},
        // Zero is accepted.
        each_value("VerifyInit", legacy_verification, "EVP_PKEY_verify_init", 1, {-1, -2},
                   mismatch),
        each_value("SetSignatureMd", legacy_verification, "EVP_PKEY_CTX_set_signature_md", 1,
                   {0, -1, -2}, mismatch),
        // Only a negative result fails: a mismatch, 0, passes.
        each_value("Verify", legacy_verification, "EVP_PKEY_verify", 1, {-1, -2}, mismatch),
        each_value("Verify", legacy_verification, "EVP_PKEY_verify", 1, {0, 1, 2}, mismatch, true),
    })),
    name_of_case);

class OpensslFailures : public Component_test {
 protected:
  OpensslFailures() { drain_error_queue(); }
};

// The library's own state decides what follows a context that was not initialised: a failure later
// on.
TEST_F(OpensslFailures, LegacyVerificationGoesOnAfterAnInitThatGivesZero) {
  const Working_call working = legacy_verification();
  switch_legacy_padding(true);
  Call_site site(server.function(working.function), working.arguments);
  const Openssl_recorder recorder(Forced_failure{"EVP_PKEY_verify_init", 1, 0});
  site.row();
  EXPECT_EQ(recorder.count("EVP_PKEY_CTX_set_signature_md"), 1);
  EXPECT_THAT(recorder.unfreed(), IsEmpty());
}

TEST_F(OpensslFailures, PaddingThatCannotBeSetLeavesThePkcs1Default) {
  const Openssl_recorder recorder(Forced_failure{"EVP_PKEY_CTX_set_rsa_padding", 1, -2});
  const Row_result encrypted = call("asymmetric_encrypt", {"RSA", "hello", public_key()}).row;
  ASSERT_FALSE(encrypted.is_null);
  EXPECT_EQ(reference_decrypt(private_key(), encrypted.bytes, 1), "hello");
}

TEST_F(OpensslFailures, DecryptionWithPaddingThatCannotBeSetReadsPkcs1) {
  const std::string ciphertext = reference_encrypt(public_key(), "hello", 1);
  const Openssl_recorder recorder(Forced_failure{"EVP_PKEY_CTX_set_rsa_padding", 1, -2});
  EXPECT_EQ(call("asymmetric_decrypt", {"RSA", ciphertext, private_key()}).row.bytes, "hello");
}

TEST_F(OpensslFailures, VerificationWithPaddingThatCannotBeSetRejectsAPssSignature) {
  const Working_call working = verification();
  const Openssl_recorder recorder(Forced_failure{"EVP_PKEY_CTX_set_rsa_padding", 1, -2});
  EXPECT_THAT(call(working.function, working.arguments), IsSqlNull());
  EXPECT_THAT(server.records(), ElementsAre(report_of("asymmetric_verify")));
}

TEST_F(OpensslFailures, FailedSecondReadingFreesAKeyThatIsNotRsa) {
  Call_site site(server.function("asymmetric_encrypt"),
                 {"RSA", "hello", fixture("ec-p256-public.pem")});
  const Openssl_recorder recorder(Forced_failure{"PEM_read_bio_PUBKEY"});
  EXPECT_THAT(site.row(), IsSqlNull());
  const std::vector<std::string> &calls = recorder.calls();
  ASSERT_EQ(calls.size(), 12U);
  EXPECT_EQ(calls[4], "PEM_read_bio_PUBKEY bio2 null null null -> key1");
  EXPECT_EQ(calls[5], "EVP_PKEY_is_a key1 text -> 0");
  EXPECT_EQ(calls[6], "EVP_PKEY_free key1");
  EXPECT_EQ(calls[7], "BIO_free bio2");
  EXPECT_THAT(server.records(), ElementsAre(report_of("asymmetric_encrypt")));
}

TEST_F(OpensslFailures, EcKeyThatTheFirstReadingAcceptsIsNotTestedForRsa) {
  Call_site site(server.function("asymmetric_encrypt"),
                 {"RSA", "hello", fixture("ec-p256-public.pem")});
  const Openssl_recorder recorder;
  site.row();
  EXPECT_EQ(recorder.count("PEM_read_bio_PUBKEY"), 1);
  EXPECT_EQ(recorder.count("EVP_PKEY_is_a"), 0);
}

TEST_F(OpensslFailures, EncryptionWithTheWrongKindOfKeyIsReportedBeforeTheKeyIsFreed) {
  Call_site site(server.function("asymmetric_encrypt"), {"RSA", "hello", private_key()});
  Openssl_recorder recorder;
  std::vector<Record> records;
  recorder.before_key_is_freed = [&] { records = server.records(); };
  EXPECT_THAT(site.row(), IsSqlNull());
  EXPECT_THAT(records, ElementsAre(encryption_failed(5)));
}

// A text whose bytes cannot be taken from the stream is no result.
TEST_F(OpensslFailures, PemTextThatCannotBeTakenFromTheStreamIsReportedAndLeavesNoBytes) {
  for (const Forced_failure &failure :
       {Forced_failure{"BIO_read", 1, 0}, Forced_failure{"BIO_read", 1, -1},
        Forced_failure{.function = "BIO_read", .value = 100, .reaches_libcrypto = true},
        Forced_failure{"BIO_ctrl", 1, 0}}) {
    server.forget_records();
    Call_site site(server.function("create_asymmetric_pub_key"), {"RSA", private_key()});
    const Openssl_recorder recorder(failure);
    EXPECT_THAT(site.row(), IsSqlNull());
    EXPECT_THAT(server.records(), ElementsAreArray(failed_public_half()));
    EXPECT_TRUE(std::string(site.instance().ptr, 12800) == std::string(12800, '\0'));
    EXPECT_THAT(recorder.unfreed(), IsEmpty());
  }
}

// --- errors that the server left in the queue

class StaleErrors : public OpensslFailures {
 protected:
  // Runs one row with an error queued before it; gives what is queued after it.
  std::vector<std::string> queue_after(const Working_call &working) {
    switch_legacy_padding(working.legacy);
    Call_site site(server.function(working.function), working.arguments);
    drain_error_queue();
    queue_stale_error();
    last_row = site.row();
    return drain_error_queue();
  }

  Row_result last_row;
};

TEST_F(StaleErrors, StayAfterADigestThatSucceeds) {
  EXPECT_THAT(queue_after(digest()), ElementsAre(stale_error_text()));
  EXPECT_FALSE(last_row.is_null);
  EXPECT_THAT(server.records(), IsEmpty());
}

TEST_F(StaleErrors, AreClearedByEveryOtherFunctionThatSucceeds) {
  for (const auto working :
       {key_generation, public_half, encryption, decryption, signing, verification}) {
    EXPECT_THAT(queue_after(working()), IsEmpty()) << working().function;
    EXPECT_FALSE(last_row.is_null) << working().function;
  }
  EXPECT_THAT(server.records(), IsEmpty());
}

TEST_F(StaleErrors, AreClearedByALegacyVerificationThatSucceeds) {
  EXPECT_THAT(queue_after(legacy_verification()), IsEmpty());
  EXPECT_EQ(last_row.integer, 1);
}

TEST_F(StaleErrors, AreClearedByFailuresThatAskOpensslNothing) {
  EXPECT_THAT(queue_after({"create_asymmetric_priv_key", {"RSA", 1024}}), IsEmpty());
  EXPECT_THAT(queue_after({"asymmetric_encrypt", {"RSA", "hello", private_key()}}), IsEmpty());
  EXPECT_THAT(queue_after({"asymmetric_encrypt", {"RSA", std::string(215, 'x'), public_key()}}),
              IsEmpty());
  EXPECT_THAT(queue_after({"asymmetric_sign", {"RSA", "hello", private_key(), "MD5"}}), IsEmpty());
  EXPECT_THAT(queue_after({"asymmetric_verify", {"RSA", "", "s", public_key(), "SHA256"}}),
              IsEmpty());
}

// A report takes the oldest error of the queue, whoever queued it, and no second one.
TEST_F(StaleErrors, AreReportedFirstByAFailureOfOpenssl) {
  EXPECT_THAT(queue_after({"create_asymmetric_pub_key", {"RSA", "not a key"}}), IsEmpty());
  EXPECT_THAT(server.records(),
              ElementsAre(openssl_record("create_asymmetric_pub_key", "RSA", stale_error_text()),
                          public_key_failed()));
}

}  // namespace
}  // namespace halvex_test
