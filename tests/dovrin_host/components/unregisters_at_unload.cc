// A component whose deinit withdraws nothing: a destructor that runs at unload does, and says on
// stderr what the server answered.

#include <cstdio>

#include "test_component.h"

namespace {

bool storage = false;

class Withdrawal {
 public:
  Withdrawal() = default;
  Withdrawal(const Withdrawal &) = delete;
  Withdrawal &operator=(const Withdrawal &) = delete;
  ~Withdrawal() {
    if (test_component::functions_slot == nullptr) {
      return;
    }
    int was_registered = 0;
    const int function = test_component::functions().udf_unregister("late", &was_registered);
    const int variable =
        test_component::variables_withdrawal().unregister_variable("unregisters_at_unload", "late");
    static_cast<void>(std::fprintf(stderr,
                                   "late unregistration: function %d known %d variable %d\n",
                                   function, was_registered, variable));
  }
};

const Withdrawal withdrawal;

int init() {
  return test_component::register_one("late") +
         test_component::register_switch("unregisters_at_unload", "late", &storage);
}

int deinit() { return 0; }

const Dovrin_component descriptor{
    "dovrin::unregisters_at_unload",
    test_component::no_provided_services,
    test_component::registration_services,
    test_component::no_metadata,
    &init,
    &deinit,
};

}  // namespace

TEST_COMPONENT_EXPORT const Dovrin_component *list_components(void) { return &descriptor; }
