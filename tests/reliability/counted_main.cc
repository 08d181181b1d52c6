// Runs GoogleTest with every allocation of libcrypto counted, which only works if nothing comes
// before it.

#include <gtest/gtest.h>
#include <openssl/ui.h>

#include <cstdlib>
#include <iostream>

#include "counted_allocations.h"

int main(int argc, char **argv) {
  if (!halvex_test::count_libcrypto_allocations()) {
    std::cerr << "libcrypto allocated before it could be counted\n";
    return EXIT_FAILURE;
  }
  UI_set_default_method(
      UI_null());  // as a server does that never wants to be asked for a pass phrase
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
