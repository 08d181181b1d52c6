// What the shared object shows to the server that loads it, and what is left when it is unloaded.

#include <set>

#include "support/component_test.h"
#include "support/elf_object.h"

namespace halvex_test {
namespace {

using ::testing::ElementsAre;
using ::testing::Not;
using ::testing::Pair;
using ::testing::StrEq;

TEST(SharedObject, ExportsTheDescriptorsEntryAlone) {
  std::vector<std::string> exports;
  for (const Elf_symbol &symbol : dynamic_symbols(component_path())) {
    if (symbol.is_defined) {
      exports.push_back(symbol.name);
    }
  }
  EXPECT_THAT(exports, ElementsAre("list_components"));
}

TEST(SharedObject, HasNoSymbolThatPinsItInMemory) {
  for (const Elf_symbol &symbol : dynamic_symbols(component_path())) {
    EXPECT_FALSE(symbol.is_unique) << symbol.name;
  }
}

TEST(SharedObject, IsGoneFromMemoryAfterUnloading) {
  const Recording_server server;
  Loaded_component component;
  ASSERT_EQ(component.init(), 0);
  ASSERT_FALSE(call(server, "create_digest", {"SHA256", "abc"}).row.is_null);
  ASSERT_EQ(component.deinit(), 0);
  ASSERT_TRUE(component_is_mapped());
  component.unload();
  EXPECT_FALSE(component_is_mapped());
}

TEST(SharedObject, CanBeLoadedAgainAfterUnloading) {
  for (int round = 0; round < 3; ++round) {
    const Recording_server server;
    Loaded_component component;
    ASSERT_EQ(component.init(), 0);
    EXPECT_FALSE(call(server, "create_digest", {"SHA256", "abc"}).row.is_null);
    EXPECT_EQ(component.deinit(), 0);
  }
  EXPECT_FALSE(component_is_mapped());
}

TEST(Descriptor, IsTheSameOnEveryCall) {
  const Recording_server server;
  const Loaded_component component;
  EXPECT_EQ(component.list_again(), &component.descriptor());
  EXPECT_EQ(component.list_again(), &component.descriptor());
}

TEST(Descriptor, NamesTheComponentAndProvidesNoService) {
  const Recording_server server;
  const Loaded_component component;
  EXPECT_STREQ(component.descriptor().name, "dovrin::component_halvex_encryption");
  ASSERT_NE(component.descriptor().provided_services, nullptr);
  EXPECT_EQ(component.descriptor().provided_services[0].name, nullptr);
  EXPECT_EQ(component.descriptor().provided_services[0].implementation, nullptr);
}

TEST(Descriptor, RequiresSixServicesInOrder) {
  const Recording_server server;
  const Loaded_component component;
  std::vector<std::string> names;
  std::vector<void **> slots;
  const auto *required = component.descriptor().required_services;
  for (; required->name != nullptr; ++required) {
    names.emplace_back(required->name);
    slots.push_back(required->slot);
  }
  EXPECT_EQ(required->slot, nullptr);
  EXPECT_THAT(names, ElementsAre("registry", "component_sys_variable_register",
                                 "component_sys_variable_unregister", "log_builtins",
                                 "log_builtins_string", "udf_registration"));
  EXPECT_EQ(std::set(slots.begin(), slots.end()).size(), 6U);
}

TEST(Descriptor, CarriesItsMetadataInOrder) {
  const Recording_server server;
  const Loaded_component component;
  std::vector<std::pair<std::string, std::string>> metadata;
  const auto *pair = component.descriptor().metadata;
  for (; pair->key != nullptr; ++pair) {
    metadata.emplace_back(pair->key, pair->value);
  }
  EXPECT_EQ(pair->value, nullptr);
  EXPECT_THAT(metadata, ElementsAre(Pair("dovrin.author", Not(StrEq(""))),
                                    Pair("dovrin.license", "PROPRIETARY"),
                                    Pair("component_halvex_encryption", "1")));
}

TEST(Descriptor, AsksNothingOfTheServerBeforeInit) {
  const Recording_server server;
  const Loaded_component component;
  EXPECT_THAT(server.registration_calls(), ElementsAre());
  EXPECT_THAT(server.log_calls(), ElementsAre());
}

}  // namespace
}  // namespace halvex_test
