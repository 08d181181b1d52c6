#include "dovrin_host/row_context.h"

#include <openssl/bio.h>
#include <openssl/conf.h>
#include <openssl/core_dispatch.h>
#include <openssl/crypto.h>
#include <openssl/engine.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/provider.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <new>
#include <span>
#include <vector>

#include "halvex_encryption/openssl_owners.h"

namespace dovrin_host {
namespace {

using halvex_encryption::Bio_ptr;
using halvex_encryption::Free_with;
using halvex_encryption::Pkey_ptr;
using Library_context_ptr = std::unique_ptr<OSSL_LIB_CTX, Free_with<OSSL_LIB_CTX_free>>;
using Provider_ptr = std::unique_ptr<OSSL_PROVIDER, Free_with<OSSL_PROVIDER_unload>>;

// A list of algorithms as OpenSSL takes it: an element without names ends it.
using Algorithm_list = std::vector<OSSL_ALGORITHM>;

// Whether one of the names, which colons separate, is needed for RSA keys in PEM texts.
bool serves_rsa(std::string_view names) {
  static constexpr std::array<std::string_view, 4> wanted{"RSA", "RSA-PSS", "DER", "PEM"};
  for (;;) {
    const std::size_t colon = names.find(':');
    if (std::ranges::find(wanted, names.substr(0, colon)) != wanted.end()) {
      return true;
    }
    if (colon == std::string_view::npos) {
      return false;
    }
    names.remove_prefix(colon + 1);
  }
}

// A library context with one provider, which hands on the default provider of another context.
class Small_context {
 public:
  // Throws std::bad_alloc when OpenSSL cannot make the contexts.
  Small_context();

  OSSL_LIB_CTX *get() const noexcept { return context_.get(); }

 private:
  Algorithm_list rsa_algorithms(int operation) const;

  static int init_provider(const OSSL_CORE_HANDLE *handle, const OSSL_DISPATCH *in,
                           const OSSL_DISPATCH **out, void **provider_context) noexcept;
  static const OSSL_ALGORITHM *query_operation(void *provider_context, int operation,
                                               int *no_store) noexcept;

  // OpenSSL gives its provider callbacks the default provider's data, not ours. They run on the one
  // thread that uses the context.
  static thread_local const Small_context *of_this_thread;

  Library_context_ptr default_context_;
  Provider_ptr default_provider_;
  Algorithm_list key_managers_;
  Algorithm_list decoders_;
  Algorithm_list encoders_;
  Library_context_ptr context_;
  Provider_ptr provider_;
};

thread_local constinit const Small_context *Small_context::of_this_thread = nullptr;

Small_context::Small_context()
    : default_context_{OSSL_LIB_CTX_new()},
      default_provider_{default_context_ ? OSSL_PROVIDER_load(default_context_.get(), "default")
                                         : nullptr},
      context_{default_provider_ ? OSSL_LIB_CTX_new() : nullptr} {
  static constexpr const char *provider_name = "rsa";
  if (!context_) {
    throw std::bad_alloc{};
  }
  key_managers_ = rsa_algorithms(OSSL_OP_KEYMGMT);
  decoders_ = rsa_algorithms(OSSL_OP_DECODER);
  encoders_ = rsa_algorithms(OSSL_OP_ENCODER);

  of_this_thread = this;
  if (OSSL_PROVIDER_add_builtin(context_.get(), provider_name, init_provider) == 1) {
    provider_.reset(OSSL_PROVIDER_load(context_.get(), provider_name));
  }
  if (!provider_) {
    throw std::bad_alloc{};
  }
}

Algorithm_list Small_context::rsa_algorithms(int operation) const {
  int no_store = 0;
  const OSSL_ALGORITHM *algorithm =
      OSSL_PROVIDER_query_operation(default_provider_.get(), operation, &no_store);
  Algorithm_list list;
  for (; algorithm->algorithm_names != nullptr; ++algorithm) {
    if (serves_rsa(algorithm->algorithm_names)) {
      list.push_back(*algorithm);
    }
  }
  list.push_back({});
  return list;
}

int Small_context::init_provider(const OSSL_CORE_HANDLE * /*handle*/, const OSSL_DISPATCH * /*in*/,
                                 const OSSL_DISPATCH **out, void **provider_context) noexcept {
  static const std::array<OSSL_DISPATCH, 2> operations{{
      {OSSL_FUNC_PROVIDER_QUERY_OPERATION, reinterpret_cast<void (*)()>(query_operation)},
      {0, nullptr},
  }};
  *out = operations.data();
  // The algorithms that are handed on are given this pointer back.
  *provider_context = OSSL_PROVIDER_get0_provider_ctx(of_this_thread->default_provider_.get());
  return 1;
}

const OSSL_ALGORITHM *Small_context::query_operation(void * /*provider_context*/, int operation,
                                                     int *no_store) noexcept {
  *no_store = 0;
  switch (operation) {
    case OSSL_OP_KEYMGMT:
      return of_this_thread->key_managers_.data();
    case OSSL_OP_DECODER:
      return of_this_thread->decoders_.data();
    case OSSL_OP_ENCODER:
      return of_this_thread->encoders_.data();
    default:
      return OSSL_PROVIDER_query_operation(of_this_thread->default_provider_.get(), operation,
                                           no_store);
  }
}

// Constant-initialised and without a destructor: rows of destructors that run later than the
// thread's own objects ask it as well.
thread_local constinit bool thread_is_ending = false;

struct Thread_state {
  ~Thread_state() { thread_is_ending = true; }

  std::unique_ptr<const Small_context> context;
  pid_t process = 0;  // which made the context
};

// The calling thread's small context; null if there is none and none can be made.
OSSL_LIB_CTX *small_context_of_this_thread() noexcept {
  if (thread_is_ending) {
    return nullptr;
  }
  thread_local Thread_state state;
  const pid_t process = getpid();
  if (state.process != process) {
    // After a fork the parent's context is left alone: its locks and random generators may be in
    // any state.
    static_cast<void>(state.context.release());
    state.process = process;
  }
  if (!state.context) {
    try {
      state.context = std::make_unique<Small_context>();
    } catch (const std::bad_alloc &) {
      return nullptr;
    }
  }
  return state.context->get();
}

std::atomic<Small_context_use> chosen_use = Small_context_use::where_it_pays;

// Whether the default provider is the only active one of the default context.
bool has_only_the_default_provider() {
  bool found_another = false;
  const auto look = [](OSSL_PROVIDER *provider, void *found) {
    if (std::string_view{OSSL_PROVIDER_get0_name(provider)} != "default") {
      *static_cast<bool *>(found) = true;
    }
    return 1;
  };
  return OSSL_PROVIDER_do_all(nullptr, look, &found_another) == 1 && !found_another;
}

// Default properties can hide the default provider's algorithms from everyone.
bool offers_rsa_by_default() {
  const std::unique_ptr<EVP_KEYMGMT, Free_with<EVP_KEYMGMT_free>> key_manager{
      EVP_KEYMGMT_fetch(nullptr, "RSA", nullptr)};
  return key_manager != nullptr;
}

// An engine takes RSA keys over whatever the context.
bool has_rsa_engine() {
#ifdef OPENSSL_NO_ENGINE
  return false;
#else
// Engines are deprecated, but a program that still uses one must keep it.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
  const auto exists = [](ENGINE *engine) {
    // Null is accepted.
    ENGINE_finish(engine);
    return engine != nullptr;
  };
  return exists(ENGINE_get_default_RSA()) || exists(ENGINE_get_pkey_meth_engine(EVP_PKEY_RSA));
#pragma GCC diagnostic pop
#endif
}

void free_text(char *text) { OPENSSL_free(text); }

// Whether the configuration file chooses random generators or their source of seed (config(5ssl),
// "random"), which apply to the default context only. Read once per process, as OpenSSL reads it.
bool configuration_chooses_random() {
  static const bool chooses = [] {
    const std::unique_ptr<char, Free_with<free_text>> file{CONF_get1_default_config_file()};
    const std::unique_ptr<CONF, Free_with<NCONF_free>> configuration{NCONF_new(nullptr)};
    if (!file || NCONF_load(configuration.get(), file.get(), nullptr) <= 0) {
      return false;
    }
    const char *const section = NCONF_get_string(configuration.get(), nullptr, "openssl_conf");
    return section != nullptr &&
           NCONF_get_string(configuration.get(), section, "random") != nullptr;
  }();
  return chooses;
}

// Whether the default context is as OpenSSL makes it, on this thread and at this moment.
bool default_context_is_unchanged() {
  return OSSL_LIB_CTX_set0_default(nullptr) == OSSL_LIB_CTX_get0_global_default() &&
         has_only_the_default_provider() && offers_rsa_by_default() && !has_rsa_engine() &&
         !configuration_chooses_random();
}

// An RSA key of 2048 bits for the measurement; what it belongs to does not matter.
constexpr std::string_view sample_key = R"(-----BEGIN PUBLIC KEY-----
MIIBIjANBgkqhkiG9w0BAQEFAAOCAQ8AMIIBCgKCAQEAyPBXdh9lc2FhaVq4Xnoi
Wj4P7/e3yXh8K6nk0IxYxax/72hPxPLhmFy9lNDVRQPuimn7WIoxTEIDv7B4jVks
MZMAX1Mei2djHqCfYhYuqhAYcBm3D97IxFjGheZy5XaCaJxSm0jKjFHvSjQbcqF/
p2BD4KQv3Z64NRGNrIf5uEkOJ2WXvE0XL4cd6sbj0UDxdnHtsiFDX8jZ4Cj8r3Pz
YTFgeUHIhC5DIp44yLL0ibkh4mSQ1OgykLDH6xIRyreiLCRzoQKRlrcdoOpP9QmT
aUSYp8xj8fDiB379rQcoELIXFN0ksp9t9frDfMpxSvLOvwYo7ab9NOLWpBw9G6r2
jQIDAQAB
-----END PUBLIC KEY-----
)";

// The shortest of a few readings of the sample key in the thread's default context.
std::chrono::nanoseconds time_to_read_a_key() {
  using Clock = std::chrono::steady_clock;
  constexpr int readings = 4;
  auto shortest = std::chrono::nanoseconds::max();
  for (int i = 0; i < readings; ++i) {
    const auto begin = Clock::now();
    const Bio_ptr bio{BIO_new_mem_buf(sample_key.data(), static_cast<int>(sample_key.size()))};
    const Pkey_ptr key{PEM_read_bio_PUBKEY(bio.get(), nullptr, nullptr, nullptr)};
    shortest = std::min<std::chrono::nanoseconds>(shortest, Clock::now() - begin);
  }
  return shortest;
}

// Whether rows have come from a second thread of this process: from then on the default context's
// locks cost more than a single thread's measurement shows.
bool rows_come_from_several_threads() {
  static const thread_local char this_thread = 0;
  static std::atomic<const char *> first_thread = nullptr;
  static std::atomic<bool> several = false;
  const char *first = nullptr;
  if (!first_thread.compare_exchange_strong(first, &this_thread) && first != &this_thread) {
    several = true;
  }
  return several;
}

// Measured once per process, by the first thread that asks.
bool is_a_fifth_faster(OSSL_LIB_CTX *small_context) {
  const auto by_default = time_to_read_a_key();
  OSSL_LIB_CTX *const former = OSSL_LIB_CTX_set0_default(small_context);
  const auto in_small_context = time_to_read_a_key();
  OSSL_LIB_CTX_set0_default(former);
  return in_small_context * 5 <= by_default * 4;
}

bool pays(OSSL_LIB_CTX *small_context) {
  static const bool on_one_thread = is_a_fifth_faster(small_context);
  return on_one_thread || rows_come_from_several_threads();
}

// The calling thread's small context; null if its next row has to run in the default context.
OSSL_LIB_CTX *small_context_for_row() noexcept {
  const Small_context_use use = chosen_use;
  if (use == Small_context_use::never || !default_context_is_unchanged()) {
    return nullptr;
  }
  OSSL_LIB_CTX *const small_context = small_context_of_this_thread();
  const bool wanted =
      small_context != nullptr && (use == Small_context_use::always || pays(small_context));
  return wanted ? small_context : nullptr;
}

}  // namespace

Small_context_use small_context_use_of_environment() noexcept {
  const char *const variable = secure_getenv("HALVEX_ROW_CONTEXT");
  const std::string_view value = variable != nullptr ? variable : "";
  if (value == "on") {
    return Small_context_use::always;
  }
  return value == "off" ? Small_context_use::never : Small_context_use::where_it_pays;
}

void set_small_context_use(Small_context_use use) noexcept { chosen_use = use; }

bool reads_alike_in_small_context(std::string_view pem) noexcept {
  static constexpr std::string_view begin = "-----BEGIN";
  static constexpr std::array<std::string_view, 3> labels{" PUBLIC KEY-----", " PRIVATE KEY-----",
                                                          " RSA PRIVATE KEY-----"};
  const std::size_t block = pem.find(begin);
  if (block == std::string_view::npos) {
    return false;
  }
  const std::string_view rest = pem.substr(block + begin.size());
  // A header, which a colon shows, can ask for a pass phrase. What libcrypto attaches to its user
  // interface for that is freed only in the library context in which it was first attached.
  return std::ranges::any_of(labels,
                             [&](std::string_view label) { return rest.starts_with(label); }) &&
         rest.find(begin) == std::string_view::npos && rest.find(':') == std::string_view::npos;
}

Small_context_scope::Small_context_scope() noexcept {
  // A row must not report an error of these questions as its cause.
  ERR_set_mark();
  OSSL_LIB_CTX *const small_context = small_context_for_row();
  ERR_pop_to_mark();
  if (small_context != nullptr) {
    former_ = OSSL_LIB_CTX_set0_default(small_context);
  }
}

Small_context_scope::~Small_context_scope() {
  if (former_ != nullptr) {
    OSSL_LIB_CTX_set0_default(former_);
  }
}

}  // namespace dovrin_host
