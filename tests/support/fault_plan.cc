#include "support/fault_plan.h"

namespace halvex_test {
namespace {

struct Plan {
  bool armed = false;
  Fault_source source = Fault_source::cxx;
  Fault_mode mode = Fault_mode::once;
  std::size_t nth = 0;
  std::size_t asked = 0;
  std::size_t injected = 0;
};

thread_local Plan plan;
thread_local int pauses = 0;

}  // namespace

void arm_faults(Fault_source source, Fault_mode mode, std::size_t nth) {
  plan = Plan{true, source, mode, nth, 0, 0};
}

bool disarm_faults() {
  plan.armed = false;
  return plan.injected > 0;
}

std::size_t injected_faults() { return plan.injected; }

Fault_pause::Fault_pause() { ++pauses; }
Fault_pause::~Fault_pause() { --pauses; }

std::size_t requests_since_armed() { return plan.asked; }

bool inject_fault(Fault_source source) {
  if (!plan.armed || pauses > 0 || plan.source != source) {
    return false;
  }
  ++plan.asked;
  const bool injected =
      plan.asked == plan.nth || (plan.mode == Fault_mode::from_then_on && plan.asked > plan.nth);
  plan.injected += injected ? 1 : 0;
  return injected;
}

}  // namespace halvex_test
