#!/usr/bin/env bash
# Installs and removes the demo suite package again and again in one prefix,
# then sets the machine beside its state before the first install: what is
# left must be what the suite keeps on purpose.
# Usage: tools/cycles.sh BUILD_DIR [CYCLES]
set -euo pipefail
cycles=${2:-10}
# The demo's stand-ins, snapshots and msiexec runner, without its runs.
TESSEL_DEMO_FUNCTIONS_ONLY=1 source "$(cd "$(dirname "$0")" && pwd)/demo.sh" "$1" "$(cd "$1" && pwd)/cycles"

# The demo's snapshot, with the operations queued for the restart.
snapshot_with_queue() {
  snapshot "$1"
  rm -f "$demo_dir/queue.reg"
  (cd "$demo_dir" && "$tessel_wine" reg export 'HKLM\SYSTEM\CurrentControlSet\Control\Session Manager' \
    'C:\tessel\demo\queue.reg' /y) >/dev/null 2>&1 || true
  cat "$demo_dir/queue.reg" >> "$out/$1.reg" 2>/dev/null || true
}

seed_install_manager
start_adapter
snapshot_with_queue before
: > "$out/cycles.txt"
for i in $(seq "$cycles"); do
  start=$(date +%s.%N)
  # The install manager lays its records down before each install, as in the demo; every other
  # cycle runs the other member of each pair of twin actions.
  [ "$i" = 1 ] || seed_install_manager
  twins=
  [ $((i % 2)) = 1 ] || twins=DEMO_OTHER_TWINS=1
  msiexec "install$i" /i 'C:\tessel\demo\TesselDemo.msi' LAUNCHED_FROM_FERRULE=1 $twins $display_mode
  msiexec "remove$i" /x 'C:\tessel\demo\TesselDemo.msi' /norestart $twins
  seconds=$(awk -v a="$start" -v b="$(date +%s.%N)" 'BEGIN { printf "%.1f", b - a }')
  echo "$i $(cat "$out/install$i.rc") $(cat "$out/remove$i.rc") $seconds" >> "$out/cycles.txt"
  echo "cycle $i: install exit $(cat "$out/install$i.rc"), removal exit $(cat "$out/remove$i.rc"), $seconds s"
done
snapshot_with_queue after
stop_adapter
status=0
python3 "$tools/cycles_report.py" "$out" | tee "$out/report.txt" || status=$?
unseed_install_manager
[ -z "${made_shared_data:-}" ] || rmdir "$shared_data" 2>/dev/null || true
exit "$status"
