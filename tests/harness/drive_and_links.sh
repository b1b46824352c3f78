#!/usr/bin/env bash
# What Windows code can't make under Wine 8, made from the host side around the
# tests: the throw-away drive Q:, a link in dosdevices to C:\tessel\q\, and
# Unix symbolic links, which Wine shows as folders with the reparse-point
# attribute. Under C:\tessel\links\, target\ holds kept.txt; tree\link and top
# are links to target\. ctest runs this as the drive_and_links fixture.
# Usage: tests/harness/drive_and_links.sh setup|cleanup BUILD_DIR
set -euo pipefail
source "$(dirname "$0")/../../tools/wine-env.sh" "$2"
tessel_ensure_prefix
drive="$WINEPREFIX/drive_c/tessel/q"
links="$WINEPREFIX/drive_c/tessel/links"
rm -f "$WINEPREFIX/dosdevices/q:"
rm -rf "$drive" "$links"
if [ "$1" = setup ]; then
  mkdir -p "$drive" "$links/target" "$links/tree"
  ln -s ../drive_c/tessel/q "$WINEPREFIX/dosdevices/q:"
  echo kept >"$links/target/kept.txt"
  ln -s ../target "$links/tree/link"
  ln -s target "$links/top"
fi
