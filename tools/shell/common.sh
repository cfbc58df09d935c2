# Shared by ./run, ./test and .ci/run: packages, builds, and words on the terminal. Sourced with the root of
# the checkout as the working directory.
# shellcheck shell=bash

# Builds are below BUILD_DIR, which is relative to where the script was called: OLDPWD, because the script has gone to
# its checkout. A checkout that cannot be written is built in the user's cache.
if [ -n "${BUILD_DIR:-}" ]; then
  build_root=$(cd "${OLDPWD:-.}" && realpath -m "$BUILD_DIR")
elif [ -w . ]; then
  build_root=build
else
  build_root=${XDG_CACHE_HOME:-$HOME/.cache}/diagnostics-collector/build
fi

# What a build of the service and its tools takes, then what its tests take besides.
build_packages=(
  g++ cmake ninja-build protobuf-compiler aidl
  android-liblog-dev android-libutils-dev android-libbase-dev android-libcutils-dev
  android-platform-frameworks-native-headers android-platform-system-core-headers
  libjsoncpp-dev libprotobuf-dev libfmt-dev libcli11-dev libncurses-dev libjs-dygraphs util-linux)
test_packages=(libgtest-dev libgmock-dev clang checkpolicy m4 python3 python3-jsonschema tmux)
page_packages=(chromium chromium-driver python3-selenium poppler-utils)
package_packages=(debhelper dpkg-dev lintian systemd man-db pkg-config bash-completion git python3)
bench_packages=(libbenchmark-dev valgrind)
check_packages=(clang clang-format clang-tidy libclang-rt-14-dev libc++-dev libc++abi-dev)

# Bold on a terminal, unless NO_COLOR is set.
say() {
  if [ -t 1 ] && [ -z "${NO_COLOR:-}" ]; then
    printf '\n\033[1m== %s\033[0m\n' "$*"
  else
    printf '\n== %s\n' "$*"
  fi
}

die() {
  printf '%s: %s\n' "$(basename "$0")" "$1" >&2
  exit "${2:-1}"
}

# need_packages PACKAGE...: installs what is missing, or names it and stops.
need_packages() {
  command -v dpkg-query >/dev/null ||
    die "this is not a Debian machine; it needs what these Debian 12 packages hold: $*"
  local missing=() name
  for name in "$@"; do
    [ "$(dpkg-query -W -f '${db:Status-Status}' "$name" 2>/dev/null)" = installed ] || missing+=("$name")
  done
  [ ${#missing[@]} -gt 0 ] || return 0
  local as_root=()
  if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null && { sudo -n true 2>/dev/null || [ -t 0 ]; } ||
      die "missing packages, and neither root nor sudo to install them: apt-get install ${missing[*]}"
    as_root=(sudo)
  fi
  say "Installing ${missing[*]}"
  "${as_root[@]}" apt-get update -q &&
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
      apt-get install -q -y --no-install-recommends "${missing[@]}" ||
    die "could not install: ${missing[*]}"
}

# build PRESET [-DOPTION=VALUE...] [TARGET...]: configures and builds into $build_root/PRESET.
build() {
  local preset=$1 options=() log status=0
  shift
  while [[ ${1:-} == -D* ]]; do
    options+=("$1")
    shift
  done
  say "Building ($preset)"
  log=$(mktemp)
  cmake --preset "$preset" -B "$build_root/$preset" "${options[@]}" >"$log" 2>&1 || status=$?
  [ "$status" -eq 0 ] || cat "$log" >&2
  rm -f "$log"
  [ "$status" -eq 0 ] || die "cmake could not configure $build_root/$preset"
  cmake --build "$build_root/$preset" ${1:+--target "$@"} || die "the $preset build failed"
}
