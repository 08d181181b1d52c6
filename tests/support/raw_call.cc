#include "support/raw_call.h"

#include <openssl/crypto.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

namespace halvex_test {
namespace {

[[noreturn]] void abort_with(const Registered_function &function, const char *why) {
  static_cast<void>(std::fprintf(stderr, "Call of %s: %s\n", function.name.c_str(), why));
  std::abort();
}

// Text that differs from whatever a function is likely to write.
constexpr char unwritten = '\x5A';

// A server lends its row callbacks a buffer of this size.
using Host_buffer = std::array<char, 766>;

constexpr Host_buffer unwritten_buffer = [] {
  Host_buffer buffer{};
  buffer.fill(unwritten);
  return buffer;
}();

void store_value(const Raw_row &row, const UDF_INIT &instance, Raw_result &out) {
  out.number = row.integer;
  if (row.bytes != nullptr) {
    out.length = row.length;
    const std::size_t copied = std::min<std::size_t>(row.length + 1, instance.max_length);
    std::memcpy(out.bytes, row.bytes, std::min(copied, sizeof out.bytes));
  }
}

void call_row(const Registered_function &function, UDF_INIT &instance, UDF_ARGS &arguments,
              Raw_result &out) {
  unsigned char is_null = 0;
  try {
    const Raw_row row = run_row(function, instance, arguments, is_null);
    store_value(row, instance, out);
    out.error = row.error;
    out.ending = row.is_null ? Raw_result::Ending::null : Raw_result::Ending::value;
  } catch (const std::bad_alloc &) {
    out.ending = Raw_result::Ending::exception_in_row;
  }
  out.is_null = is_null != 0;
}

}  // namespace

Argument_array::Argument_array(std::span<const Argument_view> arguments) {
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    types_.at(i) = arguments[i].type;
    args_.at(i) = const_cast<char *>(arguments[i].bytes);
    lengths_.at(i) = arguments[i].length;
  }
  record_.arg_count = static_cast<unsigned int>(arguments.size());
  record_.arg_type = types_.data();
  record_.args = args_.data();
  record_.lengths = lengths_.data();
}

bool run_init(const Registered_function &function, UDF_INIT &instance, UDF_ARGS &arguments,
              char *message) {
  std::memset(message, unwritten, DOVRIN_UDF_MESSAGE_SIZE);
  const bool rejected = function.init(&instance, &arguments, message);
  if (rejected && std::memchr(message, 0, DOVRIN_UDF_MESSAGE_SIZE) == nullptr) {
    abort_with(function, "init rejected without a terminated message");
  }
  if (!rejected && message[0] != unwritten) {
    abort_with(function, "init accepted and wrote a message");
  }
  return !rejected;
}

Raw_row run_row(const Registered_function &function, UDF_INIT &instance, UDF_ARGS &arguments,
                unsigned char &is_null) {
  unsigned char error = 0;
  if (function.result_type == INT_RESULT) {
    const long long integer =
        reinterpret_cast<Udf_func_longlong>(function.row)(&instance, &arguments, &is_null, &error);
    return {nullptr, 0, integer, is_null != 0, error != 0};
  }
  Host_buffer host_buffer = unwritten_buffer;
  unsigned long length = 0;
  const char *bytes = reinterpret_cast<Udf_func_string>(function.row)(
      &instance, &arguments, host_buffer.data(), &length, &is_null, &error);
  if (std::memcmp(host_buffer.data(), unwritten_buffer.data(), host_buffer.size()) != 0) {
    abort_with(function, "the row wrote to the host's buffer");
  }
  if ((bytes == nullptr) != (is_null != 0)) {
    abort_with(function, "the returned pointer and is_null disagree");
  }
  return {bytes, length, 0, is_null != 0, error != 0};
}

void run_deinit(const Registered_function &function, UDF_INIT &instance) {
  function.deinit(&instance);
  if (instance.ptr != nullptr) {
    abort_with(function, "deinit left an address in the function instance");
  }
}

void Raw_result::wipe() { OPENSSL_cleanse(this, sizeof *this); }

void call(const Registered_function &function, std::span<const Argument_view> arguments,
          Raw_result &out) {
  out.wipe();
  Argument_array array{arguments};
  UDF_INIT instance{};
  try {
    if (run_init(function, instance, array.get(), out.message)) {
      call_row(function, instance, array.get(), out);
    } else {
      out.ending = Raw_result::Ending::rejected;
    }
  } catch (const std::bad_alloc &) {
    out.ending = Raw_result::Ending::exception_in_init;
  }
  run_deinit(function, instance);
}

}  // namespace halvex_test
