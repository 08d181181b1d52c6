#include <gtest/gtest.h>

#include <cstring>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "dovrin_host/server.h"
#include "dovrin_host/services.h"
#include "dovrin_host/variables.h"
#include "printers.h"

namespace dovrin_host {

namespace {

constexpr const char *allowed_sizes = "Allowed are multiples of 1024 from 2048 to 16384.";

Setting text(const char *value) { return std::string{value}; }

Variable_definition size_variable(int *storage) {
  Variable_definition definition;
  definition.name = "tests.size";
  definition.type = Variable_type::integer;
  definition.comment = "A size";
  definition.default_value = 4096LL;
  definition.minimum = 2048;
  definition.maximum = 16384;
  definition.block_size = 1024;
  definition.storage = storage;
  return definition;
}

Variable_definition switch_variable(bool *storage) {
  Variable_definition definition;
  definition.name = "tests.switch";
  definition.type = Variable_type::boolean;
  definition.comment = "A switch";
  definition.default_value = false;
  definition.storage = storage;
  return definition;
}

class HostVariables : public testing::Test {
 protected:
  System_variables variables_;
  int size_ = 4096;
  bool switch_ = false;
};

TEST_F(HostVariables, ListsWholeVariablesByName) {
  EXPECT_TRUE(variables_.add(switch_variable(&switch_), nullptr));
  EXPECT_TRUE(variables_.add(size_variable(&size_), nullptr));
  size_ = 8192;
  EXPECT_EQ(variables_.list(),
            (std::vector<Variable_info>{
                {"tests.size", 8192LL, Variable_type::integer, 4096LL, 2048, 16384, 1024, "A size"},
                {"tests.switch", false, Variable_type::boolean, false, 0, 0, 0, "A switch"}}));
}

TEST_F(HostVariables, RegistrationLeavesTheStoredValueAlone) {
  size_ = 3072;
  EXPECT_TRUE(variables_.add(size_variable(&size_), nullptr));
  EXPECT_EQ(variables_.get("tests.size").value(), Variable_value{3072LL});
}

TEST_F(HostVariables, RejectsATakenNameAndWhatItCouldNotRead) {
  EXPECT_TRUE(variables_.add(size_variable(&size_), nullptr));
  EXPECT_FALSE(variables_.add(size_variable(&size_), nullptr));
  EXPECT_FALSE(variables_.add(switch_variable(nullptr), nullptr));
  Variable_definition nameless = switch_variable(&switch_);
  nameless.name.clear();
  EXPECT_FALSE(variables_.add(nameless, nullptr));
}

TEST_F(HostVariables, OwnCheckAcceptsIntegersInTheLimits) {
  EXPECT_TRUE(variables_.add(size_variable(&size_), nullptr));
  const std::vector<std::pair<Setting, int>> accepted{
      {2048LL, 2048}, {3072.0, 3072}, {16384LL, 16384}, {text("8192"), 8192}};
  for (const auto &[setting, value] : accepted) {
    EXPECT_TRUE(variables_.set("tests.size", setting).ok()) << text_form(setting);
    EXPECT_EQ(size_, value);
  }
}

TEST_F(HostVariables, OwnCheckRejectsEverythingElseAndStatesWhatIsAllowed) {
  EXPECT_TRUE(variables_.add(size_variable(&size_), nullptr));
  const std::vector<Setting> rejected{1024LL,  2047LL, 3000LL,      16385LL, 17408LL, 4294971392LL,
                                      -2048LL, 0LL,    text("big"), 2048.5,  true};
  for (const Setting &setting : rejected) {
    EXPECT_EQ(variables_.set("tests.size", setting).message(),
              "The system variable tests.size cannot be set to '" + text_form(setting) + "'. " +
                  allowed_sizes);
  }
  EXPECT_EQ(size_, 4096);
}

TEST_F(HostVariables, BlockSizeOfOneOrLessAllowsEveryIntegerInTheRange) {
  Variable_definition definition = size_variable(&size_);
  definition.minimum = -3;
  definition.maximum = 3;
  definition.block_size = 0;
  EXPECT_TRUE(variables_.add(definition, nullptr));
  EXPECT_TRUE(variables_.set("tests.size", -3LL).ok());
  EXPECT_EQ(size_, -3);
  EXPECT_EQ(variables_.set("tests.size", 4LL).message(),
            "The system variable tests.size cannot be set to '4'. Allowed are integers from -3 to "
            "3.");
}

TEST_F(HostVariables, OwnCheckAcceptsBooleanWords) {
  EXPECT_TRUE(variables_.add(switch_variable(&switch_), nullptr));
  EXPECT_TRUE(variables_.set("tests.switch", text("on")).ok());
  EXPECT_TRUE(switch_);
  EXPECT_TRUE(variables_.set("tests.switch", 0LL).ok());
  EXPECT_FALSE(switch_);
  EXPECT_TRUE(variables_.set("tests.switch", true).ok());
  EXPECT_EQ(variables_.get("tests.switch").value(), Variable_value{true});
  EXPECT_EQ(variables_.set("tests.switch", text("maybe")).message(),
            "The system variable tests.switch cannot be set to 'maybe'. Allowed are ON, OFF, TRUE, "
            "FALSE, 1 and 0.");
  EXPECT_TRUE(switch_);
}

TEST_F(HostVariables, UnknownVariableIsNamed) {
  EXPECT_EQ(variables_.set("tests.none", 1LL).message(),
            "There is no system variable 'tests.none'.");
  EXPECT_EQ(variables_.get("tests.none").message(), "There is no system variable 'tests.none'.");
  EXPECT_FALSE(variables_.remove("tests.none"));
}

TEST_F(HostVariables, RemovedVariableIsGone) {
  EXPECT_TRUE(variables_.add(size_variable(&size_), nullptr));
  EXPECT_TRUE(variables_.remove("tests.size"));
  EXPECT_TRUE(variables_.list().empty());
  EXPECT_FALSE(variables_.set("tests.size", 2048LL).ok());
}

TEST_F(HostVariables, VariablesOfAComponentAppearWhenItIsPublished) {
  const int owner = 0;
  EXPECT_TRUE(variables_.add(size_variable(&size_), &owner));
  EXPECT_FALSE(variables_.get("tests.size").ok());
  variables_.publish(&owner);
  EXPECT_TRUE(variables_.get("tests.size").ok());
  variables_.unpublish(&owner);
  EXPECT_FALSE(variables_.set("tests.size", 2048LL).ok());
  variables_.drop(&owner);
  EXPECT_TRUE(variables_.add(size_variable(&size_), nullptr));
}

// What the callbacks below were given.
struct Seen {
  long long checked = 0;
  long long updated = 0;
  void *storage = nullptr;
};
Seen seen;

int accept_multiples_of_seven(THD * /*thread*/, SYS_VAR * /*variable*/, void *save,
                              st_dovrin_value *value) {
  seen.checked = 0;
  value->val_int(value, &seen.checked);
  const int stored = static_cast<int>(seen.checked);
  std::memcpy(save, &stored, sizeof stored);
  return seen.checked % 7 == 0 ? 0 : 1;
}

void keep_saved_integer(THD * /*thread*/, SYS_VAR * /*variable*/, void *storage, const void *save) {
  int value = 0;
  std::memcpy(&value, save, sizeof value);
  seen.updated = value;
  seen.storage = storage;
}

TEST_F(HostVariables, ComponentsCheckDecidesAloneAndSeesTheWholeValue) {
  Variable_definition definition = size_variable(&size_);
  definition.check = &accept_multiples_of_seven;
  EXPECT_TRUE(variables_.add(definition, nullptr));

  EXPECT_TRUE(variables_.set("tests.size", 7'000'000'000'000LL).ok());
  EXPECT_EQ(seen.checked, 7'000'000'000'000LL);
  EXPECT_TRUE(variables_.set("tests.size", 14LL).ok());
  EXPECT_EQ(size_, 14);
  EXPECT_EQ(
      variables_.set("tests.size", 2048LL).message(),
      std::string("The system variable tests.size cannot be set to '2048'. ") + allowed_sizes);
  EXPECT_EQ(size_, 14);
}

TEST_F(HostVariables, ComponentsUpdateGetsStorageAndWhatTheOwnCheckSaved) {
  seen = {};
  Variable_definition definition = size_variable(&size_);
  definition.update = &keep_saved_integer;
  EXPECT_TRUE(variables_.add(definition, nullptr));
  EXPECT_TRUE(variables_.set("tests.size", 2048LL).ok());
  EXPECT_EQ(seen.updated, 2048);
  EXPECT_EQ(seen.storage, &size_);
  EXPECT_EQ(size_, 4096);
}

int throwing_check(THD * /*thread*/, SYS_VAR * /*variable*/, void * /*save*/,
                   st_dovrin_value *value) {
  long long number = 0;
  value->val_int(value, &number);
  if (number == 0) {
    throw std::bad_alloc{};
  }
  throw std::runtime_error{"no idea"};
}

TEST_F(HostVariables, ExceptionOfACallbackIsAFailureUnlessOutOfMemory) {
  Variable_definition definition = size_variable(&size_);
  definition.check = &throwing_check;
  EXPECT_TRUE(variables_.add(definition, nullptr));
  EXPECT_EQ(variables_.set("tests.size", 1LL).message(),
            "The system variable tests.size cannot be set: no idea.");
  EXPECT_THROW(static_cast<void>(variables_.set("tests.size", 0LL)), std::bad_alloc);
  EXPECT_TRUE(variables_.get("tests.size").ok());
}

// What a callback gets that uses the variables itself.
struct Nested {
  System_variables *variables = nullptr;
  Variable_value value;
  std::size_t listed = 0;
  bool removed = true;
  std::string set_failure;
};
Nested nested;

int nosy_check(THD * /*thread*/, SYS_VAR * /*variable*/, void * /*save*/,
               st_dovrin_value * /*value*/) {
  nested.value = nested.variables->get("tests.size").value();
  nested.listed = nested.variables->list().size();
  nested.removed = nested.variables->remove("tests.size");
  nested.set_failure = nested.variables->set("tests.size", 2048LL).message();
  return 1;
}

TEST_F(HostVariables, CallbackMayReadButNeitherSetNorUnregister) {
  nested = {&variables_, {}, 0, true, {}};
  Variable_definition definition = size_variable(&size_);
  definition.check = &nosy_check;
  EXPECT_TRUE(variables_.add(definition, nullptr));
  EXPECT_FALSE(variables_.set("tests.size", 2048LL).ok());
  EXPECT_EQ(nested.value, Variable_value{4096LL});
  EXPECT_EQ(nested.listed, 1U);
  EXPECT_FALSE(nested.removed);
  EXPECT_EQ(nested.set_failure,
            "The system variable 'tests.size' cannot be set while another one is being set.");
  EXPECT_TRUE(variables_.get("tests.size").ok());
}

TEST(VariableServices, VariablesAreRegisteredWithTheirLimitsAndUnregistered) {
  int size = 4096;
  bool flag = true;
  Dovrin_int_limits int_limits{4096, 2048, 16384, 1024};
  Dovrin_bool_limits bool_limits{true};
  const auto &service = sys_variable_register_table;
  EXPECT_EQ(service.register_variable("tests", "size", DOVRIN_VARIABLE_INT, "A size", nullptr,
                                      nullptr, &int_limits, &size),
            0);
  EXPECT_EQ(service.register_variable("tests", "flag", DOVRIN_VARIABLE_BOOL, nullptr, nullptr,
                                      nullptr, &bool_limits, &flag),
            0);
  int_limits = {};
  bool_limits = {};

  System_variables &variables = Server::instance().variables();
  EXPECT_EQ(
      variables.list(),
      (std::vector<Variable_info>{
          {"tests.flag", true, Variable_type::boolean, true, 0, 0, 0, ""},
          {"tests.size", 4096LL, Variable_type::integer, 4096LL, 2048, 16384, 1024, "A size"}}));

  const auto &unregistration = sys_variable_unregister_table;
  EXPECT_EQ(unregistration.unregister_variable("tests", "size"), 0);
  EXPECT_EQ(unregistration.unregister_variable("tests", "flag"), 0);
  EXPECT_NE(unregistration.unregister_variable("tests", "flag"), 0);
  EXPECT_TRUE(variables.list().empty());
}

TEST(VariableServices, IncompleteRegistrationsAreRejected) {
  int size = 0;
  Dovrin_int_limits limits{0, 0, 0, 0};
  const auto registered = [&](const char *component, const char *name, int flag, void *limits_of,
                              void *storage) {
    return sys_variable_register_table.register_variable(component, name, flag, "", nullptr,
                                                         nullptr, limits_of, storage) == 0;
  };
  EXPECT_FALSE(registered(nullptr, "size", DOVRIN_VARIABLE_INT, &limits, &size));
  EXPECT_FALSE(registered("tests", nullptr, DOVRIN_VARIABLE_INT, &limits, &size));
  EXPECT_FALSE(registered("tests", "size", DOVRIN_VARIABLE_INT, nullptr, &size));
  EXPECT_FALSE(registered("tests", "size", DOVRIN_VARIABLE_INT, &limits, nullptr));
  for (const int unknown_flag : {0, 3, 4, 256 + DOVRIN_VARIABLE_INT, -1}) {
    EXPECT_FALSE(registered("tests", "size", unknown_flag, &limits, &size)) << unknown_flag;
  }
  EXPECT_NE(sys_variable_unregister_table.unregister_variable(nullptr, "size"), 0);
  EXPECT_NE(sys_variable_unregister_table.unregister_variable("tests", nullptr), 0);
}

}  // namespace
}  // namespace dovrin_host
