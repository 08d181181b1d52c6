// The first use of libcrypto in a process, with each of its requests for memory failing in turn.
// The library may crash by itself then; this component must not, and must not give a wrong value.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "calls_with_keys.h"
#include "child_process.h"
#include "counted_allocations.h"
#include "support/fake_server.h"
#include "support/fault_plan.h"
#include "support/loaded_component.h"
#include "support/raw_call.h"
#include "support/sanitizers.h"

namespace halvex_test {
namespace {

// A run takes milliseconds, unless the library waits for ever.
constexpr unsigned int longest_run_seconds = 10;
// A first call asks libcrypto for memory some 5,000 to 12,000 times. Every so many-th fault is
// tried; all of them if HALVEX_ALL_FAULTS is set, which takes some five minutes.
constexpr std::size_t usual_step = 23;

constexpr const char *no_fault = "no fault was injected";

// Where the library is known to crash. Any other place may be ours: a null object that we pass on
// crashes in the library too.
constexpr std::array known_crashes{
    // OpenSSL 3.0: it fetches the first digest from a library context that could not be made.
    "libcrypto.so.3(EVP_MD_fetch+",
    // OpenSSL 3.5: a lock that could not be made, while it reads its configuration; it aborts.
    "libcrypto.so.3(CONF_modules_load+",
};
// OpenSSL 3.5 waits for ever if its initialisation is out of memory: the error that it then reports
// asks for the initialisation that is under way.
constexpr const char *initialisation = "libcrypto.so.3(OPENSSL_init_crypto+";

std::vector<Known_call> first_calls() {
  using std::string_literals::operator""s;
  std::vector<Known_call> calls{
      {"create_digest",
       {"SHA256", "abc"},
       "\xba\x78\x16\xbf\x8f\x01\xcf\xea\x41\x41\x40\xde\x5d\xae\x22\x23"
       "\xb0\x03\x61\xa3\x96\x17\x7a\x9c\xb4\x10\xff\x61\xf2\x00\x15\xad"s,
       32}};
  for (const Known_call &call : calls_with_keys()) {
    calls.push_back(call);
  }
  return calls;
}

const char *mismatch_of(const Known_call &call, const Raw_result &result) {
  if (result.ending == Raw_result::Ending::null) {
    return nullptr;
  }
  if (result.ending != Raw_result::Ending::value) {
    return "neither a value nor NULL";
  }
  return is_right_value(call, result.text()) ? nullptr : "a wrong value";
}

// The frames of a crash in shared objects other than libc, the innermost first, without addresses:
// "libcrypto.so.3(EVP_MD_fetch+0x2a)". A line is "FILE(SYMBOL+OFFSET) [ADDRESS]", in older C
// libraries without the blank.
std::vector<std::string> frames_of(const std::string &report) {
  std::vector<std::string> frames;
  std::istringstream lines{report};
  for (std::string line; std::getline(lines, line);) {
    const std::size_t end = line.find(')');
    const std::size_t slash = line.rfind('/', end);
    if (end == std::string::npos || slash == std::string::npos) {
      continue;
    }
    const std::string frame = line.substr(slash + 1, end - slash);
    if (frame.find(".so") != std::string::npos && frame.rfind("libc.so", 0) != 0) {
      frames.push_back(frame);
    }
  }
  return frames;
}

bool is_known_crash(const std::string &stack) {
  return std::any_of(known_crashes.begin(), known_crashes.end(), [&stack](const char *place) {
    return stack.find(place) != std::string::npos;
  });
}

class FirstUseFaults : public ::testing::TestWithParam<std::tuple<Known_call, Fault_mode>> {
 protected:
  static void SetUpTestSuite() {
    static Loaded_component component;
    ASSERT_EQ(component.init(), 0);
  }
};

TEST_P(FirstUseFaults, CrashInTheLibraryAtMost) {
  if (under_address_sanitizer) {
    GTEST_SKIP() << "the sanitizer takes the crashes";
  }
  const Known_call &first_call = std::get<Known_call>(GetParam());
  const Fault_mode mode = std::get<Fault_mode>(GetParam());
  std::vector<Argument_view> arguments;
  for (const std::string &text : first_call.arguments) {
    arguments.push_back(Argument_view(text));
  }
  const Registered_function &function = *find_function(first_call.function.c_str());
  const std::size_t step = std::getenv("HALVEX_ALL_FAULTS") == nullptr ? usual_step : 1;

  std::map<std::string, int> crashes;
  std::size_t faults = 0;
  for (bool injected = true; injected; faults += injected ? 1 : 0) {
    const std::size_t nth = 1 + faults * step;
    const Child_end end = run_in_child(longest_run_seconds, [&] {
      static Raw_result result;
      arm_faults(Fault_source::libcrypto, mode, nth);
      call(function, arguments, result);
      if (!disarm_faults()) {
        report_line(nth, no_fault);
      }
      if (const char *mismatch = mismatch_of(first_call, result)) {
        report_line(nth, mismatch);
      }
    });
    injected = end.report.find(no_fault) == std::string::npos;
    if (end.crashed) {
      const std::vector<std::string> frames = frames_of(end.report);
      ASSERT_FALSE(frames.empty()) << "fault " << nth << ", signal " << end.signal << "\n"
                                   << end.report;
      EXPECT_EQ(frames.front().rfind("libcrypto.so", 0), 0U) << "fault " << nth << "\n"
                                                             << end.report;
      std::string stack;
      for (const std::string &frame : frames) {
        stack += "  " + frame + "\n";
      }
      if (end.signal == SIGALRM) {
        EXPECT_NE(stack.find(initialisation), stack.rfind(initialisation))
            << "fault " << nth << " hangs\n"
            << stack;
      } else {
        EXPECT_TRUE(is_known_crash(stack)) << "fault " << nth << "\n" << stack;
      }
      ++crashes[stack];
    } else {
      EXPECT_EQ(end.report, injected ? "" : std::to_string(nth) + ": " + no_fault + "\n");
    }
  }
  EXPECT_GT(faults, 0U);
  std::cout << faults << " faults\n";
  for (const auto &[stack, times] : crashes) {
    std::cout << "libcrypto crashed or hung " << times << " times:\n" << stack;
  }
}

INSTANTIATE_TEST_SUITE_P(
    First, FirstUseFaults,
    ::testing::Combine(::testing::ValuesIn(first_calls()),
                       ::testing::Values(Fault_mode::once, Fault_mode::from_then_on)),
    [](const ::testing::TestParamInfo<std::tuple<Known_call, Fault_mode>> &one) {
      return test_name(std::get<0>(one.param), "", std::get<1>(one.param));
    });

}  // namespace
}  // namespace halvex_test
