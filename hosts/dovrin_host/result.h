// How operations of this library report failure: with a sentence for the user.
//
// Nothing here throws but std::bad_alloc, and value() of a failure.

#ifndef DOVRIN_HOST_RESULT_H
#define DOVRIN_HOST_RESULT_H

#include <exception>
#include <string>
#include <utility>
#include <variant>

namespace dovrin_host {

// Success, or one clear sentence that names what failed.
class [[nodiscard]] Status {
 public:
  // Success.
  Status() = default;

  static Status failure(std::string message) {
    Status status;
    status.failed_ = true;
    status.message_ = std::move(message);
    return status;
  }

  bool ok() const { return !failed_; }

  // Empty after success.
  const std::string &message() const { return message_; }

 private:
  bool failed_ = false;
  std::string message_;
};

// A value, or the failure that stands in its place.
template <typename T>
class [[nodiscard]] Result {
 public:
  // Both conversions are implicit, so that a function can return either.
  Result(T value) : content_{std::in_place_index<0>, std::move(value)} {}
  Result(Status failure) : content_{std::in_place_index<1>, std::move(failure)} {}

  bool ok() const { return content_.index() == 0; }

  // Throws std::bad_variant_access unless ok().
  T &value() & { return std::get<0>(content_); }
  const T &value() const & { return std::get<0>(content_); }
  T &&value() && { return std::get<0>(std::move(content_)); }

  // Success if there is a value.
  Status status() const { return ok() ? Status{} : std::get<1>(content_); }
  std::string message() const { return status().message(); }

 private:
  std::variant<T, Status> content_;
};

// Describes the exception being handled. Only inside a catch block; throws std::bad_alloc only.
inline std::string current_exception_text() {
  try {
    throw;
  } catch (const std::exception &error) {
    return error.what();
  } catch (...) {
    return "an exception of unknown type";
  }
}

}  // namespace dovrin_host

#endif  // DOVRIN_HOST_RESULT_H
