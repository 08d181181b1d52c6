#include "support/host_rows.h"

#include <openssl/err.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <utility>

#include "dovrin_host/legacy_padding.h"
#include "dovrin_host/server.h"

namespace halvex_test {

namespace {

using dovrin_host::Log_record;
using dovrin_host::Row_result;
using dovrin_host::Server;

// Collects the records of the error log.
class Record_collector : public dovrin_host::Log_sink {
 public:
  dovrin_host::Status write(const Log_record &record) override {
    records_.push_back(record);
    records_.back().time = {};
    return {};
  }

  std::vector<Log_record> take() { return std::exchange(records_, {}); }

 private:
  std::vector<Log_record> records_;
};

// The process's one collector, which listens from its first use on.
Record_collector &collector() {
  static const std::shared_ptr<Record_collector> sink = [] {
    auto made = std::make_shared<Record_collector>();
    Server::instance().error_log().add_sink(made);
    return made;
  }();
  return *sink;
}

// Random values of RSA keys have one length; the DER encoding of an ECDSA or DSA signature, which
// is shorter than any of them here, has not.
Host_row without_random_bytes(Host_row row) {
  constexpr std::size_t longest_der_signature = 72;
  if (row.kind == Row_result::Kind::string) {
    row.bytes.assign(std::max(row.bytes.size(), longest_der_signature), '\0');
  }
  return row;
}

bool has_random_value(const std::string &function) {
  return function == "asymmetric_encrypt" || function == "asymmetric_sign";
}

}  // namespace

std::ostream &operator<<(std::ostream &out, const Host_row &row) {
  out << "kind " << static_cast<int>(row.kind) << ", " << row.bytes.size() << " bytes, integer "
      << row.integer << (row.leaves_errors ? ", errors left" : "");
  for (const Log_record &record : row.records) {
    out << '\n' << render_json(record);
  }
  return out;
}

Host_row run_host_row(const std::string &function, std::span<const dovrin_host::Argument> arguments,
                      dovrin_host::Small_context_use use) {
  set_small_context_use(use);
  static_cast<void>(collector().take());
  std::vector<Item_result> types;
  for (const dovrin_host::Argument &argument : arguments) {
    types.push_back(argument.type());
  }
  const auto instance = Server::instance().open_function(function, types);
  if (!instance.ok()) {
    return {Row_result::Kind::error, instance.message(), 0, collector().take(), false};
  }
  const Row_result row = instance.value()->row(arguments);
  return {row.kind, std::string{row.text}, row.integer, collector().take(), ERR_peek_error() != 0};
}

Both_rows run_in_both_contexts(const std::string &function,
                               std::span<const dovrin_host::Argument> arguments) {
  constexpr int attempts = 200;
  using enum dovrin_host::Small_context_use;
  Both_rows rows;
  rows.small = run_host_row(function, arguments, always);
  if (!has_random_value(function)) {
    rows.by_default = run_host_row(function, arguments, never);
    rows.alike = rows.small == rows.by_default;
    return rows;
  }
  for (int i = 0; !rows.alike && i < attempts; ++i) {
    rows.by_default = run_host_row(function, arguments, never);
    rows.alike = without_random_bytes(rows.small) == without_random_bytes(rows.by_default);
  }
  return rows;
}

std::ostream &operator<<(std::ostream &out, const Both_rows &rows) {
  return out << (rows.alike ? "alike" : "different") << "; small: " << rows.small
             << "\nby default: " << rows.by_default;
}

void set_host_legacy_padding(bool on) {
  if (!Server::instance().variables().set(dovrin_host::legacy_padding_name, on).ok()) {
    std::abort();
  }
}

}  // namespace halvex_test
