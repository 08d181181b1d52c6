// One row of each SQL function, through the shipped object as a server calls it, and the OpenSSL
// calls that the row cannot do without, made bare. Keys come from tests/fixtures: RSA, 2048 bits.

#include <benchmark/benchmark.h>
#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

#include <array>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <span>
#include <string>
#include <string_view>

#include "bare_server.h"
#include "loaded_component.h"
#include "support/openssl_owners.h"

namespace {

using halvex_test::Bio;
using halvex_test::Digest_context;
using halvex_test::Key;
using halvex_test::Key_context;
using reliability::Argument;
using reliability::find_function;

constexpr std::string_view content =
    "What is signed, encrypted and hashed in every row: 64 bytes ....";

std::string fixture(const char *name) {
  std::ifstream file{std::string(HALVEX_FIXTURES) + "/" + name};
  return {std::istreambuf_iterator<char>{file}, std::istreambuf_iterator<char>{}};
}

const std::string &private_key() {
  static const std::string pem = fixture("rsa2048.pem");
  return pem;
}

const std::string &public_key() {
  static const std::string pem = fixture("rsa2048-public.pem");
  return pem;
}

// A benchmark that measures something other than success is worth nothing.
void require(bool done) {
  if (!done) {
    std::cerr << "a benchmarked call failed\n";
    std::abort();
  }
}

Argument text(std::string_view value) { return {STRING_RESULT, value.data(), value.size(), 0}; }

// One call site: init at construction, one row per call, deinit at the end.
class Call_site {
 public:
  Call_site(const char *name, std::span<const Argument> arguments)
      : function_{find_function(name)} {
    for (std::size_t i = 0; i < arguments.size(); ++i) {
      types_.at(i) = arguments[i].type;
      lengths_.at(i) = arguments[i].length;
      args_.at(i) = const_cast<char *>(arguments[i].bytes);
    }
    record_.arg_count = static_cast<unsigned int>(arguments.size());
    record_.arg_type = types_.data();
    record_.args = args_.data();
    record_.lengths = lengths_.data();
    std::array<char, DOVRIN_UDF_MESSAGE_SIZE> message{};
    require(!function_->init(&instance_, &record_, message.data()));
  }
  ~Call_site() { function_->deinit(&instance_); }
  Call_site(const Call_site &) = delete;
  Call_site &operator=(const Call_site &) = delete;

  // The value of one row, in the instance's buffer; empty for an integer function.
  std::string_view row() {
    unsigned char is_null = 0;
    unsigned char error = 0;
    if (function_->result_type == INT_RESULT) {
      require(reinterpret_cast<Udf_func_longlong>(function_->row)(&instance_, &record_, &is_null,
                                                                  &error) == 1);
      return {};
    }
    unsigned long length = 0;
    const char *value = reinterpret_cast<Udf_func_string>(function_->row)(
        &instance_, &record_, nullptr, &length, &is_null, &error);
    require(value != nullptr);
    return {value, length};
  }

 private:
  const reliability::Registered_function *function_;
  std::array<Item_result, reliability::most_arguments> types_{};
  std::array<char *, reliability::most_arguments> args_{};
  std::array<unsigned long, reliability::most_arguments> lengths_{};
  UDF_ARGS record_{};
  UDF_INIT instance_{};
};

Key read_private_key() {
  const Bio bio{BIO_new_mem_buf(private_key().data(), static_cast<int>(private_key().size()))};
  Key key{PEM_read_bio_PrivateKey(bio.get(), nullptr, nullptr, nullptr)};
  require(key != nullptr);
  return key;
}

Key read_public_key() {
  const Bio bio{BIO_new_mem_buf(public_key().data(), static_cast<int>(public_key().size()))};
  Key key{PEM_read_bio_PUBKEY(bio.get(), nullptr, nullptr, nullptr)};
  require(key != nullptr);
  return key;
}

const unsigned char *bytes(std::string_view value) {
  return reinterpret_cast<const unsigned char *>(value.data());
}

using Buffer = std::array<unsigned char, 4096>;

// The bare calls of one row each; the length of the result comes back.
std::size_t bare_digest(Buffer &out) {
  const Digest_context context{EVP_MD_CTX_new()};
  unsigned int length = 0;
  require(EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr) == 1 &&
          EVP_DigestUpdate(context.get(), content.data(), content.size()) == 1 &&
          EVP_DigestFinal_ex(context.get(), out.data(), &length) == 1);
  return length;
}

std::size_t bare_encrypt(Buffer &out) {
  const Key key = read_public_key();
  const Key_context context{EVP_PKEY_CTX_new(key.get(), nullptr)};
  std::size_t length = out.size();
  require(EVP_PKEY_encrypt_init(context.get()) > 0 &&
          EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_OAEP_PADDING) > 0 &&
          EVP_PKEY_encrypt(context.get(), out.data(), &length, bytes(content), content.size()) > 0);
  return length;
}

std::size_t bare_decrypt(std::string_view ciphertext, Buffer &out) {
  const Key key = read_private_key();
  const Key_context context{EVP_PKEY_CTX_new(key.get(), nullptr)};
  std::size_t length = out.size();
  require(EVP_PKEY_decrypt_init(context.get()) > 0 &&
          EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_OAEP_PADDING) > 0 &&
          EVP_PKEY_decrypt(context.get(), out.data(), &length, bytes(ciphertext),
                           ciphertext.size()) > 0);
  return length;
}

std::size_t bare_sign(Buffer &out) {
  const Key key = read_private_key();
  const Digest_context context{EVP_MD_CTX_new()};
  EVP_PKEY_CTX *key_context = nullptr;  // belongs to `context`
  std::size_t length = out.size();
  require(EVP_DigestSignInit(context.get(), &key_context, EVP_sha256(), nullptr, key.get()) > 0 &&
          EVP_PKEY_CTX_set_rsa_padding(key_context, RSA_PKCS1_PSS_PADDING) > 0 &&
          EVP_DigestSign(context.get(), out.data(), &length, bytes(content), content.size()) > 0);
  return length;
}

void bare_verify(std::string_view signature) {
  const Key key = read_public_key();
  const Digest_context context{EVP_MD_CTX_new()};
  EVP_PKEY_CTX *key_context = nullptr;  // belongs to `context`
  require(EVP_DigestVerifyInit(context.get(), &key_context, EVP_sha256(), nullptr, key.get()) > 0 &&
          EVP_PKEY_CTX_set_rsa_padding(key_context, RSA_PKCS1_PSS_PADDING) > 0 &&
          EVP_DigestVerify(context.get(), bytes(signature), signature.size(), bytes(content),
                           content.size()) == 1);
}

void bare_public_half() {
  const Key key = read_private_key();
  const Bio bio{BIO_new(BIO_s_mem())};
  require(PEM_write_bio_PUBKEY(bio.get(), key.get()) == 1);
}

void bare_key_creation() {
  const Key_context context{EVP_PKEY_CTX_new_id(EVP_PKEY_RSA, nullptr)};
  constexpr int bits = 2048;
  EVP_PKEY *generated = nullptr;
  require(EVP_PKEY_keygen_init(context.get()) > 0 &&
          EVP_PKEY_CTX_set_rsa_keygen_bits(context.get(), bits) > 0 &&
          EVP_PKEY_keygen(context.get(), &generated) > 0);
  const Key key{generated};
  const Bio bio{BIO_new(BIO_s_mem())};
  require(PEM_write_bio_PrivateKey(bio.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr) ==
          1);
}

// Arguments that several benchmarks share, made before any of them runs.
struct Inputs {
  std::string ciphertext;
  std::string signature;
};

const Inputs &inputs() {
  static const Inputs made = [] {
    Inputs fresh;
    Buffer out{};
    fresh.ciphertext.assign(reinterpret_cast<const char *>(out.data()), bare_encrypt(out));
    fresh.signature.assign(reinterpret_cast<const char *>(out.data()), bare_sign(out));
    return fresh;
  }();
  return made;
}

template <typename... Arguments>
void measure_row(benchmark::State &state, const char *function, Arguments... arguments) {
  const std::array all{arguments...};
  Call_site site{function, all};
  for ([[maybe_unused]] const auto _ : state) {
    benchmark::DoNotOptimize(site.row());
  }
}

template <typename Work>
void measure(benchmark::State &state, Work work) {
  for ([[maybe_unused]] const auto _ : state) {
    work();
  }
}

void register_digest() {
  benchmark::RegisterBenchmark("create_digest/component", [](benchmark::State &state) {
    measure_row(state, "create_digest", text("SHA256"), text(content));
  });
  benchmark::RegisterBenchmark("create_digest/openssl", [](benchmark::State &state) {
    Buffer out{};
    measure(state, [&] { benchmark::DoNotOptimize(bare_digest(out)); });
  });
}

void register_encryption() {
  benchmark::RegisterBenchmark("asymmetric_encrypt/component", [](benchmark::State &state) {
    measure_row(state, "asymmetric_encrypt", text("RSA"), text(content), text(public_key()));
  });
  benchmark::RegisterBenchmark("asymmetric_encrypt/openssl", [](benchmark::State &state) {
    Buffer out{};
    measure(state, [&] { benchmark::DoNotOptimize(bare_encrypt(out)); });
  });
  benchmark::RegisterBenchmark("asymmetric_decrypt/component", [](benchmark::State &state) {
    measure_row(state, "asymmetric_decrypt", text("RSA"), text(inputs().ciphertext),
                text(private_key()));
  });
  benchmark::RegisterBenchmark("asymmetric_decrypt/openssl", [](benchmark::State &state) {
    Buffer out{};
    measure(state, [&] { benchmark::DoNotOptimize(bare_decrypt(inputs().ciphertext, out)); });
  });
}

void register_signatures() {
  benchmark::RegisterBenchmark("asymmetric_sign/component", [](benchmark::State &state) {
    measure_row(state, "asymmetric_sign", text("RSA"), text(content), text(private_key()),
                text("SHA256"));
  });
  benchmark::RegisterBenchmark("asymmetric_sign/openssl", [](benchmark::State &state) {
    Buffer out{};
    measure(state, [&] { benchmark::DoNotOptimize(bare_sign(out)); });
  });
  benchmark::RegisterBenchmark("asymmetric_verify/component", [](benchmark::State &state) {
    measure_row(state, "asymmetric_verify", text("RSA"), text(content), text(inputs().signature),
                text(public_key()), text("SHA256"));
  });
  benchmark::RegisterBenchmark("asymmetric_verify/openssl", [](benchmark::State &state) {
    measure(state, [] { bare_verify(inputs().signature); });
  });
}

void register_keys() {
  benchmark::RegisterBenchmark("create_asymmetric_pub_key/component", [](benchmark::State &state) {
    measure_row(state, "create_asymmetric_pub_key", text("RSA"), text(private_key()));
  });
  benchmark::RegisterBenchmark("create_asymmetric_pub_key/openssl",
                               [](benchmark::State &state) { measure(state, bare_public_half); });
  benchmark::RegisterBenchmark("create_asymmetric_priv_key/component", [](benchmark::State &state) {
    static long long length = 2048;
    measure_row(state, "create_asymmetric_priv_key", text("RSA"),
                Argument{INT_RESULT, reinterpret_cast<const char *>(&length), 0, 0});
  });
  benchmark::RegisterBenchmark("create_asymmetric_priv_key/openssl",
                               [](benchmark::State &state) { measure(state, bare_key_creation); });
}

}  // namespace

int main(int argc, char **argv) {
  const reliability::Loaded_component component{HALVEX_COMPONENT_PATH};
  require(component.descriptor() != nullptr && component.descriptor()->init() == 0);
  register_digest();
  register_encryption();
  register_signatures();
  register_keys();
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  return EXIT_SUCCESS;
}
