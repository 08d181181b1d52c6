// What the test components share: the slots of the services and a way to make a descriptor.
//
// Each component is one source that includes this header and defines `init` and `deinit` callbacks.
// Everything here is static: a component must share nothing with another one.

#ifndef TESTS_DOVRIN_HOST_COMPONENTS_TEST_COMPONENT_H
#define TESTS_DOVRIN_HOST_COMPONENTS_TEST_COMPONENT_H

#include "dovrin/component.h"
#include "dovrin/services.h"

#define TEST_COMPONENT_EXPORT extern "C" __attribute__((visibility("default")))

namespace test_component {

[[maybe_unused]] static void *functions_slot = nullptr;
[[maybe_unused]] static void *variables_slot = nullptr;
[[maybe_unused]] static void *variable_unregistration_slot = nullptr;

[[maybe_unused]] static const Dovrin_required_service registration_services[] = {
    {"udf_registration", &functions_slot},
    {"component_sys_variable_register", &variables_slot},
    {"component_sys_variable_unregister", &variable_unregistration_slot},
    {nullptr, nullptr},
};

[[maybe_unused]] static int nothing_to_undo() { return 0; }

// A descriptor of a component that provides no service.
[[maybe_unused]] static Dovrin_component describe(
    const char *name, int (*init)(), int (*deinit)(),
    const Dovrin_required_service *required = registration_services) {
  static const Dovrin_provided_service no_provided_services[] = {{nullptr, nullptr}};
  static const Dovrin_metadata no_metadata[] = {{nullptr, nullptr}};
  return {name, no_provided_services, required, no_metadata, init, deinit};
}

[[maybe_unused]] static const Dovrin_udf_registration &functions() {
  return *static_cast<const Dovrin_udf_registration *>(functions_slot);
}

[[maybe_unused]] static const Dovrin_sys_variable_register &variables() {
  return *static_cast<const Dovrin_sys_variable_register *>(variables_slot);
}

[[maybe_unused]] static const Dovrin_sys_variable_unregister &variable_unregistration() {
  return *static_cast<const Dovrin_sys_variable_unregister *>(variable_unregistration_slot);
}

// An integer function that gives 1 for every row.
[[maybe_unused]] static long long one(UDF_INIT * /*instance*/, UDF_ARGS * /*args*/,
                                      unsigned char * /*is_null*/, unsigned char * /*error*/) {
  return 1;
}

// Registers `one` under a name. 0 for success.
[[maybe_unused]] static int register_one(const char *name) {
  return functions().udf_register(name, INT_RESULT, reinterpret_cast<Udf_func_any>(&one), nullptr,
                                  nullptr);
}

// Registers a boolean without callbacks. 0 for success.
[[maybe_unused]] static int register_switch(const char *component, const char *name,
                                            bool *storage) {
  Dovrin_bool_limits limits{false};
  return variables().register_variable(component, name, DOVRIN_VARIABLE_BOOL, "A switch", nullptr,
                                       nullptr, &limits, storage);
}

}  // namespace test_component

#endif  // TESTS_DOVRIN_HOST_COMPONENTS_TEST_COMPONENT_H
