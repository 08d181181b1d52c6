// The tables dovrin_variables, dovrin_versions and dovrin_error_log.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/crypto.h>
#include <sqlite3.h>

#include <array>
#include <optional>
#include <string>

#include "sqlite/database.h"
#include "support/temporary_folder.h"

namespace halvex_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

const std::string key_size = "component_halvex_encryption.maximum_rsa_key_size";
const std::string padding = "component_halvex_encryption.rsa_support_legacy_padding";

class SqliteVariables : public testing::Test {
 protected:
  // Sets a variable to an SQL expression; the error text, empty for success.
  std::string set(const std::string &name, const std::string &expression) {
    return database.error("UPDATE dovrin_variables SET value = " + expression + " WHERE name = '" +
                          name + "'");
  }

  std::string get(const std::string &name) {
    return database.value("SELECT value FROM dovrin_variables WHERE name = '" + name + "'");
  }

  Database database;
};

TEST_F(SqliteVariables, ShowsEverythingAboutEach) {
  EXPECT_THAT(
      database.rows("SELECT * FROM dovrin_variables"),
      ElementsAre(
          ElementsAre(sql_text(key_size), "4096", "'integer'", "4096", "2048", "16384", "1024",
                      "'Maximum size of RSA key generation'"),
          ElementsAre(sql_text(padding), "'OFF'", "'boolean'", "'OFF'", "NULL", "NULL", "NULL",
                      "'Supports legacy padding in decryption and signature verification "
                      "functions'")));
}

TEST_F(SqliteVariables, AcceptsKeySizes) {
  for (const char *const value : {"2048", "3072", "16384", "8192.0", "'5120'"}) {
    EXPECT_EQ(set(key_size, value), "") << value;
    EXPECT_EQ(get(key_size), database.value("SELECT CAST(" + std::string{value} + " AS INTEGER)"));
  }
}

TEST_F(SqliteVariables, LooksAtTheLow32BitsOfAKeySize) {
  EXPECT_EQ(set(key_size, "2048"), "");
  EXPECT_EQ(set(key_size, "4294971392"), "");
  EXPECT_EQ(get(key_size), "4096");
}

TEST_F(SqliteVariables, RejectsOtherKeySizesAndStatesWhatIsAllowed) {
  const std::array values{
      std::pair{"1024", "1024"},   std::pair{"2047", "2047"},     std::pair{"3000", "3000"},
      std::pair{"16385", "16385"}, std::pair{"17408", "17408"},   std::pair{"0", "0"},
      std::pair{"-4096", "-4096"}, std::pair{"'large'", "large"}, std::pair{"''", ""},
      std::pair{"NULL", "NULL"},   std::pair{"x'3430'", "40"},
  };
  for (const auto &[value, shown] : values) {
    EXPECT_EQ(set(key_size, value), "The system variable " + key_size + " cannot be set to '" +
                                        shown +
                                        "'. Allowed are multiples of 1024 from 2048 to 16384.")
        << value;
    EXPECT_EQ(get(key_size), "4096");
  }
}

TEST_F(SqliteVariables, AcceptsTheFormsOfABoolean) {
  for (const char *const on : {"'ON'", "'true'", "1", "'1'", "'On'"}) {
    EXPECT_EQ(set(padding, "'off'"), "");
    EXPECT_EQ(get(padding), "'OFF'");
    EXPECT_EQ(set(padding, on), "");
    EXPECT_EQ(get(padding), "'ON'") << on;
  }
}

TEST_F(SqliteVariables, RejectsWhatIsNoBoolean) {
  for (const char *const value : {"2", "-1", "'yes'", "NULL"}) {
    EXPECT_THAT(set(padding, value),
                testing::EndsWith("Allowed are ON, OFF, TRUE, FALSE, 1 and 0."))
        << value;
    EXPECT_EQ(get(padding), "'OFF'");
  }
}

TEST_F(SqliteVariables, TheDefaultsCanBeSetForAll) {
  EXPECT_EQ(set(key_size, "8192"), "");
  EXPECT_EQ(set(padding, "'ON'"), "");
  EXPECT_EQ(database.error("UPDATE dovrin_variables SET value = default_value"), "");
  EXPECT_EQ(get(key_size), "4096");
  EXPECT_EQ(get(padding), "'OFF'");
}

TEST_F(SqliteVariables, ARejectedValueIsAConstraintErrorThatCanBeIgnored) {
  EXPECT_EQ(database.error("UPDATE OR IGNORE dovrin_variables SET value = 1"), "");
  EXPECT_EQ(get(key_size), "4096");
  EXPECT_EQ(get(padding), "'ON'");
}

TEST_F(SqliteVariables, OnlyValuesChange) {
  EXPECT_EQ(database.error("UPDATE dovrin_variables SET name = 'x', value = 8192"),
            "dovrin_variables: only the value can be changed");
  for (const char *const change : {"maximum = 32768", "maximum = 'large'", "maximum = NULL",
                                   "type = 'text'", "type = 7", "type = NULL"}) {
    EXPECT_EQ(database.error(std::string{"UPDATE dovrin_variables SET "} + change),
              "dovrin_variables: only the value can be changed")
        << change;
  }
  EXPECT_EQ(database.error("UPDATE dovrin_variables SET rowid = 7 WHERE rowid = 1"),
            "dovrin_variables: only the value can be changed");
  const std::string error =
      "dovrin_variables: rows can be neither inserted nor deleted; UPDATE sets the value of one "
      "that is "
      "there";
  EXPECT_EQ(database.error("INSERT INTO dovrin_variables (name, value) VALUES ('x', 1)"), error);
  EXPECT_EQ(database.error("DELETE FROM dovrin_variables"), error);
  EXPECT_EQ(get(key_size), "4096");
  EXPECT_EQ(database.value("SELECT count(*) FROM dovrin_variables"), "2");
}

TEST_F(SqliteVariables, SettingOtherColumnsToWhatTheyAreIsFine) {
  EXPECT_EQ(
      database.error("UPDATE dovrin_variables SET value = 8192, name = name, comment = comment "
                     "WHERE maximum = 16384"),
      "");
  EXPECT_EQ(get(key_size), "8192");
}

TEST_F(SqliteVariables, AnUpdateOfNoRowChangesNothing) {
  EXPECT_EQ(set("component_halvex_encryption.unknown", "1"), "");
  EXPECT_EQ(get(key_size), "4096");
}

TEST_F(SqliteVariables, ASettingOutlivesItsTransactionAndItsConnection) {
  std::optional<Database> other;
  other.emplace();
  other->run("BEGIN; UPDATE dovrin_variables SET value = 2048 WHERE name = '" + key_size +
             "'; ROLLBACK");
  other.reset();
  EXPECT_EQ(get(key_size), "2048");
}

TEST_F(SqliteVariables, TheKeySizeBoundsCreation) {
  EXPECT_EQ(set(key_size, "2048"), "");
  EXPECT_THAT(database.rows("SELECT create_asymmetric_priv_key('RSA', 2048) IS NULL, "
                            "create_asymmetric_priv_key('RSA', 3072) IS NULL"),
              ElementsAre(ElementsAre("0", "1")));
  EXPECT_THAT(
      database.rows("SELECT code, message FROM dovrin_error_log"),
      ElementsAre(ElementsAre("13921", MatchesRegex(".*3072.*between 2048 and 2048 bits.*"))));
}

TEST_F(SqliteVariables, NoSchemaCanReachThem) {
  database.run(
      "CREATE TABLE t (a); CREATE TRIGGER lax AFTER INSERT ON t BEGIN"
      "  UPDATE dovrin_variables SET value = 'ON'; END;"
      "CREATE VIEW v AS SELECT * FROM dovrin_variables");
  EXPECT_EQ(database.error("INSERT INTO t VALUES (1)"),
            "unsafe use of virtual table \"dovrin_variables\"");
  EXPECT_EQ(database.error("SELECT * FROM v"), "unsafe use of virtual table \"dovrin_variables\"");
  EXPECT_EQ(get(padding), "'OFF'");
}

TEST_F(SqliteVariables, ATableOfTheSameNameStandsInFrontOfThem) {
  database.run(
      "CREATE TABLE dovrin_variables (name, value);"
      "INSERT INTO dovrin_variables VALUES ('" +
      key_size + "', 1)");
  EXPECT_EQ(set(key_size, "8192"), "");
  EXPECT_EQ(get(key_size), "8192");
  EXPECT_EQ(
      database.value("SELECT value FROM temp.dovrin_variables WHERE name = '" + key_size + "'"),
      "4096");
  database.run("UPDATE temp.dovrin_variables SET value = 2048 WHERE name = '" + key_size + "'");
  EXPECT_EQ(database.value("SELECT create_asymmetric_priv_key('RSA', 4096)"), "NULL");
}

TEST_F(SqliteVariables, AConnectionOfItsOwnNeedsNoLockOfTheDatabase) {
  const Temporary_folder folder;
  Database holder{Database::Extension::loaded, folder / "file.db"};
  holder.run("CREATE TABLE t (a); BEGIN EXCLUSIVE");
  Database waiting{Database::Extension::loaded, folder / "file.db"};
  for (const char *const table : {"dovrin_variables", "dovrin_error_log"}) {
    EXPECT_EQ(waiting.error("SELECT count(*) FROM " + std::string{table}), "database is locked");
  }
  EXPECT_EQ(get(key_size), "4096");

  holder.run("COMMIT; BEGIN; INSERT INTO t VALUES (1)");
  EXPECT_EQ(waiting.value("SELECT count(*) FROM dovrin_variables"), "2");
  EXPECT_EQ(waiting.error("UPDATE dovrin_variables SET value = default_value"),
            "database is locked");
  EXPECT_EQ(set(key_size, "2048"), "");

  waiting.run("PRAGMA query_only = ON");
  EXPECT_EQ(waiting.error("UPDATE dovrin_variables SET value = default_value"),
            "attempt to write a readonly database");
}

TEST_F(SqliteVariables, NobodyCanMakeATableOfThisKind) {
  EXPECT_EQ(database.error("CREATE VIRTUAL TABLE mine USING dovrin_variables"),
            "no such module: dovrin_variables");
}

TEST(SqliteVersions, NamesWhatABugReportNeeds) {
  Database database;
  const std::string engine = std::string{"SQLite "} + sqlite3_libversion();
  EXPECT_THAT(database.rows("SELECT * FROM dovrin_versions"),
              ElementsAre(ElementsAre("'version'", "'" HALVEX_VERSION "'"),
                          ElementsAre("'component_file'", sql_text(HALVEX_COMPONENT_PATH)),
                          ElementsAre("'engine'", sql_text(engine)),
                          ElementsAre("'engine_built_with'", "'SQLite " SQLITE_VERSION "'"),
                          ElementsAre("'openssl'", sql_text(OpenSSL_version(OPENSSL_VERSION))),
                          ElementsAre("'openssl_built_with'", "'" OPENSSL_VERSION_TEXT "'"),
                          ElementsAre("'row_context'", testing::AnyOf("'small'", "'default'"))));
}

TEST(SqliteVersions, CannotBeChanged) {
  Database database;
  EXPECT_NE(database.error("UPDATE dovrin_versions SET value = '2'"), "");
  EXPECT_NE(database.error("DELETE FROM dovrin_versions"), "");
}

class SqliteErrorLog : public testing::Test {
 protected:
  Database database;
};

TEST_F(SqliteErrorLog, ShowsAllOfARecord) {
  EXPECT_EQ(database.value("SELECT create_digest('SHA256', NULL)"), "NULL");
  EXPECT_THAT(
      database.rows("SELECT * FROM dovrin_error_log"),
      ElementsAre(ElementsAre(
          "1", MatchesRegex("'[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{6}Z'"),
          "'warning'", "13919", MatchesRegex("'HALVEX_[A-Z_]+'"),
          "'component:component_halvex_encryption'", "'digest'", "'functions'",
          MatchesRegex("[0-9]+"),
          MatchesRegex(
              "'Component component_halvex_encryption reported: '.*create_digest.*Non-null "
              "value for algorithm and data.*''"),
          MatchesRegex("'.+'"))));
}

TEST_F(SqliteErrorLog, TurningLegacyPaddingOnLeavesAWarning) {
  const std::string set = "UPDATE temp.dovrin_variables SET value = ";
  const std::string where = " WHERE name = '" + padding + "'";
  database.run(set + "'OFF'" + where);
  EXPECT_EQ(database.value("SELECT count(*) FROM dovrin_error_log"), "0");
  database.run(set + "1" + where);
  EXPECT_THAT(
      database.rows("SELECT priority, code, symbol, component, message FROM dovrin_error_log"),
      ElementsAre(ElementsAre(
          "'warning'", "0", "'LEGACY_PADDING_ON'", "'server'",
          sql_text(
              padding +
              " is turned on. While it is on, asymmetric_verify with a SHA-2 digest returns 1 for "
              "practically every signature, forged ones included, and asymmetric_decrypt accepts "
              "PKCS#1 "
              "v1.5 padding: with OpenSSL 3.2 or later it then returns made-up bytes for a damaged "
              "ciphertext, not NULL."))));
}

TEST_F(SqliteErrorLog, ColumnsHaveTheirNames) {
  EXPECT_EQ(
      database.value("SELECT group_concat(name) FROM pragma_table_info('dovrin_error_log')"),
      "'id,time,priority,code,symbol,component,function,source_file,source_line,message,hint'");
  EXPECT_EQ(database.value("SELECT group_concat(name) FROM pragma_table_info('dovrin_variables')"),
            "'name,value,type,default_value,minimum,maximum,block_size,comment'");
}

TEST_F(SqliteErrorLog, KeepsTheLastThousandNewestLast) {
  database.rows(
      "WITH RECURSIVE n (i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 1100) "
      "SELECT create_digest('SHA256', nullif(i, i)) FROM n");
  EXPECT_EQ(database.value("SELECT create_asymmetric_priv_key('RSA', 1)"), "NULL");
  EXPECT_THAT(
      database.rows("SELECT count(*), min(id), max(id), count(DISTINCT id) FROM dovrin_error_log"),
      ElementsAre(ElementsAre("1000", "102", "1101", "1000")));
  EXPECT_EQ(database.value("SELECT code FROM dovrin_error_log LIMIT 1 OFFSET 999"), "13921");
}

TEST_F(SqliteErrorLog, AScanSeesItAsItWas) {
  database.value("SELECT create_digest('SHA256', NULL)");
  EXPECT_EQ(database.value("SELECT count(create_digest('SHA256', NULL) IS NULL) FROM "
                           "dovrin_error_log"),
            "1");
  EXPECT_EQ(database.value("SELECT count(*) FROM dovrin_error_log"), "2");
}

TEST_F(SqliteErrorLog, OnlyAMaterializedLogIsOneStateForTwoScans) {
  const auto two_scans_of = [](const std::string &log) {
    return "SELECT (SELECT count(*) FROM " + log + "), create_digest('SHA256', NULL), " +
           "(SELECT count(*) FROM " + log + " WHERE id > 0)";
  };
  EXPECT_THAT(database.rows(two_scans_of("dovrin_error_log")),
              ElementsAre(ElementsAre("0", "NULL", "1")));
  EXPECT_THAT(database.rows("WITH log AS MATERIALIZED (SELECT * FROM dovrin_error_log) " +
                            two_scans_of("log")),
              ElementsAre(ElementsAre("1", "NULL", "1")));
}

TEST_F(SqliteErrorLog, ConnectionsShareIt) {
  Database other;
  EXPECT_EQ(other.value("SELECT create_digest('SHA256', NULL)"), "NULL");
  EXPECT_EQ(database.value("SELECT code FROM dovrin_error_log WHERE rowid = 1"), "13919");
}

TEST_F(SqliteErrorLog, NobodyCanChangeIt) {
  for (const char *const statement :
       {"DELETE FROM dovrin_error_log", "UPDATE dovrin_error_log SET code = 1",
        "INSERT INTO dovrin_error_log (code) VALUES (1)"}) {
    EXPECT_EQ(database.error(statement), "table dovrin_error_log may not be modified");
  }
}

TEST_F(SqliteErrorLog, NoSchemaCanReachIt) {
  database.run(
      "CREATE TABLE orders (id); CREATE TABLE loot (message);"
      "CREATE TRIGGER steal AFTER INSERT ON orders BEGIN"
      "  INSERT INTO loot SELECT message FROM dovrin_error_log; END;"
      "CREATE VIEW why AS SELECT code FROM dovrin_error_log");
  EXPECT_EQ(database.error("INSERT INTO orders VALUES (1)"),
            "unsafe use of virtual table \"dovrin_error_log\"");
  EXPECT_EQ(database.error("SELECT * FROM why"),
            "unsafe use of virtual table \"dovrin_error_log\"");
  EXPECT_EQ(database.value("SELECT count(*) FROM loot"), "0");
}

TEST_F(SqliteErrorLog, ATemporaryViewCanUseIt) {
  database.run(
      "CREATE TEMP VIEW why AS SELECT code FROM dovrin_error_log ORDER BY id DESC LIMIT 1");
  EXPECT_THAT(database.rows("SELECT * FROM why"), IsEmpty());
  EXPECT_EQ(database.value("SELECT create_digest('SHA256', NULL)"), "NULL");
  EXPECT_EQ(database.value("SELECT * FROM why"), "13919");
}

TEST_F(SqliteErrorLog, AnErrorOfAStatementLeavesNoRecord) {
  EXPECT_NE(database.error("SELECT create_digest(1, 2)"), "");
  EXPECT_NE(database.error("UPDATE dovrin_variables SET value = 1"), "");
  EXPECT_THAT(database.rows("SELECT * FROM dovrin_error_log"), IsEmpty());
}

}  // namespace
}  // namespace halvex_test
