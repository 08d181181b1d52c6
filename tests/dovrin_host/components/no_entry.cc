// A shared object that is no component.

extern "C" __attribute__((visibility("default"))) int something_else(void);

int something_else(void) { return 1; }
