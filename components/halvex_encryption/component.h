// The component's entries for the server, beside the exported list_components.

#ifndef HALVEX_ENCRYPTION_COMPONENT_H
#define HALVEX_ENCRYPTION_COMPONENT_H

#include "dovrin/component.h"
#include "halvex_encryption/utilities.h"

namespace halvex_encryption {

// What is registered with the server. Built when the object is loaded; their destructors withdraw
// at unload whatever deinit() has not.
extern utilities::System_variables_list system_variables_list;
extern utilities::UDF_list udf_list;

// Registers both system variables and all seven functions, or, if any was refused, withdraws them
// again and returns 1; else 0. Every refusal has been reported. 1 also if memory ran out while the
// object was loaded. Called by the server, once. std::bad_alloc goes on to the server; what was
// registered by then is withdrawn by deinit() or at unload.
int init();

// Withdraws the variables, then the functions. 1 if any was refused: it stays listed, and a second
// call or unloading tries it again; else 0. Called by the server.
int deinit() noexcept;

}  // namespace halvex_encryption

// The object's only exported symbol: the component's descriptor, the same on every call.
extern "C" __attribute__((visibility("default"))) const Dovrin_component *list_components(void);

#endif  // HALVEX_ENCRYPTION_COMPONENT_H
