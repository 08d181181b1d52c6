// The component as the extension's C-minded files see it: plain records, and functions that neither
// throw nor call the PostgreSQL server.
//
// One server process is one thread and has one component, which the first call loads; a process
// that forks before that (the postmaster with this library preloaded) hands nothing of it on.

#ifndef HALVEX_POSTGRESQL_COMPONENT_CALLS_H
#define HALVEX_POSTGRESQL_COMPONENT_CALLS_H

#include <cstddef>

#include "dovrin/udf.h"
#include "dovrin_host/log_record.h"

namespace halvex_postgresql {

// One SQL value as an argument. It borrows `bytes`, which need no terminator.
struct Value {
  Item_result type;
  bool is_null;
  const char *bytes;  // of a string
  std::size_t length;
  long long integer;
  double real;
};

// What one row gave.
struct Row_result {
  enum Kind { value, null, failed, out_of_memory };
  Kind kind;
  const char *bytes = nullptr;  // of a string function: valid until the next row or the site's end
  std::size_t length = 0;
  long long integer = 0;  // of an integer function
};

// One function at one call site of one statement.
struct Call_site;

// True once load_component has succeeded.
bool is_component_loaded() noexcept;

// Loads the component: from where HALVEX_COMPONENT points, or from the folder of this library.
// False with failure_text() if that fails; it can be tried again.
bool load_component() noexcept;

// Lets the component go, as the process ends. It stays if a call site is still open.
void unload_component() noexcept;

// Passes a value through the component's check and update. False with failure_text() if the
// component refuses, or if there is none.
bool set_integer_variable(const char *name, long long value) noexcept;
bool set_boolean_variable(const char *name, bool value) noexcept;

// Runs the function's init for arguments of the types that the values have. The caller closes the
// result. Null with failure_text(), which is exactly the function's own text if that refused.
Call_site *open_call_site(const char *function, const Value *values, std::size_t count) noexcept;

// Runs the function's deinit. Null is allowed.
void close_call_site(Call_site *site) noexcept;

// The type of the function's result: STRING_RESULT or INT_RESULT.
Item_result result_type(const Call_site &site) noexcept;

// Runs one row with values of the same types. After `failed` there is a failure_text().
Row_result run_row(Call_site &site, const Value *values, std::size_t count) noexcept;

// Why the last operation failed. Static storage, overwritten by the next failure.
const char *failure_text() noexcept;

// The oldest record that the component has reported and nobody has removed; null if there is none.
// It is valid until remove_oldest_record, which may be called only if there is one.
const dovrin_host::Log_record *oldest_record() noexcept;
void remove_oldest_record() noexcept;

// Overwrites bytes that were secret.
void wipe(void *bytes, std::size_t length) noexcept;

}  // namespace halvex_postgresql

#endif  // HALVEX_POSTGRESQL_COMPONENT_CALLS_H
