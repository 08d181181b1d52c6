// Many threads on one server. What is checked here is results; the thread sanitizer checks the
// rest.

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "dovrin_host/server.h"
#include "dovrin_host/services.h"
#include "records.h"

namespace dovrin_host {
namespace {

constexpr int thread_count = 4;

const std::string component_file = std::string{TEST_COMPONENTS_FOLDER} + "/well_behaved.so";

Server &server() { return Server::instance(); }

// Runs work(number) on several threads at once and waits for all.
void run_together(int threads, const std::function<void(int)> &work) {
  std::vector<std::thread> running;
  running.reserve(static_cast<std::size_t>(threads));
  for (int i = 0; i < threads; ++i) {
    running.emplace_back(work, i);
  }
  for (std::thread &thread : running) {
    thread.join();
  }
}

void log_message(const std::string &message) {
  Dovrin_log_line *const line = log_builtins_table.create_line();
  log_builtins_table.item_set_cstring(log_builtins_table.add_item(line, DOVRIN_LOG_MESSAGE),
                                      message.c_str());
  EXPECT_EQ(log_builtins_table.submit(line), 0);
  log_builtins_table.release_line(line);
}

TEST(ServerThreads, NoRecordIsLostWhileSinksComeAndGo) {
  constexpr int messages_per_thread = 500;
  const auto ring = std::make_shared<Ring_sink>(thread_count * messages_per_thread);
  server().error_log().add_sink(ring);
  run_together(thread_count + 1, [&](int number) {
    if (number == thread_count) {
      for (int i = 0; i < 200; ++i) {
        const auto passing = std::make_shared<Ring_sink>(4);
        server().error_log().add_sink(passing);
        static_cast<void>(passing->snapshot());
        server().error_log().remove_sink(passing.get());
      }
      return;
    }
    for (int i = 0; i < messages_per_thread; ++i) {
      log_message(std::to_string(number) + '/' + std::to_string(i));
    }
  });
  server().error_log().remove_sink(ring.get());

  std::set<std::string> messages;
  std::uint64_t expected_sequence = 0;
  for (const Numbered_record &numbered : ring->snapshot()) {
    EXPECT_EQ(numbered.sequence, ++expected_sequence);
    messages.insert(numbered.record.message);
  }
  EXPECT_EQ(messages.size(), static_cast<std::size_t>(thread_count * messages_per_thread));
}

TEST(ServerThreads, InstancesWorkWhileOthersTryToUninstall) {
  ASSERT_TRUE(server().install(component_file).ok());
  run_together(thread_count, [](int number) {
    for (int i = 0; i < 200; ++i) {
      if (number == 0) {
        // Fails mostly; when it succeeds, the component comes back at once.
        if (server().uninstall("dovrin::well_behaved").ok()) {
          EXPECT_TRUE(server().install(component_file).ok());
        }
        continue;
      }
      const auto instance = server().open_function("value", {});
      if (instance.ok()) {
        EXPECT_EQ(instance.value()->row({}), integer_result(1));
      } else {
        EXPECT_EQ(instance.message(), "The function 'value' is not installed.");
      }
    }
  });
  EXPECT_TRUE(server().uninstall("dovrin::well_behaved").ok());
}

TEST(ServerThreads, LeasesShareOneComponent) {
  run_together(thread_count, [](int /*number*/) {
    for (int i = 0; i < 100; ++i) {
      const auto lease = server().acquire(component_file);
      ASSERT_TRUE(lease.ok()) << lease.message();
      const auto instance = server().open_function("value", {});
      ASSERT_TRUE(instance.ok()) << instance.message();
      EXPECT_EQ(instance.value()->row({}), integer_result(1));
    }
  });
  EXPECT_TRUE(server().components().empty());
}

TEST(ServerThreads, VariablesAreSetAndReadTogether) {
  const auto lease = server().acquire(component_file);
  ASSERT_TRUE(lease.ok());
  System_variables &variables = server().variables();
  run_together(thread_count, [&](int number) {
    for (int i = 0; i < 300; ++i) {
      if (number % 2 == 0) {
        EXPECT_TRUE(variables.set("well_behaved.size", i % 2 == 0 ? 2048LL : 16384LL).ok());
        EXPECT_TRUE(variables.set("well_behaved.switch", i % 2 == 0).ok());
        EXPECT_FALSE(variables.set("well_behaved.size", 3000LL).ok());
      } else {
        const long long size = std::get<long long>(variables.get("well_behaved.size").value());
        EXPECT_TRUE(size == 2048 || size == 4096 || size == 16384) << size;
        EXPECT_EQ(variables.list().size(), 2U);
      }
    }
  });
}

// A component's callbacks that write without any precaution of their own.
int plain_storage = 0;

int reporting_check(THD * /*thread*/, SYS_VAR * /*variable*/, void *save, st_dovrin_value *value) {
  log_message("checked");
  long long number = 0;
  value->val_int(value, &number);
  *static_cast<int *>(save) = static_cast<int>(number);
  return 0;
}

void plain_update(THD * /*thread*/, SYS_VAR * /*variable*/, void * /*storage*/, const void *save) {
  plain_storage = *static_cast<const int *>(save);
}

TEST(ServerThreads, VariableMayBeUnregisteredWhileOthersSetAndReadIt) {
  const Listener listener;
  System_variables &variables = server().variables();
  Dovrin_int_limits limits{0, 0, 100, 1};
  constexpr int wanted = 50;
  std::atomic<int> accepted{0};
  run_together(thread_count, [&](int number) {
    while (accepted < wanted) {
      if (number == 0) {
        EXPECT_EQ(sys_variable_register_table.register_variable(
                      "threads", "plain", DOVRIN_VARIABLE_INT, "", &reporting_check, &plain_update,
                      &limits, &plain_storage),
                  0);
        std::this_thread::yield();
        EXPECT_EQ(sys_variable_unregister_table.unregister_variable("threads", "plain"), 0);
      } else if (number == 1) {
        static_cast<void>(variables.get("threads.plain"));
      } else if (variables.set("threads.plain", 7LL).ok()) {
        ++accepted;
      }
    }
  });
  EXPECT_EQ(plain_storage, 7);
  EXPECT_EQ(listener.records().size(), static_cast<std::size_t>(accepted.load()));
  EXPECT_TRUE(variables.list().empty());
}

TEST(ServerThreads, FunctionsAreRegisteredAndListedTogether) {
  run_together(thread_count, [](int number) {
    const std::string name = "function_" + std::to_string(number);
    for (int i = 0; i < 200; ++i) {
      EXPECT_EQ(udf_registration_table.udf_register(
                    name.c_str(), INT_RESULT, [] {}, nullptr, nullptr),
                0);
      EXPECT_FALSE(server().functions().list().empty());
      int was_registered = 0;
      EXPECT_EQ(udf_registration_table.udf_unregister(name.c_str(), &was_registered), 0);
      EXPECT_NE(was_registered, 0);
    }
  });
  EXPECT_TRUE(server().functions().list().empty());
}

}  // namespace
}  // namespace dovrin_host
