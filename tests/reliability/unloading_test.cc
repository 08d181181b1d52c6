// The object is loaded and unloaded thousands of times: it leaves the process each time, and
// nothing stays behind.

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <fstream>
#include <iostream>
#include <memory>
#include <thread>

#include "counted_allocations.h"
#include "support/fake_server.h"
#include "support/fault_plan.h"
#include "support/loaded_component.h"
#include "support/raw_call.h"
#include "support/sanitizers.h"

namespace halvex_test {
namespace {

constexpr int warm_up_cycles = 100;

// A page here and there belongs to libcrypto and the loader; an object of ours that stayed would be
// hundreds.
constexpr long tolerated_growth_kilobytes = 256;

long resident_kilobytes() {
  std::ifstream statm{"/proc/self/statm"};
  long size = 0;
  long resident = 0;
  statm >> size >> resident;
  return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

// A scenario that reads a key and reports an error, and one that succeeds.
void use_component() {
  static const std::array digest_arguments{Argument_view("SHA256"), Argument_view("abc")};
  static const std::array encrypt_arguments{Argument_view("RSA"), Argument_view("abc"),
                                            Argument_view("no key")};
  const auto result = std::make_unique<Raw_result>();
  call(*find_function("create_digest"), digest_arguments, *result);
  EXPECT_EQ(result->ending, Raw_result::Ending::value);
  call(*find_function("asymmetric_encrypt"), encrypt_arguments, *result);
  EXPECT_EQ(result->ending, Raw_result::Ending::null);
}

void load_use_deinit_unload() {
  Loaded_component component;
  ASSERT_EQ(component.init(), 0);
  use_component();
  ASSERT_EQ(component.deinit(), 0);
}

void unload_without_deinit() {
  Loaded_component component;
  ASSERT_EQ(component.init(), 0);
  use_component();
  component.unload();
}

void unload_after_failed_init() {
  Loaded_component component;
  constexpr std::size_t fifth_registration = 5;
  arm_faults(Fault_source::server, Fault_mode::once, fifth_registration);
  EXPECT_EQ(component.init(), 1);
  disarm_faults();
}

void in_another_thread() { std::thread{load_use_deinit_unload}.join(); }

void load_here_use_in_another_thread() {
  Loaded_component component;
  ASSERT_EQ(component.init(), 0);
  std::thread{use_component}.join();
  ASSERT_EQ(component.deinit(), 0);
}

void run_cycles(int count, void (*cycle)()) {
  for (int i = 0; i < count && !::testing::Test::HasFailure(); ++i) {
    cycle();
    ASSERT_FALSE(component_is_mapped()) << "cycle " << i;
    ASSERT_EQ(registered_functions().size() + registered_variables().size(), 0U) << "cycle " << i;
    ASSERT_EQ(open_lines() + open_buffers(), 0) << "cycle " << i;
  }
}

struct Cycle {
  const char *name;
  void (*run)();
  int count;
};

void PrintTo(const Cycle &one, std::ostream *out) { *out << one.name; }

class Unloading : public ::testing::TestWithParam<Cycle> {};

TEST_P(Unloading, LeavesNothing) {
  run_cycles(warm_up_cycles, GetParam().run);
  const long resident_before = resident_kilobytes();
  const long cxx_before = live_cxx_blocks();
  const long libcrypto_before = live_libcrypto_blocks();
  run_cycles(GetParam().count, GetParam().run);
  EXPECT_EQ(live_cxx_blocks(), cxx_before);
  EXPECT_EQ(live_libcrypto_blocks(), libcrypto_before);
  const long growth = resident_kilobytes() - resident_before;
  std::cout << GetParam().count << " cycles: " << growth << " KiB more resident\n";
  // The sanitizers' own records grow.
  if (!under_address_sanitizer && !under_thread_sanitizer) {
    EXPECT_LE(growth, tolerated_growth_kilobytes);
  }
}

INSTANTIATE_TEST_SUITE_P(After, Unloading,
                         ::testing::Values(Cycle{"UseAndDeinit", load_use_deinit_unload, 2000},
                                           Cycle{"UseWithoutDeinit", unload_without_deinit, 500},
                                           Cycle{"FailedInit", unload_after_failed_init, 500},
                                           Cycle{"UseInAnotherThread", in_another_thread, 500},
                                           Cycle{"LoadingHereAndUseInAnotherThread",
                                                 load_here_use_in_another_thread, 500}),
                         [](const ::testing::TestParamInfo<Cycle> &one) { return one.param.name; });

}  // namespace
}  // namespace halvex_test
