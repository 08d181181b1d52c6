// The seven SQL functions: what the server calls for them.
//
// What holds for all of them:
// - init rejects a wrong number or type of arguments with a message that the user sees, and makes
//   the result buffer, an array of chars in `initid->ptr`; it never changes the argument types.
//   deinit wipes and frees it, also after a failed init. The server may put an array of its own
//   there, made with new char[], or free the buffer itself and leave null.
// - `initid->max_length` is trusted to be at most the size of the array at `initid->ptr`: row
//   callbacks write up to that many bytes, and deinit wipes them.
// - A row callback never raises an SQL error. Whatever fails gives SQL NULL and a record in the
// error
//   log; the calls without a record are listed at asymmetric_verify and create_digest. When OpenSSL
//   is out of memory, asymmetric_verify may have none either. An exception from copying a
//   string (std::bad_alloc) goes on to the server after `*is_null` is set and the OpenSSL queue is
//   cleared.
// - The algorithm is "RSA" in any letter case. Keys are PEM text. A result lies in `initid->ptr`
//   until the next row or deinit.
// - Row callbacks of different function instances may run at the same time.

#ifndef HALVEX_ENCRYPTION_FUNCTIONS_H
#define HALVEX_ENCRYPTION_FUNCTIONS_H

#include <array>
#include <string>

#include "dovrin/udf.h"

namespace halvex_encryption {

enum class Algorithm_type { RSA_ALGORITHM = 1, UNSUPPORTED_ALGORITHM = 2 };

class HX_functions {
 public:
  // create_asymmetric_priv_key(algorithm string, key_length integer)
  //   -> unencrypted PKCS#8 private key (RFC 5958) as PEM text, or NULL
  // `key_length` is in bits, from 2048 to the system variable maximum_rsa_key_size.
  static bool generate_private_key_init(UDF_INIT *initid, UDF_ARGS *args, char *message);
  static char *generate_private_key(UDF_INIT *initid, UDF_ARGS *args, char *result,
                                    unsigned long *length, unsigned char *is_null,
                                    unsigned char *error);

  // create_asymmetric_pub_key(algorithm string, private_key string)
  //   -> SubjectPublicKeyInfo public key (RFC 5280) as PEM text, or NULL
  // Of any private key that OpenSSL reads, RSA or not.
  static bool generate_public_key_init(UDF_INIT *initid, UDF_ARGS *args, char *message);
  static char *generate_public_key(UDF_INIT *initid, UDF_ARGS *args, char *result,
                                   unsigned long *length, unsigned char *is_null,
                                   unsigned char *error);

  // asymmetric_encrypt(algorithm string, data string, public_key string) -> ciphertext or NULL
  // RSAES-OAEP (RFC 8017); at most 42 bytes less data than the key has, at least one byte.
  static bool encrypt_init(UDF_INIT *initid, UDF_ARGS *args, char *message);
  static char *encrypt(UDF_INIT *initid, UDF_ARGS *args, char *result, unsigned long *length,
                       unsigned char *is_null, unsigned char *error);

  // asymmetric_decrypt(algorithm string, data string, private_key string) -> plaintext or NULL
  // RSAES-OAEP; while rsa_support_legacy_padding is on, RSAES-PKCS1-v1_5 is tried next.
  static bool decrypt_init(UDF_INIT *initid, UDF_ARGS *args, char *message);
  static char *decrypt(UDF_INIT *initid, UDF_ARGS *args, char *result, unsigned long *length,
                       unsigned char *is_null, unsigned char *error);

  // asymmetric_sign(algorithm string, content string, private_key string, digest_type string)
  //   -> RSASSA-PSS signature (RFC 8017) of the content, or NULL
  static bool sign_init(UDF_INIT *initid, UDF_ARGS *args, char *message);
  static char *sign(UDF_INIT *initid, UDF_ARGS *args, char *result, unsigned long *length,
                    unsigned char *is_null, unsigned char *error);

  // asymmetric_verify(algorithm string, content string, signature string, public_key string,
  //                   digest_type string) -> 1 or NULL, never 0
  // While rsa_support_legacy_padding is on, a signature that is not accepted is tried again as
  // RSASSA-PKCS1-v1_5 with `content` as the digest itself, leniently: only an error of OpenSSL
  // fails then. Without a record fail: an unknown digest type, a private key, empty content.
  static bool verify_init(UDF_INIT *initid, UDF_ARGS *args, char *message);
  static long long verify(UDF_INIT *initid, UDF_ARGS *args, unsigned char *is_null,
                          unsigned char *error);
  static void verify_deinit(UDF_INIT *initid) noexcept;

  // create_digest(digest_type string, text string) -> digest bytes or NULL
  // An unknown digest type gives NULL without a record.
  static bool digest_init(UDF_INIT *initid, UDF_ARGS *args, char *message);
  static char *digest(UDF_INIT *initid, UDF_ARGS *args, char *result, unsigned long *length,
                      unsigned char *is_null, unsigned char *error);

  // Wipes the first `max_length` bytes at `initid->ptr`, 12800 at most, releases the array with
  // delete[] and stores null; does nothing more if there is none. Bytes that the server excludes by
  // lowering `max_length` after a row are not wiped.
  static void string_function_deinit(UDF_INIT *initid) noexcept;

  // Upper-cases `name` in place and returns which algorithm it names.
  static Algorithm_type get_algorithm(std::string &name) noexcept;
};

// What the server is given to register one SQL function.
struct Function_registration {
  const char *name;
  Item_result result_type;
  Udf_func_any row;
  Udf_func_init init;
  Udf_func_deinit deinit;
};

// The seven functions in the order of registration.
std::array<Function_registration, 7> function_registrations() noexcept;

}  // namespace halvex_encryption

#endif  // HALVEX_ENCRYPTION_FUNCTIONS_H
