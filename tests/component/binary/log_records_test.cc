// How a record reaches the server: its items, the operations that build it, and its message.

#include "support/component_test.h"

namespace halvex_test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char *tag = "Component component_halvex_encryption reported: ";

class LogRecords : public Component_test {
 protected:
  // Writes one record: code 13920 of asymmetric_encrypt, with the algorithm as its first argument.
  void report(const std::string &algorithm) const {
    call("asymmetric_encrypt", {algorithm, "data", "key"});
  }

  // The message of the only record.
  [[nodiscard]] std::string message() const {
    const std::vector<Record> records = server.records();
    return records.size() == 1 ? records[0].message : "(not one record)";
  }
};

TEST_F(LogRecords, ErrorHasSevenItemsInOrder) {
  report("DSA");
  EXPECT_THAT(
      server.raw_records(),
      ElementsAre(ElementsAre(
          Raw_item{0x10000, 1LL, "item_set_int", 0}, Raw_item{2, 13920LL, "item_set_int", 0},
          Raw_item{1024, "component:component_halvex_encryption", "item_set_cstring", 0},
          Raw_item{128, 362LL, "item_set_int", 0}, Raw_item{64, "functions", "item_set_cstring", 0},
          Raw_item{256, "encrypt", "item_set_cstring", 0},
          Raw_item{0x80000, message_of({"DSA", "asymmetric_encrypt"}), "item_set_lexstring", 2})));
}

TEST_F(LogRecords, MissingArgumentIsAWarning) {
  call("asymmetric_encrypt", {null_string(), "data", "key"});
  const auto records = server.raw_records();
  ASSERT_EQ(records.size(), 1U);
  EXPECT_EQ(records[0][0], (Raw_item{0x10000, 2LL, "item_set_int", 0}));
}

TEST_F(LogRecords, AreBuiltByTheseOperationsInOrder) {
  server.forget_calls();
  report("DSA");
  EXPECT_THAT(server.log_calls(),
              ElementsAre("create_line", "allocate 8192", "add_item 65536", "item_set_int 1",
                          "add_item 2", "item_set_int 13920", "add_item 1024",
                          "item_set_cstring component:component_halvex_encryption", "add_item 128",
                          "item_set_int 362", "add_item 64", "item_set_cstring functions",
                          "add_item 256", "item_set_cstring encrypt", "message_template 13920",
                          "has_item 2", "format 8192", "add_item_with_key 524288 flags 2",
                          "item_set_lexstring", "submit", "release_line"));
}

TEST_F(LogRecords, WithoutALineNothingIsSubmittedAndTheCallGoesOn) {
  server.refuse_lines();
  server.forget_calls();
  report("DSA");
  EXPECT_THAT(server.log_calls(),
              ElementsAre("create_line", "add_item 65536 (null)", "item_set_int 1 (null)",
                          "add_item 2 (null)", "item_set_int 13920 (null)", "add_item 1024 (null)",
                          "item_set_cstring component:component_halvex_encryption (null)",
                          "add_item 128 (null)", "item_set_int 362 (null)", "add_item 64 (null)",
                          "item_set_cstring functions (null)", "add_item 256 (null)",
                          "item_set_cstring encrypt (null)", "message_template 13920"));
  EXPECT_THAT(server.records(), IsEmpty());
}

TEST_F(LogRecords, WithoutABufferTheLineIsReleasedAndNothingIsSubmitted) {
  server.refuse_buffers();
  server.forget_calls();
  report("DSA");
  const std::vector<std::string> calls = server.log_calls();
  ASSERT_EQ(calls.size(), 16U);
  EXPECT_EQ(calls[0], "create_line");
  EXPECT_EQ(calls[1], "allocate 8192");
  EXPECT_EQ(calls[2], "release_line");
  EXPECT_EQ(calls[3], "add_item 65536 (null)");
  EXPECT_EQ(calls[15], "message_template 13920");
  EXPECT_THAT(server.records(), IsEmpty());
}

TEST_F(LogRecords, DroppedRecordDoesNotChangeTheResult) {
  server.refuse_lines();
  EXPECT_THAT(call("asymmetric_encrypt", {"DSA", "data", "key"}), IsSqlNull());
  server.accept_everything();
  server.refuse_buffers();
  EXPECT_THAT(call("asymmetric_encrypt", {"RSA", "data", "key"}), IsSqlNull());
}

TEST_F(LogRecords, MissingTemplateIsAnInvalidErrorCode) {
  server.set_template(13920, std::nullopt);
  report("DSA");
  EXPECT_EQ(message(), std::string(tag) + "'invalid error code'");
}

TEST_F(LogRecords, EmptyTemplateIsTreatedLikeAMissingOne) {
  server.set_template(13920, "");
  report("DSA");
  EXPECT_EQ(message(), std::string(tag) + "'invalid error code'");
}

// The longest algorithm's name that leaves room for the rest of the message.
std::string algorithm_for_message_of(size_t length) {
  const size_t rest = message_of({"", "asymmetric_encrypt"}).size();
  return std::string(length - rest, 'A');
}

TEST_F(LogRecords, MessageOf8191CharactersIsKeptWhole) {
  const std::string algorithm = algorithm_for_message_of(8191);
  report(algorithm);
  EXPECT_EQ(message(), message_of({algorithm, "asymmetric_encrypt"}));
  EXPECT_EQ(message().size(), 8191U);
}

TEST_F(LogRecords, MessageOf8192CharactersIsTruncatedAndMarked) {
  const std::string algorithm = algorithm_for_message_of(8192);
  report(algorithm);
  const std::string whole = message_of({algorithm, "asymmetric_encrypt"});
  ASSERT_EQ(whole.size(), 8192U);
  EXPECT_EQ(message(), whole.substr(0, 8185) + " <...>");
}

TEST_F(LogRecords, MuchTooLongMessageIsTruncatedAndMarkedLikewise) {
  const std::string algorithm(100000, 'A');
  report(algorithm);
  EXPECT_EQ(message(), message_of({algorithm, ""}).substr(0, 8185) + " <...>");
}

// The tag and the template are put together in 8192 bytes, before the arguments are: a template
// that is too long loses its end, and the result is not too long.
TEST_F(LogRecords, TemplateThatIsTooLongIsTruncatedWithoutAMark) {
  server.set_template(13920, std::string(9000, 'T'));
  report("DSA");
  EXPECT_EQ(message(), (std::string(tag) + "'" + std::string(9000, 'T')).substr(0, 8191));
}

TEST_F(LogRecords, PercentSignsOfAnArgumentStayAsTheyAre) {
  report("%S%N%");
  EXPECT_EQ(message(), message_of({"%S%N%", "asymmetric_encrypt"}));
}

TEST_F(LogRecords, NothingIsKeptBetweenRecords) {
  for (int i = 0; i < 100; ++i) {
    report("DSA");
  }
  EXPECT_EQ(server.records().size(), 100U);
  EXPECT_EQ(open_lines(), 0);
  EXPECT_EQ(open_buffers(), 0);
}

}  // namespace
}  // namespace halvex_test
