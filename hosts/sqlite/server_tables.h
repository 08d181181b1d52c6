// The tables that show the server:
//
//   dovrin_variables(name, value, type, default_value, minimum, maximum, block_size, comment)
//     the system variables. UPDATE sets a value for the whole process, at once and whatever becomes
//     of the transaction; a value that the component rejects is a constraint error.
//
//   dovrin_versions(name, value)
//     the rows of dovrin_host::list_versions.
//
//   dovrin_error_log(id, time, priority, code, symbol, component, function, source_file,
//                    source_line, message, hint)
//     the last records, newest last. `id` counts the records of the process from 1.

#ifndef HALVEX_SQLITE_SERVER_TABLES_H
#define HALVEX_SQLITE_SERVER_TABLES_H

#include <memory>

#include "dovrin_host/error_log.h"
#include "sqlite/sqlite_api.h"

namespace halvex_sqlite {

// Gives the connection all tables. Returns an SQLite result code. Throws std::bad_alloc only.
int create_server_tables(sqlite3 *database, std::shared_ptr<const dovrin_host::Ring_sink> records);

// True between a successful create_server_tables for this connection and its end. Any thread;
// throws std::bad_alloc only.
bool has_server_tables(const sqlite3 *database);

}  // namespace halvex_sqlite

#endif  // HALVEX_SQLITE_SERVER_TABLES_H
