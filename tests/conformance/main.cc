#include <gtest/gtest.h>
#include <openssl/ui.h>

// Keys with a pass phrase are among the inputs: without this the library would ask somebody for it.
int main(int argc, char **argv) {
  ::testing::InitGoogleTest(&argc, argv);
  UI_set_default_method(UI_null());
  return RUN_ALL_TESTS();
}
