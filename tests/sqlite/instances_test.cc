// Function instances: how often SQL statements make a component run init, row and deinit.

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <string>

#include "sqlite/counting_component.h"
#include "sqlite/database.h"

namespace halvex_test {
namespace {

// How often each callback ran; deinits must always match inits in the end.
struct Counts {
  long inits = 0;
  long rows = 0;
  long deinits = 0;

  bool operator==(const Counts &) const = default;
};

std::ostream &operator<<(std::ostream &stream, const Counts &counts) {
  return stream << counts.inits << " inits, " << counts.rows << " rows, " << counts.deinits
                << " deinits";
}

class SqliteInstances : public testing::Test {
 protected:
  SqliteInstances() {
    setenv("HALVEX_COMPONENT", HALVEX_COUNTING_COMPONENT, 1);
    database.emplace();
    const auto get_counts = reinterpret_cast<Get_call_counts *>(
        dlsym(dlopen(HALVEX_COUNTING_COMPONENT, RTLD_NOW | RTLD_NOLOAD), get_call_counts_name));
    counts_ = get_counts();
    before_ = now();
    database->run(
        "CREATE TABLE ten (id INTEGER PRIMARY KEY, text TEXT, number INTEGER);"
        "WITH RECURSIVE n (i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 10) "
        "INSERT INTO ten SELECT i, 'row ' || i, i FROM n");
  }

  // Since the test began.
  Counts counts() const {
    const Counts all = now();
    return {all.inits - before_.inits, all.rows - before_.rows, all.deinits - before_.deinits};
  }

  std::optional<Database> database;

 private:
  Counts now() const { return {counts_->inits, counts_->rows, counts_->deinits}; }

  Call_counts *counts_ = nullptr;
  Counts before_;
};

TEST_F(SqliteInstances, AConstantArgumentMakesOneInstancePerStatement) {
  EXPECT_EQ(database->value("SELECT count(counted(text, 'constant')) FROM ten"), "10");
  EXPECT_EQ(counts(), (Counts{1, 10, 1}));
}

TEST_F(SqliteInstances, ABoundArgumentIsConstant) {
  database->bind_text("@bound", "constant");
  EXPECT_EQ(database->value("SELECT sum(counted_length(@bound, text)) FROM ten"), "80");
  EXPECT_EQ(counts(), (Counts{1, 10, 1}));
}

TEST_F(SqliteInstances, ColumnsAloneMakeOneInstancePerRow) {
  EXPECT_EQ(database->value("SELECT count(counted(text, number)) FROM ten"), "10");
  EXPECT_EQ(counts(), (Counts{10, 10, 10}));
}

TEST_F(SqliteInstances, AllDigestsOfAConnectionShareOneInstance) {
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(
        database->value("SELECT count(create_digest(text, text)) + "
                        "count(create_digest('constant', create_digest(text, NULL))) FROM ten"),
        "20");
  }
  EXPECT_EQ(counts(), (Counts{1, 60, 0}));
  database.reset();
  EXPECT_EQ(counts(), (Counts{1, 60, 1}));
}

TEST_F(SqliteInstances, ADigestOfOtherTypesReplacesTheSharedInstance) {
  EXPECT_EQ(
      database->value("SELECT count(create_digest(text, iif(id = 5, number, text))) FROM ten"),
      "10");
  EXPECT_EQ(counts(), (Counts{3, 10, 2}));
  EXPECT_EQ(database->error("SELECT create_digest('a', 1.5)"), "Argument 2 is a real.");
  EXPECT_EQ(database->value("SELECT create_digest('a', 'b')"), "x'61'");
  EXPECT_EQ(counts(), (Counts{5, 11, 4}));
}

TEST_F(SqliteInstances, EveryCallSiteHasItsOwn) {
  EXPECT_EQ(database->value("SELECT count(counted(text, 'a') || counted(text, 'b')) FROM ten"),
            "10");
  EXPECT_EQ(counts(), (Counts{2, 20, 2}));
}

TEST_F(SqliteInstances, NestedCallsAreCallSitesOfTheirOwn) {
  EXPECT_EQ(database->value("SELECT count(counted(counted(text, 'a'), 'b')) FROM ten"), "10");
  EXPECT_EQ(counts(), (Counts{2, 20, 2}));
}

TEST_F(SqliteInstances, InitRunsAtTheFirstRow) {
  const Statement prepared = database->prepare("SELECT counted(text, 'constant') FROM ten");
  EXPECT_EQ(counts(), (Counts{0, 0, 0}));
  EXPECT_EQ(sqlite3_step(prepared.get()), SQLITE_ROW);
  EXPECT_EQ(counts(), (Counts{1, 1, 0}));
}

TEST_F(SqliteInstances, NoRowsMakeNoInstance) {
  EXPECT_EQ(database->value("SELECT count(counted(text, 'constant')) FROM ten WHERE id > 10"), "0");
  EXPECT_EQ(counts(), (Counts{0, 0, 0}));
}

TEST_F(SqliteInstances, AStatementThatIsLeftEarlyEndsItsInstance) {
  {
    const Statement left = database->prepare("SELECT counted(text, 'constant') FROM ten");
    EXPECT_EQ(sqlite3_step(left.get()), SQLITE_ROW);
    EXPECT_EQ(sqlite3_step(left.get()), SQLITE_ROW);
  }
  EXPECT_EQ(counts(), (Counts{1, 2, 1}));
}

TEST_F(SqliteInstances, EveryExecutionOfAPreparedStatementHasItsOwn) {
  const Statement prepared = database->prepare("SELECT count(counted(text, 'constant')) FROM ten");
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(sqlite3_step(prepared.get()), SQLITE_ROW);
    sqlite3_reset(prepared.get());
  }
  EXPECT_EQ(counts(), (Counts{3, 30, 3}));
}

TEST_F(SqliteInstances, ARowOfOtherTypesHasItsOwn) {
  // Nine strings for the instance that stays, one integer in their midst for another one.
  EXPECT_EQ(
      database->value("SELECT count(counted(iif(id = 5, number, text), 'constant')) FROM ten"),
      "9");
  EXPECT_EQ(counts(), (Counts{2, 10, 2}));
}

TEST_F(SqliteInstances, ANullDoesNotChangeTheTypes) {
  EXPECT_EQ(database->value("SELECT count(counted(iif(id = 1, NULL, text), 'constant')) FROM ten"),
            "9");
  EXPECT_EQ(counts(), (Counts{1, 10, 1}));
}

TEST_F(SqliteInstances, AFailedInitIsFollowedByItsDeinit) {
  EXPECT_EQ(database->error("SELECT counted('a', 1.5)"), "Argument 2 is a real.");
  EXPECT_EQ(counts(), (Counts{1, 0, 1}));
}

TEST_F(SqliteInstances, AFailedInitInAnyRowEndsEverything) {
  EXPECT_EQ(database->error("SELECT counted(iif(id = 5, 1.5, text), 'constant') FROM ten"),
            "Argument 1 is a real.");
  EXPECT_EQ(counts(), (Counts{2, 4, 2}));
}

TEST_F(SqliteInstances, NoArgumentsAreFine) {
  EXPECT_EQ(database->value("SELECT count(*) - count(counted()) FROM ten"), "10");
  EXPECT_EQ(counts().inits, counts().deinits);
  EXPECT_EQ(counts().rows, 10);
}

TEST_F(SqliteInstances, ManyArgumentsAreFine) {
  std::string arguments = "'a'";
  for (int i = 1; i < 127; ++i) {
    arguments += ", id";
  }
  EXPECT_EQ(database->value("SELECT count(counted(" + arguments + ")) FROM ten"), "10");
  EXPECT_EQ(counts(), (Counts{1, 10, 1}));
}

TEST_F(SqliteInstances, GroupsAndTheirConditionsLeaveNothingOpen) {
  database->rows(
      "SELECT counted(text, 'a'), count(*) FROM ten GROUP BY counted(text, 'a') "
      "HAVING counted(text, 'a') <> x'00' ORDER BY counted(text, 'a')");
  EXPECT_GT(counts().inits, 0);
  EXPECT_EQ(counts().inits, counts().deinits);
}

TEST_F(SqliteInstances, TriggersLeaveNothingOpen) {
  database->run(
      "CREATE TABLE audit (text);"
      "CREATE TRIGGER keep AFTER UPDATE ON ten BEGIN"
      "  INSERT INTO audit VALUES (counted(new.text, 'constant')); END;"
      "UPDATE ten SET number = 0");
  EXPECT_EQ(database->value("SELECT count(text) FROM audit"), "10");
  EXPECT_EQ(counts().rows, 10);
  EXPECT_EQ(counts().inits, counts().deinits);
}

TEST_F(SqliteInstances, AnInterruptedStatementLeavesNothingOpen) {
  const Statement endless = database->prepare(
      "WITH RECURSIVE n (i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n) "
      "SELECT counted('text', i) FROM n");
  EXPECT_EQ(sqlite3_step(endless.get()), SQLITE_ROW);
  sqlite3_interrupt(database->handle());
  EXPECT_EQ(sqlite3_step(endless.get()), SQLITE_INTERRUPT);
  EXPECT_EQ(counts(), (Counts{1, 1, 1}));
  EXPECT_EQ(database->value("SELECT counted('next')"), "x'6e657874'");
}

TEST_F(SqliteInstances, AnExceptionOfARowIsAnErrorOfTheStatement) {
  EXPECT_EQ(database->error("SELECT throws('memory')"), "out of memory");
  EXPECT_EQ(sqlite3_errcode(database->handle()), SQLITE_NOMEM);
  EXPECT_EQ(database->error("SELECT throws('text')"), "The row could not be computed.");
  EXPECT_EQ(database->error("SELECT throws('other')"), "an unknown exception");
  EXPECT_EQ(database->value("SELECT throws('nothing')"), "NULL");
  EXPECT_EQ(counts(), (Counts{4, 4, 4}));
}

TEST_F(SqliteInstances, TheErrorFlagFailsTheStatement) {
  EXPECT_EQ(database->error("SELECT fails('a')"), "The function fails reported an error.");
  EXPECT_EQ(counts(), (Counts{1, 1, 1}));
}

TEST_F(SqliteInstances, ClosingAConnectionKeepsTheFunctionsOfTheOthers) {
  std::optional<Database> other;
  other.emplace();
  const Statement running = database->prepare("SELECT counted(text, 'constant') FROM ten");
  EXPECT_EQ(sqlite3_step(running.get()), SQLITE_ROW);
  other.reset();
  EXPECT_EQ(sqlite3_step(running.get()), SQLITE_ROW);
  EXPECT_EQ(counts(), (Counts{1, 2, 0}));
}

}  // namespace
}  // namespace halvex_test
