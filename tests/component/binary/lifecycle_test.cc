// init, deinit and unloading: what is registered with the server, in which order, and what is
// unregistered when something is refused.

#include <set>

#include "support/component_test.h"

namespace halvex_test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;
using ::testing::UnorderedElementsAreArray;

using Calls = std::vector<std::string>;

const Calls function_names{"create_asymmetric_priv_key",
                           "create_asymmetric_pub_key",
                           "asymmetric_encrypt",
                           "asymmetric_decrypt",
                           "asymmetric_sign",
                           "asymmetric_verify",
                           "create_digest"};

constexpr const char *register_key_size =
    "register_variable component_halvex_encryption.maximum_rsa_key_size";
constexpr const char *register_padding =
    "register_variable component_halvex_encryption.rsa_support_legacy_padding";
constexpr const char *unregister_key_size =
    "unregister_variable component_halvex_encryption.maximum_rsa_key_size";
constexpr const char *unregister_padding =
    "unregister_variable component_halvex_encryption.rsa_support_legacy_padding";

// The first `count` functions with an operation before each.
Calls functions(const std::string &operation, size_t count = function_names.size()) {
  Calls calls;
  for (size_t i = 0; i < count; ++i) {
    calls.push_back(operation + " " + function_names[i]);
  }
  return calls;
}

// A part of a list of calls, from the index `begin` to before `end`.
Calls slice(const Calls &calls, size_t begin, size_t end) {
  return {calls.begin() + static_cast<long>(begin), calls.begin() + static_cast<long>(end)};
}

class Lifecycle : public ::testing::Test {
 protected:
  Recording_server server;
  Loaded_component component;
};

TEST_F(Lifecycle, InitRegistersTheVariablesThenTheSevenFunctionsInOrder) {
  ASSERT_EQ(component.init(), 0);
  Calls expected{register_key_size, register_padding};
  const Calls all = functions("register_function");
  expected.insert(expected.end(), all.begin(), all.end());
  EXPECT_EQ(server.registration_calls(), expected);
  EXPECT_THAT(server.records(), IsEmpty());
}

TEST_F(Lifecycle, KeySizeVariableIsRegisteredWithItsTypeLimitsAndCallbacks) {
  ASSERT_EQ(component.init(), 0);
  const Registered_variable variable = server.variable("maximum_rsa_key_size");
  EXPECT_EQ(variable.component, "component_halvex_encryption");
  EXPECT_EQ(variable.type_flag, 2);
  EXPECT_EQ(variable.comment, "Maximum size of RSA key generation");
  EXPECT_NE(variable.check, nullptr);
  EXPECT_NE(variable.update, nullptr);
  EXPECT_THAT(variable.limits, ElementsAre(4096, 2048, 16384, 1024));
  EXPECT_EQ(integer_value("maximum_rsa_key_size"), 4096);
}

TEST_F(Lifecycle, PaddingVariableIsRegisteredWithItsTypeAndWithoutCallbacks) {
  ASSERT_EQ(component.init(), 0);
  const Registered_variable variable = server.variable("rsa_support_legacy_padding");
  EXPECT_EQ(variable.component, "component_halvex_encryption");
  EXPECT_EQ(variable.type_flag, 1);
  EXPECT_EQ(variable.comment,
            "Supports legacy padding in decryption and signature verification functions");
  EXPECT_EQ(variable.check, nullptr);
  EXPECT_EQ(variable.update, nullptr);
  EXPECT_THAT(variable.limits, ElementsAre(0, 0, 0, 0));
  EXPECT_FALSE(*static_cast<const bool *>(variable.storage));
}

TEST_F(Lifecycle, FunctionsAreRegisteredWithTheirResultTypesAndSharedDeinit) {
  ASSERT_EQ(component.init(), 0);
  std::set<Udf_func_any> rows;
  std::set<Udf_func_init> inits;
  std::set<Udf_func_deinit> deinits_of_string_functions;
  for (const Registered_function &function : server.functions()) {
    const bool is_verify = function.name == "asymmetric_verify";
    EXPECT_EQ(function.result_type, is_verify ? INT_RESULT : STRING_RESULT) << function.name;
    rows.insert(function.row);
    inits.insert(function.init);
    if (!is_verify) {
      deinits_of_string_functions.insert(function.deinit);
    }
  }
  EXPECT_EQ(rows.size(), 7U);
  EXPECT_EQ(inits.size(), 7U);
  ASSERT_EQ(deinits_of_string_functions.size(), 1U);
  const Udf_func_deinit verify_deinit = server.function("asymmetric_verify").deinit;
  EXPECT_NE(verify_deinit, nullptr);
  EXPECT_FALSE(deinits_of_string_functions.contains(verify_deinit));
}

TEST_F(Lifecycle, RefusedKeySizeVariableStopsThePaddingVariableButNotTheFunctions) {
  server.refuse_variable("maximum_rsa_key_size");
  EXPECT_EQ(component.init(), 1);
  const Calls calls = server.registration_calls();
  ASSERT_EQ(calls.size(), 15U);
  EXPECT_EQ(calls[0], register_key_size);
  EXPECT_EQ(slice(calls, 1, 8), functions("register_function"));
  EXPECT_THAT(slice(calls, 8, 15), UnorderedElementsAreArray(functions("unregister_function")));
  EXPECT_THAT(server.functions(), IsEmpty());
  EXPECT_THAT(
      server.records(),
      ElementsAre(variable_not_registered("component_halvex_encryption.maximum_rsa_key_size")));
}

TEST_F(Lifecycle, RefusedPaddingVariableUnregistersTheOtherVariableThenTheFunctions) {
  server.refuse_variable("rsa_support_legacy_padding");
  EXPECT_EQ(component.init(), 1);
  const Calls calls = server.registration_calls();
  ASSERT_EQ(calls.size(), 17U);
  EXPECT_THAT(slice(calls, 0, 2), ElementsAre(register_key_size, register_padding));
  EXPECT_EQ(slice(calls, 2, 9), functions("register_function"));
  EXPECT_EQ(calls[9], unregister_key_size);
  EXPECT_THAT(slice(calls, 10, 17), UnorderedElementsAreArray(functions("unregister_function")));
  EXPECT_THAT(server.records(), ElementsAre(variable_not_registered(
                                    "component_halvex_encryption.rsa_support_legacy_padding")));
}

TEST_F(Lifecycle, RefusedFunctionLeavesTheLaterOnesUnattemptedAndUnregistersTheRest) {
  for (size_t refused = 0; refused < function_names.size(); ++refused) {
    server.accept_everything();
    server.forget_calls();
    server.forget_records();
    server.refuse_function(function_names[refused]);
    EXPECT_EQ(component.init(), 1);
    const Calls calls = server.registration_calls();
    ASSERT_EQ(calls.size(), 5 + 2 * refused);
    EXPECT_EQ(slice(calls, 2, 3 + refused), functions("register_function", refused + 1));
    EXPECT_THAT(slice(calls, 3 + refused, 5 + refused),
                UnorderedElementsAre(unregister_key_size, unregister_padding));
    EXPECT_THAT(slice(calls, 5 + refused, calls.size()),
                UnorderedElementsAreArray(functions("unregister_function", refused)));
    EXPECT_THAT(server.functions(), IsEmpty());
    EXPECT_THAT(server.variables(), IsEmpty());
    EXPECT_THAT(server.records(), ElementsAre(function_not_registered(function_names[refused])));
  }
}

TEST_F(Lifecycle, FailedRollbackStillGivesOneAndIsRetriedByDeinit) {
  server.refuse_function("create_digest");
  server.refuse_to_unregister_variable("rsa_support_legacy_padding");
  server.refuse_to_unregister_function("asymmetric_sign", 1);
  EXPECT_EQ(component.init(), 1);
  EXPECT_THAT(server.records(),
              ElementsAre(function_not_registered("create_digest"),
                          variable_not_unregistered(
                              "component_halvex_encryption.rsa_support_legacy_padding"),
                          function_not_unregistered("asymmetric_sign")));
  server.accept_everything();
  server.forget_calls();
  EXPECT_EQ(component.deinit(), 0);
  EXPECT_THAT(server.registration_calls(),
              ElementsAre(unregister_padding, "unregister_function asymmetric_sign"));
}

TEST_F(Lifecycle, DeinitUnregistersVariablesThenFunctionsAndASecondDoesNothing) {
  ASSERT_EQ(component.init(), 0);
  server.forget_calls();
  EXPECT_EQ(component.deinit(), 0);
  const Calls calls = server.registration_calls();
  ASSERT_EQ(calls.size(), 9U);
  EXPECT_THAT(slice(calls, 0, 2), UnorderedElementsAre(unregister_key_size, unregister_padding));
  EXPECT_THAT(slice(calls, 2, 9), UnorderedElementsAreArray(functions("unregister_function")));

  server.forget_calls();
  EXPECT_EQ(component.deinit(), 0);
  EXPECT_THAT(server.registration_calls(), IsEmpty());
  EXPECT_THAT(server.records(), IsEmpty());
}

TEST_F(Lifecycle, RefusedVariableUnregistrationIsReportedAndOnlyThatOneIsRetried) {
  ASSERT_EQ(component.init(), 0);
  server.refuse_to_unregister_variable("maximum_rsa_key_size");
  EXPECT_EQ(component.deinit(), 1);
  EXPECT_THAT(server.functions(), IsEmpty());
  const Record refusal =
      variable_not_unregistered("component_halvex_encryption.maximum_rsa_key_size");
  EXPECT_THAT(server.records(), ElementsAre(refusal));

  server.forget_calls();
  EXPECT_EQ(component.deinit(), 1);
  EXPECT_THAT(server.registration_calls(), ElementsAre(unregister_key_size));
  EXPECT_THAT(server.records(), ElementsAre(refusal, refusal));

  server.accept_everything();
  EXPECT_EQ(component.deinit(), 0);
}

TEST_F(Lifecycle, RefusedFunctionUnregistrationIsReportedAndRetried) {
  ASSERT_EQ(component.init(), 0);
  server.refuse_to_unregister_function("asymmetric_verify", 1);
  EXPECT_EQ(component.deinit(), 1);
  EXPECT_THAT(server.variables(), IsEmpty());
  EXPECT_THAT(server.records(), ElementsAre(function_not_unregistered("asymmetric_verify")));
  server.accept_everything();
  server.forget_calls();
  EXPECT_EQ(component.deinit(), 0);
  EXPECT_THAT(server.registration_calls(), ElementsAre("unregister_function asymmetric_verify"));
}

TEST_F(Lifecycle, FunctionThatTheServerNoLongerKnowsIsDroppedSilently) {
  ASSERT_EQ(component.init(), 0);
  server.refuse_to_unregister_function("asymmetric_verify", 0);
  EXPECT_EQ(component.deinit(), 0);
  EXPECT_THAT(server.records(), IsEmpty());
  server.forget_calls();
  EXPECT_EQ(component.deinit(), 0);
  EXPECT_THAT(server.registration_calls(), IsEmpty());
}

TEST_F(Lifecycle, UnloadingWithoutDeinitUnregistersTheFunctionsThenTheVariables) {
  ASSERT_EQ(component.init(), 0);
  server.forget_calls();
  component.unload();
  const Calls calls = server.registration_calls();
  ASSERT_EQ(calls.size(), 9U);
  EXPECT_THAT(slice(calls, 0, 7), UnorderedElementsAreArray(functions("unregister_function")));
  EXPECT_THAT(slice(calls, 7, 9), UnorderedElementsAre(unregister_key_size, unregister_padding));
  EXPECT_THAT(server.functions(), IsEmpty());
  EXPECT_THAT(server.variables(), IsEmpty());
}

TEST_F(Lifecycle, UnloadingRetriesWhatDeinitCouldNotUnregister) {
  ASSERT_EQ(component.init(), 0);
  server.refuse_to_unregister_function("create_digest", 1);
  server.refuse_to_unregister_variable("rsa_support_legacy_padding");
  ASSERT_EQ(component.deinit(), 1);
  server.forget_calls();
  server.forget_records();
  component.unload();
  EXPECT_THAT(server.registration_calls(),
              ElementsAre("unregister_function create_digest", unregister_padding));
  EXPECT_THAT(server.records(),
              ElementsAre(function_not_unregistered("create_digest"),
                          variable_not_unregistered(
                              "component_halvex_encryption.rsa_support_legacy_padding")));
}

TEST_F(Lifecycle, UnloadingWithoutInitAsksNothingOfTheServer) {
  component.unload();
  EXPECT_THAT(server.registration_calls(), IsEmpty());
}

TEST_F(Lifecycle, ComponentCanBeInitialisedAgainAfterDeinit) {
  ASSERT_EQ(component.init(), 0);
  ASSERT_EQ(component.deinit(), 0);
  ASSERT_EQ(component.init(), 0);
  EXPECT_EQ(server.functions().size(), 7U);
  EXPECT_EQ(server.variables().size(), 2U);
}

TEST_F(Lifecycle, LogHandlesAreCopiedByInit) {
  ASSERT_EQ(component.init(), 0);
  for (const auto *required = component.descriptor().required_services; required->name != nullptr;
       ++required) {
    if (std::string(required->name).starts_with("log_builtins")) {
      *required->slot = nullptr;
    }
  }
  call(server, "create_digest", {null_string(), "abc"});
  EXPECT_EQ(server.records().size(), 1U);
}

}  // namespace
}  // namespace halvex_test
