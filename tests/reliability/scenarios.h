// Scenarios that cover every code path through the seven SQL functions: which call, and what it
// gives if nothing fails. The fault, memory and thread tests run them.

#ifndef RELIABILITY_SCENARIOS_H
#define RELIABILITY_SCENARIOS_H

#include <string>
#include <vector>

#include "support/raw_call.h"

namespace halvex_test {

struct Scenario {
  std::string name;  // letters and digits, as GoogleTest wants it
  std::string function;
  std::vector<Argument_view> arguments;  // their bytes belong to `test_data()`
  Raw_result::Ending ending;             // without faults
  bool legacy = false;                   // rsa_support_legacy_padding
  bool slow = false;                     // creates a key
};

// Every scenario, the quick ones first. Read-only after the first call.
[[nodiscard]] const std::vector<Scenario> &all_scenarios();

// Runs a scenario once and leaves what it gave in `out`. Allocates nothing itself.
void run(const Scenario &scenario, Raw_result &out);

// Why `result` is not what the scenario gives without faults; null if it is. Values that are random
// by nature are checked through the component: a ciphertext must decrypt, a signature verify, a key
// have a public half.
[[nodiscard]] const char *mismatch_of(const Scenario &scenario, const Raw_result &result);

// The same with faults allowed: SQL NULL, and std::bad_alloc where C++ allocations fail, are right
// too. A value must still be the right one.
[[nodiscard]] const char *mismatch_after_fault(const Scenario &scenario, const Raw_result &result,
                                               bool exceptions_allowed);

}  // namespace halvex_test

#endif  // RELIABILITY_SCENARIOS_H
