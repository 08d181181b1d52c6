// The component's entries for the server, beside the exported list_components.

#ifndef HALVEX_ENCRYPTION_COMPONENT_H
#define HALVEX_ENCRYPTION_COMPONENT_H

#include "dovrin/component.h"
#include "halvex_encryption/utilities.h"

namespace halvex_encryption {

// What is registered with the server. Built when the object is loaded; at unload their destructors
// unregister what deinit() has not.
extern utilities::System_variables_list system_variables_list;
extern utilities::UDF_list udf_list;

// Registers both system variables and all seven functions and returns 0. If the server rejects any,
// reports it, unregisters them all again and returns 1. Returns 1 also if loading the object ran
// out of memory. Called by the server, once. std::bad_alloc goes on to the server; what was
// registered by then is unregistered by deinit() or at unload.
int init();

// Unregisters the variables, then the functions, and returns 0. Returns 1 if the server refuses
// any: it stays listed, and a second call or unloading tries it again. Called by the server.
int deinit() noexcept;

}  // namespace halvex_encryption

// The object's only exported symbol: the component's descriptor, the same on every call.
extern "C" __attribute__((visibility("default"))) const Dovrin_component *list_components(void);

#endif  // HALVEX_ENCRYPTION_COMPONENT_H
