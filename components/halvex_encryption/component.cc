#include "halvex_encryption/component.h"

#include <algorithm>
#include <array>
#include <iterator>

#include "halvex_encryption/functions.h"
#include "halvex_encryption/load_order.h"
#include "halvex_encryption/rsa_implementation.h"

namespace halvex_encryption {

[[gnu::init_priority(
    load_order::system_variables_list)]] utilities::System_variables_list system_variables_list{
    "component_halvex_encryption"};
[[gnu::init_priority(load_order::udf_list)]] utilities::UDF_list udf_list;

namespace {

struct Scalar_function {
  const char *name;
  Item_result result_type;
  Udf_func_any row;
  Udf_func_init init;
  Udf_func_deinit deinit;
};

Scalar_function string_function(const char *name, Udf_func_string row, Udf_func_init init) {
  return {name, STRING_RESULT, reinterpret_cast<Udf_func_any>(row), init,
          HX_functions::string_function_deinit};
}

Scalar_function integer_function(const char *name, Udf_func_longlong row, Udf_func_init init,
                                 Udf_func_deinit deinit) {
  return {name, INT_RESULT, reinterpret_cast<Udf_func_any>(row), init, deinit};
}

// Both are always tried, the second only after the first was accepted.
bool variables_are_refused() {
  Dovrin_int_limits key_size_limits{
      .default_value = 4096, .minimum = 2048, .maximum = 16384, .block_size = 1024};
  Dovrin_bool_limits legacy_padding_limits{.default_value = false};

  return system_variables_list.add(
             "maximum_rsa_key_size", DOVRIN_VARIABLE_INT, "Maximum size of RSA key generation",
             rsa::RSA_system_variables_data::check, rsa::RSA_system_variables_data::update,
             &key_size_limits, &rsa::maximum_rsa_key_size_value) ||
         system_variables_list.add(
             "rsa_support_legacy_padding", DOVRIN_VARIABLE_BOOL,
             "Supports legacy padding in decryption and signature verification functions", nullptr,
             nullptr, &legacy_padding_limits, &rsa::rsa_support_legacy_padding_value);
}

// Stops at the first that is refused.
bool functions_are_refused() {
  using Functions = HX_functions;
  const std::array functions{
      string_function("create_asymmetric_priv_key", Functions::generate_private_key,
                      Functions::generate_private_key_init),
      string_function("create_asymmetric_pub_key", Functions::generate_public_key,
                      Functions::generate_public_key_init),
      string_function("asymmetric_encrypt", Functions::encrypt, Functions::encrypt_init),
      string_function("asymmetric_decrypt", Functions::decrypt, Functions::decrypt_init),
      string_function("asymmetric_sign", Functions::sign, Functions::sign_init),
      integer_function("asymmetric_verify", Functions::verify, Functions::verify_init,
                       Functions::verify_deinit),
      string_function("create_digest", Functions::digest, Functions::digest_init),
  };
  return std::any_of(functions.begin(), functions.end(), [](const Scalar_function &function) {
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

  // A refused variable does not keep the functions from being registered; they are withdrawn below.
  const bool variables_refused = variables_are_refused();
  const bool functions_refused = functions_are_refused();
  if (variables_refused || functions_refused) {
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
