#!/usr/bin/env bash
# Installs and removes the demo package with msiexec, then tries an install not
# started by the install manager, and checks the results and the machine.
set -uo pipefail
build=$(cd "$1" && pwd)
root=$(cd "$(dirname "$0")/../.." && pwd)
out="$build/package-test"
failures=0
checks=0

fail() { echo "FAILED: $*"; failures=$((failures + 1)); }
check() { checks=$((checks + 1)); }

# An exact line of a file.
expect_line() {
  check
  grep -Fxq -- "$2" "$1" || fail "$(basename "$1") lacks the line: $2"
}
expect_no_line() {
  check
  ! grep -Fq -- "$2" "$1" || fail "$(basename "$1") has: $2"
}
expect_equal() {
  check
  [ "$2" = "$3" ] || fail "$1: expected '$2', got '$3'"
}

TESSEL_DEMO_QUICK=1 "$root/tools/demo.sh" "$build" "$out" >/dev/null || fail "the demo runner failed"

dir='C:\Program Files\Kestra Technologies\Demo Suite\'
pid='{6E1B2C3D-0000-4A5B-9C8D-1234567890AB}'

# The install: the actions succeed, their hand-offs reach the installer's
# properties, and the deferred UpdateCfg takes the colour settings out of the
# install manager's settings file, leaving the rest. The actions' own log
# lines are the session tests' business.
log="$out/install.log"
expect_equal "install exit code" 0 "$(cat "$out/install.rc")"
expect_line "$log" "Property(S): UpdateCfg = $dir"
expect_line "$log" "Property(S): CleanRegistry = $pid"
for action in LaunchedFromFerrule SetInstallDir SetFerruleKestraPid GetInstallVaneDir; do
  check
  grep -Eq "^Action ended [0-9:]+: $action\. Return value 1\.$" "$log" || fail "$action did not succeed"
done
check
grep -q '^\./Program Files/Kestra Technologies/Demo Suite/Readme.txt$' "$out/installed.files" ||
  fail "the package's file was not installed"
installed_cfg="$out/installed-files/Program Files/Kestra Technologies/Demo Suite/Config/InstallManager.cfg"
check
[ "$(tr -d '\r' < "$installed_cfg")" = "$(printf '# Install manager settings\nLanguage=en\n[Updates]\nload_DLM=true\nCheckForUpdates=weekly')" ] ||
  fail "the settings file after the install is not as expected"

# The settings application's logon tasks as Wine's scheduler stores them, and
# the context menu's handler with the class its library registered.
for task in StartHalyard StartDVR; do
  check
  grep -qx "\./windows/system32/tasks/$task" "$out/installed.files" || fail "the task $task was not registered"
done
iconv -f UTF-16 -t UTF-8 "$out/installed.reg" | tr -d '\r' > "$out/installed.reg.txt"
expect_line "$out/installed.reg.txt" '@="{7B3A91C4-5E1D-4F02-9A66-2C8D1E07F3B5}"'
expect_line "$out/installed.reg.txt" '@="C:\\Program Files\\Kestra Technologies\\Demo Suite\\Halyard\\Halyard\\kestramenu64.dll"'
# The analytics consent given; DISABLEANALYTICS is not set, so it stays.
expect_line "$out/installed.reg.txt" '"AnalyticsAccepted"="true"'

# The older profiler removed silently, with the restart its version asks for.
expect_line "$out/report.txt" '      "C:\Program Files (x86)\Orvel\Tracewell\uninst.exe" /x /qn /norestart'
expect_line "$out/install.log" 'Property(S): REBOOT = Force'

# The removal hands over to the install manager with its switches, whose
# restart request comes back as REBOOT=F; the files are as before the install.
log="$out/remove.log"
expect_equal "removal exit code" 0 "$(cat "$out/remove.rc")"
check
# The older profiler, removed by the install, is left out of the comparison.
diff -q <(grep -v '/Orvel/Tracewell' "$out/before.files") <(grep -v '/Orvel/Tracewell' "$out/removed.files") \
  >/dev/null || fail "files differ after the removal"
im='"C:\Program Files\Kestra Technologies\Install Manager\BIN64\InstallManagerApp.exe"'
switches='/IGNORE_UPGRADE /FORCE_HIDE_FIRST_RUN /UNATTENDED_UNINSTALL /AUTOACCEPT_ALL /FORCE_CLOSE_WHEN_DONE /ON_REBOOT_MESSAGE:NO'
expect_equal "the install manager's command line" "$im $switches" "$(cat "$out/install-manager.cmdline")"
expect_line "$log" 'Property(S): REBOOT = F'
check
grep -Eq '^  DeleteFerruleDir \(DeleteFolder\) +result 0$' "$out/report.txt" || fail "DeleteFolder did not return 0"

# Records: this package's record goes, the lists stay while another package is
# listed. The registry exports are UTF-16.
iconv -f UTF-16 -t UTF-8 "$out/removed.reg" | tr -d '\r' > "$out/removed.reg.txt"
check
! grep -Fq "Packages\\$pid]" "$out/removed.reg.txt" || fail "the package's record is still there"
check
grep -Fq 'Packages\W-06-2U00-000-002-188-001-00-25]' "$out/removed.reg.txt" || fail "another package's record went"
check
! grep -Fq 'Uninstall\Orvel Quillon Install Manager]' "$out/removed.reg.txt" || fail "the install manager's entry is still there"
check
! grep -Fq 'ContextMenuHandlers\Lumen]' "$out/removed.reg.txt" || fail "the context menu's handler is still there"
check
! grep -Fq 'OrvelAnalytics]' "$out/removed.reg.txt" || fail "the analytics consent is still there"

# The whole library ran: every action gave the result that means success for it but the one whose
# task-killer line never starts, and only the two that wait on what Wine can't end were left out.
check
[ "$(sed -n '/^  Not the result that means success:/,/^  Not run:/p' "$out/report.txt" | grep '^    ' | cut -d: -f1)" = \
  "    TerminatePixelSharpApp (install, remove, reinstall, reremove)" ] || fail "an action did not give its success result"
check
[ "$(sed -n 's/^  Not run: \([A-Za-z]*\),.*/\1/p' "$out/report.txt" | tr '\n' ' ')" = "DisplayModeChange RestartExplorerBrioApp " ] ||
  fail "actions other than the display mode change and the shell's restart were not run"

# What the newer actions leave: the profiler's drivers copied into the system (and gone again with
# the files compared above), the product kept from repair, the install manager's flag reset.
check
grep -qx './windows/system32/drivers/twkern.sys' "$out/installed.files" || fail "the profiler's drivers were not copied"
expect_line "$out/installed.reg.txt" '"NoRepair"=dword:00000001'
check
awk -v key='[HKEY_LOCAL_MACHINE\\SOFTWARE\\Kestra Technologies\\Install\\Kestra Quillon Install Manager]' \
  '$0 == key { inside = 1; next } /^\[/ { inside = 0 } inside' "$out/removed.reg.txt" |
  grep -Fxq '"Ferrule_Reboot"="No"' || fail "the install manager's reboot flag was not reset"

# The second round hands the removal of the current package and of the component over, and the
# install before it asked the install manager for an update.
expect_equal "the install manager's command lines in the second removal" \
  "$(printf '%s %s\n%s %s' "$im" "$switches" "$im" '/UNINSTALL /IGNORE_UPGRADE /ON_REBOOT_MESSAGE:NO')" \
  "$(cat "$out/install-manager-again.cmdline")"
expect_line "$out/reinstall.started" "$im /UPDATE"

# The refused install: 1612 from the gate, and nothing changed.
expect_equal "refused install exit code" 1603 "$(cat "$out/refused.rc")"
expect_no_line "$out/refused.log" 'SetInstallDir() start'
check
grep -qi 'invalid Return Code 1612' "$out/refused.err" || fail "msiexec did not see 1612"
check
grep -Eq '^  LaunchedFromFerrule +result 1612$' "$out/report.txt" || fail "the report lacks the gate's 1612"
check
diff -q <(grep -v '/Orvel/Tracewell' "$out/before.files") <(grep -v '/Orvel/Tracewell' "$out/refused.files") \
  >/dev/null || fail "the refused install changed files"

# Leave the machine as found, whatever happened above.
if ! diff -q "$out/before.files" "$out/refused.files" >/dev/null 2>&1; then
  source "$root/tools/wine-env.sh" "$build"
  "$tessel_wine" msiexec /x 'C:\tessel\demo\TesselDemo.msi' /qn >/dev/null 2>&1 || true
fi

echo "$((checks - failures)) passed, $failures failed"
[ "$failures" -eq 0 ]
