// A component whose deinit unregisters nothing: a destructor that runs at unload does, and writes
// what the server answered to stderr.

#include <cstdio>

#include "test_component.h"

namespace {

bool storage = false;

class Unregistration {
 public:
  Unregistration() = default;
  Unregistration(const Unregistration &) = delete;
  Unregistration &operator=(const Unregistration &) = delete;
  ~Unregistration() {
    if (test_component::functions_slot == nullptr) {
      return;
    }
    int was_registered = 0;
    const int function = test_component::functions().udf_unregister("late", &was_registered);
    const int variable = test_component::variable_unregistration().unregister_variable(
        "unregisters_at_unload", "late");
    static_cast<void>(std::fprintf(stderr,
                                   "late unregistration: function %d known %d variable %d\n",
                                   function, was_registered, variable));
  }
};

const Unregistration unregistration;

int init() {
  return test_component::register_one("late") +
         test_component::register_switch("unregisters_at_unload", "late", &storage);
}

const Dovrin_component descriptor = test_component::describe("dovrin::unregisters_at_unload", init,
                                                             test_component::nothing_to_undo);

}  // namespace

TEST_COMPONENT_EXPORT const Dovrin_component *list_components(void) { return &descriptor; }
