// A component whose descriptor has what the build says: one of NAME, INIT and DEINIT is null.

#include "test_component.h"

namespace {

using test_component::nothing_to_undo;

const Dovrin_component descriptor = test_component::describe(NAME, INIT, DEINIT);

}  // namespace

TEST_COMPONENT_EXPORT const Dovrin_component *list_components(void) { return &descriptor; }
