// A value that a statement wants to give a system variable.

#ifndef DOVRIN_HOST_VARIABLE_VALUE_H
#define DOVRIN_HOST_VARIABLE_VALUE_H

#include <optional>
#include <string>
#include <variant>

#include "dovrin/system_variable.h"

namespace dovrin_host {

// As the SQL engine has it.
using Setting = std::variant<bool, long long, double, std::string>;

// The value as an integer: a boolean is 0 or 1, a real must be whole, a text must be a decimal
// integer from end to end. Nothing if it has none of 64 bits.
std::optional<long long> integer_form(const Setting &setting);

// The value as a boolean: the integers 0 and 1, or the texts ON, OFF, TRUE, FALSE, 1, 0 in any
// letter case. Nothing else.
std::optional<bool> boolean_form(const Setting &setting);

// The value as a person reads it.
std::string text_form(const Setting &setting);

// The record through which a component's check callback reads a setting. It borrows the setting.
class Value_record {
 public:
  explicit Value_record(const Setting &setting) noexcept;
  Value_record(const Value_record &) = delete;
  Value_record &operator=(const Value_record &) = delete;
  ~Value_record() = default;

  // Valid as long as this object.
  st_dovrin_value *get() noexcept { return &layout_.operations; }

 private:
  // The operations come first, so that they find the setting from the address they are given.
  struct Layout {
    st_dovrin_value operations;
    const Setting *setting;
  };

  static const Setting &setting_of(st_dovrin_value *value) noexcept;
  static int value_type(st_dovrin_value *value) noexcept;
  static const char *val_str(st_dovrin_value *value, char *buffer, int *length) noexcept;
  static int val_real(st_dovrin_value *value, double *out) noexcept;
  static int val_int(st_dovrin_value *value, long long *out) noexcept;
  static int is_unsigned(st_dovrin_value *value) noexcept;

  Layout layout_;
};

}  // namespace dovrin_host

#endif  // DOVRIN_HOST_VARIABLE_VALUE_H
