// Faults on purpose: whoever serves requests of the code under test asks here whether to refuse
// one. counted_allocations.h asks for C++ code and for libcrypto, fake_server.h for the server's
// operations.
//
// A plan belongs to the thread that armed it; other threads are served as ever.

#ifndef HALVEX_TESTS_SUPPORT_FAULT_PLAN_H
#define HALVEX_TESTS_SUPPORT_FAULT_PLAN_H

#include <cstddef>

namespace halvex_test {

// Who is asked for something that may be refused.
enum class Fault_source { cxx, libcrypto, server };

// One fault only, or that one and every later one.
enum class Fault_mode { once, from_then_on };

// Lets the `nth` request (counted from 1) to `source` fail, from now on until `disarm_faults`.
void arm_faults(Fault_source source, Fault_mode mode, std::size_t nth);

// Ends the faults. Returns whether one struck.
bool disarm_faults();

// How many have struck since `arm_faults`.
[[nodiscard]] std::size_t faults_struck();

// While one exists, its thread's requests are served and not counted.
class Fault_pause {
 public:
  Fault_pause();
  ~Fault_pause();
  Fault_pause(const Fault_pause &) = delete;
  Fault_pause &operator=(const Fault_pause &) = delete;
};

// How often the armed source has been asked since `arm_faults`.
[[nodiscard]] std::size_t requests_since_armed();

// For those who serve requests: true when this one must be refused.
[[nodiscard]] bool fault_strikes(Fault_source source);

}  // namespace halvex_test

#endif  // HALVEX_TESTS_SUPPORT_FAULT_PLAN_H
