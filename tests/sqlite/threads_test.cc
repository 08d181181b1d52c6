// Many threads in one process: connections of their own, one shared connection, interruptions, and
// the end of the process.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "sqlite/database.h"
#include "support/fixture.h"
#include "support/temporary_folder.h"

namespace halvex_test {
namespace {

constexpr int thread_count = 6;

void in_threads(const std::function<void(int)> &work) {
  std::vector<std::thread> threads;
  threads.reserve(thread_count);
  for (int i = 0; i < thread_count; ++i) {
    threads.emplace_back(work, i);
  }
  for (std::thread &thread : threads) {
    thread.join();
  }
}

void bind_keys(Database &database) {
  database.bind_text("@private", fixture("rsa2048.pem"));
  database.bind_text("@public", fixture("rsa2048-public.pem"));
}

TEST(SqliteThreads, ConnectionsWorkSideBySide) {
  std::atomic<int> wrong{0};
  std::atomic<int> reported{0};
  in_threads([&](int number) {
    Database database;
    bind_keys(database);
    const std::string text = "'text of thread " + std::to_string(number) + "'";
    const std::string decryption =
        "SELECT CAST(asymmetric_decrypt('RSA', asymmetric_encrypt('RSA', " + text +
        ", @public), @private) AS TEXT)";
    const std::string verification = "SELECT asymmetric_verify('RSA', " + text +
                                     ", asymmetric_sign('RSA', " + text +
                                     ", @private, 'SHA384'), @public, 'sha384')";
    for (int round = 0; round < 12; ++round) {
      wrong += database.value(decryption) != text;
      wrong += database.value(verification) != "1";
      wrong += database.value("SELECT create_asymmetric_pub_key('RSA', @private) = @public") != "1";
      wrong += database.value("SELECT create_digest('SHA256', NULL)") != "NULL";
      ++reported;
      database.run(
          "UPDATE dovrin_variables SET value = 2048 + 1024 * (abs(random()) % 3) "
          "WHERE name LIKE '%maximum_rsa_key_size'");
      wrong += database.value(
                   "SELECT count(*) FROM dovrin_variables WHERE value IN "
                   "(2048, 3072, 4096, 'OFF')") != "2";
      wrong += database.value("SELECT count(*) > 0 FROM dovrin_error_log") != "1";
    }
  });
  EXPECT_EQ(wrong, 0);
  Database database;
  EXPECT_EQ(database.value("SELECT count(*) FROM dovrin_error_log"), std::to_string(reported));
}

TEST(SqliteThreads, ConnectionsComeAndGo) {
  std::atomic<int> wrong{0};
  in_threads([&](int /*number*/) {
    for (int round = 0; round < 30; ++round) {
      Database database;
      wrong += database.value("SELECT length(create_digest('SHA512', 'abc'))") != "64";
    }
  });
  EXPECT_EQ(wrong, 0);
}

TEST(SqliteThreads, ThreadsShareAConnection) {
  Database database;
  std::atomic<int> wrong{0};
  in_threads([&](int number) {
    sqlite3_stmt *raw = nullptr;
    sqlite3_prepare_v2(database.handle(), "SELECT hex(create_digest('SHA256', ?1)), ?1", -1, &raw,
                       nullptr);
    const Statement statement{raw};
    for (int round = 0; round < 200; ++round) {
      const std::string text = std::to_string(number) + " " + std::to_string(round);
      sqlite3_bind_text(raw, 1, text.data(), static_cast<int>(text.size()), nullptr);
      wrong += sqlite3_step(raw) != SQLITE_ROW;
      wrong += sqlite3_column_bytes(raw, 0) != 64;
      wrong += reinterpret_cast<const char *>(sqlite3_column_text(raw, 1)) != text;
      sqlite3_reset(raw);
    }
  });
  EXPECT_EQ(wrong, 0);
}

TEST(SqliteThreads, AnotherThreadInterruptsAStatement) {
  Database database;
  const Statement endless = database.prepare(
      "WITH RECURSIVE n (i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n) "
      "SELECT create_digest('SHA256', CAST(i AS TEXT)) FROM n");
  ASSERT_EQ(sqlite3_step(endless.get()), SQLITE_ROW);
  std::thread other{[&] { sqlite3_interrupt(database.handle()); }};
  int step = SQLITE_ROW;
  while (step == SQLITE_ROW) {
    step = sqlite3_step(endless.get());
  }
  other.join();
  EXPECT_EQ(step, SQLITE_INTERRUPT);
  EXPECT_EQ(database.value("SELECT length(create_digest('SHA256', 'abc'))"), "32");
}

// Ends the process while threads compute rows, as a program with daemon threads does.
[[noreturn]] void exit_under_rows() {
  // What is loaded later cleans up earlier. A leak checker, which was there before, is left out: it
  // cannot hold threads that come and go.
  std::atexit([] { _exit(0); });
  std::atomic<int> started{0};
  for (int i = 0; i < thread_count; ++i) {
    std::thread{[&started] {
      auto *const database = new Database;
      ++started;
      for (;;) {
        database->value("SELECT create_digest('SHA256', 'abc')");
      }
    }}.detach();
  }
  while (started < thread_count) {
    std::this_thread::yield();
  }
  std::exit(0);
}

TEST(SqliteExit, ThreadsMayStillComputeRows) {
  constexpr int runs = 40;
  for (int run = 0; run < runs; ++run) {
    const pid_t child = fork();
    if (child == 0) {
      exit_under_rows();
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0) << "run " << run;
  }
}

// Open statements are no reason for a record when the process ends.
TEST(SqliteExit, OpenStatementsLeaveNoRecord) {
  const Temporary_folder folder;
  const std::string log_file = folder / "records.json";
  const pid_t child = fork();
  if (child == 0) {
    setenv("HALVEX_LOG_FILE", log_file.c_str(), 1);
    auto *const database = new Database;
    database->value("SELECT create_digest('SHA256', NULL)");
    const Statement open = database->prepare(
        "SELECT create_digest('SHA256', 'abc') UNION ALL SELECT create_digest('SHA256', 'abd')");
    sqlite3_step(open.get());
    std::exit(0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  std::ifstream file{log_file};
  const std::string records{std::istreambuf_iterator<char>{file}, {}};
  EXPECT_THAT(records, testing::HasSubstr("13919"));
  EXPECT_EQ(std::ranges::count(records, '\n'), 1) << records;
}

}  // namespace
}  // namespace halvex_test
