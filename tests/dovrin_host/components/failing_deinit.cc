// A component whose deinit refuses once. What it registered stays until the second deinit.

#include "test_component.h"

namespace {

int refusals_left = 1;

int init() { return test_component::register_one("failing_deinit"); }

int deinit() {
  if (refusals_left > 0) {
    --refusals_left;
    return 1;
  }
  int was_registered = 0;
  return test_component::functions().udf_unregister("failing_deinit", &was_registered);
}

const Dovrin_component descriptor =
    test_component::describe("dovrin::failing_deinit", init, deinit);

}  // namespace

TEST_COMPONENT_EXPORT const Dovrin_component *list_components(void) { return &descriptor; }
