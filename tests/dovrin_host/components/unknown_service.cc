// A component that requires a service which no server has. Its init must never run.

#include <cstdlib>

#include "test_component.h"

namespace {

void *missing_slot = nullptr;

const Dovrin_required_service required[] = {
    {"udf_registration", &test_component::functions_slot},
    {"no_such_service", &missing_slot},
    {nullptr, nullptr},
};

int init() { std::abort(); }

const Dovrin_component descriptor = test_component::describe(
    "dovrin::unknown_service", init, test_component::nothing_to_undo, required);

}  // namespace

TEST_COMPONENT_EXPORT const Dovrin_component *list_components(void) { return &descriptor; }
