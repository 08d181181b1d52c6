#include "postgresql/server_log.h"

#include "postgresql/component_calls.h"
// The server's headers redefine names of the C library, so they come last.
#include "postgresql/postgres_headers.h"

namespace halvex_postgresql {
namespace {

// The texts of one message, in the current memory context. `hint` and `detail` may be null.
struct Message {
  int sqlstate;
  const char *text;
  const char *detail;
  const char *hint;
};

// Whether the encoding of the client has one character of the encoding of the database.
bool client_has(Oid conversion, const char *character, int length) {
  constexpr int growth = MAX_CONVERSION_GROWTH * MAX_MULTIBYTE_CHAR_LEN;
  unsigned char converted[growth + 1];
  return !OidIsValid(conversion) ||
         pg_do_encoding_conversion_buf(
             conversion, GetDatabaseEncoding(), pg_get_client_encoding(),
             reinterpret_cast<unsigned char *>(const_cast<char *>(character)), length, converted,
             sizeof converted, true) == length;
}

// A copy of the text in which a question mark stands for every byte that is no text and for every
// character that the client's encoding lacks. A text that cannot be sent would be an error of the
// statement, which a record must never be.
char *sendable_text(const char *text) {
  char *const copy = pstrdup(text);
  if (pg_is_ascii(copy)) {
    return copy;
  }
  const int database = GetDatabaseEncoding();
  const int client = pg_get_client_encoding();
  // A SQL_ASCII database sends its bytes as they are, and the server checks them for the client.
  const int encoding = database == PG_SQL_ASCII ? client : database;
  const Oid conversion = encoding == client || client == PG_SQL_ASCII
                             ? InvalidOid
                             : FindDefaultConversionProc(database, client);
  char *end = copy;
  for (const char *next = copy; *next != '\0';) {
    const int length = pg_encoding_verifymbchar(encoding, next, static_cast<int>(strlen(next)));
    if (length > 0 && client_has(conversion, next, length)) {
      memmove(end, next, static_cast<std::size_t>(length));
      end += length;
    } else {
      *end++ = '?';
    }
    next += length > 0 ? length : 1;
  }
  *end = '\0';
  return copy;
}

// A message that the server would not write to its log at this level may be left out in a worker,
// whose messages go to that log alone.
bool log_leaves_out(int level) {
  return level != LOG && (log_min_messages == LOG || level < log_min_messages);
}

// The one place that reports. The log filter knows its messages by the name of this function.
void report_halvex_message(int level, const Message &message) {
  if (IsParallelWorker() && level < ERROR) {
    if (log_leaves_out(level)) {
      return;
    }
    level = LOG_SERVER_ONLY;
  }
  ereport(level, (errcode(message.sqlstate), errmsg_internal("%s", message.text),
                  message.detail == nullptr ? 0 : errdetail_internal("%s", message.detail),
                  message.hint == nullptr ? 0 : errhint("%s", message.hint), errhidestmt(true),
                  errhidecontext(true)));
}

emit_log_hook_type previous_hook = nullptr;

// What errhidestmt and errhidecontext ask for does not reach the leader of a parallel worker.
// The worker has written its error to the log already, so the leader, which knows the statement,
// leaves it out.
void leave_out_worker_error(ErrorData *error) {
  if (previous_hook != nullptr) {
    previous_hook(error);
  }
  if (!error->hide_stmt && error->funcname != nullptr &&
      strcmp(error->funcname, "report_halvex_message") == 0) {
    error->output_to_server = false;
  }
}

// An X, which the SQL standard leaves to implementations, and the last four digits of the code.
int sqlstate_of(int code) {
  const auto digit = [code](int unit) { return static_cast<char>('0' + code / unit % 10); };
  return MAKE_SQLSTATE('X', digit(1000), digit(100), digit(10), digit(1));
}

}  // namespace

void install_log_filter() {
  previous_hook = emit_log_hook;
  emit_log_hook = leave_out_worker_error;
}

void write_records(int level) {
  while (const dovrin_host::Log_record *const record = oldest_record()) {
    const Message message{
        .sqlstate = sqlstate_of(record->code),
        .text = sendable_text(record->message.c_str()),
        .detail =
            psprintf("Code %d (%s), %s, reported by %s at %s:%lld.", record->code,
                     record->symbol.c_str(), dovrin_host::priority_name(record->priority),
                     record->function.c_str(), record->source_file.c_str(), record->source_line),
        .hint = record->hint.empty() ? nullptr : pstrdup(record->hint.c_str()),
    };
    remove_oldest_record();
    report_halvex_message(level, message);
  }
}

void raise_error(int sqlstate, const char *message, const char *detail, const char *hint) {
  report_halvex_message(ERROR, {.sqlstate = sqlstate,
                                .text = sendable_text(message),
                                .detail = detail == nullptr ? nullptr : sendable_text(detail),
                                .hint = hint});
  pg_unreachable();
}

void warn(const char *message, const char *detail, const char *hint) {
  report_halvex_message(WARNING, {.sqlstate = ERRCODE_WARNING,
                                  .text = sendable_text(message),
                                  .detail = detail == nullptr ? nullptr : sendable_text(detail),
                                  .hint = hint});
}

}  // namespace halvex_postgresql
