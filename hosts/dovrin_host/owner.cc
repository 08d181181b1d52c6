#include "dovrin_host/owner.h"

namespace dovrin_host {
namespace {

thread_local Owner owner_of_this_thread = nullptr;

}  // namespace

Owner current_owner() noexcept { return owner_of_this_thread; }

Owner_scope::Owner_scope(Owner owner) noexcept : previous_{owner_of_this_thread} {
  owner_of_this_thread = owner;
}

Owner_scope::~Owner_scope() { owner_of_this_thread = previous_; }

}  // namespace dovrin_host
