// Lets every request of a piece of work fail in turn and looks at what is left behind.

#ifndef RELIABILITY_FAULT_SWEEP_H
#define RELIABILITY_FAULT_SWEEP_H

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "support/fault_plan.h"

namespace halvex_test {

// One piece of work to sweep over.
struct Subject {
  std::string name;
  // Runs with faults armed; allocates nothing itself.
  std::function<void()> work;
  // Looks at what `work` left once the faults are over; null if all is well, else a constant text.
  // `faults` is false for a run without any.
  std::function<const char *(bool faults)> complaint;
};

// Which faults to try. Long work can be sampled: `spread` faults all over it, at other places for
// each subject, and every one of the last `tail` requests, where what is particular to a subject
// happens. A spread of 0 tries every request.
struct Sweep {
  Fault_source source;
  Fault_mode mode;
  std::size_t spread = 0;
  std::size_t tail = 0;
};

struct Sweep_result {
  std::size_t requests = 0;  // of one run without faults
  std::size_t faults = 0;    // runs in which one struck
  // What was wrong: "<subject>, fault <n>: <complaint>".
  std::vector<std::string> complaints;
  // Crashes, each with its stack.
  std::vector<std::string> crashes;
};

// Runs `subject` in child processes with the first, second, ... request failing, until a run ends
// without a fault. After each fault it wants: no complaint, an empty OpenSSL queue,
// all C++ and server memory given back, no libcrypto memory lost
// each time anew, and a run without faults that works. A crash ends the child; the sweep goes on
// behind it.
[[nodiscard]] Sweep_result sweep(const Subject &subject, const Sweep &plan);

}  // namespace halvex_test

#endif  // RELIABILITY_FAULT_SWEEP_H
