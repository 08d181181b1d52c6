// Loadable functions: the records and callback shapes that a component's SQL functions share with
// the server. C-compatible; 64-bit Linux (LP64), natural alignment.
//
// Calling order of one function instance, which is one call site of one statement: init once; the
// row callback once per row; deinit once, also after an init that failed.

#ifndef DOVRIN_UDF_H
#define DOVRIN_UDF_H

#ifdef __cplusplus
extern "C" {
#else
#include <stdbool.h>
#endif

// The type of an SQL argument or result, as wide as an int.
typedef enum Item_result {
  STRING_RESULT = 0,
  REAL_RESULT = 1,
  INT_RESULT = 2,
  ROW_RESULT = 3,
  DECIMAL_RESULT = 4
} Item_result;

// One function instance. `ptr` is the function's own between init and deinit; `extension` the
// server's.
typedef struct UDF_INIT {
  bool maybe_null;           // the result may be SQL NULL
  unsigned int decimals;     // decimals of a real result
  unsigned long max_length;  // longest string result, in bytes
  char *ptr;
  bool const_item;  // the result is the same for every row
  void *extension;
} UDF_INIT;

// The arguments of one call. `args[i]` is null for an SQL NULL, else the address of a string's
// bytes (`lengths[i]` of them, then a NUL that the length leaves out), of a `long long` or of a
// `double`.
typedef struct UDF_ARGS {
  unsigned int arg_count;
  Item_result *arg_type;
  char **args;
  unsigned long *lengths;
  char *maybe_null;
  char **attributes;
  unsigned long *attribute_lengths;
  void *extension;
} UDF_ARGS;

// Bytes in the buffer that the server passes to an init callback for its error message.
enum { DOVRIN_UDF_MESSAGE_SIZE = 512 };

// Returns false to accept; true after it has written a NUL-terminated error text into `message`.
typedef bool (*Udf_func_init)(UDF_INIT *instance, UDF_ARGS *args, char *message);
typedef void (*Udf_func_deinit)(UDF_INIT *instance);

// `*is_null` and `*error` are 0 before each row.
typedef char *(*Udf_func_string)(UDF_INIT *instance, UDF_ARGS *args, char *result,
                                 unsigned long *length, unsigned char *is_null,
                                 unsigned char *error);
typedef long long (*Udf_func_longlong)(UDF_INIT *instance, UDF_ARGS *args, unsigned char *is_null,
                                       unsigned char *error);

// A row callback of either shape, as the registration takes it; the result type decides which.
typedef void (*Udf_func_any)(void);

#ifdef __cplusplus
}  // extern "C"

static_assert(sizeof(Item_result) == sizeof(int));
static_assert(sizeof(UDF_INIT) == 40);
static_assert(sizeof(UDF_ARGS) == 64);
#endif

#endif  // DOVRIN_UDF_H
