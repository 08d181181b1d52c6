#include "openssl_calls/openssl_recorder.h"

#include <dlfcn.h>
#include <openssl/bio.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <type_traits>

namespace halvex_test {
namespace {

Openssl_recorder *the_recorder = nullptr;
// Set while libcrypto works for a recorded call: what it calls itself is not the component's.
bool inside_libcrypto = false;

constexpr int forced_reason = 101;
constexpr int stale_reason = 102;

[[noreturn]] void abort_with(const std::string &why) {
  static_cast<void>(std::fprintf(stderr, "Openssl_recorder: %s\n", why.c_str()));
  std::abort();
}

std::string text_of(unsigned long error) {
  std::array<char, 256> text{};
  ERR_error_string_n(error, text.data(), text.size());
  return text.data();
}

std::string kind_of(const BIO * /*object*/) { return "bio"; }
std::string kind_of(const EVP_PKEY * /*object*/) { return "key"; }
std::string kind_of(const EVP_PKEY_CTX * /*object*/) { return "key_ctx"; }
std::string kind_of(const EVP_MD_CTX * /*object*/) { return "digest_ctx"; }

template <typename T>
constexpr bool is_object = std::is_same_v<std::remove_const_t<T>, BIO> ||
                           std::is_same_v<std::remove_const_t<T>, EVP_PKEY> ||
                           std::is_same_v<std::remove_const_t<T>, EVP_PKEY_CTX> ||
                           std::is_same_v<std::remove_const_t<T>, EVP_MD_CTX>;

// How an argument shows in a call: objects and digests by name, numbers as they are, other pointers
// only as null or not.
std::string shown(const EVP_MD *digest) {
  return digest == nullptr ? "null" : EVP_MD_get0_name(digest);
}
std::string shown(int number) { return std::to_string(number); }
std::string shown(long number) { return std::to_string(number); }
std::string shown(unsigned long number) { return std::to_string(number); }
std::string shown(const char *text) { return text == nullptr ? "null" : "text"; }

template <typename Result, typename... Parameters>
std::string shown(Result (*function)(Parameters...)) {
  return function == nullptr ? "null" : "function";
}

template <typename T>
std::string shown(T *pointer) {
  if (pointer == nullptr) {
    return "null";
  }
  if constexpr (is_object<T>) {
    return the_recorder->name_of(pointer);
  } else {
    return "data";
  }
}

template <typename... Arguments>
std::string call_text(const std::string &name, Arguments... arguments) {
  std::string text = name;
  ((text += ' ' + shown(arguments)), ...);
  return text;
}

template <typename Result>
std::string shown_result(Result result) {
  if constexpr (is_object<std::remove_pointer_t<Result>>) {
    return result == nullptr ? "null" : the_recorder->made(kind_of(result), result);
  } else {
    return shown(result);
  }
}

template <typename Result>
Result forced_result() {
  ERR_raise(ERR_LIB_USER, forced_reason);
  if constexpr (std::is_pointer_v<Result>) {
    return nullptr;
  } else {
    return static_cast<Result>(the_recorder->failure().value);
  }
}

// The library's own function behind one that this file defines.
template <typename Function>
Function *next(const char *name) {
  void *found = dlsym(RTLD_NEXT, name);
  if (found == nullptr) {
    abort_with(std::string("libcrypto has no ") + name);
  }
  return reinterpret_cast<Function *>(found);
}

template <typename Function, typename... Arguments>
auto forward(Function *real, Arguments... arguments) {
  inside_libcrypto = true;
  if constexpr (std::is_void_v<std::invoke_result_t<Function *, Arguments...>>) {
    real(arguments...);
    inside_libcrypto = false;
  } else {
    const auto result = real(arguments...);
    inside_libcrypto = false;
    return result;
  }
}

bool is_recorded() { return the_recorder != nullptr && !inside_libcrypto; }

template <typename Function, typename... Arguments>
auto recorded(const char *name, Function *real, Arguments... arguments) {
  using Result = std::invoke_result_t<Function *, Arguments...>;
  if (!is_recorded()) {
    return real(arguments...);
  }
  inside_libcrypto = true;  // for the naming of a digest
  const std::string text = call_text(name, arguments...);
  inside_libcrypto = false;
  const bool fails = the_recorder->is_to_fail(name);
  if constexpr (std::is_void_v<Result>) {
    the_recorder->note(text);
    forward(real, arguments...);
  } else {
    if (fails && the_recorder->failure().reaches_libcrypto) {
      forward(real, arguments...);
    }
    const Result result = fails ? forced_result<Result>() : forward(real, arguments...);
    the_recorder->note(text + " -> " + shown_result(result));
    return result;
  }
}

// A call that frees an object: the name must be shown before it is gone.
template <typename Function, typename Object>
auto recorded_free(const char *name, Function *real, Object *object) {
  if (is_recorded()) {
    static_cast<void>(the_recorder->is_to_fail(name));
    if constexpr (std::is_same_v<Object, EVP_PKEY>) {
      the_recorder->before_key_is_freed();
    }
    the_recorder->note(call_text(name, object));
    the_recorder->freed(object);
    return forward(real, object);
  }
  return real(object);
}

// Shows the size that the caller passed in and, after the result, the one that came out.
template <typename Function, typename... Arguments>
int recorded_sized(const char *name, Function *real, const size_t *size, Arguments... arguments) {
  if (!is_recorded()) {
    return real(arguments...);
  }
  const std::string text = call_text(name, arguments...) + " (" + std::to_string(*size) + ")";
  const int result =
      the_recorder->is_to_fail(name) ? forced_result<int>() : forward(real, arguments...);
  the_recorder->note(text + " -> " + std::to_string(result) + " (" + std::to_string(*size) + ")");
  return result;
}

// Shows the object that came out; a key belongs to the caller, a key context to its digest context.
template <typename Function, typename Object, typename... Arguments>
int recorded_out(const char *name, Function *real, Object **out, Arguments... arguments) {
  if (!is_recorded()) {
    return real(arguments...);
  }
  inside_libcrypto = true;  // for the naming of a digest
  const std::string text = call_text(name, arguments...);
  inside_libcrypto = false;
  const int result =
      the_recorder->is_to_fail(name) ? forced_result<int>() : forward(real, arguments...);
  std::string object = "null";
  if (*out != nullptr) {
    object = std::is_same_v<Object, EVP_PKEY> ? the_recorder->made(kind_of(*out), *out)
                                              : the_recorder->borrowed(kind_of(*out), *out);
  }
  the_recorder->note(text + " -> " + std::to_string(result) + " " + object);
  return result;
}

std::set<std::string> &registry_of_recorded() {
  static std::set<std::string> names;
  return names;
}

struct Recorded_name {
  explicit Recorded_name(const char *name) { registry_of_recorded().insert(name); }
};

}  // namespace

unsigned long forced_error() { return ERR_PACK(ERR_LIB_USER, 0, forced_reason); }

std::string forced_error_text() { return text_of(forced_error()); }

void queue_stale_error() { ERR_raise(ERR_LIB_USER, stale_reason); }

std::string stale_error_text() { return text_of(ERR_PACK(ERR_LIB_USER, 0, stale_reason)); }

std::vector<std::string> drain_error_queue() {
  inside_libcrypto = true;  // these calls are the test's
  std::vector<std::string> texts;
  while (const unsigned long error = ERR_get_error()) {
    texts.push_back(text_of(error));
  }
  inside_libcrypto = false;
  return texts;
}

Openssl_recorder::Openssl_recorder() : Openssl_recorder(Forced_failure{}) {}

Openssl_recorder::Openssl_recorder(Forced_failure failure)
    : failure_(std::move(failure)), failures_left_(failure_.function.empty() ? 0 : failure_.count) {
  if (the_recorder != nullptr) {
    abort_with("there is a recorder already");
  }
  if (!failure_.function.empty() && !recorded_functions().contains(failure_.function)) {
    abort_with("no such function to let fail: " + failure_.function);
  }
  the_recorder = this;
}

Openssl_recorder::~Openssl_recorder() { the_recorder = nullptr; }

int Openssl_recorder::count(const std::string &function) const {
  const auto found = counts_.find(function);
  return found == counts_.end() ? 0 : found->second;
}

std::vector<std::string> Openssl_recorder::calls_after_failure() const {
  return {calls_.begin() + static_cast<std::ptrdiff_t>(last_failure_) + 1, calls_.end()};
}

std::vector<std::string> Openssl_recorder::unfreed() const {
  std::vector<std::string> names;
  names.reserve(live_.size());
  for (const auto &[object, name] : live_) {
    names.push_back(name);
  }
  return names;
}

bool Openssl_recorder::is_to_fail(const std::string &function) {
  const int occurrence = ++counts_[function];
  if (function != failure_.function || occurrence < failure_.occurrence || failures_left_ == 0) {
    return false;
  }
  --failures_left_;
  last_failure_ = calls_.size();
  return true;
}

std::string Openssl_recorder::name_of(const void *object) const {
  const auto found = live_.find(object);
  if (found != live_.end()) {
    return found->second;
  }
  const auto lent = borrowed_.find(object);
  return lent == borrowed_.end() ? "other" : lent->second;
}

std::string Openssl_recorder::made(const std::string &kind, const void *object) {
  std::string name = kind + std::to_string(++made_[kind]);
  live_[object] = name;
  return name;
}

std::string Openssl_recorder::borrowed(const std::string &kind, const void *object) {
  std::string name = "borrowed_" + kind + std::to_string(++made_["borrowed_" + kind]);
  borrowed_[object] = name;
  return name;
}

void Openssl_recorder::freed(const void *object) {
  if (object != nullptr && live_.erase(object) != 1) {
    abort_with("the component freed an object that it did not make, or freed it twice");
  }
}

const std::set<std::string> &recorded_functions() { return registry_of_recorded(); }

}  // namespace halvex_test

using halvex_test::next;
using halvex_test::recorded;
using halvex_test::recorded_free;
using halvex_test::recorded_out;
using halvex_test::recorded_sized;

// Parameters are named as the arguments that the tests name, which is not always libcrypto's
// way, and a type cannot stand in parentheses.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name,bugprone-macro-parentheses,bugprone-reserved-identifier)
// One definition of an OpenSSL function that forwards. The names and types are libcrypto's.
#define RECORD(result, name, parameters, ...)                      \
  static const halvex_test::Recorded_name record_of_##name{#name}; \
  result name parameters {                                         \
    static auto *const real = next<decltype(name)>(#name);         \
    return recorded(#name, real __VA_OPT__(, ) __VA_ARGS__);       \
  }

#define RECORD_FREE(result, name, type)                            \
  static const halvex_test::Recorded_name record_of_##name{#name}; \
  result name(type *object) {                                      \
    static auto *const real = next<decltype(name)>(#name);         \
    return recorded_free(#name, real, object);                     \
  }

// A function that works in a buffer of the caller's and gives its size through a pointer.
#define RECORD_SIZED(name, parameters, out_size, ...)              \
  static const halvex_test::Recorded_name record_of_##name{#name}; \
  int name parameters {                                            \
    static auto *const real = next<decltype(name)>(#name);         \
    return recorded_sized(#name, real, out_size, __VA_ARGS__);     \
  }

// A function that hands out an object through a pointer.
#define RECORD_OUT(name, parameters, out, ...)                     \
  static const halvex_test::Recorded_name record_of_##name{#name}; \
  int name parameters {                                            \
    static auto *const real = next<decltype(name)>(#name);         \
    return recorded_out(#name, real, out, __VA_ARGS__);            \
  }

extern "C" {

RECORD(const EVP_MD *, EVP_sha224, (void))
RECORD(const EVP_MD *, EVP_sha256, (void))
RECORD(const EVP_MD *, EVP_sha384, (void))
RECORD(const EVP_MD *, EVP_sha512, (void))
RECORD(const EVP_MD *, EVP_sha3_224, (void))
RECORD(const EVP_MD *, EVP_sha3_384, (void))
RECORD(const EVP_MD *, EVP_sha3_512, (void))

RECORD(int, EVP_MD_get_size, (const EVP_MD *md), md)
RECORD(EVP_MD_CTX *, EVP_MD_CTX_new, (void))
RECORD_FREE(void, EVP_MD_CTX_free, EVP_MD_CTX)
RECORD(int, EVP_DigestInit, (EVP_MD_CTX * ctx, const EVP_MD *type), ctx, type)
RECORD(int, EVP_DigestUpdate, (EVP_MD_CTX * ctx, const void *data, size_t count), ctx, data, count)
RECORD(int, EVP_DigestFinal, (EVP_MD_CTX * ctx, unsigned char *md, unsigned int *size), ctx, md,
       size)
RECORD_OUT(EVP_DigestSignInit,
           (EVP_MD_CTX * ctx, EVP_PKEY_CTX **pctx, const EVP_MD *type, ENGINE *engine,
            EVP_PKEY *key),
           pctx, ctx, pctx, type, engine, key)
RECORD(int, EVP_DigestSignUpdate, (EVP_MD_CTX * ctx, const void *data, size_t size), ctx, data,
       size)
RECORD_SIZED(EVP_DigestSignFinal, (EVP_MD_CTX * ctx, unsigned char *signature, size_t *size), size,
             ctx, signature, size)
RECORD_OUT(EVP_DigestVerifyInit,
           (EVP_MD_CTX * ctx, EVP_PKEY_CTX **pctx, const EVP_MD *type, ENGINE *engine,
            EVP_PKEY *key),
           pctx, ctx, pctx, type, engine, key)
RECORD(int, EVP_DigestVerifyUpdate, (EVP_MD_CTX * ctx, const void *data, size_t size), ctx, data,
       size)
RECORD(int, EVP_DigestVerifyFinal, (EVP_MD_CTX * ctx, const unsigned char *signature, size_t size),
       ctx, signature, size)

RECORD_FREE(void, EVP_PKEY_free, EVP_PKEY)
RECORD(int, EVP_PKEY_get_size, (const EVP_PKEY *key), key)
RECORD(int, EVP_PKEY_is_a, (const EVP_PKEY *key, const char *name), key, name)
RECORD(EVP_PKEY_CTX *, EVP_PKEY_CTX_new, (EVP_PKEY * key, ENGINE *engine), key, engine)
RECORD(EVP_PKEY_CTX *, EVP_PKEY_CTX_new_id, (int id, ENGINE *engine), id, engine)
RECORD_FREE(void, EVP_PKEY_CTX_free, EVP_PKEY_CTX)
RECORD(int, EVP_PKEY_CTX_set_rsa_padding, (EVP_PKEY_CTX * ctx, int padding), ctx, padding)
RECORD(int, EVP_PKEY_CTX_set_rsa_keygen_bits, (EVP_PKEY_CTX * ctx, int bits), ctx, bits)
RECORD(int, EVP_PKEY_CTX_set_signature_md, (EVP_PKEY_CTX * ctx, const EVP_MD *md), ctx, md)
RECORD(int, EVP_PKEY_keygen_init, (EVP_PKEY_CTX * ctx), ctx)
RECORD_OUT(EVP_PKEY_keygen, (EVP_PKEY_CTX * ctx, EVP_PKEY **key), key, ctx, key)
RECORD(int, EVP_PKEY_encrypt_init, (EVP_PKEY_CTX * ctx), ctx)
RECORD_SIZED(EVP_PKEY_encrypt,
             (EVP_PKEY_CTX * ctx, unsigned char *out, size_t *out_size, const unsigned char *in,
              size_t in_size),
             out_size, ctx, out, out_size, in, in_size)
RECORD(int, EVP_PKEY_decrypt_init, (EVP_PKEY_CTX * ctx), ctx)
RECORD_SIZED(EVP_PKEY_decrypt,
             (EVP_PKEY_CTX * ctx, unsigned char *out, size_t *out_size, const unsigned char *in,
              size_t in_size),
             out_size, ctx, out, out_size, in, in_size)
RECORD(int, EVP_PKEY_verify_init, (EVP_PKEY_CTX * ctx), ctx)
RECORD(int, EVP_PKEY_verify,
       (EVP_PKEY_CTX * ctx, const unsigned char *signature, size_t signature_size,
        const unsigned char *digest, size_t digest_size),
       ctx, signature, signature_size, digest, digest_size)

RECORD(const BIO_METHOD *, BIO_s_mem, (void))
RECORD(BIO *, BIO_new, (const BIO_METHOD *method), method)
RECORD(BIO *, BIO_new_mem_buf, (const void *data, int size), data, size)
RECORD(int, BIO_read, (BIO * bio, void *data, int size), bio, data, size)
RECORD(long, BIO_ctrl, (BIO * bio, int command, long number, void *pointer), bio, command, number,
       pointer)
RECORD_FREE(int, BIO_free, BIO)
RECORD(EVP_PKEY *, PEM_read_bio_PrivateKey,
       (BIO * bio, EVP_PKEY **key, pem_password_cb *callback, void *user), bio, key, callback, user)
RECORD(EVP_PKEY *, PEM_read_bio_PUBKEY,
       (BIO * bio, EVP_PKEY **key, pem_password_cb *callback, void *user), bio, key, callback, user)
RECORD(int, PEM_write_bio_PrivateKey,
       (BIO * bio, const EVP_PKEY *key, const EVP_CIPHER *cipher, const unsigned char *password,
        int password_size, pem_password_cb *callback, void *user),
       bio, key, cipher, password, password_size, callback, user)
RECORD(int, PEM_write_bio_PUBKEY, (BIO * bio, const EVP_PKEY *key), bio, key)

// Not OpenSSL's: how a shared object registers the destructor of a global object.
int __cxa_atexit(void (*destructor)(void *), void *object, void *shared_object) {
  static auto *const real = next<decltype(__cxa_atexit)>("__cxa_atexit");
  if (halvex_test::is_recorded()) {
    halvex_test::the_recorder->note("__cxa_atexit");
  }
  return real(destructor, object, shared_object);
}

RECORD(unsigned long, ERR_get_error, (void))
RECORD(char *, ERR_error_string, (unsigned long error, char *buffer), error, buffer)
RECORD(void, ERR_clear_error, (void))
RECORD(void, OPENSSL_cleanse, (void *memory, size_t size), memory, size)

}  // extern "C"

// NOLINTEND(readability-inconsistent-declaration-parameter-name,bugprone-macro-parentheses,bugprone-reserved-identifier)
