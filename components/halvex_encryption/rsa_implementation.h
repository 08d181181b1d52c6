// RSA (RFC 8017): what the algorithm-neutral classes need to know about it, and the two system
// variables that steer it. The conventions at the top of algorithm_implementation.h hold here too.

#ifndef HALVEX_ENCRYPTION_RSA_IMPLEMENTATION_H
#define HALVEX_ENCRYPTION_RSA_IMPLEMENTATION_H

#include <atomic>
#include <cstdint>
#include <string>
#include <unordered_map>

#include "dovrin/system_variable.h"
#include "halvex_encryption/algorithm_implementation.h"

namespace halvex_encryption::rsa {

// The storage of the system variable maximum_rsa_key_size, in bits: what the server displays and
// what records contain. Written by update while other threads read, hence accessed as a relaxed
// atomic.
extern std::int32_t maximum_rsa_key_size_value;

// The copy that decides. Equal to the storage except during an update.
extern std::atomic<std::int32_t> maximum_rsa_key_size_current;

// The storage of the system variable rsa_support_legacy_padding, one byte that the server writes
// while other threads read.
extern bool rsa_support_legacy_padding_value;

// The legacy switch as it is now. Safe from any thread.
bool legacy_padding_is_supported() noexcept;

// The digests of the legacy verifier by upper-case name. Read-only once the component is loaded;
// empty if that ran out of memory, and init() fails then.
using Legacy_digest_table = std::unordered_map<std::string, const EVP_MD *>;
extern const Legacy_digest_table legacy_digests;

// The callbacks of maximum_rsa_key_size. check passes the value to update in a heap cell: a 64-bit
// integer whose address is in the save area.
struct RSA_system_variables_data {
  // Returns 0 to accept `value`, 1 to reject it, without a record; also 1 when out of memory.
  // Accepts 2048 to 16384 bits in steps of 1024.
  static int check(THD *thread, SYS_VAR *variable, void *save, st_dovrin_value *value) noexcept;

  // Installs what check accepted and releases the cell.
  static void update(THD *thread, SYS_VAR *variable, void *storage, const void *save) noexcept;
};

// Allows key lengths from 2048 bits to maximum_rsa_key_size, in steps of one.
class RSA_generate_validator : public Algorithm_validator {
 public:
  // A rejected `key_bits` is reported if `logs_failure`. A negative SQL value arrives as a huge
  // one.
  RSA_generate_validator(Function_metadata call_metadata, bool logs_failure,
                         std::uint64_t key_bits);

  [[nodiscard]] bool validate() noexcept override;

 private:
  bool log_failure;
  std::uint64_t key_size;
};

// True if `length`, in bits, is 0 or negative.
[[nodiscard]] bool check_length(int length) noexcept;

// Sets the length of the key to generate; the public exponent stays OpenSSL's. Silent.
[[nodiscard]] bool set_ctx_properties(EVP_PKEY_CTX *ctx, int bits) noexcept;

// A new RSA key, or the private key of any type that a PEM text contains.
class RSA_key_generate : public Key_generate_base {
 public:
  RSA_key_generate(Function_metadata call_metadata, int length_bits);
  RSA_key_generate(Function_metadata call_metadata, const char *pem, std::uint64_t pem_length);
};

// Fallback for a text that was not readable as a public key: reads it once more and accepts RSA
// keys only. Stores a key that the caller then owns, or null, through `key`.
void pkcs1_key_reader(EVP_PKEY **key, const char *pem, std::uint64_t pem_length) noexcept;

// RSAES-OAEP with SHA-1 (RFC 8017, 7.1), or RSAES-PKCS1-v1_5 (7.2), depending on
// `padding_mode`.
class RSA_encrypt_decrypt : public Key_usage_encryption {
 public:
  // `padding_mode` is RSA_PKCS1_OAEP_PADDING or RSA_PKCS1_PADDING.
  RSA_encrypt_decrypt(const std::string &function_name, const std::string &algorithm,
                      const char *pem, std::uint64_t pem_length, int padding_mode);

  // The longest input is the size of the modulus with a private key, 42 bytes less with a public
  // one.
  [[nodiscard]] bool supported_length(std::uint64_t length) noexcept override;
  [[nodiscard]] bool set_ctx_properties(EVP_PKEY_CTX *ctx) noexcept override;

 private:
  std::int32_t padding;
  std::int32_t padding_overhead;
};

// RSASSA-PSS (RFC 8017, 8.1) with `padding_mode` RSA_PKCS1_PSS_PADDING; salt and mask generation
// are OpenSSL's defaults.
class RSA_sign_verify : public Key_usage_sign {
 public:
  RSA_sign_verify(Key_reader reader_of_key, Function_metadata call_metadata, int padding_mode);

  [[nodiscard]] bool set_ctx_properties(EVP_MD_CTX *md_ctx,
                                        EVP_PKEY_CTX *pkey_ctx) noexcept override;

 private:
  std::int32_t padding;
};

// Verifies RSASSA-PKCS1-v1_5 (RFC 8017, 8.2) with the digest itself as the message. Intentional:
// only an error of OpenSSL fails; a signature that merely does not match passes. Reports nothing.
class RSA_legacy_verifier : public Key_usage_sign {
 public:
  using Key_usage_sign::Key_usage_sign;

  // Always fails and touches nothing.
  [[nodiscard]] bool sign(const unsigned char *message, std::uint64_t message_length,
                          unsigned char *signature, std::uint64_t signature_capacity,
                          unsigned long *signature_length,
                          const std::string &digest_type) noexcept override;
  [[nodiscard]] bool verify(const unsigned char *message, std::uint64_t message_length,
                            const unsigned char *signature, std::uint64_t signature_length,
                            const std::string &digest_type) noexcept override;
  [[nodiscard]] bool set_ctx_properties(EVP_MD_CTX *md_ctx,
                                        EVP_PKEY_CTX *pkey_ctx) noexcept override;
};

}  // namespace halvex_encryption::rsa

#endif  // HALVEX_ENCRYPTION_RSA_IMPLEMENTATION_H
