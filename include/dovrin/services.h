// The server's services, as tables of operations. A component requires a service by name; before
// init() the server writes the address of the service's table into the component's slot.
// C-compatible.
//
// A `reserved` member keeps the place of operations that components of this kind never call.
// Operations returning int give 0 for success unless they say otherwise.

#ifndef DOVRIN_SERVICES_H
#define DOVRIN_SERVICES_H

#include <stdarg.h>
#include <stddef.h>

#include "dovrin/system_variable.h"
#include "dovrin/udf.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef void (*Dovrin_reserved)(void);

// "registry"
typedef struct Dovrin_registry {
  int (*acquire)(const char *name, void **handle);
  int (*acquire_related)(const char *name, void *related, void **handle);
  int (*release)(void *handle);
} Dovrin_registry;

// "udf_registration"
typedef struct Dovrin_udf_registration {
  int (*udf_register)(const char *name, Item_result result_type, Udf_func_any row,
                      Udf_func_init init, Udf_func_deinit deinit);
  // Sets `*was_registered` non-zero if the server knew the function, also when it refuses.
  int (*udf_unregister)(const char *name, int *was_registered);
} Dovrin_udf_registration;

// "component_sys_variable_register"
typedef struct Dovrin_sys_variable_register {
  // `limits` is the type's limits record, `storage` the variable's value, which outlives the
  // registration.
  int (*register_variable)(const char *component, const char *name, int type_flag,
                           const char *comment, Sys_var_check check, Sys_var_update update,
                           void *limits, void *storage);
} Dovrin_sys_variable_register;

// "component_sys_variable_unregister"
typedef struct Dovrin_sys_variable_unregister {
  int (*unregister_variable)(const char *component, const char *name);
} Dovrin_sys_variable_unregister;

typedef struct Dovrin_log_line Dovrin_log_line;
typedef struct Dovrin_log_item Dovrin_log_item;

// Types of the items of a log line.
enum {
  DOVRIN_LOG_ERROR_CODE = 2,
  DOVRIN_LOG_ERROR_SYMBOL = 4,
  DOVRIN_LOG_SOURCE_FILE = 64,
  DOVRIN_LOG_SOURCE_LINE = 128,
  DOVRIN_LOG_FUNCTION = 256,
  DOVRIN_LOG_COMPONENT = 1024,
  DOVRIN_LOG_PRIORITY = 0x10000,
  DOVRIN_LOG_MESSAGE = 0x80000
};

// Values of a priority item.
enum { DOVRIN_PRIORITY_ERROR = 1, DOVRIN_PRIORITY_WARNING = 2 };

// Flag of `add_item_with_key`: the line frees the item's value, which came from
// `log_builtins_string`.
enum { DOVRIN_LOG_FREE_VALUE = 2 };

// "log_builtins". Every operation accepts a null line (adding then returns a null item) and a null
// item.
typedef struct Dovrin_log_builtins {
  Dovrin_reserved reserved_1_to_8[8];
  int (*item_set_int)(Dovrin_log_item *item, long long value);  // 9
  Dovrin_reserved reserved_10;
  int (*item_set_lexstring)(Dovrin_log_item *item, const char *text, size_t length);  // 11
  int (*item_set_cstring)(Dovrin_log_item *item, const char *text);                   // 12
  Dovrin_reserved reserved_13_to_14[2];
  Dovrin_log_item *(*add_item_with_key)(Dovrin_log_line *line, int type, const char *key,
                                        unsigned int flags);      // 15
  Dovrin_log_item *(*add_item)(Dovrin_log_line *line, int type);  // 16
  Dovrin_log_line *(*create_line)(void);                          // 17
  void (*release_line)(Dovrin_log_line *line);                    // 18
  Dovrin_reserved reserved_19;
  int (*has_item)(Dovrin_log_line *line,
                  int type);  // 20: non-zero if the line has one of this type
  Dovrin_reserved reserved_21_to_26[6];
  int (*submit)(Dovrin_log_line *line);  // 27
  Dovrin_reserved reserved_28_to_29[2];
  const char *(*message_template)(int code);  // 30: null or empty for a code without one
} Dovrin_log_builtins;

// "log_builtins_string"
typedef struct Dovrin_log_builtins_string {
  void *(*allocate)(size_t size);  // 1
  Dovrin_reserved reserved_2;
  void (*release)(void *memory);  // 3
  Dovrin_reserved reserved_4_to_7[4];
  // C's vsnprintf: returns the length that the whole text needs.
  size_t (*format)(char *buffer, size_t size, const char *format, va_list arguments);  // 8
} Dovrin_log_builtins_string;

#ifdef __cplusplus
}  // extern "C"

static_assert(offsetof(Dovrin_log_builtins, item_set_int) == 8 * sizeof(void *));
static_assert(offsetof(Dovrin_log_builtins, item_set_cstring) == 11 * sizeof(void *));
static_assert(offsetof(Dovrin_log_builtins, add_item_with_key) == 14 * sizeof(void *));
static_assert(offsetof(Dovrin_log_builtins, release_line) == 17 * sizeof(void *));
static_assert(offsetof(Dovrin_log_builtins, has_item) == 19 * sizeof(void *));
static_assert(offsetof(Dovrin_log_builtins, submit) == 26 * sizeof(void *));
static_assert(sizeof(Dovrin_log_builtins) == 30 * sizeof(void *));
static_assert(offsetof(Dovrin_log_builtins_string, release) == 2 * sizeof(void *));
static_assert(sizeof(Dovrin_log_builtins_string) == 8 * sizeof(void *));
#endif

#endif  // DOVRIN_SERVICES_H
