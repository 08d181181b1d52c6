// The entry points of the SQLite extension.
//
//   SELECT load_extension('halvex_sqlite');   or   .load halvex_sqlite
//     installs functions and tables in this connection;
//   .load halvex_sqlite halvex_sqlite_every_connection_init
//     also in every connection that the process opens from now on.

#include <dlfcn.h>
#include <link.h>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

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

using dovrin_host::Status;

// What every copy of this extension exports.
constexpr const char *entry_name = "sqlite3_halvexsqlite_init";

struct Close_handle {
  void operator()(void *handle) const { dlclose(handle); }
};
using Object_handle = std::unique_ptr<void, Close_handle>;

std::vector<std::string> loaded_objects() {
  std::vector<std::string> names;
  dl_iterate_phdr(
      [](dl_phdr_info *object, std::size_t /*size*/, void *out) {
        static_cast<std::vector<std::string> *>(out)->emplace_back(object->dlpi_name);
        return 0;
      },
      &names);
  return names;
}

// Where the object that holds the address begins; null if no object holds it.
const void *object_of(const void *address) {
  Dl_info object{};
  return dladdr(address, &object) != 0 ? object.dli_fbase : nullptr;
}

// Another copy has a server, a component and settings of its own: which of them a connection talks
// to would depend on the order of loading. Throws std::bad_alloc only.
Status check_only_copy() {
  const void *const own_object = object_of(reinterpret_cast<const void *>(&object_of));
  for (const std::string &name : loaded_objects()) {
    const Object_handle object{name.empty() ? nullptr
                                            : dlopen(name.c_str(), RTLD_LAZY | RTLD_NOLOAD)};
    const void *const entry = object ? dlsym(object.get(), entry_name) : nullptr;
    if (entry != nullptr && object_of(entry) != own_object) {
      return Status::failure("Another copy of this extension is loaded already, from '" + name +
                             "'. One process can use one copy only.");
    }
  }
  return {};
}

// The table of routines is one for the whole process; a program may hold a second SQLite library.
bool take_api(const sqlite3_api_routines *api) {
  static std::once_flag once;
  std::call_once(once, [&] { sqlite3_api = api; });
  return sqlite3_api == api;
}

int install(sqlite3 *database, char **out_error) {
  const auto fail = [&](const std::string &text) {
    *out_error = halvex_sqlite::sqlite_text(text);
    return SQLITE_ERROR;
  };
  const auto action = [&] {
    const Status only_copy = check_only_copy();
    if (!only_copy.ok()) {
      return fail(only_copy.message());
    }
    const auto records = halvex_sqlite::start_process_host();
    if (!records.ok()) {
      return fail(records.message());
    }
    const int functions = halvex_sqlite::create_sql_functions(database);
    return functions != SQLITE_OK ? functions
                                  : halvex_sqlite::create_server_tables(database, records.value());
  };
  return halvex_sqlite::without_exceptions(action, fail);
}

// For sqlite3_auto_extension, which wants plain success.
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
