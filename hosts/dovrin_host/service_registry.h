// The services a component can require, by name.

#ifndef DOVRIN_HOST_SERVICE_REGISTRY_H
#define DOVRIN_HOST_SERVICE_REGISTRY_H

#include <cstddef>

#include "dovrin/services.h"

namespace dovrin_host {

// The service "registry" itself. Static storage; any thread.
extern const Dovrin_registry registry_table;

// Handles that were acquired and not yet released, all services together.
std::size_t acquired_handles() noexcept;

// Whether a handle leads to a table of this library.
bool is_own_handle(const void *handle) noexcept;

}  // namespace dovrin_host

#endif  // DOVRIN_HOST_SERVICE_REGISTRY_H
