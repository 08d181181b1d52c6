#include "dovrin_host/function_registry.h"

#include <utility>

namespace dovrin_host {

Function_use::Function_use(std::shared_ptr<Registered_function> function) noexcept
    : function_{std::move(function)} {
  if (function_) {
    ++function_->open_instances;
  }
}

Function_use &Function_use::operator=(Function_use &&other) noexcept {
  if (this != &other) {
    release();
    function_ = std::move(other.function_);
  }
  return *this;
}

Function_use::~Function_use() { release(); }

void Function_use::release() noexcept {
  if (function_) {
    --function_->open_instances;
    function_.reset();
  }
}

bool Function_registry::add(Function_definition definition, Owner owner) {
  const bool known_shape =
      definition.result_type == STRING_RESULT || definition.result_type == INT_RESULT;
  if (definition.name.empty() || definition.row == nullptr || !known_shape) {
    return false;
  }
  auto function = std::make_shared<Registered_function>();
  function->definition = std::move(definition);

  const std::lock_guard lock{mutex_};
  std::string name = function->definition.name;
  return functions_.add(std::move(name), owner, std::move(function));
}

Function_registry::Removal Function_registry::remove(std::string_view name) {
  const std::lock_guard lock{mutex_};
  const std::shared_ptr<Registered_function> function = functions_.find(name);
  if (!function) {
    return Removal::unknown;
  }
  if (function->open_instances > 0) {
    return Removal::in_use;
  }
  functions_.erase(name);
  return Removal::removed;
}

Function_use Function_registry::use(std::string_view name) {
  const std::lock_guard lock{mutex_};
  return Function_use{functions_.find_shown(name)};
}

std::vector<Function_info> Function_registry::list() const {
  const std::lock_guard lock{mutex_};
  std::vector<Function_info> functions;
  functions_.for_each_shown([&](const Registered_function &function) {
    functions.push_back(
        {function.definition.name, function.definition.result_type, function.open_instances});
  });
  return functions;
}

void Function_registry::show(Owner owner) {
  const std::lock_guard lock{mutex_};
  functions_.set_shown(owner, true);
}

std::size_t Function_registry::hide_unless_open(Owner owner) {
  const std::lock_guard lock{mutex_};
  const std::size_t open = count_open(owner);
  if (open == 0) {
    functions_.set_shown(owner, false);
  }
  return open;
}

std::size_t Function_registry::open_instances(Owner owner) const {
  const std::lock_guard lock{mutex_};
  return count_open(owner);
}

void Function_registry::drop(Owner owner) {
  const std::lock_guard lock{mutex_};
  functions_.erase_all(owner);
}

std::size_t Function_registry::count_open(Owner owner) const {
  std::size_t open = 0;
  functions_.for_each_of(
      owner, [&](const Registered_function &function) { open += function.open_instances; });
  return open;
}

}  // namespace dovrin_host
