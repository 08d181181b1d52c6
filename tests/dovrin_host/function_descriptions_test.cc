#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "dovrin_host/functions.h"
#include "dovrin_host/server.h"
#include "printers.h"

namespace dovrin_host {
namespace {

const Function_description &sign() { return describe_function("asymmetric_sign"); }

TEST(FunctionDescriptions, KnowsWhatEachArgumentIsFor) {
  using enum Argument_kind;
  EXPECT_TRUE(std::ranges::equal(sign().arguments, std::vector{algorithm, data, key, digest_type}));
  EXPECT_TRUE(sign().has(key));
  EXPECT_FALSE(sign().has(signature));
  EXPECT_TRUE(describe_function("asymmetric_verify").has(signature));
  EXPECT_FALSE(describe_function("create_digest").has(key));
}

TEST(FunctionDescriptions, OnlyLengthsAreExpectedAsIntegers) {
  const Function_description &create = describe_function("create_asymmetric_priv_key");
  EXPECT_EQ(create.expected_type_at(0), STRING_RESULT);
  EXPECT_EQ(create.expected_type_at(1), INT_RESULT);
  EXPECT_EQ(create.expected_type_at(2), STRING_RESULT);
}

TEST(FunctionDescriptions, OnlyNamesNeedATerminator) {
  EXPECT_TRUE(sign().needs_terminator_at(0));
  EXPECT_FALSE(sign().needs_terminator_at(1));
  EXPECT_FALSE(sign().needs_terminator_at(2));
  EXPECT_TRUE(sign().needs_terminator_at(3));
  EXPECT_TRUE(sign().needs_terminator_at(4));
  EXPECT_TRUE(describe_function("another_component").needs_terminator_at(0));
}

TEST(FunctionDescriptions, FunctionOfAnotherComponentHasTheCautiousDescription) {
  for (const char *const name : {"", "a", "create_digests", "CREATE_DIGEST", "z"}) {
    const Function_description &description = describe_function(name);
    EXPECT_EQ(description.name, "") << name;
    EXPECT_TRUE(description.arguments.empty()) << name;
    EXPECT_EQ(description.result, Result_kind::binary) << name;
    EXPECT_FALSE(description.is_deterministic) << name;
  }
}

// A function that is added to the component needs its description here, and the other way round.
TEST(FunctionDescriptions, DescribesExactlyTheComponentsFunctions) {
  Server &server = Server::instance();
  const auto lease = server.acquire(COMPONENT_FILE);
  ASSERT_TRUE(lease.ok()) << lease.message();
  std::vector<Function_info> described;
  for (const Function_description &each : function_descriptions()) {
    const bool integer = each.result == Result_kind::integer;
    described.push_back({std::string{each.name}, integer ? INT_RESULT : STRING_RESULT});
  }
  EXPECT_EQ(described, server.functions().list());
}

// The component itself counts and checks the arguments, so its init accepts what is described.
TEST(FunctionDescriptions, ComponentAcceptsTheDescribedArgumentsAndNoOthers) {
  Server &server = Server::instance();
  const auto lease = server.acquire(COMPONENT_FILE);
  ASSERT_TRUE(lease.ok()) << lease.message();
  for (const Function_description &each : function_descriptions()) {
    std::vector<Item_result> types;
    for (std::size_t i = 0; i < each.arguments.size(); ++i) {
      types.push_back(each.expected_type_at(i));
    }
    EXPECT_TRUE(server.open_function(each.name, types).ok()) << each.name;
    for (Item_result &type : types) {
      const Item_result expected = type;
      type = REAL_RESULT;
      EXPECT_FALSE(server.open_function(each.name, types).ok()) << each.name;
      type = expected;
    }
    types.pop_back();
    EXPECT_FALSE(server.open_function(each.name, types).ok()) << each.name;
  }
}

}  // namespace
}  // namespace dovrin_host
