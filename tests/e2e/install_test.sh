#!/usr/bin/env bash
# The installed layout and the Debian packages, used as a user would:
# - cmake --install (a prefix, and DESTDIR) gives bin/pellam-spi alone and the
#   simulator variant in lib/pellam-spi/sim/ behind the link bin/pellam-spi-sim;
# - the packages built by cpack, unpacked into a scratch root, run: the sim
#   command programs the sample, the plain command does not find the simulator.
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
  check "$label: nothing beside bin/pellam-spi but the sim link" \
    test "$(cd "$root/bin" && ls | tr '\n' ' ')" = "pellam-spi pellam-spi-sim "
  check "$label: bin/pellam-spi-sim is a link to the sim copy" \
    test "$(readlink "$root/bin/pellam-spi-sim")" = "../lib/pellam-spi/sim/pellam-spi"
  check "$label: the sim copy" test -x "$root/lib/pellam-spi/sim/pellam-spi"
  check "$label: the simulated library" test -f "$root/lib/pellam-spi/sim/libtarloarm.so"
  check "$label: man pages" test -f "$root/share/man/man1/pellam-spi.1" -a -f "$root/share/man/man1/pellam-spi-sim.1"
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
check "pellam-spi depends on the C library" sh -c "dpkg-deb -f '$program_deb' Depends | grep -q libc6"
check "pellam-spi-sim depends on the C library" sh -c "dpkg-deb -f '$sim_deb' Depends | grep -q libc6"
check "pellam-spi holds no probe library" sh -c "! dpkg-deb -c '$program_deb' | grep -q libtarloarm"
dpkg -x "$program_deb" "$tmp/root"
dpkg -x "$sim_deb" "$tmp/root"
check_layout "$tmp/root/usr" "packages"
run_pair "$tmp/root/usr/bin" "packages"

[ $fail = 0 ] && echo "install layout and packages: all checks passed"
exit $fail
