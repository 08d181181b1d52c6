// A component without a descriptor.

#include "test_component.h"

TEST_COMPONENT_EXPORT const Dovrin_component *list_components(void) { return nullptr; }
