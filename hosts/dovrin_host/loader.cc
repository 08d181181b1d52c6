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

bool is_elf(const Elf64_Ehdr &header) { return std::memcmp(header.e_ident, ELFMAG, SELFMAG) == 0; }

bool is_64_bit_elf(const Elf64_Ehdr &header) {
  return is_elf(header) && header.e_ident[EI_CLASS] == ELFCLASS64;
}

bool lies_within(std::uint64_t offset, std::uint64_t length, std::uint64_t size) {
  return offset <= size && length <= size - offset;
}

// True if the file ends before the end that its own headers state, as after an interrupted copy:
// the dynamic loader maps what is not there, and the process dies of SIGBUS. False for a file that
// cannot be read or is no 64-bit ELF file; about those the loader reports.
bool is_truncated(const std::string &path) {
  std::ifstream file{path, std::ios::binary | std::ios::ate};
  // A file that cannot be opened has no header either.
  const auto size = static_cast<std::uint64_t>(std::streamoff{file.tellg()});
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

Status cannot_be_loaded(const std::string &path, const std::string &reason) {
  return Status::failure("The component file '" + path + "' cannot be loaded: " + reason + ".");
}

// True if the file is an ELF file for another kind of processor than this library, about which the
// dynamic loader reports that there is no such file. The field lies at the same place in ELF files
// of 32 and 64 bits.
bool is_for_another_processor(const std::string &path) {
  Dl_info own_object{};
  if (dladdr(&registry_table, &own_object) == 0) {
    return false;
  }
  std::ifstream file{path, std::ios::binary};
  const auto header = read_at<Elf64_Ehdr>(file, 0);
  return header && is_elf(*header) &&
         header->e_machine != static_cast<const Elf64_Ehdr *>(own_object.dli_fbase)->e_machine;
}

// Fails if the dynamic loader would hang, end the process or give a wrong reason at this file.
Status check_file(const std::string &path) {
  std::error_code error;
  const std::filesystem::file_status status = std::filesystem::status(path, error);
  if (status.type() == std::filesystem::file_type::not_found) {
    return Status::failure("There is no component file '" + path + "'.");
  }
  if (!std::filesystem::status_known(status)) {
    return cannot_be_loaded(path, error.message());
  }
  if (!std::filesystem::is_regular_file(status)) {
    return cannot_be_loaded(path, "it is no regular file");
  }
  if (is_for_another_processor(path)) {
    return cannot_be_loaded(path, "it is built for another processor");
  }
  return is_truncated(path) ? cannot_be_loaded(path, "it is truncated") : Status{};
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
  if (chosen != nullptr && *chosen != '\0') {
    return chosen;
  }
  return (folder / "component_halvex_encryption.so").string();
}

void Close_object::operator()(void *object) const noexcept { dlclose(object); }

Result<std::unique_ptr<Loaded_component>> Loaded_component::open(const std::string &path) {
  const Status usable = check_file(path);
  if (!usable.ok()) {
    return usable;
  }
  Object_ptr object{dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)};
  if (!object) {
    return cannot_be_loaded(path, last_loader_error());
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
                                              "states the reason.");
}

Status Loaded_component::deinit() {
  return descriptor_.deinit() == 0 ? Status{}
                                   : failure_of(name_,
                                                "refused to stop: its deinit failed. The error log "
                                                "states the reason.");
}

void Loaded_component::release_services() noexcept {
  for (void *const handle : acquired_) {
    registry_table.release(handle);
  }
  acquired_.clear();
}

void keep_this_library_loaded() noexcept {
  Dl_info info{};
  static_cast<void>(dladdr(&registry_table, &info));
  // Closing the handle again leaves the object in memory; the program itself is always there.
  const Object_ptr self{dlopen(info.dli_fname, RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE)};
}

}  // namespace dovrin_host
