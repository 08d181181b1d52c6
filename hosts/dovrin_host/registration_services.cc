#include "dovrin_host/registration_services.h"

#include <exception>
#include <optional>
#include <string>
#include <utility>

#include "dovrin_host/owner.h"
#include "dovrin_host/server.h"

namespace dovrin_host {
namespace {

constexpr int done = 0;
constexpr int refused = 1;

// The limits record of a registration, whose type the flag tells; nothing for an unknown flag.
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

// C functions: nothing passes out of them but their results, and lack of memory is a refusal.
extern "C" {

static int udf_register(const char *name, Item_result result_type, Udf_func_any row,
                        Udf_func_init init, Udf_func_deinit deinit) noexcept try {
  if (name == nullptr) {
    return refused;
  }
  const bool added =
      Server::instance().functions().add({name, result_type, row, init, deinit}, current_owner());
  return added ? done : refused;
} catch (const std::exception &) {
  return refused;
}

static int udf_unregister(const char *name, int *was_registered) noexcept try {
  using Removal = Function_registry::Removal;
  const Removal removal =
      name != nullptr ? Server::instance().functions().remove(name) : Removal::unknown;
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
  const bool added = Server::instance().variables().add(std::move(*definition), current_owner());
  return added ? done : refused;
} catch (const std::exception &) {
  return refused;
}

static int unregister_variable(const char *component, const char *name) noexcept try {
  if (component == nullptr || name == nullptr) {
    return refused;
  }
  return Server::instance().variables().remove(full_name(component, name)) ? done : refused;
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
