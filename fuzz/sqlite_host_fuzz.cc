// The SQLite extension with arbitrary statements of its own functions and tables: the first byte of
// the input picks the statement, the fields are the values bound to it (fields.h; here `b...` is a
// blob and `z` a zeroblob as well).

#include <sqlite3.h>

#include <array>
#include <atomic>
#include <charconv>

#include "fields.h"

namespace {

using halvex_fuzz::require;

constexpr std::size_t most_values = 6;

// What a statement is made of; functions take as many values as the input has.
struct Statement {
  const char *text;
  bool is_function;
};

constexpr std::array<Statement, 11> statements{{
    {"create_asymmetric_priv_key", true},
    {"create_asymmetric_pub_key", true},
    {"asymmetric_encrypt", true},
    {"asymmetric_decrypt", true},
    {"asymmetric_sign", true},
    {"asymmetric_verify", true},
    {"create_digest", true},
    {"UPDATE dovrin_variables SET value = ?1 WHERE name LIKE ?2", false},
    {"SELECT * FROM dovrin_variables WHERE name = ?1 OR value = ?2", false},
    {"SELECT * FROM dovrin_error_log WHERE code = ?1 OR message LIKE ?2", false},
    {"INSERT INTO dovrin_variables(name, value) VALUES (?1, ?2)", false},
}};

// Keeps the reading of results from being optimised away.
std::atomic<unsigned int> bytes_read{0};

sqlite3 *open_database() {
  sqlite3 *database = nullptr;
  char *message = nullptr;
  require(setenv("HALVEX_LOG_FILE", "/dev/null", 1) == 0);
  require(sqlite3_open(":memory:", &database) == SQLITE_OK);
  require(sqlite3_db_config(database, SQLITE_DBCONFIG_ENABLE_LOAD_EXTENSION, 1, nullptr) ==
          SQLITE_OK);
  require(sqlite3_load_extension(database, HALVEX_SQLITE_EXTENSION, nullptr, &message) ==
          SQLITE_OK);
  return database;
}

std::string sql_of(const Statement &statement, std::size_t values) {
  if (!statement.is_function) {
    return statement.text;
  }
  std::string marks;
  for (std::size_t i = 0; i < values; ++i) {
    marks += i == 0 ? "?" : ", ?";
  }
  return std::string("SELECT ") + statement.text + "(" + marks + ")";
}

// Few inputs can afford a key; see function_fuzz.cc.
long long number_in(std::string_view digits) {
  constexpr long long smallest = 2048;
  constexpr long long largest = 16384;
  long long value = 0;
  std::from_chars(digits.data(), digits.data() + digits.size(), value);
  return value >= smallest && value <= largest ? -value : value;
}

int bind(sqlite3_stmt *statement, int position, std::string_view field) {
  const std::string_view rest = field.empty() ? field : field.substr(1);
  switch (field.empty() ? '\0' : field.front()) {
    case 'i':
      return sqlite3_bind_int64(statement, position, number_in(rest));
    case 'r':
      return sqlite3_bind_double(statement, position, 1.5);
    case 'n':
    case 'm':
      return sqlite3_bind_null(statement, position);
    case 'z':
      return sqlite3_bind_zeroblob(statement, position, 300);
    case 'b':
      return sqlite3_bind_blob64(statement, position, rest.data(), rest.size(), SQLITE_TRANSIENT);
    case 's':
      return sqlite3_bind_text64(statement, position, rest.data(), rest.size(), SQLITE_TRANSIENT,
                                 SQLITE_UTF8);
    default:
      return sqlite3_bind_text64(statement, position, field.data(), field.size(), SQLITE_TRANSIENT,
                                 SQLITE_UTF8);
  }
}

// Reads every value of every row, so that what the extension handed over is touched.
void run(sqlite3_stmt *statement) {
  int status = SQLITE_ROW;
  while ((status = sqlite3_step(statement)) == SQLITE_ROW) {
    for (int column = 0; column < sqlite3_column_count(statement); ++column) {
      const auto *bytes =
          static_cast<const unsigned char *>(sqlite3_column_blob(statement, column));
      for (int i = 0; i < sqlite3_column_bytes(statement, column); ++i) {
        bytes_read += bytes[i];
      }
    }
  }
  require(status == SQLITE_DONE || status == SQLITE_ERROR || status == SQLITE_CONSTRAINT ||
          status == SQLITE_READONLY);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  static sqlite3 *const database = open_database();
  if (size == 0) {
    return 0;
  }
  const Statement &choice = statements.at(data[0] % statements.size());
  const std::string_view input{reinterpret_cast<const char *>(data) + 1, size - 1};
  const auto fields = halvex_fuzz::split_fields(input, choice.is_function ? most_values : 2);

  sqlite3_stmt *statement = nullptr;
  const std::string sql = sql_of(choice, fields.size());
  require(sqlite3_prepare_v2(database, sql.c_str(), -1, &statement, nullptr) == SQLITE_OK);
  for (std::size_t i = 0; i < fields.size(); ++i) {
    require(bind(statement, static_cast<int>(i) + 1, fields[i]) == SQLITE_OK);
  }
  run(statement);
  sqlite3_finalize(statement);
  return 0;
}
