// The extension's entry points: CREATE EXTENSION halvex_encryption declares them to the server.
//
// Every SQL function is one instance of the component's function per call site and execution. It
// hangs on the server's own record of the call site and ends with the memory context of that
// record, whichever way the statement ends.

#include <array>
#include <span>
#include <type_traits>

#include "postgresql/component_calls.h"
#include "postgresql/server_log.h"
#include "postgresql/settings.h"
// The server's headers redefine names of the C library, so they come last.
#include "postgresql/postgres_headers.h"

namespace halvex_postgresql {
namespace {

using dovrin_host::Result_kind;
using Kind = Row_result::Kind;

// What hangs on a call site's fn_extra, in the call site's memory context.
struct Attached_call_site {
  MemoryContextCallback on_reset;
  Call_site *site;
  Result_kind result;
  Oid *argument_types;  // without domains
  int count;
  Argument *arguments;  // of the current row
  varlena **copies;     // values that the server has unpacked for this row

  std::span<const Argument> row() const { return {arguments, static_cast<std::size_t>(count)}; }
};

// The server frees it without a destructor.
static_assert(std::is_trivially_destructible_v<Attached_call_site>);

Item_result item_type(Oid type) {
  switch (type) {
    case TEXTOID:
    case VARCHAROID:
    case BYTEAOID:
      return STRING_RESULT;
    case INT2OID:
    case INT4OID:
    case INT8OID:
      return INT_RESULT;
    case FLOAT8OID:
      return REAL_RESULT;
    default:
      raise_error(ERRCODE_INVALID_FUNCTION_DEFINITION,
                  psprintf("arguments of type %s are not supported", format_type_be(type)));
  }
}

Oid sql_type(Result_kind result) {
  switch (result) {
    case Result_kind::text:
      return TEXTOID;
    case Result_kind::binary:
      return BYTEAOID;
    default:
      return INT8OID;
  }
}

// The kind of the function's result, for which `type` must be the declared type.
Result_kind check_result_type(const char *name, Oid type) {
  const Result_kind result = dovrin_host::describe_function(name).result;
  if (type != sql_type(result)) {
    raise_error(ERRCODE_INVALID_FUNCTION_DEFINITION,
                psprintf("%s has no result of type %s", name, format_type_be(type)));
  }
  return result;
}

void unload_at_exit(int /*code*/, Datum /*argument*/) { unload_component(); }

void ensure_component() {
  if (is_component_loaded()) {
    return;
  }
  const bool loaded = load_component();
  write_records(WARNING);
  if (!loaded) {
    raise_error(ERRCODE_UNDEFINED_FILE, failure_text());
  }
  on_proc_exit(unload_at_exit, 0);
  apply_settings();
}

void close_attached(void *attached) {
  close_call_site(static_cast<Attached_call_site *>(attached)->site);
}

// Allocates what the call site needs in its memory context, before anything of the component is
// open.
Attached_call_site *make_attached(FmgrInfo *function, const char *name) {
  Oid *types = nullptr;
  int count = 0;
  const Oid declared = getBaseType(get_func_signature(function->fn_oid, &types, &count));
  const Result_kind result = check_result_type(name, declared);

  MemoryContextData *const caller = MemoryContextSwitchTo(function->fn_mcxt);
  auto *const attached = static_cast<Attached_call_site *>(palloc0(sizeof(Attached_call_site)));
  const auto size = static_cast<Size>(count);
  attached->result = result;
  attached->count = count;
  attached->argument_types = static_cast<Oid *>(palloc0(size * sizeof(Oid)));
  attached->arguments = static_cast<Argument *>(palloc0(size * sizeof(Argument)));
  // An array of pointers. NOLINTNEXTLINE(bugprone-sizeof-expression)
  attached->copies = static_cast<varlena **>(palloc0(size * sizeof(varlena *)));
  attached->on_reset.func = close_attached;
  attached->on_reset.arg = attached;
  MemoryContextSwitchTo(caller);

  for (int i = 0; i < count; ++i) {
    attached->argument_types[i] = getBaseType(types[i]);
    attached->arguments[i] = Argument::null(item_type(attached->argument_types[i]));
  }
  return attached;
}

Attached_call_site *attach_call_site(FmgrInfo *function, const char *name) {
  ensure_component();
  Attached_call_site *const attached = make_attached(function, name);
  attached->site = open_call_site(name, attached->row());
  const bool opened = attached->site != nullptr;
  if (opened) {
    MemoryContextRegisterResetCallback(function->fn_mcxt, &attached->on_reset);
    function->fn_extra = attached;
  }
  write_records(record_level());
  if (!opened) {
    raise_error(ERRCODE_INVALID_PARAMETER_VALUE, failure_text());
  }
  return attached;
}

Argument read_string(Attached_call_site *attached, int index, Datum datum) {
  varlena *const original = reinterpret_cast<varlena *>(DatumGetPointer(datum));
  varlena *const unpacked = pg_detoast_datum_packed(original);
  attached->copies[index] = unpacked == original ? nullptr : unpacked;
  return Argument::string({VARDATA_ANY(unpacked), VARSIZE_ANY_EXHDR(unpacked)});
}

Argument read_argument(Attached_call_site *attached, int index, const NullableDatum &argument) {
  if (argument.isnull) {
    return Argument::null(attached->arguments[index].type());
  }
  switch (attached->argument_types[index]) {
    case INT2OID:
      return Argument::integer(DatumGetInt16(argument.value));
    case INT4OID:
      return Argument::integer(DatumGetInt32(argument.value));
    case INT8OID:
      return Argument::integer(DatumGetInt64(argument.value));
    case FLOAT8OID:
      return Argument::real(DatumGetFloat8(argument.value));
    default:
      return read_string(attached, index, argument.value);
  }
}

void read_arguments(Attached_call_site *attached, FunctionCallInfo call) {
  for (int i = 0; i < attached->count; ++i) {
    attached->arguments[i] = read_argument(attached, i, call->args[i]);
  }
}

void wipe_copies(Attached_call_site *attached) {
  for (int i = 0; i < attached->count; ++i) {
    if (varlena *const copy = attached->copies[i]; copy != nullptr) {
      wipe(VARDATA_ANY(copy), VARSIZE_ANY_EXHDR(copy));
      pfree(copy);
      attached->copies[i] = nullptr;
    }
  }
}

Datum result_datum(const Row_result &result, Result_kind kind) {
  if (result.kind == Kind::integer) {
    return Int64GetDatum(result.integer);
  }
  const int length = static_cast<int>(result.text.size());
  if (kind == Result_kind::text) {
    pg_verifymbstr(result.text.data(), length, false);
  }
  // Text and bytea are laid out alike.
  return PointerGetDatum(cstring_to_text_with_len(result.text.data(), length));
}

// One row of the component's function `name`.
Datum call(FunctionCallInfo call, const char *name) {
  if (call->flinfo == nullptr) {
    raise_error(ERRCODE_FEATURE_NOT_SUPPORTED,
                psprintf("%s cannot be called without a call site", name));
  }
  auto *attached = static_cast<Attached_call_site *>(call->flinfo->fn_extra);
  if (attached == nullptr) {
    attached = attach_call_site(call->flinfo, name);
  }

  read_arguments(attached, call);
  const Row_result result = run_row(*attached->site, attached->row());
  wipe_copies(attached);
  write_records(record_level());
  // A cancel that came while the component ran takes effect here.
  CHECK_FOR_INTERRUPTS();

  if (result.kind == Kind::error) {
    raise_error(was_out_of_memory() ? ERRCODE_OUT_OF_MEMORY : ERRCODE_EXTERNAL_ROUTINE_EXCEPTION,
                pnstrdup(result.text.data(), result.text.size()));
  }
  call->isnull = result.kind == Kind::null;
  return call->isnull ? Datum{0} : result_datum(result, attached->result);
}

// The table of versions, row by row into the caller's result.
void store_versions(FunctionCallInfo call) {
  ensure_component();
  const auto versions = list_versions(PG_VERSION, GetConfigOption("server_version", false, false));
  if (versions.empty()) {
    raise_error(ERRCODE_OUT_OF_MEMORY, failure_text());
  }
  InitMaterializedSRF(call, 0);
  const auto *const result = reinterpret_cast<ReturnSetInfo *>(call->resultinfo);
  for (const dovrin_host::Version &version : versions) {
    std::array<Datum, 2> values{CStringGetTextDatum(version.name.c_str()),
                                CStringGetTextDatum(version.value.c_str())};
    std::array<bool, 2> nulls{};
    tuplestore_putvalues(result->setResult, result->setDesc, values.data(), nulls.data());
  }
}

}  // namespace
}  // namespace halvex_postgresql

#pragma GCC visibility push(default)
extern "C" {

PG_MODULE_MAGIC;

// The server's name for it. NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
void _PG_init(void);
void _PG_init(void) {
  halvex_postgresql::install_log_filter();
  halvex_postgresql::define_settings();
}
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)

// create_asymmetric_priv_key(algorithm text, key_length bigint) -> text
PG_FUNCTION_INFO_V1(halvex_create_asymmetric_priv_key);
Datum halvex_create_asymmetric_priv_key(FunctionCallInfo fcinfo) {
  return halvex_postgresql::call(fcinfo, "create_asymmetric_priv_key");
}

// create_asymmetric_pub_key(algorithm text, private_key text) -> text
PG_FUNCTION_INFO_V1(halvex_create_asymmetric_pub_key);
Datum halvex_create_asymmetric_pub_key(FunctionCallInfo fcinfo) {
  return halvex_postgresql::call(fcinfo, "create_asymmetric_pub_key");
}

// asymmetric_encrypt(algorithm text, data text or bytea, public_key text) -> bytea
PG_FUNCTION_INFO_V1(halvex_asymmetric_encrypt);
Datum halvex_asymmetric_encrypt(FunctionCallInfo fcinfo) {
  return halvex_postgresql::call(fcinfo, "asymmetric_encrypt");
}

// asymmetric_decrypt(algorithm text, data bytea, private_key text) -> bytea
PG_FUNCTION_INFO_V1(halvex_asymmetric_decrypt);
Datum halvex_asymmetric_decrypt(FunctionCallInfo fcinfo) {
  return halvex_postgresql::call(fcinfo, "asymmetric_decrypt");
}

// asymmetric_sign(algorithm text, content text or bytea, private_key text, digest_type text)
// -> bytea
PG_FUNCTION_INFO_V1(halvex_asymmetric_sign);
Datum halvex_asymmetric_sign(FunctionCallInfo fcinfo) {
  return halvex_postgresql::call(fcinfo, "asymmetric_sign");
}

// asymmetric_verify(algorithm text, content text or bytea, signature bytea, public_key text,
// digest_type text) -> bigint
PG_FUNCTION_INFO_V1(halvex_asymmetric_verify);
Datum halvex_asymmetric_verify(FunctionCallInfo fcinfo) {
  return halvex_postgresql::call(fcinfo, "asymmetric_verify");
}

// create_digest(digest_type text, data text or bytea) -> bytea
PG_FUNCTION_INFO_V1(halvex_create_digest);
Datum halvex_create_digest(FunctionCallInfo fcinfo) {
  return halvex_postgresql::call(fcinfo, "create_digest");
}

// halvex_encryption_versions() -> set of (name text, value text)
PG_FUNCTION_INFO_V1(halvex_encryption_versions);
Datum halvex_encryption_versions(FunctionCallInfo fcinfo) {
  halvex_postgresql::store_versions(fcinfo);
  return Datum{0};
}

}  // extern "C"
#pragma GCC visibility pop
