#include "sqlite/sql_functions.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "dovrin_host/functions.h"
#include "dovrin_host/server.h"

namespace halvex_sqlite {

namespace {

using dovrin_host::Argument;
using dovrin_host::Argument_kind;
using dovrin_host::Function_description;
using dovrin_host::Function_instance;
using dovrin_host::Result_kind;
using dovrin_host::Row_result;

using Shared_instance = std::shared_ptr<Function_instance>;

// User data of a function of a connection. A connection computes one row at a time.
struct Sql_function {
  std::string name;
  const Function_description &description;
  std::vector<Argument> arguments{};    // of the current row; kept for its memory
  Shared_instance of_all_call_sites{};  // null before the first row, and unless shares_instance()
};

// The bytes of a BLOB. Out of memory, there are none, and SQLite fails the statement.
std::string_view blob_bytes(sqlite3_value *value) {
  const auto *const bytes = static_cast<const char *>(sqlite3_value_blob(value));
  return bytes != nullptr
             ? std::string_view{bytes, static_cast<std::size_t>(sqlite3_value_bytes(value))}
             : std::string_view{""};
}

// The integer that a REAL holds; nullopt if it holds none of 64 bits.
std::optional<long long> integer_in(double real) {
  constexpr double limit = 0x1p63;
  const bool whole = real >= -limit && real < limit && std::trunc(real) == real;
  return whole ? std::optional{static_cast<long long>(real)} : std::nullopt;
}

// Some languages have no other numbers than REALs. Like an INTEGER column, an integer argument
// accepts those that lose nothing.
Argument make_number(Item_result expected, double real) {
  const std::optional<long long> integer = integer_in(real);
  if (expected == INT_RESULT && integer) {
    return Argument::integer(*integer);
  }
  return Argument::real(real);
}

// An SQL NULL has no type here: it takes the one that the function expects, so that the function's
// own NULL rule answers.
Argument make_argument(Item_result expected, sqlite3_value *value) {
  switch (sqlite3_value_type(value)) {
    case SQLITE_INTEGER:
      return Argument::integer(sqlite3_value_int64(value));
    case SQLITE_FLOAT:
      return make_number(expected, sqlite3_value_double(value));
    case SQLITE_TEXT:
      return Argument::terminated_string(text_bytes(value));
    case SQLITE_BLOB:
      return Argument::string(blob_bytes(value));
    default:
      return Argument::null(expected);
  }
}

void read_arguments(Sql_function &function, int argc, sqlite3_value **argv) {
  function.arguments.clear();
  for (int i = 0; i < argc; ++i) {
    const auto position = static_cast<std::size_t>(i);
    function.arguments.push_back(
        make_argument(function.description.expected_type_at(position), argv[i]));
  }
}

// Whether all call sites of a connection use one instance, from statement to statement. That is
// for a function whose instance costs as much as its row; the buffers of one that has no key never
// hold what has to be wiped when a statement ends.
bool shares_instance(const Function_description &description) {
  return description.is_deterministic && !description.has(Argument_kind::key);
}

// SQLite keeps auxiliary data with an argument of a call site as long as the argument stays the
// same, and may drop it at any time. So all arguments of a call site share the ownership of its
// instance, which lives as long as the most constant one.
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

void give_result(sqlite3_context *context, Result_kind kind, const Row_result &row) {
  switch (row.kind) {
    case Row_result::Kind::null:
      sqlite3_result_null(context);
      break;
    case Row_result::Kind::integer:
      sqlite3_result_int64(context, row.integer);
      break;
    case Row_result::Kind::error:
      fail_call(context, row.text);
      break;
    case Row_result::Kind::string:
      if (kind == Result_kind::text) {
        sqlite3_result_text64(context, row.text.data(), row.text.size(), copy_now(), SQLITE_UTF8);
      } else {
        sqlite3_result_blob64(context, row.text.data(), row.text.size(), copy_now());
      }
      break;
  }
}

// A new instance for the types of the current row; null after it has failed the call.
Shared_instance open_instance(sqlite3_context *context, const Sql_function &function) {
  std::vector<Item_result> types;
  std::ranges::transform(function.arguments, std::back_inserter(types), &Argument::type);
  auto opened = dovrin_host::Server::instance().open_function(function.name, types);
  if (!opened.ok()) {
    fail_call(context, opened.message());
    return nullptr;
  }
  return std::move(opened).value();
}

// One row of a function whose call sites share an instance, until arguments of other types come.
void call_shared(sqlite3_context *context, Sql_function &function) {
  Shared_instance &instance = function.of_all_call_sites;
  if (instance == nullptr || !instance->accepts(function.arguments)) {
    instance = open_instance(context, function);
  }
  if (instance != nullptr) {
    give_result(context, function.description.result, instance->row(function.arguments));
  }
}

// One row of any other function. A row whose arguments have other types than the call site's
// instance gets an instance for itself.
void call_at_site(sqlite3_context *context, const Sql_function &function) {
  const int argc = static_cast<int>(function.arguments.size());
  const Shared_instance kept = find_instance(context, argc);
  Shared_instance instance = kept;
  if (instance == nullptr || !instance->accepts(function.arguments)) {
    instance = open_instance(context, function);
    if (instance == nullptr) {
      return;
    }
  }

  give_result(context, function.description.result, instance->row(function.arguments));
  if (kept == nullptr) {
    keep_instance(context, argc, instance);
  }
}

void call(sqlite3_context *context, int argc, sqlite3_value **argv) {
  auto &function = *static_cast<Sql_function *>(sqlite3_user_data(context));
  read_arguments(function, argc, argv);
  if (shares_instance(function.description)) {
    call_shared(context, function);
  } else {
    call_at_site(context, function);
  }
}

// The entry point for SQLite: no exception passes.
void call_guarded(sqlite3_context *context, int argc, sqlite3_value **argv) {
  const auto action = [&] {
    call(context, argc, argv);
    return SQLITE_OK;
  };
  const auto on_error = [&](const char *text) { fail_call(context, text); };
  if (without_exceptions(action, on_error) == SQLITE_NOMEM) {
    sqlite3_result_error_nomem(context);
  }
}

// The flag for the use of the function in the schema of a database, whose author can be anybody.
int schema_flag(const Function_description &description) {
  if (description.has(Argument_kind::length_in_bits)) {
    return SQLITE_DIRECTONLY;  // creating a key can take minutes
  }
  const bool harmless = description.is_deterministic && !description.has(Argument_kind::key);
  return harmless ? SQLITE_INNOCUOUS : 0;
}

int create_sql_function(sqlite3 *database, const std::string &name, int arity) {
  const Function_description &description = dovrin_host::describe_function(name);
  const int flags = SQLITE_UTF8 | (description.is_deterministic ? SQLITE_DETERMINISTIC : 0) |
                    schema_flag(description);
  auto function = std::make_unique<Sql_function>(Sql_function{name, description});
  // SQLite calls the last argument in any case, also when it rejects the function.
  return sqlite3_create_function_v2(
      database, name.c_str(), arity, flags, function.release(), call_guarded, nullptr, nullptr,
      [](void *registered) { delete static_cast<Sql_function *>(registered); });
}

// For any number of arguments, so that the component rejects a wrong one in its own words, and for
// the right number, which makes it visible in pragma_function_list.
int create_sql_function(sqlite3 *database, const std::string &name) {
  const std::size_t arity = dovrin_host::describe_function(name).arguments.size();
  const int created = create_sql_function(database, name, -1);
  return created != SQLITE_OK || arity == 0
             ? created
             : create_sql_function(database, name, static_cast<int>(arity));
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
