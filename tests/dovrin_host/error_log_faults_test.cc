#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "dovrin_host/error_log.h"
#include "records.h"
#include "support/fault_plan.h"

namespace dovrin_host {
namespace {

using halvex_test::Fault_mode;
using halvex_test::Fault_source;

TEST(ErrorLogFaults, SinkRemovedWithoutMemoryGetsNothingUntilItIsAddedAgain) {
  Error_log log;
  const auto ring = std::make_shared<Ring_sink>(4);
  log.add_sink(ring);

  halvex_test::arm_faults(Fault_source::cxx, Fault_mode::from_then_on, 1);
  log.remove_sink(ring.get());
  EXPECT_TRUE(halvex_test::disarm_faults());
  log.submit(sample_record("while removed"));
  log.add_sink(ring);
  log.submit(sample_record("again"));

  EXPECT_EQ(ring->snapshot(), (std::vector<Numbered_record>{{1, sample_record("again")}}));
}

}  // namespace
}  // namespace dovrin_host
