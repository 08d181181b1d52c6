#include <gtest/gtest.h>

#include <array>
#include <cstdarg>
#include <cstddef>
#include <cstring>
#include <string>
#include <vector>

#include "dovrin_host/error_log.h"
#include "dovrin_host/services.h"
#include "records.h"

namespace dovrin_host {
namespace {

const Dovrin_log_builtins &builtins() { return log_builtins_table; }
const Dovrin_log_builtins_string &strings() { return log_builtins_string_table; }

// A text that a line can own.
char *owned_text(const char *text) {
  auto *const memory = static_cast<char *>(strings().allocate(std::strlen(text) + 1));
  std::strcpy(memory, text);
  return memory;
}

// Releases the line at the end of the test.
class Line {
 public:
  Line() : line_{builtins().create_line()} {}
  Line(const Line &) = delete;
  Line &operator=(const Line &) = delete;
  ~Line() { builtins().release_line(line_); }

  void set(int type, long long value) {
    EXPECT_EQ(builtins().item_set_int(builtins().add_item(line_, type), value), 0);
  }
  void set(int type, const char *text) {
    EXPECT_EQ(builtins().item_set_cstring(builtins().add_item(line_, type), text), 0);
  }
  Dovrin_log_line *get() { return line_; }

 private:
  Dovrin_log_line *line_;
};

size_t format(char *buffer, size_t size, const char *text, ...) {
  va_list arguments;
  va_start(arguments, text);
  const size_t needed = strings().format(buffer, size, text, arguments);
  va_end(arguments);
  return needed;
}

TEST(LogServices, TablesKeepReservedPositionsEmpty) {
  for (const Dovrin_reserved place : builtins().reserved_1_to_8) {
    EXPECT_EQ(place, nullptr);
  }
  EXPECT_EQ(builtins().reserved_10, nullptr);
  EXPECT_EQ(builtins().reserved_13_to_14[0], nullptr);
  EXPECT_EQ(builtins().reserved_13_to_14[1], nullptr);
  EXPECT_EQ(builtins().reserved_19, nullptr);
  for (const Dovrin_reserved place : builtins().reserved_21_to_26) {
    EXPECT_EQ(place, nullptr);
  }
  EXPECT_EQ(builtins().reserved_28_to_29[0], nullptr);
  EXPECT_EQ(builtins().reserved_28_to_29[1], nullptr);
  EXPECT_EQ(strings().reserved_2, nullptr);
  for (const Dovrin_reserved place : strings().reserved_4_to_7) {
    EXPECT_EQ(place, nullptr);
  }
}

TEST(LogServices, SubmittedLineBecomesAWholeRecord) {
  const Listener listener;
  Line line;
  line.set(DOVRIN_LOG_PRIORITY, DOVRIN_PRIORITY_WARNING);
  line.set(DOVRIN_LOG_ERROR_CODE, 13919);
  line.set(DOVRIN_LOG_COMPONENT, "component:tests");
  line.set(DOVRIN_LOG_SOURCE_LINE, 192);
  line.set(DOVRIN_LOG_SOURCE_FILE, "functions");
  line.set(DOVRIN_LOG_FUNCTION, "generate");
  char *const message = owned_text("Component tests reported: 'nothing'");
  Dovrin_log_item *const item =
      builtins().add_item_with_key(line.get(), DOVRIN_LOG_MESSAGE, nullptr, DOVRIN_LOG_FREE_VALUE);
  EXPECT_EQ(builtins().item_set_lexstring(item, message, std::strlen(message)), 0);
  EXPECT_EQ(builtins().submit(line.get()), 0);

  Log_record expected;
  expected.priority = 2;
  expected.code = 13919;
  expected.symbol = "HALVEX_NULL_ARGUMENT";
  expected.component = "component:tests";
  expected.function = "generate";
  expected.source_file = "functions";
  expected.source_line = 192;
  expected.message = "Component tests reported: 'nothing'";
  expected.hint = find_catalogue_entry(13919)->hint;
  EXPECT_EQ(listener.records(), std::vector{expected});
}

TEST(LogServices, EmptyLineBecomesAnEmptyRecord) {
  const Listener listener;
  Line line;
  EXPECT_EQ(builtins().submit(line.get()), 0);
  EXPECT_EQ(listener.records(), std::vector{Log_record{}});
}

TEST(LogServices, SymbolOfTheReporterPrecedesTheCatalogue) {
  const Listener listener;
  Line line;
  line.set(DOVRIN_LOG_ERROR_CODE, 13915);
  line.set(DOVRIN_LOG_ERROR_SYMBOL, "OTHER");
  EXPECT_EQ(builtins().submit(line.get()), 0);

  Log_record expected;
  expected.code = 13915;
  expected.symbol = "OTHER";
  expected.hint = find_catalogue_entry(13915)->hint;
  EXPECT_EQ(listener.records(), std::vector{expected});
}

TEST(LogServices, LaterItemOfATypeCounts) {
  const Listener listener;
  Line line;
  line.set(DOVRIN_LOG_MESSAGE, "first");
  line.set(DOVRIN_LOG_MESSAGE, "second");
  EXPECT_EQ(builtins().submit(line.get()), 0);
  Log_record expected;
  expected.message = "second";
  EXPECT_EQ(listener.records(), std::vector{expected});
}

TEST(LogServices, TextsAreCopiedUnlessTheLineOwnsThem) {
  const Listener listener;
  Line line;
  std::string text(100, 'x');
  line.set(DOVRIN_LOG_MESSAGE, text.c_str());
  text.assign(100, 'y');
  EXPECT_EQ(builtins().submit(line.get()), 0);
  ASSERT_EQ(listener.records().size(), 1U);
  EXPECT_EQ(listener.records()[0].message, std::string(100, 'x'));
}

TEST(LogServices, LengthDecidesAndMayIncludeNuls) {
  const Listener listener;
  Line line;
  Dovrin_log_item *const item = builtins().add_item(line.get(), DOVRIN_LOG_MESSAGE);
  EXPECT_EQ(builtins().item_set_lexstring(item, "a\0bc", 3), 0);
  EXPECT_EQ(builtins().submit(line.get()), 0);
  ASSERT_EQ(listener.records().size(), 1U);
  EXPECT_EQ(listener.records()[0].message, std::string("a\0b", 3));
}

// The leak checker watches the replaced text and the one that is never submitted.
TEST(LogServices, LineFreesEveryTextItOwns) {
  Line line;
  Dovrin_log_item *const item =
      builtins().add_item_with_key(line.get(), DOVRIN_LOG_MESSAGE, nullptr, DOVRIN_LOG_FREE_VALUE);
  EXPECT_EQ(builtins().item_set_cstring(item, owned_text("replaced")), 0);
  char *const kept = owned_text("kept");
  EXPECT_EQ(builtins().item_set_cstring(item, kept), 0);
  EXPECT_EQ(builtins().item_set_lexstring(item, kept, 2), 0);

  const Listener listener;
  EXPECT_EQ(builtins().submit(line.get()), 0);
  ASSERT_EQ(listener.records().size(), 1U);
  EXPECT_EQ(listener.records()[0].message, "ke");
}

TEST(LogServices, LineKnowsWhichItemsItHas) {
  Line line;
  EXPECT_EQ(builtins().has_item(line.get(), DOVRIN_LOG_ERROR_CODE), 0);
  line.set(DOVRIN_LOG_ERROR_CODE, 13915);
  EXPECT_NE(builtins().has_item(line.get(), DOVRIN_LOG_ERROR_CODE), 0);
  EXPECT_EQ(builtins().has_item(line.get(), DOVRIN_LOG_ERROR_SYMBOL), 0);
}

TEST(LogServices, FullLineAcceptsNoFurtherItem) {
  Line line;
  for (int i = 0; i < log_line_capacity; ++i) {
    EXPECT_NE(builtins().add_item(line.get(), 1), nullptr);
  }
  EXPECT_EQ(builtins().add_item(line.get(), 1), nullptr);
  EXPECT_EQ(builtins().add_item_with_key(line.get(), 1, nullptr, 2), nullptr);
}

TEST(LogServices, NothingHappensWithoutALine) {
  const Listener listener;
  EXPECT_EQ(builtins().add_item(nullptr, DOVRIN_LOG_MESSAGE), nullptr);
  EXPECT_EQ(builtins().add_item_with_key(nullptr, DOVRIN_LOG_MESSAGE, nullptr, 2), nullptr);
  EXPECT_EQ(builtins().has_item(nullptr, DOVRIN_LOG_MESSAGE), 0);
  EXPECT_NE(builtins().submit(nullptr), 0);
  builtins().release_line(nullptr);
  EXPECT_TRUE(listener.records().empty());
}

TEST(LogServices, NothingHappensWithoutAnItemOrAText) {
  EXPECT_NE(builtins().item_set_int(nullptr, 1), 0);
  EXPECT_NE(builtins().item_set_cstring(nullptr, "text"), 0);
  EXPECT_NE(builtins().item_set_lexstring(nullptr, "text", 4), 0);
  Line line;
  Dovrin_log_item *const item = builtins().add_item(line.get(), DOVRIN_LOG_MESSAGE);
  EXPECT_NE(builtins().item_set_cstring(item, nullptr), 0);
  EXPECT_NE(builtins().item_set_lexstring(item, nullptr, 4), 0);
}

TEST(LogServices, TemplatesComeFromTheCatalogue) {
  EXPECT_EQ(builtins().message_template(13929), find_catalogue_entry(13929)->template_text);
  EXPECT_EQ(builtins().message_template(1), nullptr);
}

TEST(LogServices, FormatReturnsTheLengthOfTheWholeText) {
  std::array<char, 6> buffer{};
  EXPECT_EQ(format(buffer.data(), buffer.size(), "%s %llu", "abc", 12345ULL), 9U);
  EXPECT_STREQ(buffer.data(), "abc 1");
}

TEST(LogServices, OtherPrecisionsAreNoExcerpts) {
  std::array<char, 64> buffer{};
  format(buffer.data(), buffer.size(), "%.3d, '%.s', %.1f", 7, "text", 0.25);
  EXPECT_STREQ(buffer.data(), "007, '', 0.2");
}

TEST(LogServices, TextWithAPrecisionIsFormattedAsAnExcerpt) {
  std::array<char, 256> buffer{};
  const std::string key(2000, 'k');
  const std::string expected = "100% of 'k\\x0akkk <...>' in f, -1 18446744073709551615";
  EXPECT_EQ(format(buffer.data(), buffer.size(), "100%% of '%.5s' in %s, %lld %llu",
                   ("k\n" + key).c_str(), "f", -1LL, 18446744073709551615ULL),
            expected.size());
  EXPECT_EQ(buffer.data(), expected);
}

TEST(LogServices, ExcerptThatDoesNotFitIsTruncatedAndCountedWhole) {
  std::array<char, 6> buffer{};
  EXPECT_EQ(format(buffer.data(), buffer.size(), "%.32s!", "abcdefgh"), 9U);
  EXPECT_STREQ(buffer.data(), "abcde");
  EXPECT_EQ(format(nullptr, 0, "%.32s!", "abcdefgh"), 9U);
}

TEST(LogServices, MessageWithAnExcerptEndsAtAConversionThatIsNotKnown) {
  std::array<char, 64> buffer{};
  EXPECT_EQ(format(buffer.data(), buffer.size(), "%.32s at %p", "a", "b"), 5U);
  EXPECT_STREQ(buffer.data(), "a at ");
  EXPECT_EQ(format(buffer.data(), buffer.size(), "at %p %.32s", "b", "a"), 3U);
  EXPECT_STREQ(buffer.data(), "at ");
}

}  // namespace
}  // namespace dovrin_host
