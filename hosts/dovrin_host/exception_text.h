// What an exception of foreign code says.

#ifndef DOVRIN_HOST_EXCEPTION_TEXT_H
#define DOVRIN_HOST_EXCEPTION_TEXT_H

#include <string>

namespace dovrin_host {

// Describes the exception being handled. Only inside a catch block; throws std::bad_alloc only.
std::string current_exception_text();

}  // namespace dovrin_host

#endif  // DOVRIN_HOST_EXCEPTION_TEXT_H
