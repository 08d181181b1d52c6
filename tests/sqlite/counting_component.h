// A component for tests: its functions count how they are called. What the tests read of it.
//
//   counted(any arguments but reals) -> the bytes of the first one if it is a string, else NULL
//   counted_length(string) -> its length, an integer
//   throws(kind) -> 'memory', 'text' or 'other': what the row throws, or nothing for another kind
//   fails() -> sets its error flag, whatever its arguments are

#ifndef HALVEX_TESTS_SQLITE_COUNTING_COMPONENT_H
#define HALVEX_TESTS_SQLITE_COUNTING_COMPONENT_H

#include <atomic>

namespace halvex_test {

struct Call_counts {
  std::atomic<long> inits{0};
  std::atomic<long> rows{0};
  std::atomic<long> deinits{0};
};

// Exported by the component under the name below.
using Get_call_counts = Call_counts *();
inline constexpr const char *get_call_counts_name = "counting_component_counts";

}  // namespace halvex_test

#endif  // HALVEX_TESTS_SQLITE_COUNTING_COMPONENT_H
