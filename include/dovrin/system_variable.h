// System variables: the value record, callback shapes, type flags and limits records that a
// component shares with the server. C-compatible.

#ifndef DOVRIN_SYSTEM_VARIABLE_H
#define DOVRIN_SYSTEM_VARIABLE_H

#ifdef __cplusplus
extern "C" {
#else
#include <stdbool.h>
#endif

// The server's session and variable objects; a component only passes their addresses on.
typedef struct THD THD;
typedef struct SYS_VAR SYS_VAR;

// What `value_type` of a value record answers.
enum { DOVRIN_VALUE_STRING = 0, DOVRIN_VALUE_REAL = 1, DOVRIN_VALUE_INTEGER = 2 };

// The value that a statement wants to give a variable, read through its own operations.
typedef struct st_dovrin_value {
  int (*value_type)(struct st_dovrin_value *value);
  const char *(*val_str)(struct st_dovrin_value *value, char *buffer, int *length);
  int (*val_real)(struct st_dovrin_value *value, double *out);
  // Non-zero, with `*out` unchanged, if the value has no integer form.
  int (*val_int)(struct st_dovrin_value *value, long long *out);
  int (*is_unsigned)(struct st_dovrin_value *value);
} st_dovrin_value;

// Type flags of a registration. The storage of a boolean is one byte, of an integer 32 bits signed.
enum { DOVRIN_VARIABLE_BOOL = 1, DOVRIN_VARIABLE_INT = 2 };

// Limits records, read by the server during the registration call only.
typedef struct Dovrin_int_limits {
  int default_value;
  int minimum;
  int maximum;
  int block_size;  // accepted values are multiples of it
} Dovrin_int_limits;

typedef struct Dovrin_bool_limits {
  bool default_value;
} Dovrin_bool_limits;

// The server calls check with a pointer-sized `save` area and, if that returned 0, update with the
// same area. A null callback stands for the server's own, which keeps to the limits record.
typedef int (*Sys_var_check)(THD *thread, SYS_VAR *variable, void *save, st_dovrin_value *value);
typedef void (*Sys_var_update)(THD *thread, SYS_VAR *variable, void *storage, const void *save);

#ifdef __cplusplus
}  // extern "C"

static_assert(sizeof(st_dovrin_value) == 40);
static_assert(sizeof(Dovrin_int_limits) == 16);
static_assert(sizeof(Dovrin_bool_limits) == 1);
#endif

#endif  // DOVRIN_SYSTEM_VARIABLE_H
