// Every request for memory or for a server's service fails in turn, once and from then on, on every
// road through the seven SQL functions.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>
#include <ostream>

#include "counted_allocations.h"
#include "fault_sweep.h"
#include "roads.h"
#include "support/fake_server.h"
#include "support/loaded_component.h"

namespace halvex_test {
namespace {

// Reading a key asks libcrypto for memory some 3,000 times. Of such a road this many faults are
// tried, and every one at its end; all of them if HALVEX_ALL_FAULTS is set, which takes half an
// hour.
constexpr std::size_t usual_spread = 30;
constexpr std::size_t usual_tail = 40;
constexpr std::size_t slow_spread = 8;

Sweep plan_for(const Road &road, Sweep plan) {
  if (plan.source == Fault_source::libcrypto && std::getenv("HALVEX_ALL_FAULTS") == nullptr) {
    plan.spread = road.slow ? slow_spread : usual_spread;
    plan.tail = road.slow ? 0 : usual_tail;
  }
  return plan;
}

struct Case {
  const char *name;
  Sweep plan;
};

void PrintTo(const Case &one, std::ostream *out) { *out << one.name; }

// The initialised component, loaded once for all tests, and every road travelled once, so that
// libcrypto has built what it keeps.
class Road_faults_test : public ::testing::TestWithParam<Case> {
 protected:
  static void SetUpTestSuite() {
    static Loaded_component component;
    ASSERT_EQ(component.init(), 0);
    static Raw_result result;
    for (const Road &road : all_roads()) {
      travel(road, result);
      ASSERT_EQ(complaint_about(road, result), nullptr) << road.name;
    }
  }

  // Sweeps over one road.
  static Sweep_result sweep_road(const Road &road, Sweep plan) {
    static Raw_result result;
    const bool server_only = plan.source == Fault_source::server;
    const Subject subject{road.name, [&road] { travel(road, result); },
                          [&road, server_only, plan](bool faults) {
                            // What the server refuses concerns the log alone: the call's result
                            // stays as it is.
                            return faults && !server_only
                                       ? complaint_after_fault(road, result,
                                                               plan.source == Fault_source::cxx)
                                       : complaint_about(road, result);
                          }};
    return sweep(subject, plan);
  }
};

TEST_P(Road_faults_test, LeaveNothingBehind) {
  std::size_t faults = 0;
  for (const Road &road : all_roads()) {
    const Sweep_result result = sweep_road(road, plan_for(road, GetParam().plan));
    EXPECT_THAT(result.complaints, ::testing::IsEmpty());
    EXPECT_THAT(result.crashes, ::testing::IsEmpty());
    std::cout << road.name << ": " << result.requests << " requests, " << result.faults
              << " faults\n";
    faults += result.faults;
  }
  EXPECT_GT(faults, 0U);
  std::cout << faults << " faults\n";
}

INSTANTIATE_TEST_SUITE_P(
    Every, Road_faults_test,
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
