#include "dovrin_host/services.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <exception>
#include <optional>
#include <string>
#include <utility>

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

constexpr int done = 0;
constexpr int refused = 1;

// The limits record of a registration, whose type the flag names; nothing for an unknown flag.
std::optional<Variable_definition> definition_of(int type_flag, const void *limits) {
  Variable_definition definition;
  if (type_flag == DOVRIN_VARIABLE_BOOL) {
    definition.type = Variable_type::boolean;
    definition.default_value = static_cast<const Dovrin_bool_limits *>(limits)->default_value;
    return definition;
  }
  if (type_flag == DOVRIN_VARIABLE_INT) {
    const auto &integer = *static_cast<const Dovrin_int_limits *>(limits);
    definition.type = Variable_type::integer;
    definition.default_value = static_cast<long long>(integer.default_value);
    definition.minimum = integer.minimum;
    definition.maximum = integer.maximum;
    definition.block_size = integer.block_size;
    return definition;
  }
  return std::nullopt;
}

std::string full_name(const char *component, const char *name) {
  return std::string{component} + '.' + name;
}

}  // namespace

Service_state &service_state() {
  static auto *const state = new Service_state;
  return *state;
}

extern "C" {

static int acquire(const char *name, void **handle) noexcept {
  if (name == nullptr || handle == nullptr) {
    return refused;
  }
  const auto *const service = std::ranges::find_if(
      services, [&](const Service &entry) { return std::strcmp(entry.name, name) == 0; });
  if (service == services.end()) {
    return refused;
  }
  // A component reads its tables only; the interface's handles are not const.
  *handle = const_cast<void *>(service->table);
  return done;
}

// Every service has one implementation, so the relation decides nothing.
static int acquire_related(const char *name, void * /*related*/, void **handle) noexcept {
  return acquire(name, handle);
}

static int release(void *handle) noexcept { return is_own_handle(handle) ? done : refused; }

}  // extern "C"

const Dovrin_registry registry_table{
    .acquire = acquire,
    .acquire_related = acquire_related,
    .release = release,
};

bool is_own_handle(const void *handle) noexcept {
  return std::ranges::any_of(services, [&](const Service &entry) { return entry.table == handle; });
}

extern "C" {

static int udf_register(const char *name, Item_result result_type, Udf_func_any row,
                        Udf_func_init init, Udf_func_deinit deinit) noexcept try {
  if (name == nullptr) {
    return refused;
  }
  const bool added =
      service_state().functions.add({name, result_type, row, init, deinit}, Owner_scope::current());
  return added ? done : refused;
} catch (const std::exception &) {
  return refused;
}

static int udf_unregister(const char *name, int *was_registered) noexcept try {
  using Removal = Function_registry::Removal;
  const Removal removal = name != nullptr
                              ? service_state().functions.remove(name, Owner_scope::current())
                              : Removal::unknown;
  if (was_registered != nullptr) {
    *was_registered = removal == Removal::unknown ? 0 : 1;
  }
  return removal == Removal::removed ? done : refused;
} catch (const std::exception &) {
  return refused;
}

static int register_variable(const char *component, const char *name, int type_flag,
                             const char *comment, Sys_var_check check, Sys_var_update update,
                             void *limits, void *storage) noexcept try {
  if (component == nullptr || name == nullptr || limits == nullptr) {
    return refused;
  }
  std::optional<Variable_definition> definition = definition_of(type_flag, limits);
  if (!definition) {
    return refused;
  }
  definition->name = full_name(component, name);
  definition->comment = comment != nullptr ? comment : "";
  definition->check = check;
  definition->update = update;
  definition->storage = storage;
  const bool added = service_state().variables.add(std::move(*definition), Owner_scope::current());
  return added ? done : refused;
} catch (const std::exception &) {
  return refused;
}

static int unregister_variable(const char *component, const char *name) noexcept try {
  if (component == nullptr || name == nullptr) {
    return refused;
  }
  return service_state().variables.remove(full_name(component, name)) ? done : refused;
} catch (const std::exception &) {
  return refused;
}

}  // extern "C"

const Dovrin_udf_registration udf_registration_table{
    .udf_register = udf_register,
    .udf_unregister = udf_unregister,
};

const Dovrin_sys_variable_register sys_variable_register_table{
    .register_variable = register_variable,
};

const Dovrin_sys_variable_unregister sys_variable_unregister_table{
    .unregister_variable = unregister_variable,
};

}  // namespace dovrin_host
