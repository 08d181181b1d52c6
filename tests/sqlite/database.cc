#include "sqlite/database.h"

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "support/hexadecimal.h"

namespace halvex_test {

namespace {

[[noreturn]] void abort_with(const std::string &what, const std::string &why) {
  static_cast<void>(std::fprintf(stderr, "%s: %s\n", what.c_str(), why.c_str()));
  std::abort();
}

std::string column_text(sqlite3_stmt *statement, int column) {
  const int type = sqlite3_column_type(statement, column);
  if (type == SQLITE_NULL) {
    return "NULL";
  }
  const auto *const bytes =
      type == SQLITE_BLOB ? static_cast<const char *>(sqlite3_column_blob(statement, column))
                          : reinterpret_cast<const char *>(sqlite3_column_text(statement, column));
  const std::string content{bytes != nullptr ? bytes : "",
                            static_cast<std::size_t>(sqlite3_column_bytes(statement, column))};
  if (type == SQLITE_BLOB) {
    return std::string{"x"}.append(sql_text(to_hex(content)));
  }
  return type == SQLITE_TEXT ? sql_text(content) : content;
}

}  // namespace

std::string sql_text(const std::string &content) {
  return std::string{"'"}.append(content).append("'");
}

std::string extension_path() { return HALVEX_SQLITE_EXTENSION; }

Database::Database(Extension extension, const std::string &path) {
  sqlite3 *handle = nullptr;
  const int opened = sqlite3_open(path.c_str(), &handle);
  handle_.reset(handle);
  if (opened != SQLITE_OK) {
    abort_with(path, sqlite3_errmsg(handle));
  }
  sqlite3_db_config(handle, SQLITE_DBCONFIG_ENABLE_LOAD_EXTENSION, 1, nullptr);
  if (extension == Extension::loaded) {
    const std::string error = load(extension_path());
    if (!error.empty()) {
      abort_with("loading the extension", error);
    }
  }
}

std::string Database::load(const std::string &path, const char *entry) {
  char *text = nullptr;
  const int loaded = sqlite3_load_extension(handle(), path.c_str(), entry, &text);
  const std::string error = text != nullptr ? text : "";
  sqlite3_free(text);
  return loaded == SQLITE_OK || !error.empty() ? error : "error " + std::to_string(loaded);
}

void Database::bind_text(const std::string &parameter, const std::string &text) {
  parameters_[parameter] = {true, text};
}

void Database::bind_blob(const std::string &parameter, const std::string &bytes) {
  parameters_[parameter] = {false, bytes};
}

Statement Database::prepare(const std::string &sql) {
  sqlite3_stmt *raw = nullptr;
  sqlite3_prepare_v2(handle(), sql.c_str(), -1, &raw, nullptr);
  Statement statement{raw};
  for (int i = 1; i <= sqlite3_bind_parameter_count(raw); ++i) {
    const auto parameter = parameters_.find(sqlite3_bind_parameter_name(raw, i));
    if (parameter == parameters_.end()) {
      continue;
    }
    const auto &[is_text, bytes] = parameter->second;
    const int length = static_cast<int>(bytes.size());
    if (is_text) {
      sqlite3_bind_text(raw, i, bytes.data(), length, nullptr);
    } else {
      sqlite3_bind_blob(raw, i, bytes.data(), length, nullptr);
    }
  }
  return statement;
}

std::vector<Row> Database::rows(const std::string &sql) {
  const auto failed = [this] {
    return std::vector<Row>{{std::string{"error: "} + sqlite3_errmsg(handle())}};
  };
  const Statement statement = prepare(sql);
  if (!statement) {
    return failed();
  }
  std::vector<Row> rows;
  int step = 0;
  while ((step = sqlite3_step(statement.get())) == SQLITE_ROW) {
    Row row;
    for (int i = 0; i < sqlite3_column_count(statement.get()); ++i) {
      row.push_back(column_text(statement.get(), i));
    }
    rows.push_back(row);
  }
  return step == SQLITE_DONE ? rows : failed();
}

std::string Database::value(const std::string &sql) {
  const std::vector<Row> all = rows(sql);
  if (all.size() == 1 && all[0].size() == 1) {
    return all[0][0];
  }
  return std::to_string(all.size()) + " rows";
}

void Database::run(const std::string &sql) {
  char *text = nullptr;
  if (sqlite3_exec(handle(), sql.c_str(), nullptr, nullptr, &text) != SQLITE_OK) {
    abort_with(sql, text != nullptr ? text : "");
  }
}

std::string Database::error(const std::string &sql) {
  const std::vector<Row> all = rows(sql);
  constexpr std::string_view mark = "error: ";
  const bool failed = all.size() == 1 && all[0].size() == 1 && all[0][0].starts_with(mark);
  return failed ? all[0][0].substr(mark.size()) : "";
}

}  // namespace halvex_test
