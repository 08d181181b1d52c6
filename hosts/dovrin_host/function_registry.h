// The loadable functions that components have registered.

#ifndef DOVRIN_HOST_FUNCTION_REGISTRY_H
#define DOVRIN_HOST_FUNCTION_REGISTRY_H

#include <atomic>
#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "dovrin/udf.h"
#include "dovrin_host/owner.h"

namespace dovrin_host {

// One loadable function as it was registered.
struct Function_definition {
  std::string name;
  Item_result result_type = STRING_RESULT;
  Udf_func_any row = nullptr;
  Udf_func_init init = nullptr;      // may be null
  Udf_func_deinit deinit = nullptr;  // may be null
};

// A function in the registry, with the number of its open instances.
struct Registered_function {
  Function_definition definition;
  std::atomic<std::size_t> open_instances{0};
};

// Keeps a function, and so its component, from being withdrawn. Movable; empty when the function is
// unknown.
class Function_use {
 public:
  Function_use() = default;
  explicit Function_use(std::shared_ptr<Registered_function> function) noexcept;
  Function_use(Function_use &&other) noexcept = default;
  Function_use &operator=(Function_use &&other) noexcept;
  ~Function_use();

  explicit operator bool() const { return function_ != nullptr; }

  // Only if not empty.
  const Function_definition &definition() const { return function_->definition; }

 private:
  void release() noexcept;

  std::shared_ptr<Registered_function> function_;
};

// What an adapter can ask about a function.
struct Function_info {
  std::string name;
  Item_result result_type = STRING_RESULT;
  std::size_t open_instances = 0;

  bool operator==(const Function_info &) const = default;
};

// Any thread may call anything at any time; no component code runs inside.
class Function_registry {
 public:
  enum class Removal { removed, unknown, in_use };

  // False if the name is taken, the definition lacks a name or a row callback, or the result is
  // neither a string nor an integer. A function with an owner can be used once the owner is shown.
  bool add(Function_definition definition, Owner owner);

  // Refused while instances are open.
  Removal remove(std::string_view name);

  // Takes a use of the function; empty if nobody may use one of that name.
  Function_use use(std::string_view name);

  // The functions that can be used, in the order of their names.
  std::vector<Function_info> list() const;

  // Lets everybody use what `owner` registered.
  void show(Owner owner);

  // Lets nobody open a further instance of the owner's functions. If some are open it changes
  // nothing. Returns the number of open instances.
  std::size_t hide_unless_open(Owner owner);

  // Open instances of the owner's functions.
  std::size_t open_instances(Owner owner) const;

  // Forgets whatever `owner` left behind.
  void drop(Owner owner);

 private:
  std::size_t count_open(Owner owner) const;

  mutable std::mutex mutex_;  // guards the entries; uses are counted without it once they are taken
  Owned_entries<Registered_function> functions_;
};

}  // namespace dovrin_host

#endif  // DOVRIN_HOST_FUNCTION_REGISTRY_H
