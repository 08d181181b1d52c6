// Calls with keys whose right values are known, for the tests of faults. Nothing here uses
// libcrypto, whose first use such a test may be about.

#ifndef RELIABILITY_CALLS_WITH_KEYS_H
#define RELIABILITY_CALLS_WITH_KEYS_H

#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

#include "support/fault_plan.h"

namespace halvex_test {

struct Known_call {
  std::string function;
  std::vector<std::string> arguments;
  // Of the right value: its bytes, or its length alone where the bytes are random.
  std::string bytes;
  std::size_t length;
};

// How GoogleTest prints it.
void PrintTo(const Known_call &call, std::ostream *out);

// One call of each function that reads a key and gives a string, but for decryption.
std::vector<Known_call> calls_with_keys();

[[nodiscard]] bool is_right_value(const Known_call &call, std::string_view value);

// The function's name without underscores and `part`, for the name of a test, and the mode.
std::string test_name(const Known_call &call, const std::string &part, Fault_mode mode);

}  // namespace halvex_test

#endif  // RELIABILITY_CALLS_WITH_KEYS_H
