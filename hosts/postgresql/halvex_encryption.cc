// The extension's entry points: CREATE EXTENSION halvex_encryption declares them to the server.
//
// Every SQL function is one instance of the component's function per call site and execution. It
// hangs on the server's own record of the call site and ends with the memory context of that
// record, whichever way the statement ends.

#include "postgresql/component_calls.h"
#include "postgresql/server_log.h"
#include "postgresql/settings.h"
// The server's headers redefine names of the C library, so they come last.
#include "postgresql/postgres_headers.h"

namespace halvex_postgresql {
namespace {

// What hangs on a call site's fn_extra, in the call site's memory context.
struct Attached_call_site {
  MemoryContextCallback on_reset;
  Call_site *site;
  Oid result_type;  // this and the next: without domains
  Oid *argument_types;
  int count;
  Value *values;     // of the current row
  varlena **copies;  // values that the server has unpacked for this row
};

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

void check_result_type(Item_result result, Oid type) {
  const bool fits = result == INT_RESULT ? type == INT8OID : type == TEXTOID || type == BYTEAOID;
  if (!fits) {
    raise_error(ERRCODE_INVALID_FUNCTION_DEFINITION,
                psprintf("results of type %s are not supported", format_type_be(type)));
  }
}

void let_component_go(int /*code*/, Datum /*argument*/) { unload_component(); }

void ensure_component() {
  if (is_component_loaded()) {
    return;
  }
  const bool loaded = load_component();
  write_records(WARNING);
  if (!loaded) {
    raise_error(ERRCODE_UNDEFINED_FILE, failure_text());
  }
  on_proc_exit(let_component_go, 0);
  apply_settings();
}

void close_attached(void *attached) {
  close_call_site(static_cast<Attached_call_site *>(attached)->site);
}

// Allocates what the call site needs in its memory context, before anything of the component is
// open.
Attached_call_site *make_attached(FmgrInfo *function) {
  Oid *types = nullptr;
  int count = 0;
  const Oid result_type = get_func_signature(function->fn_oid, &types, &count);

  MemoryContextData *const caller = MemoryContextSwitchTo(function->fn_mcxt);
  auto *const attached = static_cast<Attached_call_site *>(palloc0(sizeof(Attached_call_site)));
  const auto size = static_cast<Size>(count);
  attached->result_type = getBaseType(result_type);
  attached->count = count;
  attached->argument_types = static_cast<Oid *>(palloc0(size * sizeof(Oid)));
  attached->values = static_cast<Value *>(palloc0(size * sizeof(Value)));
  // An array of pointers. NOLINTNEXTLINE(bugprone-sizeof-expression)
  attached->copies = static_cast<varlena **>(palloc0(size * sizeof(varlena *)));
  attached->on_reset.func = close_attached;
  attached->on_reset.arg = attached;
  MemoryContextSwitchTo(caller);

  for (int i = 0; i < count; ++i) {
    attached->argument_types[i] = getBaseType(types[i]);
    attached->values[i].type = item_type(attached->argument_types[i]);
  }
  return attached;
}

Attached_call_site *attach_call_site(FmgrInfo *function, const char *name) {
  ensure_component();
  Attached_call_site *const attached = make_attached(function);
  attached->site =
      open_call_site(name, attached->values, static_cast<std::size_t>(attached->count));
  const bool opened = attached->site != nullptr;
  if (opened) {
    MemoryContextRegisterResetCallback(function->fn_mcxt, &attached->on_reset);
    function->fn_extra = attached;
  }
  write_records(record_level());
  if (!opened) {
    raise_error(ERRCODE_INVALID_PARAMETER_VALUE, failure_text());
  }
  check_result_type(result_type(*attached->site), attached->result_type);
  return attached;
}

void read_string(Attached_call_site *attached, int index, Datum datum) {
  varlena *const original = reinterpret_cast<varlena *>(DatumGetPointer(datum));
  varlena *const unpacked = pg_detoast_datum_packed(original);
  attached->copies[index] = unpacked == original ? nullptr : unpacked;
  attached->values[index].bytes = VARDATA_ANY(unpacked);
  attached->values[index].length = VARSIZE_ANY_EXHDR(unpacked);
}

void read_argument(Attached_call_site *attached, int index, Datum datum) {
  Value &value = attached->values[index];
  switch (attached->argument_types[index]) {
    case INT2OID:
      value.integer = DatumGetInt16(datum);
      break;
    case INT4OID:
      value.integer = DatumGetInt32(datum);
      break;
    case INT8OID:
      value.integer = DatumGetInt64(datum);
      break;
    case FLOAT8OID:
      value.real = DatumGetFloat8(datum);
      break;
    default:
      read_string(attached, index, datum);
  }
}

void read_arguments(Attached_call_site *attached, FunctionCallInfo call) {
  for (int i = 0; i < attached->count; ++i) {
    attached->values[i].is_null = call->args[i].isnull;
    if (!call->args[i].isnull) {
      read_argument(attached, i, call->args[i].value);
    }
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

Datum result_datum(const Attached_call_site *attached, const Row_result &result) {
  if (result_type(*attached->site) == INT_RESULT) {
    return Int64GetDatum(result.integer);
  }
  const int length = static_cast<int>(result.length);
  if (attached->result_type == TEXTOID) {
    pg_verifymbstr(result.bytes, length, false);
  }
  // Text and bytea are laid out alike.
  return PointerGetDatum(cstring_to_text_with_len(result.bytes, length));
}

void refuse_failed_row(const Row_result &result, const char *name) {
  if (result.kind == Row_result::out_of_memory) {
    raise_error(ERRCODE_OUT_OF_MEMORY, "out of memory");
  }
  if (result.kind == Row_result::failed) {
    raise_error(ERRCODE_EXTERNAL_ROUTINE_EXCEPTION, psprintf("%s failed", name), failure_text());
  }
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
  const Row_result result =
      run_row(*attached->site, attached->values, static_cast<std::size_t>(attached->count));
  wipe_copies(attached);
  write_records(record_level());
  // A cancel that came while the component ran takes effect here.
  CHECK_FOR_INTERRUPTS();

  refuse_failed_row(result, name);
  call->isnull = result.kind == Row_result::null;
  return call->isnull ? Datum{0} : result_datum(attached, result);
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

}  // extern "C"
#pragma GCC visibility pop
