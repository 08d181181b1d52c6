// Every request for memory or for a server's service fails in turn, once and from then on, on every
// scenario through the seven SQL functions.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>
#include <ostream>

#include "counted_allocations.h"
#include "fault_sweep.h"
#include "scenarios.h"
#include "support/fake_server.h"
#include "support/loaded_component.h"

namespace halvex_test {
namespace {

// Reading a key asks libcrypto for memory some 3,000 times. Of such a scenario this many faults are
// tried, and every one at its end; all of them if HALVEX_ALL_FAULTS is set, which takes half an
// hour.
constexpr std::size_t usual_spread = 30;
constexpr std::size_t usual_tail = 40;
constexpr std::size_t slow_spread = 8;

Sweep plan_for(const Scenario &scenario, Sweep plan) {
  if (plan.source == Fault_source::libcrypto && std::getenv("HALVEX_ALL_FAULTS") == nullptr) {
    plan.spread = scenario.slow ? slow_spread : usual_spread;
    plan.tail = scenario.slow ? 0 : usual_tail;
  }
  return plan;
}

struct Case {
  const char *name;
  Sweep plan;
};

void PrintTo(const Case &one, std::ostream *out) { *out << one.name; }

// The initialised component, loaded once for all tests, and every scenario run once, so that
// libcrypto has built what it keeps.
class ScenarioFaults : public ::testing::TestWithParam<Case> {
 protected:
  static void SetUpTestSuite() {
    static Loaded_component component;
    ASSERT_EQ(component.init(), 0);
    static Raw_result result;
    for (const Scenario &scenario : all_scenarios()) {
      run(scenario, result);
      ASSERT_EQ(mismatch_of(scenario, result), nullptr) << scenario.name;
    }
  }

  // Sweeps over one scenario.
  static Sweep_result sweep_scenario(const Scenario &scenario, Sweep plan) {
    static Raw_result result;
    const bool server_only = plan.source == Fault_source::server;
    const Work work{scenario.name, [&scenario] { run(scenario, result); },
                    [&scenario, server_only, plan](bool faults) {
                      // What the server refuses concerns the log alone: the call's result
                      // stays as it is.
                      return faults && !server_only
                                 ? mismatch_after_fault(scenario, result,
                                                        plan.source == Fault_source::cxx)
                                 : mismatch_of(scenario, result);
                    }};
    return sweep(work, plan);
  }
};

TEST_P(ScenarioFaults, LeaveNothingBehind) {
  std::size_t faults = 0;
  for (const Scenario &scenario : all_scenarios()) {
    const Sweep_result result = sweep_scenario(scenario, plan_for(scenario, GetParam().plan));
    EXPECT_THAT(result.mismatches, ::testing::IsEmpty());
    EXPECT_THAT(result.crashes, ::testing::IsEmpty());
    std::cout << scenario.name << ": " << result.requests << " requests, " << result.faults
              << " faults\n";
    faults += result.faults;
  }
  EXPECT_GT(faults, 0U);
  std::cout << faults << " faults\n";
}

INSTANTIATE_TEST_SUITE_P(
    Every, ScenarioFaults,
    ::testing::Values(
        Case{"CxxAllocationOnce", {Fault_source::cxx, Fault_mode::once}},
        Case{"CxxAllocationFromThenOn", {Fault_source::cxx, Fault_mode::from_then_on}},
        Case{"LibcryptoAllocationOnce", {Fault_source::libcrypto, Fault_mode::once}},
        Case{"LibcryptoAllocationFromThenOn", {Fault_source::libcrypto, Fault_mode::from_then_on}},
        Case{"ServerOperationOnce", {Fault_source::server, Fault_mode::once}},
        Case{"ServerOperationFromThenOn", {Fault_source::server, Fault_mode::from_then_on}}),
    [](const ::testing::TestParamInfo<Case> &one) { return one.param.name; });

}  // namespace
}  // namespace halvex_test
