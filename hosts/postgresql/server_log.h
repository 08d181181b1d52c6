// The component's error-log records in the PostgreSQL server's log.

#ifndef HALVEX_POSTGRESQL_SERVER_LOG_H
#define HALVEX_POSTGRESQL_SERVER_LOG_H

namespace halvex_postgresql {

// Writes the records that the component has reported, at the server's level `level` (LOG or
// WARNING), and forgets them. Neither statement nor context goes with them: both may quote a key.
void write_records(int level);

}  // namespace halvex_postgresql

#endif  // HALVEX_POSTGRESQL_SERVER_LOG_H
