#!/usr/bin/env bash
# What Windows code can't make under Wine 8, made from the host side around the
# tests: the throw-away drive Q:, a link in dosdevices to C:\tessel\q\.
# ctest runs it as the drive_and_links fixture.
# Usage: tests/harness/drive_and_links.sh setup|cleanup BUILD_DIR
set -euo pipefail
source "$(dirname "$0")/../../tools/wine-env.sh" "$2"
tessel_ensure_prefix
drive="$WINEPREFIX/drive_c/tessel/q"
rm -f "$WINEPREFIX/dosdevices/q:"
rm -rf "$drive"
if [ "$1" = setup ]; then
  mkdir -p "$drive"
  ln -s ../drive_c/tessel/q "$WINEPREFIX/dosdevices/q:"
fi
