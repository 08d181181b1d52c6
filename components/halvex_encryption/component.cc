#include "halvex_encryption/component.h"

#include <algorithm>
#include <array>

#include "halvex_encryption/functions.h"
#include "halvex_encryption/key_size_limits.h"
#include "halvex_encryption/load_order.h"
#include "halvex_encryption/rsa_implementation.h"

namespace halvex_encryption {

[[gnu::init_priority(
    load_order::system_variables_list)]] utilities::System_variables_list system_variables_list{
    "component_halvex_encryption"};
[[gnu::init_priority(load_order::udf_list)]] utilities::UDF_list udf_list;

namespace {

// Registers the second variable only if the first was accepted. True on failure.
[[nodiscard]] bool register_variables() {
  Dovrin_int_limits maximum_key_size_limits = key_size_limits;
  Dovrin_bool_limits legacy_padding_limits{.default_value = false};

  return system_variables_list.add(
             "maximum_rsa_key_size", DOVRIN_VARIABLE_INT, "Maximum size of RSA key generation",
             rsa::RSA_system_variables_data::check, rsa::RSA_system_variables_data::update,
             &maximum_key_size_limits, &rsa::maximum_rsa_key_size_value) ||
         system_variables_list.add(
             "rsa_support_legacy_padding", DOVRIN_VARIABLE_BOOL,
             "Supports legacy padding in decryption and signature verification functions", nullptr,
             nullptr, &legacy_padding_limits, &rsa::rsa_support_legacy_padding_value);
}

// Stops at the first function that is not accepted. True on failure.
[[nodiscard]] bool register_functions() {
  const std::array functions = function_registrations();
  return std::any_of(functions.begin(), functions.end(), [](const Function_registration &function) {
    return udf_list.add_scalar(function.name, function.result_type, function.row, function.init,
                               function.deinit);
  });
}

}  // namespace

int init() {
  utilities::take_log_handles();
  if (rsa::legacy_digests.empty()) {
    return 1;
  }

  // Intentional: the functions are registered after a failure of the variables too, and
  // unregistered below.
  const bool variables_failed = register_variables();
  const bool functions_failed = register_functions();
  if (variables_failed || functions_failed) {
    static_cast<void>(deinit());
    return 1;
  }
  return 0;
}

int deinit() noexcept {
  const bool variables_left = system_variables_list.unregister();
  const bool functions_left = udf_list.unregister();
  return variables_left || functions_left ? 1 : 0;
}

}  // namespace halvex_encryption

const Dovrin_component *list_components() {
  using halvex_encryption::utilities::service_slots;

  static constexpr Dovrin_provided_service provided[]{{nullptr, nullptr}};
  static constexpr Dovrin_required_service required[]{
      {"registry", &service_slots.registry},
      {"component_sys_variable_register", &service_slots.sys_variable_register},
      {"component_sys_variable_unregister", &service_slots.sys_variable_unregister},
      {"log_builtins", &service_slots.log_builtins},
      {"log_builtins_string", &service_slots.log_builtins_string},
      {"udf_registration", &service_slots.udf_registration},
      {nullptr, nullptr},
  };
  static constexpr Dovrin_metadata metadata[]{
      {"dovrin.author", HALVEX_AUTHOR},
      {"dovrin.license", "PROPRIETARY"},
      {"component_halvex_encryption", "1"},
      {nullptr, nullptr},
  };
  static constexpr Dovrin_component descriptor{
      "dovrin::component_halvex_encryption",
      provided,
      required,
      metadata,
      halvex_encryption::init,
      halvex_encryption::deinit,
  };
  return &descriptor;
}
