#include "support/reference_implementation.h"

#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/err.h>
#include <openssl/param_build.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/ui.h>

#include <array>
#include <memory>
#include <stdexcept>
#include <vector>

namespace halvex_test {

namespace {

using halvex_encryption::Free_with;

using Number = std::unique_ptr<BIGNUM, Free_with<BN_clear_free>>;
using Parameter_builder = std::unique_ptr<OSSL_PARAM_BLD, Free_with<OSSL_PARAM_BLD_free>>;
using Parameters = std::unique_ptr<OSSL_PARAM, Free_with<OSSL_PARAM_free>>;

const unsigned char *bytes_of(const std::string &text) {
  return reinterpret_cast<const unsigned char *>(text.data());
}

unsigned char *bytes_of(std::string &text) {
  return reinterpret_cast<unsigned char *>(text.data());
}

void require(bool condition, const std::string &what) {
  if (!condition) {
    throw std::runtime_error("the library failed: " + what + ": " + oldest_error());
  }
}

Bio stream_over(const std::string &text) {
  return Bio(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
}

std::string contents(BIO *stream) {
  char *data = nullptr;
  const long length = BIO_get_mem_data(stream, &data);
  return {data, static_cast<std::size_t>(length)};
}

using Operation = int (*)(EVP_PKEY_CTX *, unsigned char *, std::size_t *, const unsigned char *,
                          std::size_t);

// `init` prepares the context for the operation, or returns false.
template <typename Init>
std::optional<std::string> transformed(EVP_PKEY *key, Init init, Operation operation,
                                       const std::string &text) {
  const Key_context context(EVP_PKEY_CTX_new(key, nullptr));
  if (context == nullptr || !init(context.get())) {
    return std::nullopt;
  }
  std::size_t length = 0;
  if (operation(context.get(), nullptr, &length, bytes_of(text), text.size()) <= 0) {
    return std::nullopt;
  }
  std::string result(length, '\0');
  if (operation(context.get(), bytes_of(result), &length, bytes_of(text), text.size()) <= 0) {
    return std::nullopt;
  }
  result.resize(length);
  return result;
}

bool set_where_possible(EVP_PKEY_CTX *context, int padding) {
  EVP_PKEY_CTX_set_rsa_padding(context, padding);
  return true;
}

bool verifies_with(EVP_PKEY *key, const EVP_MD *digest, const std::string &text,
                   const std::string &signature, std::optional<int> padding) {
  const Digest_context context(EVP_MD_CTX_new());
  EVP_PKEY_CTX *key_context = nullptr;
  if (EVP_DigestVerifyInit(context.get(), &key_context, digest, nullptr, key) <= 0) {
    return false;
  }
  if (padding) {
    EVP_PKEY_CTX_set_rsa_padding(key_context, *padding);
  }
  return EVP_DigestVerifyUpdate(context.get(), text.data(), text.size()) > 0 &&
         EVP_DigestVerifyFinal(context.get(), bytes_of(signature), signature.size()) == 1;
}

}  // namespace

const EVP_MD *library_digest(const std::string &name) {
  const EVP_MD *digest = EVP_get_digestbyname(name.c_str());
  require(digest != nullptr, "the digest " + name);
  return digest;
}

std::string digest_of(const EVP_MD *digest, const std::string &text) {
  std::array<char, EVP_MAX_MD_SIZE> value{};
  unsigned length = 0;
  require(EVP_Digest(text.data(), text.size(), reinterpret_cast<unsigned char *>(value.data()),
                     &length, digest, nullptr) == 1,
          "a digest");
  return {value.data(), length};
}

Key rsa_key(const std::map<std::string, std::string> &numbers) {
  const Parameter_builder builder(OSSL_PARAM_BLD_new());
  std::vector<Number> owned;
  for (const auto &[name, digits] : numbers) {
    BIGNUM *number = nullptr;
    require(BN_hex2bn(&number, digits.c_str()) == static_cast<int>(digits.size()),
            "the number " + name);
    owned.emplace_back(number);
    require(OSSL_PARAM_BLD_push_BN(builder.get(), name.c_str(), number) == 1, "the number " + name);
  }
  const Parameters parameters(OSSL_PARAM_BLD_to_param(builder.get()));
  const Key_context context(EVP_PKEY_CTX_new_from_name(nullptr, "RSA", nullptr));
  const int selection =
      numbers.contains(OSSL_PKEY_PARAM_RSA_D) ? EVP_PKEY_KEYPAIR : EVP_PKEY_PUBLIC_KEY;
  EVP_PKEY *key = nullptr;
  require(EVP_PKEY_fromdata_init(context.get()) == 1 &&
              EVP_PKEY_fromdata(context.get(), &key, selection, parameters.get()) == 1,
          "an RSA key of these numbers");
  return Key(key);
}

Key new_key(const char *algorithm, const char *parameter) {
  Key key(EVP_PKEY_Q_keygen(nullptr, nullptr, algorithm, parameter));
  require(key != nullptr, std::string("a new key of ") + algorithm);
  return key;
}

std::optional<std::string> private_pem(EVP_PKEY *key) {
  const Bio stream(BIO_new(BIO_s_mem()));
  if (PEM_write_bio_PKCS8PrivateKey(stream.get(), key, nullptr, nullptr, 0, nullptr, nullptr) !=
      1) {
    return std::nullopt;
  }
  return contents(stream.get());
}

std::optional<std::string> public_pem(EVP_PKEY *key) {
  const Bio stream(BIO_new(BIO_s_mem()));
  if (PEM_write_bio_PUBKEY(stream.get(), key) != 1) {
    return std::nullopt;
  }
  return contents(stream.get());
}

Key read_private_pem(const std::string &pem) {
  const Bio stream = stream_over(pem);
  return Key(PEM_read_bio_PrivateKey(stream.get(), nullptr, nullptr, nullptr));
}

Key read_public_pem(const std::string &pem) {
  const Bio stream = stream_over(pem);
  return Key(PEM_read_bio_PUBKEY(stream.get(), nullptr, nullptr, nullptr));
}

std::optional<std::string> encrypted(EVP_PKEY *key, int padding, const std::string &text) {
  const auto init = [padding](EVP_PKEY_CTX *context) {
    return EVP_PKEY_encrypt_init(context) > 0 && set_where_possible(context, padding);
  };
  return transformed(key, init, EVP_PKEY_encrypt, text);
}

std::optional<std::string> decrypted(EVP_PKEY *key, int padding, const std::string &text) {
  const auto init = [padding](EVP_PKEY_CTX *context) {
    return EVP_PKEY_decrypt_init(context) > 0 && set_where_possible(context, padding);
  };
  return transformed(key, init, EVP_PKEY_decrypt, text);
}

std::optional<std::string> signed_with_pss(EVP_PKEY *key, const EVP_MD *digest,
                                           const std::string &text) {
  const Digest_context context(EVP_MD_CTX_new());
  EVP_PKEY_CTX *key_context = nullptr;
  if (EVP_DigestSignInit(context.get(), &key_context, digest, nullptr, key) <= 0) {
    return std::nullopt;
  }
  EVP_PKEY_CTX_set_rsa_padding(key_context, RSA_PKCS1_PSS_PADDING);
  std::size_t length = 0;
  if (EVP_DigestSignUpdate(context.get(), text.data(), text.size()) <= 0 ||
      EVP_DigestSignFinal(context.get(), nullptr, &length) <= 0) {
    return std::nullopt;
  }
  std::string signature(length, '\0');
  if (EVP_DigestSignFinal(context.get(), bytes_of(signature), &length) <= 0) {
    return std::nullopt;
  }
  signature.resize(length);
  return signature;
}

bool verifies_as_pss(EVP_PKEY *key, const EVP_MD *digest, const std::string &text,
                     const std::string &signature) {
  return verifies_with(key, digest, text, signature, RSA_PKCS1_PSS_PADDING);
}

bool verifies(EVP_PKEY *key, const EVP_MD *digest, const std::string &text,
              const std::string &signature) {
  return verifies_with(key, digest, text, signature, std::nullopt);
}

std::optional<std::string> signed_digest(EVP_PKEY *key, const EVP_MD *digest,
                                         const std::string &digest_value) {
  const auto init = [digest](EVP_PKEY_CTX *context) {
    return EVP_PKEY_sign_init(context) > 0 && EVP_PKEY_CTX_set_signature_md(context, digest) > 0;
  };
  return transformed(key, init, EVP_PKEY_sign, digest_value);
}

int raw_verify_result(EVP_PKEY *key, const EVP_MD *digest, const std::string &digest_value,
                      const std::string &signature) {
  const Key_context context(EVP_PKEY_CTX_new(key, nullptr));
  if (context == nullptr || EVP_PKEY_verify_init(context.get()) < 0 ||
      EVP_PKEY_CTX_set_signature_md(context.get(), digest) <= 0) {
    return -1;
  }
  return EVP_PKEY_verify(context.get(), bytes_of(signature), signature.size(),
                         bytes_of(digest_value), digest_value.size());
}

std::string oldest_error() {
  std::array<char, 256> text{};
  ERR_error_string_n(ERR_get_error(), text.data(), text.size());
  return text.data();
}

namespace {

// The reference implementation's own calls are taken for granted: a failure ends the test.
Key expect_key(Key key) {
  if (!key) {
    throw std::runtime_error("the reference implementation cannot read a key: " + oldest_error());
  }
  return key;
}

Key private_key(const std::string &pem) { return expect_key(read_private_pem(pem)); }

Key public_key(const std::string &pem) { return expect_key(read_public_pem(pem)); }

// An answer leaves no errors to the next one.
bool without_errors(bool answer) {
  ERR_clear_error();
  return answer;
}

std::string error_left_by(Key (*read)(const std::string &), const std::string &pem) {
  ERR_clear_error();
  read(pem);
  std::string text = oldest_error();
  ERR_clear_error();
  return text;
}

}  // namespace

std::string reference_digest(const std::string &digest, const std::string &text) {
  return digest_of(library_digest(digest), text);
}

std::string reference_encrypt(const std::string &public_pem, const std::string &data, int padding) {
  return encrypted(public_key(public_pem).get(), padding, data).value();
}

std::string reference_decrypt(const std::string &private_pem, const std::string &data,
                              int padding) {
  return decrypted(private_key(private_pem).get(), padding, data).value();
}

std::string reference_sign_digest(const std::string &private_pem, const std::string &digest_name,
                                  const std::string &digest) {
  return signed_digest(private_key(private_pem).get(), library_digest(digest_name), digest).value();
}

std::string reference_sign_pss(const std::string &private_pem, const std::string &digest_name,
                               const std::string &message) {
  return signed_with_pss(private_key(private_pem).get(), library_digest(digest_name), message)
      .value();
}

bool reference_verifies_pss(const std::string &public_pem, const std::string &digest_name,
                            const std::string &message, const std::string &signature) {
  return without_errors(verifies_as_pss(public_key(public_pem).get(), library_digest(digest_name),
                                        message, signature));
}

bool reference_verifies(const std::string &public_pem, const std::string &digest_name,
                        const std::string &message, const std::string &signature) {
  return without_errors(
      verifies(public_key(public_pem).get(), library_digest(digest_name), message, signature));
}

int reference_bits(const std::string &private_pem) {
  return EVP_PKEY_get_bits(private_key(private_pem).get());
}

std::string reference_public_half(const std::string &private_pem) {
  return public_pem(private_key(private_pem).get()).value();
}

std::string reference_key_type(const std::string &private_pem) {
  return EVP_PKEY_get0_type_name(private_key(private_pem).get());
}

bool reference_reads_private(const std::string &pem) {
  return without_errors(read_private_pem(pem) != nullptr);
}

bool reference_reads_public(const std::string &pem) {
  return without_errors(read_public_pem(pem) != nullptr);
}

std::string error_of_reading_private(const std::string &pem) {
  return error_left_by(read_private_pem, pem);
}

std::string error_of_reading_public(const std::string &pem) {
  return error_left_by(read_public_pem, pem);
}

std::string no_error_text() {
  ERR_clear_error();
  return oldest_error();
}

void silence_pass_phrase_prompt() { UI_set_default_method(UI_null()); }

}  // namespace halvex_test
