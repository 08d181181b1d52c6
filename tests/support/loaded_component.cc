#include "support/loaded_component.h"

#include <dlfcn.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "support/fake_server.h"

namespace halvex_test {
namespace {

[[noreturn]] void abort_with_dlerror() {
  static_cast<void>(std::fprintf(stderr, "Loaded_component: %s\n", dlerror()));
  std::abort();
}

}  // namespace

const char *component_path() { return HALVEX_COMPONENT_PATH; }

bool component_is_mapped() {
  std::FILE *maps = std::fopen("/proc/self/maps", "re");
  if (maps == nullptr) {
    return true;
  }
  bool found = false;
  std::array<char, 4352> line{};
  while (!found && std::fgets(line.data(), line.size(), maps) != nullptr) {
    found = std::strstr(line.data(), "component_halvex_encryption.so") != nullptr;
  }
  static_cast<void>(std::fclose(maps));
  return found;
}

Loaded_component::Loaded_component() : handle_(dlopen(component_path(), RTLD_NOW)) {
  if (handle_ == nullptr) {
    abort_with_dlerror();
  }
  void *entry = dlsym(handle_, "list_components");
  if (entry == nullptr) {
    abort_with_dlerror();
  }
  list_components_ = reinterpret_cast<Dovrin_list_components>(entry);
  descriptor_ = list_components_();
  fill_slots(*descriptor_);
}

Loaded_component::~Loaded_component() {
  if (deinit_is_due_) {
    deinit();
  }
  unload();
}

int Loaded_component::init() {
  const int status = descriptor_->init();
  deinit_is_due_ = status == 0;
  return status;
}

int Loaded_component::deinit() {
  deinit_is_due_ = false;
  return descriptor_->deinit();
}

void Loaded_component::unload() {
  deinit_is_due_ = false;
  if (handle_ == nullptr) {
    return;
  }
  if (dlclose(handle_) != 0) {
    abort_with_dlerror();
  }
  handle_ = nullptr;
}

}  // namespace halvex_test
