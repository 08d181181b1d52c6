#include "dovrin_host/exception_text.h"

#include <exception>

namespace dovrin_host {

std::string current_exception_text() {
  try {
    throw;
  } catch (const std::exception &error) {
    return error.what();
  } catch (...) {
    return "an exception of unknown type";
  }
}

}  // namespace dovrin_host
