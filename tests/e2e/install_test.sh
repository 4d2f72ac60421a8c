#!/usr/bin/env bash
# The installed layout and the Debian packages, used as a user would:
# - cmake --install (a prefix, and DESTDIR) gives bin/pellam-spi alone and the
#   simulator and bridge variants in lib/pellam-spi/{sim,bridge}/ behind the
#   links bin/pellam-spi-sim and bin/pellam-spi-bridge;
# - the packages built by cpack, unpacked into a scratch root, run: the sim
#   command programs the sample, the bridge command reaches its own library,
#   the plain command finds neither.
# usage: install_test.sh <build dir> <source dir>
set -euo pipefail
build=$1
source=$2
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
fail=0
check() {  # check <description> <command...>
  local what=$1; shift
  if ! "$@"; then echo "FAIL: $what"; fail=1; fi
}

# A real probe library installed on this machine would rightly be found by
# the plain program; then its "not found" ending cannot be checked here.
real_probe_lib=0
ls /opt/Valmik/Tarlo/libtarloarm.so* >/dev/null 2>&1 && real_probe_lib=1

# Runs the sim command on the sample and the plain one with -?, checking
# their endings. usage: run_pair <bin folder> <label>
run_pair() {
  local bin=$1 label=$2 work
  work=$(mktemp -d "$tmp/run.XXXX")
  local status=0
  (cd "$work" && HOME=$work TARLOSIM_FLASH=$work/flash.bin "$bin/pellam-spi-sim" \
      -open "$source/demo/sample.hex" -auto) > "$work/sim.txt" 2>&1 || status=$?
  check "$label: pellam-spi-sim -auto succeeds (status $status)" test $status = 0
  check "$label: pellam-spi-sim programs the sample" \
    grep -q "Target erased, programmed and verified successfully." "$work/sim.txt"
  # Through the search path, as a bare command name.
  status=0
  (cd "$work" && PATH=$bin:$PATH HOME=$work TARLOSIM_FLASH=$work/flash.bin pellam-spi-sim -verify) \
    > "$work/path.txt" 2>&1 || status=$?
  check "$label: pellam-spi-sim found through PATH finds the simulator (status $status)" test $status = 1
  check "$label: ... and reaches the chip" grep -q "Verifying target" "$work/path.txt"
  status=0
  (cd "$work" && HOME=$work env -u PELLAM_BRIDGE "$bin/pellam-spi-bridge" -connect) > "$work/bridge.txt" 2>&1 || status=$?
  check "$label: pellam-spi-bridge without PELLAM_BRIDGE fails (status $status)" test $status = 1
  check "$label: ... with the bridge library's reason" grep -q "PELLAM_BRIDGE is not set" "$work/bridge.txt"
  if [ $real_probe_lib = 0 ]; then
    status=0
    (cd "$work" && HOME=$work "$bin/pellam-spi" -?) > "$work/plain.txt" 2>&1 || status=$?
    check "$label: pellam-spi without a probe library exits with 1 (status $status)" test $status = 1
    check "$label: pellam-spi ends with the library message" \
      test "$(tail -n 1 "$work/plain.txt")" = "Could not open Tarlo shared library. Exiting now."
  fi
}

# The layout every install must have under its prefix.
check_layout() {  # check_layout <root> <label>
  local root=$1 label=$2
  check "$label: bin/pellam-spi" test -x "$root/bin/pellam-spi" -a ! -L "$root/bin/pellam-spi"
  check "$label: nothing beside bin/pellam-spi but the variants' links" \
    test "$(cd "$root/bin" && ls | tr '\n' ' ')" = "pellam-spi pellam-spi-bridge pellam-spi-sim "
  for variant in sim bridge; do
    check "$label: bin/pellam-spi-$variant is a link to the $variant copy" \
      test "$(readlink "$root/bin/pellam-spi-$variant")" = "../lib/pellam-spi/$variant/pellam-spi"
    check "$label: the $variant copy and its library" \
      test -x "$root/lib/pellam-spi/$variant/pellam-spi" -a -f "$root/lib/pellam-spi/$variant/libtarloarm.so"
  done
  check "$label: man pages" sh -c "cd '$root/share/man/man1' && test -f pellam-spi.1 -a -f pellam-spi-sim.1 -a -f pellam-spi-bridge.1"
}

cmake --install "$build" --prefix "$tmp/prefix" > /dev/null
check_layout "$tmp/prefix" "cmake --install --prefix"
run_pair "$tmp/prefix/bin" "prefix"

DESTDIR=$tmp/dest cmake --install "$build" --prefix /usr/local > /dev/null
check_layout "$tmp/dest/usr/local" "DESTDIR install"

# The Debian packages.
cpack --config "$build/CPackConfig.cmake" -B "$tmp/packages" > "$tmp/cpack.txt" 2>&1 || {
  echo "FAIL: cpack"; cat "$tmp/cpack.txt"; exit 1; }
program_deb=$(ls "$tmp"/packages/pellam-spi_*.deb)
sim_deb=$(ls "$tmp"/packages/pellam-spi-sim_*.deb)
bridge_deb=$(ls "$tmp"/packages/pellam-spi-bridge_*.deb)
check "pellam-spi holds no probe library" sh -c "! dpkg-deb -c '$program_deb' | grep -q libtarloarm"
check "pellam-spi-bridge holds its variant and nothing else" test "$(dpkg-deb -c "$bridge_deb" | awk '!/\/$/ {print $6}' | sort | tr '\n' ' ')" = \
  "./usr/bin/pellam-spi-bridge ./usr/lib/pellam-spi/bridge/libtarloarm.so ./usr/lib/pellam-spi/bridge/pellam-spi ./usr/share/man/man1/pellam-spi-bridge.1 "
for deb in "$program_deb" "$sim_deb" "$bridge_deb"; do
  check "$(basename "$deb") depends on the C library" sh -c "dpkg-deb -f '$deb' Depends | grep -q libc6"
  dpkg -x "$deb" "$tmp/root"
done
check_layout "$tmp/root/usr" "packages"
run_pair "$tmp/root/usr/bin" "packages"

[ $fail = 0 ] && echo "install layout and packages: all checks passed"
exit $fail
