// SQLite's extension interface as every unit of this adapter includes it: all calls go through the
// table of routines that SQLite hands over at load, so the adapter links no SQLite of its own.

#ifndef HALVEX_SQLITE_SQLITE_API_H
#define HALVEX_SQLITE_SQLITE_API_H

#include <sqlite3ext.h>

#include <cstddef>
#include <exception>
#include <new>
#include <string>
#include <string_view>

#include "dovrin_host/user_text.h"

// Set once, by the entry point, before anything else here runs.
SQLITE_EXTENSION_INIT3

namespace halvex_sqlite {

// Makes SQLite copy a result before the call returns.
inline sqlite3_destructor_type copy_now() {
  return SQLITE_TRANSIENT;  // NOLINT(performance-no-int-to-ptr): SQLite's own constant
}

// Runs `action`, which returns an SQLite result code. No exception passes: std::bad_alloc, also of
// on_error, becomes SQLITE_NOMEM, any other one SQLITE_ERROR after on_error(text).
template <typename Action, typename On_error>
int without_exceptions(Action action, On_error on_error) noexcept {
  try {
    try {
      return action();
    } catch (const std::bad_alloc &) {
      return SQLITE_NOMEM;
    } catch (const std::exception &error) {
      on_error(error.what());
    } catch (...) {
      on_error("an unknown exception");
    }
    return SQLITE_ERROR;
  } catch (const std::bad_alloc &) {
    return SQLITE_NOMEM;
  }
}

// The bytes of any value as TEXT, valid UTF-8 or not. Throws std::bad_alloc.
inline std::string_view text_bytes(sqlite3_value *value) {
  const auto *const bytes = reinterpret_cast<const char *>(sqlite3_value_text(value));
  if (bytes == nullptr) {
    throw std::bad_alloc{};
  }
  return {bytes, static_cast<std::size_t>(sqlite3_value_bytes(value))};
}

// The text as SQLite frees it, as valid UTF-8 without control characters; null if out of memory.
inline char *sqlite_text(std::string_view text) {
  return sqlite3_mprintf("%s", dovrin_host::make_printable(text).c_str());
}

// Fails the function call with the text, as valid UTF-8 without control characters.
inline void fail_call(sqlite3_context *context, std::string_view text) {
  const std::string printable = dovrin_host::make_printable(text);
  sqlite3_result_error(context, printable.data(), static_cast<int>(printable.size()));
}

}  // namespace halvex_sqlite

#endif  // HALVEX_SQLITE_SQLITE_API_H
