// A process's first rows in the small library context, with each request for memory failing in
// turn: whatever fails while the context is made or used, the row is right or NULL, the thread's
// default context is the former one again, and the next row works.

#include <gtest/gtest.h>
#include <openssl/crypto.h>
#include <openssl/err.h>

#include <cstdlib>
#include <iostream>
#include <new>
#include <string>
#include <tuple>
#include <vector>

#include "calls_with_keys.h"
#include "child_process.h"
#include "counted_allocations.h"
#include "dovrin_host/row_context.h"
#include "dovrin_host/server.h"
#include "support/fault_plan.h"
#include "support/loaded_component.h"
#include "support/sanitizers.h"

namespace halvex_test {
namespace {

using dovrin_host::Row_result;
using dovrin_host::Server;

constexpr unsigned int longest_run_seconds = 60;
// Making the context and reading a key in it asks for memory some 3,000 times. Every so many-th
// fault is tried; all of them if HALVEX_ALL_FAULTS is set.
constexpr std::size_t usual_step = 29;

constexpr const char *no_fault = "no fault was injected";

class RowContextFaults
    : public ::testing::TestWithParam<std::tuple<Known_call, Fault_source, Fault_mode>> {
 protected:
  static void SetUpTestSuite() {
    ASSERT_TRUE(Server::instance().install(component_path()).ok());
    dovrin_host::set_small_context_use(dovrin_host::Small_context_use::always);
  }

  RowContextFaults() {
    for (const std::string &text : expected_.arguments) {
      arguments_.push_back(dovrin_host::Argument::string(text));
    }
    instance_ = Server::instance()
                    .open_function(expected_.function,
                                   std::vector<Item_result>(arguments_.size(), STRING_RESULT))
                    .value();
    // libcrypto has built by now what the default context keeps.
    EXPECT_EQ(mismatch_of_row(), nullptr);
  }

  // Why a row is wrong; null for the right value.
  const char *mismatch_of_row() {
    const Row_result row = instance_->row(arguments_);
    if (row.kind != Row_result::Kind::string) {
      return row.kind == Row_result::Kind::null ? is_null : "an error";
    }
    return is_right_value(expected_, row.text) ? nullptr : "a wrong value";
  }

  // In a child process: its first row with the nth request failing, then one without a fault.
  void run_with_fault(Fault_source source, Fault_mode mode, std::size_t nth) {
    const char *mismatch = nullptr;
    arm_faults(source, mode, nth);
    try {
      mismatch = mismatch_of_row();
    } catch (const std::bad_alloc &) {
      mismatch = is_null;
    }
    if (!disarm_faults()) {
      report_line(nth, no_fault);
    }
    if (mismatch != nullptr && mismatch != is_null) {
      report_line(nth, mismatch);
    }
    if (OSSL_LIB_CTX_set0_default(nullptr) != OSSL_LIB_CTX_get0_global_default()) {
      report_line(nth, "the former library context is not the default");
    }
    if (ERR_peek_error() != 0) {
      report_line(nth, "the OpenSSL queue is not empty");
    }
    if (const char *next = mismatch_of_row()) {
      report_line(nth, next);
    }
  }

  static constexpr const char *is_null = "NULL";

  const Known_call expected_ = std::get<Known_call>(GetParam());
  std::vector<dovrin_host::Argument> arguments_;
  std::unique_ptr<dovrin_host::Function_instance> instance_;
};

TEST_P(RowContextFaults, LeaveTheRowRightOrNull) {
  if (under_address_sanitizer) {
    GTEST_SKIP() << "the sanitizer takes the crashes";
  }
  const auto source = std::get<Fault_source>(GetParam());
  const std::size_t step =
      source == Fault_source::cxx || std::getenv("HALVEX_ALL_FAULTS") != nullptr ? 1 : usual_step;
  std::size_t faults = 0;
  for (bool injected = true; injected; faults += injected ? 1 : 0) {
    const std::size_t nth = 1 + faults * step;
    const Child_end end = run_in_child(longest_run_seconds, [&] {
      run_with_fault(source, std::get<Fault_mode>(GetParam()), nth);
    });
    injected = end.report.find(no_fault) == std::string::npos;
    ASSERT_FALSE(end.crashed) << "fault " << nth << ", signal " << end.signal << '\n' << end.report;
    EXPECT_EQ(end.report, injected ? "" : std::to_string(nth) + ": " + no_fault + "\n");
  }
  EXPECT_GT(faults, 0U);
  std::cout << faults << " faults\n";
}

INSTANTIATE_TEST_SUITE_P(
    Every, RowContextFaults,
    ::testing::Combine(::testing::ValuesIn(calls_with_keys()),
                       ::testing::Values(Fault_source::cxx, Fault_source::libcrypto),
                       ::testing::Values(Fault_mode::once, Fault_mode::from_then_on)),
    [](const auto &one) {
      const bool is_cxx = std::get<Fault_source>(one.param) == Fault_source::cxx;
      return test_name(std::get<Known_call>(one.param), is_cxx ? "Cxx" : "Libcrypto",
                       std::get<Fault_mode>(one.param));
    });

}  // namespace
}  // namespace halvex_test
