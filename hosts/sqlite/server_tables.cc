#include "sqlite/server_tables.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <mutex>
#include <new>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "dovrin/services.h"
#include "dovrin_host/legacy_padding.h"
#include "dovrin_host/server.h"
#include "dovrin_host/versions.h"
#include "sqlite/system_table.h"

namespace halvex_sqlite {

namespace {

using dovrin_host::Setting;
using dovrin_host::Status;
using dovrin_host::Variable_info;
using dovrin_host::Variable_type;
using dovrin_host::Variable_value;

// No variable can be NULL: the word is rejected, in a readable error text.
Setting setting_of(sqlite3_value *value) {
  switch (sqlite3_value_type(value)) {
    case SQLITE_INTEGER:
      return Setting{static_cast<long long>(sqlite3_value_int64(value))};
    case SQLITE_FLOAT:
      return Setting{sqlite3_value_double(value)};
    case SQLITE_NULL:
      return Setting{std::string{"NULL"}};
    default:
      return Setting{std::string{text_bytes(value)}};
  }
}

Cell value_cell(const Variable_value &value) {
  if (const auto *integer = std::get_if<long long>(&value)) {
    return std::int64_t{*integer};
  }
  return dovrin_host::text_form(value);
}

Cell limit_cell(const Variable_info &variable, long long limit) {
  return variable.type == Variable_type::integer ? Cell{std::int64_t{limit}} : Cell{};
}

// The cells of a row. They are moved in: a braced list would copy each of them.
template <typename... Values>
std::vector<Cell> make_cells(Values &&...values) {
  std::vector<Cell> cells;
  cells.reserve(sizeof...(values));
  (cells.emplace_back(std::forward<Values>(values)), ...);
  return cells;
}

void warn_of_legacy_padding() {
  dovrin_host::Log_record record;
  record.time = std::chrono::system_clock::now();
  record.priority = DOVRIN_PRIORITY_WARNING;
  record.symbol = "LEGACY_PADDING_ON";
  record.component = "server";
  record.message = std::string{dovrin_host::legacy_padding_name} + " is turned on. " +
                   dovrin_host::legacy_padding_warning;
  record.hint = dovrin_host::legacy_padding_hint;
  dovrin_host::Server::instance().error_log().submit(record);
}

class Variables_table : public System_table {
 public:
  std::string name() const override { return "dovrin_variables"; }

  std::string columns() const override {
    return "name TEXT, value, type TEXT, default_value, minimum INTEGER, maximum INTEGER, "
           "block_size INTEGER, comment TEXT";
  }

  std::vector<Table_row> rows() const override {
    std::vector<Table_row> rows;
    for (const Variable_info &variable : dovrin_host::Server::instance().variables().list()) {
      rows.push_back(
          {static_cast<std::int64_t>(rows.size()) + 1,
           make_cells(variable.name, value_cell(variable.value),
                      dovrin_host::variable_type_name(variable.type),
                      value_cell(variable.default_value), limit_cell(variable, variable.minimum),
                      limit_cell(variable, variable.maximum),
                      limit_cell(variable, variable.block_size), variable.comment)});
    }
    return rows;
  }

  int writable_column() const override { return 1; }

  Status update(const Table_row &row, sqlite3_value *value) override {
    const auto &name = std::get<std::string>(row.cells[0]);
    dovrin_host::System_variables &variables = dovrin_host::Server::instance().variables();
    Status status = variables.set(name, setting_of(value));
    if (status.ok() && name == dovrin_host::legacy_padding_name &&
        variables.get(name).value() == Variable_value{true}) {
      warn_of_legacy_padding();
    }
    return status;
  }
};

class Versions_table : public System_table {
 public:
  std::string name() const override { return "dovrin_versions"; }

  std::string columns() const override { return "name TEXT, value TEXT"; }

  std::vector<Table_row> rows() const override {
    std::vector<Table_row> rows;
    for (dovrin_host::Version &version :
         dovrin_host::list_versions({"SQLite", SQLITE_VERSION, sqlite3_libversion()})) {
      rows.push_back({static_cast<std::int64_t>(rows.size()) + 1,
                      make_cells(std::move(version.name), std::move(version.value))});
    }
    return rows;
  }
};

// The connections with all tables. SQLite offers no query for this that leaves the database file
// alone.
struct Served_connections {
  std::mutex mutex;  // guards the set
  std::set<const sqlite3 *> set;

  // Never destroyed: connections may still be open when the process ends. Not in the heap either:
  // a second copy of the extension is closed again.
  static Served_connections &instance() {
    alignas(Served_connections) static std::array<std::byte, sizeof(Served_connections)> room;
    static auto *const connections = new (room.data()) Served_connections;
    return *connections;
  }
};

// Enters the connection for its lifetime.
class Served_connection {
 public:
  explicit Served_connection(const sqlite3 *database) : database_{database} {
    Served_connections &connections = Served_connections::instance();
    const std::lock_guard lock{connections.mutex};
    connections.set.insert(database_);
  }
  Served_connection(const Served_connection &) = delete;
  Served_connection &operator=(const Served_connection &) = delete;
  ~Served_connection() {
    Served_connections &connections = Served_connections::instance();
    const std::lock_guard lock{connections.mutex};
    connections.set.erase(database_);
  }

 private:
  const sqlite3 *database_;
};

// Created last of all in a connection and destroyed with it.
class Error_log_table : public System_table {
 public:
  Error_log_table(const sqlite3 *database, std::shared_ptr<const dovrin_host::Ring_sink> records)
      : connection_{database}, records_{std::move(records)} {}

  std::string name() const override { return "dovrin_error_log"; }

  std::string columns() const override {
    return "id INTEGER, time TEXT, priority TEXT, code INTEGER, symbol TEXT, component TEXT, "
           "function TEXT, source_file TEXT, source_line INTEGER, message TEXT, hint TEXT";
  }

  std::vector<Table_row> rows() const override {
    std::vector<Table_row> rows;
    for (const auto &[sequence, record] : records_->snapshot()) {
      const auto id = static_cast<std::int64_t>(sequence);
      rows.push_back(
          {id, make_cells(id, dovrin_host::render_time(record.time),
                          dovrin_host::priority_name(record.priority), std::int64_t{record.code},
                          record.symbol, record.component, record.function, record.source_file,
                          std::int64_t{record.source_line}, record.message, record.hint)});
    }
    return rows;
  }

 private:
  Served_connection connection_;
  std::shared_ptr<const dovrin_host::Ring_sink> records_;
};

}  // namespace

int create_server_tables(sqlite3 *database, std::shared_ptr<const dovrin_host::Ring_sink> records) {
  int created = create_system_table(database, std::make_unique<Variables_table>());
  if (created == SQLITE_OK) {
    created = create_system_table(database, std::make_unique<Versions_table>());
  }
  return created != SQLITE_OK ? created
                              : create_system_table(database, std::make_unique<Error_log_table>(
                                                                  database, std::move(records)));
}

bool has_server_tables(const sqlite3 *database) {
  Served_connections &connections = Served_connections::instance();
  const std::lock_guard lock{connections.mutex};
  return connections.set.contains(database);
}

}  // namespace halvex_sqlite
