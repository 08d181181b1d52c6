// What the rows of all seven functions have in common: NULL arguments, the algorithm's name, and
// that a failure is SQL NULL and never an SQL error.

#include "sql_functions.h"
#include "support/component_test.h"

namespace halvex_test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class Row : public Component_test, public ::testing::WithParamInterface<Sql_function> {
 protected:
  [[nodiscard]] Registered_function function() const { return server.function(GetParam().name); }

  static std::vector<Argument> with_name(const std::string &name) {
    std::vector<Argument> arguments = GetParam().arguments;
    arguments[0].value = name;
    return arguments;
  }

  static std::vector<Argument> with_null(size_t index) {
    std::vector<Argument> arguments = GetParam().arguments;
    arguments[index].value.reset();
    return arguments;
  }
};

std::string name_of_function(const ::testing::TestParamInfo<Sql_function> &info) {
  return test_name(info.param);
}

TEST_P(Row, GivesAValueFromTheInstancesOwnBuffer) {
  const Call_result result = call(GetParam().name, GetParam().arguments);
  ASSERT_EQ(result.rejection, std::nullopt);
  EXPECT_FALSE(result.row.is_null);
  EXPECT_FALSE(result.row.error);
  if (GetParam().result_type == STRING_RESULT) {
    EXPECT_TRUE(result.row.in_instance_buffer);
    EXPECT_FALSE(result.row.bytes.empty());
  } else {
    EXPECT_EQ(result.row.integer, 1);
  }
  EXPECT_THAT(server.records(), IsEmpty());
}

TEST_P(Row, NullInAnyArgumentIsNullWithOneWarning) {
  for (size_t i = 0; i < GetParam().arguments.size(); ++i) {
    server.forget_records();
    EXPECT_THAT(call(GetParam().name, with_null(i)), IsSqlNull()) << "argument " << i;
    EXPECT_THAT(server.records(), ElementsAre(warning_record(
                                      13919, GetParam().null_line, "functions", GetParam().callback,
                                      {GetParam().name, GetParam().null_requirement})))
        << "argument " << i;
  }
}

TEST_P(Row, AllArgumentsNullIsNullWithOneWarning) {
  std::vector<Argument> nulls = GetParam().arguments;
  for (Argument &argument : nulls) {
    argument.value.reset();
  }
  EXPECT_THAT(call(GetParam().name, nulls), IsSqlNull());
  EXPECT_EQ(server.records().size(), 1U);
}

TEST_P(Row, FailedRowDoesNotHarmTheNext) {
  Call_site site(function(), GetParam().arguments);
  EXPECT_THAT(site.row(with_null(0)), IsSqlNull());
  EXPECT_FALSE(site.row().is_null);
  EXPECT_THAT(site.row(with_null(1)), IsSqlNull());
  EXPECT_FALSE(site.row().is_null);
}

INSTANTIATE_TEST_SUITE_P(EveryFunction, Row, ::testing::ValuesIn(sql_functions()),
                         name_of_function);

std::vector<Sql_function> functions_with_algorithm() {
  std::vector<Sql_function> functions = sql_functions();
  functions.pop_back();  // create_digest names a digest instead
  return functions;
}

class Algorithm : public Row {};

TEST_P(Algorithm, IsAcceptedInAnyLetterCase) {
  for (const char *name : {"rsa", "Rsa", "rSA"}) {
    EXPECT_FALSE(call(GetParam().name, with_name(name)).row.is_null) << name;
  }
  EXPECT_THAT(server.records(), IsEmpty());
}

TEST_P(Algorithm, OfAnyOtherNameIsNullWithARecordOfTheUpperCasedName) {
  const std::vector<std::pair<std::string, std::string>> names{
      {"dsa", "DSA"},        {"", ""},         {"r", "R"},
      {"RS", "RS"},          {"RSA ", "RSA "}, {" rsa", " RSA"},
      {"rsaes", "RSAES"},    {"RSB", "RSB"},   {"R\xe4\xff", "R\xe4\xff"},
      {"rsa-pss", "RSA-PSS"}};
  for (const auto &[name, shown] : names) {
    server.forget_records();
    EXPECT_THAT(call(GetParam().name, with_name(name)), IsSqlNull()) << name;
    EXPECT_THAT(server.records(),
                ElementsAre(error_record(13920, GetParam().algorithm_line, "functions",
                                         GetParam().callback, {shown, GetParam().name})))
        << name;
  }
}

// The whole argument counts, although a record shows it up to the NUL byte only.
TEST_P(Algorithm, WithANulByteBehindItIsAnotherName) {
  EXPECT_THAT(call(GetParam().name, with_name(std::string("RSA\0", 4))), IsSqlNull());
  EXPECT_THAT(server.records(),
              ElementsAre(error_record(13920, GetParam().algorithm_line, "functions",
                                       GetParam().callback, {"RSA", GetParam().name})));
}

TEST_P(Algorithm, IsLookedAtBeforeTheKey) {
  std::vector<Argument> arguments = with_name("DSA");
  for (size_t i = 1; i < arguments.size(); ++i) {
    if (arguments[i].type == STRING_RESULT) {
      arguments[i].value = std::string();
    }
  }
  EXPECT_THAT(call(GetParam().name, arguments), IsSqlNull());
  EXPECT_THAT(server.records(),
              ElementsAre(error_record(13920, GetParam().algorithm_line, "functions",
                                       GetParam().callback, {"DSA", GetParam().name})));
}

INSTANTIATE_TEST_SUITE_P(EveryFunction, Algorithm, ::testing::ValuesIn(functions_with_algorithm()),
                         name_of_function);

}  // namespace
}  // namespace halvex_test
