// Counts every allocation of C++ code and of libcrypto in this process, and lets the fault plan
// refuse it.
//
// The executable that links this must export its symbols (ENABLE_EXPORTS), so that its operator new
// also serves objects loaded later. Counting is safe from every thread.

#ifndef RELIABILITY_COUNTED_ALLOCATIONS_H
#define RELIABILITY_COUNTED_ALLOCATIONS_H

namespace halvex_test {

// Puts itself between libcrypto and malloc. Must be the first thing that a process does; false if
// libcrypto had allocated already.
[[nodiscard]] bool count_libcrypto_allocations();

// Blocks that are allocated now, by operator new and by libcrypto.
[[nodiscard]] long live_cxx_blocks();
[[nodiscard]] long live_libcrypto_blocks();

}  // namespace halvex_test

#endif  // RELIABILITY_COUNTED_ALLOCATIONS_H
