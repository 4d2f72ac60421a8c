#!/usr/bin/env bash
# The manual pages render without a warning, and pellam-spi(1) has an entry
# for every option the program's help lists.
# usage: man_page_test.sh <pellam-spi> <folder of the pages>
set -euo pipefail
program=$(realpath "$1")
pages=$2
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
fail=0

for page in "$pages"/pellam-spi.1 "$pages"/pellam-spi-sim.1 "$pages"/pellam-spi-bridge.1; do
  warnings=$(groff -man -Tutf8 -ww -z "$page" 2>&1) || true
  if [ -n "$warnings" ]; then
    echo "FAIL: $(basename "$page") renders with warnings:"; echo "$warnings"; fail=1
  fi
done

# The help as the program prints it, in a scratch home.
(cd "$tmp" && HOME=$tmp TARLOSIM_FLASH=$tmp/flash.bin "$program" -?) > "$tmp/help.txt" || true
options=$(sed -n 's/^ \(-[a-z?]*\).*/\1/p' "$tmp/help.txt")
count=$(echo "$options" | grep -c . || true)
if [ "$count" -lt 20 ]; then
  echo "FAIL: only $count options found in the help:"; cat "$tmp/help.txt"; fail=1
fi
# Each option has an entry of its own: a bold line that starts with its name.
for option in $options; do
  name=$(printf '%s' "${option#-}" | sed 's/[?]/\\?/g')
  if ! grep -qE "^\.B[IR]? \\\\-${name}( |$)" "$pages/pellam-spi.1"; then
    echo "FAIL: option $option has no entry in pellam-spi(1)"; fail=1
  fi
done

[ $fail = 0 ] && echo "man pages: $count options documented, no warnings"
exit $fail
