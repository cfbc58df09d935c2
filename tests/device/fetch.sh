# Fetches kernel, libraries and the platform's source into the cache. Sourced by run, whose variables it uses.
# shellcheck shell=bash disable=SC2154

# fetch_all: what is not in the cache yet. What is there must be as it was put there.
fetch_all() {
  mkdir -p "$cache/$arch" || die "cannot make the cache $cache" 5
  exec 8>"$cache/lock"
  flock 8
  fetch_folder "$kernel" fetch_kernel
  [ -z "$sysroot" ] || fetch_folder "$sysroot" fetch_sysroot
  fetch_folder "$source" fetch_source
  flock -u 8
}

# fetch_folder FOLDER FUNCTION: calls FUNCTION in an empty folder and keeps that as FOLDER, with a list of
# checksums; a folder that is there already is compared with its list.
fetch_folder() {
  local folder=$1 list=$1.sha256
  if [ ! -e "$list" ]; then
    rm -rf "$folder" "$folder.new"
    mkdir -p "$folder.new"
    (cd "$folder.new" && "$2")
    (cd "$folder.new" && find . -xtype f -print0 | sort -z | xargs -0 sha256sum) >"$work/list"
    mv "$folder.new" "$folder"
    mv "$work/list" "$list"
  elif ! (cd "$folder" && sha256sum --check --quiet "$list") >"$work/check" 2>&1; then
    grep -v '^sha256sum' "$work/check" >&2 || true
    die "the cache is damaged: $folder is not what was fetched; remove $cache and run again" 5
  fi
}

# The parts of the platform's source that libbinder and the service manager are built from.
fetch_source() {
  apt_sources deb-src
  apt_here update || die "no source packages: what the machine's apt sources name could not be read as deb-src" 4
  apt_here source --download-only android-platform-tools >"$work/apt.log" 2>&1 ||
    { cat "$work/apt.log" >&2; die "no source package android-platform-tools" 4; }
  dpkg-source --no-check -x android-platform-tools_*.dsc "$work/platform" >"$work/apt.log" 2>&1 ||
    { cat "$work/apt.log" >&2; die "the source package android-platform-tools could not be unpacked" 4; }
  rm -f ./*
  local part
  for part in frameworks/native/libs/binder frameworks/native/cmds/servicemanager \
    system/core/libprocessgroup system/core/libcutils system/core/libutils; do
    mkdir -p "$(dirname "$part")"
    cp -r "$work/platform/$part" "$part"
  done
  rm -rf "$work/platform"
}

# The kernel as `image`, its binder driver with all it needs as numbered modules, and busybox.
fetch_kernel() {
  apt_binaries
  local package
  package=$(apt_run apt-cache depends "linux-image-$deb_arch" |
    sed -n 's/^ *Depends: *\(linux-image-[^ ]*\)$/\1/p' | head -n 1)
  apt_here download "${package:-linux-image-$deb_arch}" busybox-static || die "no network: no kernel package" 3
  local deb
  for deb in ./*.deb; do dpkg-deb -x "$deb" "$work/kernel"; done
  rm -f ./*
  cp "$work"/kernel/boot/vmlinuz-* image
  cp "$work/kernel/bin/busybox" busybox
  number=0
  take_module binder_linux
  rm -rf "$work/kernel"
}

# take_module NAME: copies a kernel module after those it depends on, in the order in which they must be loaded.
take_module() {
  local file dependency
  file=$(find "$work/kernel/lib/modules" -name "$1.ko*" | head -n 1)
  [ -n "$file" ] || die "Debian's kernel for $deb_arch has no module $1" 6
  for dependency in $(modinfo -F depends "$file" | tr , ' '); do take_module "$dependency"; done
  number=$((number + 1))
  case $file in
    *.xz) xz -dc "$file" ;;
    *) cat "$file" ;;
  esac >"$number-$1.ko"
}

# The libraries of another architecture, and what their use takes at build time.
fetch_sysroot() {
  apt_binaries
  apt_here install --download-only libstdc++6 libc6 \
    android-liblog-dev android-libutils-dev android-libbase-dev android-libcutils-dev \
    libjsoncpp-dev libprotobuf-dev libfmt-dev libgtest-dev libgmock-dev libcli11-dev ||
    die "no network: the libraries for $deb_arch could not be fetched" 3
  local deb
  for deb in "$work"/apt/cache/archives/*.deb; do dpkg-deb -x "$deb" .; done
  rm -rf usr/share/doc usr/share/man usr/share/locale
}

apt_binaries() {
  [ ! -e "$work/apt/binaries" ] || return 0
  apt_sources deb
  apt_here update || die "no network: apt could not read Debian's package lists for $deb_arch" 3
  touch "$work/apt/binaries"
}

# apt_sources deb|deb-src: an apt state of our own with Debian's lines of the machine's sources list, so that
# neither another architecture nor source packages change anything on the machine.
apt_sources() {
  rm -rf "$work/apt"
  mkdir -p "$work/apt/lists/partial" "$work/apt/cache/archives/partial"
  touch "$work/apt/status"
  local line="$1 \$(REPO_URI) \$(RELEASE) \$(COMPONENT)"
  apt-get indextargets --format "$line" 'Created-By: Packages' 'Origin: Debian' |
    sort -u >"$work/apt/sources.list"
  # Before the first update on a machine nothing tells whose a source is.
  [ -s "$work/apt/sources.list" ] ||
    apt-get indextargets --format "$line" 'Created-By: Packages' | sort -u >"$work/apt/sources.list"
  [ -s "$work/apt/sources.list" ] || die "no network: the machine's apt knows no package sources" 3
}

# apt_here ARGUMENT...: apt-get on that state; says on failure what apt said.
apt_here() {
  apt_run apt-get --quiet --yes --no-install-recommends "$@" >"$work/apt.log" 2>&1 ||
    { cat "$work/apt.log" >&2; return 1; }
}

apt_run() {
  "$1" -o APT::Architecture="$deb_arch" -o APT::Architectures::="$deb_arch" \
    -o Dir::State="$work/apt" -o Dir::State::status="$work/apt/status" -o Dir::Cache="$work/apt/cache" \
    -o Dir::Etc::sourcelist="$work/apt/sources.list" -o Dir::Etc::sourceparts=/dev/null \
    -o APT::Update::Error-Mode=any -o APT::Sandbox::User=root "${@:2}"
}
