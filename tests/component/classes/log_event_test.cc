// utilities::LogEvent and utilities::handle_openssl_error.

#include <openssl/err.h>

#include <array>
#include <cstdarg>

#include "classes/class_test.h"

namespace halvex_test {
namespace {

using halvex_encryption::utilities::handle_openssl_error;
using halvex_encryption::utilities::LogEvent;
using halvex_encryption::utilities::service_slots;
using halvex_encryption::utilities::take_log_handles;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class LogEventLine : public Class_test {
 protected:
  // Calls set_message with variable arguments.
  static void set_message(LogEvent &event, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    event.set_message(format, arguments);
    va_end(arguments);
  }
};

TEST_F(LogEventLine, WithoutAMessageSubmitsTheLineAndFreesTheBufferItself) {
  { const LogEvent event; }
  EXPECT_THAT(server.log_calls(),
              ElementsAre("create_line", "allocate 8192", "submit", "release_line", "free"));
}

TEST_F(LogEventLine, WithoutAnErrorCodeLookupAddsIt) {
  LogEvent().lookup_quoted(13917, "tag", "one");
  EXPECT_THAT(server.log_calls(),
              ElementsAre("create_line", "allocate 8192", "message_template 13917", "has_item 2",
                          "has_item 4", "add_item 2", "item_set_int 13917", "format 8192",
                          "add_item_with_key 524288 flags 2", "item_set_lexstring", "submit",
                          "release_line"));
  ASSERT_EQ(server.records().size(), 1U);
  EXPECT_EQ(server.records()[0].message, "tag: 'one'");
}

TEST_F(LogEventLine, WithAnErrorCodeLookupAddsNone) {
  LogEvent().error_code(13915).lookup_quoted(13917, "tag", "one");
  ASSERT_EQ(server.records().size(), 1U);
  EXPECT_EQ(server.records()[0].code, 13915);
  EXPECT_EQ(server.records()[0].message, "tag: 'one'");
}

// The component sets no symbol, but a server may give one to every line.
TEST_F(LogEventLine, WithAnErrorSymbolLookupAddsNoErrorCode) {
  static const Dovrin_log_builtins &served =
      *static_cast<const Dovrin_log_builtins *>(service_table("log_builtins"));
  Dovrin_log_builtins table = served;
  table.create_line = [] {
    Dovrin_log_line *line = served.create_line();
    served.item_set_cstring(served.add_item(line, DOVRIN_LOG_ERROR_SYMBOL), "A_SYMBOL");
    return line;
  };
  service_slots.log_builtins = &table;
  take_log_handles();

  LogEvent().lookup_quoted(13917, "tag", "one");
  ASSERT_EQ(server.raw_records().size(), 1U);
  EXPECT_THAT(server.raw_records()[0],
              ElementsAre(Raw_item{DOVRIN_LOG_ERROR_SYMBOL, "A_SYMBOL", "item_set_cstring"},
                          Raw_item{DOVRIN_LOG_MESSAGE, "tag: 'one'", "item_set_lexstring",
                                   DOVRIN_LOG_FREE_VALUE}));
}

TEST_F(LogEventLine, WithoutATagTheFormatStandsAlone) {
  {
    LogEvent event;
    set_message(event, "%s and %lld", "one", 2LL);
  }
  ASSERT_EQ(server.records().size(), 1U);
  EXPECT_EQ(server.records()[0].message, "one and 2");
}

TEST_F(LogEventLine, MessageLimitHoldsWithoutATagToo) {
  for (const size_t length : {8191UL, 8192UL, 20000UL}) {
    server.forget_records();
    const std::string text(length, 'x');
    {
      LogEvent event;
      set_message(event, "%s", text.c_str());
    }
    ASSERT_EQ(server.records().size(), 1U);
    EXPECT_EQ(server.records()[0].message,
              length == 8191 ? text : std::string(8185, 'x') + " <...>");
  }
}

class HandleOpensslError : public Class_test {
 protected:
  HandleOpensslError() { ERR_clear_error(); }

  static std::string text_of(int reason) {
    std::array<char, 256> text{};
    ERR_error_string(ERR_PACK(ERR_LIB_USER, 0, reason), text.data());
    return text.data();
  }
};

TEST_F(HandleOpensslError, ReportsTheOldestErrorAndLeavesTheSecondQueued) {
  ERR_raise(ERR_LIB_USER, 1);
  ERR_raise(ERR_LIB_USER, 2);
  handle_openssl_error("a_function", "AN ALGORITHM");
  EXPECT_THAT(server.records(),
              ElementsAre(openssl_record("a_function", "AN ALGORITHM", text_of(1))));
  EXPECT_EQ(ERR_GET_REASON(ERR_get_error()), 2);
  EXPECT_EQ(ERR_get_error(), 0U);
}

TEST_F(HandleOpensslError, WithAnEmptyQueueReportsTheTextOfErrorZeroAndLeavesNone) {
  handle_openssl_error("a_function", "RSA");
  EXPECT_THAT(server.records(), ElementsAre(openssl_record("a_function", "RSA", no_error_text())));
  EXPECT_EQ(ERR_get_error(), 0U);
}

TEST_F(HandleOpensslError, TakesTheErrorAlsoWhenTheRecordIsDropped) {
  server.refuse_lines();
  ERR_raise(ERR_LIB_USER, 1);
  handle_openssl_error("a_function", "RSA");
  EXPECT_EQ(ERR_get_error(), 0U);
  EXPECT_THAT(server.records(), IsEmpty());
}

}  // namespace
}  // namespace halvex_test
