#include "loaded_component.h"

#include <dlfcn.h>
#include <openssl/crypto.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <new>

namespace reliability {
namespace {

// The server's records of one call.
class Prepared_arguments {
 public:
  explicit Prepared_arguments(std::span<const Argument> arguments) : numbers_{} {
    for (std::size_t i = 0; i < arguments.size(); ++i) {
      const Argument &argument = arguments[i];
      types_[i] = argument.type;
      lengths_[i] = argument.length;
      numbers_[i] = argument.number;
      args_[i] = bytes_of(argument, numbers_[i]);
    }
    record_.arg_count = static_cast<unsigned int>(arguments.size());
    record_.arg_type = types_.data();
    record_.args = args_.data();
    record_.lengths = lengths_.data();
  }
  UDF_ARGS *get() { return &record_; }

 private:
  static char *bytes_of(const Argument &argument, long long &number) {
    if (argument.type == STRING_RESULT) {
      return const_cast<char *>(argument.bytes);
    }
    return argument.null_number ? nullptr : reinterpret_cast<char *>(&number);
  }

  std::array<Item_result, most_arguments> types_{};
  std::array<char *, most_arguments> args_{};
  std::array<unsigned long, most_arguments> lengths_{};
  std::array<long long, most_arguments> numbers_;
  UDF_ARGS record_{};
};

void call_string_row(const Registered_function &function, UDF_INIT &instance, UDF_ARGS *arguments,
                     unsigned char &is_null, unsigned char &error, Call_result &out) {
  unsigned long length = 0;
  const char *value = reinterpret_cast<Udf_func_string>(function.row)(&instance, arguments, nullptr,
                                                                      &length, &is_null, &error);
  out.returned_null = value == nullptr;
  if (value != nullptr) {
    out.length = length;
    const std::size_t copied = std::min<std::size_t>(length + 1, instance.max_length);
    std::memcpy(out.bytes, value, std::min(copied, sizeof out.bytes));
  }
}

void call_row(const Registered_function &function, UDF_INIT &instance, UDF_ARGS *arguments,
              Call_result &out) {
  unsigned char is_null = 0;
  unsigned char error = 0;
  try {
    if (function.result_type == INT_RESULT) {
      out.number =
          reinterpret_cast<Udf_func_longlong>(function.row)(&instance, arguments, &is_null, &error);
    } else {
      call_string_row(function, instance, arguments, is_null, error, out);
    }
    out.ending = is_null != 0 ? Call_result::Ending::null : Call_result::Ending::value;
  } catch (const std::bad_alloc &) {
    out.ending = Call_result::Ending::exception_in_row;
  }
  out.is_null = is_null != 0;
  out.error = error != 0;
}

}  // namespace

void Call_result::wipe() { OPENSSL_cleanse(this, sizeof *this); }

void call(const Registered_function &function, std::span<const Argument> arguments,
          Call_result &out) {
  out.wipe();
  Prepared_arguments prepared{arguments};
  UDF_INIT instance{};
  try {
    if (function.init(&instance, prepared.get(), out.message)) {
      out.ending = Call_result::Ending::refused;
    } else {
      call_row(function, instance, prepared.get(), out);
    }
  } catch (const std::bad_alloc &) {
    out.ending = Call_result::Ending::exception_in_init;
  }
  function.deinit(&instance);
}

Loaded_component::Loaded_component(const char *path)
    : library_{dlopen(path, RTLD_NOW | RTLD_LOCAL)} {
  if (library_ == nullptr) {
    return;
  }
  const auto list = reinterpret_cast<Dovrin_list_components>(dlsym(library_, "list_components"));
  if (list != nullptr && connect_services(*list())) {
    descriptor_ = list();
  }
}

Loaded_component::~Loaded_component() { close(); }

void Loaded_component::close() {
  descriptor_ = nullptr;
  if (library_ != nullptr) {
    dlclose(library_);
    library_ = nullptr;
  }
}

bool is_mapped(const char *file_name) {
  std::FILE *maps = std::fopen("/proc/self/maps", "re");
  if (maps == nullptr) {
    return true;
  }
  bool found = false;
  char line[4352];
  while (!found && std::fgets(line, sizeof line, maps) != nullptr) {
    found = std::strstr(line, file_name) != nullptr;
  }
  static_cast<void>(std::fclose(maps));
  return found;
}

}  // namespace reliability
