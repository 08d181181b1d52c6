// The services "log_builtins" and "log_builtins_string". Any thread; a line belongs to the thread
// that made it.

#ifndef DOVRIN_HOST_LOG_SERVICES_H
#define DOVRIN_HOST_LOG_SERVICES_H

#include "dovrin/services.h"

namespace dovrin_host {

// Items a line has room for; adding one more returns a null item. The room is there from the start,
// so that adding never fails for lack of memory.
inline constexpr int log_line_capacity = 32;

// Submitted lines go to the server's error log. Both tables have static storage.
extern const Dovrin_log_builtins log_builtins_table;
extern const Dovrin_log_builtins_string log_builtins_string_table;

}  // namespace dovrin_host

#endif  // DOVRIN_HOST_LOG_SERVICES_H
