#!/usr/bin/env bash
# Installs and removes the demo suite package with Wine's msiexec, tries an
# install that the install manager did not start, and prints a report of
# what the library's actions did.
# Usage: tools/demo.sh BUILD_DIR [OUT_DIR]
set -euo pipefail
tools=$(cd "$(dirname "$0")" && pwd)
source "$tools/wine-env.sh" "$1"
out=${2:-$tessel_build/demo}
msi="$tessel_build/package/TesselDemo.msi"
[ -f "$msi" ] || { echo "no $msi: build first" >&2; exit 1; }

rm -rf "$out"
mkdir -p "$out"
tessel_ensure_prefix
demo_dir="$WINEPREFIX/drive_c/tessel/demo"
rm -rf "$demo_dir"
mkdir -p "$demo_dir"
cp "$msi" "$demo_dir/TesselDemo.msi"
cp "$msi" "$out/TesselDemo.msi"

# The install manager comes before the package and stays after it: its
# records, a stand-in for its program that records how it was started,
# another product's folder and another package's record.
install_manager="$WINEPREFIX/drive_c/Program Files/Kestra Technologies/Install Manager"
other_product="$WINEPREFIX/drive_c/Program Files/Orvel/Other Product"
old_profiler="$WINEPREFIX/drive_c/Program Files (x86)/Orvel/Tracewell"
standins="$WINEPREFIX/drive_c/Program Files (x86)/Orvel"
# The control centre's framework: the interpreter that starts its tool takes no parentheses in a quoted path.
control_centre="$WINEPREFIX/drive_c/Program Files/Orvel/Lumen/Core-Static"
system_tools=("$WINEPREFIX/drive_c/windows/Microsoft.NET/Framework64/v4.0.30319/RegAsm.exe"
  "$WINEPREFIX/drive_c/windows/Microsoft.NET/Framework/v4.0.30319/RegAsm.exe"
  "$WINEPREFIX/drive_c/Program Files/Microsoft Help Viewer/v1.0/HelpLibManager.exe"
  "$WINEPREFIX/drive_c/windows/system32/kestraprof.exe")
seed_install_manager() {
  cp "$tools/../package/install-manager.reg" "$demo_dir/install-manager.reg"
  (cd "$demo_dir" && "$tessel_wine" regedit /S 'C:\tessel\demo\install-manager.reg') >/dev/null 2>&1
  mkdir -p "$install_manager/BIN64" "$other_product"
  cp "$tessel_build/bin/recorder.exe" "$install_manager/BIN64/InstallManagerApp.exe"
  printf 'Another product of the suite.\r\n' > "$other_product/Readme.txt"
  # The older profiler: the recording program as its uninstaller, a 2.9.9.9 build as its program.
  mkdir -p "$old_profiler/bin" "$old_profiler/API"
  cp "$tessel_build/bin/recorder.exe" "$old_profiler/uninst.exe"
  cp "$tessel_build/bin/profiler_2999.exe" "$old_profiler/bin/Tracewell.exe"
  # The install manager's working folder (FerruleInstallDir), and its own settings, which ask for no
  # repair of the packages it installs.
  mkdir -p "$demo_dir/Ferrule"
  printf 'The install manager'"'"'s working files.\r\n' > "$demo_dir/Ferrule/session.dat"
  mkdir -p "$install_manager/Config"
  printf '# Install manager settings\r\nNoRepair=Yes\r\n' > "$install_manager/Config/InstallManager.cfg"
  # Programs of the suite that other packages installed, and the system's tools that the actions
  # start: the recording program under their names.
  local program
  for program in "$control_centre/CLI.exe" "$control_centre/BrioInstall.exe" \
    "$control_centre/Pylon.exe" "$standins/Lumen/Sorrel/Sorrel.Service.exe" \
    "$standins/Vane/Kestra.Lumen/Vane/VaneSleepService.exe" "${system_tools[@]}"; do
    mkdir -p "$(dirname "$program")"
    cp "$tessel_build/bin/recorder.exe" "$program"
  done
  # The performance counters' key, which every Windows has and a new Wine prefix lacks.
  "$tessel_wine" reg add 'HKLM\SYSTEM\CurrentControlSet\Services\PerfOS\Performance' /f >/dev/null 2>&1 || true
  # The dynamic local mode service, installed by the driver: the service tests' program. Once started
  # it runs until the stand-ins go, so a second seeding leaves its program alone.
  if [ ! -f "$standins/DLM/OrvelDLM.exe" ]; then
    mkdir -p "$standins/DLM"
    cp "$tessel_build/bin/test_service.exe" "$standins/DLM/OrvelDLM.exe"
    "$tessel_wine" sc create OrvelDynamicLocalModeService binpath= '"C:\Program Files (x86)\Orvel\DLM\OrvelDLM.exe"' \
      >/dev/null 2>&1 || true
  fi
}
unseed_install_manager() {
  local key program
  "$tessel_wine" sc stop OrvelDynamicLocalModeService >/dev/null 2>&1 || true
  "$tessel_wine" sc delete OrvelDynamicLocalModeService >/dev/null 2>&1 || true
  for program in "${system_tools[@]}"; do
    rm -f "$program"
    rmdir -p --ignore-fail-on-non-empty "$(dirname "$program")" 2>/dev/null || true
  done
  for key in 'HKLM\SOFTWARE\Kestra Technologies' 'HKCU\Software\Orvel' 'HKLM\SYSTEM\CurrentControlSet\Services\orvelkmd' \
    'HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\Uninstall\Orvel Quillon Install Manager'; do
    "$tessel_wine" reg delete "$key" /f >/dev/null 2>&1 || true
  done
  rm -rf "$WINEPREFIX/drive_c/Program Files/Kestra Technologies" "$WINEPREFIX/drive_c/Program Files/Orvel"
  # What the context menu's removal leaves by design: the class key (the
  # unregister line reaches no library) and the library parked for the restart.
  "$tessel_wine" reg delete 'HKCR\CLSID\{7B3A91C4-5E1D-4F02-9A66-2C8D1E07F3B5}' /f >/dev/null 2>&1 || true
  "$tessel_wine" reg delete 'HKLM\SYSTEM\CurrentControlSet\Control\Session Manager' \
    /v PendingFileRenameOperations /f >/dev/null 2>&1 || true
  rm -f "$temp_dir/attemp.dll" "$temp_dir/StartHalyardBM.xml" "$WINEPREFIX"/drive_c/windows/system32/tasks/Start*
  # What the driver and display actions leave by design: the display core's log folder, the driver
  # version and the assessment queued for the next start.
  rm -rf "$temp_dir/Orvel" "$temp_dir/Gaugetemp" "$temp_dir/Gaugex86"
  # The telemetry client's identity, kept across removals by design, and the values that went under
  # HKCR because their keys were missing under HKLM.
  rm -rf "$WINEPREFIX/drive_c/Program Files (x86)/Orvel"
  for key in 'HKLM\Software\Ember' 'HKCR\Software\Orvel' 'HKCR\SYSTEM' 'HKLM\SOFTWARE\Wow6432Node\Orvel' \
    'HKLM\SOFTWARE\Kestra' 'HKLM\SOFTWARE\Wow6432Node\Kestra' 'HKLM\SOFTWARE\Wow6432Node\Kestra Technologies' \
    'HKLM\SOFTWARE\Wow6432Node\Microsoft\Windows\CurrentVersion\Uninstall\{7E57C0DE-0000-4000-8000-0000000000AA}'; do
    "$tessel_wine" reg delete "$key" /f >/dev/null 2>&1 || true
  done
  "$tessel_wine" reg delete 'HKLM\SOFTWARE\Orvel\Halyard' /f >/dev/null 2>&1 || true
  "$tessel_wine" reg delete 'HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\RunOnce' /v EnableAero /f \
    >/dev/null 2>&1 || true
}

# The user's temporary folder, where the benchmark task's definition is copied.
temp_dir=$(echo "$WINEPREFIX"/drive_c/users/*/Temp)

# The machine as the report compares it: the registry and the files the
# package or its actions may change.
snapshot() {
  local name=$1
  (cd "$demo_dir" &&
    "$tessel_wine" reg export 'HKLM\SOFTWARE' 'C:\tessel\demo\hklm.reg' /y &&
    "$tessel_wine" reg export 'HKCU\Software' 'C:\tessel\demo\hkcu.reg' /y) >/dev/null 2>&1
  # The display adapters' driver keys and the block list's service key, where the driver actions write;
  # an export that fails leaves the last one's file, so each goes first.
  rm -f "$demo_dir/display.reg" "$demo_dir/kmd.reg"
  (cd "$demo_dir" &&
    "$tessel_wine" reg export 'HKLM\SYSTEM\CurrentControlSet\Control\Class\{4d36e968-e325-11ce-bfc1-08002be10318}' \
      'C:\tessel\demo\display.reg' /y &&
    "$tessel_wine" reg export 'HKLM\SYSTEM\CurrentControlSet\Services\orvelkmd' 'C:\tessel\demo\kmd.reg' /y) \
    >/dev/null 2>&1 || true
  # The telemetry client's launcher service, when there is one.
  rm -f "$demo_dir/launcher.reg"
  (cd "$demo_dir" && "$tessel_wine" reg export 'HKLM\SYSTEM\CurrentControlSet\Services\EmberLauncher' \
    'C:\tessel\demo\launcher.reg' /y) >/dev/null 2>&1 || true
  cat "$demo_dir/hklm.reg" "$demo_dir/hkcu.reg" "$demo_dir/display.reg" "$demo_dir/kmd.reg" "$demo_dir/launcher.reg" \
    > "$out/$name.reg" 2>/dev/null || true
  # Of the Windows folder, only the tasks Wine's scheduler stores and the files the actions copy there.
  (cd "$WINEPREFIX/drive_c" && {
    find . \( -path ./windows -o -path ./tessel -o -path './users/*/Temp' -o -path './users/*/AppData/Local/Temp' \) -prune \
      -o -print
    find ./windows/system32/tasks ./windows/system32/kestradualbl.dat ./windows/system32/drivers/tw* -type f 2>/dev/null || true
  } | sort) > "$out/$name.files"
}

# Runs msiexec through cmd, which can tell its whole exit code (a process's
# status on Linux keeps only the low byte). msiexec's own error lines carry
# the results it refused ("Invalid Return Code"), and Wine's process trace
# the command lines of the programs the actions start; the stand-ins record
# theirs, once really started, in NAME.started.
msiexec() {
  local name=$1
  shift
  rm -f "$demo_dir/$name.started"
  (cd "$demo_dir" && RECORDER_FILE="C:\\tessel\\demo\\$name.started" WINEDEBUG=-all,err+msi,trace+process \
    "$tessel_wine" cmd /v:on /c \
    "msiexec $* /qn /l*v C:\\tessel\\demo\\$name.log & echo exit=!errorlevel!") \
    </dev/null >"$out/$name.out" 2>"$out/$name.err" || true
  sed -n 's/^exit=\([0-9]*\).*/\1/p' "$out/$name.out" > "$out/$name.rc"
  cp "$demo_dir/$name.log" "$out/$name.log" 2>/dev/null || : > "$out/$name.log"
  if [ -f "$demo_dir/$name.started" ]; then tr -d '\r' < "$demo_dir/$name.started"; fi > "$out/$name.started"
}

# Under the test suite the wineserver is already warm, and stays so.
# The adapter goes, and a server of our own stops, also when a step fails.
on_exit() {
  if [ -n "${adapter_pid:-}" ]; then stop_adapter; fi
  if [ -n "${own_server:-}" ]; then tessel_warm_stop; fi
}
trap on_exit EXIT
if [ -z "${TESSEL_WINE_WARM:-}" ]; then
  own_server=1
  tessel_warm_start
fi

# A display adapter of the maker, held from before the install until after the removal.
adapter_stop='C:\tessel\demo\adapter.stop'
start_adapter() {
  "$tessel_wine" "$tessel_build/bin/adapter_holder.exe" "Orvel Corporation" "31.0.101.4887" "Orvel Demo Graphics" \
    "$adapter_stop" >/dev/null 2>&1 &
  adapter_pid=$!
  for _ in $(seq 100); do [ -f "$demo_dir/adapter.stop.ready" ] && break; sleep 0.1; done
}
stop_adapter() {
  : > "$demo_dir/adapter.stop"
  wait "$adapter_pid" 2>/dev/null || true
  adapter_pid=
  rm -f "$demo_dir/adapter.stop"
}

# The display mode change waits 20 seconds, so a quick run (the package test) leaves it out.
display_mode=DEMO_DISPLAY_MODE=1
[ -z "${TESSEL_DEMO_QUICK:-}" ] || display_mode=

# The maker's shared data folder, which other products keep: the actions take the transcoding cache
# and the components' data folders out of it, not the folder itself.
shared_data="$WINEPREFIX/drive_c/ProgramData/Orvel"
[ -d "$shared_data" ] || made_shared_data=1
mkdir -p "$shared_data"

# tools/cycles.sh takes the stand-ins, snapshots and runner above, and runs its own cycles.
[ -z "${TESSEL_DEMO_FUNCTIONS_ONLY:-}" ] || return 0

seed_install_manager
start_adapter
snapshot before
msiexec install /i 'C:\tessel\demo\TesselDemo.msi' LAUNCHED_FROM_FERRULE=1
snapshot installed
cp "$temp_dir/StartHalyardBM.xml" "$out/StartHalyardBM.copy.xml" 2>/dev/null || true
# Settings files as the install left them, for the report to set beside the package's.
comm -13 "$out/before.files" "$out/installed.files" | grep '\.cfg$' | while read -r file; do
  mkdir -p "$out/installed-files/$(dirname "$file")"
  cp "$WINEPREFIX/drive_c/$file" "$out/installed-files/$file"
done || true
# The install manager's command line, as its stand-in recorded it, where the report finds it.
msiexec remove /x 'C:\tessel\demo\TesselDemo.msi' /norestart
grep -a 'InstallManagerApp\.exe' "$out/remove.started" > "$out/install-manager.cmdline" || true
snapshot removed
# Installed and removed once more, the install manager's records laid down again, with the other
# member of each pair of twin actions: the telemetry client's identity, which a removal leaves, is kept.
seed_install_manager
snapshot reseeded
msiexec reinstall /i 'C:\tessel\demo\TesselDemo.msi' LAUNCHED_FROM_FERRULE=1 DEMO_OTHER_TWINS=1 $display_mode
snapshot reinstalled
msiexec reremove /x 'C:\tessel\demo\TesselDemo.msi' /norestart DEMO_OTHER_TWINS=1
grep -a 'InstallManagerApp\.exe' "$out/reremove.started" > "$out/install-manager-again.cmdline" || true
snapshot reremoved
msiexec refused /i 'C:\tessel\demo\TesselDemo.msi'
snapshot refused
stop_adapter

unseed_install_manager
[ -z "${made_shared_data:-}" ] || rmdir "$shared_data" 2>/dev/null || true

python3 "$tools/demo_report.py" "$out" "$tools/../package/payload" | tee "$out/report.txt"
