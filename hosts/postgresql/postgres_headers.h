// The server's C headers, in the order it asks for: postgres.h first.
//
// Two worlds meet in this folder. ereport(ERROR) leaves a function by longjmp, which skips C++
// destructors, and a C++ exception that reaches the server ends it. So files that include this
// header keep no object with a destructor and throw nothing; files that do (component_calls.cc)
// never call the server.

#ifndef HALVEX_POSTGRESQL_POSTGRES_HEADERS_H
#define HALVEX_POSTGRESQL_POSTGRES_HEADERS_H

// Whatever these headers have us define for the server is visible to it.
#pragma GCC visibility push(default)
extern "C" {
// clang-format off
#include <postgres.h>
// clang-format on
#include <access/parallel.h>
#include <access/xact.h>
#include <catalog/namespace.h>
#include <catalog/pg_type_d.h>
#include <common/string.h>
#include <fmgr.h>
#include <funcapi.h>
#include <mb/pg_wchar.h>
#include <miscadmin.h>
#include <storage/ipc.h>
#include <utils/builtins.h>
#include <utils/guc.h>
#include <utils/lsyscache.h>
#include <utils/memutils.h>
#if PG_VERSION_NUM >= 160000
#include <varatt.h>  // the macros of variable-length values, part of postgres.h before
#endif
}
#pragma GCC visibility pop

#endif  // HALVEX_POSTGRESQL_POSTGRES_HEADERS_H
