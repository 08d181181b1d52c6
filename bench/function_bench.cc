// One row of each SQL function, through the shipped object as a server calls it, and the OpenSSL
// calls that the row cannot do without, made directly. Keys come from tests/fixtures: RSA, 2048
// bits.

#include <benchmark/benchmark.h>
#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

#include <array>
#include <cstdlib>
#include <iostream>
#include <span>
#include <string>
#include <string_view>

#include "support/fixture.h"
#include "support/loaded_component.h"
#include "support/raw_call.h"
#include "support/reference_implementation.h"

namespace {

using halvex_test::Argument_view;
using halvex_test::Bio;
using halvex_test::Digest_context;
using halvex_test::fixture;
using halvex_test::Key;
using halvex_test::Key_context;

constexpr std::string_view content =
    "What is signed, encrypted and hashed in every row: 64 bytes ....";

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

// One call site: init at construction, one row per call, deinit at the end.
class Call_site {
 public:
  Call_site(const char *name, std::span<const Argument_view> arguments)
      : function_{*halvex_test::find_function(name)}, arguments_{arguments} {
    std::array<char, DOVRIN_UDF_MESSAGE_SIZE> message{};
    require(halvex_test::run_init(function_, instance_, arguments_.get(), message.data()));
  }
  ~Call_site() { halvex_test::run_deinit(function_, instance_); }
  Call_site(const Call_site &) = delete;
  Call_site &operator=(const Call_site &) = delete;

  // The value of one row, in the instance's buffer; empty for an integer function.
  std::string_view row() {
    unsigned char is_null = 0;
    const halvex_test::Raw_row row =
        halvex_test::run_row(function_, instance_, arguments_.get(), is_null);
    require(!row.is_null && (row.bytes != nullptr || row.integer == 1));
    return {row.bytes, row.length};
  }

 private:
  const halvex_test::Registered_function &function_;
  halvex_test::Argument_array arguments_;
  UDF_INIT instance_{};
};

Key read_private_key() {
  Key key = halvex_test::read_private_pem(private_key());
  require(key != nullptr);
  return key;
}

Key read_public_key() {
  Key key = halvex_test::read_public_pem(public_key());
  require(key != nullptr);
  return key;
}

const unsigned char *bytes(std::string_view value) {
  return reinterpret_cast<const unsigned char *>(value.data());
}

using Buffer = std::array<unsigned char, 4096>;

// The OpenSSL calls of one row each; the length of the result comes back.
std::size_t direct_digest(Buffer &out) {
  const Digest_context context{EVP_MD_CTX_new()};
  unsigned int length = 0;
  require(EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr) == 1 &&
          EVP_DigestUpdate(context.get(), content.data(), content.size()) == 1 &&
          EVP_DigestFinal_ex(context.get(), out.data(), &length) == 1);
  return length;
}

std::size_t direct_encrypt(Buffer &out) {
  const Key key = read_public_key();
  const Key_context context{EVP_PKEY_CTX_new(key.get(), nullptr)};
  std::size_t length = out.size();
  require(EVP_PKEY_encrypt_init(context.get()) > 0 &&
          EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_OAEP_PADDING) > 0 &&
          EVP_PKEY_encrypt(context.get(), out.data(), &length, bytes(content), content.size()) > 0);
  return length;
}

std::size_t direct_decrypt(std::string_view ciphertext, Buffer &out) {
  const Key key = read_private_key();
  const Key_context context{EVP_PKEY_CTX_new(key.get(), nullptr)};
  std::size_t length = out.size();
  require(EVP_PKEY_decrypt_init(context.get()) > 0 &&
          EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_OAEP_PADDING) > 0 &&
          EVP_PKEY_decrypt(context.get(), out.data(), &length, bytes(ciphertext),
                           ciphertext.size()) > 0);
  return length;
}

std::size_t direct_sign(Buffer &out) {
  const Key key = read_private_key();
  const Digest_context context{EVP_MD_CTX_new()};
  EVP_PKEY_CTX *key_context = nullptr;  // belongs to `context`
  std::size_t length = out.size();
  require(EVP_DigestSignInit(context.get(), &key_context, EVP_sha256(), nullptr, key.get()) > 0 &&
          EVP_PKEY_CTX_set_rsa_padding(key_context, RSA_PKCS1_PSS_PADDING) > 0 &&
          EVP_DigestSign(context.get(), out.data(), &length, bytes(content), content.size()) > 0);
  return length;
}

void direct_verify(std::string_view signature) {
  const Key key = read_public_key();
  const Digest_context context{EVP_MD_CTX_new()};
  EVP_PKEY_CTX *key_context = nullptr;  // belongs to `context`
  require(EVP_DigestVerifyInit(context.get(), &key_context, EVP_sha256(), nullptr, key.get()) > 0 &&
          EVP_PKEY_CTX_set_rsa_padding(key_context, RSA_PKCS1_PSS_PADDING) > 0 &&
          EVP_DigestVerify(context.get(), bytes(signature), signature.size(), bytes(content),
                           content.size()) == 1);
}

void direct_public_half() {
  const Key key = read_private_key();
  const Bio bio{BIO_new(BIO_s_mem())};
  require(PEM_write_bio_PUBKEY(bio.get(), key.get()) == 1);
}

void direct_key_creation() {
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
    fresh.ciphertext.assign(reinterpret_cast<const char *>(out.data()), direct_encrypt(out));
    fresh.signature.assign(reinterpret_cast<const char *>(out.data()), direct_sign(out));
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
    measure_row(state, "create_digest", Argument_view("SHA256"), Argument_view(content));
  });
  benchmark::RegisterBenchmark("create_digest/openssl", [](benchmark::State &state) {
    Buffer out{};
    measure(state, [&] { benchmark::DoNotOptimize(direct_digest(out)); });
  });
}

void register_encryption() {
  benchmark::RegisterBenchmark("asymmetric_encrypt/component", [](benchmark::State &state) {
    measure_row(state, "asymmetric_encrypt", Argument_view("RSA"), Argument_view(content),
                Argument_view(public_key()));
  });
  benchmark::RegisterBenchmark("asymmetric_encrypt/openssl", [](benchmark::State &state) {
    Buffer out{};
    measure(state, [&] { benchmark::DoNotOptimize(direct_encrypt(out)); });
  });
  benchmark::RegisterBenchmark("asymmetric_decrypt/component", [](benchmark::State &state) {
    measure_row(state, "asymmetric_decrypt", Argument_view("RSA"),
                Argument_view(inputs().ciphertext), Argument_view(private_key()));
  });
  benchmark::RegisterBenchmark("asymmetric_decrypt/openssl", [](benchmark::State &state) {
    Buffer out{};
    measure(state, [&] { benchmark::DoNotOptimize(direct_decrypt(inputs().ciphertext, out)); });
  });
}

void register_signatures() {
  benchmark::RegisterBenchmark("asymmetric_sign/component", [](benchmark::State &state) {
    measure_row(state, "asymmetric_sign", Argument_view("RSA"), Argument_view(content),
                Argument_view(private_key()), Argument_view("SHA256"));
  });
  benchmark::RegisterBenchmark("asymmetric_sign/openssl", [](benchmark::State &state) {
    Buffer out{};
    measure(state, [&] { benchmark::DoNotOptimize(direct_sign(out)); });
  });
  benchmark::RegisterBenchmark("asymmetric_verify/component", [](benchmark::State &state) {
    measure_row(state, "asymmetric_verify", Argument_view("RSA"), Argument_view(content),
                Argument_view(inputs().signature), Argument_view(public_key()),
                Argument_view("SHA256"));
  });
  benchmark::RegisterBenchmark("asymmetric_verify/openssl", [](benchmark::State &state) {
    measure(state, [] { direct_verify(inputs().signature); });
  });
}

void register_keys() {
  benchmark::RegisterBenchmark("create_asymmetric_pub_key/component", [](benchmark::State &state) {
    measure_row(state, "create_asymmetric_pub_key", Argument_view("RSA"),
                Argument_view(private_key()));
  });
  benchmark::RegisterBenchmark("create_asymmetric_pub_key/openssl",
                               [](benchmark::State &state) { measure(state, direct_public_half); });
  benchmark::RegisterBenchmark("create_asymmetric_priv_key/component", [](benchmark::State &state) {
    measure_row(state, "create_asymmetric_priv_key", Argument_view("RSA"),
                halvex_test::integer<2048>());
  });
  benchmark::RegisterBenchmark("create_asymmetric_priv_key/openssl", [](benchmark::State &state) {
    measure(state, direct_key_creation);
  });
}

}  // namespace

int main(int argc, char **argv) {
  halvex_test::Loaded_component component;
  require(component.init() == 0);
  register_digest();
  register_encryption();
  register_signatures();
  register_keys();
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  return EXIT_SUCCESS;
}
