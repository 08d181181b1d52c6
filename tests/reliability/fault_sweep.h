// Lets every request of a piece of work fail in turn and checks what is left behind.

#ifndef RELIABILITY_FAULT_SWEEP_H
#define RELIABILITY_FAULT_SWEEP_H

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "support/fault_plan.h"

namespace halvex_test {

// One piece of work to sweep over.
struct Work {
  std::string name;
  // Runs with faults armed; allocates nothing itself.
  std::function<void()> run;
  // Checks what `run` left once the faults are over; null if all is right, else a constant text.
  // `faults` is false for a run without any.
  std::function<const char *(bool faults)> mismatch;
};

// Which faults to try. Long work can be sampled: `spread` faults all over it, at other places for
// each name, and every one of the last `tail` requests, which are particular to the work. A spread
// of 0 tries every request.
struct Sweep {
  Fault_source source;
  Fault_mode mode;
  std::size_t spread = 0;
  std::size_t tail = 0;
};

struct Sweep_result {
  std::size_t requests = 0;  // of one run without faults
  std::size_t faults = 0;    // runs with an injected fault
  // What was wrong: "<name>, fault <n>: <mismatch>".
  std::vector<std::string> mismatches;
  // Crashes, each with its stack.
  std::vector<std::string> crashes;
};

// Runs `work` in child processes with the first, second, ... request failing, until a run ends
// without a fault. After each fault it expects no mismatch, an empty OpenSSL queue,
// all C++ and server memory released, no libcrypto memory lost again at each repetition, and a run
// without faults that works. A crash ends the child; the sweep continues with the next fault.
[[nodiscard]] Sweep_result sweep(const Work &work, const Sweep &plan);

}  // namespace halvex_test

#endif  // RELIABILITY_FAULT_SWEEP_H
