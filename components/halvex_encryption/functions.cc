#include "halvex_encryption/functions.h"

#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "halvex_encryption/function_metadata.h"
#include "halvex_encryption/load_order.h"
#include "halvex_encryption/rsa_implementation.h"
#include "halvex_encryption/utilities.h"

namespace halvex_encryption {

namespace {

using utilities::handle_openssl_error;
using utilities::report;
using utilities::Report_site;

constexpr std::size_t result_buffer_size = 12800;

// An object, not a number, because only objects can be given a place in the load order.
struct Largest_digest {
  const std::size_t size = static_cast<std::size_t>(EVP_MD_get_size(EVP_sha3_512()));
};
[[gnu::init_priority(load_order::digest_buffer_size)]] const Largest_digest largest_digest;

// Expected type of one argument, and how the message for a mismatch names it.
struct Expected_argument {
  Item_result type;
  const char *description;
};

// The facts of one SQL function.
struct Sql_function {
  const char *name;
  std::array<Expected_argument, 5> arguments;  // those it has, then rows without a description
  const char *null_requirement;                // argument of the record for a NULL argument
  Report_site null_argument;
  Report_site unsupported_algorithm{};  // not of create_digest
  Report_site failure{};                // not of create_digest and asymmetric_verify

  [[nodiscard]] constexpr std::size_t argument_count() const noexcept {
    std::size_t count = 0;
    while (count < arguments.size() && arguments[count].description != nullptr) {
      ++count;
    }
    return count;
  }
};

constexpr const char *source_file = "functions";

constexpr Report_site null_argument(int line, const char *function) {
  return {13919, line, source_file, function, DOVRIN_PRIORITY_WARNING};
}

constexpr Report_site unsupported_algorithm(int line, const char *function) {
  return {13920, line, source_file, function};
}

// Intentional: the mix of "argument" and "arguments" is part of the interface.
constexpr Expected_argument algorithm_argument{STRING_RESULT, "string argument for algorithm"};
constexpr Expected_argument private_key_argument{STRING_RESULT, "string arguments for private key"};
constexpr Expected_argument public_key_argument{STRING_RESULT, "string arguments for public key"};
constexpr Expected_argument digest_type_argument{STRING_RESULT, "string arguments for digest type"};

constexpr Sql_function private_key_creation{
    .name = "create_asymmetric_priv_key",
    .arguments = {{algorithm_argument, {INT_RESULT, "integer argument of key length"}}},
    .null_requirement = "Non-null value for algorithm and a positive integer value for key size",
    .null_argument = null_argument(192, "generate_private_key"),
    .unsupported_algorithm = unsupported_algorithm(221, "generate_private_key"),
    .failure = {13922, 213, source_file, "generate_private_key"},
};
constexpr Sql_function public_key_creation{
    .name = "create_asymmetric_pub_key",
    .arguments = {{algorithm_argument, {STRING_RESULT, "string argument for private key"}}},
    .null_requirement = "Non-null value for algorithm and private key",
    .null_argument = null_argument(262, "generate_public_key"),
    .unsupported_algorithm = unsupported_algorithm(285, "generate_public_key"),
    .failure = {13923, 277, source_file, "generate_public_key"},
};
constexpr Sql_function encryption{
    .name = "asymmetric_encrypt",
    .arguments = {{algorithm_argument,
                   {STRING_RESULT, "string arguments for content to be encrypted"},
                   public_key_argument}},
    .null_requirement = "Non-null value for algorithm, public key and data",
    .null_argument = null_argument(334, "encrypt"),
    .unsupported_algorithm = unsupported_algorithm(362, "encrypt"),
    .failure = {13925, 354, source_file, "encrypt"},
};
constexpr Sql_function decryption{
    .name = "asymmetric_decrypt",
    .arguments = {{algorithm_argument,
                   {STRING_RESULT, "string arguments for content to be decrypted"},
                   private_key_argument}},
    .null_requirement = "Non-null value for algorithm, private key and data",
    .null_argument = null_argument(411, "decrypt"),
    .unsupported_algorithm = unsupported_algorithm(453, "decrypt"),
    .failure = {13926, 435, source_file, "operator()"},
};
constexpr Sql_function signing{
    .name = "asymmetric_sign",
    .arguments = {{algorithm_argument,
                   {STRING_RESULT, "string arguments for content to be signed"},
                   private_key_argument,
                   digest_type_argument}},
    .null_requirement = "Non-null value for algorithm, private key, digest type and data",
    .null_argument = null_argument(__LINE__, "sign"),
    .unsupported_algorithm = unsupported_algorithm(__LINE__, "sign"),
    .failure = {13927, __LINE__, source_file, "sign"},
};
constexpr Sql_function verification{
    .name = "asymmetric_verify",
    .arguments = {{algorithm_argument,
                   {STRING_RESULT, "string arguments for content to be verified"},
                   {STRING_RESULT, "string arguments for signature"},
                   public_key_argument,
                   digest_type_argument}},
    // Intentional: it names a private key and a digest, which the function does not take.
    .null_requirement = "Non-null value for algorithm, private key, digest type, digest and data",
    .null_argument = null_argument(__LINE__, "verify"),
    .unsupported_algorithm = unsupported_algorithm(__LINE__, "verify"),
};
constexpr Sql_function digest_creation{
    .name = "create_digest",
    // Intentional: the first is a digest type, but is named like every other first argument.
    .arguments = {{algorithm_argument, {STRING_RESULT, "string argument for text"}}},
    .null_requirement = "Non-null value for algorithm and data",
    .null_argument = null_argument(__LINE__, "digest"),
};

// Writes a message and returns true unless number and types of the arguments are the expected ones.
[[nodiscard]] bool check_arguments(const Sql_function &function, const UDF_ARGS *args,
                                   char *message) noexcept {
  const std::size_t count = function.argument_count();
  if (args->arg_count != count) {
    static_cast<void>(std::snprintf(
        message, DOVRIN_UDF_MESSAGE_SIZE,
        "Mismatch in number of arguments to the function. Expected %zu arguments", count));
    return true;
  }
  for (std::size_t i = 0; i < count; ++i) {
    if (args->arg_type[i] != function.arguments[i].type) {
      static_cast<void>(std::snprintf(message, DOVRIN_UDF_MESSAGE_SIZE,
                                      "Mismatch in type of argument. Expected %s.",
                                      function.arguments[i].description));
      return true;
    }
  }
  return false;
}

// The init callback of every string function.
[[nodiscard]] bool prepare_string_function(const Sql_function &function, UDF_INIT *initid,
                                           const UDF_ARGS *args, char *message,
                                           std::size_t buffer_size = result_buffer_size) {
  initid->ptr = nullptr;  // before any check: deinit follows a failed init too
  if (check_arguments(function, args, message)) {
    return true;
  }
  initid->ptr = new char[buffer_size]();
  initid->max_length = buffer_size;
  initid->maybe_null = true;
  return false;
}

// Reports the call and returns true if one of its arguments is NULL.
[[nodiscard]] bool reject_null_argument(const Sql_function &function,
                                        const UDF_ARGS *args) noexcept {
  const auto is_null = [](const char *argument) { return argument == nullptr; };
  if (std::none_of(args->args, args->args + function.argument_count(), is_null)) {
    return false;
  }
  report(function.null_argument, function.name, function.null_requirement);
  return true;
}

std::string text_argument(const UDF_ARGS *args, std::size_t index) {
  return {args->args[index], args->lengths[index]};
}

// Starts a row: stores the upper-cased algorithm. Reports the call and returns true if an argument
// is NULL or the algorithm is not supported.
[[nodiscard]] bool read_algorithm(const Sql_function &function, const UDF_ARGS *args,
                                  std::string &algorithm) {
  if (reject_null_argument(function, args)) {
    return true;
  }
  algorithm = text_argument(args, 0);
  if (HX_functions::get_algorithm(algorithm) == Algorithm_type::RSA_ALGORITHM) {
    return false;
  }
  report(function.unsupported_algorithm, algorithm.c_str(), function.name);
  return true;
}

std::string upper_case_argument(const UDF_ARGS *args, std::size_t index) {
  std::string text = text_argument(args, index);
  upper_case(text);
  return text;
}

Key_reader read_key(const Sql_function &function, const std::string &algorithm,
                    const UDF_ARGS *args, std::size_t index) {
  return {function.name, algorithm, args->args[index], args->lengths[index], rsa::pkcs1_key_reader};
}

unsigned char *bytes(char *text) noexcept { return reinterpret_cast<unsigned char *>(text); }

// Scope guard of a row call; declare it first, so that it acts after everything else is released,
// on return and on exception alike. Unless succeed() ran, sets `*is_null` and clears the OpenSSL
// queue.
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

// One attempt of a decryption: reads the key, decrypts into the result buffer, frees the key. A
// failure is reported, unless it was before.
[[nodiscard]] bool decrypt_with(int padding, const std::string &algorithm, const UDF_ARGS *args,
                                const UDF_INIT *initid, unsigned long *length) {
  const unsigned long data_length = args->lengths[1];
  rsa::RSA_encrypt_decrypt attempt{decryption.name, algorithm, args->args[2], args->lengths[2],
                                   padding};
  if (attempt.supported_length(data_length)) {
    return true;
  }
  std::memset(initid->ptr, 0, initid->max_length);
  if (attempt.decrypt(bytes(args->args[1]), data_length, bytes(initid->ptr), initid->max_length,
                      length)) {
    report(decryption.failure, decryption.name, algorithm.c_str(),
           static_cast<unsigned long long>(data_length));
    return true;
  }
  return false;
}

[[nodiscard]] bool verify_with(Key_usage_sign &&verifier, const UDF_ARGS *args,
                               const std::string &digest_type) noexcept {
  return verifier.verify(bytes(args->args[1]), args->lengths[1], bytes(args->args[2]),
                         args->lengths[2], digest_type);
}

Function_registration string_function(const Sql_function &function, Udf_func_string row,
                                      Udf_func_init init) {
  return {function.name, STRING_RESULT, reinterpret_cast<Udf_func_any>(row), init,
          HX_functions::string_function_deinit};
}

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
  return prepare_string_function(private_key_creation, initid, args, message);
}

char *HX_functions::generate_private_key(UDF_INIT *initid, UDF_ARGS *args, char * /*result*/,
                                         unsigned long *length, unsigned char *is_null,
                                         unsigned char * /*error*/) {
  Row_exit row_exit{is_null};
  std::string algorithm;
  if (read_algorithm(private_key_creation, args, algorithm)) {
    return nullptr;
  }

  const long long key_length = *reinterpret_cast<const long long *>(args->args[1]);
  const Function_metadata metadata{private_key_creation.name, algorithm};
  rsa::RSA_generate_validator validator{metadata, true, static_cast<std::uint64_t>(key_length)};
  if (!validator.validate()) {
    return nullptr;
  }

  rsa::RSA_key_generate generator{metadata, static_cast<int>(key_length)};
  if (generator.private_key(initid->ptr, initid->max_length, length)) {
    report(private_key_creation.failure, key_length, algorithm.c_str(), private_key_creation.name);
    return nullptr;
  }
  return row_exit.succeed(initid->ptr);
}

bool HX_functions::generate_public_key_init(UDF_INIT *initid, UDF_ARGS *args, char *message) {
  return prepare_string_function(public_key_creation, initid, args, message);
}

char *HX_functions::generate_public_key(UDF_INIT *initid, UDF_ARGS *args, char * /*result*/,
                                        unsigned long *length, unsigned char *is_null,
                                        unsigned char * /*error*/) {
  Row_exit row_exit{is_null};
  std::string algorithm;
  if (read_algorithm(public_key_creation, args, algorithm)) {
    return nullptr;
  }

  rsa::RSA_key_generate key{Function_metadata{public_key_creation.name, algorithm}, args->args[1],
                            args->lengths[1]};
  if (key.public_key(initid->ptr, initid->max_length, length)) {
    report(public_key_creation.failure, algorithm.c_str(), public_key_creation.name);
    return nullptr;
  }
  return row_exit.succeed(initid->ptr);
}

bool HX_functions::encrypt_init(UDF_INIT *initid, UDF_ARGS *args, char *message) {
  return prepare_string_function(encryption, initid, args, message);
}

char *HX_functions::encrypt(UDF_INIT *initid, UDF_ARGS *args, char * /*result*/,
                            unsigned long *length, unsigned char *is_null,
                            unsigned char * /*error*/) {
  Row_exit row_exit{is_null};
  std::string algorithm;
  if (read_algorithm(encryption, args, algorithm)) {
    return nullptr;
  }

  const unsigned long data_length = args->lengths[1];
  rsa::RSA_encrypt_decrypt encryptor{encryption.name, algorithm, args->args[2], args->lengths[2],
                                     RSA_PKCS1_OAEP_PADDING};
  if (encryptor.supported_length(data_length)) {
    return nullptr;
  }
  if (encryptor.encrypt(bytes(args->args[1]), data_length, bytes(initid->ptr), initid->max_length,
                        length)) {
    report(encryption.failure, encryption.name, algorithm.c_str(),
           static_cast<unsigned long long>(data_length));
    return nullptr;
  }
  return row_exit.succeed(initid->ptr);
}

bool HX_functions::decrypt_init(UDF_INIT *initid, UDF_ARGS *args, char *message) {
  return prepare_string_function(decryption, initid, args, message);
}

char *HX_functions::decrypt(UDF_INIT *initid, UDF_ARGS *args, char * /*result*/,
                            unsigned long *length, unsigned char *is_null,
                            unsigned char * /*error*/) {
  Row_exit row_exit{is_null};
  std::string algorithm;
  if (read_algorithm(decryption, args, algorithm)) {
    return nullptr;
  }

  const bool legacy = rsa::legacy_padding_is_supported();
  if (decrypt_with(RSA_PKCS1_OAEP_PADDING, algorithm, args, initid, length) &&
      (!legacy || decrypt_with(RSA_PKCS1_PADDING, algorithm, args, initid, length))) {
    return nullptr;
  }
  return row_exit.succeed(initid->ptr);
}

bool HX_functions::sign_init(UDF_INIT *initid, UDF_ARGS *args, char *message) {
  return prepare_string_function(signing, initid, args, message);
}

char *HX_functions::sign(UDF_INIT *initid, UDF_ARGS *args, char * /*result*/, unsigned long *length,
                         unsigned char *is_null, unsigned char * /*error*/) {
  Row_exit row_exit{is_null};
  std::string algorithm;
  if (read_algorithm(signing, args, algorithm)) {
    return nullptr;
  }

  rsa::RSA_sign_verify signer{read_key(signing, algorithm, args, 2),
                              Function_metadata{signing.name, algorithm}, RSA_PKCS1_PSS_PADDING};
  const std::string digest_type = upper_case_argument(args, 3);
  if (signer.sign(bytes(args->args[1]), args->lengths[1], bytes(initid->ptr), initid->max_length,
                  length, digest_type)) {
    report(signing.failure, signing.name, algorithm.c_str(), digest_type.c_str());
    return nullptr;
  }
  if (*length < initid->max_length) {
    initid->ptr[*length] = '\0';  // an earlier row with a longer key may have left more
  }
  return row_exit.succeed(initid->ptr);
}

bool HX_functions::verify_init(UDF_INIT *initid, UDF_ARGS *args, char *message) {
  initid->ptr = nullptr;
  if (check_arguments(verification, args, message)) {
    return true;
  }
  initid->maybe_null = false;  // Intentional, although a row may be NULL: part of the interface.
  return false;
}

long long HX_functions::verify(UDF_INIT * /*initid*/, UDF_ARGS *args, unsigned char *is_null,
                               unsigned char * /*error*/) {
  Row_exit row_exit{is_null};
  std::string algorithm;
  if (read_algorithm(verification, args, algorithm)) {
    return 0;
  }

  const bool legacy = rsa::legacy_padding_is_supported();
  const std::string digest_type = upper_case_argument(args, 4);
  const Function_metadata metadata{verification.name, algorithm};
  // The objects of an attempt end with its statement.
  bool failed = verify_with(rsa::RSA_sign_verify{read_key(verification, algorithm, args, 3),
                                                 metadata, RSA_PKCS1_PSS_PADDING},
                            args, digest_type);
  if (failed && legacy) {
    failed =
        verify_with(rsa::RSA_legacy_verifier{read_key(verification, algorithm, args, 3), metadata},
                    args, digest_type);
  }
  return failed ? 0 : row_exit.succeed(1LL);
}

void HX_functions::verify_deinit(UDF_INIT * /*initid*/) noexcept {}

bool HX_functions::digest_init(UDF_INIT *initid, UDF_ARGS *args, char *message) {
  return prepare_string_function(digest_creation, initid, args, message, largest_digest.size);
}

char *HX_functions::digest(UDF_INIT *initid, UDF_ARGS *args, char * /*result*/,
                           unsigned long *length, unsigned char *is_null,
                           unsigned char * /*error*/) {
  // Intentional, unlike the others: success leaves the OpenSSL queue as it was.
  Row_exit row_exit{is_null, Row_exit::Queue_on_success::left_alone};
  if (reject_null_argument(digest_creation, args)) {
    return nullptr;
  }

  // Intentional: the name ends at its first NUL byte, whatever its length.
  const Function_metadata metadata{digest_creation.name, args->args[0]};
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

std::array<Function_registration, 7> function_registrations() noexcept {
  using Functions = HX_functions;
  return {
      string_function(private_key_creation, Functions::generate_private_key,
                      Functions::generate_private_key_init),
      string_function(public_key_creation, Functions::generate_public_key,
                      Functions::generate_public_key_init),
      string_function(encryption, Functions::encrypt, Functions::encrypt_init),
      string_function(decryption, Functions::decrypt, Functions::decrypt_init),
      string_function(signing, Functions::sign, Functions::sign_init),
      {verification.name, INT_RESULT, reinterpret_cast<Udf_func_any>(Functions::verify),
       Functions::verify_init, Functions::verify_deinit},
      string_function(digest_creation, Functions::digest, Functions::digest_init),
  };
}

}  // namespace halvex_encryption
