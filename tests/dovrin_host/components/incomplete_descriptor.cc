// A component whose descriptor has no init.

#include "test_component.h"

namespace {

const Dovrin_component descriptor =
    test_component::describe("dovrin::incomplete", nullptr, test_component::nothing_to_undo);

}  // namespace

TEST_COMPONENT_EXPORT const Dovrin_component *list_components(void) { return &descriptor; }
