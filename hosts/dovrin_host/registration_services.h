// The services through which a component registers functions and system variables with the server.
// Any thread; inside a component's init, what it registers becomes the component's.

#ifndef DOVRIN_HOST_REGISTRATION_SERVICES_H
#define DOVRIN_HOST_REGISTRATION_SERVICES_H

#include "dovrin/services.h"

namespace dovrin_host {

// All with static storage.
extern const Dovrin_udf_registration udf_registration_table;
extern const Dovrin_sys_variable_register sys_variable_register_table;
extern const Dovrin_sys_variable_unregister sys_variable_unregister_table;

}  // namespace dovrin_host

#endif  // DOVRIN_HOST_REGISTRATION_SERVICES_H
