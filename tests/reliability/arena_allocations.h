// Gives C++ code and libcrypto memory that is never used twice, so that whatever was left in a
// freed block stays to be found, and with it whose it was.
//
// The executable that links this must export its symbols (ENABLE_EXPORTS), so that its operator new
// also serves objects loaded later. Any thread.

#ifndef RELIABILITY_ARENA_ALLOCATIONS_H
#define RELIABILITY_ARENA_ALLOCATIONS_H

#include "memory_scan.h"

namespace halvex_test {

// Puts libcrypto's arena between it and malloc. Must be the first thing that a process does; false
// if libcrypto had allocated already.
[[nodiscard]] bool give_libcrypto_an_arena();

// Everything that operator new has handed out, and everything that libcrypto got.
[[nodiscard]] Region cxx_arena();
[[nodiscard]] Region libcrypto_arena();

}  // namespace halvex_test

#endif  // RELIABILITY_ARENA_ALLOCATIONS_H
