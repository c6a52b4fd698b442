// A library that is no module.
extern "C" __attribute__((visibility("default"))) int something_else() { return 1; }
