// Keys and what is done with them, for any algorithm: reading and generating keys, writing them as
// PEM, encryption, signatures. All of it is OpenSSL's EVP interface.
//
// What holds for the whole file:
// - Operations that return bool return true on failure; `validate` is the exception.
// - The code that notices a failure reports it, once; the comments name failures without a record.
// - Every object serves one row call on one thread. OpenSSL errors stay in the thread's queue; the
//   row callback clears it on its way out.
// - Only copying strings can throw (std::bad_alloc), so constructors may; operations never do.
// - Lengths are bytes unless they are called bits.

#ifndef HALVEX_ENCRYPTION_ALGORITHM_IMPLEMENTATION_H
#define HALVEX_ENCRYPTION_ALGORITHM_IMPLEMENTATION_H

#include <openssl/bio.h>
#include <openssl/evp.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "halvex_encryption/function_metadata.h"
#include "halvex_encryption/openssl_owners.h"

namespace halvex_encryption {

// The digest of an upper-case name (SHA-2: FIPS 180-4, SHA-3: FIPS 202), or null for any other
// text. The digest belongs to OpenSSL. Safe from any thread.
const EVP_MD *get_digest_mode(const std::string &name) noexcept;

// A read-only stream over the caller's bytes, which must outlive it; null when out of memory. The
// length is narrowed to the `int` that OpenSSL takes.
Bio_ptr memory_stream(const char *bytes, std::uint64_t length) noexcept;

// A reader of keys: stores a key that the caller then owns, or null, through the first argument.
using Read_function =
    std::function<void(EVP_PKEY **key, const char *pem, std::uint64_t pem_length)>;

// The key that an SQL caller passed as PEM text (RFC 7468), of any type that OpenSSL reads. An
// unreadable text leaves `key` empty, after one record with OpenSSL's reason; every user of `key`
// treats an empty key as failure. A key under a pass phrase counts as unreadable.
struct Key_reader {
  // Reads `pem_length` bytes at `pem`, which need no terminator. `reader` is tried when a public
  // key was not readable; it must not be empty (std::bad_function_call) and is not kept.
  Key_reader(const std::string &function_name, const std::string &algorithm, const char *pem,
             std::uint64_t pem_length, const Read_function &reader);

  Pkey_ptr key;
  bool is_private = false;  // the text contains "PRIVATE KEY", whether or not it was readable
  Function_metadata metadata;
};

// Decides whether the parameters of an operation are allowed.
class Algorithm_validator {
 public:
  explicit Algorithm_validator(Function_metadata call_metadata);
  virtual ~Algorithm_validator() = default;
  Algorithm_validator(const Algorithm_validator &) = delete;
  Algorithm_validator &operator=(const Algorithm_validator &) = delete;

  // True if they are.
  [[nodiscard]] virtual bool validate() noexcept = 0;

 protected:
  Function_metadata metadata;
};

// One key, generated or read, and its two PEM forms. Without a key both operations fail silently.
class Key_generate_base {
 public:
  // Returns true for a length in bits that must not be generated.
  using Length_check = std::function<bool(int length)>;
  // Prepares a key generation context; true on failure.
  using Context_configuration = std::function<bool(EVP_PKEY_CTX *ctx, int bits)>;

  // Generates a key of OpenSSL's `key_type` at once. A length that `is_invalid` rejects and a
  // failing `configure` leave no key, without a record; a failure of OpenSSL is reported.
  Key_generate_base(Function_metadata call_metadata, int length_bits, int key_type,
                    const Length_check &is_invalid, const Context_configuration &configure);

  // Reads a private key of whatever type OpenSSL reads, at once. An unreadable text is reported.
  Key_generate_base(Function_metadata call_metadata, const char *pem, std::uint64_t pem_length);

  virtual ~Key_generate_base() = default;
  Key_generate_base(const Key_generate_base &) = delete;
  Key_generate_base &operator=(const Key_generate_base &) = delete;

  // Writes the key as unencrypted PKCS#8 (RFC 5958) PEM text and a NUL into `out`, all of whose
  // `out_size` bytes are zeroed first; `*out_length` leaves the NUL out. A text that does not fit
  // is reported and leaves `out` zero and `*out_length` 0.
  [[nodiscard]] virtual bool private_key(char *out, unsigned long out_size,
                                         unsigned long *out_length) noexcept;

  // The same for the public half, as SubjectPublicKeyInfo (RFC 5280).
  [[nodiscard]] virtual bool public_key(char *out, unsigned long out_size,
                                        unsigned long *out_length) noexcept;

 private:
  [[nodiscard]] bool get_key(bool private_part, char *out, unsigned long out_size,
                             unsigned long *out_length) noexcept;

  Pkey_ptr key;
  Function_metadata metadata;
};

// Encryption with a public key and decryption with a private key. What depends on the algorithm
// comes from the class that implements the two pure operations.
class Key_usage_encryption {
 public:
  Key_usage_encryption(const std::string &function_name, const std::string &algorithm,
                       const char *pem, std::uint64_t pem_length,
                       const Read_function &fallback_reader);
  virtual ~Key_usage_encryption() = default;
  Key_usage_encryption(const Key_usage_encryption &) = delete;
  Key_usage_encryption &operator=(const Key_usage_encryption &) = delete;

  // Encrypts `data` into `out`. Fails silently on empty data, no capacity, no key or a private key;
  // reports a failure of OpenSSL and a capacity below what the key needs. `*out_length` is 0 after
  // a failure.
  [[nodiscard]] virtual bool encrypt(const unsigned char *data, std::uint64_t data_length,
                                     unsigned char *out, std::uint64_t out_capacity,
                                     unsigned long *out_length) noexcept;

  // Decrypts, likewise, with a private key only.
  [[nodiscard]] virtual bool decrypt(const unsigned char *data, std::uint64_t data_length,
                                     unsigned char *out, std::uint64_t out_capacity,
                                     unsigned long *out_length) noexcept;

  // True, and reported, when data of `length` bytes cannot be handled with this key; true without a
  // record when there is no key. Call it before the other two.
  [[nodiscard]] virtual bool supported_length(std::uint64_t length) noexcept = 0;

  // Sets the algorithm's parameters on `ctx`; silent.
  [[nodiscard]] virtual bool set_ctx_properties(EVP_PKEY_CTX *ctx) noexcept = 0;

 protected:
  Key_reader reader;
  Function_metadata metadata;

 private:
  struct Operation;
  [[nodiscard]] bool run(const Operation &operation, const unsigned char *data,
                         std::uint64_t data_length, unsigned char *out, std::uint64_t out_capacity,
                         unsigned long *out_length) noexcept;
};

// Signatures with a private key and their verification with a public key; the message is hashed
// here, with the digest whose upper-case name is given.
class Key_usage_sign {
 public:
  // Takes ownership of the key.
  Key_usage_sign(Key_reader reader_of_key, Function_metadata call_metadata);
  virtual ~Key_usage_sign() = default;
  Key_usage_sign(const Key_usage_sign &) = delete;
  Key_usage_sign &operator=(const Key_usage_sign &) = delete;

  // Signs `message` into `signature`. Fails silently on an empty message, no capacity, no key, a
  // public key or an unknown digest; reports a failure of OpenSSL and a capacity below what the key
  // needs.
  // `*signature_length` is 0 after a failure.
  [[nodiscard]] virtual bool sign(const unsigned char *message, std::uint64_t message_length,
                                  unsigned char *signature, std::uint64_t signature_capacity,
                                  unsigned long *signature_length,
                                  const std::string &digest_type) noexcept;

  // False if `signature` belongs to `message`. Fails silently on an empty message, no key, a
  // private key or an unknown digest; reports a failure of OpenSSL, of which a signature that does
  // not match is one.
  [[nodiscard]] virtual bool verify(const unsigned char *message, std::uint64_t message_length,
                                    const unsigned char *signature, std::uint64_t signature_length,
                                    const std::string &digest_type) noexcept;

  // Sets the algorithm's parameters; `pkey_ctx` belongs to `md_ctx`. Silent.
  [[nodiscard]] virtual bool set_ctx_properties(EVP_MD_CTX *md_ctx,
                                                EVP_PKEY_CTX *pkey_ctx) noexcept = 0;

 protected:
  Key_reader key_reader;
  Function_metadata metadata;

 private:
  using Init_function = int(EVP_MD_CTX *md_ctx, EVP_PKEY_CTX **pkey_ctx, const EVP_MD *digest,
                            ENGINE *engine, EVP_PKEY *key);
  // A context that `init` has prepared for the key and the digest of this name. Null on failure,
  // which is reported if it is OpenSSL's.
  Md_ctx_ptr begin(Init_function *init, const std::string &digest_type) noexcept;
};

}  // namespace halvex_encryption

#endif  // HALVEX_ENCRYPTION_ALGORITHM_IMPLEMENTATION_H
