// What this process runs once, however many connections load the extension: the stand-in server
// with the component installed, and where its error log goes.

#ifndef HALVEX_SQLITE_PROCESS_HOST_H
#define HALVEX_SQLITE_PROCESS_HOST_H

#include <memory>

#include "dovrin_host/error_log.h"
#include "dovrin_host/result.h"

namespace halvex_sqlite {

// Installs the component beside this extension, or the one that HALVEX_COMPONENT names, opens the
// log's sinks, and returns the sink of the records in memory. It stays installed until the process
// ends, so that settings outlive connections and no close can take a function away from another
// connection. After the first success it only returns the same sink: the environment and the file
// system can have changed since. Fails with a sentence for the user. Any thread; throws
// std::bad_alloc only.
dovrin_host::Result<std::shared_ptr<const dovrin_host::Ring_sink>> start_process_host();

}  // namespace halvex_sqlite

#endif  // HALVEX_SQLITE_PROCESS_HOST_H
