// Part of the library only where it is built for ThreadSanitizer, which does not see into Debian's libutils:
// the reference counts there order the last use of an object before its destructor, and without them every
// object that dies on another thread than the one that used it last looks like a race.

extern "C" {

// Named on the linker's command line, which is what gets this file out of the archive.
extern const int platform_binder_suppressions;
const int platform_binder_suppressions = 1;

// Asked by the sanitizer's runtime at start.
const char* __tsan_default_suppressions() {  // NOLINT(bugprone-reserved-identifier)
  return "race:android::RefBase::decStrong\n";
}
}
