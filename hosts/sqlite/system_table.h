// Tables that show the state of the stand-in server: eponymous virtual tables, so that they are
// there in every database without CREATE.

#ifndef HALVEX_SQLITE_SYSTEM_TABLE_H
#define HALVEX_SQLITE_SYSTEM_TABLE_H

#include <cstdint>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "dovrin_host/result.h"
#include "sqlite/sqlite_api.h"

namespace halvex_sqlite {

// SQL NULL, an integer, or a text, which SQL gets from make_printable.
using Cell = std::variant<std::monostate, std::int64_t, std::string>;

struct Table_row {
  std::int64_t rowid = 0;
  std::vector<Cell> cells;
};

// The definition and content of one of these tables. Any thread may call it at any time; a scan
// sees the rows as they were when it began.
class System_table {
 public:
  System_table() = default;
  System_table(const System_table &) = delete;
  System_table &operator=(const System_table &) = delete;
  virtual ~System_table() = default;

  virtual std::string name() const = 0;

  // The column names, separated by commas.
  virtual std::string columns() const = 0;

  virtual std::vector<Table_row> rows() const = 0;

  // The one column that UPDATE may change; -1 for a read-only table.
  virtual int writable_column() const { return -1; }

  // Sets that column of a row. The value is only valid during the call.
  virtual dovrin_host::Status update(const Table_row &row, sqlite3_value *value);
};

// Adds the table to the connection, which becomes its owner. Returns an SQLite result code.
int create_system_table(sqlite3 *database, std::unique_ptr<System_table> table);

}  // namespace halvex_sqlite

#endif  // HALVEX_SQLITE_SYSTEM_TABLE_H
