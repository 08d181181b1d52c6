// Every road through the seven SQL functions: which call, and what it gives when nothing fails. The
// fault, memory and thread tests send their traffic along these roads.

#ifndef RELIABILITY_ROADS_H
#define RELIABILITY_ROADS_H

#include <string>
#include <vector>

#include "support/raw_call.h"

namespace halvex_test {

struct Road {
  std::string name;  // letters and digits, as GoogleTest wants it
  std::string function;
  std::vector<Argument_view> arguments;  // their bytes belong to `materials()`
  Raw_result::Ending ending;             // without faults
  bool legacy = false;                   // rsa_support_legacy_padding
  bool slow = false;                     // creates a key
};

// Every road, the quick ones first. Read-only after the first call.
[[nodiscard]] const std::vector<Road> &all_roads();

// Runs a road once and leaves what it gave in `out`. Allocates nothing itself.
void travel(const Road &road, Raw_result &out);

// Why `result` is not what the road gives without faults; null if it is. Values that are random by
// nature are checked through the component: a ciphertext must decrypt, a signature verify, a key
// have a public half.
[[nodiscard]] const char *complaint_about(const Road &road, const Raw_result &result);

// The same with faults allowed: SQL NULL, and std::bad_alloc where C++ allocations fail, are right
// too. A value must still be the right one.
[[nodiscard]] const char *complaint_after_fault(const Road &road, const Raw_result &result,
                                                bool exceptions_allowed);

}  // namespace halvex_test

#endif  // RELIABILITY_ROADS_H
