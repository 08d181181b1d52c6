#include "postgresql/settings.h"

#include "dovrin_host/legacy_padding.h"
#include "halvex_encryption/key_size_limits.h"
#include "postgresql/component_calls.h"
#include "postgresql/server_log.h"
// The server's headers redefine names of the C library, so they come last.
#include "postgresql/postgres_headers.h"

namespace halvex_postgresql {
namespace {

constexpr const char *maximum_key_size_name = "component_halvex_encryption.maximum_rsa_key_size";
constexpr const char *record_level_name = "halvex_encryption.record_level";

using dovrin_host::legacy_padding_hint;
using dovrin_host::legacy_padding_name;
using dovrin_host::legacy_padding_warning;
using halvex_encryption::key_size_limits;

constexpr config_enum_entry record_levels[] = {{"debug1", DEBUG1, false},
                                               {"log", LOG, false},
                                               {"notice", NOTICE, false},
                                               {"warning", WARNING, false},
                                               {nullptr, 0, false}};

// What the component has when it is loaded.
int maximum_key_size = key_size_limits.default_value;
bool legacy_padding = false;

int level_of_records = LOG;

// Whether every process of this server has the library from the start.
bool preloaded = false;

// The component's own check and update run together in the assign hooks: the server calls a check
// hook without its assign hook (ALTER SYSTEM) and the other way round (a transaction's end), and a
// check of the component that is not followed by its update keeps memory.
bool check_maximum_key_size(int *new_value, void ** /*extra*/, GucSource /*source*/) {
  if (*new_value % key_size_limits.block_size == 0) {
    return true;
  }
  GUC_check_errdetail("RSA key sizes are multiples of %d bits.", key_size_limits.block_size);
  GUC_check_errhint("The nearest sizes are %d and %d.",
                    *new_value / key_size_limits.block_size * key_size_limits.block_size,
                    (*new_value / key_size_limits.block_size + 1) * key_size_limits.block_size);
  return false;
}

void report_unless(bool applied, const char *name) {
  if (!applied) {
    warn(psprintf("the component did not take the setting %s", name), failure_text());
  }
}

void assign_maximum_key_size(int new_value, void * /*extra*/) {
  if (is_component_loaded()) {
    report_unless(set_integer_variable(maximum_key_size_name, new_value), maximum_key_size_name);
  }
}

void warn_of_legacy_padding() {
  warn(psprintf("%s is turned on", legacy_padding_name), legacy_padding_warning,
       legacy_padding_hint);
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
// postmaster warns for all sessions.
void assign_legacy_padding(bool new_value, void * /*extra*/) {
  const bool postmaster_warns = preloaded && IsUnderPostmaster;
  if (new_value && !legacy_padding && !postmaster_warns && !IsTransactionState()) {
    warn_of_legacy_padding();
  }
  if (is_component_loaded()) {
    report_unless(set_boolean_variable(legacy_padding_name, new_value), legacy_padding_name);
  }
}

}  // namespace

void define_settings() {
  preloaded = process_shared_preload_libraries_in_progress;
  DefineCustomIntVariable(
      maximum_key_size_name, "Maximum size of RSA key generation",
      "In bits: a multiple of 1024 from 2048 to 16384. create_asymmetric_priv_key occupies its "
      "session for minutes with the largest sizes.",
      &maximum_key_size, maximum_key_size, key_size_limits.minimum, key_size_limits.maximum,
      PGC_SIGHUP, 0, check_maximum_key_size, assign_maximum_key_size, nullptr);
  DefineCustomBoolVariable(
      legacy_padding_name,
      "Supports legacy padding in decryption and signature verification functions",
      legacy_padding_warning, &legacy_padding, legacy_padding, PGC_SIGHUP, 0, check_legacy_padding,
      assign_legacy_padding, nullptr);
  DefineCustomEnumVariable(
      record_level_name, "Level of the messages that report why a function returned NULL",
      "With \"debug1\" or \"notice\" the server's log has none of them unless "
      "log_min_messages is lowered.",
      &level_of_records, level_of_records, record_levels, PGC_SUSET, 0, nullptr, nullptr, nullptr);
  MarkGUCPrefixReserved("component_halvex_encryption");
  MarkGUCPrefixReserved("halvex_encryption");
}

int record_level() { return level_of_records; }

void apply_settings() {
  assign_maximum_key_size(maximum_key_size, nullptr);
  assign_legacy_padding(legacy_padding, nullptr);
}

}  // namespace halvex_postgresql
