// A program that uses OpenSSL itself, in the process that loads the extension.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/ui.h>

#include <string>

#include "sqlite/database.h"
#include "support/fixture.h"

namespace halvex_test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

TEST(SqliteOpenssl, AnErrorOfTheProgramIsNoCauseAndStays) {
  Database database;
  const unsigned long foreign = ERR_PACK(ERR_LIB_USER, 0, 42);
  ERR_raise_data(ERR_LIB_USER, 42, "the program's own error");
  EXPECT_EQ(database.value("SELECT asymmetric_encrypt('RSA', 'abc', 'no key')"), "NULL");
  EXPECT_EQ(database.value("SELECT create_digest('SHA256', 'abc') IS NULL"), "0");
  for (const Row &record : database.rows("SELECT message FROM dovrin_error_log")) {
    EXPECT_THAT(record, ElementsAre(Not(HasSubstr("own error"))));
    EXPECT_THAT(record, ElementsAre(Not(HasSubstr("lib(128)"))));
  }
  const char *text = nullptr;
  EXPECT_EQ(ERR_get_error_all(nullptr, nullptr, nullptr, &text, nullptr), foreign);
  EXPECT_STREQ(text, "the program's own error");
  EXPECT_EQ(ERR_get_error(), 0U);
}

TEST(SqliteOpenssl, AUserInterfaceOfTheProgramStays) {
  UI_METHOD *const own = UI_create_method("the program's own");
  UI_set_default_method(own);
  {
    const Database database;
    EXPECT_EQ(UI_get_default_method(), own);
  }
  UI_set_default_method(UI_OpenSSL());
  UI_destroy_method(own);
}

TEST(SqliteOpenssl, OpensslsOwnUserInterfaceIsReplaced) {
  const Database database;
  EXPECT_EQ(UI_get_default_method(), UI_null());
}

TEST(SqliteOpenssl, AKeyOfMoreThan16KibibytesIsAnError) {
  Database database;
  const std::string key = fixture("rsa16384.pem");
  const std::string public_key = fixture("rsa16384-public.pem");
  database.bind_text("@fits", key + std::string(16384 - key.size(), '\n'));
  database.bind_text("@long", key + std::string(16385 - key.size(), '\n'));
  database.bind_text("@public", public_key);
  EXPECT_EQ(database.value("SELECT create_asymmetric_pub_key('RSA', @fits) = @public"), "1");
  for (const char *const call :
       {"create_asymmetric_pub_key('RSA', @long)", "asymmetric_encrypt('RSA', 'abc', @long)",
        "asymmetric_decrypt('RSA', 'abc', @long)", "asymmetric_sign('RSA', 'abc', @long, 'SHA256')",
        "asymmetric_verify('RSA', 'abc', 'abc', @long, 'SHA256')"}) {
    const std::string name{call, std::string{call}.find('(')};
    EXPECT_EQ(database.error("SELECT " + std::string{call}),
              "The function " + name + " was given a key of 16385 bytes; the limit is 16384.")
        << call;
  }
}

}  // namespace
}  // namespace halvex_test
