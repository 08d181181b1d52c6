// Prints docs/records.md from the catalogue of the error log.

#include <array>
#include <iostream>
#include <string>
#include <string_view>

#include "dovrin_host/error_log.h"
#include "dovrin_host/functions.h"
#include "dovrin_host/legacy_padding.h"

namespace {

using dovrin_host::Catalogue_entry;

constexpr const char *introduction =
    R"(# The records of the error log

Printed by `docs/print_records.cc` from the catalogue; `./test -R Documents.records` compares them.

A function that gives NULL for a failure writes one or two of these records, with the legacy switch on up to four;
[functions.md](functions.md) lists which, and the four calls that write none. They are in the table `dovrin_error_log`
([sqlite.md](sqlite.md#dovrin_error_log)), and in PostgreSQL messages of the server's log
([postgresql.md](postgresql.md#why-a-result-is-null)). A message begins with `Component component_halvex_encryption reported:`.
`TEXT` below stands for a name or a reason, `N` for a number; texts that a user typed are truncated to 32 characters. 13919 is a
warning, the others are errors.
)";

struct Cause {
  int code;
  const char *text;
};

constexpr std::array causes{
    Cause{13915,
          "The component is being installed, and the server rejects one of its two variables."},
    Cause{13916, "The component is being uninstalled, and the server keeps one of its variables."},
    Cause{13917, "The component is being installed, and the server rejects one of its functions."},
    Cause{13918, "The component is being uninstalled, and the server keeps one of its functions."},
    Cause{13919, "An argument is NULL."},
    Cause{13920, "The first argument is not `RSA`, in any letter case."},
    Cause{13921, "The key length is below 2048 or above `maximum_rsa_key_size`."},
    Cause{13922, "OpenSSL did not create the key or did not write it as PEM."},
    Cause{13923,
          "The text is no readable private key, or a public one. Record 13928 comes before it."},
    Cause{13924,
          "The data is longer than the key takes. In `asymmetric_decrypt`, usually a public key in "
          "the place of the "
          "private one."},
    Cause{13925,
          "The data is empty, the key is a private one, or its type cannot encrypt; then 13928 "
          "comes before it."},
    Cause{13926,
          "The data is damaged, belongs to another key or has another padding (13928 comes before "
          "it), or is empty."},
    Cause{13927,
          "The content is empty, the key is a public one or not readable, or the digest type is "
          "unknown. Record "
          "13928 comes before it if OpenSSL rejected something."},
    Cause{
        13928,
        "OpenSSL rejected a key, a ciphertext or a signature; the record quotes its last error. In "
        "`asymmetric_verify`, usually a signature that does not match."},
    Cause{
        13929,
        "The result does not fit. No key that `create_asymmetric_priv_key` may create leads here."},
};

// Takes the remedy of the first one.
constexpr const char *records_of_hosts = R"(
## Records of the hosts

Without a code and with the component `server`; in the SQLite host alone.

| symbol | priority | cause | remedy |
|---|---|---|---|
| `LEGACY_PADDING_ON` | warning | `rsa_support_legacy_padding` was set to ON | %s |
| `LOG_SINK_FAILED` | error | a record could not be written to the log file or to standard error | Make room or repair the destination; it is tried again with the next record. |
)";

std::string replace_all(std::string_view text, std::string_view old, std::string_view replacement) {
  std::string result;
  for (std::size_t at = text.find(old); at != std::string_view::npos; at = text.find(old)) {
    result.append(text.substr(0, at)).append(replacement);
    text.remove_prefix(at + old.size());
  }
  return result.append(text);
}

std::string readable_template(std::string text) {
  for (const char *const number : {"%llu", "%lld"}) {
    text = replace_all(text, number, "N");
  }
  for (const char *const string : {"%.32s", "%s"}) {
    text = replace_all(text, string, "TEXT");
  }
  return text;
}

const char *find_cause(int code) {
  for (const Cause &cause : causes) {
    if (cause.code == code) {
      return cause.text;
    }
  }
  return nullptr;
}

// Prints the section of one code; false if no cause is known here.
bool print_record(const Catalogue_entry &entry) {
  const char *const cause = find_cause(entry.code);
  if (cause == nullptr) {
    std::cerr << "print_records: code " << entry.code << " has no cause\n";
    return false;
  }
  std::cout << "\n## " << entry.code << ' ' << entry.symbol << "\n\n> "
            << readable_template(entry.template_text) << "\n\n- SQLSTATE: `X"
            << std::to_string(entry.code).substr(1) << "`\n- Cause: " << cause
            << "\n- Remedy: " << entry.hint << '\n';
  for (const auto &function : dovrin_host::function_descriptions()) {
    const std::string_view hint = dovrin_host::find_hint(entry.code, function.name);
    if (hint != entry.hint) {
      std::cout << "- Remedy in `" << function.name << "`: " << hint << '\n';
    }
  }
  return true;
}

}  // namespace

int main() {
  constexpr int largest_code = 65535;
  std::cout << introduction;
  bool complete = true;
  for (int code = 1; code <= largest_code; ++code) {
    const Catalogue_entry *const entry = dovrin_host::find_catalogue_entry(code);
    complete = (entry == nullptr || print_record(*entry)) && complete;
  }
  std::cout << replace_all(records_of_hosts, "%s", dovrin_host::legacy_padding_hint);
  return complete ? 0 : 1;
}
