#include "sqlite/sql_functions.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "dovrin_host/function_instance.h"
#include "dovrin_host/server.h"

namespace halvex_sqlite {

namespace {

using dovrin_host::Argument;
using dovrin_host::Function_instance;

// What SQL can say of a function and a component cannot.
struct Sql_traits {
  std::string_view name;
  bool gives_text;        // else a string result is a BLOB, whatever its bytes are
  bool is_deterministic;  // the same arguments always give the same result
  int integer_argument;   // the argument that is wanted as an integer; -1 for none
};

constexpr std::array sql_traits{
    Sql_traits{"create_asymmetric_priv_key", true, false, 1},
    Sql_traits{"create_asymmetric_pub_key", true, true, -1},
    Sql_traits{"create_digest", false, true, -1},
};

// What holds for every other function.
constexpr Sql_traits default_traits{"", false, false, -1};

const Sql_traits &traits_of(std::string_view name) {
  const auto *const found = std::find_if(sql_traits.begin(), sql_traits.end(),
                                         [&](const Sql_traits &each) { return each.name == name; });
  return found != sql_traits.end() ? *found : default_traits;
}

// What SQLite keeps with a function of a connection.
struct Sql_function {
  std::string name;
  const Sql_traits &traits;
};

using Shared_instance = std::shared_ptr<Function_instance>;

// An SQL NULL has no type here: it takes the one that the function wants, so that the function's
// own NULL rule answers.
Argument make_null(const Sql_traits &traits, std::size_t position) {
  const bool integer = traits.integer_argument == static_cast<int>(position);
  return Argument::null(integer ? INT_RESULT : STRING_RESULT);
}

std::string_view bytes_of(sqlite3_value *value, const void *bytes) {
  const auto length = static_cast<std::size_t>(sqlite3_value_bytes(value));
  if (bytes == nullptr && length != 0) {
    throw std::bad_alloc{};
  }
  return bytes != nullptr ? std::string_view{static_cast<const char *>(bytes), length}
                          : std::string_view{""};
}

Argument make_argument(const Sql_traits &traits, std::size_t position, sqlite3_value *value) {
  switch (sqlite3_value_type(value)) {
    case SQLITE_INTEGER:
      return Argument::integer(sqlite3_value_int64(value));
    case SQLITE_FLOAT:
      return Argument::real(sqlite3_value_double(value));
    case SQLITE_TEXT: {
      const void *const text = sqlite3_value_text(value);
      if (text == nullptr) {
        throw std::bad_alloc{};
      }
      return Argument::terminated_string(bytes_of(value, text));
    }
    case SQLITE_BLOB: {
      const void *const blob = sqlite3_value_blob(value);
      return Argument::string(bytes_of(value, blob));
    }
    default:
      return make_null(traits, position);
  }
}

std::vector<Argument> make_arguments(const Sql_traits &traits, int argc, sqlite3_value **argv) {
  std::vector<Argument> arguments;
  arguments.reserve(static_cast<std::size_t>(argc));
  for (int i = 0; i < argc; ++i) {
    arguments.push_back(make_argument(traits, static_cast<std::size_t>(i), argv[i]));
  }
  return arguments;
}

// SQLite keeps auxiliary data with an argument of a call site as long as the argument stays the
// same, and may drop it at any time. So the instance of a call site hangs, counted, on all of its
// arguments and lives as long as the most constant one lets it.
Shared_instance find_instance(sqlite3_context *context, int argc) {
  for (int i = 0; i < argc; ++i) {
    if (const void *const kept = sqlite3_get_auxdata(context, i)) {
      return *static_cast<const Shared_instance *>(kept);
    }
  }
  return nullptr;
}

void keep_instance(sqlite3_context *context, int argc, const Shared_instance &instance) {
  for (int i = 0; i < argc; ++i) {
    sqlite3_set_auxdata(context, i, new Shared_instance{instance},
                        [](void *kept) { delete static_cast<Shared_instance *>(kept); });
  }
}

void give_string(sqlite3_context *context, const Sql_traits &traits, Function_instance &instance,
                 const std::vector<Argument> &arguments) {
  const auto row = instance.string_row(arguments);
  if (row.error) {
    const std::string text = instance.name() + " failed";
    sqlite3_result_error(context, text.c_str(), -1);
  } else if (row.is_null) {
    sqlite3_result_null(context);
  } else if (traits.gives_text) {
    sqlite3_result_text64(context, row.value.data(), row.value.size(), copy_now(), SQLITE_UTF8);
  } else {
    sqlite3_result_blob64(context, row.value.data(), row.value.size(), copy_now());
  }
}

void give_integer(sqlite3_context *context, Function_instance &instance,
                  const std::vector<Argument> &arguments) {
  const auto row = instance.integer_row(arguments);
  if (row.error) {
    const std::string text = instance.name() + " failed";
    sqlite3_result_error(context, text.c_str(), -1);
  } else if (row.is_null) {
    sqlite3_result_null(context);
  } else {
    sqlite3_result_int64(context, row.value);
  }
}

// One row. A row whose arguments have other types than the call site's instance gets an instance
// for itself.
void call(sqlite3_context *context, int argc, sqlite3_value **argv) {
  const auto &function = *static_cast<const Sql_function *>(sqlite3_user_data(context));
  const std::vector<Argument> arguments = make_arguments(function.traits, argc, argv);

  const Shared_instance kept = find_instance(context, argc);
  Shared_instance instance = kept;
  if (instance == nullptr || !instance->accepts(arguments)) {
    std::vector<Item_result> types;
    std::ranges::transform(arguments, std::back_inserter(types), &Argument::type);
    auto opened = dovrin_host::Server::instance().open_function(function.name, types);
    if (!opened.ok()) {
      const std::string text = opened.message();
      sqlite3_result_error(context, text.c_str(), -1);
      return;
    }
    instance = std::move(opened).value();
  }

  if (instance->result_type() == INT_RESULT) {
    give_integer(context, *instance, arguments);
  } else {
    give_string(context, function.traits, *instance, arguments);
  }
  if (kept == nullptr) {
    keep_instance(context, argc, instance);
  }
}

// What SQLite calls.
void call_guarded(sqlite3_context *context, int argc, sqlite3_value **argv) {
  const auto action = [&] {
    call(context, argc, argv);
    return SQLITE_OK;
  };
  const auto on_error = [&](const char *text) { sqlite3_result_error(context, text, -1); };
  if (without_exceptions(action, on_error) == SQLITE_NOMEM) {
    sqlite3_result_error_nomem(context);
  }
}

int create_sql_function(sqlite3 *database, const std::string &name) {
  const Sql_traits &traits = traits_of(name);
  const int flags = SQLITE_UTF8 | (traits.is_deterministic ? SQLITE_DETERMINISTIC : 0);
  auto function = std::make_unique<Sql_function>(Sql_function{name, traits});
  // SQLite calls the last argument in any case, also when it refuses the function.
  return sqlite3_create_function_v2(
      database, name.c_str(), -1, flags, function.release(), call_guarded, nullptr, nullptr,
      [](void *registered) { delete static_cast<Sql_function *>(registered); });
}

}  // namespace

int create_sql_functions(sqlite3 *database) {
  for (const auto &function : dovrin_host::Server::instance().functions().list()) {
    const int created = create_sql_function(database, function.name);
    if (created != SQLITE_OK) {
      return created;
    }
  }
  return SQLITE_OK;
}

}  // namespace halvex_sqlite
