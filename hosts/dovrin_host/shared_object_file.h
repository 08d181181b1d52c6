// A shared object as a file, before anybody loads it.

#ifndef DOVRIN_HOST_SHARED_OBJECT_FILE_H
#define DOVRIN_HOST_SHARED_OBJECT_FILE_H

#include <string>

namespace dovrin_host {

// True if the file ends before its own headers say it does, as after a copy that was cut off. The
// dynamic loader does not look: it maps what is not there, and the process dies of SIGBUS. False
// for a file that cannot be read or is no 64-bit ELF file; about those the loader complains.
bool is_cut_off(const std::string &path);

}  // namespace dovrin_host

#endif  // DOVRIN_HOST_SHARED_OBJECT_FILE_H
