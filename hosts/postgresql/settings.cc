// clang-format off
#include "postgresql/postgres_headers.h"
// clang-format on

#include "postgresql/settings.h"

#include "postgresql/component_calls.h"

namespace halvex_postgresql {
namespace {

constexpr const char *prefix = "component_halvex_encryption";
constexpr const char *maximum_key_size_name = "component_halvex_encryption.maximum_rsa_key_size";
constexpr const char *legacy_padding_name =
    "component_halvex_encryption.rsa_support_legacy_padding";

constexpr int key_size_block = 1024;

// What the component has when it is loaded.
int maximum_key_size = 4096;
bool legacy_padding = false;

// Whether every process of this server has the library from the start.
bool preloaded = false;

// The component's own check and update run together in the assign hooks: the server calls a check
// hook without its assign hook (ALTER SYSTEM) and the other way round (a transaction's end), and a
// check of the component that is not followed by its update keeps memory.
bool check_maximum_key_size(int *new_value, void ** /*extra*/, GucSource /*source*/) {
  if (*new_value % key_size_block == 0) {
    return true;
  }
  GUC_check_errdetail("RSA key sizes are multiples of %d bits.", key_size_block);
  GUC_check_errhint("The nearest sizes are %d and %d.",
                    *new_value / key_size_block * key_size_block,
                    (*new_value / key_size_block + 1) * key_size_block);
  return false;
}

void report_unless(bool applied, const char *name) {
  if (!applied) {
    ereport(WARNING, (errmsg("the component did not take the setting %s", name),
                      errdetail_internal("%s", failure_text())));
  }
}

void assign_maximum_key_size(int new_value, void * /*extra*/) {
  if (is_component_loaded()) {
    report_unless(set_integer_variable(maximum_key_size_name, new_value), maximum_key_size_name);
  }
}

void warn_of_legacy_padding() {
  ereport(
      WARNING,
      (errmsg("%s is turned on", legacy_padding_name),
       errdetail("While it is on, asymmetric_verify with a SHA-2 digest returns 1 even for most "
                 "signatures that do not match, and asymmetric_decrypt accepts PKCS#1 v1.5 "
                 "padding."),
       errhint("Turn it off as soon as nothing old is left to decrypt; do not rely on "
               "asymmetric_verify meanwhile.")));
}

// For ALTER SYSTEM, and for a session that loads the library: both come inside a transaction. A
// parallel worker takes over what its leader has.
bool check_legacy_padding(bool *new_value, void ** /*extra*/, GucSource /*source*/) {
  if (*new_value && !legacy_padding && IsTransactionState() && !IsParallelWorker()) {
    warn_of_legacy_padding();
  }
  return true;
}

// For a start or a reload, which come outside of transactions. Where the library is preloaded the
// postmaster speaks for all sessions.
void assign_legacy_padding(bool new_value, void * /*extra*/) {
  if (new_value && !legacy_padding && !(preloaded && IsUnderPostmaster) && !IsTransactionState()) {
    warn_of_legacy_padding();
  }
  if (is_component_loaded()) {
    report_unless(set_boolean_variable(legacy_padding_name, new_value), legacy_padding_name);
  }
}

}  // namespace

void define_settings() {
  preloaded = process_shared_preload_libraries_in_progress;
  DefineCustomIntVariable(maximum_key_size_name, "Maximum size of RSA key generation", nullptr,
                          &maximum_key_size, maximum_key_size, 2048, 16384, PGC_SIGHUP, 0,
                          check_maximum_key_size, assign_maximum_key_size, nullptr);
  DefineCustomBoolVariable(
      legacy_padding_name,
      "Supports legacy padding in decryption and signature verification functions", nullptr,
      &legacy_padding, legacy_padding, PGC_SIGHUP, 0, check_legacy_padding, assign_legacy_padding,
      nullptr);
  MarkGUCPrefixReserved(prefix);
}

void apply_settings() {
  assign_maximum_key_size(maximum_key_size, nullptr);
  assign_legacy_padding(legacy_padding, nullptr);
}

}  // namespace halvex_postgresql
