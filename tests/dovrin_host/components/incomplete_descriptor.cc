// A component whose descriptor has no init.

#include "test_component.h"

namespace {

int deinit() { return 0; }

const Dovrin_component descriptor{
    "dovrin::incomplete",
    test_component::no_provided_services,
    test_component::registration_services,
    test_component::no_metadata,
    nullptr,
    &deinit,
};

}  // namespace

TEST_COMPONENT_EXPORT const Dovrin_component *list_components(void) { return &descriptor; }
