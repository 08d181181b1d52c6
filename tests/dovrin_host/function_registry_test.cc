#include "dovrin_host/function_registry.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "dovrin_host/registration_services.h"
#include "dovrin_host/server.h"
#include "printers.h"

namespace dovrin_host {

namespace {

using Removal = Function_registry::Removal;

void row() {}

Function_definition definition(const char *name, Item_result type = STRING_RESULT) {
  return {name, type, row, nullptr, nullptr};
}

TEST(FunctionRegistryTest, ListsWhatWasAddedByName) {
  Function_registry registry;
  EXPECT_TRUE(registry.add(definition("b", INT_RESULT), nullptr));
  EXPECT_TRUE(registry.add(definition("a"), nullptr));
  EXPECT_EQ(registry.list(),
            (std::vector<Function_info>{{"a", STRING_RESULT, 0}, {"b", INT_RESULT, 0}}));
}

TEST(FunctionRegistryTest, RefusesATakenName) {
  Function_registry registry;
  EXPECT_TRUE(registry.add(definition("a"), nullptr));
  EXPECT_FALSE(registry.add(definition("a", INT_RESULT), nullptr));
  EXPECT_EQ(registry.list(), (std::vector<Function_info>{{"a", STRING_RESULT, 0}}));
}

TEST(FunctionRegistryTest, RefusesWhatItCouldNotCall) {
  Function_registry registry;
  EXPECT_FALSE(registry.add(definition(""), nullptr));
  EXPECT_FALSE(registry.add({"a", STRING_RESULT, nullptr, nullptr, nullptr}, nullptr));
  for (const Item_result type : {REAL_RESULT, ROW_RESULT, DECIMAL_RESULT}) {
    EXPECT_FALSE(registry.add(definition("a", type), nullptr)) << type;
  }
  EXPECT_TRUE(registry.list().empty());
}

TEST(FunctionRegistryTest, RemovalSaysWhetherTheFunctionWasKnown) {
  Function_registry registry;
  EXPECT_TRUE(registry.add(definition("a"), nullptr));
  EXPECT_EQ(registry.remove("a"), Removal::removed);
  EXPECT_EQ(registry.remove("a"), Removal::unknown);
}

TEST(FunctionRegistryTest, OpenInstancesKeepAFunction) {
  Function_registry registry;
  EXPECT_TRUE(registry.add(definition("a"), nullptr));
  Function_use first = registry.use("a");
  Function_use second = registry.use("a");
  EXPECT_EQ(registry.list(), (std::vector<Function_info>{{"a", STRING_RESULT, 2}}));

  const Function_use moved = std::move(first);
  second = Function_use{};
  EXPECT_EQ(registry.list(), (std::vector<Function_info>{{"a", STRING_RESULT, 1}}));
  EXPECT_EQ(registry.remove("a"), Removal::in_use);
}

TEST(FunctionRegistryTest, EndedUsesLetAFunctionGo) {
  Function_registry registry;
  EXPECT_TRUE(registry.add(definition("a"), nullptr));
  EXPECT_TRUE(registry.use("a"));
  EXPECT_EQ(registry.remove("a"), Removal::removed);
}

TEST(FunctionRegistryTest, UnknownFunctionHasNoUse) {
  Function_registry registry;
  EXPECT_FALSE(registry.use("a"));
}

TEST(FunctionRegistryTest, FunctionsOfAComponentAppearWhenItIsShown) {
  Function_registry registry;
  const int owner = 0;
  EXPECT_TRUE(registry.add(definition("a"), &owner));
  EXPECT_TRUE(registry.list().empty());
  EXPECT_FALSE(registry.use("a"));
  EXPECT_FALSE(registry.add(definition("a"), nullptr));

  registry.show(&owner);
  EXPECT_TRUE(registry.use("a"));
  EXPECT_EQ(registry.hide_unless_open(&owner), 0U);
  EXPECT_FALSE(registry.use("a"));
  EXPECT_EQ(registry.remove("a"), Removal::removed);
}

TEST(FunctionRegistryTest, OpenInstanceKeepsAllFunctionsOfItsComponentShown) {
  Function_registry registry;
  const int owner = 0;
  const int other = 0;
  EXPECT_TRUE(registry.add(definition("a"), &owner));
  EXPECT_TRUE(registry.add(definition("b"), &owner));
  EXPECT_TRUE(registry.add(definition("c"), &other));
  registry.show(&owner);
  registry.show(&other);

  const Function_use use = registry.use("b");
  EXPECT_EQ(registry.hide_unless_open(&owner), 1U);
  EXPECT_EQ(registry.open_instances(&owner), 1U);
  EXPECT_EQ(registry.open_instances(&other), 0U);
  EXPECT_TRUE(registry.use("a"));
  EXPECT_EQ(registry.hide_unless_open(&other), 0U);
  EXPECT_FALSE(registry.use("c"));
}

TEST(FunctionRegistryTest, DropForgetsOneOwnersFunctions) {
  Function_registry registry;
  const int owner = 0;
  EXPECT_TRUE(registry.add(definition("a"), &owner));
  EXPECT_TRUE(registry.add(definition("b"), nullptr));
  registry.drop(&owner);
  EXPECT_EQ(registry.remove("a"), Removal::unknown);
  EXPECT_EQ(registry.list(), (std::vector<Function_info>{{"b", STRING_RESULT, 0}}));
}

TEST(RegistrationServicesTest, FunctionsAreRegisteredAndWithdrawn) {
  const Dovrin_udf_registration &service = udf_registration_table;
  EXPECT_EQ(service.udf_register("f", INT_RESULT, row, nullptr, nullptr), 0);
  EXPECT_EQ(Server::instance().functions().list(),
            (std::vector<Function_info>{{"f", INT_RESULT, 0}}));
  EXPECT_NE(service.udf_register("f", INT_RESULT, row, nullptr, nullptr), 0);

  int was_registered = 0;
  EXPECT_EQ(service.udf_unregister("f", &was_registered), 0);
  EXPECT_NE(was_registered, 0);
  EXPECT_NE(service.udf_unregister("f", &was_registered), 0);
  EXPECT_EQ(was_registered, 0);
}

TEST(RegistrationServicesTest, FunctionInUseIsKnownAndStays) {
  const Dovrin_udf_registration &service = udf_registration_table;
  EXPECT_EQ(service.udf_register("f", INT_RESULT, row, nullptr, nullptr), 0);
  Function_use use = Server::instance().functions().use("f");
  int was_registered = 0;
  EXPECT_NE(service.udf_unregister("f", &was_registered), 0);
  EXPECT_NE(was_registered, 0);
  use = Function_use{};
  EXPECT_EQ(service.udf_unregister("f", nullptr), 0);
}

TEST(RegistrationServicesTest, FunctionWithoutNameIsRefused) {
  const Dovrin_udf_registration &service = udf_registration_table;
  EXPECT_NE(service.udf_register(nullptr, INT_RESULT, row, nullptr, nullptr), 0);
  int was_registered = 1;
  EXPECT_NE(service.udf_unregister(nullptr, &was_registered), 0);
  EXPECT_EQ(was_registered, 0);
}

}  // namespace
}  // namespace dovrin_host
