#include "dovrin_host/server.h"

#include <dlfcn.h>
#include <elf.h>
#include <gtest/gtest.h>
#include <openssl/ui.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "dovrin/component.h"
#include "dovrin_host/services.h"
#include "printers.h"
#include "support/temporary_folder.h"

namespace dovrin_host {
namespace {

// The file of a test component.
std::string file_of(const char *component) {
  return std::string{TEST_COMPONENTS_FOLDER} + "/" + component + ".so";
}

// Replaces a part of a file.
template <typename Field>
void overwrite(const std::string &path, std::size_t offset, const Field &field) {
  std::fstream file{path, std::ios::in | std::ios::out | std::ios::binary};
  file.seekp(static_cast<std::streamoff>(offset));
  file.write(reinterpret_cast<const char *>(&field), sizeof field);
}

Elf64_Ehdr header_of(const std::string &path) {
  Elf64_Ehdr header{};
  std::ifstream{path, std::ios::binary}.read(reinterpret_cast<char *>(&header), sizeof header);
  return header;
}

bool is_in_memory(const std::string &path) {
  void *const object = dlopen(path.c_str(), RTLD_NOW | RTLD_NOLOAD);
  if (object != nullptr) {
    dlclose(object);
  }
  return object != nullptr;
}

Server &server() { return Server::instance(); }

// Each test finds and leaves a server without components.
class ServerComponents : public testing::Test {
 protected:
  ServerComponents() { expect_nothing_installed(); }
  ~ServerComponents() override { expect_nothing_installed(); }

  static void expect_nothing_installed() {
    EXPECT_TRUE(server().components().empty());
    EXPECT_TRUE(server().functions().list().empty());
    EXPECT_TRUE(server().variables().list().empty());
  }

  static void expect_install_fails(const std::string &path, const std::string &message) {
    EXPECT_EQ(server().install(path).message(), message);
    expect_nothing_installed();
    EXPECT_FALSE(is_in_memory(path)) << path;
  }

  static void expect_cannot_be_loaded(const std::string &path, const std::string &reason) {
    expect_install_fails(path, "The component file '" + path + "' cannot be loaded: " + reason);
  }

  static void install(const char *component) {
    const Status installed = server().install(file_of(component));
    ASSERT_TRUE(installed.ok()) << installed.message();
  }

  static void uninstall(const char *name) {
    const Status uninstalled = server().uninstall(name);
    EXPECT_TRUE(uninstalled.ok()) << uninstalled.message();
  }

  static std::unique_ptr<Function_instance> open_value() {
    auto instance = server().open_function("value", {});
    EXPECT_TRUE(instance.ok()) << instance.message();
    return instance.ok() ? std::move(instance).value() : nullptr;
  }
};

constexpr const char *well_behaved = "dovrin::well_behaved";

TEST_F(ServerComponents, InstalledComponentCanBeSeenAndUsed) {
  install("well_behaved");

  const std::vector<Component_info> components = server().components();
  ASSERT_EQ(components.size(), 1U);
  EXPECT_EQ(components[0].name, well_behaved);
  EXPECT_EQ(components[0].path, std::filesystem::canonical(file_of("well_behaved")));
  EXPECT_EQ(components[0].leases, 0U);
  EXPECT_EQ(components[0].open_instances, 0U);
  EXPECT_TRUE(components[0].installed_permanently);

  EXPECT_EQ(open_value()->row({}), integer_result(1));
  EXPECT_TRUE(server().variables().set("well_behaved.size", 8192LL).ok());
  EXPECT_EQ(server().variables().get("well_behaved.size").value(), Variable_value{8192LL});

  uninstall(well_behaved);
  EXPECT_FALSE(is_in_memory(file_of("well_behaved")));
}

TEST_F(ServerComponents, ReinstalledComponentStartsAnew) {
  install("well_behaved");
  EXPECT_TRUE(server().variables().set("well_behaved.size", 8192LL).ok());
  uninstall(well_behaved);
  for (int i = 0; i < 20; ++i) {
    install("well_behaved");
    EXPECT_EQ(server().variables().get("well_behaved.size").value(), Variable_value{4096LL});
    EXPECT_EQ(open_value()->row({}), integer_result(1));
    uninstall(well_behaved);
  }
}

TEST_F(ServerComponents, MissingFileIsNamed) {
  expect_install_fails("/nonexistent/component.so",
                       "There is no component file '/nonexistent/component.so'.");
}

TEST_F(ServerComponents, DamagedFileIsNamed) {
  const std::string path = file_of("damaged");
  std::ofstream{path} << "not an object";
  const Status status = server().install(path);
  EXPECT_EQ(status.message().rfind("The component file '" + path + "' cannot be loaded: ", 0), 0U)
      << status.message();
  std::filesystem::remove(path);
}

TEST_F(ServerComponents, FileWithoutAHeaderIsLeftToTheLoader) {
  const halvex_test::Temporary_folder folder;
  const std::string path = folder / "text.so";
  std::ofstream{path} << std::string(2 * sizeof(Elf64_Ehdr), 'x');
  expect_cannot_be_loaded(path, path + ": invalid ELF header.");
}

// Read as one of 64 bits, this header would have its section table far behind the end.
TEST_F(ServerComponents, FileOf32BitsIsLeftToTheLoader) {
  const halvex_test::Temporary_folder folder;
  const std::string path = folder / "component.so";
  const Elf64_Ehdr own = header_of(file_of("well_behaved"));
  Elf32_Ehdr header{};
  std::copy_n(own.e_ident, EI_NIDENT, header.e_ident);
  header.e_ident[EI_CLASS] = ELFCLASS32;
  header.e_type = own.e_type;
  header.e_machine = own.e_machine;
  header.e_version = own.e_version;
  header.e_ehsize = sizeof header;
  header.e_phentsize = sizeof(Elf32_Phdr);
  header.e_shentsize = sizeof(Elf32_Shdr);
  std::ofstream{path} << std::string(2 * sizeof(Elf64_Ehdr), '\0');
  overwrite(path, 0, header);
  expect_cannot_be_loaded(path, path + ": wrong ELF class: ELFCLASS32.");
}

TEST_F(ServerComponents, FileThatIsTruncatedAnywhereIsNamed) {
  const std::string whole = file_of("well_behaved");
  const std::string path = file_of("truncated");
  const auto size = std::filesystem::file_size(whole);
  for (const auto length : {size - 1, size / 2, size / 4, std::uintmax_t{64}}) {
    std::filesystem::copy_file(whole, path, std::filesystem::copy_options::overwrite_existing);
    std::filesystem::resize_file(path, length);
    expect_cannot_be_loaded(path, "it is truncated.");
  }
  std::filesystem::remove(path);
}

// Programs that shrink objects leave the section table out.
TEST_F(ServerComponents, TruncatedFileWithoutSectionsIsNamed) {
  constexpr std::uintmax_t first_page = 4096;
  const halvex_test::Temporary_folder folder;
  const std::string path = folder / "component.so";
  for (const auto length : {first_page, std::uintmax_t{sizeof(Elf64_Ehdr)}}) {
    std::filesystem::copy_file(file_of("well_behaved"), path,
                               std::filesystem::copy_options::overwrite_existing);
    overwrite(path, offsetof(Elf64_Ehdr, e_shoff), Elf64_Off{0});
    overwrite(path, offsetof(Elf64_Ehdr, e_shnum), Elf64_Half{0});
    std::filesystem::resize_file(path, length);
    expect_cannot_be_loaded(path, "it is truncated.");
  }
}

TEST_F(ServerComponents, FileForAnotherProcessorIsNamed) {
  const halvex_test::Temporary_folder folder;
  const std::string path = folder / "component.so";
  std::filesystem::copy_file(file_of("well_behaved"), path);
  overwrite(path, offsetof(Elf64_Ehdr, e_machine), Elf64_Half{EM_S390});
  expect_cannot_be_loaded(path, "it is built for another processor.");
}

TEST_F(ServerComponents, FifoIsNotWaitedFor) {
  const halvex_test::Temporary_folder folder;
  const std::string path = folder / "fifo";
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  EXPECT_EQ(server().install(path).message(),
            "The component file '" + path + "' cannot be loaded: it is no regular file.");
}

TEST_F(ServerComponents, FolderThatMayNotBeSearchedIsTheReason) {
  constexpr uid_t other_user = 65534;
  const halvex_test::Temporary_folder folder;
  const std::string path = folder / "component.so";
  std::filesystem::copy_file(file_of("well_behaved"), path);
  if (seteuid(other_user) != 0) {
    GTEST_SKIP() << "only root can become another user";
  }
  const Status status = server().install(path);
  ASSERT_EQ(seteuid(0), 0);
  EXPECT_EQ(status.message(),
            "The component file '" + path + "' cannot be loaded: Permission denied.");
}

TEST_F(ServerComponents, FileThatMayNotBeReadIsTheReason) {
  constexpr uid_t other_user = 65534;
  const halvex_test::Temporary_folder folder;
  const std::string path = folder / "component.so";
  std::filesystem::copy_file(file_of("well_behaved"), path);
  ASSERT_EQ(chmod(path.c_str(), 0600), 0);
  ASSERT_EQ(chmod(folder.path().c_str(), 0755), 0);
  if (seteuid(other_user) != 0) {
    GTEST_SKIP() << "only root can become another user";
  }
  const Status status = server().install(path);
  ASSERT_EQ(seteuid(0), 0);
  EXPECT_EQ(status.message(), "The component file '" + path + "' cannot be loaded: " + path +
                                  ": cannot open shared object file: Permission denied.");
}

TEST_F(ServerComponents, ObjectWithoutEntryIsNamed) {
  const std::string path = file_of("no_entry");
  expect_install_fails(
      path, "The file '" + path + "' is no component: it has no symbol 'list_components'.");
}

TEST_F(ServerComponents, IncompleteDescriptorIsRejected) {
  for (const char *const component : {"no_descriptor", "no_name", "no_init", "no_deinit"}) {
    const std::string path = file_of(component);
    expect_install_fails(
        path, "The file '" + path +
                  "' is no component: its descriptor lacks a name, an init or a deinit.");
  }
}

TEST_F(ServerComponents, UnknownServiceIsNamedAndInitDoesNotRun) {
  expect_install_fails(file_of("unknown_service"),
                       "The component 'dovrin::unknown_service' requires the service "
                       "'no_such_service', which this server does not have.");
}

TEST_F(ServerComponents, FailingInitLeavesNothingBehind) {
  for (int i = 0; i < 3; ++i) {
    expect_install_fails(file_of("refusing_init"),
                         "The component 'dovrin::refusing_init' refused to start: its init failed. "
                         "The error log states the reason.");
  }
}

TEST_F(ServerComponents, ThrowingInitLeavesNothingBehind) {
  expect_install_fails(file_of("throwing_init"),
                       "The component 'dovrin::refusing_init' failed with an exception: no room.");
}

TEST_F(ServerComponents, InstallingTwiceIsAnError) {
  install("well_behaved");
  EXPECT_EQ(server().install(file_of("well_behaved")).message(),
            "The component 'dovrin::well_behaved' is already installed.");
  uninstall(well_behaved);
}

TEST_F(ServerComponents, SameNameFromAnotherFileIsAnError) {
  install("well_behaved");
  const std::string first = std::filesystem::canonical(file_of("well_behaved"));
  const std::string second = std::filesystem::canonical(file_of("same_name"));
  EXPECT_EQ(server().install(second).message(), "The component 'dovrin::well_behaved' of '" +
                                                    second + "' is already installed from '" +
                                                    first + "'.");
  EXPECT_EQ(server().acquire(second).message(), "The component 'dovrin::well_behaved' of '" +
                                                    second + "' is already installed from '" +
                                                    first + "'.");
  EXPECT_FALSE(is_in_memory(second));
  EXPECT_EQ(open_value()->row({}), integer_result(1));
  uninstall(well_behaved);
}

TEST_F(ServerComponents, OneFileUnderTwoPathsIsOneComponent) {
  const std::string link = file_of("hard_link");
  std::filesystem::remove(link);
  std::filesystem::create_hard_link(file_of("well_behaved"), link);
  auto first = server().acquire(file_of("well_behaved"));
  auto second = server().acquire(link);
  EXPECT_TRUE(second.ok()) << second.message();
  EXPECT_EQ(server().components()[0].leases, 2U);
  std::filesystem::remove(link);
}

TEST_F(ServerComponents, ComponentWhoseFunctionNameIsTakenIsRejected) {
  install("well_behaved");
  EXPECT_EQ(server().install(file_of("other_name")).message(),
            "The component 'dovrin::other_name' refused to start: its init failed. The error log "
            "states the reason.");
  EXPECT_EQ(open_value()->row({}), integer_result(1));
  EXPECT_EQ(server().variables().list().size(), 2U);
  uninstall(well_behaved);
}

TEST_F(ServerComponents, UninstallingWhatIsNotInstalledIsAnError) {
  EXPECT_EQ(server().uninstall("dovrin::none").message(),
            "The component 'dovrin::none' is not installed.");
}

TEST_F(ServerComponents, OpenInstancesKeepTheComponentInstalledAndUsable) {
  install("well_behaved");
  auto first = open_value();
  auto second = open_value();
  EXPECT_EQ(server().components()[0].open_instances, 2U);
  EXPECT_EQ(server().uninstall(well_behaved).message(),
            "The component 'dovrin::well_behaved' cannot be uninstalled: 2 open function instances "
            "use it.");
  second.reset();
  EXPECT_EQ(server().uninstall(well_behaved).message(),
            "The component 'dovrin::well_behaved' cannot be uninstalled: 1 open function instance "
            "uses it.");
  EXPECT_EQ(first->row({}), integer_result(1));
  EXPECT_EQ(open_value()->row({}), integer_result(1));
  EXPECT_TRUE(server().variables().get("well_behaved.switch").ok());
  first.reset();
  uninstall(well_behaved);
}

TEST_F(ServerComponents, FunctionsOfNoComponentAreNamed) {
  EXPECT_EQ(server().open_function("value", {}).message(),
            "The function 'value' is not installed.");
}

TEST_F(ServerComponents, LastLeaseUninstalls) {
  auto first = server().acquire(file_of("well_behaved"));
  ASSERT_TRUE(first.ok()) << first.message();
  EXPECT_EQ(first.value().name(), well_behaved);
  {
    const auto second = server().acquire(file_of("well_behaved"));
    EXPECT_EQ(server().components()[0].leases, 2U);
  }
  EXPECT_EQ(server().components()[0].leases, 1U);
  EXPECT_FALSE(server().components()[0].installed_permanently);
  first.value().release();
  EXPECT_FALSE(first.value());
  first.value().release();
  EXPECT_FALSE(is_in_memory(file_of("well_behaved")));
}

TEST_F(ServerComponents, MovedLeaseCountsOnce) {
  auto first = server().acquire(file_of("well_behaved"));
  Component_lease second = std::move(first).value();
  Component_lease third;
  third = std::move(second);
  EXPECT_EQ(server().components()[0].leases, 1U);
  EXPECT_TRUE(third);
}

TEST_F(ServerComponents, LeasedComponentIsNotUninstalled) {
  install("well_behaved");
  auto lease = server().acquire(file_of("well_behaved"));
  EXPECT_EQ(server().uninstall(well_behaved).message(),
            "The component 'dovrin::well_behaved' cannot be uninstalled: 1 lease uses it.");
  lease.value().release();
  EXPECT_EQ(server().components().size(), 1U);
  uninstall(well_behaved);
}

TEST_F(ServerComponents, LastLeaseLeavesAComponentInUseInstalled) {
  auto lease = server().acquire(file_of("well_behaved"));
  auto instance = open_value();
  lease.value().release();
  EXPECT_EQ(server().components().size(), 1U);
  EXPECT_EQ(instance->row({}), integer_result(1));
  instance.reset();
  lease = server().acquire(file_of("well_behaved"));
  ASSERT_TRUE(lease.ok());
  lease.value().release();
  EXPECT_TRUE(server().components().empty());
}

TEST_F(ServerComponents, ComponentThatRefusesToStopStaysUsable) {
  install("failing_deinit");
  EXPECT_EQ(
      server().uninstall("dovrin::failing_deinit").message(),
      "The component 'dovrin::failing_deinit' refused to stop: its deinit failed. The error log "
      "states the reason.");
  EXPECT_EQ(server().components().size(), 1U);
  EXPECT_TRUE(server().open_function("failing_deinit", {}).ok());
  uninstall("dovrin::failing_deinit");
}

TEST_F(ServerComponents, DestructorsAtUnloadStillReachTheServer) {
  install("unregisters_at_unload");
  testing::internal::CaptureStderr();
  uninstall("dovrin::unregisters_at_unload");
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "late unregistration: function 0 known 1 variable 0\n");
  EXPECT_FALSE(is_in_memory(file_of("unregisters_at_unload")));
}

TEST_F(ServerComponents, ComponentOfAnotherServerIsRejected) {
  void *const object = dlopen(file_of("well_behaved").c_str(), RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(object, nullptr);
  const auto list = reinterpret_cast<Dovrin_list_components>(dlsym(object, "list_components"));
  void *&slot = *list()->required_services[0].slot;
  int table_of_another_server = 0;
  slot = &table_of_another_server;

  EXPECT_EQ(server().install(file_of("well_behaved")).message(),
            "The component 'dovrin::well_behaved' is in use by another server in this process.");
  EXPECT_EQ(slot, &table_of_another_server);

  slot = nullptr;
  install("well_behaved");
  uninstall(well_behaved);
  install("well_behaved");
  uninstall(well_behaved);
  dlclose(object);
}

TEST_F(ServerComponents, SetsTheUserInterfaceOfLibcryptoToNone) {
  server();
  EXPECT_EQ(UI_get_default_method(), UI_null());
}

}  // namespace
}  // namespace dovrin_host
