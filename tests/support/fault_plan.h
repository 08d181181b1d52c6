// Injected faults: whoever serves requests of the code under test asks here whether to let one
// fail. counted_allocations.h asks for C++ code and for libcrypto, fake_server.h for the server's
// operations.
//
// A plan belongs to the thread that armed it; other threads are unaffected.

#ifndef HALVEX_TESTS_SUPPORT_FAULT_PLAN_H
#define HALVEX_TESTS_SUPPORT_FAULT_PLAN_H

#include <cstddef>
#include <ostream>

namespace halvex_test {

// Where requests fail.
enum class Fault_source { cxx, libcrypto, server };

// How GoogleTest prints it.
inline void PrintTo(Fault_source source, std::ostream *out) {
  switch (source) {
    case Fault_source::cxx:
      *out << "C++";
      break;
    case Fault_source::libcrypto:
      *out << "libcrypto";
      break;
    case Fault_source::server:
      *out << "server";
      break;
  }
}

// One fault only, or that one and every later one.
enum class Fault_mode { once, from_then_on };

inline void PrintTo(Fault_mode mode, std::ostream *out) {
  *out << (mode == Fault_mode::once ? "once" : "from then on");
}

// Lets the `nth` request (counted from 1) to `source` fail, from now on until `disarm_faults`.
void arm_faults(Fault_source source, Fault_mode mode, std::size_t nth);

// Ends the faults. Returns whether one was injected.
bool disarm_faults();

// How many were injected since `arm_faults`.
[[nodiscard]] std::size_t injected_faults();

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

// For those who serve requests: counts one, and returns whether it must fail.
[[nodiscard]] bool inject_fault(Fault_source source);

}  // namespace halvex_test

#endif  // HALVEX_TESTS_SUPPORT_FAULT_PLAN_H
