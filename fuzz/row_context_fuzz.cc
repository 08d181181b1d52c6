// Rows in the thread's small library context beside the same rows in the default one: values,
// records and the error queue must be the same. The low bits of the first byte pick the function,
// one bit is the legacy switch, the fields are the arguments (fields.h), all of them strings.

#include <openssl/err.h>

#include <algorithm>
#include <array>

#include "dovrin_host/error_log.h"
#include "dovrin_host/row_context.h"
#include "dovrin_host/server.h"
#include "fields.h"

namespace {

using dovrin_host::Argument;
using dovrin_host::Log_record;
using dovrin_host::Row_result;
using dovrin_host::Server;
using dovrin_host::Small_context_use;
using halvex_fuzz::Exact_copy;
using halvex_fuzz::require;

constexpr const char *legacy_switch = "component_halvex_encryption.rsa_support_legacy_padding";

struct Function {
  const char *name;
  bool has_random_value;
};

// All that take a key.
constexpr std::array<Function, 5> functions{{
    {"create_asymmetric_pub_key", false},
    {"asymmetric_encrypt", true},
    {"asymmetric_decrypt", false},
    {"asymmetric_sign", true},
    {"asymmetric_verify", false},
}};

// Bits of the first byte.
constexpr unsigned int function_bits = 0x07;
constexpr unsigned int legacy_bit = 0x08;

class Record_collector : public dovrin_host::Log_sink {
 public:
  dovrin_host::Status write(const Log_record &record) override {
    records.push_back(record);
    records.back().time = {};
    return {};
  }

  std::vector<Log_record> records;
};

Record_collector &collector() {
  static const std::shared_ptr<Record_collector> sink = [] {
    auto made = std::make_shared<Record_collector>();
    Server::instance().error_log().add_sink(made);
    return made;
  }();
  return *sink;
}

void install_component() {
  static const bool installed = Server::instance().install(HALVEX_COMPONENT_PATH).ok();
  require(installed);
}

struct Outcome {
  Row_result::Kind kind = Row_result::Kind::null;
  std::string bytes;
  long long integer = 0;
  std::vector<Log_record> records;
  bool leaves_errors = false;

  bool operator==(const Outcome &) const = default;
};

Outcome run(const Function &function, const std::vector<Argument> &arguments,
            Small_context_use use) {
  dovrin_host::set_small_context_use(use);
  collector().records.clear();
  const std::vector<Item_result> types(arguments.size(), STRING_RESULT);
  const auto instance = Server::instance().open_function(function.name, types);
  if (!instance.ok()) {
    return {Row_result::Kind::error, instance.message(), 0, collector().records, false};
  }
  const Row_result row = instance.value()->row(arguments);
  return {row.kind, std::string{row.text}, row.integer, collector().records, ERR_peek_error() != 0};
}

// Random values of RSA keys have one length, which is longer than any DER encoding of an ECDSA or
// DSA signature.
void forget_random_bytes(Outcome &outcome) {
  constexpr std::size_t longest_der_signature = 72;
  if (outcome.kind == Row_result::Kind::string) {
    outcome.bytes.assign(std::max(outcome.bytes.size(), longest_der_signature), '\0');
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  constexpr std::size_t most_arguments = 6;
  if (size == 0) {
    return 0;
  }
  install_component();
  const unsigned int switches = data[0];
  const Function &function = functions.at((switches & function_bits) % functions.size());
  require(Server::instance().variables().set(legacy_switch, (switches & legacy_bit) != 0).ok());

  const std::string_view input{reinterpret_cast<const char *>(data) + 1, size - 1};
  std::vector<Exact_copy> copies;
  std::vector<Argument> arguments;
  for (const std::string_view field : halvex_fuzz::split_fields(input, most_arguments)) {
    copies.emplace_back(field);
    arguments.push_back(Argument::string({copies.back().data(), copies.back().size()}));
  }

  Outcome by_default = run(function, arguments, Small_context_use::never);
  Outcome small = run(function, arguments, Small_context_use::always);
  if (function.has_random_value) {
    forget_random_bytes(by_default);
    forget_random_bytes(small);
  }
  require(small == by_default);
  require(!small.leaves_errors);
  return 0;
}
