// A component whose init registers things, then fails without unregistering them. With
// THROWING_INIT it fails by an exception.

#include <stdexcept>

#include "test_component.h"

namespace {

bool storage = false;

int init() {
  test_component::register_one("left_behind");
  test_component::register_switch("refusing_init", "left_behind", &storage);
#ifdef THROWING_INIT
  throw std::runtime_error{"no room"};
#else
  return 1;
#endif
}

const Dovrin_component descriptor =
    test_component::describe("dovrin::refusing_init", init, test_component::nothing_to_undo);

}  // namespace

TEST_COMPONENT_EXPORT const Dovrin_component *list_components(void) { return &descriptor; }
