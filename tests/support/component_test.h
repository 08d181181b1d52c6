// GoogleTest fixtures and matchers over the test support. The support library itself needs no
// GoogleTest; including this header does.

#ifndef HALVEX_TESTS_SUPPORT_COMPONENT_TEST_H
#define HALVEX_TESTS_SUPPORT_COMPONENT_TEST_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/call_site.h"
#include "support/expected_records.h"
#include "support/fixture.h"
#include "support/loaded_component.h"
#include "support/recording_server.h"

namespace halvex_test {

// A server with the shipped component loaded and initialised.
class Component_test : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(component.init(), 0); }
  void TearDown() override {
    EXPECT_EQ(open_lines(), 0);
    EXPECT_EQ(open_buffers(), 0);
  }

  // One statement of one row.
  Call_result call(const std::string &function, const std::vector<Argument> &arguments) const {
    return halvex_test::call(server, function, arguments);
  }

  Recording_server server;
  Loaded_component component;
};

// Matches the record of an OpenSSL failure whose text names some error (not error 0).
MATCHER_P2(IsOpensslRecord, function_name, algorithm,
           std::string("is an OpenSSL report of ") + function_name + " and " + algorithm) {
  const std::vector<std::string> arguments = arguments_of(arg);
  return arguments.size() == 3 && arguments[2].starts_with("error:") &&
         !arguments[2].starts_with("error:00000000") &&
         arg == openssl_record(function_name, algorithm, arguments[2]);
}

// Matches a Call_result or Row_result that is SQL NULL, with the error flag left alone.
MATCHER(IsSqlNull, "is SQL NULL") {
  if constexpr (requires { arg.row; }) {
    return !arg.rejection && arg.row.is_null && !arg.row.error && arg.row.integer == 0;
  } else {
    return arg.is_null && !arg.error && arg.integer == 0;
  }
}

// Matches a Call_result that init rejected with this text.
MATCHER_P(IsRejected, text, std::string("is rejected with \"") + text + "\"") {
  return arg.rejection && *arg.rejection == text;
}

// Prints a result for failed assertions.
inline void PrintTo(const Row_result &result, std::ostream *out) {
  *out << (result.is_null ? "NULL" : ::testing::PrintToString(result.bytes)) << ", integer "
       << result.integer << ", error " << result.error;
}

inline void PrintTo(const Call_result &result, std::ostream *out) {
  if (result.rejection) {
    *out << "rejected: " << *result.rejection;
  } else {
    PrintTo(result.row, out);
  }
}

}  // namespace halvex_test

#endif  // HALVEX_TESTS_SUPPORT_COMPONENT_TEST_H
