#include "dovrin_host/service_registry.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>

#include "dovrin_host/log_services.h"
#include "dovrin_host/registration_services.h"

namespace dovrin_host {
namespace {

struct Service {
  const char *name;
  const void *table;
};

constexpr std::array services{
    Service{"registry", &registry_table},
    Service{"component_sys_variable_register", &sys_variable_register_table},
    Service{"component_sys_variable_unregister", &sys_variable_unregister_table},
    Service{"log_builtins", &log_builtins_table},
    Service{"log_builtins_string", &log_builtins_string_table},
    Service{"udf_registration", &udf_registration_table},
};

std::atomic<std::size_t> acquired{0};

}  // namespace

extern "C" {

static int acquire(const char *name, void **handle) noexcept {
  if (name == nullptr || handle == nullptr) {
    return 1;
  }
  const auto *const service = std::ranges::find_if(
      services, [&](const Service &entry) { return std::strcmp(entry.name, name) == 0; });
  if (service == services.end()) {
    return 1;
  }
  // A component reads its tables only; the interface's handles are not const.
  *handle = const_cast<void *>(service->table);
  ++acquired;
  return 0;
}

// Every service has one implementation, so the relation decides nothing.
static int acquire_related(const char *name, void * /*related*/, void **handle) noexcept {
  return acquire(name, handle);
}

static int release(void *handle) noexcept {
  if (!is_own_handle(handle)) {
    return 1;
  }
  --acquired;
  return 0;
}

}  // extern "C"

const Dovrin_registry registry_table{
    .acquire = acquire,
    .acquire_related = acquire_related,
    .release = release,
};

std::size_t acquired_handles() noexcept { return acquired; }

bool is_own_handle(const void *handle) noexcept {
  return std::ranges::any_of(services, [&](const Service &entry) { return entry.table == handle; });
}

}  // namespace dovrin_host
