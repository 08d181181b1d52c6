// Error-log records with arbitrary texts and numbers: the first byte of the input picks the code,
// the fields are the message's arguments (fields.h).

#include <array>
#include <cstring>
#include <string>
#include <vector>

#include "dovrin/services.h"
#include "halvex_encryption/utilities.h"
#include "linked_component.h"
#include "support/record.h"

namespace {

using halvex_encryption::utilities::report;
using halvex_encryption::utilities::Report_site;
using halvex_fuzz::Exact_copy;
using halvex_fuzz::require;
using halvex_test::message_of;
using std::to_string;

constexpr std::size_t most_fields = 4;
constexpr std::size_t longest_message = 8191;

// The arguments that an input offers to every shape of message.
struct Texts {
  std::array<const char *, most_fields> text;
  std::array<long long, most_fields> number;
};

// The message's arguments as texts.
using Arguments = std::vector<std::string>;

// Writes one record of each shape and returns the arguments that its message must have.
Arguments report_texts(const Report_site &site, const Texts &a) {
  report(site, a.text[0], a.text[1], a.text[2]);
  return {a.text[0], a.text[1], a.text[2]};
}

Arguments report_length(const Report_site &site, const Texts &a) {
  const auto length = static_cast<unsigned long long>(a.number[0]);
  report(site, a.text[0], a.text[1], length);
  return {a.text[0], a.text[1], to_string(length)};
}

Arguments report_numbers(const Report_site &site, const Texts &a) {
  const auto size = static_cast<unsigned long long>(a.number[0]);
  report(site, size, a.text[0], a.text[1], a.number[1], a.number[2]);
  return {to_string(size), a.text[0], a.text[1], to_string(a.number[1]), to_string(a.number[2])};
}

Arguments report_unknown(const Report_site &site, const Texts &a) {
  report(site, a.text[0]);
  return {"invalid error code"};
}

struct Shape {
  int code;
  Arguments (*report)(const Report_site &site, const Texts &arguments);
};

constexpr std::array<Shape, 4> shapes{
    {{13927, report_texts}, {13925, report_length}, {13921, report_numbers}, {1, report_unknown}}};

// Truncated as the component does it: to 8191 bytes with a mark at their end.
std::string truncated(std::string message) {
  if (message.size() > longest_message) {
    constexpr std::string_view mark = " <...>";
    message.resize(longest_message - mark.size());
    message += mark;
  }
  return message;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  if (size == 0) {
    return 0;
  }
  halvex_fuzz::initialise_component();
  std::vector<Exact_copy> copies;
  Texts arguments{{"", "", "", ""}, {}};
  const std::string_view input{reinterpret_cast<const char *>(data) + 1, size - 1};
  for (const std::string_view field : halvex_fuzz::split_fields(input, most_fields)) {
    const std::size_t position = copies.size();
    copies.emplace_back(field);
    arguments.text.at(position) = copies.back().data();
    std::memcpy(&arguments.number.at(position), field.data(),
                std::min(field.size(), sizeof(long long)));
  }

  const Shape &shape = shapes.at(data[0] % shapes.size());
  const Report_site site{shape.code, 1, "utilities", "a_function"};
  const std::size_t records_before = halvex_test::submitted_records();
  const std::string message = truncated(message_of(shape.report(site, arguments)));
  require(halvex_test::submitted_records() == records_before + 1);
  require(halvex_test::last_record().code == shape.code);
  require(halvex_test::last_record().message == message);
  halvex_fuzz::check_server();
  return 0;
}
