// The component for the files that include the server's headers: functions that neither throw nor
// call the PostgreSQL server.
//
// One server process is one thread and has one component, which the first call loads. A process
// that forks before that (the postmaster with this library preloaded) passes nothing of it on.

#ifndef HALVEX_POSTGRESQL_COMPONENT_CALLS_H
#define HALVEX_POSTGRESQL_COMPONENT_CALLS_H

#include <cstddef>
#include <span>

#include "dovrin_host/error_log.h"
#include "dovrin_host/functions.h"
#include "dovrin_host/versions.h"

namespace halvex_postgresql {

using dovrin_host::Argument;
using dovrin_host::Row_result;

// One function at one call site of one statement.
using Call_site = dovrin_host::Function_instance;

// True once load_component has succeeded.
bool is_component_loaded() noexcept;

// Loads the component: from where HALVEX_COMPONENT points, or from the folder of this library.
// False with failure_text() if that fails; it can be tried again.
[[nodiscard]] bool load_component() noexcept;

// Releases the component, as the process ends. It stays if a call site is still open.
void unload_component() noexcept;

// Passes a value through the component's check and update. False with failure_text() if the
// component rejects it, or if there is none.
[[nodiscard]] bool set_integer_variable(const char *name, long long value) noexcept;
[[nodiscard]] bool set_boolean_variable(const char *name, bool value) noexcept;

// Runs the function's init for arguments of these types; their values do not count. The caller
// closes the result. Null with failure_text(), which is exactly the function's own text if that
// failed.
Call_site *open_call_site(const char *function, std::span<const Argument> arguments) noexcept;

// Runs the function's deinit. Null is allowed.
void close_call_site(Call_site *site) noexcept;

// Runs one row with arguments of the types that the call site was opened for. An exception of the
// component is an error too.
Row_result run_row(Call_site &site, std::span<const Argument> arguments) noexcept;

// The rows of dovrin_host::list_versions for a server that was built with the headers of
// `built_with` and runs as `running`. Valid until the next call; empty with failure_text() if out
// of memory.
std::span<const dovrin_host::Version> list_versions(const char *built_with,
                                                    const char *running) noexcept;

// Why the last operation failed, and whether for want of memory. Static storage, overwritten by the
// next failure.
const char *failure_text() noexcept;
bool was_out_of_memory() noexcept;

// The oldest record that the component has reported and nobody has removed; null if there is none.
// It is valid until remove_oldest_record, which may be called only if there is one.
const dovrin_host::Log_record *oldest_record() noexcept;
void remove_oldest_record() noexcept;

// Overwrites bytes that were secret.
void wipe(void *bytes, std::size_t length) noexcept;

}  // namespace halvex_postgresql

#endif  // HALVEX_POSTGRESQL_COMPONENT_CALLS_H
