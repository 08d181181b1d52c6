#include "dovrin_host/variable_value.h"

#include <strings.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstring>
#include <string_view>
#include <system_error>
#include <type_traits>

namespace dovrin_host {
namespace {

// Parses all of `text`, or nothing.
template <typename Number>
std::optional<Number> whole_number(std::string_view text) {
  Number number{};
  const char *const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  return error == std::errc{} && stop == end ? std::optional{number} : std::nullopt;
}

std::optional<long long> integer_of_real(double real) {
  constexpr double bound = 9223372036854775808.0;  // 2 to the 63rd power
  const bool whole = real >= -bound && real < bound && std::trunc(real) == real;
  return whole ? std::optional{static_cast<long long>(real)} : std::nullopt;
}

std::string text_of_real(double real) {
  std::array<char, 64> text{};
  const auto [end, error] = std::to_chars(text.data(), text.data() + text.size(), real);
  return error == std::errc{} ? std::string{text.data(), end} : std::string{};
}

struct Boolean_word {
  const char *word;
  bool value;
};

constexpr std::array boolean_words{
    Boolean_word{"ON", true},     Boolean_word{"OFF", false}, Boolean_word{"TRUE", true},
    Boolean_word{"FALSE", false}, Boolean_word{"1", true},    Boolean_word{"0", false},
};

std::optional<bool> boolean_of_text(const std::string &text) {
  const auto *const found = std::ranges::find_if(boolean_words, [&](const Boolean_word &entry) {
    return text.size() == std::strlen(entry.word) && strcasecmp(text.c_str(), entry.word) == 0;
  });
  return found != boolean_words.end() ? std::optional{found->value} : std::nullopt;
}

}  // namespace

std::optional<long long> integer_form(const Setting &setting) {
  if (const bool *const boolean = std::get_if<bool>(&setting)) {
    return *boolean ? 1 : 0;
  }
  if (const double *const real = std::get_if<double>(&setting)) {
    return integer_of_real(*real);
  }
  if (const std::string *const text = std::get_if<std::string>(&setting)) {
    return whole_number<long long>(*text);
  }
  return std::get<long long>(setting);
}

std::optional<bool> boolean_form(const Setting &setting) {
  if (const std::string *const text = std::get_if<std::string>(&setting)) {
    return boolean_of_text(*text);
  }
  const long long integer = integer_form(setting).value_or(-1);
  return integer == 0 || integer == 1 ? std::optional{integer == 1} : std::nullopt;
}

std::string text_form(const Setting &setting) {
  if (const bool *const boolean = std::get_if<bool>(&setting)) {
    return *boolean ? "ON" : "OFF";
  }
  if (const double *const real = std::get_if<double>(&setting)) {
    return text_of_real(*real);
  }
  if (const std::string *const text = std::get_if<std::string>(&setting)) {
    return *text;
  }
  return std::to_string(std::get<long long>(setting));
}

Value_record::Value_record(const Setting &setting) noexcept
    : layout_{{value_type, val_str, val_real, val_int, is_unsigned}, &setting} {
  static_assert(std::is_standard_layout_v<Layout>);
}

const Setting &Value_record::setting_of(st_dovrin_value *value) noexcept {
  return *reinterpret_cast<Layout *>(value)->setting;
}

int Value_record::value_type(st_dovrin_value *value) noexcept {
  const Setting &setting = setting_of(value);
  if (std::holds_alternative<std::string>(setting)) {
    return DOVRIN_VALUE_STRING;
  }
  return std::holds_alternative<double>(setting) ? DOVRIN_VALUE_REAL : DOVRIN_VALUE_INTEGER;
}

// `*length` is the buffer's size before and the text's length after the call. Null if there is no
// room for the text and its NUL.
const char *Value_record::val_str(st_dovrin_value *value, char *buffer, int *length) noexcept try {
  const std::string text = text_form(setting_of(value));
  if (*length <= 0 || text.size() >= static_cast<std::size_t>(*length)) {
    return nullptr;
  }
  std::ranges::copy(text, buffer);
  buffer[text.size()] = '\0';
  *length = static_cast<int>(text.size());
  return buffer;
} catch (...) {
  return nullptr;
}

int Value_record::val_real(st_dovrin_value *value, double *out) noexcept {
  const Setting &setting = setting_of(value);
  if (const double *const real = std::get_if<double>(&setting)) {
    *out = *real;
    return 0;
  }
  if (const std::string *const text = std::get_if<std::string>(&setting)) {
    const std::optional<double> number = whole_number<double>(*text);
    *out = number.value_or(*out);
    return number ? 0 : 1;
  }
  *out = static_cast<double>(*integer_form(setting));
  return 0;
}

int Value_record::val_int(st_dovrin_value *value, long long *out) noexcept {
  const std::optional<long long> number = integer_form(setting_of(value));
  *out = number.value_or(*out);
  return number ? 0 : 1;
}

int Value_record::is_unsigned(st_dovrin_value * /*value*/) noexcept { return 0; }

}  // namespace dovrin_host
