// The two system variables, set as a server sets them.

#include <climits>

#include "support/component_test.h"

namespace halvex_test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class SystemVariables : public Component_test {
 protected:
  Set_result set(long long value) const { return set_variable("maximum_rsa_key_size", value); }
  [[nodiscard]] int maximum() const { return integer_value("maximum_rsa_key_size"); }
};

TEST_F(SystemVariables, AreAtTheirDefaultsAfterLoading) {
  EXPECT_EQ(maximum(), 4096);
  EXPECT_FALSE(*static_cast<const bool *>(server.variable("rsa_support_legacy_padding").storage));
}

TEST_F(SystemVariables, KeySizeIsAcceptedInStepsOf1024) {
  for (int bits = 2048; bits <= 16384; bits += 1024) {
    EXPECT_EQ(set(bits), Set_result::accepted) << bits;
    EXPECT_EQ(maximum(), bits);
  }
}

TEST_F(SystemVariables, KeySizeOutOfRangeOrStepIsRejectedAndThePreviousStays) {
  ASSERT_EQ(set(3072), Set_result::accepted);
  for (const long long value : {1024LL, 2047LL, 2049LL, 3000LL, 3073LL, 16383LL, 16385LL, 17408LL,
                                0LL, -1LL, -2048LL, -4096LL, 1LL << 31, LLONG_MAX, LLONG_MIN}) {
    EXPECT_EQ(set(value), Set_result::rejected) << value;
    EXPECT_EQ(maximum(), 3072);
  }
  EXPECT_THAT(server.records(), IsEmpty());
}

TEST_F(SystemVariables, KeySizeThatCannotBeReadAsAnIntegerIsRejected) {
  EXPECT_EQ(set_variable("maximum_rsa_key_size", std::nullopt), Set_result::rejected);
  EXPECT_EQ(maximum(), 4096);
}

TEST_F(SystemVariables, OnlyTheLow32BitsOfAKeySizeCount) {
  ASSERT_EQ(set(2048), Set_result::accepted);
  EXPECT_EQ(set(4294971392LL), Set_result::accepted);
  EXPECT_EQ(maximum(), 4096);
  EXPECT_EQ(set((7LL << 32) + 3072), Set_result::accepted);
  EXPECT_EQ(maximum(), 3072);
  EXPECT_EQ(set((7LL << 32) + 3000), Set_result::rejected);
}

TEST_F(SystemVariables, KeyOfTheNewMaximumIsMadeAndOneBlockMoreIsRejected) {
  ASSERT_EQ(set(2048), Set_result::accepted);
  EXPECT_FALSE(call("create_asymmetric_priv_key", {"RSA", 2048}).row.is_null);
  EXPECT_THAT(server.records(), IsEmpty());
  EXPECT_THAT(call("create_asymmetric_priv_key", {"RSA", 3072}), IsSqlNull());
  EXPECT_THAT(server.records(), ElementsAre(key_length_rejected("3072", 2048)));
}

TEST_F(SystemVariables, RaisedMaximumIsNamedInTheRejectionOfOneBlockMore) {
  ASSERT_EQ(set(8192), Set_result::accepted);
  EXPECT_THAT(call("create_asymmetric_priv_key", {"RSA", 9216}), IsSqlNull());
  EXPECT_THAT(server.records(), ElementsAre(key_length_rejected("9216", 8192)));
}

TEST_F(SystemVariables, KeepTheirValuesWhenTheyAreUnregisteredAndRegisteredAgain) {
  ASSERT_EQ(set(8192), Set_result::accepted);
  switch_legacy_padding(true);
  ASSERT_EQ(component.deinit(), 0);
  ASSERT_EQ(component.init(), 0);
  EXPECT_EQ(maximum(), 8192);
  EXPECT_TRUE(*static_cast<const bool *>(server.variable("rsa_support_legacy_padding").storage));
}

}  // namespace
}  // namespace halvex_test
