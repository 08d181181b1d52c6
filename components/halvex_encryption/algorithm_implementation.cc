#include "halvex_encryption/algorithm_implementation.h"

#include <openssl/crypto.h>
#include <openssl/pem.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>
#include <utility>

#include "halvex_encryption/utilities.h"

namespace halvex_encryption {

namespace {

using utilities::handle_openssl_error;
using utilities::report;
using utilities::Report_site;

constexpr const char *source_file = "algorithm_implementation";
constexpr Report_site short_key_buffer{13929, 168, source_file, "get_key"};
constexpr Report_site short_encrypt_buffer{13929, 258, source_file, "encrypt"};
constexpr Report_site short_decrypt_buffer{13929, 318, source_file, "decrypt"};
constexpr Report_site short_signature_buffer{13929, __LINE__, source_file, "sign"};

struct Named_digest {
  std::string_view name;
  const EVP_MD *(*digest)();
};

constexpr std::array<Named_digest, 8> digests{{
    {"SHA224", EVP_sha224},
    {"SHA256", EVP_sha256},
    {"SHA384", EVP_sha384},
    {"SHA512", EVP_sha512},
    {"SHA3-224", EVP_sha3_224},
    {"SHA3-256", EVP_sha3_224},  // Intentional: part of the interface
    {"SHA3-384", EVP_sha3_384},
    {"SHA3-512", EVP_sha3_512},
}};

// Clears a string when its owner leaves, by return or by exception.
class Wipe_on_exit {
 public:
  explicit Wipe_on_exit(std::string &text) noexcept : text_{text} {}
  ~Wipe_on_exit() { OPENSSL_cleanse(text_.data(), text_.size()); }
  Wipe_on_exit(const Wipe_on_exit &) = delete;
  Wipe_on_exit &operator=(const Wipe_on_exit &) = delete;

 private:
  std::string &text_;
};

// Searches the whole text, not for a label line: a comment with these words makes any text private.
// Copying a null text of non-zero length throws std::logic_error; no SQL argument is one.
bool contains_private_key_label(const char *pem, std::uint64_t pem_length) {
  std::string text(pem, pem_length);
  const Wipe_on_exit wipe{text};
  return text.find("PRIVATE KEY") != std::string::npos;
}

// Reports the failed OpenSSL call of an operation. Always true.
[[nodiscard]] bool report_openssl_error(const Function_metadata &metadata) noexcept {
  handle_openssl_error(metadata.function_name, metadata.algorithm);
  return true;
}

// Always true.
[[nodiscard]] bool report_short_buffer(const Report_site &site, const Function_metadata &metadata,
                                       unsigned long long capacity,
                                       unsigned long long needed) noexcept {
  report(site, metadata.function_name.c_str(), metadata.algorithm.c_str(), capacity, needed);
  return true;
}

}  // namespace

const EVP_MD *get_digest_mode(const std::string &name) noexcept {
  const auto *const found = std::find_if(digests.begin(), digests.end(),
                                         [&](const Named_digest &row) { return row.name == name; });
  return found == digests.end() ? nullptr : found->digest();
}

Bio_ptr memory_stream(const char *bytes, std::uint64_t length) noexcept {
  return Bio_ptr{BIO_new_mem_buf(bytes, static_cast<int>(length))};
}

Key_reader::Key_reader(const std::string &function_name, const std::string &algorithm,
                       const char *pem, std::uint64_t pem_length, const Read_function &reader)
    : metadata{function_name, algorithm} {
  is_private = contains_private_key_label(pem, pem_length);
  const Bio_ptr bio = memory_stream(pem, pem_length);

  if (is_private) {
    key.reset(PEM_read_bio_PrivateKey(bio.get(), nullptr, nullptr, nullptr));
  } else {
    key.reset(PEM_read_bio_PUBKEY(bio.get(), nullptr, nullptr, nullptr));
    if (!key) {
      EVP_PKEY *read_otherwise = nullptr;
      reader(&read_otherwise, pem, pem_length);
      key.reset(read_otherwise);
    }
  }
  if (!key) {
    handle_openssl_error(metadata.function_name, metadata.algorithm);
  }
}

Algorithm_validator::Algorithm_validator(Function_metadata call_metadata)
    : metadata{std::move(call_metadata)} {}

Key_generate_base::Key_generate_base(Function_metadata call_metadata, int length_bits, int key_type,
                                     const Length_check &is_invalid,
                                     const Context_configuration &configure)
    : metadata{std::move(call_metadata)} {
  if (is_invalid(length_bits)) {
    return;
  }

  const Pkey_ctx_ptr ctx{EVP_PKEY_CTX_new_id(key_type, nullptr)};
  if (!ctx || EVP_PKEY_keygen_init(ctx.get()) < 1) {
    handle_openssl_error(metadata.function_name, metadata.algorithm);
    return;
  }
  if (configure(ctx.get(), length_bits)) {
    return;
  }

  EVP_PKEY *generated = nullptr;
  if (EVP_PKEY_keygen(ctx.get(), &generated) <= 0) {
    handle_openssl_error(metadata.function_name, metadata.algorithm);
  }
  key.reset(generated);
}

Key_generate_base::Key_generate_base(Function_metadata call_metadata, const char *pem,
                                     std::uint64_t pem_length)
    : metadata{std::move(call_metadata)} {
  const Bio_ptr bio = memory_stream(pem, pem_length);
  key.reset(PEM_read_bio_PrivateKey(bio.get(), nullptr, nullptr, nullptr));
  if (!key) {
    handle_openssl_error(metadata.function_name, metadata.algorithm);
  }
}

bool Key_generate_base::private_key(char *out, unsigned long out_size,
                                    unsigned long *out_length) noexcept {
  return get_key(true, out, out_size, out_length);
}

bool Key_generate_base::public_key(char *out, unsigned long out_size,
                                   unsigned long *out_length) noexcept {
  return get_key(false, out, out_size, out_length);
}

bool Key_generate_base::get_key(bool private_part, char *out, unsigned long out_size,
                                unsigned long *out_length) noexcept {
  std::memset(out, 0, out_size);
  *out_length = 0;
  if (!key) {
    return true;
  }

  // The PEM writers crash on a null stream.
  const Bio_ptr bio{BIO_new(BIO_s_mem())};
  if (!bio) {
    return report_openssl_error(metadata);
  }
  const int written = private_part ? PEM_write_bio_PrivateKey(bio.get(), key.get(), nullptr,
                                                              nullptr, 0, nullptr, nullptr)
                                   : PEM_write_bio_PUBKEY(bio.get(), key.get());
  if (written == 0) {
    return report_openssl_error(metadata);
  }

  const int length = static_cast<int>(BIO_ctrl(bio.get(), BIO_CTRL_INFO, 0, nullptr));
  const unsigned long needed = static_cast<unsigned long>(length) + 1;
  if (out_size < needed) {
    return report_short_buffer(short_key_buffer, metadata, out_size, needed);
  }
  if (BIO_read(bio.get(), out, length) != length || length == 0) {
    OPENSSL_cleanse(out, needed);
    return report_openssl_error(metadata);
  }
  out[length] = '\0';
  *out_length = needed - 1;
  return false;
}

struct Key_usage_encryption::Operation {
  bool wants_private_key;
  int (*init)(EVP_PKEY_CTX *ctx);
  int (*transform)(EVP_PKEY_CTX *ctx, unsigned char *out, size_t *out_length,
                   const unsigned char *data, size_t data_length);
  Report_site short_buffer;
};

Key_usage_encryption::Key_usage_encryption(const std::string &function_name,
                                           const std::string &algorithm, const char *pem,
                                           std::uint64_t pem_length,
                                           const Read_function &fallback_reader)
    : reader{function_name, algorithm, pem, pem_length, fallback_reader},
      metadata{function_name, algorithm} {}

bool Key_usage_encryption::encrypt(const unsigned char *data, std::uint64_t data_length,
                                   unsigned char *out, std::uint64_t out_capacity,
                                   unsigned long *out_length) noexcept {
  constexpr Operation encryption{false, EVP_PKEY_encrypt_init, EVP_PKEY_encrypt,
                                 short_encrypt_buffer};
  return run(encryption, data, data_length, out, out_capacity, out_length);
}

bool Key_usage_encryption::decrypt(const unsigned char *data, std::uint64_t data_length,
                                   unsigned char *out, std::uint64_t out_capacity,
                                   unsigned long *out_length) noexcept {
  constexpr Operation decryption{true, EVP_PKEY_decrypt_init, EVP_PKEY_decrypt,
                                 short_decrypt_buffer};
  return run(decryption, data, data_length, out, out_capacity, out_length);
}

bool Key_usage_encryption::run(const Operation &operation, const unsigned char *data,
                               std::uint64_t data_length, unsigned char *out,
                               std::uint64_t out_capacity, unsigned long *out_length) noexcept {
  *out_length = 0;
  if (data_length == 0 || out_capacity == 0 || !reader.key ||
      reader.is_private != operation.wants_private_key) {
    return true;
  }

  const Pkey_ctx_ptr ctx{EVP_PKEY_CTX_new(reader.key.get(), nullptr)};
  if (!ctx || operation.init(ctx.get()) <= 0) {
    return report_openssl_error(metadata);
  }
  if (set_ctx_properties(ctx.get())) {
    return true;
  }

  size_t needed = 0;
  if (operation.transform(ctx.get(), nullptr, &needed, data, data_length) <= 0) {
    return report_openssl_error(metadata);
  }
  if (out_capacity < needed) {
    return report_short_buffer(operation.short_buffer, metadata, out_capacity, needed);
  }
  if (operation.transform(ctx.get(), out, &needed, data, data_length) <= 0) {
    return report_openssl_error(metadata);
  }
  *out_length = needed;
  return false;
}

Key_usage_sign::Key_usage_sign(Key_reader reader_of_key, Function_metadata call_metadata)
    : key_reader{std::move(reader_of_key)}, metadata{std::move(call_metadata)} {}

Md_ctx_ptr Key_usage_sign::begin(Init_function *init, const std::string &digest_type) noexcept {
  const EVP_MD *const digest = get_digest_mode(digest_type);
  if (digest == nullptr) {
    return nullptr;
  }
  Md_ctx_ptr md_ctx{EVP_MD_CTX_new()};
  if (!md_ctx) {
    return nullptr;
  }
  EVP_PKEY_CTX *pkey_ctx = nullptr;  // belongs to md_ctx
  if (init(md_ctx.get(), &pkey_ctx, digest, nullptr, key_reader.key.get()) <= 0) {
    handle_openssl_error(metadata.function_name, metadata.algorithm);
    return nullptr;
  }
  return set_ctx_properties(md_ctx.get(), pkey_ctx) ? nullptr : std::move(md_ctx);
}

bool Key_usage_sign::sign(const unsigned char *message, std::uint64_t message_length,
                          unsigned char *signature, std::uint64_t signature_capacity,
                          unsigned long *signature_length,
                          const std::string &digest_type) noexcept {
  *signature_length = 0;
  if (message_length == 0 || signature_capacity == 0 || !key_reader.key || !key_reader.is_private) {
    return true;
  }
  const Md_ctx_ptr md_ctx = begin(EVP_DigestSignInit, digest_type);
  if (!md_ctx) {
    return true;
  }

  size_t needed = 0;
  if (EVP_DigestSignUpdate(md_ctx.get(), message, message_length) <= 0 ||
      EVP_DigestSignFinal(md_ctx.get(), nullptr, &needed) <= 0) {
    return report_openssl_error(metadata);
  }
  if (signature_capacity < needed) {
    return report_short_buffer(short_signature_buffer, metadata, signature_capacity, needed);
  }
  if (EVP_DigestSignFinal(md_ctx.get(), signature, &needed) <= 0) {
    return report_openssl_error(metadata);
  }
  *signature_length = needed;
  return false;
}

bool Key_usage_sign::verify(const unsigned char *message, std::uint64_t message_length,
                            const unsigned char *signature, std::uint64_t signature_length,
                            const std::string &digest_type) noexcept {
  if (!key_reader.key || message_length == 0 || key_reader.is_private) {
    return true;
  }
  const Md_ctx_ptr md_ctx = begin(EVP_DigestVerifyInit, digest_type);
  if (!md_ctx) {
    return true;
  }
  if (EVP_DigestVerifyUpdate(md_ctx.get(), message, message_length) <= 0 ||
      EVP_DigestVerifyFinal(md_ctx.get(), signature, signature_length) != 1) {
    return report_openssl_error(metadata);
  }
  return false;
}

}  // namespace halvex_encryption
