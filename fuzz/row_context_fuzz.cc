// Rows in the thread's small library context beside the same rows in the default one: values,
// records and the error queue must be the same. The low bits of the first byte pick the function,
// one bit is the legacy switch, the fields are the arguments (fields.h), all of them strings.

#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "dovrin_host/server.h"
#include "fields.h"
#include "support/host_rows.h"

namespace {

using dovrin_host::Argument;
using halvex_fuzz::Exact_copy;
using halvex_fuzz::require;

// All that take a key.
constexpr std::array<const char *, 5> functions{"create_asymmetric_pub_key", "asymmetric_encrypt",
                                                "asymmetric_decrypt", "asymmetric_sign",
                                                "asymmetric_verify"};

// Bits of the first byte.
constexpr unsigned int function_bits = 0x07;
constexpr unsigned int legacy_bit = 0x08;

void install_component() {
  static const bool installed = dovrin_host::Server::instance().install(HALVEX_COMPONENT_PATH).ok();
  require(installed);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  constexpr std::size_t most_arguments = 6;
  if (size == 0) {
    return 0;
  }
  install_component();
  const unsigned int switches = data[0];
  const std::string function = functions.at((switches & function_bits) % functions.size());
  halvex_test::set_host_legacy_padding((switches & legacy_bit) != 0);

  const std::string_view input{reinterpret_cast<const char *>(data) + 1, size - 1};
  std::vector<Exact_copy> copies;
  std::vector<Argument> arguments;
  for (const std::string_view field : halvex_fuzz::split_fields(input, most_arguments)) {
    copies.emplace_back(field);
    arguments.push_back(Argument::string({copies.back().data(), copies.back().size()}));
  }

  const halvex_test::Both_rows rows = halvex_test::run_in_both_contexts(function, arguments);
  require(rows.alike);
  require(!rows.small.leaves_errors);
  return 0;
}
