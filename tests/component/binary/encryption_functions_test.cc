// asymmetric_encrypt and asymmetric_decrypt.

#include "support/component_test.h"
#include "support/reference_implementation.h"

namespace halvex_test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr int pkcs1 = 1;
constexpr int oaep = 4;

class EncryptionFunctions : public Component_test {
 protected:
  EncryptionFunctions() { silence_pass_phrase_prompt(); }

  Call_result encrypt(const std::string &data, const std::string &key) const {
    return call("asymmetric_encrypt", {"RSA", data, key});
  }
  Call_result decrypt(const std::string &data, const std::string &key) const {
    return call("asymmetric_decrypt", {"RSA", data, key});
  }

  // Decryption fails with this record while the legacy setting is off, with two of it while it is
  // on.
  void expect_record_of_every_attempt(const std::string &data, const std::string &key,
                                      const Record &record) {
    for (const bool legacy : {false, true}) {
      switch_legacy_padding(legacy);
      server.forget_records();
      EXPECT_THAT(decrypt(data, key), IsSqlNull());
      EXPECT_EQ(server.records(), std::vector<Record>(legacy ? 2 : 1, record));
    }
  }

  const std::string private_key = fixture("rsa2048.pem");
  const std::string public_key = fixture("rsa2048-public.pem");
};

// --- encryption

TEST_F(EncryptionFunctions, CiphertextIsOaepAndAsLongAsTheModulus) {
  const Row_result row = encrypt("hello", public_key).row;
  EXPECT_EQ(row.bytes.size(), 256U);
  EXPECT_EQ(reference_decrypt(private_key, row.bytes, oaep), "hello");
  EXPECT_THAT(server.records(), IsEmpty());
}

TEST_F(EncryptionFunctions, LegacySettingDoesNotChangeThePaddingOfEncryption) {
  switch_legacy_padding(true);
  EXPECT_EQ(reference_decrypt(private_key, encrypt("hello", public_key).row.bytes, oaep), "hello");
}

TEST_F(EncryptionFunctions, LimitFollowsTheSizeOfTheKey) {
  const std::vector<std::pair<std::string, size_t>> limits{
      {"rsa2048", 214}, {"rsa3072", 342}, {"rsa4096", 470}, {"rsa16384", 2006}};
  for (const auto &[name, limit] : limits) {
    server.forget_records();
    const std::string data(limit, 'd');
    const std::string key = fixture(name + "-public.pem");
    EXPECT_EQ(reference_decrypt(fixture(name + ".pem"), encrypt(data, key).row.bytes, oaep), data);
    EXPECT_THAT(encrypt(data + 'd', key), IsSqlNull()) << name;
    EXPECT_THAT(server.records(), ElementsAre(data_too_long("asymmetric_encrypt", limit + 1,
                                                            static_cast<long long>(limit))))
        << name;
  }
}

TEST_F(EncryptionFunctions, EmptyDataIsNoNullButFailsToEncrypt) {
  EXPECT_THAT(encrypt("", public_key), IsSqlNull());
  EXPECT_THAT(server.records(), ElementsAre(encryption_failed(0)));
}

TEST_F(EncryptionFunctions, EncryptingWithAPrivateKeyFailsWithoutAnOpensslRecord) {
  EXPECT_THAT(encrypt("hello", private_key), IsSqlNull());
  EXPECT_THAT(server.records(), ElementsAre(encryption_failed(5)));
}

TEST_F(EncryptionFunctions, EncryptingWithAnUnreadableKeyIsReportedByOpensslAlone) {
  for (const std::string &key :
       {std::string(), fixture("rsa2048-public-bad-base64.pem"),
        fixture("rsa2048-public-bad-label.pem"), fixture("rsa2048-public-truncated.pem")}) {
    server.forget_records();
    EXPECT_THAT(encrypt("hello", key), IsSqlNull()) << key;
    EXPECT_THAT(server.records(), ElementsAre(openssl_record("asymmetric_encrypt", "RSA",
                                                             error_of_reading_public(key))))
        << key;
  }
}

TEST_F(EncryptionFunctions, EncryptedPrivateKeyIsUnreadable) {
  for (const char *file : {"rsa2048-encrypted.pem", "rsa2048-encrypted-traditional.pem"}) {
    server.forget_records();
    EXPECT_THAT(decrypt(std::string(256, 'c'), fixture(file)), IsSqlNull()) << file;
    EXPECT_THAT(server.records(), ElementsAre(IsOpensslRecord("asymmetric_decrypt", "RSA")))
        << file;
  }
}

TEST_F(EncryptionFunctions, BytesBehindAShorterCiphertextAreThoseOfTheRowBefore) {
  Call_site site(server.function("asymmetric_encrypt"),
                 {"RSA", "hello", fixture("rsa4096-public.pem")});
  const std::string longer = site.row().bytes;
  const std::string shorter = site.row({"RSA", "hello", public_key}).bytes;
  ASSERT_EQ(longer.size(), 512U);
  ASSERT_EQ(shorter.size(), 256U);
  EXPECT_EQ(std::string(site.instance().ptr, 512), shorter + longer.substr(256));
}

TEST_F(EncryptionFunctions, BufferThatTheServerDeclaredShorterIsReported) {
  Call_site site(server.function("asymmetric_encrypt"), {"RSA", "hello", public_key});
  site.instance().max_length = 255;
  EXPECT_THAT(site.row(), IsSqlNull());
  EXPECT_THAT(server.records(),
              ElementsAre(buffer_too_small("encrypt", "asymmetric_encrypt", 255, 256),
                          encryption_failed(5)));
}

// --- decryption

TEST_F(EncryptionFunctions, OaepIsDecryptedWhateverTheLegacySetting) {
  const std::string ciphertext = reference_encrypt(public_key, "hello", oaep);
  for (const bool legacy : {false, true}) {
    switch_legacy_padding(legacy);
    EXPECT_EQ(decrypt(ciphertext, private_key).row.bytes, "hello");
    EXPECT_EQ(decrypt(ciphertext, fixture("rsa2048-traditional.pem")).row.bytes, "hello");
  }
  EXPECT_THAT(server.records(), IsEmpty());
}

TEST_F(EncryptionFunctions, EveryByteValueSurvivesTheRoundTrip) {
  std::string data;
  for (int byte = 0; byte < 256; ++byte) {
    data.push_back(static_cast<char>(byte));
  }
  const std::string ciphertext = encrypt(data, fixture("rsa4096-public.pem")).row.bytes;
  EXPECT_EQ(decrypt(ciphertext, fixture("rsa4096.pem")).row.bytes, data);
}

TEST_F(EncryptionFunctions, EmptyPlaintextIsAValue) {
  const Row_result row = decrypt(reference_encrypt(public_key, "", oaep), private_key).row;
  EXPECT_FALSE(row.is_null);
  EXPECT_EQ(row.bytes, "");
}

TEST_F(EncryptionFunctions, RestOfTheBufferBehindAPlaintextIsZero) {
  Call_site site(server.function("asymmetric_decrypt"),
                 {"RSA", reference_encrypt(public_key, std::string(200, 'p'), oaep), private_key});
  ASSERT_EQ(site.row().bytes.size(), 200U);
  const Row_result row =
      site.row({"RSA", reference_encrypt(public_key, "short", oaep), private_key});
  EXPECT_EQ(row.bytes, "short");
  EXPECT_TRUE(std::string(site.instance().ptr, 12800) == row.bytes + std::string(12795, '\0'));
}

TEST_F(EncryptionFunctions, Pkcs1CiphertextIsNullWithTheLegacySettingOff) {
  EXPECT_THAT(decrypt(reference_encrypt(public_key, "hello", pkcs1), private_key), IsSqlNull());
  EXPECT_THAT(server.records(),
              ElementsAre(IsOpensslRecord("asymmetric_decrypt", "RSA"), decryption_failed(256)));
}

TEST_F(EncryptionFunctions, Pkcs1CiphertextIsDecryptedWithTheLegacySettingOnAfterTheRecordsOfOaep) {
  switch_legacy_padding(true);
  EXPECT_EQ(decrypt(reference_encrypt(public_key, "hello", pkcs1), private_key).row.bytes, "hello");
  EXPECT_THAT(server.records(),
              ElementsAre(IsOpensslRecord("asymmetric_decrypt", "RSA"), decryption_failed(256)));
}

TEST_F(EncryptionFunctions, LegacySettingIsReadForEveryRow) {
  const std::string ciphertext = reference_encrypt(public_key, "hello", pkcs1);
  Call_site site(server.function("asymmetric_decrypt"), {"RSA", ciphertext, private_key});
  EXPECT_THAT(site.row(), IsSqlNull());
  switch_legacy_padding(true);
  EXPECT_EQ(site.row().bytes, "hello");
  switch_legacy_padding(false);
  EXPECT_THAT(site.row(), IsSqlNull());
}

TEST_F(EncryptionFunctions, CiphertextLongerThanTheModulusIsRejectedOncePerAttempt) {
  expect_record_of_every_attempt(std::string(257, 'c'), private_key,
                                 data_too_long("asymmetric_decrypt", 257, 256));
}

TEST_F(EncryptionFunctions, EmptyCiphertextFailsWithoutAnOpensslRecordOncePerAttempt) {
  expect_record_of_every_attempt("", private_key, decryption_failed(0));
}

TEST_F(EncryptionFunctions, FullSizeCiphertextWithAPublicKeyIsTooLongOncePerAttempt) {
  expect_record_of_every_attempt(std::string(256, 'c'), public_key,
                                 data_too_long("asymmetric_decrypt", 256, 214));
}

TEST_F(EncryptionFunctions, ShorterCiphertextWithAPublicKeyFailsWithoutAnOpensslRecord) {
  expect_record_of_every_attempt(std::string(214, 'c'), public_key, decryption_failed(214));
}

TEST_F(EncryptionFunctions, UnreadableKeyIsReportedOncePerDecryptionAttempt) {
  const Record unreadable =
      openssl_record("asymmetric_decrypt", "RSA", error_of_reading_public("no key"));
  EXPECT_THAT(decrypt("cipher", "no key"), IsSqlNull());
  EXPECT_THAT(server.records(), ElementsAre(unreadable));
  switch_legacy_padding(true);
  server.forget_records();
  EXPECT_THAT(decrypt("cipher", "no key"), IsSqlNull());
  EXPECT_EQ(server.records().size(), 2U);
  EXPECT_THAT(server.records(), ::testing::Each(IsOpensslRecord("asymmetric_decrypt", "RSA")));
}

TEST_F(EncryptionFunctions, BufferThatTheServerDeclaredShorterThanTheModulusIsReported) {
  Call_site site(server.function("asymmetric_decrypt"),
                 {"RSA", reference_encrypt(public_key, "hello", oaep), private_key});
  site.instance().max_length = 255;
  EXPECT_THAT(site.row(), IsSqlNull());
  EXPECT_THAT(server.records(),
              ElementsAre(buffer_too_small("decrypt", "asymmetric_decrypt", 255, 256),
                          decryption_failed(256)));
}

}  // namespace
}  // namespace halvex_test
