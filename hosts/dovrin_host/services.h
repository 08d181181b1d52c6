// The services a component can require: tables of C functions. Nothing passes out of them but their
// results; out of memory is a refusal. Any thread may call anything at any time, but a log line
// belongs to the thread that made it.

#ifndef DOVRIN_HOST_SERVICES_H
#define DOVRIN_HOST_SERVICES_H

#include "dovrin/services.h"
#include "dovrin_host/error_log.h"
#include "dovrin_host/functions.h"
#include "dovrin_host/variables.h"

namespace dovrin_host {

// What the tables work on. Their functions take no context, so a process has one of it.
struct Service_state {
  Error_log error_log;
  Function_registry functions;
  System_variables variables;
};

// The process's state, made at the first call and never destroyed: a component's destructors use
// the services as late as the end of the process. Any thread.
Service_state &service_state();

// Items a log line has room for; adding one more returns a null item. The room is there from the
// start, so that adding never runs out of memory.
inline constexpr int log_line_capacity = 32;

// All tables have static storage. What a component registers inside its init belongs to it.
extern const Dovrin_registry registry_table;
extern const Dovrin_udf_registration udf_registration_table;
extern const Dovrin_sys_variable_register sys_variable_register_table;
extern const Dovrin_sys_variable_unregister sys_variable_unregister_table;
extern const Dovrin_log_builtins log_builtins_table;
extern const Dovrin_log_builtins_string log_builtins_string_table;

// True for the address of one of these tables.
bool is_own_handle(const void *handle) noexcept;

}  // namespace dovrin_host

#endif  // DOVRIN_HOST_SERVICES_H
