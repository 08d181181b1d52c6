// Every request for memory or for a server's service fails in turn, once and from then on, while
// the component is installed, uninstalled and unloaded in every order.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <iostream>
#include <new>
#include <optional>
#include <ostream>
#include <span>
#include <string>
#include <vector>

#include "fault_sweep.h"
#include "support/fake_server.h"
#include "support/loaded_component.h"

namespace halvex_test {
namespace {

constexpr std::size_t all_functions = 7;
constexpr std::size_t all_variables = 2;
constexpr int threw = -1;

// What a server does with a loaded component.
enum class Step { init, deinit, unload };

// One order of steps, and how it went.
class Lifecycle {
 public:
  explicit Lifecycle(std::span<const Step> steps) : steps_{steps} {}

  // Loads the component and takes the steps, whatever comes of each.
  void run() {
    mismatch_ = nullptr;
    forget_registrations();
    const std::size_t faults_before = injected_faults();
    component_.emplace();
    is_half_loaded_ = injected_faults() != faults_before;
    for (const Step step : steps_) {
      take(step);
    }
  }

  // Null, or what was wrong in the last run.
  [[nodiscard]] const char *mismatch() const { return mismatch_; }

 private:
  void take(Step step) {
    switch (step) {
      case Step::init:
        judge_init(status_of(component_->descriptor().init));
        break;
      case Step::deinit:
        judge_deinit(status_of(component_->descriptor().deinit));
        break;
      case Step::unload:
        unload();
        break;
    }
  }

  static int status_of(int (*operation)()) {
    try {
      return operation();
    } catch (const std::bad_alloc &) {
      return threw;
    }
  }

  void judge_init(int status) {
    expect(!is_half_loaded_ || status == 1, "init succeeded without what loading could not make");
    if (status == 0) {
      expect(registered_functions().size() == all_functions &&
                 registered_variables().size() == all_variables,
             "init succeeded without having registered everything");
    } else if (status != threw) {
      expect(status == 1, "init has a status of its own");
    }
  }

  void judge_deinit(int status) {
    expect(status == 0 || status == 1, "deinit has a status of its own");
    expect((status == 0) == (registered_functions().size() + registered_variables().size() == 0),
           "deinit's status is not what the server sees");
  }

  // What stays registered with the server leads into unmapped memory: there may be no more of it
  // than the server refused to unregister while the object was unloaded.
  void unload() {
    const std::size_t refusals_before = injected_faults();
    component_->unload();
    expect(!component_is_mapped(), "the object is still mapped");
    expect(registered_functions().size() + registered_variables().size() <=
               injected_faults() - refusals_before,
           "something stays registered");
  }

  void expect(bool fine, const char *mismatch) {
    if (!fine && mismatch_ == nullptr) {
      mismatch_ = mismatch;
    }
  }

  std::span<const Step> steps_;
  std::optional<Loaded_component> component_;
  bool is_half_loaded_ = false;
  const char *mismatch_ = nullptr;
};

struct Order {
  const char *name;
  std::vector<Step> steps;
};

const std::vector<Order> &orders() {
  static const std::vector<Order> all{
      {"InstallUninstall", {Step::init, Step::deinit, Step::unload}},
      {"UnloadWithoutDeinit", {Step::init, Step::unload}},
      {"DeinitTwice", {Step::init, Step::deinit, Step::deinit, Step::unload}},
      {"InstallAgain", {Step::init, Step::deinit, Step::init, Step::deinit, Step::unload}},
      {"InitTwice", {Step::init, Step::init, Step::deinit, Step::unload}},
      {"DeinitWithoutInit", {Step::deinit, Step::unload}},
      {"UnloadAtOnce", {Step::unload}},
  };
  return all;
}

struct Case {
  const char *name;
  Sweep plan;
  bool refused_functions_are_known;
};

void PrintTo(const Case &one, std::ostream *out) { *out << one.name; }

class LifecycleFaults : public ::testing::TestWithParam<Case> {};

TEST_P(LifecycleFaults, LeaveNothingBehind) {
  set_answer_of_refused_unregistration(GetParam().refused_functions_are_known ? 1 : 0);
  for (const Order &order : orders()) {
    Lifecycle lifecycle{order.steps};
    const Work work{order.name, [&] { lifecycle.run(); },
                    [&](bool /*faults*/) { return lifecycle.mismatch(); }};
    const Sweep_result result = sweep(work, GetParam().plan);
    EXPECT_THAT(result.mismatches, ::testing::IsEmpty());
    EXPECT_THAT(result.crashes, ::testing::IsEmpty());
    std::cout << order.name << ": " << result.requests << " requests, " << result.faults
              << " faults\n";
  }
}

constexpr bool known = true;

INSTANTIATE_TEST_SUITE_P(
    Every, LifecycleFaults,
    ::testing::Values(
        Case{"CxxAllocationOnce", {Fault_source::cxx, Fault_mode::once}, known},
        Case{"CxxAllocationFromThenOn", {Fault_source::cxx, Fault_mode::from_then_on}, known},
        Case{"ServerOperationOnce", {Fault_source::server, Fault_mode::once}, known},
        Case{"ServerOperationFromThenOn", {Fault_source::server, Fault_mode::from_then_on}, known},
        Case{"ServerOperationOnceOfUnknownFunctions",
             {Fault_source::server, Fault_mode::once},
             !known},
        Case{"ServerOperationFromThenOnOfUnknownFunctions",
             {Fault_source::server, Fault_mode::from_then_on},
             !known}),
    [](const ::testing::TestParamInfo<Case> &one) { return one.param.name; });

// The one operation of a variable that allocates is the check of a new value.
TEST(VariableFaults, RefusedMemoryKeepsTheOldValue) {
  Loaded_component component;
  ASSERT_EQ(component.init(), 0);
  bool accepted = false;
  int value = 0;
  const Work work{"SetMaximum",
                  [&] {
                    const int wanted = value == 3072 ? 4096 : 3072;
                    accepted = set_variable("maximum_rsa_key_size", wanted) == Set_result::accepted;
                    value = integer_value("maximum_rsa_key_size");
                    accepted = accepted && value == wanted;
                  },
                  [&](bool faults) {
                    return accepted != faults ? nullptr : "the setting ended in the other way";
                  }};
  const Sweep_result result = sweep(work, {Fault_source::cxx, Fault_mode::once});
  EXPECT_THAT(result.mismatches, ::testing::IsEmpty());
  EXPECT_THAT(result.crashes, ::testing::IsEmpty());
  EXPECT_EQ(result.faults, 1U);
}

}  // namespace
}  // namespace halvex_test
