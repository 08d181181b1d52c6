// The host's boundary between the component and the server, without a server.

#include "postgresql/component_calls.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "support/fixture.h"

namespace {

namespace host = halvex_postgresql;
using halvex_test::fixture;

using host::Argument;
using Kind = host::Row_result::Kind;

Argument text(std::string_view bytes) { return Argument::string(bytes); }
Argument integer(long long value) { return Argument::integer(value); }
Argument null_text() { return Argument::null(STRING_RESULT); }

// Opens a call site and closes it at the end of the test.
class Open_site {
 public:
  Open_site(const char *function, std::vector<Argument> arguments)
      : arguments_{std::move(arguments)}, site_{host::open_call_site(function, arguments_)} {}
  Open_site(const Open_site &) = delete;
  Open_site &operator=(const Open_site &) = delete;
  ~Open_site() { host::close_call_site(site_); }

  host::Row_result row() { return host::run_row(*site_, arguments_); }
  host::Call_site *get() { return site_; }

 private:
  std::vector<Argument> arguments_;
  host::Call_site *site_;
};

class ComponentCalls : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    EXPECT_FALSE(host::is_component_loaded());
    EXPECT_EQ(host::oldest_record(), nullptr);

    ASSERT_EQ(setenv("HALVEX_COMPONENT", "/nowhere/component.so", 1), 0);
    EXPECT_FALSE(host::load_component());
    EXPECT_NE(std::strstr(host::failure_text(), "/nowhere/component.so"), nullptr);
    EXPECT_FALSE(host::is_component_loaded());

    ASSERT_EQ(setenv("HALVEX_COMPONENT", HALVEX_COMPONENT_PATH, 1), 0);
    ASSERT_TRUE(host::load_component()) << host::failure_text();
    EXPECT_TRUE(host::is_component_loaded());
  }

  static void TearDownTestSuite() {
    host::unload_component();
    EXPECT_FALSE(host::is_component_loaded());
  }

  void SetUp() override {
    while (host::oldest_record() != nullptr) {
      host::remove_oldest_record();
    }
  }
};

TEST_F(ComponentCalls, StringRowGivesTheBytes) {
  Open_site site{"create_digest", {text("SHA224"), text("abc")}};
  ASSERT_NE(site.get(), nullptr);
  EXPECT_EQ(site.get()->result_type(), STRING_RESULT);
  const host::Row_result result = site.row();
  EXPECT_EQ(result.kind, Kind::string);
  EXPECT_EQ(result.text.size(), 28U);
  EXPECT_EQ(result.text.front(), '\x23');
  EXPECT_EQ(host::oldest_record(), nullptr);
}

TEST_F(ComponentCalls, ArgumentsNeedNoTerminator) {
  const std::string longer = "SHA256 and more";
  Open_site site{"create_digest", {text(std::string_view{longer}.substr(0, 6)), text("abc")}};
  EXPECT_EQ(site.row().kind, Kind::string);
}

TEST_F(ComponentCalls, IntegerRowGivesOneOrNull) {
  const std::string key = fixture("rsa2048.pem");
  const std::string public_key = fixture("rsa2048-public.pem");
  Open_site sign{"asymmetric_sign", {text("RSA"), text("m"), text(key), text("SHA256")}};
  const host::Row_result signature = sign.row();
  ASSERT_EQ(signature.kind, Kind::string);

  Open_site verify{
      "asymmetric_verify",
      {text("RSA"), text("m"), text(signature.text), text(public_key), text("SHA256")}};
  EXPECT_EQ(verify.get()->result_type(), INT_RESULT);
  const host::Row_result verified = verify.row();
  EXPECT_EQ(verified.kind, Kind::integer);
  EXPECT_EQ(verified.integer, 1);

  Open_site other{"asymmetric_verify",
                  {text("RSA"), text("n"), text(signature.text), text(public_key), text("SHA256")}};
  EXPECT_EQ(other.row().kind, Kind::null);
}

TEST_F(ComponentCalls, NullArgumentGivesNullAndOneRecord) {
  Open_site site{"create_digest", {null_text(), text("abc")}};
  EXPECT_EQ(site.row().kind, Kind::null);
  const dovrin_host::Log_record *const record = host::oldest_record();
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(record->code, 13919);
  EXPECT_EQ(record->priority, 2);
  EXPECT_EQ(record->function, "digest");
  EXPECT_EQ(record->source_file, "functions");
  EXPECT_THAT(record->message, testing::HasSubstr("Non-null value for algorithm and data"));
  EXPECT_NE(record->hint, "");
  host::remove_oldest_record();
  EXPECT_EQ(host::oldest_record(), nullptr);
}

TEST_F(ComponentCalls, RecordsComeOldestFirst) {
  Open_site site{"create_asymmetric_priv_key", {text("RSA"), integer(1024)}};
  EXPECT_EQ(site.row().kind, Kind::null);
  Open_site other{"create_digest", {null_text(), text("abc")}};
  EXPECT_EQ(other.row().kind, Kind::null);
  ASSERT_NE(host::oldest_record(), nullptr);
  EXPECT_EQ(host::oldest_record()->code, 13921);
  host::remove_oldest_record();
  ASSERT_NE(host::oldest_record(), nullptr);
  EXPECT_EQ(host::oldest_record()->code, 13919);
  host::remove_oldest_record();
  EXPECT_EQ(host::oldest_record(), nullptr);
}

TEST_F(ComponentCalls, RejectedCallHasExactlyTheComponentsText) {
  Open_site site{"create_digest", {text("SHA256")}};
  EXPECT_EQ(site.get(), nullptr);
  EXPECT_STREQ(host::failure_text(),
               "Mismatch in number of arguments to the function. Expected 2 arguments");
  Open_site other{"create_asymmetric_priv_key", {text("RSA"), text("2048")}};
  EXPECT_EQ(other.get(), nullptr);
  EXPECT_STREQ(host::failure_text(),
               "Mismatch in type of argument. Expected integer argument of key length.");
}

TEST_F(ComponentCalls, UnknownFunctionIsAFailure) {
  Open_site site{"no_such_function", {text("RSA")}};
  EXPECT_EQ(site.get(), nullptr);
  EXPECT_NE(std::strstr(host::failure_text(), "no_such_function"), nullptr);
}

TEST_F(ComponentCalls, RowOfOtherTypesIsAFailure) {
  const std::array opened{text("SHA256"), text("abc")};
  host::Call_site *const site = host::open_call_site("create_digest", opened);
  ASSERT_NE(site, nullptr);
  const std::array other{text("SHA256"), integer(1)};
  EXPECT_EQ(host::run_row(*site, other).kind, Kind::error);
  host::close_call_site(site);
}

TEST_F(ComponentCalls, SettingsReachTheComponent) {
  constexpr const char *maximum = "component_halvex_encryption.maximum_rsa_key_size";
  EXPECT_TRUE(host::set_integer_variable(maximum, 2048));
  Open_site site{"create_asymmetric_priv_key", {text("RSA"), integer(3072)}};
  EXPECT_EQ(site.row().kind, Kind::null);
  ASSERT_NE(host::oldest_record(), nullptr);
  EXPECT_EQ(host::oldest_record()->code, 13921);
  EXPECT_FALSE(host::set_integer_variable(maximum, 3000));
  EXPECT_NE(std::strstr(host::failure_text(), "3000"), nullptr);
  EXPECT_TRUE(host::set_integer_variable(maximum, 4096));
  EXPECT_FALSE(host::set_boolean_variable("component_halvex_encryption.no_such", true));
  EXPECT_TRUE(
      host::set_boolean_variable("component_halvex_encryption.rsa_support_legacy_padding", false));
}

TEST_F(ComponentCalls, ComponentStaysWhileACallSiteIsOpen) {
  const std::array arguments{text("SHA256"), text("abc")};
  host::Call_site *const site = host::open_call_site("create_digest", arguments);
  ASSERT_NE(site, nullptr);
  host::unload_component();
  EXPECT_EQ(host::run_row(*site, arguments).kind, Kind::string);
  host::close_call_site(site);
  EXPECT_TRUE(host::load_component());
}

}  // namespace
