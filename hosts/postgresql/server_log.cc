// clang-format off
#include "postgresql/postgres_headers.h"
// clang-format on

#include "postgresql/server_log.h"

#include "postgresql/component_calls.h"

namespace halvex_postgresql {
namespace {

// A message quotes what a user passed, which may be no text of the database's encoding.
char *valid_text(const char *text) {
  char *const copy = pstrdup(text);
  for (char *byte = copy; *byte != '\0';) {
    const int length =
        pg_encoding_verifymbchar(GetDatabaseEncoding(), byte, static_cast<int>(strlen(byte)));
    if (length < 0) {
      *byte = '?';
    }
    byte += length < 0 ? 1 : length;
  }
  return copy;
}

}  // namespace

void write_records(int level) {
  const std::size_t count = record_count();
  for (std::size_t i = 0; i < count; ++i) {
    const Record_view view = record(i);
    ereport(level, (errmsg_internal("%s", valid_text(view.message)),
                    errdetail_internal("Code %d (%s), %s, reported by %s at %s:%lld.", view.code,
                                       view.symbol, view.priority, view.function, view.source_file,
                                       view.source_line),
                    view.hint[0] == '\0' ? 0 : errhint("%s", view.hint), errhidestmt(true),
                    errhidecontext(true)));
  }
  forget_records();
}

}  // namespace halvex_postgresql
