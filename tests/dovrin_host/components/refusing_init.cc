// A component whose init registers things, then fails without withdrawing them. With THROWING_INIT
// it fails by an exception.

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

int deinit() { return 0; }

const Dovrin_component descriptor{
    "dovrin::refusing_init",
    test_component::no_provided_services,
    test_component::registration_services,
    test_component::no_metadata,
    &init,
    &deinit,
};

}  // namespace

TEST_COMPONENT_EXPORT const Dovrin_component *list_components(void) { return &descriptor; }
