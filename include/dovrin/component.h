// The component descriptor, which a component's only exported function, list_components, returns.
// C-compatible.

#ifndef DOVRIN_COMPONENT_H
#define DOVRIN_COMPONENT_H

#ifdef __cplusplus
extern "C" {
#endif

typedef struct Dovrin_provided_service {
  const char *name;
  void *implementation;
} Dovrin_provided_service;

// Before init() the server writes the address of the service's table of operations into `*slot`.
typedef struct Dovrin_required_service {
  const char *name;
  void **slot;
} Dovrin_required_service;

typedef struct Dovrin_metadata {
  const char *key;
  const char *value;
} Dovrin_metadata;

// Each of the three arrays ends with a pair of nulls.
typedef struct Dovrin_component {
  const char *name;
  const Dovrin_provided_service *provided_services;
  const Dovrin_required_service *required_services;
  const Dovrin_metadata *metadata;
  int (*init)(void);    // 0 for success; called once, after the slots are filled
  int (*deinit)(void);  // 0 for success; called before the services are released
} Dovrin_component;

typedef const Dovrin_component *(*Dovrin_list_components)(void);

#ifdef __cplusplus
}  // extern "C"

static_assert(sizeof(Dovrin_component) == 48);
#endif

#endif  // DOVRIN_COMPONENT_H
