// The init callbacks: which arguments they reject with which words, and what they prepare.

#include <algorithm>

#include "sql_functions.h"
#include "support/component_test.h"

namespace halvex_test {
namespace {

class Init : public Component_test, public ::testing::WithParamInterface<Sql_function> {
 protected:
  [[nodiscard]] Registered_function function() const { return server.function(GetParam().name); }

  static std::vector<Argument> repeated(const Argument &argument, size_t count) {
    std::vector<Argument> arguments;
    while (arguments.size() < count) {
      arguments.push_back(argument);
    }
    return arguments;
  }

  // The working arguments with one turned into another type.
  static std::vector<Argument> with_type(std::vector<Argument> arguments, size_t index,
                                         Item_result type) {
    arguments[index].type = type;
    return arguments;
  }

  static std::vector<Item_result> other_types(Item_result expected) {
    std::vector<Item_result> types{STRING_RESULT, REAL_RESULT, INT_RESULT, ROW_RESULT,
                                   DECIMAL_RESULT};
    types.erase(std::remove(types.begin(), types.end(), expected), types.end());
    return types;
  }
};

TEST_P(Init, RejectsEveryOtherNumberOfArguments) {
  const size_t expected = GetParam().arguments.size();
  for (size_t count = 0; count <= 7; ++count) {
    if (count == expected) {
      continue;
    }
    const Call_site site(function(), repeated("RSA", count));
    EXPECT_EQ(site.rejection(), "Mismatch in number of arguments to the function. Expected " +
                                    std::to_string(expected) + " arguments");
  }
}

TEST_P(Init, CountsBeforeItLooksAtTypes) {
  const size_t expected = GetParam().arguments.size();
  const Call_site site(function(), repeated(1.5, expected + 1));
  EXPECT_EQ(site.rejection(), "Mismatch in number of arguments to the function. Expected " +
                                  std::to_string(expected) + " arguments");
}

TEST_P(Init, RejectsEveryOtherTypeOfEveryArgumentInItsOwnWords) {
  const std::vector<Argument> &arguments = GetParam().arguments;
  for (size_t i = 0; i < arguments.size(); ++i) {
    for (const Item_result type : other_types(arguments[i].type)) {
      const Call_site site(function(), with_type(arguments, i, type));
      EXPECT_EQ(site.rejection(), GetParam().type_rejections[i])
          << "argument " << i << " type " << type;
    }
  }
}

TEST_P(Init, NamesTheFirstArgumentOfAWrongType) {
  const std::vector<Argument> &arguments = GetParam().arguments;
  std::vector<Argument> wrong = arguments;
  for (size_t i = arguments.size(); i-- > 0;) {
    wrong[i].type = REAL_RESULT;
    const Call_site site(function(), wrong);
    EXPECT_EQ(site.rejection(), GetParam().type_rejections[i]);
  }
}

TEST_P(Init, RejectionLeavesNoBufferAndDeinitDoesNotFail) {
  Call_site of_count(function(), {});
  EXPECT_EQ(of_count.instance().ptr, nullptr);
  Call_site of_type(function(), with_type(GetParam().arguments, 0, INT_RESULT));
  EXPECT_EQ(of_type.instance().ptr, nullptr);
  EXPECT_EQ(of_type.instance().max_length, Call_site::unset_length);
  EXPECT_EQ(of_type.instance().maybe_null, GetParam().result_type == INT_RESULT) << "untouched";
}

TEST_P(Init, PreparesTheResultBuffer) {
  Call_site site(function(), GetParam().arguments);
  ASSERT_FALSE(site.rejection());
  const unsigned long size = GetParam().buffer_size;
  if (size == 0) {
    EXPECT_EQ(site.instance().ptr, nullptr);
    EXPECT_EQ(site.instance().max_length, Call_site::unset_length);
    EXPECT_FALSE(site.instance().maybe_null);
  } else {
    EXPECT_EQ(site.instance().max_length, size);
    EXPECT_TRUE(site.instance().maybe_null);
    EXPECT_TRUE(std::string(site.instance().ptr, size) == std::string(size, '\0'));
  }
}

TEST_P(Init, LeavesDecimalsAndConstItemToTheServer) {
  Call_site site(function(), GetParam().arguments);
  EXPECT_EQ(site.instance().decimals, 31U);
  EXPECT_TRUE(site.instance().const_item);
}

TEST_P(Init, AcceptsNullArgumentsOfTheRightTypes) {
  std::vector<Argument> nulls = GetParam().arguments;
  for (Argument &argument : nulls) {
    argument.value.reset();
  }
  const Call_site site(function(), nulls);
  EXPECT_EQ(site.rejection(), std::nullopt);
}

// Also with a name that no row accepts: names are looked at per row.
TEST_P(Init, DoesNotLookAtValues) {
  std::vector<Argument> arguments = GetParam().arguments;
  arguments[0].value = std::string("no such name");
  const Call_site site(function(), arguments);
  EXPECT_EQ(site.rejection(), std::nullopt);
}

TEST_P(Init, WritesNoRecord) {
  const Call_site rejected(function(), {});
  const Call_site accepted(function(), GetParam().arguments);
  EXPECT_THAT(server.records(), ::testing::IsEmpty());
}

std::string name_of_function(const ::testing::TestParamInfo<Sql_function> &info) {
  return test_name(info.param);
}

INSTANTIATE_TEST_SUITE_P(EveryFunction, Init, ::testing::ValuesIn(sql_functions()),
                         name_of_function);

}  // namespace
}  // namespace halvex_test
