#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "dovrin_host/functions.h"
#include "dovrin_host/server.h"
#include "dovrin_host/services.h"
#include "printers.h"

namespace dovrin_host {

namespace {

using Removal = Function_registry::Removal;

void row() {}

Function_definition definition(const char *name, Item_result type = STRING_RESULT) {
  return {name, type, row, nullptr, nullptr};
}

TEST(FunctionRegistry, ListsWhatWasAddedByName) {
  Function_registry registry;
  EXPECT_TRUE(registry.add(definition("b", INT_RESULT), nullptr));
  EXPECT_TRUE(registry.add(definition("a"), nullptr));
  EXPECT_EQ(registry.list(), (std::vector<Function_info>{{"a", STRING_RESULT}, {"b", INT_RESULT}}));
}

TEST(FunctionRegistry, RejectsATakenName) {
  Function_registry registry;
  EXPECT_TRUE(registry.add(definition("a"), nullptr));
  EXPECT_FALSE(registry.add(definition("a", INT_RESULT), nullptr));
  EXPECT_EQ(registry.list(), (std::vector<Function_info>{{"a", STRING_RESULT}}));
}

TEST(FunctionRegistry, RejectsWhatItCouldNotCall) {
  Function_registry registry;
  EXPECT_FALSE(registry.add(definition(""), nullptr));
  EXPECT_FALSE(registry.add({"a", STRING_RESULT, nullptr, nullptr, nullptr}, nullptr));
  for (const Item_result type : {REAL_RESULT, ROW_RESULT, DECIMAL_RESULT}) {
    EXPECT_FALSE(registry.add(definition("a", type), nullptr)) << type;
  }
  EXPECT_TRUE(registry.list().empty());
}

TEST(FunctionRegistry, RemovalReportsWhetherTheFunctionWasKnown) {
  Function_registry registry;
  EXPECT_TRUE(registry.add(definition("a"), nullptr));
  EXPECT_EQ(registry.remove("a", nullptr), Removal::removed);
  EXPECT_EQ(registry.remove("a", nullptr), Removal::unknown);
}

TEST(FunctionRegistry, OpenInstancesKeepAFunction) {
  Function_registry registry;
  EXPECT_TRUE(registry.add(definition("a"), nullptr));
  Function_pin first = registry.pin("a");
  Function_pin second = registry.pin("a");
  EXPECT_EQ(registry.open_instances(nullptr), 2U);

  const Function_pin moved = std::move(first);
  second = Function_pin{};
  EXPECT_EQ(registry.open_instances(nullptr), 1U);
  EXPECT_EQ(registry.remove("a", nullptr), Removal::in_use);
}

TEST(FunctionRegistry, ComponentsDestructorUnregistersWhileInstancesAreOpen) {
  Function_registry registry;
  const int owner = 0;
  EXPECT_TRUE(registry.add(definition("a"), &owner));
  registry.publish(&owner);
  const Function_pin pin = registry.pin("a");

  EXPECT_EQ(registry.remove("a", &owner), Removal::in_use);
  EXPECT_TRUE(registry.pin("a"));
  EXPECT_EQ(registry.remove("a", nullptr), Removal::removed);
  EXPECT_FALSE(registry.pin("a"));
  EXPECT_EQ(registry.open_instances(&owner), 1U);
  EXPECT_FALSE(registry.add(definition("a"), &owner));
}

TEST(FunctionRegistry, FunctionCanBeRemovedOnceItsPinsAreGone) {
  Function_registry registry;
  EXPECT_TRUE(registry.add(definition("a"), nullptr));
  EXPECT_TRUE(registry.pin("a"));
  EXPECT_EQ(registry.remove("a", nullptr), Removal::removed);
}

TEST(FunctionRegistry, UnknownFunctionCannotBePinned) {
  Function_registry registry;
  EXPECT_FALSE(registry.pin("a"));
}

TEST(FunctionRegistry, FunctionsOfAComponentAppearWhenItIsPublished) {
  Function_registry registry;
  const int owner = 0;
  EXPECT_TRUE(registry.add(definition("a"), &owner));
  EXPECT_TRUE(registry.list().empty());
  EXPECT_FALSE(registry.pin("a"));
  EXPECT_FALSE(registry.add(definition("a"), nullptr));

  registry.publish(&owner);
  EXPECT_TRUE(registry.pin("a"));
  EXPECT_EQ(registry.unpublish_unless_open(&owner), 0U);
  EXPECT_FALSE(registry.pin("a"));
  EXPECT_EQ(registry.remove("a", &owner), Removal::removed);
}

TEST(FunctionRegistry, OpenInstanceKeepsAllFunctionsOfItsComponentPublished) {
  Function_registry registry;
  const int owner = 0;
  const int other = 0;
  EXPECT_TRUE(registry.add(definition("a"), &owner));
  EXPECT_TRUE(registry.add(definition("b"), &owner));
  EXPECT_TRUE(registry.add(definition("c"), &other));
  registry.publish(&owner);
  registry.publish(&other);

  const Function_pin use = registry.pin("b");
  EXPECT_EQ(registry.unpublish_unless_open(&owner), 1U);
  EXPECT_EQ(registry.open_instances(&owner), 1U);
  EXPECT_EQ(registry.open_instances(&other), 0U);
  EXPECT_TRUE(registry.pin("a"));
  EXPECT_EQ(registry.unpublish_unless_open(&other), 0U);
  EXPECT_FALSE(registry.pin("c"));
}

TEST(FunctionRegistry, DropForgetsOneOwnersFunctions) {
  Function_registry registry;
  const int owner = 0;
  EXPECT_TRUE(registry.add(definition("a"), &owner));
  EXPECT_TRUE(registry.add(definition("b"), nullptr));
  registry.drop(&owner);
  EXPECT_EQ(registry.remove("a", nullptr), Removal::unknown);
  EXPECT_EQ(registry.list(), (std::vector<Function_info>{{"b", STRING_RESULT}}));
}

TEST(RegistrationServices, FunctionsAreRegisteredAndUnregistered) {
  const Dovrin_udf_registration &service = udf_registration_table;
  EXPECT_EQ(service.udf_register("f", INT_RESULT, row, nullptr, nullptr), 0);
  EXPECT_EQ(Server::instance().functions().list(), (std::vector<Function_info>{{"f", INT_RESULT}}));
  EXPECT_NE(service.udf_register("f", INT_RESULT, row, nullptr, nullptr), 0);

  int was_registered = 0;
  EXPECT_EQ(service.udf_unregister("f", &was_registered), 0);
  EXPECT_NE(was_registered, 0);
  EXPECT_NE(service.udf_unregister("f", &was_registered), 0);
  EXPECT_EQ(was_registered, 0);
}

TEST(RegistrationServices, FunctionInUseIsKnownAndStays) {
  const Dovrin_udf_registration &service = udf_registration_table;
  EXPECT_EQ(service.udf_register("f", INT_RESULT, row, nullptr, nullptr), 0);
  Function_pin use = Server::instance().functions().pin("f");
  int was_registered = 0;
  EXPECT_NE(service.udf_unregister("f", &was_registered), 0);
  EXPECT_NE(was_registered, 0);
  use = Function_pin{};
  EXPECT_EQ(service.udf_unregister("f", nullptr), 0);
}

TEST(RegistrationServices, FunctionWithoutNameIsRejected) {
  const Dovrin_udf_registration &service = udf_registration_table;
  EXPECT_NE(service.udf_register(nullptr, INT_RESULT, row, nullptr, nullptr), 0);
  int was_registered = 1;
  EXPECT_NE(service.udf_unregister(nullptr, &was_registered), 0);
  EXPECT_EQ(was_registered, 0);
}

}  // namespace
}  // namespace dovrin_host
