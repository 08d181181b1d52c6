// One SQL function with arbitrary arguments: HALVEX_FUZZ_FUNCTION names it. The first byte of the
// input sets the switches, the rest are the arguments (fields.h).

#include <charconv>

#include "linked_component.h"
#include "support/raw_call.h"

namespace {

using halvex_fuzz::Exact_copy;
using halvex_fuzz::require;
using halvex_test::Argument_view;
using halvex_test::Raw_result;
using halvex_test::Registered_function;

constexpr const char *function_name = HALVEX_FUZZ_FUNCTION;

// Bits of the first byte.
constexpr unsigned int legacy_padding = 1;
constexpr unsigned int creates_keys = 0xE0;

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

template <typename Number>
std::string bytes_of(Number number) {
  return {reinterpret_cast<const char *>(&number), sizeof number};
}

// One argument and its bytes, in memory of their size.
class Owned_argument {
 public:
  Owned_argument(std::string_view field, unsigned int switches)
      : kind_{field.empty() ? '\0' : field.front()}, bytes_{bytes_for(field, switches)} {}

  [[nodiscard]] Argument_view view() const {
    switch (kind_) {
      case 'i':
        return {INT_RESULT, bytes_.data(), 0};
      case 'r':
        return {REAL_RESULT, bytes_.data(), 0};
      case 'n':
        return {STRING_RESULT, nullptr, 0};
      case 'm':
        return {INT_RESULT, nullptr, 0};
      default:
        return {STRING_RESULT, bytes_.data(), bytes_.size()};
    }
  }

 private:
  [[nodiscard]] std::string bytes_for(std::string_view field, unsigned int switches) const {
    switch (kind_) {
      case 'i':
        return bytes_of(affordable(number_in(field.substr(1)), switches));
      case 'r':
        return bytes_of(0.0);
      case 's':
        return std::string(field.substr(1));
      default:
        return std::string(field);
    }
  }

  char kind_;
  Exact_copy bytes_;
};

void check(const Registered_function &function, const Raw_result &result) {
  const bool is_number = function.result_type == INT_RESULT;
  require(!result.error);
  switch (result.ending) {
    case Raw_result::Ending::value:
      require(is_number ? result.number == 1 : result.length < sizeof result.bytes);
      break;
    case Raw_result::Ending::null:
      require(result.number == 0);
      break;
    case Raw_result::Ending::rejected:
      require(std::strncmp(result.message, "Mismatch in ", 12) == 0);
      break;
    default:
      require(false);
  }
  require(ERR_peek_error() == 0);
  halvex_fuzz::check_server();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  if (size == 0) {
    return 0;
  }
  halvex_fuzz::initialise_component();
  const Registered_function &function = *halvex_test::find_function(function_name);
  const unsigned int switches = data[0];
  halvex_test::switch_legacy_padding((switches & legacy_padding) != 0);

  const std::string_view input{reinterpret_cast<const char *>(data) + 1, size - 1};
  std::vector<Owned_argument> owned;
  std::vector<Argument_view> arguments;
  for (const std::string_view field :
       halvex_fuzz::split_fields(input, halvex_test::most_arguments)) {
    owned.emplace_back(field, switches);
    arguments.push_back(owned.back().view());
  }

  static Raw_result result;
  halvex_test::call(function, arguments, result);
  check(function, result);
  return 0;
}
