// Everything that the extension writes to the PostgreSQL server's log: the component's records,
// errors and warnings. No message carries the statement or its context, because both may quote a
// key.

#ifndef HALVEX_POSTGRESQL_SERVER_LOG_H
#define HALVEX_POSTGRESQL_SERVER_LOG_H

namespace halvex_postgresql {

// Keeps a parallel worker's errors out of its leader's log. Called once, as the library is loaded.
void install_log_filter();

// Reports the component's pending records at the server's level `level`, oldest first, each under
// the SQLSTATE of its code. A record is removed before it is reported: should reporting raise an
// error, the later ones are reported at the next call. A parallel worker reports to the server's
// log only.
void write_records(int level);

// Ends the statement with an error under the given SQLSTATE. `detail` and `hint` may be null.
[[noreturn]] void raise_error(int sqlstate, const char *message, const char *detail = nullptr,
                              const char *hint = nullptr);

// Reports a warning. `hint` may be null.
void warn(const char *message, const char *detail, const char *hint = nullptr);

}  // namespace halvex_postgresql

#endif  // HALVEX_POSTGRESQL_SERVER_LOG_H
