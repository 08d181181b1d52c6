#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/evperr.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "dovrin_host/functions.h"
#include "printers.h"

namespace dovrin_host {
namespace {

// What the callbacks below have seen, and what they shall do.
struct Calls {
  int inits = 0;
  int rows = 0;
  int deinits = 0;
  std::string arguments;               // of the last row, as describe() writes them
  const char *first = nullptr;         // args[0] of the last row
  std::vector<const char *> pointers;  // all of args
  unsigned char is_null_before = 7;    // the flags as the last row found them
  unsigned char error_before = 7;
  bool init_throws = false;
  bool row_throws = false;
  bool row_raises = false;   // leaves an error in the OpenSSL queue
  unsigned long queued = 7;  // the oldest error in the queue as the last row found it
  const char *rejection = nullptr;
  unsigned char is_null = 0;  // what the row answers
  unsigned char error = 0;
};
Calls calls;

std::string describe(const UDF_ARGS &args, unsigned int i) {
  const char *const value = args.args[i];
  if (value == nullptr) {
    return "null";
  }
  if (args.arg_type[i] == INT_RESULT) {
    long long number = 0;
    std::memcpy(&number, value, sizeof number);
    return "integer " + std::to_string(number);
  }
  if (args.arg_type[i] == REAL_RESULT) {
    double number = 0;
    std::memcpy(&number, value, sizeof number);
    return "real " + std::to_string(number);
  }
  const char *const end = value[args.lengths[i]] == '\0' ? "" : " without NUL";
  return "string " + std::string(value, args.lengths[i]) + end;
}

void note_row(const UDF_ARGS &args, unsigned char *is_null, unsigned char *error) {
  ++calls.rows;
  calls.queued = ERR_peek_error();
  if (calls.row_raises) {
    ERR_raise(ERR_LIB_EVP, EVP_R_UNSUPPORTED_ALGORITHM);
  }
  calls.is_null_before = *is_null;
  calls.error_before = *error;
  calls.first = args.arg_count > 0 ? args.args[0] : nullptr;
  calls.pointers.assign(args.args, args.args + args.arg_count);
  calls.arguments.clear();
  for (unsigned int i = 0; i < args.arg_count; ++i) {
    calls.arguments += (i > 0 ? ", " : "") + describe(args, i);
  }
  *is_null = calls.is_null;
  *error = calls.error;
  if (calls.row_throws) {
    throw std::bad_alloc{};
  }
}

bool init(UDF_INIT *instance, UDF_ARGS * /*args*/, char *message) {
  ++calls.inits;
  instance->ptr = nullptr;
  instance->max_length = 1000;
  if (calls.init_throws) {
    throw std::bad_alloc{};
  }
  if (calls.rejection != nullptr) {
    std::strcpy(message, calls.rejection);
    return true;
  }
  return false;
}

bool unterminated_init(UDF_INIT * /*instance*/, UDF_ARGS * /*args*/, char *message) {
  std::memset(message, 'x', DOVRIN_UDF_MESSAGE_SIZE);
  return true;
}

void deinit(UDF_INIT * /*instance*/) { ++calls.deinits; }

char *echo(UDF_INIT * /*instance*/, UDF_ARGS *args, char * /*result*/, unsigned long *length,
           unsigned char *is_null, unsigned char *error) {
  note_row(*args, is_null, error);
  *length = args->lengths[0];
  return args->args[0];
}

char *fill_result(UDF_INIT * /*instance*/, UDF_ARGS *args, char *result, unsigned long *length,
                  unsigned char *is_null, unsigned char *error) {
  note_row(*args, is_null, error);
  std::memset(result, 'r', *length);
  return result;
}

long long forty_two(UDF_INIT * /*instance*/, UDF_ARGS *args, unsigned char *is_null,
                    unsigned char *error) {
  note_row(*args, is_null, error);
  return 42;
}

class FunctionInstance : public testing::Test {
 protected:
  FunctionInstance() {
    calls = {};
    add({"echo", STRING_RESULT, reinterpret_cast<Udf_func_any>(&echo), &init, &deinit});
    add({"fill_result", STRING_RESULT, reinterpret_cast<Udf_func_any>(&fill_result), &init,
         &deinit});
    add({"forty_two", INT_RESULT, reinterpret_cast<Udf_func_any>(&forty_two), &init, &deinit});
    add({"create_digest", INT_RESULT, reinterpret_cast<Udf_func_any>(&forty_two), nullptr,
         nullptr});
    add({"asymmetric_verify", INT_RESULT, reinterpret_cast<Udf_func_any>(&forty_two), nullptr,
         nullptr});
    add({"bare", INT_RESULT, reinterpret_cast<Udf_func_any>(&forty_two), nullptr, nullptr});
    add({"unterminated", STRING_RESULT, reinterpret_cast<Udf_func_any>(&echo), &unterminated_init,
         nullptr});
  }

  Result<std::unique_ptr<Function_instance>> open(const char *name,
                                                  std::vector<Item_result> types) {
    return Function_instance::open(registry_.pin(name), types);
  }

  std::size_t open_instances() const { return registry_.open_instances(nullptr); }

 private:
  void add(Function_definition definition) {
    EXPECT_TRUE(registry_.add(std::move(definition), nullptr));
  }

  Function_registry registry_;
};

using Arguments = std::vector<Argument>;

bool all_zero(const char *bytes, std::size_t length) {
  return std::all_of(bytes, bytes + length, [](char byte) { return byte == '\0'; });
}

TEST_F(FunctionInstance, RunsInitOnceRowPerRowDeinitOnce) {
  {
    const auto instance = open("forty_two", {INT_RESULT});
    ASSERT_TRUE(instance.ok()) << instance.message();
    for (int i = 0; i < 3; ++i) {
      EXPECT_EQ(instance.value()->row(Arguments{Argument::integer(i)}), integer_result(42));
    }
    EXPECT_EQ(calls.deinits, 0);
    EXPECT_EQ(open_instances(), 1U);
  }
  EXPECT_EQ(calls.inits, 1);
  EXPECT_EQ(calls.rows, 3);
  EXPECT_EQ(calls.deinits, 1);
  EXPECT_EQ(open_instances(), 0U);
}

TEST_F(FunctionInstance, RejectionIsExactlyTheFunctionsTextAndDeinitRuns) {
  calls.rejection = "Mismatch in number of arguments to the function. Expected 2 arguments";
  const auto instance = open("echo", {STRING_RESULT});
  ASSERT_FALSE(instance.ok());
  EXPECT_EQ(instance.message(), calls.rejection);
  EXPECT_EQ(calls.deinits, 1);
  EXPECT_EQ(open_instances(), 0U);
}

TEST_F(FunctionInstance, RejectionThatFillsTheBufferIsTruncatedBeforeItsEnd) {
  const auto instance = open("unterminated", {STRING_RESULT});
  ASSERT_FALSE(instance.ok());
  EXPECT_EQ(instance.message(), std::string(DOVRIN_UDF_MESSAGE_SIZE - 1, 'x'));
}

TEST_F(FunctionInstance, ExceptionOfInitPassesAfterDeinit) {
  calls.init_throws = true;
  EXPECT_THROW(static_cast<void>(open("echo", {STRING_RESULT})), std::bad_alloc);
  EXPECT_EQ(calls.deinits, 1);
  EXPECT_EQ(open_instances(), 0U);
}

TEST_F(FunctionInstance, UnknownFunctionIsAFailure) {
  const auto instance = open("no_such_function", {});
  ASSERT_FALSE(instance.ok());
  EXPECT_EQ(instance.message(), "The function is not installed.");
}

TEST_F(FunctionInstance, FunctionWithoutInitAndDeinitWorks) {
  const auto instance = open("bare", {});
  ASSERT_TRUE(instance.ok());
  EXPECT_EQ(instance.value()->row({}), integer_result(42));
}

TEST_F(FunctionInstance, KnowsWhatTheFunctionWasRegisteredAs) {
  const auto instance = open("echo", {STRING_RESULT});
  ASSERT_TRUE(instance.ok());
  EXPECT_EQ(instance.value()->name(), "echo");
  EXPECT_EQ(instance.value()->result_type(), STRING_RESULT);
}

TEST_F(FunctionInstance, ArgumentsOfEveryKindArriveWithTerminators) {
  const auto instance = open("forty_two", {STRING_RESULT, STRING_RESULT, STRING_RESULT, INT_RESULT,
                                           REAL_RESULT, STRING_RESULT, INT_RESULT});
  ASSERT_TRUE(instance.ok());
  const std::string text = "abcdef";
  const Arguments arguments{Argument::string(std::string_view{text}.substr(0, 3)),
                            Argument::string({}),
                            Argument::terminated_string(text),
                            Argument::integer(-9223372036854775807LL - 1),
                            Argument::real(0.5),
                            Argument::null(STRING_RESULT),
                            Argument::null(INT_RESULT)};
  EXPECT_EQ(instance.value()->row(arguments), integer_result(42));
  EXPECT_EQ(calls.arguments,
            "string abc, string , string abcdef, integer -9223372036854775808, "
            "real 0.500000, null, null");
}

TEST_F(FunctionInstance, TerminatedStringIsNotCopied) {
  const auto instance = open("forty_two", {STRING_RESULT});
  ASSERT_TRUE(instance.ok());
  const std::string text = "abc";
  instance.value()->row(Arguments{Argument::terminated_string(text)});
  EXPECT_EQ(calls.first, text.data());
}

TEST_F(FunctionInstance, StringThatIsReadByItsLengthIsNotCopied) {
  const auto digest = open("create_digest", {STRING_RESULT, STRING_RESULT});
  ASSERT_TRUE(digest.ok());
  const std::string name = "sha256";
  const std::string data = "data";
  digest.value()->row(Arguments{Argument::string(name), Argument::string(data)});
  EXPECT_NE(calls.pointers.at(0), name.data());
  EXPECT_EQ(calls.pointers.at(1), data.data());

  digest.value()->row(Arguments{Argument::string(name), Argument::string({})});
  EXPECT_NE(calls.pointers.at(1), nullptr) << "an empty string is not NULL";
}

TEST_F(FunctionInstance, EmptyStringIsNotNull) {
  const auto instance = open("forty_two", {STRING_RESULT});
  ASSERT_TRUE(instance.ok());
  instance.value()->row(Arguments{Argument::terminated_string({})});
  EXPECT_EQ(calls.arguments, "string ");
  instance.value()->row(Arguments{Argument::string({})});
  EXPECT_EQ(calls.arguments, "string ");
}

TEST_F(FunctionInstance, CopiesAreWipedAfterEachRow) {
  const auto instance = open("forty_two", {STRING_RESULT, STRING_RESULT});
  ASSERT_TRUE(instance.ok());
  instance.value()->row(Arguments{Argument::string("secret one"), Argument::string("secret two")});
  EXPECT_EQ(calls.arguments, "string secret one, string secret two");
  EXPECT_TRUE(all_zero(calls.first, 22));
}

TEST_F(FunctionInstance, CopiesAreWipedWhenARowThrows) {
  const auto instance = open("echo", {STRING_RESULT});
  ASSERT_TRUE(instance.ok());
  calls.row_throws = true;
  EXPECT_THROW(instance.value()->row(Arguments{Argument::string("secret")}), std::bad_alloc);
  EXPECT_TRUE(all_zero(calls.first, 7));

  calls.row_throws = false;
  EXPECT_EQ(instance.value()->row(Arguments{Argument::string("next")}), string_result("next"));
}

TEST_F(FunctionInstance, ResultInsideTheCopiesLivesUntilTheNextRow) {
  const auto instance = open("echo", {STRING_RESULT});
  ASSERT_TRUE(instance.ok());
  std::string text = "secret";
  const auto row = instance.value()->row(Arguments{Argument::string(text)});
  text.assign("gone");
  EXPECT_EQ(row, string_result("secret"));
  EXPECT_NE(calls.first, text.data());

  const char *const copy = calls.first;
  instance.value()->row(Arguments{Argument::null(STRING_RESULT)});
  EXPECT_TRUE(all_zero(copy, 7));
}

TEST_F(FunctionInstance, FunctionMayUseTheServersResultBuffer) {
  const auto instance = open("fill_result", {});
  ASSERT_TRUE(instance.ok());
  EXPECT_EQ(instance.value()->row({}), string_result(std::string(255, 'r')));
}

TEST_F(FunctionInstance, FlagsAreClearBeforeEachRow) {
  const auto instance = open("forty_two", {});
  ASSERT_TRUE(instance.ok());
  calls.is_null = 1;
  calls.error = 1;
  instance.value()->row({});
  instance.value()->row({});
  EXPECT_EQ(calls.is_null_before, 0);
  EXPECT_EQ(calls.error_before, 0);
}

TEST_F(FunctionInstance, NullAndErrorFlagsReachTheCaller) {
  const auto text = open("echo", {STRING_RESULT});
  const auto number = open("forty_two", {});
  ASSERT_TRUE(text.ok() && number.ok());
  const Arguments arguments{Argument::string("a")};

  calls.is_null = 1;
  const auto null_text = text.value()->row(arguments);
  const auto null_number = number.value()->row({});
  EXPECT_EQ(null_text, Row_result{});
  EXPECT_EQ(null_number, Row_result{});

  calls.is_null = 0;
  calls.error = 1;
  EXPECT_EQ(text.value()->row(arguments), error_result("The function echo reported an error."));
  EXPECT_EQ(number.value()->row({}), error_result("The function forty_two reported an error."));
}

TEST_F(FunctionInstance, NullPointerResultIsNull) {
  const auto instance = open("echo", {STRING_RESULT});
  ASSERT_TRUE(instance.ok());
  EXPECT_EQ(instance.value()->row(Arguments{Argument::null(STRING_RESULT)}), Row_result{});
}

TEST_F(FunctionInstance, OtherTypesOrNumbersOfArgumentsAreNotPassedOn) {
  const auto instance = open("forty_two", {INT_RESULT});
  ASSERT_TRUE(instance.ok());
  const std::vector<Arguments> others{
      {}, {Argument::real(1)}, {Argument::integer(1), Argument::integer(1)}};
  for (const Arguments &arguments : others) {
    EXPECT_FALSE(instance.value()->accepts(arguments));
    EXPECT_EQ(instance.value()->row(arguments),
              error_result("The function forty_two was opened for arguments of other types."));
  }
  EXPECT_TRUE(instance.value()->accepts(Arguments{Argument::null(INT_RESULT)}));
  EXPECT_EQ(calls.rows, 0);
}

TEST_F(FunctionInstance, LongerArgumentsInLaterRowsAreCopiedWhole) {
  const auto instance = open("echo", {STRING_RESULT});
  ASSERT_TRUE(instance.ok());
  for (const std::size_t length : {1U, 1000U, 10U, 100000U}) {
    const std::string text(length, 'a');
    EXPECT_EQ(instance.value()->row(Arguments{Argument::string(text)}), string_result(text));
  }
}

TEST_F(FunctionInstance, KeyAtTheLimitIsPassedOnAndALongerOneIsAnError) {
  const auto verify = open("asymmetric_verify", std::vector(5, STRING_RESULT));
  ASSERT_TRUE(verify.ok());
  const std::string at_limit(16384, 'k');
  const std::string longer(16385, 'k');
  const auto arguments = [](const std::string &key, const std::string &others) {
    return Arguments{Argument::string(others), Argument::string(others), Argument::string(others),
                     Argument::string(key), Argument::string(others)};
  };
  EXPECT_EQ(verify.value()->row(arguments(at_limit, longer)), integer_result(42));
  EXPECT_EQ(verify.value()->row(arguments(longer, "a")),
            error_result("The function asymmetric_verify was given a key of 16385 bytes; the limit "
                         "is 16384."));
  EXPECT_EQ(calls.rows, 1);
}

TEST_F(FunctionInstance, FunctionWithoutKeysHasNoLimit) {
  const auto digest = open("create_digest", {STRING_RESULT, STRING_RESULT});
  ASSERT_TRUE(digest.ok());
  const std::string longer(100000, 'k');
  EXPECT_EQ(digest.value()->row(Arguments{Argument::string(longer), Argument::string(longer)}),
            integer_result(42));
}

// One error of the OpenSSL queue.
struct Queued_error {
  unsigned long code;
  int line;
  int flags;
  std::string file;
  std::string function;
  std::string text;

  bool operator==(const Queued_error &) const = default;
};

std::vector<Queued_error> take_queue() {
  std::vector<Queued_error> errors;
  const char *file = nullptr;
  const char *function = nullptr;
  const char *text = nullptr;
  int line = 0;
  int flags = 0;
  while (const unsigned long code = ERR_get_error_all(&file, &line, &function, &text, &flags)) {
    errors.push_back({code, line, flags & ERR_TXT_STRING, file, function, text});
  }
  return errors;
}

void leave_errors_of_another_user() {
  ERR_raise(ERR_LIB_RSA, 7);
  ERR_raise_data(ERR_LIB_USER, 9, "%s with %%s", "text");
  ERR_raise(ERR_LIB_SYS, 2);
}

TEST_F(FunctionInstance, ErrorsOfOtherUsersAreSetAsideAndRestored) {
  leave_errors_of_another_user();
  const std::vector<Queued_error> expected = take_queue();
  ASSERT_EQ(expected.size(), 3U);
  const auto number = open("forty_two", {});
  ASSERT_TRUE(number.ok());

  calls.row_raises = true;
  for (const bool throws : {false, true}) {
    leave_errors_of_another_user();
    calls.row_throws = throws;
    if (throws) {
      EXPECT_THROW(number.value()->row({}), std::bad_alloc);
    } else {
      EXPECT_EQ(number.value()->row({}), integer_result(42));
    }
    EXPECT_EQ(calls.queued, 0U);
    EXPECT_TRUE(take_queue() == expected);
  }
}

TEST_F(FunctionInstance, RowLeavesNoErrorsOfItsOwn) {
  const auto number = open("forty_two", {});
  ASSERT_TRUE(number.ok());
  calls.row_raises = true;
  EXPECT_EQ(number.value()->row({}), integer_result(42));
  EXPECT_EQ(ERR_peek_error(), 0U);
}

}  // namespace
}  // namespace dovrin_host
