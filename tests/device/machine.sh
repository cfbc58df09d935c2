# Packs the machine's memory-only root file system and runs it. Sourced by run, whose variables it uses.
# shellcheck shell=bash disable=SC2154

# pack_machine LIBBINDER_BUILD SERVICE_PROGRAMS: programs, the libraries they ask for, and the guest's own files.
pack_machine() {
  local root=$work/root name file
  mkdir -p "$root"/{bin,lib/modules,dev,proc,sys,run,tmp,system_ext/etc}
  ln -s lib "$root/lib64"
  cp "$kernel/busybox" "$root/bin/"
  cp "$kernel"/*.ko "$root/lib/modules/"
  cp "$1/servicemanager" "$1/libbinder.so" "$root/bin/"
  for name in diagnostics_collector_service libossdk.pellux.so device_checks; do cp "$2/$name" "$root/bin/"; done
  mv "$root/bin/libbinder.so" "$root/lib/"
  cp tests/device/guest/init "$root/init"
  cp tests/device/recorded/parcels.txt "$root/" 2>/dev/null || touch "$root/parcels.txt"
  for file in "$root"/bin/[!b]* "$root/lib/libbinder.so"; do take_libraries "$file"; done
  (cd "$root" && find . -print0 | cpio --quiet --null --create --format=newc --owner=+0:+0) |
    gzip -1 >"$work/initramfs"
}

# take_libraries FILE: copies the loader and the libraries that an ELF file names, and theirs in turn.
take_libraries() {
  local name found folders=()
  for name in "lib/$triplet" "usr/lib/$triplet" "usr/lib/$triplet/android" usr/lib/p7zip lib lib64; do
    [ ! -d "$sysroot/$name" ] || folders+=("$sysroot/$name")
  done
  while read -r name; do
    [ ! -e "$work/root/lib/$name" ] || continue
    found=$(find "${folders[@]}" -maxdepth 1 -name "$name" 2>/dev/null | head -n 1)
    [ -n "$found" ] || die "nothing to run $(basename "$1") with: no $name for $arch"
    cp -L "$found" "$work/root/lib/$name"
    take_libraries "$work/root/lib/$name"
  done < <(readelf -dlW "$1" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p; s/.*program interpreter: .*\/\(.*\)\]/\1/p')
}

# run_machine: boots, shows the console, and turns what the guest said into an exit code. What is left of four
# minutes is the machine's, three at least: a first run has spent more on fetching and building.
run_machine() {
  local log=$builds/console.log limit=$((240 - SECONDS)) arguments='' status=0 shown
  [ "$limit" -ge 180 ] || limit=180
  [ "$record" = no ] || arguments=record
  : >"$log"
  # The service manager asks the driver for security contexts, which only a security module supplies.
  # Its clock counts instructions and skips idle time: what a check sees of time does not hang on how busy
  # this machine is, and waiting is free.
  timeout --foreground "$limit" "qemu-system-$arch" "${machine[@]}" -m 512 \
    -accel tcg -icount shift=1,sleep=off -display none -monitor none -nic none -no-reboot -serial "file:$log" \
    -kernel "$kernel/image" -initrd "$work/initramfs" -append \
    "console=$console quiet loglevel=3 panic=-1 oops=panic security=selinux selinux=1 enforcing=0 -- $arguments" \
    </dev/null &
  emulator=$!
  tail --pid="$emulator" -n +1 -s 0.2 -f "$log" | sed -u 's/\r//' | sed -u '/^parcel /d' &
  shown=$!
  wait "$emulator" || status=$?
  emulator=
  wait "$shown" || true
  if [ "$status" -eq 124 ]; then
    die "the machine was stopped after $limit s; its console is in $log" 8
  elif grep -q '^machine: the checks ended with 0' "$log"; then
    return 0
  elif grep -q '^machine: the checks ended with 1' "$log"; then
    echo "The machine's console is in $log"
    return 1
  fi
  die "the machine crashed (emulator status $status); its console is in $log" 7
}

# record_parcels FILE: the parcels that the console holds.
record_parcels() {
  mkdir -p "$(dirname "$1")"
  sed -n 's/\r$//; s/^parcel //p' "$builds/console.log" >"$work/parcels"
  [ -s "$work/parcels" ] || die "the console holds no parcels"
  mv "$work/parcels" "$1"
  echo "Wrote $(wc -l <"$1") parcels to $1"
}
