// A component for tests: a call recorder around the real one. It stands between the component and
// the server, writes every init and deinit of a function instance to a file, and misbehaves on
// demand.
//
// Environment of the server: HALVEX_PROBED_COMPONENT is the real component's file,
// HALVEX_PROBE_FILE the file that gets one line "init NAME PID" or "deinit NAME PID" each.

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "dovrin/component.h"
#include "dovrin/services.h"

namespace {

struct Recorded_function {
  const char *name;
  Udf_func_any row;
  Udf_func_init init;
  Udf_func_deinit deinit;
};

std::array<Recorded_function, 7> functions{};
std::size_t function_count = 0;

void *server_registration = nullptr;          // the server's own table
void **component_registration = nullptr;      // the slot that the component reads
const Dovrin_component *component = nullptr;  // the real one

void note(const char *event, const Recorded_function &function) {
  const std::string line =
      std::string{event} + ' ' + function.name + ' ' + std::to_string(getpid()) + '\n';
  const char *const path = std::getenv("HALVEX_PROBE_FILE");
  const int file = path == nullptr ? -1 : open(path, O_WRONLY | O_APPEND | O_CLOEXEC);
  if (file < 0 || write(file, line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
    std::abort();
  }
  close(file);
}

// What the first argument may ask for instead of an algorithm.
void misbehave(const UDF_ARGS *args, unsigned char *error) {
  const std::string_view wish = args->args[0] == nullptr ? "" : args->args[0];
  if (wish == "throw exception") {
    throw std::runtime_error{"thrown on demand"};
  }
  if (wish == "throw memory") {
    throw std::bad_alloc{};
  }
  if (wish == "throw number") {
    throw 42;
  }
  *error = wish == "set error" ? 1 : 0;
}

template <std::size_t index>
bool init(UDF_INIT *instance, UDF_ARGS *args, char *message) {
  note("init", functions[index]);
  return functions[index].init(instance, args, message);
}

template <std::size_t index>
void deinit(UDF_INIT *instance) {
  note("deinit", functions[index]);
  functions[index].deinit(instance);
}

template <std::size_t index>
char *string_row(UDF_INIT *instance, UDF_ARGS *args, char *result, unsigned long *length,
                 unsigned char *is_null, unsigned char *error) {
  misbehave(args, error);
  return reinterpret_cast<Udf_func_string>(functions[index].row)(instance, args, result, length,
                                                                 is_null, error);
}

template <std::size_t index>
long long integer_row(UDF_INIT *instance, UDF_ARGS *args, unsigned char *is_null,
                      unsigned char *error) {
  misbehave(args, error);
  return reinterpret_cast<Udf_func_longlong>(functions[index].row)(instance, args, is_null, error);
}

struct Recorders {
  Udf_func_init init;
  Udf_func_deinit deinit;
  Udf_func_string string_row;
  Udf_func_longlong integer_row;
};

template <std::size_t... index>
constexpr std::array<Recorders, sizeof...(index)> make_recorders(std::index_sequence<index...>) {
  return {Recorders{init<index>, deinit<index>, string_row<index>, integer_row<index>}...};
}

constexpr auto recorders = make_recorders(std::make_index_sequence<7>{});

int register_recorder(const char *name, Item_result type, Udf_func_any row, Udf_func_init init,
                      Udf_func_deinit deinit) {
  if (function_count == functions.size()) {
    return 1;
  }
  functions[function_count] = {name, row, init, deinit};
  const Recorders &recorder = recorders[function_count++];
  const auto recorder_row = type == INT_RESULT
                                ? reinterpret_cast<Udf_func_any>(recorder.integer_row)
                                : reinterpret_cast<Udf_func_any>(recorder.string_row);
  return static_cast<const Dovrin_udf_registration *>(server_registration)
      ->udf_register(name, type, recorder_row, recorder.init, recorder.deinit);
}

int unregister_recorder(const char *name, int *was_registered) {
  return static_cast<const Dovrin_udf_registration *>(server_registration)
      ->udf_unregister(name, was_registered);
}

Dovrin_udf_registration registration{register_recorder, unregister_recorder};

int init_component() {
  *component_registration = &registration;
  return component->init();
}

const Dovrin_component *load_real_component() {
  void *const object = dlopen(std::getenv("HALVEX_PROBED_COMPONENT"), RTLD_NOW | RTLD_LOCAL);
  if (object == nullptr) {
    std::abort();
  }
  return reinterpret_cast<Dovrin_list_components>(dlsym(object, "list_components"))();
}

// The real descriptor with this file's init, and with the registration going through this file.
Dovrin_component make_descriptor() {
  component = load_real_component();
  static std::vector<Dovrin_required_service> required;
  for (const auto *service = component->required_services;; ++service) {
    required.push_back(*service);
    if (service->name == nullptr) {
      break;
    }
    if (std::strcmp(service->name, "udf_registration") == 0) {
      component_registration = service->slot;
      required.back().slot = &server_registration;
    }
  }
  Dovrin_component descriptor = *component;
  descriptor.required_services = required.data();
  descriptor.init = init_component;
  return descriptor;
}

}  // namespace

extern "C" const Dovrin_component *list_components() {
  static const Dovrin_component descriptor = make_descriptor();
  return &descriptor;
}
