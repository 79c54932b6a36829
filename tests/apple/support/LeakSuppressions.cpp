// What GNUstep and GCC's runtime keep for the life of the process is no leak of ours. Objects,
// which they allocate as well, are counted by the tests of lifetimes.

// Asked by the address sanitizer, where there is one.
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() {
  return "leak:libgnustep-base.so\nleak:libobjc.so\n";
}
extern "C" const char* __lsan_default_options();
extern "C" const char* __lsan_default_options() {
  return "print_suppressions=0";
}
