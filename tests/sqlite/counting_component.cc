#include "sqlite/counting_component.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <stdexcept>
#include <string_view>

#include "dovrin/component.h"
#include "dovrin/services.h"
#include "dovrin/udf.h"

namespace {

halvex_test::Call_counts counts;

bool init(UDF_INIT *instance, UDF_ARGS *args, char *message) {
  ++counts.inits;
  instance->ptr = nullptr;
  for (unsigned int i = 0; i < args->arg_count; ++i) {
    if (args->arg_type[i] == REAL_RESULT) {
      static_cast<void>(
          std::snprintf(message, DOVRIN_UDF_MESSAGE_SIZE, "Argument %u is a real.", i + 1));
      return true;
    }
  }
  return false;
}

void deinit(UDF_INIT * /*instance*/) { ++counts.deinits; }

char *counted(UDF_INIT * /*instance*/, UDF_ARGS *args, char * /*result*/, unsigned long *length,
              unsigned char *is_null, unsigned char * /*error*/) {
  ++counts.rows;
  if (args->arg_count == 0 || args->arg_type[0] != STRING_RESULT || args->args[0] == nullptr) {
    *is_null = 1;
    return nullptr;
  }
  *length = args->lengths[0];
  return args->args[0];
}

long long counted_length(UDF_INIT * /*instance*/, UDF_ARGS *args, unsigned char *is_null,
                         unsigned char * /*error*/) {
  ++counts.rows;
  if (args->arg_count == 0 || args->args[0] == nullptr) {
    *is_null = 1;
    return 0;
  }
  return static_cast<long long>(args->lengths[0]);
}

char *throws(UDF_INIT * /*instance*/, UDF_ARGS *args, char * /*result*/, unsigned long * /*length*/,
             unsigned char *is_null, unsigned char * /*error*/) {
  ++counts.rows;
  const std::string_view kind{args->args[0], args->lengths[0]};
  if (kind == "memory") {
    throw std::bad_alloc{};
  }
  if (kind == "text") {
    throw std::runtime_error{"The row could not be computed."};
  }
  if (kind == "other") {
    throw 1;  // NOLINT(*): a component may throw anything
  }
  *is_null = 1;
  return nullptr;
}

long long fails(UDF_INIT * /*instance*/, UDF_ARGS * /*args*/, unsigned char * /*is_null*/,
                unsigned char *error) {
  ++counts.rows;
  *error = 1;
  return 0;
}

void *registration_slot = nullptr;

struct Function {
  const char *name;
  Item_result result_type;
  Udf_func_any row;
};

const std::array functions{
    Function{"counted", STRING_RESULT, reinterpret_cast<Udf_func_any>(counted)},
    // A name that the host's table has: deterministic and without a key.
    Function{"create_digest", STRING_RESULT, reinterpret_cast<Udf_func_any>(counted)},
    Function{"counted_length", INT_RESULT, reinterpret_cast<Udf_func_any>(counted_length)},
    Function{"throws", STRING_RESULT, reinterpret_cast<Udf_func_any>(throws)},
    Function{"fails", INT_RESULT, reinterpret_cast<Udf_func_any>(fails)},
};

int start() {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): the tests set it before they load anything
  if (std::getenv("COUNTING_COMPONENT_FAILS") != nullptr) {
    return 1;
  }
  const auto *const service = static_cast<const Dovrin_udf_registration *>(registration_slot);
  for (const Function &function : functions) {
    if (service->udf_register(function.name, function.result_type, function.row, init, deinit) !=
        0) {
      return 1;
    }
  }
  return 0;
}

int stop() {
  const auto *const service = static_cast<const Dovrin_udf_registration *>(registration_slot);
  int failed = 0;
  for (const Function &function : functions) {
    int was_registered = 0;
    failed |= service->udf_unregister(function.name, &was_registered);
  }
  return failed;
}

}  // namespace

extern "C" {

__attribute__((visibility("default"))) halvex_test::Get_call_counts counting_component_counts;
__attribute__((visibility("default"))) const Dovrin_component *list_components();

halvex_test::Call_counts *counting_component_counts() { return &counts; }

const Dovrin_component *list_components() {
  static const std::array<Dovrin_provided_service, 1> provided{};
  static const std::array required{Dovrin_required_service{"udf_registration", &registration_slot},
                                   Dovrin_required_service{nullptr, nullptr}};
  static const std::array<Dovrin_metadata, 1> metadata{};
  static const Dovrin_component component{"counting",      provided.data(), required.data(),
                                          metadata.data(), start,           stop};
  return &component;
}
}
