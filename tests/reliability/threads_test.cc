// Many threads through one loaded component, all seven functions mixed, while another thread sets
// both variables.

#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/ui.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "scenarios.h"
#include "support/fake_server.h"
#include "support/loaded_component.h"
#include "support/sanitizers.h"

namespace halvex_test {
namespace {

constexpr std::size_t callers = 8;
constexpr std::size_t rounds = under_thread_sanitizer ? 2 : 10;
constexpr long long first_code = 13915;
constexpr std::size_t codes = 15;

using Counts = std::array<std::size_t, codes>;

Counts records_by_code() {
  Counts counts{};
  for (std::size_t i = 0; i < codes; ++i) {
    counts[i] = submitted_records_of(first_code + static_cast<long long>(i));
  }
  return counts;
}

// The scenarios whose results and records do not depend on rsa_support_legacy_padding, and how many
// records of each code one run makes.
struct Measured_scenario {
  const Scenario *scenario;
  Counts records;
};

Counts records_of_a_run(const Scenario &scenario, bool legacy, Raw_result &result) {
  Scenario variant = scenario;
  variant.legacy = legacy;
  const Counts before = records_by_code();
  run(variant, result);
  Counts difference = records_by_code();
  for (std::size_t i = 0; i < codes; ++i) {
    difference[i] -= before[i];
  }
  return difference;
}

std::vector<Measured_scenario> steady_scenarios() {
  std::vector<Measured_scenario> steady;
  const auto on = std::make_unique<Raw_result>();
  const auto off = std::make_unique<Raw_result>();
  for (const Scenario &scenario : all_scenarios()) {
    if (scenario.slow) {
      continue;
    }
    const Counts records = records_of_a_run(scenario, true, *on);
    if (records_of_a_run(scenario, false, *off) == records && on->ending == off->ending) {
      steady.push_back({&scenario, records});
    }
  }
  return steady;
}

// Sets both variables without pause until `stop` is true.
void keep_setting(const std::atomic<bool> &stop, std::atomic<std::size_t> &failures) {
  for (long long turn = 0; !stop.load(std::memory_order_relaxed); ++turn) {
    switch_legacy_padding(turn % 2 != 0);
    const bool is_set =
        set_variable("maximum_rsa_key_size", turn % 2 == 0 ? 3072 : 4096) == Set_result::accepted;
    const bool is_rejected = set_variable("maximum_rsa_key_size", 1000) == Set_result::rejected;
    failures += is_set && is_rejected ? 0 : 1;
    std::this_thread::yield();
  }
}

// Runs every scenario, each thread starting at another one, and notes what was wrong.
void keep_calling(std::size_t caller, const std::vector<Measured_scenario> &scenarios,
                  std::string &mismatch) {
  const auto result = std::make_unique<Raw_result>();
  for (std::size_t run = 0; run < rounds * scenarios.size(); ++run) {
    const Scenario &scenario = *scenarios[(run + caller * 5) % scenarios.size()].scenario;
    call(*find_function(scenario.function.c_str()), scenario.arguments, *result);
    const char *wrong = mismatch_of(scenario, *result);
    if (wrong != nullptr) {
      mismatch += scenario.name + ": " + wrong + "\n";
    }
    if (ERR_peek_error() != 0) {
      mismatch += scenario.name + ": the OpenSSL queue is not empty\n";
    }
  }
}

TEST(Threads, MixedCallsWhileVariablesChange) {
  UI_set_default_method(UI_null());
  Loaded_component component;
  ASSERT_EQ(component.init(), 0);
  const std::vector<Measured_scenario> scenarios = steady_scenarios();
  ASSERT_GT(scenarios.size(), 20U);
  std::cout << scenarios.size() << " scenarios\n";
  const Counts before = records_by_code();

  std::atomic<bool> stop{false};
  std::atomic<std::size_t> failed_settings{0};
  std::thread setter{[&] { keep_setting(stop, failed_settings); }};
  std::array<std::string, callers> mismatches;
  std::vector<std::thread> threads;
  for (std::size_t caller = 0; caller < callers; ++caller) {
    threads.emplace_back([&, caller] { keep_calling(caller, scenarios, mismatches.at(caller)); });
  }
  for (std::thread &thread : threads) {
    thread.join();
  }
  stop = true;
  setter.join();

  for (const std::string &mismatch : mismatches) {
    EXPECT_EQ(mismatch, "");
  }
  EXPECT_EQ(failed_settings, 0U);
  EXPECT_EQ(malformed_records(), 0U);
  EXPECT_EQ(open_lines() + open_buffers(), 0);
  // No record is lost, and none is there twice.
  Counts expected = before;
  for (const Measured_scenario &measured : scenarios) {
    for (std::size_t i = 0; i < codes; ++i) {
      expected[i] += measured.records[i] * callers * rounds;
    }
  }
  EXPECT_EQ(records_by_code(), expected);
}

// A key of the size that was the limit when its call began is created whatever happens to the
// limit.
TEST(Threads, KeysAreCreatedWhileTheLimitChanges) {
  Loaded_component component;
  ASSERT_EQ(component.init(), 0);
  std::atomic<bool> stop{false};
  std::atomic<std::size_t> failed_settings{0};
  std::thread setter{[&] { keep_setting(stop, failed_settings); }};
  const Scenario &creation = all_scenarios().back();
  ASSERT_EQ(creation.name, "CreateKey");
  std::array<std::string, 2> mismatches;
  std::vector<std::thread> threads;
  threads.reserve(mismatches.size());
  for (std::string &mismatch : mismatches) {
    threads.emplace_back([&] {
      const auto result = std::make_unique<Raw_result>();
      call(*find_function(creation.function.c_str()), creation.arguments, *result);
      const char *wrong = mismatch_of(creation, *result);
      mismatch = wrong == nullptr ? "" : wrong;
    });
  }
  for (std::thread &thread : threads) {
    thread.join();
  }
  stop = true;
  setter.join();
  EXPECT_EQ(mismatches[0] + mismatches[1], "");
}

}  // namespace
}  // namespace halvex_test
