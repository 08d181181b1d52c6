// The limits of the system variable maximum_rsa_key_size: for the component, which registers and
// checks it, and for hosts that declare it to their engine before the component is loaded.

#ifndef HALVEX_ENCRYPTION_KEY_SIZE_LIMITS_H
#define HALVEX_ENCRYPTION_KEY_SIZE_LIMITS_H

#include "dovrin/system_variable.h"

namespace halvex_encryption {

// In bits. The minimum is also that of every key that is created.
inline constexpr Dovrin_int_limits key_size_limits{
    .default_value = 4096, .minimum = 2048, .maximum = 16384, .block_size = 1024};

}  // namespace halvex_encryption

#endif  // HALVEX_ENCRYPTION_KEY_SIZE_LIMITS_H
