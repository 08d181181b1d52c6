// utilities::UDF_list and utilities::System_variables_list.

#include "classes/class_test.h"

namespace halvex_test {
namespace {

using halvex_encryption::utilities::System_variables_list;
using halvex_encryption::utilities::UDF_list;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

bool init_callback(UDF_INIT * /*instance*/, UDF_ARGS * /*args*/, char * /*message*/) {
  return false;
}
void deinit_callback(UDF_INIT * /*instance*/) {}
void row_callback() {}

class UdfList : public Class_test {
 protected:
  static bool add(UDF_list &list, const char *name) {
    return list.add_scalar(name, INT_RESULT, row_callback, init_callback, deinit_callback);
  }
};

TEST_F(UdfList, PassesItsArgumentsOnUnchanged) {
  UDF_list list;
  EXPECT_FALSE(add(list, "one"));
  const Registered_function function = server.function("one");
  EXPECT_EQ(function.result_type, INT_RESULT);
  EXPECT_EQ(function.row, row_callback);
  EXPECT_EQ(function.init, init_callback);
  EXPECT_EQ(function.deinit, deinit_callback);
  EXPECT_THAT(server.records(), IsEmpty());
}

TEST_F(UdfList, RefusedFunctionIsReportedAndNotRecorded) {
  UDF_list list;
  server.refuse_function("one");
  EXPECT_TRUE(add(list, "one"));
  EXPECT_THAT(server.records(), ElementsAre(function_not_registered("one")));
  server.forget_calls();
  EXPECT_FALSE(list.unregister());
  EXPECT_THAT(server.registration_calls(), IsEmpty());
}

TEST_F(UdfList, RefusalOfANameThatIsRecordedKeepsIt) {
  UDF_list list;
  ASSERT_FALSE(add(list, "one"));
  server.refuse_function("one");
  EXPECT_TRUE(add(list, "one"));
  server.forget_calls();
  EXPECT_FALSE(list.unregister());
  EXPECT_THAT(server.registration_calls(), ElementsAre("unregister_function one"));
}

TEST_F(UdfList, UnregisterOfAnEmptyListAsksNothing) {
  UDF_list list;
  EXPECT_FALSE(list.unregister());
  EXPECT_THAT(server.registration_calls(), IsEmpty());
}

TEST_F(UdfList, NameAcceptedTwiceIsUnregisteredOnce) {
  UDF_list list;
  accept_duplicate_names(true);
  EXPECT_FALSE(add(list, "one"));
  EXPECT_FALSE(add(list, "one"));
  server.forget_calls();
  EXPECT_FALSE(list.unregister());
  EXPECT_THAT(server.registration_calls(), ElementsAre("unregister_function one"));
}

TEST_F(UdfList, NamesAreCaseSensitive) {
  UDF_list list;
  EXPECT_FALSE(add(list, "one"));
  EXPECT_FALSE(add(list, "One"));
  server.forget_calls();
  EXPECT_FALSE(list.unregister());
  EXPECT_THAT(server.registration_calls(),
              UnorderedElementsAre("unregister_function one", "unregister_function One"));
}

TEST_F(UdfList, KeepsItsOwnCopyOfTheName) {
  UDF_list list;
  std::string name = "one";
  EXPECT_FALSE(add(list, name.c_str()));
  name = "two";
  server.forget_calls();
  EXPECT_FALSE(list.unregister());
  EXPECT_THAT(server.registration_calls(), ElementsAre("unregister_function one"));
}

TEST_F(UdfList, RefusedUnregistrationOfARegisteredFunctionIsReportedKeptAndRetriedAlone) {
  UDF_list list;
  ASSERT_FALSE(add(list, "one"));
  ASSERT_FALSE(add(list, "two"));
  server.refuse_to_unregister_function("one", 1);
  EXPECT_TRUE(list.unregister());
  EXPECT_THAT(server.records(), ElementsAre(function_not_unregistered("one")));
  server.accept_everything();
  server.forget_calls();
  EXPECT_FALSE(list.unregister());
  EXPECT_THAT(server.registration_calls(), ElementsAre("unregister_function one"));
}

TEST_F(UdfList, RefusedUnregistrationOfAnUnknownFunctionIsDroppedSilently) {
  UDF_list list;
  ASSERT_FALSE(add(list, "one"));
  server.refuse_to_unregister_function("one", 0);
  EXPECT_FALSE(list.unregister());
  EXPECT_THAT(server.records(), IsEmpty());
  server.forget_calls();
  EXPECT_FALSE(list.unregister());
  EXPECT_THAT(server.registration_calls(), IsEmpty());
}

TEST_F(UdfList, AnyNonZeroAnswerCountsAsRegistered) {
  UDF_list list;
  ASSERT_FALSE(add(list, "one"));
  server.refuse_to_unregister_function("one", -1);
  EXPECT_TRUE(list.unregister());
  server.accept_everything();
  EXPECT_FALSE(list.unregister());
}

TEST_F(UdfList, DestructorUnregisters) {
  {
    UDF_list list;
    ASSERT_FALSE(add(list, "one"));
    server.forget_calls();
  }
  EXPECT_THAT(server.registration_calls(), ElementsAre("unregister_function one"));
}

int check_callback(THD * /*thread*/, SYS_VAR * /*variable*/, void * /*save*/,
                   st_dovrin_value * /*value*/) {
  return 0;
}
void update_callback(THD * /*thread*/, SYS_VAR * /*variable*/, void * /*storage*/,
                     const void * /*save*/) {}

class SystemVariablesList : public Class_test {
 protected:
  bool add(System_variables_list &list, const char *name) {
    return list.add(name, DOVRIN_VARIABLE_INT, "a comment", check_callback, update_callback,
                    &limits, &storage);
  }

  Dovrin_int_limits limits{1, 2, 3, 4};
  int storage = 0;
};

TEST_F(SystemVariablesList, PassesItsArgumentsOnUnchangedBehindTheComponentsName) {
  System_variables_list list("component");
  EXPECT_FALSE(add(list, "one"));
  const Registered_variable variable = server.variable("one");
  EXPECT_EQ(variable.component, "component");
  EXPECT_EQ(variable.type_flag, DOVRIN_VARIABLE_INT);
  EXPECT_EQ(variable.comment, "a comment");
  EXPECT_EQ(variable.check, check_callback);
  EXPECT_EQ(variable.update, update_callback);
  EXPECT_THAT(variable.limits, ElementsAre(1, 2, 3, 4));
  EXPECT_EQ(variable.storage, &storage);
}

TEST_F(SystemVariablesList, RefusedVariableIsReportedByItsFullNameAndNotRecorded) {
  System_variables_list list("component");
  server.refuse_variable("one");
  EXPECT_TRUE(add(list, "one"));
  EXPECT_THAT(server.records(), ElementsAre(variable_not_registered("component.one")));
  server.forget_calls();
  EXPECT_FALSE(list.unregister());
  EXPECT_THAT(server.registration_calls(), IsEmpty());
}

TEST_F(SystemVariablesList, RefusalOfANameThatIsRecordedKeepsIt) {
  System_variables_list list("component");
  ASSERT_FALSE(add(list, "one"));
  server.refuse_variable("one");
  EXPECT_TRUE(add(list, "one"));
  server.forget_calls();
  EXPECT_FALSE(list.unregister());
  EXPECT_THAT(server.registration_calls(), ElementsAre("unregister_variable component.one"));
}

TEST_F(SystemVariablesList, LongFullNamesAreTruncatedInReports) {
  System_variables_list list("component");
  const std::string name(600, 'x');
  server.refuse_variable(name);
  EXPECT_TRUE(add(list, name.c_str()));
  EXPECT_THAT(server.records(),
              ElementsAre(variable_not_registered(("component." + name).substr(0, 511))));
}

TEST_F(SystemVariablesList, UnregisterOfAnEmptyListAsksNothing) {
  System_variables_list list("component");
  EXPECT_FALSE(list.unregister());
  EXPECT_THAT(server.registration_calls(), IsEmpty());
}

TEST_F(SystemVariablesList, NameAcceptedTwiceIsUnregisteredOnce) {
  System_variables_list list("component");
  accept_duplicate_names(true);
  EXPECT_FALSE(add(list, "one"));
  EXPECT_FALSE(add(list, "one"));
  server.forget_calls();
  EXPECT_FALSE(list.unregister());
  EXPECT_THAT(server.registration_calls(), ElementsAre("unregister_variable component.one"));
}

// Every refusal counts here, whatever the server knows.
TEST_F(SystemVariablesList, RefusedUnregistrationIsReportedKeptAndRetriedAlone) {
  System_variables_list list("component");
  ASSERT_FALSE(add(list, "one"));
  ASSERT_FALSE(add(list, "two"));
  server.refuse_to_unregister_variable("one");
  EXPECT_TRUE(list.unregister());
  const Record refusal = variable_not_unregistered("component.one");
  EXPECT_THAT(server.records(), ElementsAre(refusal));
  server.forget_calls();
  EXPECT_TRUE(list.unregister());
  EXPECT_THAT(server.registration_calls(), ElementsAre("unregister_variable component.one"));
  EXPECT_THAT(server.records(), ElementsAre(refusal, refusal));
  server.accept_everything();
  EXPECT_FALSE(list.unregister());
}

TEST_F(SystemVariablesList, KeepsItsOwnCopyOfTheName) {
  System_variables_list list("component");
  std::string name = "one";
  EXPECT_FALSE(add(list, name.c_str()));
  name = "two";
  server.forget_calls();
  EXPECT_FALSE(list.unregister());
  EXPECT_THAT(server.registration_calls(), ElementsAre("unregister_variable component.one"));
}

TEST_F(SystemVariablesList, DestructorUnregisters) {
  {
    System_variables_list list("component");
    ASSERT_FALSE(add(list, "one"));
    server.forget_calls();
  }
  EXPECT_THAT(server.registration_calls(), ElementsAre("unregister_variable component.one"));
}

}  // namespace
}  // namespace halvex_test
