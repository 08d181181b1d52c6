// What components have registered, by name and by component.

#ifndef DOVRIN_HOST_REGISTRATIONS_H
#define DOVRIN_HOST_REGISTRATIONS_H

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace dovrin_host {

// Identifies an installed component; null for code that belongs to none.
using Owner = const void *;

// Makes `owner` the calling thread's current one while it lives. The services carry no context, so
// the server wraps a component's init and deinit in one of these.
class Owner_scope {
 public:
  explicit Owner_scope(Owner owner) noexcept : previous_{std::exchange(current_, owner)} {}
  Owner_scope(const Owner_scope &) = delete;
  Owner_scope &operator=(const Owner_scope &) = delete;
  ~Owner_scope() { current_ = previous_; }

  // The calling thread's current owner; null outside of every scope.
  static Owner current() noexcept { return current_; }

 private:
  static inline thread_local Owner current_ = nullptr;

  const Owner previous_;
};

// Registrations by name, which is compared byte by byte. A component's entries stay unpublished
// until publish(component): nobody else may use what it registers while it starts or stops. The
// caller synchronises.
template <typename Entry>
class Registrations {
 public:
  // False if the name is taken. An entry without owner is published at once.
  bool add(std::string name, Owner owner, std::shared_ptr<Entry> entry) {
    return slots_.try_emplace(std::move(name), Slot{owner, owner == nullptr, std::move(entry)})
        .second;
  }

  // Null if there is none, or if it is unpublished.
  std::shared_ptr<Entry> find_published(std::string_view name) const {
    const auto found = slots_.find(name);
    if (found == slots_.end() || !found->second.published) {
      return nullptr;
    }
    return found->second.entry;
  }

  // Null if there is none.
  std::shared_ptr<Entry> find(std::string_view name) const {
    const auto found = slots_.find(name);
    return found != slots_.end() ? found->second.entry : nullptr;
  }

  // The owner of the entry; null if there is no entry.
  Owner owner_of(std::string_view name) const {
    const auto found = slots_.find(name);
    return found != slots_.end() ? found->second.owner : nullptr;
  }

  // Unpublishes one entry.
  void unpublish(std::string_view name) {
    const auto found = slots_.find(name);
    if (found != slots_.end()) {
      found->second.published = false;
    }
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

  void publish(Owner owner) { set_published(owner, true); }
  void unpublish(Owner owner) { set_published(owner, false); }

  // Calls visit(entry) for all entries of one owner.
  template <typename Visitor>
  void for_each_of(Owner owner, Visitor visit) const {
    for (const auto &[name, slot] : slots_) {
      if (slot.owner == owner) {
        visit(*slot.entry);
      }
    }
  }

  // Calls visit(entry) for all published entries, in the order of their names.
  template <typename Visitor>
  void for_each_published(Visitor visit) const {
    for (const auto &[name, slot] : slots_) {
      if (slot.published) {
        visit(*slot.entry);
      }
    }
  }

 private:
  struct Slot {
    Owner owner;
    bool published;
    std::shared_ptr<Entry> entry;
  };

  void set_published(Owner owner, bool published) {
    for (auto &[name, slot] : slots_) {
      if (slot.owner == owner) {
        slot.published = published;
      }
    }
  }

  std::map<std::string, Slot, std::less<>> slots_;
};

}  // namespace dovrin_host

#endif  // DOVRIN_HOST_REGISTRATIONS_H
