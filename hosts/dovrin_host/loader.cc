#include "dovrin_host/loader.h"

#include <dlfcn.h>
#include <elf.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <system_error>

#include "dovrin_host/services.h"

namespace dovrin_host {
namespace {

// Reads a header at an offset; nothing if the file does not hold all of it.
template <typename Header>
std::optional<Header> read_at(std::ifstream &file, std::uint64_t offset) {
  Header header{};
  file.seekg(static_cast<std::streamoff>(offset));
  file.read(reinterpret_cast<char *>(&header), sizeof header);
  return file ? std::optional{header} : std::nullopt;
}

bool is_64_bit_elf(const Elf64_Ehdr &header) {
  return std::memcmp(header.e_ident, ELFMAG, SELFMAG) == 0 &&
         header.e_ident[EI_CLASS] == ELFCLASS64;
}

bool lies_within(std::uint64_t offset, std::uint64_t length, std::uint64_t size) {
  return offset <= size && length <= size - offset;
}

constexpr const char *entry_symbol = "list_components";

std::string last_loader_error() {
  const char *const text = dlerror();
  return text != nullptr ? text : "no reason given";
}

bool is_complete(const Dovrin_component *descriptor) {
  return descriptor != nullptr && descriptor->name != nullptr && descriptor->init != nullptr &&
         descriptor->deinit != nullptr;
}

Status failure_of(const std::string &name, const char *what) {
  return Status::failure("The component '" + name + "' " + what);
}

}  // namespace

std::string find_component_file() {
  // Resolved at the first call: a path that was relative when the adapter was loaded depends on the
  // current folder.
  static const std::filesystem::path folder = [] {
    Dl_info adapter{};
    static_cast<void>(dladdr(&registry_table, &adapter));
    const std::filesystem::path file = adapter.dli_fname != nullptr ? adapter.dli_fname : "";
    std::error_code error;
    const std::filesystem::path resolved = std::filesystem::canonical(file, error);
    return (error ? file : resolved).parent_path();
  }();
  // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing here changes the environment
  const char *const chosen = secure_getenv("HALVEX_COMPONENT");
  return chosen != nullptr && *chosen != '\0'
             ? chosen
             : (folder / "component_halvex_encryption.so").string();
}

bool is_truncated(const std::string &path) {
  std::ifstream file{path, std::ios::binary | std::ios::ate};
  const auto end = file.tellg();
  if (!file || end < 0) {
    return false;
  }
  const auto size = static_cast<std::uint64_t>(end);
  const auto header = read_at<Elf64_Ehdr>(file, 0);
  if (!header || !is_64_bit_elf(*header)) {
    return false;
  }

  // The table of sections usually ends the file.
  if (!lies_within(header->e_shoff, std::uint64_t{header->e_shnum} * sizeof(Elf64_Shdr), size)) {
    return true;
  }
  for (std::uint64_t i = 0; i < header->e_phnum; ++i) {
    const auto segment = read_at<Elf64_Phdr>(file, header->e_phoff + i * sizeof(Elf64_Phdr));
    if (!segment || !lies_within(segment->p_offset, segment->p_filesz, size)) {
      return true;
    }
  }
  return false;
}

void Close_object::operator()(void *object) const noexcept { dlclose(object); }

Result<std::unique_ptr<Loaded_component>> Loaded_component::open(const std::string &path) {
  std::error_code error;
  if (!std::filesystem::exists(path, error)) {
    return Status::failure("There is no component file '" + path + "'.");
  }
  if (is_truncated(path)) {
    return Status::failure("The component file '" + path + "' cannot be loaded: it is truncated.");
  }
  Object_ptr object{dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)};
  if (!object) {
    return Status::failure("The component file '" + path +
                           "' cannot be loaded: " + last_loader_error() + ".");
  }
  void *const symbol = dlsym(object.get(), entry_symbol);
  if (symbol == nullptr) {
    return Status::failure("The file '" + path + "' is no component: it has no symbol '" +
                           entry_symbol + "'.");
  }
  const Dovrin_component *const descriptor = reinterpret_cast<Dovrin_list_components>(symbol)();
  if (!is_complete(descriptor)) {
    return Status::failure("The file '" + path +
                           "' is no component: its descriptor lacks a name, an init or a deinit.");
  }
  return std::unique_ptr<Loaded_component>{
      new Loaded_component{path, std::move(object), *descriptor}};
}

Loaded_component::Loaded_component(std::string path, Object_ptr object,
                                   const Dovrin_component &descriptor)
    : path_{std::move(path)},
      object_{std::move(object)},
      descriptor_{descriptor},
      name_{descriptor.name} {}

Loaded_component::~Loaded_component() { release_services(); }

Status Loaded_component::connect() {
  const Dovrin_required_service *const required = descriptor_.required_services;
  if (required == nullptr) {
    return {};
  }
  for (const auto *service = required; service->name != nullptr; ++service) {
    const void *const present = *service->slot;
    if (present != nullptr && !is_own_handle(present)) {
      return failure_of(name_, "is in use by another server in this process.");
    }
  }
  for (const auto *service = required; service->name != nullptr; ++service) {
    acquired_.reserve(acquired_.size() + 1);
    void *handle = nullptr;
    if (registry_table.acquire(service->name, &handle) != 0) {
      release_services();
      return Status::failure("The component '" + name_ + "' requires the service '" +
                             service->name + "', which this server does not have.");
    }
    acquired_.push_back(handle);
  }
  for (std::size_t i = 0; i < acquired_.size(); ++i) {
    *required[i].slot = acquired_[i];
  }
  return {};
}

Status Loaded_component::init() {
  return descriptor_.init() == 0 ? Status{}
                                 : failure_of(name_,
                                              "refused to start: its init failed. The error log "
                                              "says why.");
}

Status Loaded_component::deinit() {
  return descriptor_.deinit() == 0 ? Status{}
                                   : failure_of(name_,
                                                "refused to stop: its deinit failed. The error log "
                                                "says why.");
}

void Loaded_component::release_services() noexcept {
  for (void *const handle : acquired_) {
    registry_table.release(handle);
  }
  acquired_.clear();
}

void keep_this_library_loaded() noexcept {
  Dl_info info{};
  if (dladdr(&registry_table, &info) != 0 && info.dli_fname != nullptr) {
    // Closing the handle again leaves the object in memory; the program itself is always there.
    const Object_ptr self{dlopen(info.dli_fname, RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE)};
  }
}

}  // namespace dovrin_host
