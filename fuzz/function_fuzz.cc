// One SQL function with arbitrary arguments: HALVEX_FUZZ_FUNCTION names it. The first byte of the
// input sets the switches, the rest are the arguments (fields.h).

#include <openssl/err.h>
#include <openssl/ui.h>

#include <array>
#include <charconv>

#include "bare_server.h"
#include "fields.h"
#include "loaded_component.h"

extern "C" const Dovrin_component *list_components();

namespace {

using halvex_fuzz::Exact_copy;
using halvex_fuzz::require;
using reliability::Argument;
using reliability::Call_result;

constexpr const char *function_name = HALVEX_FUZZ_FUNCTION;

// Bits of the first byte.
constexpr unsigned int legacy_padding = 1;
constexpr unsigned int creates_keys = 0xE0;

const reliability::Registered_function &initialised_function() {
  static const reliability::Registered_function *const function = [] {
    UI_set_default_method(UI_null());
    require(reliability::connect_services(*list_components()) && list_components()->init() == 0);
    return reliability::find_function(function_name);
  }();
  return *function;
}

// Creating a key takes so long that few inputs may: only the smallest, and only with the switches
// set.
long long affordable(long long key_length, unsigned int switches) {
  constexpr long long smallest = 2048;
  constexpr long long largest = 16384;
  if (key_length < smallest || key_length > largest) {
    return key_length;
  }
  return (switches & creates_keys) == creates_keys ? smallest : -key_length;
}

long long number_in(std::string_view digits) {
  long long value = 0;
  std::from_chars(digits.data(), digits.data() + digits.size(), value);
  return value;
}

// The argument that a field stands for; `copy` owns its bytes.
Argument argument_from(std::string_view field, const Exact_copy &copy, unsigned int switches) {
  switch (field.empty() ? '\0' : field.front()) {
    case 'i':
      return {INT_RESULT, nullptr, 0, affordable(number_in(field.substr(1)), switches)};
    case 'r':
      return {REAL_RESULT, nullptr, 0, 0};
    case 'n':
      return {STRING_RESULT, nullptr, 0, 0};
    case 'm':
      return {.type = INT_RESULT, .null_number = true};
    default:
      return {STRING_RESULT, copy.data(), copy.size(), 0};
  }
}

std::string_view text_of(std::string_view field) {
  return !field.empty() && field.front() == 's' ? field.substr(1) : field;
}

void check(const reliability::Registered_function &function, const Call_result &result) {
  const bool is_number = function.result_type == INT_RESULT;
  require(!result.error);
  switch (result.ending) {
    case Call_result::Ending::value:
      require(is_number ? result.number == 1 : !result.returned_null);
      require(result.length < sizeof result.bytes);
      break;
    case Call_result::Ending::null:
      require(is_number ? result.number == 0 : result.returned_null);
      break;
    case Call_result::Ending::refused:
      require(std::strncmp(result.message, "Mismatch in ", 12) == 0);
      break;
    default:
      require(false);
  }
  require(ERR_peek_error() == 0);
  require(reliability::malformed_records() == 0);
  require(reliability::live_server_blocks() == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  if (size == 0) {
    return 0;
  }
  const auto &function = initialised_function();
  const unsigned int switches = data[0];
  require(reliability::set_variable("rsa_support_legacy_padding",
                                    static_cast<int>(switches & legacy_padding)));

  const std::string_view input{reinterpret_cast<const char *>(data) + 1, size - 1};
  std::vector<Exact_copy> copies;
  std::vector<Argument> arguments;
  for (const std::string_view field :
       halvex_fuzz::split_fields(input, reliability::most_arguments)) {
    copies.emplace_back(text_of(field));
    arguments.push_back(argument_from(field, copies.back(), switches));
  }

  static Call_result result;
  reliability::call(function, arguments, result);
  check(function, result);
  return 0;
}
