#include "sqlite/system_table.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace halvex_sqlite {

namespace {

using dovrin_host::make_printable;
using dovrin_host::Status;

// The base classes come first: SQLite knows these objects by the address of their base.
struct Open_table : sqlite3_vtab {
  explicit Open_table(System_table &opened) : sqlite3_vtab{}, table{opened} {}

  System_table &table;
};

struct Cursor : sqlite3_vtab_cursor {
  Cursor() : sqlite3_vtab_cursor{} {}

  std::vector<Table_row> rows;
  std::size_t position = 0;
};

Open_table &open_table(sqlite3_vtab *table) { return *static_cast<Open_table *>(table); }
Cursor &cursor_of(sqlite3_vtab_cursor *cursor) { return *static_cast<Cursor *>(cursor); }

int fail(sqlite3_vtab *table, int code, std::string_view text) {
  sqlite3_free(table->zErrMsg);
  table->zErrMsg = sqlite_text(text);
  return table->zErrMsg != nullptr ? code : SQLITE_NOMEM;
}

template <typename Action>
int guarded(sqlite3_vtab *table, Action action) noexcept {
  return without_exceptions(action, [&](const char *text) { fail(table, SQLITE_ERROR, text); });
}

int connect(sqlite3 *database, void *definition, int /*argc*/, const char *const * /*argv*/,
            sqlite3_vtab **out_table, char **out_error) {
  const auto action = [&] {
    auto &table = *static_cast<System_table *>(definition);
    const std::string schema = "CREATE TABLE t(" + table.columns() + ")";
    const int declared = sqlite3_declare_vtab(database, schema.c_str());
    if (declared != SQLITE_OK) {
      return declared;
    }
    // Settings and records belong to the server, not to the database: views and triggers of a
    // database file from elsewhere must neither change settings nor copy records.
    sqlite3_vtab_config(database, SQLITE_VTAB_DIRECTONLY);
    if (table.writable_column() >= 0) {
      sqlite3_vtab_config(database, SQLITE_VTAB_CONSTRAINT_SUPPORT, 1);
    }
    *out_table = new Open_table{table};
    return SQLITE_OK;
  };
  return without_exceptions(action, [&](const char *text) { *out_error = sqlite_text(text); });
}

int disconnect(sqlite3_vtab *table) {
  delete &open_table(table);
  return SQLITE_OK;
}

// Every query reads the whole table, which is short.
int best_index(sqlite3_vtab * /*table*/, sqlite3_index_info *plan) {
  plan->estimatedCost = 100;
  plan->estimatedRows = 100;
  return SQLITE_OK;
}

int open(sqlite3_vtab *table, sqlite3_vtab_cursor **out_cursor) {
  return guarded(table, [&] {
    *out_cursor = new Cursor;
    return SQLITE_OK;
  });
}

int close(sqlite3_vtab_cursor *cursor) {
  delete &cursor_of(cursor);
  return SQLITE_OK;
}

int filter(sqlite3_vtab_cursor *base, int /*plan*/, const char * /*plan_text*/, int /*argc*/,
           sqlite3_value ** /*argv*/) {
  return guarded(base->pVtab, [&] {
    Cursor &cursor = cursor_of(base);
    cursor.rows = open_table(base->pVtab).table.rows();
    cursor.position = 0;
    return SQLITE_OK;
  });
}

int next(sqlite3_vtab_cursor *base) {
  ++cursor_of(base).position;
  return SQLITE_OK;
}

int eof(sqlite3_vtab_cursor *base) {
  const Cursor &cursor = cursor_of(base);
  return cursor.position >= cursor.rows.size() ? 1 : 0;
}

int column(sqlite3_vtab_cursor *base, sqlite3_context *context, int number) {
  return guarded(base->pVtab, [&] {
    const Cursor &cursor = cursor_of(base);
    const Cell &cell = cursor.rows[cursor.position].cells[static_cast<std::size_t>(number)];
    if (const auto *integer = std::get_if<std::int64_t>(&cell)) {
      sqlite3_result_int64(context, *integer);
    } else if (const auto *text = std::get_if<std::string>(&cell)) {
      const std::string shown = make_printable(*text);
      sqlite3_result_text64(context, shown.data(), shown.size(), copy_now(), SQLITE_UTF8);
    }
    return SQLITE_OK;
  });
}

int rowid(sqlite3_vtab_cursor *base, sqlite3_int64 *out) {
  const Cursor &cursor = cursor_of(base);
  *out = cursor.rows[cursor.position].rowid;
  return SQLITE_OK;
}

bool is_same(sqlite3_value *value, const Cell &cell) {
  if (const auto *integer = std::get_if<std::int64_t>(&cell)) {
    return sqlite3_value_type(value) == SQLITE_INTEGER && sqlite3_value_int64(value) == *integer;
  }
  if (const auto *text = std::get_if<std::string>(&cell)) {
    return sqlite3_value_type(value) == SQLITE_TEXT && text_bytes(value) == make_printable(*text);
  }
  return sqlite3_value_type(value) == SQLITE_NULL;
}

bool changes_other_columns(const Table_row &row, int writable_column, sqlite3_value **values) {
  for (std::size_t i = 0; i < row.cells.size(); ++i) {
    if (static_cast<int>(i) != writable_column && !is_same(values[i], row.cells[i])) {
      return true;
    }
  }
  return false;
}

// SQLite passes the row's old and new rowid and then the columns; a lone rowid deletes, a null one
// inserts.
int update(sqlite3_vtab *base, int argc, sqlite3_value **argv, sqlite3_int64 * /*out_rowid*/) {
  return guarded(base, [&] {
    System_table &table = open_table(base).table;
    if (argc == 1 || sqlite3_value_type(argv[0]) == SQLITE_NULL) {
      return fail(base, SQLITE_READONLY,
                  table.name() +
                      ": rows can be neither inserted nor deleted; "
                      "UPDATE sets the value of one that is there");
    }

    const auto id = sqlite3_value_int64(argv[0]);
    const std::vector<Table_row> rows = table.rows();
    const auto row = std::find_if(rows.begin(), rows.end(), [&](const Table_row &candidate) {
      return candidate.rowid == id;
    });
    if (row == rows.end()) {
      return fail(base, SQLITE_ERROR, table.name() + ": the row is no longer there");
    }
    if (sqlite3_value_int64(argv[1]) != id ||
        changes_other_columns(*row, table.writable_column(), argv + 2)) {
      return fail(base, SQLITE_READONLY, table.name() + ": only the value can be changed");
    }

    const Status status = table.update(*row, argv[2 + table.writable_column()]);
    return status.ok() ? SQLITE_OK : fail(base, SQLITE_CONSTRAINT, status.message());
  });
}

// Without xCreate the table exists under its own name and CREATE VIRTUAL TABLE cannot make another.
constexpr sqlite3_module make_module(bool writable) {
  sqlite3_module module{};
  module.iVersion = 1;
  module.xConnect = connect;
  module.xBestIndex = best_index;
  module.xDisconnect = disconnect;
  module.xOpen = open;
  module.xClose = close;
  module.xFilter = filter;
  module.xNext = next;
  module.xEof = eof;
  module.xColumn = column;
  module.xRowid = rowid;
  if (writable) {
    module.xUpdate = update;
  }
  return module;
}

constexpr sqlite3_module read_only_module = make_module(false);
constexpr sqlite3_module writable_module = make_module(true);

}  // namespace

Status System_table::update(const Table_row & /*row*/, sqlite3_value * /*value*/) {
  return Status::failure(name() + " cannot be changed");
}

int create_system_table(sqlite3 *database, std::unique_ptr<System_table> table) {
  const std::string name = table->name();
  const auto *module = table->writable_column() >= 0 ? &writable_module : &read_only_module;
  // SQLite calls the last argument in any case, also when it rejects the module.
  return sqlite3_create_module_v2(
      database, name.c_str(), module, table.release(),
      [](void *definition) { delete static_cast<System_table *>(definition); });
}

}  // namespace halvex_sqlite
