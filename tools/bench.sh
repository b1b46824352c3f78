#!/usr/bin/env bash
# Prints the suite's speed figures; nothing here fails on a slow machine.
# Usage: tools/bench.sh BUILD_DIR
set -euo pipefail
tools=$(cd "$(dirname "$0")" && pwd)
source "$tools/wine-env.sh" "$1"
trap tessel_warm_stop EXIT
tessel_warm_start
export TESSEL_WINE_WARM=1

now() { date +%s.%N; }
elapsed() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.3f", b - a }'; }

echo "== Wine (warm wineserver)"
"$tools/wine-run.sh" "$tessel_build" "$tessel_build/bin/frame_tests.exe" --gtest_filter='StringHelpers.*' >/dev/null
runs=()
for i in 1 2 3 4 5; do
  start=$(now)
  "$tools/wine-run.sh" "$tessel_build" "$tessel_build/bin/frame_tests.exe" --gtest_filter='StringHelpers.*' >/dev/null
  runs+=("$(elapsed "$start" "$(now)")")
done
echo "one warm test program run (5 runs): ${runs[*]} s"

start=$(now)
(cd "$tessel_build" && ctest -j2 >/dev/null)
count=$(cd "$tessel_build" && ctest -N | sed -n 's/^Total Tests: //p')
echo "whole ctest run, $count tests: $(elapsed "$start" "$(now)") s"

for bench in "$tessel_build"/bin/*_bench.exe; do
  echo "== $(basename "$bench" .exe)"
  "$tools/wine-run.sh" "$tessel_build" "$bench"
done

echo "== shipped library"
shipped="$tessel_build/package/Tessel_CA.dll"
size=$(stat -c %s "$shipped")
echo "Tessel_CA.dll in the package: $size bytes ($(awk -v s="$size" 'BEGIN { printf "%.2f", s / 1048576 }') MiB, target 1.50 MiB);" \
  "debug information in $(basename "$tessel_build")/bin/Tessel_CA.dll.debug"
