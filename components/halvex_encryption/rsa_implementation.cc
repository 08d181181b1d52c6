#include "halvex_encryption/rsa_implementation.h"

#include <openssl/pem.h>
#include <openssl/rsa.h>

#include <new>
#include <utility>

#include "halvex_encryption/key_size_limits.h"
#include "halvex_encryption/load_order.h"
#include "halvex_encryption/utilities.h"

namespace halvex_encryption::rsa {

namespace {

using utilities::report;
using utilities::Report_site;

constexpr const char *source_file = "rsa_implementation";
constexpr Report_site key_length_out_of_range{13921, 69, source_file, "validate"};
constexpr Report_site data_too_long{13924, 202, source_file, "supported_length"};

// OAEP with a 20-byte digest takes 2 * 20 + 2 bytes.
constexpr std::int32_t oaep_overhead = 42;

// Empty when out of memory: an exception while the object is loaded would end the server.
Legacy_digest_table make_legacy_digests() noexcept {
  try {
    return {
        {"SHA224", EVP_sha224()},
        {"SHA256", EVP_sha256()},
        {"SHA384", EVP_sha384()},
        {"SHA512", EVP_sha512()},
    };
  } catch (const std::bad_alloc &) {
    return {};
  }
}

}  // namespace

constinit std::int32_t maximum_rsa_key_size_value = key_size_limits.default_value;
constinit std::atomic<std::int32_t> maximum_rsa_key_size_current = key_size_limits.default_value;
constinit bool rsa_support_legacy_padding_value = false;

[[gnu::init_priority(load_order::legacy_digests)]] const Legacy_digest_table legacy_digests =
    make_legacy_digests();

bool legacy_padding_is_supported() noexcept {
  // As a byte, because the server may write any non-zero value, which reading a bool does not
  // allow.
  auto &byte = reinterpret_cast<unsigned char &>(rsa_support_legacy_padding_value);
  return std::atomic_ref{byte}.load(std::memory_order_relaxed) != 0;
}

int RSA_system_variables_data::check(THD * /*thread*/, SYS_VAR * /*variable*/, void *save,
                                     st_dovrin_value *value) noexcept {
  auto &slot = *static_cast<void **>(save);
  slot = nullptr;
  auto *cell = new (std::nothrow) long long{0};
  if (cell == nullptr) {
    return 1;
  }

  value->val_int(value, cell);

  // Intentional: only the low 32 bits count, as in the variable's storage; 2^32 + 4096 installs
  // 4096. A value that cannot be read has left 0, which the subtraction makes huge.
  const auto bits = static_cast<std::uint32_t>(*cell);
  constexpr Dovrin_int_limits limits = key_size_limits;
  if (bits - limits.minimum > limits.maximum - limits.minimum || bits % limits.block_size != 0) {
    delete cell;
    return 1;
  }
  slot = cell;
  return 0;
}

void RSA_system_variables_data::update(THD * /*thread*/, SYS_VAR * /*variable*/, void * /*storage*/,
                                       const void *save) noexcept {
  const auto *cell = *static_cast<const long long *const *>(save);
  const auto bits = static_cast<std::int32_t>(*cell);
  std::atomic_ref{maximum_rsa_key_size_value}.store(bits, std::memory_order_relaxed);
  maximum_rsa_key_size_current.exchange(bits);
  delete cell;
}

RSA_generate_validator::RSA_generate_validator(Function_metadata call_metadata, bool logs_failure,
                                               std::uint64_t key_bits)
    : Algorithm_validator{std::move(call_metadata)},
      log_failure{logs_failure},
      key_size{key_bits} {}

bool RSA_generate_validator::validate() noexcept {
  const std::int64_t maximum = maximum_rsa_key_size_current.load();
  if (key_size >= key_size_limits.minimum && key_size <= static_cast<std::uint64_t>(maximum)) {
    return true;
  }
  if (log_failure) {
    const long long shown_maximum =
        std::atomic_ref{maximum_rsa_key_size_value}.load(std::memory_order_relaxed);
    report(key_length_out_of_range, static_cast<unsigned long long>(key_size),
           metadata.function_name.c_str(), metadata.algorithm.c_str(),
           static_cast<long long>(key_size_limits.minimum), shown_maximum);
  }
  return false;
}

bool check_length(int length) noexcept { return length <= 0; }

bool set_ctx_properties(EVP_PKEY_CTX *ctx, int bits) noexcept {
  return ctx == nullptr || bits == 0 || EVP_PKEY_CTX_set_rsa_keygen_bits(ctx, bits) < 1;
}

RSA_key_generate::RSA_key_generate(Function_metadata call_metadata, int length_bits)
    : Key_generate_base{
          std::move(call_metadata), length_bits, EVP_PKEY_RSA, check_length,
          static_cast<bool (*)(EVP_PKEY_CTX *, int) noexcept>(rsa::set_ctx_properties)} {}

RSA_key_generate::RSA_key_generate(Function_metadata call_metadata, const char *pem,
                                   std::uint64_t pem_length)
    : Key_generate_base{std::move(call_metadata), pem, pem_length} {}

// Intentional: it parses with the reader that has just failed on the text. Which public-key forms
// are accepted is that one call's decision; this adds nothing but the test for RSA.
void pkcs1_key_reader(EVP_PKEY **key, const char *pem, std::uint64_t pem_length) noexcept {
  const Bio_ptr bio = memory_stream(pem, pem_length);
  Pkey_ptr read{PEM_read_bio_PUBKEY(bio.get(), nullptr, nullptr, nullptr)};
  if (read && EVP_PKEY_is_a(read.get(), "RSA") == 0) {
    read.reset();
  }
  *key = read.release();
}

RSA_encrypt_decrypt::RSA_encrypt_decrypt(const std::string &function_name,
                                         const std::string &algorithm, const char *pem,
                                         std::uint64_t pem_length, int padding_mode)
    : Key_usage_encryption{function_name, algorithm, pem, pem_length, pkcs1_key_reader},
      padding{padding_mode},
      padding_overhead{oaep_overhead} {}

bool RSA_encrypt_decrypt::supported_length(std::uint64_t length) noexcept {
  if (!reader.key) {
    return true;
  }
  const int size = EVP_PKEY_get_size(reader.key.get());
  const long long limit = reader.is_private ? size : size - padding_overhead;
  // Intentional: unsigned. A key of fewer than 42 bytes has a negative limit, which accepts any
  // length; OpenSSL rejects the data then.
  if (static_cast<std::uint64_t>(limit) >= length) {
    return false;
  }
  report(data_too_long, static_cast<unsigned long long>(length), metadata.function_name.c_str(),
         metadata.algorithm.c_str(), limit);
  return true;
}

bool RSA_encrypt_decrypt::set_ctx_properties(EVP_PKEY_CTX *ctx) noexcept {
  if (ctx == nullptr) {
    return true;
  }
  // Intentional: the result is ignored. A key type without padding goes on without one.
  static_cast<void>(EVP_PKEY_CTX_set_rsa_padding(ctx, padding));
  return false;
}

RSA_sign_verify::RSA_sign_verify(Key_reader reader_of_key, Function_metadata call_metadata,
                                 int padding_mode)
    : Key_usage_sign{std::move(reader_of_key), std::move(call_metadata)}, padding{padding_mode} {}

bool RSA_sign_verify::set_ctx_properties(EVP_MD_CTX * /*md_ctx*/, EVP_PKEY_CTX *pkey_ctx) noexcept {
  if (pkey_ctx == nullptr) {
    return true;
  }
  // Intentional: the result is ignored. EC and DSA keys have no padding and sign without one.
  static_cast<void>(EVP_PKEY_CTX_set_rsa_padding(pkey_ctx, padding));
  return false;
}

bool RSA_legacy_verifier::sign(const unsigned char * /*message*/, std::uint64_t /*message_length*/,
                               unsigned char * /*signature*/, std::uint64_t /*signature_capacity*/,
                               unsigned long * /*signature_length*/,
                               const std::string & /*digest_type*/) noexcept {
  return true;
}

bool RSA_legacy_verifier::verify(const unsigned char *message, std::uint64_t message_length,
                                 const unsigned char *signature, std::uint64_t signature_length,
                                 const std::string &digest_type) noexcept {
  if (!key_reader.key || message_length == 0 || key_reader.is_private) {
    return true;
  }
  const auto digest = legacy_digests.find(digest_type);
  if (digest == legacy_digests.end()) {
    return true;
  }

  const Pkey_ctx_ptr pkey_ctx{EVP_PKEY_CTX_new(key_reader.key.get(), nullptr)};
  if (!pkey_ctx || EVP_PKEY_verify_init(pkey_ctx.get()) < 0 ||
      EVP_PKEY_CTX_set_signature_md(pkey_ctx.get(), digest->second) <= 0) {
    return true;
  }
  // Intentional: 0, a signature that does not match, passes; kept for compatibility.
  return EVP_PKEY_verify(pkey_ctx.get(), signature, signature_length, message, message_length) < 0;
}

bool RSA_legacy_verifier::set_ctx_properties(EVP_MD_CTX * /*md_ctx*/,
                                             EVP_PKEY_CTX * /*pkey_ctx*/) noexcept {
  return false;
}

}  // namespace halvex_encryption::rsa
