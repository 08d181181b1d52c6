// One row of each SQL function in four variants: the OpenSSL calls that the row cannot do without
// (openssl), the component's callback called directly (component), and the row through the stand-in
// server in OpenSSL's default library context (default) and in the small one (small). The names are
// FUNCTION/VARIANT/SIZE, the size in bits of the RSA key or, for digests, in bytes of the content.

#include <benchmark/benchmark.h>

#include <array>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "dovrin_host/row_context.h"
#include "dovrin_host/server.h"
#include "support/fixture.h"
#include "support/openssl_rows.h"
#include "support/raw_call.h"

namespace {

using dovrin_host::Argument;
using dovrin_host::Row_result;
using dovrin_host::Server;
using dovrin_host::Small_context_use;
using halvex_test::Argument_view;
using halvex_test::Row_buffer;
using Texts = std::vector<std::string>;

// A measurement of something other than success is worth nothing.
void require(bool done) {
  if (!done) {
    std::cerr << "a benchmarked call failed\n";
    std::abort();
  }
}

Row_buffer &result_buffer() {
  static thread_local Row_buffer buffer;
  return buffer;
}

std::string result_text(std::size_t length) {
  return {reinterpret_cast<const char *>(result_buffer().data()), length};
}

// A row to measure.
struct Row {
  std::string function;
  Texts arguments;
  void (*call_openssl)(const Texts &arguments);
  std::string size;
};

// The component's callbacks at one call site, without a server around them.
class Direct_site {
 public:
  Direct_site(const std::string &function, const Texts &arguments)
      : pin_{Server::instance().functions().pin(function)},
        arguments_{std::vector<Argument_view>(arguments.begin(), arguments.end())} {
    std::array<char, DOVRIN_UDF_MESSAGE_SIZE> message{};
    require(pin_ && !pin_.definition().init(&instance_, &arguments_.get(), message.data()));
  }
  Direct_site(const Direct_site &) = delete;
  Direct_site &operator=(const Direct_site &) = delete;
  ~Direct_site() { pin_.definition().deinit(&instance_); }

  void row() {
    unsigned char is_null = 0;
    unsigned char error = 0;
    const dovrin_host::Function_definition &function = pin_.definition();
    if (function.result_type == INT_RESULT) {
      const auto call = reinterpret_cast<Udf_func_longlong>(function.row);
      require(call(&instance_, &arguments_.get(), &is_null, &error) == 1);
      return;
    }
    const auto call = reinterpret_cast<Udf_func_string>(function.row);
    unsigned long length = 0;
    require(call(&instance_, &arguments_.get(), buffer_.data(), &length, &is_null, &error) !=
            nullptr);
  }

 private:
  dovrin_host::Function_pin pin_;
  halvex_test::Argument_array arguments_;
  UDF_INIT instance_{};
  std::array<char, 766> buffer_{};  // what a server lends
};

void measure_openssl(benchmark::State &state, const Row &row) {
  for ([[maybe_unused]] const auto _ : state) {
    row.call_openssl(row.arguments);
  }
}

void measure_component(benchmark::State &state, const Row &row) {
  Direct_site site{row.function, row.arguments};
  for ([[maybe_unused]] const auto _ : state) {
    site.row();
  }
}

void measure_server(benchmark::State &state, const Row &row, Small_context_use use) {
  dovrin_host::set_small_context_use(use);
  std::vector<Argument> arguments;
  for (const std::string &text : row.arguments) {
    arguments.push_back(Argument::terminated_string(text));
  }
  const std::vector<Item_result> types(arguments.size(), STRING_RESULT);
  auto opened = Server::instance().open_function(row.function, types);
  require(opened.ok());
  const auto instance = std::move(opened).value();
  for ([[maybe_unused]] const auto _ : state) {
    const Row_result result = instance->row(arguments);
    require(result.kind == Row_result::Kind::string || result.kind == Row_result::Kind::integer);
  }
}

Row digest_of(std::size_t bytes) {
  return {"create_digest",
          {"SHA256", std::string(bytes, 'x')},
          [](const Texts &arguments) { halvex_test::digest_row(arguments[1], result_buffer()); },
          std::to_string(bytes)};
}

std::vector<Row> rows_with_key(const std::string &bits) {
  const std::string content = "What is signed, encrypted and hashed in every row: 64 bytes ....";
  const std::string private_key = halvex_test::fixture("rsa" + bits + ".pem");
  const std::string public_key = halvex_test::fixture("rsa" + bits + "-public.pem");
  const std::string ciphertext =
      result_text(halvex_test::encrypt_row(public_key, content, result_buffer()));
  const std::string signature =
      result_text(halvex_test::sign_row(private_key, content, result_buffer()));
  return {
      {"create_asymmetric_pub_key",
       {"RSA", private_key},
       [](const Texts &arguments) { halvex_test::public_key_row(arguments[1]); },
       bits},
      {"asymmetric_encrypt",
       {"RSA", content, public_key},
       [](const Texts &arguments) {
         halvex_test::encrypt_row(arguments[2], arguments[1], result_buffer());
       },
       bits},
      {"asymmetric_verify",
       {"RSA", content, signature, public_key, "SHA256"},
       [](const Texts &arguments) {
         halvex_test::verify_row(arguments[3], arguments[1], arguments[2]);
       },
       bits},
      {"asymmetric_decrypt",
       {"RSA", ciphertext, private_key},
       [](const Texts &arguments) {
         halvex_test::decrypt_row(arguments[2], arguments[1], result_buffer());
       },
       bits},
      {"asymmetric_sign",
       {"RSA", content, private_key, "SHA256"},
       [](const Texts &arguments) {
         halvex_test::sign_row(arguments[2], arguments[1], result_buffer());
       },
       bits},
  };
}

template <typename Measure>
void register_variant(const std::shared_ptr<const Row> &row, const std::string &variant,
                      Measure measure) {
  const std::string name = row->function + '/' + variant + '/' + row->size;
  benchmark::RegisterBenchmark(name.c_str(),
                               [row, measure](benchmark::State &state) { measure(state, *row); })
      ->UseRealTime()
      ->Threads(1)
      ->Threads(2);
}

void register_row(Row made) {
  const auto row = std::make_shared<const Row>(std::move(made));
  const auto in_context = [](Small_context_use use) {
    return [use](benchmark::State &state, const Row &of) { measure_server(state, of, use); };
  };
  register_variant(row, "openssl", measure_openssl);
  register_variant(row, "component", measure_component);
  register_variant(row, "default", in_context(Small_context_use::never));
  if (row->function != "create_digest") {  // whose rows never enter the small context
    register_variant(row, "small", in_context(Small_context_use::always));
  }
}

}  // namespace

int main(int argc, char **argv) {
  const auto lease = Server::instance().acquire(COMPONENT_FILE);
  require(lease.ok());
  for (const std::size_t bytes : {16U, 64U, 1024U, 65536U, 1048576U, 100000000U}) {
    register_row(digest_of(bytes));
  }
  for (const char *const bits : {"2048", "3072", "4096"}) {
    for (Row &row : rows_with_key(bits)) {
      register_row(std::move(row));
    }
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  return EXIT_SUCCESS;
}
