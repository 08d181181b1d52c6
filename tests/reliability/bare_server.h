// A server that gets by without operator new and without libcrypto: fixed tables and malloc alone.
// What a component allocates is then all that the allocation counters see. Every operation that a
// server may refuse asks the fault plan (Fault_source::server) first.
//
// The tables of services carry no context, so a process has one such server. Log operations may
// come from many threads at once; registrations from one at a time, as a server makes them.

#ifndef RELIABILITY_BARE_SERVER_H
#define RELIABILITY_BARE_SERVER_H

#include <cstddef>

#include "dovrin/component.h"
#include "dovrin/system_variable.h"
#include "dovrin/udf.h"

namespace reliability {

// One registered SQL function.
struct Registered_function {
  char name[64];
  Item_result result_type;
  Udf_func_any row;
  Udf_func_init init;
  Udf_func_deinit deinit;
};

// One registered system variable.
struct Registered_variable {
  char name[64];
  int type_flag;
  Sys_var_check check;
  Sys_var_update update;
  void *storage;
};

// What stood in the last record that this thread submitted.
struct Last_record {
  long long code;
  long long priority;
  char message[8192];
};

// The table behind the handle of a service, or null for an unknown name.
[[nodiscard]] void *service_table(const char *name);

// Fills every required slot of `component`; false if it wants a service that this server has not.
[[nodiscard]] bool connect_services(const Dovrin_component &component);

// What is registered under this name, or null.
[[nodiscard]] const Registered_function *find_function(const char *name);
[[nodiscard]] const Registered_variable *find_variable(const char *name);
[[nodiscard]] std::size_t registered_functions();
[[nodiscard]] std::size_t registered_variables();

// Forgets all registrations: for the leftovers of a component that was not allowed to withdraw
// them.
void forget_registrations();

// What a refused withdrawal of a function says: that the function is registered and stays so (true,
// the default), or that there is no such function, which is then the case.
void know_functions_when_refusing(bool known);

// Records submitted since the start, by all threads; records that lacked one of the seven items or
// had their items out of order; lines and message buffers that are not released.
[[nodiscard]] std::size_t submitted_records();
[[nodiscard]] std::size_t malformed_records();
[[nodiscard]] long live_server_blocks();

// Submitted records of one error code; 0 for a code that no component of ours uses.
[[nodiscard]] std::size_t submitted_records_of(long long code);

[[nodiscard]] const Last_record &last_record();

// Sets a system variable as a statement would: through check and update where they are registered,
// else straight into the storage (atomically, as the reader may be another thread). False if it was
// refused.
[[nodiscard]] bool set_variable(const char *name, long long value);

}  // namespace reliability

#endif  // RELIABILITY_BARE_SERVER_H
