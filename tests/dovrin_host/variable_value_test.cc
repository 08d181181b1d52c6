#include <gtest/gtest.h>

#include <array>
#include <limits>
#include <optional>
#include <string>

#include "dovrin_host/variables.h"

namespace dovrin_host {
namespace {

using std::nullopt;

Setting text(const char *value) { return std::string{value}; }

TEST(VariableValue, IntegersHaveTheirOwnForm) {
  EXPECT_EQ(integer_form(4096LL), 4096);
  EXPECT_EQ(integer_form(4294971392LL), 4294971392LL);
  EXPECT_EQ(integer_form(-1LL), -1);
  EXPECT_EQ(integer_form(true), 1);
  EXPECT_EQ(integer_form(false), 0);
}

TEST(VariableValue, WholeRealsAreIntegers) {
  EXPECT_EQ(integer_form(4096.0), 4096);
  EXPECT_EQ(integer_form(-9223372036854775808.0), std::numeric_limits<long long>::min());
  EXPECT_EQ(integer_form(4096.5), nullopt);
  EXPECT_EQ(integer_form(9223372036854775808.0), nullopt);
  EXPECT_EQ(integer_form(std::numeric_limits<double>::quiet_NaN()), nullopt);
  EXPECT_EQ(integer_form(std::numeric_limits<double>::infinity()), nullopt);
}

TEST(VariableValue, TextsAreIntegersFromEndToEnd) {
  EXPECT_EQ(integer_form(text("8192")), 8192);
  EXPECT_EQ(integer_form(text("-5")), -5);
  for (const char *const other :
       {"", " 8192", "8192 ", "8192x", "0x2000", "8e3", "ON", "9223372036854775808"}) {
    EXPECT_EQ(integer_form(text(other)), nullopt) << other;
  }
}

TEST(VariableValue, BooleansAreWordsOrZeroAndOne) {
  for (const char *const word : {"ON", "on", "On", "TRUE", "true", "1"}) {
    EXPECT_EQ(boolean_form(text(word)), true) << word;
  }
  for (const char *const word : {"OFF", "off", "FALSE", "False", "0"}) {
    EXPECT_EQ(boolean_form(text(word)), false) << word;
  }
  EXPECT_EQ(boolean_form(true), true);
  EXPECT_EQ(boolean_form(0LL), false);
  EXPECT_EQ(boolean_form(1LL), true);
  EXPECT_EQ(boolean_form(1.0), true);
}

TEST(VariableValue, NothingElseIsABoolean) {
  for (const char *const word : {"", "yes", "ON ", "2", "-1", "tru"}) {
    EXPECT_EQ(boolean_form(text(word)), nullopt) << word;
  }
  EXPECT_EQ(boolean_form(Setting{std::string("ON\0", 3)}), nullopt);
  EXPECT_EQ(boolean_form(2LL), nullopt);
  EXPECT_EQ(boolean_form(-1LL), nullopt);
  EXPECT_EQ(boolean_form(0.5), nullopt);
}

TEST(VariableValue, TextFormIsWhatAPersonWouldWrite) {
  EXPECT_EQ(text_form(Setting{true}), "ON");
  EXPECT_EQ(text_form(Setting{false}), "OFF");
  EXPECT_EQ(text_form(Setting{-7LL}), "-7");
  EXPECT_EQ(text_form(Setting{0.5}), "0.5");
  EXPECT_EQ(text_form(text("any thing")), "any thing");
}

TEST(ValueRecord, GivesTheTypeOfTheValue) {
  const auto type_of = [](const Setting &setting) {
    Value_record record{setting};
    return record.get()->value_type(record.get());
  };
  EXPECT_EQ(type_of(text("1")), DOVRIN_VALUE_STRING);
  EXPECT_EQ(type_of(1.0), DOVRIN_VALUE_REAL);
  EXPECT_EQ(type_of(1LL), DOVRIN_VALUE_INTEGER);
  EXPECT_EQ(type_of(true), DOVRIN_VALUE_INTEGER);
}

TEST(ValueRecord, GivesTheIntegerUnclipped) {
  const Setting setting = 4294971392LL;
  Value_record record{setting};
  long long number = 0;
  EXPECT_EQ(record.get()->val_int(record.get(), &number), 0);
  EXPECT_EQ(number, 4294971392LL);
  EXPECT_EQ(record.get()->is_unsigned(record.get()), 0);
}

TEST(ValueRecord, ValueWithoutAnIntegerLeavesTheNumberAlone) {
  const Setting setting = text("large");
  Value_record record{setting};
  long long number = 5;
  EXPECT_NE(record.get()->val_int(record.get(), &number), 0);
  EXPECT_EQ(number, 5);
}

TEST(ValueRecord, GivesTheReal) {
  const auto real_of = [](const Setting &setting) -> std::optional<double> {
    Value_record record{setting};
    double number = -1;
    return record.get()->val_real(record.get(), &number) == 0 ? std::optional{number} : nullopt;
  };
  EXPECT_EQ(real_of(0.25), 0.25);
  EXPECT_EQ(real_of(3LL), 3.0);
  EXPECT_EQ(real_of(true), 1.0);
  EXPECT_EQ(real_of(text("2.5")), 2.5);
  EXPECT_EQ(real_of(text("2.5 bits")), nullopt);
}

TEST(ValueRecord, GivesTheTextWithItsLength) {
  const Setting setting = text("large");
  Value_record record{setting};
  std::array<char, 6> buffer{};
  int length = buffer.size();
  EXPECT_EQ(record.get()->val_str(record.get(), buffer.data(), &length), buffer.data());
  EXPECT_STREQ(buffer.data(), "large");
  EXPECT_EQ(length, 5);
}

TEST(ValueRecord, TextThatDoesNotFitIsNotGiven) {
  const Setting setting = text("large");
  Value_record record{setting};
  std::array<char, 5> buffer{};
  int length = buffer.size();
  EXPECT_EQ(record.get()->val_str(record.get(), buffer.data(), &length), nullptr);
  length = 0;
  EXPECT_EQ(record.get()->val_str(record.get(), buffer.data(), &length), nullptr);
}

}  // namespace
}  // namespace dovrin_host
