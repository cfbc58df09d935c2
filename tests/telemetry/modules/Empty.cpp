// A module without any of the entry points.
extern "C" int somethingElse() {
  return 0;
}
