// utilities::UDF_list and utilities::System_variables_list.

#include "classes/class_test.h"

namespace halvex_test {
namespace {

using halvex_encryption::utilities::System_variables_list;
using halvex_encryption::utilities::UDF_list;
using ::testing::ElementsAre;
using ::testing::UnorderedElementsAre;

class UdfList : public Class_test {
 protected:
  static bool add(UDF_list &list, const char *name) {
    return list.add_scalar(name, INT_RESULT, nullptr, nullptr, nullptr);
  }
};

TEST_F(UdfList, RefusalOfANameThatIsRecordedKeepsIt) {
  UDF_list list;
  ASSERT_FALSE(add(list, "one"));
  server.refuse_function("one");
  EXPECT_TRUE(add(list, "one"));
  server.forget_calls();
  EXPECT_FALSE(list.unregister());
  EXPECT_THAT(server.registration_calls(), ElementsAre("unregister_function one"));
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

TEST_F(UdfList, AnyNonZeroAnswerCountsAsRegistered) {
  UDF_list list;
  ASSERT_FALSE(add(list, "one"));
  server.refuse_to_unregister_function("one", -1);
  EXPECT_TRUE(list.unregister());
  server.accept_everything();
  EXPECT_FALSE(list.unregister());
}

class SystemVariablesList : public Class_test {
 protected:
  bool add(System_variables_list &list, const char *name) {
    return list.add(name, DOVRIN_VARIABLE_INT, "a comment", nullptr, nullptr, &limits, &storage);
  }

  Dovrin_int_limits limits{1, 2, 3, 4};
  int storage = 0;
};

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

TEST_F(SystemVariablesList, NameAcceptedTwiceIsUnregisteredOnce) {
  System_variables_list list("component");
  accept_duplicate_names(true);
  EXPECT_FALSE(add(list, "one"));
  EXPECT_FALSE(add(list, "one"));
  server.forget_calls();
  EXPECT_FALSE(list.unregister());
  EXPECT_THAT(server.registration_calls(), ElementsAre("unregister_variable component.one"));
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

}  // namespace
}  // namespace halvex_test
