// Which component a registration belongs to.

#ifndef DOVRIN_HOST_OWNER_H
#define DOVRIN_HOST_OWNER_H

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace dovrin_host {

// Stands for one installed component; null for whoever is none.
using Owner = const void *;

// The services carry no context, so the thread that runs a component's entry says whose it is.
Owner current_owner() noexcept;

// Makes `owner` the calling thread's current one while it lives.
class Owner_scope {
 public:
  explicit Owner_scope(Owner owner) noexcept;
  Owner_scope(const Owner_scope &) = delete;
  Owner_scope &operator=(const Owner_scope &) = delete;
  ~Owner_scope();

 private:
  const Owner previous_;
};

// Named things with owners. A thing of a component is hidden until its owner is shown: while a
// component comes or goes, nobody else may use what it registered. The caller synchronises.
template <typename Entry>
class Owned_entries {
 public:
  // False if the name is taken. An entry of nobody is shown at once.
  bool add(std::string name, Owner owner, std::shared_ptr<Entry> entry) {
    return slots_.try_emplace(std::move(name), Slot{owner, owner == nullptr, std::move(entry)})
        .second;
  }

  // Null if there is none, or if it is hidden.
  std::shared_ptr<Entry> find_shown(std::string_view name) const {
    const auto found = slots_.find(name);
    return found != slots_.end() && found->second.shown ? found->second.entry : nullptr;
  }

  // Null if there is none.
  std::shared_ptr<Entry> find(std::string_view name) const {
    const auto found = slots_.find(name);
    return found != slots_.end() ? found->second.entry : nullptr;
  }

  void erase(std::string_view name) {
    const auto found = slots_.find(name);
    if (found != slots_.end()) {
      slots_.erase(found);
    }
  }

  void erase_all(Owner owner) {
    std::erase_if(slots_, [&](const auto &slot) { return slot.second.owner == owner; });
  }

  void set_shown(Owner owner, bool shown) {
    for (auto &[name, slot] : slots_) {
      if (slot.owner == owner) {
        slot.shown = shown;
      }
    }
  }

  // Calls visit(entry) for all entries of one owner.
  template <typename Visitor>
  void for_each_of(Owner owner, Visitor visit) const {
    for (const auto &[name, slot] : slots_) {
      if (slot.owner == owner) {
        visit(*slot.entry);
      }
    }
  }

  // Calls visit(entry) for all shown entries, in the order of their names.
  template <typename Visitor>
  void for_each_shown(Visitor visit) const {
    for (const auto &[name, slot] : slots_) {
      if (slot.shown) {
        visit(*slot.entry);
      }
    }
  }

 private:
  struct Slot {
    Owner owner;
    bool shown;
    std::shared_ptr<Entry> entry;
  };

  std::map<std::string, Slot, std::less<>> slots_;
};

}  // namespace dovrin_host

#endif  // DOVRIN_HOST_OWNER_H
