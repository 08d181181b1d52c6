// Loading the extension: what it finds, what it rejects, and where the log goes.
//
// What is loaded stays for the life of the process, so these tests need a process each, which CTest
// gives them.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/auxv.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "sqlite/database.h"
#include "support/fixture.h"
#include "support/loaded_component.h"
#include "support/temporary_folder.h"

namespace halvex_test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

void write(const std::string &path, const std::string &bytes) {
  std::ofstream{path, std::ios::binary} << bytes;
}

class SqliteLoading : public testing::Test {
 protected:
  SqliteLoading() {
    unsetenv("HALVEX_COMPONENT");
    unsetenv("HALVEX_LOG_FILE");
  }

  // The error when HALVEX_COMPONENT names this file; the extension can then still be loaded.
  std::string error_with_component(const std::string &path) {
    setenv("HALVEX_COMPONENT", path.c_str(), 1);
    std::string error = load_error(database, extension_path());
    unsetenv("HALVEX_COMPONENT");
    return error;
  }

  // Our part of the error text; SQLite puts a few words in front.
  static std::string load_error(Database &connection, const std::string &path) {
    const std::string error = connection.load(path);
    constexpr std::string_view prefix = "error during initialization: ";
    EXPECT_THAT(error, StartsWith(prefix));
    return error.substr(std::min(prefix.size(), error.size()));
  }

  void expect_working(Database &connection) {
    EXPECT_EQ(connection.value("SELECT length(create_digest('SHA256', 'abc'))"), "32");
  }

  void expect_loads() {
    EXPECT_EQ(database.load(extension_path()), "");
    expect_working(database);
  }

  // A statement that makes a record works although a destination of the log fails, which one more
  // record reports.
  static void expect_a_record_of(Database &connection, const std::string &failure) {
    EXPECT_EQ(connection.value("SELECT create_digest('SHA256', NULL)"), "NULL");
    EXPECT_EQ(connection.value("SELECT message FROM dovrin_error_log WHERE code <> 13919"),
              sql_text("A destination of the error log fails: Cannot write to " + failure));
  }

  Temporary_folder folder;
  Database database{Database::Extension::absent};
};

TEST_F(SqliteLoading, FindsTheComponentBesideItself) { expect_loads(); }

TEST_F(SqliteLoading, FindsTheComponentThatTheEnvironmentNames) {
  fs::copy_file(component_path(), folder / "somewhere else.so");
  setenv("HALVEX_COMPONENT", (folder / "somewhere else.so").c_str(), 1);
  expect_loads();
}

TEST_F(SqliteLoading, AnEmptyNameOfTheComponentCountsAsNone) {
  setenv("HALVEX_COMPONENT", "", 1);
  expect_loads();
}

TEST_F(SqliteLoading, CanBeLoadedTwice) {
  EXPECT_EQ(database.load(extension_path()), "");
  EXPECT_EQ(database.load(extension_path(), "sqlite3_halvexsqlite_init"), "");
  expect_working(database);
}

TEST_F(SqliteLoading, MissingComponentIsNamed) {
  EXPECT_EQ(error_with_component(folder / "none.so"),
            "There is no component file '" + (folder / "none.so") + "'.");
  EXPECT_EQ(database.error("SELECT create_digest('SHA256', 'abc')"),
            "no such function: create_digest");
  expect_loads();
}

TEST_F(SqliteLoading, DamagedComponentIsNamed) {
  const std::string whole = file_bytes(component_path());
  write(folder / "empty.so", "");
  write(folder / "text.so", "This is no shared object.\n");
  write(folder / "half.so", whole.substr(0, whole.size() / 2));
  write(folder / "almost.so", whole.substr(0, whole.size() - 1));
  write(folder / "head.so", whole.substr(0, 100));
  for (const char *const name : {"empty.so", "text.so", "half.so", "almost.so", "head.so"}) {
    const std::string path = folder / name;
    EXPECT_THAT(error_with_component(path),
                StartsWith("The component file '" + path + "' cannot be loaded: "))
        << name;
  }
  expect_loads();
}

TEST_F(SqliteLoading, FileThatIsNoComponentIsNamed) {
  EXPECT_THAT(error_with_component(HALVEX_NO_COMPONENT),
              HasSubstr("is no component: it has no symbol 'list_components'"));
}

TEST_F(SqliteLoading, ComponentThatFailsToStartIsNamed) {
  setenv("COUNTING_COMPONENT_FAILS", "1", 1);
  EXPECT_THAT(error_with_component(HALVEX_COUNTING_COMPONENT), HasSubstr("refused to start"));
  unsetenv("COUNTING_COMPONENT_FAILS");
  expect_loads();
}

// Replaces the current folder and restores it.
class Current_folder {
 public:
  explicit Current_folder(const fs::path &path) : previous_{fs::current_path()} {
    fs::current_path(path);
  }
  Current_folder(const Current_folder &) = delete;
  Current_folder &operator=(const Current_folder &) = delete;
  ~Current_folder() { fs::current_path(previous_); }

 private:
  fs::path previous_;
};

TEST_F(SqliteLoading, LooksForTheComponentOnce) {
  fs::copy_file(component_path(), folder / "component_halvex_encryption.so");
  fs::copy_file(extension_path(), folder / "halvex_sqlite.so");
  {
    const Current_folder inside{folder.path()};
    EXPECT_EQ(database.load("./halvex_sqlite", "halvex_sqlite_every_connection_init"), "");
  }
  setenv("HALVEX_COMPONENT", "/nonexistent/component.so", 1);
  setenv("HALVEX_LOG_FILE", "/nonexistent/records.json", 1);
  fs::remove(folder / "component_halvex_encryption.so");

  Database later{Database::Extension::absent};
  expect_working(later);
  EXPECT_EQ(later.load(folder / "halvex_sqlite"), "");
  expect_working(later);
}

TEST_F(SqliteLoading, AFailedLoadDoesNotMoveTheComponentsFolder) {
  fs::copy_file(extension_path(), folder / "halvex_sqlite.so");
  const std::string component = folder / "component_halvex_encryption.so";
  {
    const Current_folder inside{folder.path()};
    EXPECT_EQ(load_error(database, "./halvex_sqlite"),
              "There is no component file '" + component + "'.");
  }
  fs::copy_file(component_path(), component);
  EXPECT_EQ(database.load(folder / "halvex_sqlite"), "");
  expect_working(database);
}

TEST_F(SqliteLoading, FindsTheComponentBesideTheFileBehindALink) {
  fs::create_symlink(extension_path(), folder / "halvex_sqlite.so");
  EXPECT_EQ(database.load(folder / "halvex_sqlite"), "");
  expect_working(database);
}

// Runs itself again as a program that has a group of its own, which only root can make here.
TEST_F(SqliteLoading, AProgramWithMoreRightsThanItsCallerIgnoresTheEnvironment) {
  constexpr const char *child_mark = "HALVEX_TEST_PRIVILEGED";
  if (getauxval(AT_SECURE) != 0) {
    setenv("HALVEX_COMPONENT", "/nonexistent/component.so", 1);
    setenv("HALVEX_LOG_FILE", "/nonexistent/records.json", 1);
    EXPECT_EQ(database.load(extension_path()), "");
    expect_working(database);
    return;
  }
  constexpr gid_t other_group = 65534;
  const std::string program = folder / "program";
  fs::copy_file("/proc/self/exe", program);
  if (std::getenv(child_mark) != nullptr || geteuid() != 0 ||
      chown(program.c_str(), 0, other_group) != 0 || chmod(program.c_str(), 02755) != 0) {
    GTEST_SKIP() << "this user or this file system allows no program with rights of its own";
  }
  setenv(child_mark, "1", 1);
  const std::string command =
      program + " --gtest_filter=*AProgramWithMoreRightsThanItsCallerIgnoresTheEnvironment";
  EXPECT_EQ(std::system(command.c_str()), 0);
}

TEST_F(SqliteLoading, CanBeLoadedAgainByAStatement) {
  sqlite3_db_config(database.handle(), SQLITE_DBCONFIG_ENABLE_LOAD_EXTENSION, 1, nullptr);
  sqlite3_enable_load_extension(database.handle(), 1);
  database.bind_text("@extension", extension_path());
  EXPECT_EQ(database.value("SELECT load_extension(@extension)"), "NULL");
  const Statement running =
      database.prepare("SELECT create_digest('SHA256', 'abc'), name FROM dovrin_variables");
  EXPECT_EQ(sqlite3_step(running.get()), SQLITE_ROW);
  EXPECT_EQ(database.value("SELECT load_extension(@extension)"), "NULL");
  EXPECT_EQ(sqlite3_step(running.get()), SQLITE_ROW);
  expect_working(database);
}

TEST_F(SqliteLoading, FunctionOfTheProgramWithTheSameNameIsNamed) {
  const auto answer = [](sqlite3_context *context, int /*argc*/, sqlite3_value ** /*argv*/) {
    sqlite3_result_int(context, 42);
  };
  sqlite3_create_function(database.handle(), "create_digest", -1, SQLITE_UTF8, nullptr, answer,
                          nullptr, nullptr);
  const Statement running = database.prepare("SELECT 1 UNION ALL SELECT 2");
  EXPECT_EQ(sqlite3_step(running.get()), SQLITE_ROW);
  EXPECT_EQ(load_error(database, extension_path()),
            "unable to delete/modify user-function due to active statements");
}

TEST_F(SqliteLoading, OutOfMemoryIsReported) {
  int failures = 0;
  std::string error;
  do {
    Database limited{Database::Extension::absent};
    sqlite3_hard_heap_limit64(sqlite3_memory_used() + 64 * failures);
    error = limited.load(extension_path());
    sqlite3_hard_heap_limit64(0);
    EXPECT_NE(error, "error during initialization: ");
    ++failures;
  } while (!error.empty() && failures < 1000);
  EXPECT_GT(failures, 3);
  EXPECT_EQ(error, "");
}

TEST_F(SqliteLoading, RejectsASecondCopyOfItself) {
  EXPECT_EQ(database.load(extension_path()), "");
  fs::copy_file(component_path(), folder / "component_halvex_encryption.so");
  fs::copy_file(extension_path(), folder / "halvex_sqlite.so");
  Database other{Database::Extension::absent};
  EXPECT_EQ(load_error(other, folder / "halvex_sqlite.so"),
            "Another copy of this extension is loaded already, from '" +
                fs::canonical(extension_path()).string() + "'. One process can use one copy only.");
  expect_working(database);
}

TEST_F(SqliteLoading, TheSameFileByAnotherNameIsNoSecondCopy) {
  EXPECT_EQ(database.load(extension_path()), "");
  fs::create_symlink(extension_path(), folder / "link.so");
  Database other{Database::Extension::absent};
  EXPECT_EQ(other.load(folder / "link.so", "sqlite3_halvexsqlite_init"), "");
  expect_working(other);
}

TEST_F(SqliteLoading, ServesEveryLaterConnectionIfAsked) {
  EXPECT_EQ(database.load(extension_path(), "halvex_sqlite_every_connection_init"), "");
  expect_working(database);
  Database later{Database::Extension::absent};
  expect_working(later);
  EXPECT_EQ(later.value("SELECT count(*) FROM dovrin_variables"), "2");
}

TEST_F(SqliteLoading, ServesOnlyTheConnectionThatLoadsItOtherwise) {
  EXPECT_EQ(database.load(extension_path()), "");
  Database later{Database::Extension::absent};
  EXPECT_EQ(later.error("SELECT create_digest('SHA256', 'abc')"),
            "no such function: create_digest");
}

TEST_F(SqliteLoading, StaysWhenAllConnectionsAreClosed) {
  {
    Database first;
    expect_working(first);
    first.run("UPDATE dovrin_variables SET value = 2048 WHERE name LIKE '%size'");
  }
  Database second;
  expect_working(second);
  EXPECT_EQ(second.value("SELECT value FROM dovrin_variables WHERE name LIKE '%size'"), "2048");
}

TEST_F(SqliteLoading, WritesRecordsToTheLogFileAsLinesOfJson) {
  setenv("HALVEX_LOG_FILE", (folder / "records.json").c_str(), 1);
  EXPECT_EQ(database.load(extension_path()), "");
  database.value("SELECT create_digest('SHA256', NULL)");
  database.value("SELECT create_asymmetric_priv_key('RSA', 1)");

  std::istringstream lines{file_bytes(folder / "records.json")};
  std::vector<int> codes;
  for (std::string line; std::getline(lines, line);) {
    codes.push_back(nlohmann::json::parse(line).at("code").get<int>());
  }
  EXPECT_THAT(codes, ElementsAre(13919, 13921));
  struct stat status {};
  ASSERT_EQ(stat((folder / "records.json").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0600U);
}

TEST_F(SqliteLoading, LogFileThatCannotBeOpenedIsNamed) {
  const std::string path = folder / "no folder/records.json";
  setenv("HALVEX_LOG_FILE", path.c_str(), 1);
  EXPECT_EQ(load_error(database, extension_path()),
            "Cannot open the log file '" + path + "': No such file or directory.");
  unsetenv("HALVEX_LOG_FILE");
  expect_loads();
}

TEST_F(SqliteLoading, AnExistingLogFileIsNarrowedToItsOwner) {
  const std::string path = folder / "records.json";
  write(path, "");
  ASSERT_EQ(chmod(path.c_str(), 0644), 0);
  setenv("HALVEX_LOG_FILE", path.c_str(), 1);
  EXPECT_EQ(database.load(extension_path()), "");
  struct stat status {};
  ASSERT_EQ(stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0600U);
}

TEST_F(SqliteLoading, AFifoThatNobodyReadsIsNoLogFile) {
  const std::string path = folder / "fifo";
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  setenv("HALVEX_LOG_FILE", path.c_str(), 1);
  EXPECT_EQ(load_error(database, extension_path()),
            "Cannot open the log file '" + path +
                "': it is a FIFO that nobody reads, a socket or a missing device.");
}

TEST_F(SqliteLoading, AFifoWhoseReaderLeavesStopsNoStatement) {
  const std::string path = folder / "fifo";
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  const int reader = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  setenv("HALVEX_LOG_FILE", path.c_str(), 1);
  EXPECT_EQ(database.load(extension_path()), "");
  close(reader);
  expect_a_record_of(database, "the log file '" + path + "': Broken pipe.");
}

TEST_F(SqliteLoading, AClosedPipeAsStandardErrorStopsNoStatement) {
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe(ends.data()), 0);
  const int previous = dup(STDERR_FILENO);
  dup2(ends[1], STDERR_FILENO);
  close(ends[0]);
  close(ends[1]);
  setenv("HALVEX_LOG_STDERR", "1", 1);
  EXPECT_EQ(database.load(extension_path()), "");
  expect_a_record_of(database, "the descriptor 2: Broken pipe.");
  dup2(previous, STDERR_FILENO);
  close(previous);
  unsetenv("HALVEX_LOG_STDERR");
}

// Standard input and standard error of the process, each a terminal or not, for as long as it
// lives.
class Standard_streams {
 public:
  Standard_streams(bool terminal_input, bool terminal_error) {
    terminal_ = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    EXPECT_EQ(grantpt(terminal_), 0);
    EXPECT_EQ(unlockpt(terminal_), 0);
    std::array<char, 64> name{};
    EXPECT_EQ(ptsname_r(terminal_, name.data(), name.size()), 0);
    const int line = open(name.data(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    EXPECT_EQ(pipe(pipe_.data()), 0);
    dup2(terminal_input ? line : pipe_[0], STDIN_FILENO);
    dup2(terminal_error ? line : pipe_[1], STDERR_FILENO);
    close(line);
    reader_ = terminal_error ? terminal_ : pipe_[0];
  }
  Standard_streams(const Standard_streams &) = delete;
  Standard_streams &operator=(const Standard_streams &) = delete;
  ~Standard_streams() {
    dup2(previous_input_, STDIN_FILENO);
    dup2(previous_error_, STDERR_FILENO);
    for (const int descriptor : {previous_input_, previous_error_, terminal_, pipe_[0], pipe_[1]}) {
      close(descriptor);
    }
  }

  // What has been written to standard error so far.
  std::string error_output() const {
    constexpr std::string_view end = "END";
    EXPECT_EQ(::write(STDERR_FILENO, end.data(), end.size()), static_cast<ssize_t>(end.size()));
    std::string text;
    std::array<char, 1000> part{};
    while (!text.ends_with(end)) {
      const ssize_t length = read(reader_, part.data(), part.size());
      if (length <= 0) {
        ADD_FAILURE() << "cannot read standard error";
        return text;
      }
      text.append(part.data(), static_cast<std::size_t>(length));
    }
    return text.substr(0, text.size() - end.size());
  }

 private:
  int previous_input_ = dup(STDIN_FILENO);
  int previous_error_ = dup(STDERR_FILENO);
  int terminal_ = -1;
  std::array<int, 2> pipe_{};
  int reader_ = -1;
};

// What a statement that makes a record leaves on standard error.
std::string error_output_with(Database &database, const Standard_streams &streams) {
  unsetenv("HALVEX_LOG_STDERR");
  EXPECT_EQ(database.load(extension_path()), "");
  EXPECT_EQ(database.value("SELECT create_digest('SHA256', NULL)"), "NULL");
  return streams.error_output();
}

TEST_F(SqliteLoading, ATerminalShowsRecords) {
  const Standard_streams streams{true, true};
  EXPECT_THAT(error_output_with(database, streams), HasSubstr(" warning 13919 "));
}

TEST_F(SqliteLoading, AScriptOnATerminalShowsNoRecords) {
  const Standard_streams streams{false, true};
  EXPECT_EQ(error_output_with(database, streams), "");
}

TEST_F(SqliteLoading, ASessionWhoseErrorsAreKeptShowsNoRecords) {
  const Standard_streams streams{true, false};
  EXPECT_EQ(error_output_with(database, streams), "");
}

TEST_F(SqliteLoading, ALimitOfFileSizesStopsNoStatement) {
  const std::string path = folder / "records.json";
  setenv("HALVEX_LOG_FILE", path.c_str(), 1);
  EXPECT_EQ(database.load(extension_path()), "");
  rlimit previous{};
  getrlimit(RLIMIT_FSIZE, &previous);
  const rlimit limit{10, previous.rlim_max};
  setrlimit(RLIMIT_FSIZE, &limit);
  expect_a_record_of(database, "the log file '" + path + "': File too large.");
  setrlimit(RLIMIT_FSIZE, &previous);
}

TEST_F(SqliteLoading, AFullDiskLosesNoRecordOfTheTable) {
  setenv("HALVEX_LOG_FILE", "/dev/full", 1);
  EXPECT_EQ(database.load(extension_path()), "");
  EXPECT_EQ(database.value("SELECT create_digest('SHA256', NULL)"), "NULL");
  EXPECT_EQ(database.value("SELECT create_digest(NULL, 'abc')"), "NULL");
  expect_working(database);
  EXPECT_EQ(database.value("SELECT count(*) FROM dovrin_error_log WHERE code = 13919"), "2");
  EXPECT_EQ(
      database.value("SELECT count(*) FROM dovrin_error_log WHERE message LIKE "
                     "'%Cannot write to the log file ''/dev/full'': No space left on device.%'"),
      "1");
}

}  // namespace
}  // namespace halvex_test
