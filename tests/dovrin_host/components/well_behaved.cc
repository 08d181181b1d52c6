// A component with a function and two variables that behaves. COMPONENT_NAME is the descriptor's
// name, VALUE what its function gives.

#include "test_component.h"

namespace {

bool switch_storage = false;
int size_storage = 4096;

long long value(UDF_INIT * /*instance*/, UDF_ARGS * /*args*/, unsigned char * /*is_null*/,
                unsigned char * /*error*/) {
  return VALUE;
}

int init() {
  Dovrin_int_limits limits{4096, 2048, 16384, 1024};
  const int failed =
      test_component::register_switch("well_behaved", "switch", &switch_storage) +
      test_component::variables().register_variable("well_behaved", "size", DOVRIN_VARIABLE_INT,
                                                    "A size", nullptr, nullptr, &limits,
                                                    &size_storage) +
      test_component::functions().udf_register(
          "value", INT_RESULT, reinterpret_cast<Udf_func_any>(&value), nullptr, nullptr);
  return failed == 0 ? 0 : 1;
}

int deinit() {
  int was_registered = 0;
  const int failed =
      test_component::variable_unregistration().unregister_variable("well_behaved", "switch") +
      test_component::variable_unregistration().unregister_variable("well_behaved", "size") +
      test_component::functions().udf_unregister("value", &was_registered);
  return failed == 0 && was_registered != 0 ? 0 : 1;
}

const Dovrin_component descriptor = test_component::describe(COMPONENT_NAME, init, deinit);

}  // namespace

TEST_COMPONENT_EXPORT const Dovrin_component *list_components(void) { return &descriptor; }
