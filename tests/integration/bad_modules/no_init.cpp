// A library that is not a module.
extern "C" __attribute__((visibility("default"))) int something_else() { return 1; }
