// A connection to SQLite as a program has it, with the extension loaded on demand.

#ifndef HALVEX_TESTS_SQLITE_DATABASE_H
#define HALVEX_TESTS_SQLITE_DATABASE_H

#include <sqlite3.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace halvex_test {

// The path of the extension that this build made.
std::string extension_path();

// A statement from prepare to finalize.
struct Finalize {
  void operator()(sqlite3_stmt *statement) const { sqlite3_finalize(statement); }
};
using Statement = std::unique_ptr<sqlite3_stmt, Finalize>;

// One row; every value in the form that SQL would write it: NULL, 1, 1.5, 'text', x'00FF'.
using Row = std::vector<std::string>;

// A text between single quotes, as rows() shows it.
std::string sql_text(const std::string &content);

// One thread at a time.
class Database {
 public:
  enum class Extension { loaded, absent };

  // Opens a database, by default in memory, and loads the extension. Aborts if that fails.
  explicit Database(Extension extension = Extension::loaded, const std::string &path = ":memory:");

  sqlite3 *handle() const { return handle_.get(); }

  // Loads an extension. Returns SQLite's error text, empty for success.
  std::string load(const std::string &path, const char *entry = nullptr);

  // From now on every statement with this parameter, for instance "@key", gets the text or the
  // bytes.
  void bind_text(const std::string &parameter, const std::string &text);
  void bind_blob(const std::string &parameter, const std::string &bytes);

  // Prepares one statement with its parameters. Null after an error.
  Statement prepare(const std::string &sql);

  // Runs one statement. Its rows; a failure is a row that holds "error: " and the text alone.
  std::vector<Row> rows(const std::string &sql);

  // The only value of the only row; else all that came, or the error, in a form that no value has.
  std::string value(const std::string &sql);

  // Runs statements that must succeed.
  void run(const std::string &sql);

  // The error text of one statement, empty for success.
  std::string error(const std::string &sql);

 private:
  struct Close {
    void operator()(sqlite3 *handle) const { sqlite3_close(handle); }
  };
  struct Parameter {
    bool is_text;
    std::string bytes;
  };

  std::unique_ptr<sqlite3, Close> handle_;
  std::map<std::string, Parameter> parameters_;
};

}  // namespace halvex_test

#endif  // HALVEX_TESTS_SQLITE_DATABASE_H
