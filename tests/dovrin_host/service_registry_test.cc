#include <gtest/gtest.h>

#include "dovrin_host/services.h"

namespace dovrin_host {
namespace {

const void *acquired(const char *name) {
  void *handle = nullptr;
  EXPECT_EQ(registry_table.acquire(name, &handle), 0) << name;
  EXPECT_EQ(registry_table.release(handle), 0) << name;
  return handle;
}

TEST(ServiceRegistry, EveryServiceLeadsToItsTable) {
  EXPECT_EQ(acquired("registry"), &registry_table);
  EXPECT_EQ(acquired("component_sys_variable_register"), &sys_variable_register_table);
  EXPECT_EQ(acquired("component_sys_variable_unregister"), &sys_variable_unregister_table);
  EXPECT_EQ(acquired("log_builtins"), &log_builtins_table);
  EXPECT_EQ(acquired("log_builtins_string"), &log_builtins_string_table);
  EXPECT_EQ(acquired("udf_registration"), &udf_registration_table);
}

TEST(ServiceRegistry, RelationDecidesNothing) {
  void *handle = nullptr;
  int related = 0;
  EXPECT_EQ(registry_table.acquire_related("udf_registration", &related, &handle), 0);
  EXPECT_EQ(handle, &udf_registration_table);
  EXPECT_EQ(registry_table.release(handle), 0);
}

TEST(ServiceRegistry, FailsForAServiceThatItLacks) {
  void *handle = nullptr;
  EXPECT_NE(registry_table.acquire("no_such_service", &handle), 0);
  EXPECT_NE(registry_table.acquire(nullptr, &handle), 0);
  EXPECT_NE(registry_table.acquire("registry", nullptr), 0);
  EXPECT_EQ(handle, nullptr);
  EXPECT_NE(registry_table.release(nullptr), 0);
  EXPECT_NE(registry_table.release(&handle), 0);
}

}  // namespace
}  // namespace dovrin_host
