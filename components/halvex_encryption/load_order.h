// The order in which this shared object's global objects are built when it is loaded.
//
// C++ leaves the order across source files open, and this component depends on it: the lists must
// be there before anything can be registered and must be the last to go. So every global object
// with a constructor carries the compiler's init_priority attribute with a number from here. The
// linker sorts the initialisers of the whole object by that number, and because each destructor is
// queued when its constructor has run, unloading runs them in exactly the reverse order: the legacy
// digests, the functions, the variables. Plain numbers (the system variables' values) are
// constant-initialised: they are there before all of these.

#ifndef HALVEX_ENCRYPTION_LOAD_ORDER_H
#define HALVEX_ENCRYPTION_LOAD_ORDER_H

namespace halvex_encryption::load_order {

constexpr int system_variables_list = 1001;
constexpr int udf_list = 1002;
constexpr int legacy_digests = 1003;
constexpr int digest_buffer_size = 1004;

}  // namespace halvex_encryption::load_order

#endif  // HALVEX_ENCRYPTION_LOAD_ORDER_H
