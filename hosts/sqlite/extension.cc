// The entry points of the SQLite extension.
//
//   SELECT load_extension('halvex_sqlite');   or   .load halvex_sqlite
//     installs functions and tables in this connection;
//   .load halvex_sqlite halvex_sqlite_every_connection_init
//     also in every connection that the process opens from now on.

#include <mutex>
#include <string_view>

#include "sqlite/process_host.h"
#include "sqlite/server_tables.h"
#include "sqlite/sql_functions.h"
#include "sqlite/sqlite_api.h"

SQLITE_EXTENSION_INIT1

extern "C" {
using Entry_point = int(sqlite3 *, char **, const sqlite3_api_routines *);

__attribute__((visibility("default"))) Entry_point sqlite3_extension_init;
__attribute__((visibility("default"))) Entry_point sqlite3_halvexsqlite_init;
__attribute__((visibility("default"))) Entry_point halvex_sqlite_every_connection_init;
}

namespace {

// The table of routines is one for the whole process; a program may hold a second SQLite library.
bool take_api(const sqlite3_api_routines *api) {
  static std::once_flag once;
  std::call_once(once, [&] { sqlite3_api = api; });
  return sqlite3_api == api;
}

int install(sqlite3 *database, char **out_error) {
  const auto fail = [&](std::string_view text) {
    *out_error = halvex_sqlite::sqlite_text(text);
    return SQLITE_ERROR;
  };
  const auto action = [&] {
    // SQLite replaces no function of a connection in which a statement runs, which the caller of
    // load_extension() is.
    if (halvex_sqlite::has_server_tables(database)) {
      return SQLITE_OK;
    }
    const auto records = halvex_sqlite::start_process_host();
    if (!records.ok()) {
      return fail(records.message());
    }
    const int functions = halvex_sqlite::create_sql_functions(database);
    return functions != SQLITE_OK ? functions
                                  : halvex_sqlite::create_server_tables(database, records.value());
  };
  const int installed = halvex_sqlite::without_exceptions(action, fail);
  if (installed != SQLITE_OK && *out_error == nullptr) {
    // The connection's own text is the more exact one, if it is about this failure.
    *out_error =
        sqlite3_mprintf("%s", sqlite3_errcode(database) == installed ? sqlite3_errmsg(database)
                                                                     : sqlite3_errstr(installed));
  }
  return installed;
}

// For sqlite3_auto_extension, which expects SQLITE_OK for success.
int install_in_new_connection(sqlite3 *database, char **out_error,
                              const sqlite3_api_routines * /*api*/) {
  return install(database, out_error);
}

int load(sqlite3 *database, char **out_error, const sqlite3_api_routines *api) {
  if (!take_api(api)) {
    *out_error = api->mprintf("%s",
                              "This extension already serves another SQLite library in this "
                              "process.");
    return SQLITE_ERROR;
  }
  const int installed = install(database, out_error);
  // Connections share this object's server, so it stays when one of them closes.
  return installed == SQLITE_OK ? SQLITE_OK_LOAD_PERMANENTLY : installed;
}

}  // namespace

int sqlite3_extension_init(sqlite3 *database, char **out_error, const sqlite3_api_routines *api) {
  return load(database, out_error, api);
}

int sqlite3_halvexsqlite_init(sqlite3 *database, char **out_error,
                              const sqlite3_api_routines *api) {
  return load(database, out_error, api);
}

int halvex_sqlite_every_connection_init(sqlite3 *database, char **out_error,
                                        const sqlite3_api_routines *api) {
  const int loaded = load(database, out_error, api);
  if (loaded != SQLITE_OK_LOAD_PERMANENTLY) {
    return loaded;
  }
  const int registered =
      sqlite3_auto_extension(reinterpret_cast<void (*)()>(&install_in_new_connection));
  return registered == SQLITE_OK ? loaded : registered;
}
