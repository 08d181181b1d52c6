// A shared object that is no component: it lacks the entry.

extern "C" __attribute__((visibility("default"))) int answer() { return 42; }
