// One row of each SQL function, through the shipped object as a server calls it, and the OpenSSL
// calls that the row cannot do without, made directly. Keys come from tests/fixtures: RSA, 2048
// bits.

#include <benchmark/benchmark.h>

#include <array>
#include <cstdlib>
#include <iostream>
#include <span>
#include <string>
#include <string_view>

#include "support/fixture.h"
#include "support/loaded_component.h"
#include "support/openssl_rows.h"
#include "support/raw_call.h"

namespace {

using halvex_test::Argument_view;
using halvex_test::create_key_row;
using halvex_test::decrypt_row;
using halvex_test::digest_row;
using halvex_test::encrypt_row;
using halvex_test::fixture;
using halvex_test::public_key_row;
using halvex_test::Row_buffer;
using halvex_test::sign_row;
using halvex_test::verify_row;

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

// Arguments that several benchmarks share, made before any of them runs.
struct Inputs {
  std::string ciphertext;
  std::string signature;
};

const Inputs &inputs() {
  static const Inputs made = [] {
    Inputs fresh;
    Row_buffer out{};
    fresh.ciphertext.assign(reinterpret_cast<const char *>(out.data()),
                            encrypt_row(public_key(), content, out));
    fresh.signature.assign(reinterpret_cast<const char *>(out.data()),
                           sign_row(private_key(), content, out));
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
    Row_buffer out{};
    measure(state, [&] { benchmark::DoNotOptimize(digest_row(content, out)); });
  });
}

void register_encryption() {
  benchmark::RegisterBenchmark("asymmetric_encrypt/component", [](benchmark::State &state) {
    measure_row(state, "asymmetric_encrypt", Argument_view("RSA"), Argument_view(content),
                Argument_view(public_key()));
  });
  benchmark::RegisterBenchmark("asymmetric_encrypt/openssl", [](benchmark::State &state) {
    Row_buffer out{};
    measure(state, [&] { benchmark::DoNotOptimize(encrypt_row(public_key(), content, out)); });
  });
  benchmark::RegisterBenchmark("asymmetric_decrypt/component", [](benchmark::State &state) {
    measure_row(state, "asymmetric_decrypt", Argument_view("RSA"),
                Argument_view(inputs().ciphertext), Argument_view(private_key()));
  });
  benchmark::RegisterBenchmark("asymmetric_decrypt/openssl", [](benchmark::State &state) {
    Row_buffer out{};
    measure(state, [&] {
      benchmark::DoNotOptimize(decrypt_row(private_key(), inputs().ciphertext, out));
    });
  });
}

void register_signatures() {
  benchmark::RegisterBenchmark("asymmetric_sign/component", [](benchmark::State &state) {
    measure_row(state, "asymmetric_sign", Argument_view("RSA"), Argument_view(content),
                Argument_view(private_key()), Argument_view("SHA256"));
  });
  benchmark::RegisterBenchmark("asymmetric_sign/openssl", [](benchmark::State &state) {
    Row_buffer out{};
    measure(state, [&] { benchmark::DoNotOptimize(sign_row(private_key(), content, out)); });
  });
  benchmark::RegisterBenchmark("asymmetric_verify/component", [](benchmark::State &state) {
    measure_row(state, "asymmetric_verify", Argument_view("RSA"), Argument_view(content),
                Argument_view(inputs().signature), Argument_view(public_key()),
                Argument_view("SHA256"));
  });
  benchmark::RegisterBenchmark("asymmetric_verify/openssl", [](benchmark::State &state) {
    measure(state, [] { verify_row(public_key(), content, inputs().signature); });
  });
}

void register_keys() {
  benchmark::RegisterBenchmark("create_asymmetric_pub_key/component", [](benchmark::State &state) {
    measure_row(state, "create_asymmetric_pub_key", Argument_view("RSA"),
                Argument_view(private_key()));
  });
  benchmark::RegisterBenchmark("create_asymmetric_pub_key/openssl", [](benchmark::State &state) {
    measure(state, [] { public_key_row(private_key()); });
  });
  benchmark::RegisterBenchmark("create_asymmetric_priv_key/component", [](benchmark::State &state) {
    measure_row(state, "create_asymmetric_priv_key", Argument_view("RSA"),
                halvex_test::integer<2048>());
  });
  benchmark::RegisterBenchmark("create_asymmetric_priv_key/openssl", [](benchmark::State &state) {
    measure(state, [] { create_key_row(2048); });
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
