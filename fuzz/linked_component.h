// The component's own objects, linked into a fuzzing target and connected to the fake server.

#ifndef HALVEX_FUZZ_LINKED_COMPONENT_H
#define HALVEX_FUZZ_LINKED_COMPONENT_H

#include <openssl/err.h>
#include <openssl/ui.h>

#include "fields.h"
#include "support/fake_server.h"

extern "C" const Dovrin_component *list_components();

namespace halvex_fuzz {

// Initialises the component on the first call. Nothing asks for a pass phrase from then on.
inline void initialise_component() {
  static const bool done = [] {
    UI_set_default_method(UI_null());
    halvex_test::fill_slots(*list_components());
    return list_components()->init() == 0;
  }();
  require(done);
}

// Every record of the component was well-formed, and no line or buffer of the server is left.
inline void check_server() {
  require(halvex_test::malformed_records() == 0);
  require(halvex_test::open_lines() == 0 && halvex_test::open_buffers() == 0);
}

}  // namespace halvex_fuzz

#endif  // HALVEX_FUZZ_LINKED_COMPONENT_H
