#include "halvex_encryption/functions.h"

#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <span>

#include "halvex_encryption/function_metadata.h"
#include "halvex_encryption/load_order.h"
#include "halvex_encryption/rsa_implementation.h"
#include "halvex_encryption/utilities.h"

namespace halvex_encryption {

namespace {

using utilities::at_this_line;
using utilities::handle_openssl_error;
using utilities::line_of_call;
using utilities::report;
using utilities::Report_site;

constexpr const char *create_private_key_name = "create_asymmetric_priv_key";
constexpr const char *create_public_key_name = "create_asymmetric_pub_key";
constexpr const char *encrypt_name = "asymmetric_encrypt";
constexpr const char *decrypt_name = "asymmetric_decrypt";
constexpr const char *sign_name = "asymmetric_sign";
constexpr const char *verify_name = "asymmetric_verify";
constexpr const char *digest_name = "create_digest";

constexpr const char *source_file = "functions";
constexpr int warning = DOVRIN_PRIORITY_WARNING;

constexpr Report_site null_for_private_key{13919, 192, source_file, "generate_private_key",
                                           warning};
constexpr Report_site null_for_public_key{13919, 262, source_file, "generate_public_key", warning};
constexpr Report_site null_for_encrypt{13919, 334, source_file, "encrypt", warning};
constexpr Report_site null_for_decrypt{13919, 411, source_file, "decrypt", warning};
constexpr Report_site null_for_sign{13919, line_of_call, source_file, "sign", warning};
constexpr Report_site null_for_verify{13919, line_of_call, source_file, "verify", warning};
constexpr Report_site null_for_digest{13919, line_of_call, source_file, "digest", warning};

constexpr Report_site algorithm_for_private_key{13920, 221, source_file, "generate_private_key"};
constexpr Report_site algorithm_for_public_key{13920, 285, source_file, "generate_public_key"};
constexpr Report_site algorithm_for_encrypt{13920, 362, source_file, "encrypt"};
constexpr Report_site algorithm_for_decrypt{13920, 453, source_file, "decrypt"};
constexpr Report_site algorithm_for_sign{13920, line_of_call, source_file, "sign"};
constexpr Report_site algorithm_for_verify{13920, line_of_call, source_file, "verify"};

constexpr Report_site private_key_failed{13922, 213, source_file, "generate_private_key"};
constexpr Report_site public_key_failed{13923, 277, source_file, "generate_public_key"};
constexpr Report_site encryption_failed{13925, 354, source_file, "encrypt"};
constexpr Report_site decryption_failed{13926, 435, source_file, "operator()"};
constexpr Report_site signing_failed{13927, line_of_call, source_file, "sign"};

constexpr std::size_t result_buffer_size = 12800;

// An object, not a number, because only objects can be given a place in the load order.
struct Largest_digest {
  const std::size_t size = static_cast<std::size_t>(EVP_MD_get_size(EVP_sha3_512()));
};
[[gnu::init_priority(load_order::digest_buffer_size)]] const Largest_digest largest_digest;

// What an init callback wants of one argument, and what it says otherwise.
struct Expected_argument {
  Item_result type;
  const char *refusal;
};

constexpr Expected_argument algorithm_argument{
    STRING_RESULT, "Mismatch in type of argument. Expected string argument for algorithm."};

constexpr Expected_argument private_key_arguments[]{
    algorithm_argument,
    {INT_RESULT, "Mismatch in type of argument. Expected integer argument of key length."},
};
constexpr Expected_argument public_key_arguments[]{
    algorithm_argument,
    {STRING_RESULT, "Mismatch in type of argument. Expected string argument for private key."},
};
constexpr Expected_argument encrypt_arguments[]{
    algorithm_argument,
    {STRING_RESULT,
     "Mismatch in type of argument. Expected string arguments for content to be encrypted."},
    {STRING_RESULT, "Mismatch in type of argument. Expected string arguments for public key."},
};
constexpr Expected_argument decrypt_arguments[]{
    algorithm_argument,
    {STRING_RESULT,
     "Mismatch in type of argument. Expected string arguments for content to be decrypted."},
    {STRING_RESULT, "Mismatch in type of argument. Expected string arguments for private key."},
};
constexpr Expected_argument sign_arguments[]{
    algorithm_argument,
    {STRING_RESULT,
     "Mismatch in type of argument. Expected string arguments for content to be signed."},
    {STRING_RESULT, "Mismatch in type of argument. Expected string arguments for private key."},
    {STRING_RESULT, "Mismatch in type of argument. Expected string arguments for digest type."},
};
constexpr Expected_argument verify_arguments[]{
    algorithm_argument,
    {STRING_RESULT,
     "Mismatch in type of argument. Expected string arguments for content to be verified."},
    {STRING_RESULT, "Mismatch in type of argument. Expected string arguments for signature."},
    {STRING_RESULT, "Mismatch in type of argument. Expected string arguments for public key."},
    {STRING_RESULT, "Mismatch in type of argument. Expected string arguments for digest type."},
};
// The first argument is a digest type, yet its refusal speaks of the algorithm, as everywhere:
// meant.
constexpr Expected_argument digest_arguments[]{
    algorithm_argument,
    {STRING_RESULT, "Mismatch in type of argument. Expected string argument for text."},
};

// Writes the refusal into `message` and returns true unless the arguments are the expected ones.
bool arguments_are_refused(const UDF_ARGS *args, std::span<const Expected_argument> expected,
                           char *message) noexcept {
  if (args->arg_count != expected.size()) {
    static_cast<void>(
        std::snprintf(message, DOVRIN_UDF_MESSAGE_SIZE,
                      "Mismatch in number of arguments to the function. Expected %d arguments",
                      static_cast<int>(expected.size())));
    return true;
  }
  for (std::size_t i = 0; i < expected.size(); ++i) {
    if (args->arg_type[i] != expected[i].type) {
      static_cast<void>(std::snprintf(message, DOVRIN_UDF_MESSAGE_SIZE, "%s", expected[i].refusal));
      return true;
    }
  }
  return false;
}

// The init callback of every string function.
bool string_function_init(UDF_INIT *initid, const UDF_ARGS *args, char *message,
                          std::span<const Expected_argument> expected, std::size_t buffer_size) {
  initid->ptr = nullptr;  // before any check: deinit follows a refusal too
  if (arguments_are_refused(args, expected, message)) {
    return true;
  }
  initid->ptr = new char[buffer_size]();
  initid->max_length = buffer_size;
  initid->maybe_null = true;
  return false;
}

// True, and reported, if one of the arguments is NULL.
bool lacks_argument(const UDF_ARGS *args, std::span<const Expected_argument> expected,
                    const Report_site &site, const char *function_name,
                    const char *requirement) noexcept {
  if (std::none_of(args->args, args->args + expected.size(),
                   [](const char *argument) { return argument == nullptr; })) {
    return false;
  }
  report(site, function_name, requirement);
  return true;
}

// Upper-cases `algorithm`; true, and reported, if it is none that is supported.
bool is_unsupported(std::string &algorithm, const Report_site &site,
                    const char *function_name) noexcept {
  if (HX_functions::get_algorithm(algorithm) == Algorithm_type::RSA_ALGORITHM) {
    return false;
  }
  report(site, algorithm.c_str(), function_name);
  return true;
}

std::string text_argument(const UDF_ARGS *args, std::size_t index) {
  return {args->args[index], args->lengths[index]};
}

const unsigned char *bytes(const char *text) noexcept {
  return reinterpret_cast<const unsigned char *>(text);
}

unsigned char *bytes(char *text) noexcept { return reinterpret_cast<unsigned char *>(text); }

// How a row call ends. Made before everything else in the call, so that it acts after all else is
// released, on return and on exception alike: unless `succeed` was called, the result is NULL and
// the OpenSSL queue is cleared.
class Row_exit {
 public:
  enum class Queue_on_success { cleared, left_alone };

  explicit Row_exit(unsigned char *is_null,
                    Queue_on_success queue = Queue_on_success::cleared) noexcept
      : is_null_{is_null}, queue_{queue} {}

  ~Row_exit() {
    if (!succeeded_ || queue_ == Queue_on_success::cleared) {
      ERR_clear_error();
    }
    if (!succeeded_) {
      *is_null_ = 1;
    }
  }

  Row_exit(const Row_exit &) = delete;
  Row_exit &operator=(const Row_exit &) = delete;

  template <typename Result>
  Result succeed(Result result) noexcept {
    succeeded_ = true;
    return result;
  }

 private:
  unsigned char *is_null_;
  Queue_on_success queue_;
  bool succeeded_ = false;
};

}  // namespace

Algorithm_type HX_functions::get_algorithm(std::string &name) noexcept {
  upper_case(name);
  return name == "RSA" ? Algorithm_type::RSA_ALGORITHM : Algorithm_type::UNSUPPORTED_ALGORITHM;
}

void HX_functions::string_function_deinit(UDF_INIT *initid) noexcept {
  if (initid->ptr != nullptr) {
    OPENSSL_cleanse(initid->ptr, std::min<std::size_t>(initid->max_length, result_buffer_size));
    delete[] initid->ptr;
  }
  initid->ptr = nullptr;
}

bool HX_functions::generate_private_key_init(UDF_INIT *initid, UDF_ARGS *args, char *message) {
  return string_function_init(initid, args, message, private_key_arguments, result_buffer_size);
}

char *HX_functions::generate_private_key(UDF_INIT *initid, UDF_ARGS *args, char * /*result*/,
                                         unsigned long *length, unsigned char *is_null,
                                         unsigned char * /*error*/) {
  Row_exit row_exit{is_null};
  if (lacks_argument(args, private_key_arguments, null_for_private_key, create_private_key_name,
                     "Non-null value for algorithm and a positive integer value for key size")) {
    return nullptr;
  }

  const long long key_length = *reinterpret_cast<const long long *>(args->args[1]);
  std::string algorithm = text_argument(args, 0);
  if (is_unsupported(algorithm, algorithm_for_private_key, create_private_key_name)) {
    return nullptr;
  }

  const Function_metadata metadata{create_private_key_name, algorithm};
  rsa::RSA_generate_validator validator{metadata, true, static_cast<std::uint64_t>(key_length)};
  if (!validator.validate()) {
    return nullptr;
  }

  rsa::RSA_key_generate generator{metadata, static_cast<int>(key_length)};
  if (generator.private_key(initid->ptr, initid->max_length, length)) {
    report(private_key_failed, key_length, algorithm.c_str(), create_private_key_name);
    return nullptr;
  }
  return row_exit.succeed(initid->ptr);
}

bool HX_functions::generate_public_key_init(UDF_INIT *initid, UDF_ARGS *args, char *message) {
  return string_function_init(initid, args, message, public_key_arguments, result_buffer_size);
}

char *HX_functions::generate_public_key(UDF_INIT *initid, UDF_ARGS *args, char * /*result*/,
                                        unsigned long *length, unsigned char *is_null,
                                        unsigned char * /*error*/) {
  Row_exit row_exit{is_null};
  if (lacks_argument(args, public_key_arguments, null_for_public_key, create_public_key_name,
                     "Non-null value for algorithm and private key")) {
    return nullptr;
  }

  std::string algorithm = text_argument(args, 0);
  if (is_unsupported(algorithm, algorithm_for_public_key, create_public_key_name)) {
    return nullptr;
  }

  rsa::RSA_key_generate key{Function_metadata{create_public_key_name, algorithm}, args->args[1],
                            args->lengths[1]};
  if (key.public_key(initid->ptr, initid->max_length, length)) {
    report(public_key_failed, algorithm.c_str(), create_public_key_name);
    return nullptr;
  }
  return row_exit.succeed(initid->ptr);
}

bool HX_functions::encrypt_init(UDF_INIT *initid, UDF_ARGS *args, char *message) {
  return string_function_init(initid, args, message, encrypt_arguments, result_buffer_size);
}

char *HX_functions::encrypt(UDF_INIT *initid, UDF_ARGS *args, char * /*result*/,
                            unsigned long *length, unsigned char *is_null,
                            unsigned char * /*error*/) {
  Row_exit row_exit{is_null};
  if (lacks_argument(args, encrypt_arguments, null_for_encrypt, encrypt_name,
                     "Non-null value for algorithm, public key and data")) {
    return nullptr;
  }

  std::string algorithm = text_argument(args, 0);
  if (is_unsupported(algorithm, algorithm_for_encrypt, encrypt_name)) {
    return nullptr;
  }

  const char *const data = args->args[1];
  const unsigned long data_length = args->lengths[1];
  rsa::RSA_encrypt_decrypt encryption{encrypt_name, algorithm, args->args[2], args->lengths[2],
                                      RSA_PKCS1_OAEP_PADDING};
  if (encryption.supported_length(data_length)) {
    return nullptr;
  }
  if (encryption.encrypt(bytes(data), data_length, bytes(initid->ptr), initid->max_length,
                         length)) {
    report(encryption_failed, encrypt_name, algorithm.c_str(),
           static_cast<unsigned long long>(data_length));
    return nullptr;
  }
  return row_exit.succeed(initid->ptr);
}

bool HX_functions::decrypt_init(UDF_INIT *initid, UDF_ARGS *args, char *message) {
  return string_function_init(initid, args, message, decrypt_arguments, result_buffer_size);
}

char *HX_functions::decrypt(UDF_INIT *initid, UDF_ARGS *args, char * /*result*/,
                            unsigned long *length, unsigned char *is_null,
                            unsigned char * /*error*/) {
  Row_exit row_exit{is_null};
  if (lacks_argument(args, decrypt_arguments, null_for_decrypt, decrypt_name,
                     "Non-null value for algorithm, private key and data")) {
    return nullptr;
  }

  std::string algorithm = text_argument(args, 0);
  if (is_unsupported(algorithm, algorithm_for_decrypt, decrypt_name)) {
    return nullptr;
  }

  const bool legacy = rsa::legacy_padding_is_supported();
  const auto attempt_fails = [&](int padding) {
    const char *const data = args->args[1];
    const unsigned long data_length = args->lengths[1];
    rsa::RSA_encrypt_decrypt decryption{decrypt_name, algorithm, args->args[2], args->lengths[2],
                                        padding};
    if (decryption.supported_length(data_length)) {
      return true;
    }
    std::memset(initid->ptr, 0, initid->max_length);
    if (decryption.decrypt(bytes(data), data_length, bytes(initid->ptr), initid->max_length,
                           length)) {
      report(decryption_failed, decrypt_name, algorithm.c_str(),
             static_cast<unsigned long long>(data_length));
      return true;
    }
    return false;
  };

  if (attempt_fails(RSA_PKCS1_OAEP_PADDING) && (!legacy || attempt_fails(RSA_PKCS1_PADDING))) {
    return nullptr;
  }
  return row_exit.succeed(initid->ptr);
}

bool HX_functions::sign_init(UDF_INIT *initid, UDF_ARGS *args, char *message) {
  return string_function_init(initid, args, message, sign_arguments, result_buffer_size);
}

char *HX_functions::sign(UDF_INIT *initid, UDF_ARGS *args, char * /*result*/, unsigned long *length,
                         unsigned char *is_null, unsigned char * /*error*/) {
  Row_exit row_exit{is_null};
  if (lacks_argument(args, sign_arguments, at_this_line(null_for_sign), sign_name,
                     "Non-null value for algorithm, private key, digest type and data")) {
    return nullptr;
  }

  std::string algorithm = text_argument(args, 0);
  if (is_unsupported(algorithm, at_this_line(algorithm_for_sign), sign_name)) {
    return nullptr;
  }

  rsa::RSA_sign_verify signer{
      Key_reader{sign_name, algorithm, args->args[2], args->lengths[2], rsa::pkcs1_key_reader},
      Function_metadata{sign_name, algorithm}, RSA_PKCS1_PSS_PADDING};
  std::string digest_type = text_argument(args, 3);
  upper_case(digest_type);
  if (signer.sign(bytes(args->args[1]), args->lengths[1], bytes(initid->ptr), initid->max_length,
                  length, digest_type)) {
    report(at_this_line(signing_failed), sign_name, algorithm.c_str(), digest_type.c_str());
    return nullptr;
  }
  if (*length < initid->max_length) {
    initid->ptr[*length] = '\0';  // an earlier row with a longer key may have left more
  }
  return row_exit.succeed(initid->ptr);
}

bool HX_functions::verify_init(UDF_INIT *initid, UDF_ARGS *args, char *message) {
  initid->ptr = nullptr;
  if (arguments_are_refused(args, verify_arguments, message)) {
    return true;
  }
  initid->maybe_null = false;  // although a row may be NULL: meant
  return false;
}

long long HX_functions::verify(UDF_INIT * /*initid*/, UDF_ARGS *args, unsigned char *is_null,
                               unsigned char * /*error*/) {
  Row_exit row_exit{is_null};
  // The text names a private key and a digest that the function does not take: meant.
  if (lacks_argument(args, verify_arguments, at_this_line(null_for_verify), verify_name,
                     "Non-null value for algorithm, private key, digest type, digest and data")) {
    return 0;
  }

  std::string algorithm = text_argument(args, 0);
  if (is_unsupported(algorithm, at_this_line(algorithm_for_verify), verify_name)) {
    return 0;
  }

  const bool legacy = rsa::legacy_padding_is_supported();
  std::string digest_type = text_argument(args, 4);
  upper_case(digest_type);
  const auto read_key = [&] {
    return Key_reader{verify_name, algorithm, args->args[3], args->lengths[3],
                      rsa::pkcs1_key_reader};
  };
  const auto refuses = [&](Key_usage_sign &verifier) {
    return verifier.verify(bytes(args->args[1]), args->lengths[1], bytes(args->args[2]),
                           args->lengths[2], digest_type);
  };

  const Function_metadata metadata{verify_name, algorithm};
  const auto pss_refuses = [&] {
    rsa::RSA_sign_verify verifier{read_key(), metadata, RSA_PKCS1_PSS_PADDING};
    return refuses(verifier);
  };
  const auto legacy_refuses = [&] {
    rsa::RSA_legacy_verifier verifier{read_key(), metadata};
    return refuses(verifier);
  };
  if (pss_refuses() && (!legacy || legacy_refuses())) {
    return 0;
  }
  return row_exit.succeed(1LL);
}

void HX_functions::verify_deinit(UDF_INIT * /*initid*/) noexcept {}

bool HX_functions::digest_init(UDF_INIT *initid, UDF_ARGS *args, char *message) {
  return string_function_init(initid, args, message, digest_arguments, largest_digest.size);
}

char *HX_functions::digest(UDF_INIT *initid, UDF_ARGS *args, char * /*result*/,
                           unsigned long *length, unsigned char *is_null,
                           unsigned char * /*error*/) {
  // Meant to differ from the others: success leaves the OpenSSL queue as it was.
  Row_exit row_exit{is_null, Row_exit::Queue_on_success::left_alone};
  if (lacks_argument(args, digest_arguments, at_this_line(null_for_digest), digest_name,
                     "Non-null value for algorithm and data")) {
    return nullptr;
  }

  // The name ends at its first NUL byte, whatever its length says: meant.
  const Function_metadata metadata{digest_name, args->args[0]};
  const EVP_MD *const digest = get_digest_mode(metadata.algorithm);
  if (digest == nullptr) {
    return nullptr;
  }
  const int digest_length = EVP_MD_get_size(digest);
  if (digest_length < 0 || static_cast<unsigned long>(digest_length) > initid->max_length) {
    return nullptr;
  }

  const Md_ctx_ptr ctx{EVP_MD_CTX_new()};
  unsigned int written_length = 0;
  // EVP_DigestInit crashes on a null context.
  if (!ctx || EVP_DigestInit(ctx.get(), digest) != 1 ||
      EVP_DigestUpdate(ctx.get(), args->args[1], args->lengths[1]) != 1 ||
      EVP_DigestFinal(ctx.get(), bytes(initid->ptr), &written_length) != 1) {
    handle_openssl_error(metadata.function_name, metadata.algorithm);
    return nullptr;
  }
  *length = written_length;
  return row_exit.succeed(initid->ptr);
}

}  // namespace halvex_encryption
