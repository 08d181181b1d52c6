#include "dovrin_host/error_log.h"

#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <string>
#include <vector>

#include "records.h"

namespace dovrin_host {
namespace {

// Answers every record with the same status.
class Answering_sink : public Log_sink {
 public:
  explicit Answering_sink(Status answer) : answer_{std::move(answer)} {}
  Status write(const Log_record &record) override {
    seen.push_back(record.message);
    return answer_;
  }
  void answer(Status status) { answer_ = std::move(status); }

  std::vector<std::string> seen;

 private:
  Status answer_;
};

class Throwing_sink : public Log_sink {
 public:
  Status write(const Log_record & /*record*/) override { throw std::bad_alloc{}; }
};

std::vector<std::string> messages(const Ring_sink &ring) {
  std::vector<std::string> texts;
  for (const Numbered_record &numbered : ring.snapshot()) {
    texts.push_back(numbered.record.message);
  }
  return texts;
}

using Messages = std::vector<std::string>;

TEST(ErrorLog, EverySinkGetsEveryWholeRecord) {
  Error_log log;
  const auto first = std::make_shared<Ring_sink>(4);
  const auto second = std::make_shared<Ring_sink>(4);
  log.add_sink(first);
  log.add_sink(second);

  log.submit(sample_record());

  const std::vector<Numbered_record> expected{{1, sample_record()}};
  EXPECT_EQ(first->snapshot(), expected);
  EXPECT_EQ(second->snapshot(), expected);
}

TEST(ErrorLog, SinkAddedTwiceGetsRecordsOnce) {
  Error_log log;
  const auto ring = std::make_shared<Ring_sink>(4);
  log.add_sink(ring);
  log.add_sink(ring);
  log.submit(sample_record("a"));
  EXPECT_EQ(messages(*ring), Messages{"a"});
}

TEST(ErrorLog, SinkGetsNothingBeforeItIsAddedAndAfterItIsRemoved) {
  Error_log log;
  const auto ring = std::make_shared<Ring_sink>(4);
  log.submit(sample_record("before"));
  log.add_sink(ring);
  log.submit(sample_record("while"));
  log.remove_sink(ring.get());
  log.submit(sample_record("after"));
  log.add_sink(ring);
  log.submit(sample_record("again"));
  EXPECT_EQ(messages(*ring), (Messages{"while", "again"}));
}

TEST(ErrorLog, RemovedSinkIsReleased) {
  Error_log log;
  auto ring = std::make_shared<Ring_sink>(4);
  const std::weak_ptr<Ring_sink> watch = ring;
  log.add_sink(ring);
  log.remove_sink(ring.get());
  ring.reset();
  EXPECT_TRUE(watch.expired());
}

TEST(ErrorLog, FailingSinkIsReportedOnceToTheOthersAndTakesNothingFromThem) {
  Error_log log;
  const auto failing = std::make_shared<Answering_sink>(Status::failure("The disk is full."));
  const auto ring = std::make_shared<Ring_sink>(8);
  log.add_sink(failing);
  log.add_sink(ring);

  log.submit(sample_record("a"));
  log.submit(sample_record("b"));

  std::vector<Numbered_record> seen = ring->snapshot();
  ASSERT_EQ(seen.size(), 3U);
  Log_record report;
  report.time = seen[0].record.time;
  report.priority = 1;
  report.symbol = "LOG_SINK_FAILED";
  report.component = "server";
  report.message = "A destination of the error log fails: The disk is full.";
  report.hint = "Make room or repair the destination; it is tried again with the next record.";
  EXPECT_EQ(seen, (std::vector<Numbered_record>{
                      {1, report}, {2, sample_record("a")}, {3, sample_record("b")}}));
  EXPECT_EQ(failing->seen, (Messages{"a", "b"}));
}

TEST(ErrorLog, SinkThatFailsAgainAfterItsRecoveryIsReportedAgain) {
  Error_log log;
  const auto flaky = std::make_shared<Answering_sink>(Status::failure("full"));
  const auto ring = std::make_shared<Ring_sink>(8);
  log.add_sink(ring);
  log.add_sink(flaky);

  log.submit(sample_record("a"));
  flaky->answer(Status{});
  log.submit(sample_record("b"));
  flaky->answer(Status::failure("full again"));
  log.submit(sample_record("c"));

  const std::string report = "A destination of the error log fails: ";
  EXPECT_EQ(messages(*ring), (Messages{"a", report + "full", "b", "c", report + "full again"}));
}

TEST(ErrorLog, ExceptionOfASinkStaysWithThatSink) {
  Error_log log;
  const auto ring = std::make_shared<Ring_sink>(8);
  log.add_sink(std::make_shared<Throwing_sink>());
  log.add_sink(ring);
  log.submit(sample_record("a"));
  EXPECT_EQ(messages(*ring),
            (Messages{"A destination of the error log fails: std::bad_alloc", "a"}));
}

TEST(ErrorLog, LogWithoutSinksAcceptsRecords) {
  Error_log log;
  log.submit(sample_record());
  const auto ring = std::make_shared<Ring_sink>(8);
  log.remove_sink(ring.get());
  EXPECT_TRUE(messages(*ring).empty());
}

}  // namespace
}  // namespace dovrin_host
