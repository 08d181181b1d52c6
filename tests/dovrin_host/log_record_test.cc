#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "dovrin_host/error_log.h"
#include "records.h"

namespace dovrin_host {
namespace {

TEST(LogRecord, JsonLineHasEveryFieldInOrder) {
  EXPECT_EQ(render_json(sample_record()),
            R"({"time":"2026-01-02T03:04:05.000006Z","priority":"error","code":13927,)"
            R"("symbol":"SYMBOL","component":"component:tests","function":"sign",)"
            R"("source_file":"functions","source_line":42,"message":"Something failed.",)"
            R"("hint":"Try again."})");
}

TEST(LogRecord, JsonLineStaysOneLineAndKeepsQuotesAndLineEnds) {
  const std::string text = "a \"b\"\nc\\d\x01";
  const std::string line = render_json(sample_record(text));
  EXPECT_EQ(line.find('\n'), std::string::npos);
  EXPECT_EQ(nlohmann::json::parse(line)["message"], text);
}

TEST(LogRecord, JsonLineReplacesBytesThatAreNotText) {
  const std::string line = render_json(sample_record("key \xff\xc3 end"));
  EXPECT_EQ(nlohmann::json::parse(line)["message"], "key \uFFFD\uFFFD end");
}

TEST(LogRecord, TerminalLineContainsEverythingThatHelps) {
  EXPECT_EQ(render_line(sample_record()),
            "2026-01-02T03:04:05.000006Z error 13927 SYMBOL: Something failed. "
            "[sign, functions:42] Hint: Try again.");
}

TEST(LogRecord, TerminalLineWithoutHintEndsAfterThePlace) {
  Log_record record = sample_record();
  record.hint.clear();
  EXPECT_EQ(render_line(record),
            "2026-01-02T03:04:05.000006Z error 13927 SYMBOL: Something failed. "
            "[sign, functions:42]");
}

TEST(LogRecord, TerminalLineCannotSteerTheTerminal) {
  const std::string line =
      render_line(sample_record("a\x1b[2Jb\nc\x7f\xc2\x9b"
                                "d \xc3\xa9"));
  EXPECT_NE(line.find("a\\x1b[2Jb\\x0ac\\x7f\\xc2\\x9bd \xc3\xa9"), std::string::npos) << line;
}

TEST(LogRecord, PrioritiesHaveWords) {
  EXPECT_STREQ(priority_name(1), "error");
  EXPECT_STREQ(priority_name(2), "warning");
  EXPECT_STREQ(priority_name(0), "note");
  EXPECT_STREQ(priority_name(7), "note");
}

TEST(LogRecord, TimesBeforeTheEpochAndAtItAreRendered) {
  using std::chrono::microseconds;
  using Time = std::chrono::system_clock::time_point;
  EXPECT_EQ(render_time(Time{}), "1970-01-01T00:00:00.000000Z");
  EXPECT_EQ(render_time(Time{microseconds{-1}}), "1969-12-31T23:59:59.999999Z");
}

}  // namespace
}  // namespace dovrin_host
