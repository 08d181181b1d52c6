// The fixture of the class tests, which link the component's objects: a server whose services the
// classes use, without anything registered.

#ifndef HALVEX_TESTS_COMPONENT_CLASS_TEST_H
#define HALVEX_TESTS_COMPONENT_CLASS_TEST_H

#include <string>

#include "halvex_encryption/component.h"
#include "halvex_encryption/utilities.h"
#include "support/component_test.h"
#include "support/reference_implementation.h"

namespace halvex_test {

class Class_test : public ::testing::Test {
 protected:
  Class_test() {
    fill_slots(*list_components());
    halvex_encryption::utilities::take_log_handles();
    silence_pass_phrase_prompt();
  }

  Recording_server server;
};

// Text as the classes take data.
inline const unsigned char *bytes(const std::string &text) {
  return reinterpret_cast<const unsigned char *>(text.data());
}

inline unsigned char *bytes(std::string &text) {
  return reinterpret_cast<unsigned char *>(text.data());
}

}  // namespace halvex_test

#endif  // HALVEX_TESTS_COMPONENT_CLASS_TEST_H
