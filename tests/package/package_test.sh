#!/usr/bin/env bash
# Installs and removes the demo package with msiexec, then tries an install not
# started by the install manager, and checks the library's log lines, the
# results and the machine.
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

"$root/tools/demo.sh" "$build" "$out" >/dev/null || fail "the demo runner failed"

dir='C:\Program Files\Kestra Technologies\Demo Suite\'
pid='{6E1B2C3D-0000-4A5B-9C8D-1234567890AB}'

# The install: every action's lines, in the log as the installer wrote them.
log="$out/install.log"
expect_equal "install exit code" 0 "$(cat "$out/install.rc")"
expect_line "$log" 'TESSEL_CA Launched from Ferrule: 1 '
expect_line "$log" 'Tessel_CA SetInstallDir() start'
expect_line "$log" "Tessel_CA DeleteFerruleDir SetInstallDir(), $dir should be set in CustomActionData "
expect_line "$log" "Tessel_CA UpdateCfg SetInstallDir(), $dir should be set in CustomActionData "
expect_line "$log" 'Tessel_CA SetFerruleKestraPid() start'
expect_line "$log" 'Tessel_CA GetFromMSITable(), Reading Property table'
expect_line "$log" "Tessel_CA GetFromMSITable() PackageRead Property Value is $pid "
expect_line "$log" "Tessel_CA SetFerruleKestraPid(), $pid should be set in CustomActionData "
expect_line "$log" "Tessel_CA DeleteInstallVane, $dir should be set in CustomActionData "
expect_line "$log" "Tessel_CA DeleteInstallTracewell, $dir should be set in CustomActionData "
expect_line "$log" "Tessel_CA DeleteInstallSorrel, $dir should be set in CustomActionData "
expect_line "$log" "Tessel_CA LaunchInstallProxyExe, $dir should be set in CustomActionData "
expect_line "$log" "Tessel_CA SetInstallProxyReg, $dir should be set in CustomActionData "
expect_line "$log" "Tessel_CA DeleteUSBMONDir, $dir should be set in CustomActionData "
# The hand-off reached the installer's properties.
expect_line "$log" "Property(S): UpdateCfg = $dir"
expect_line "$log" "Property(S): CleanRegistry = $pid"
for action in LaunchedFromFerrule SetInstallDir SetFerruleKestraPid GetInstallVaneDir; do
  check
  grep -Eq "^Action ended [0-9:]+: $action\. Return value 1\.$" "$log" || fail "$action did not succeed"
done
check
grep -q '^\./Program Files/Kestra Technologies/Demo Suite/Readme.txt$' "$out/installed.files" ||
  fail "the package's file was not installed"

# The deferred UpdateCfg got the folder from SetInstallDir and took the colour
# settings out of the install manager's settings file, leaving the rest.
cfg="${dir}Config\InstallManager.cfg"
expect_line "$log" "TESSEL_CA UpdateCfg: $dir "
for setting in UseCustomColor BackgroundColor FontColor FontDisableColor ButtonColor ButtonDisableColor \
  TextColorPast TextColorPresent TextColorFuture ButtonBrightness; do
  expect_line "$log" "TESSEL_CA successfully deleted $setting setting"
done
expect_line "$log" "TESSEL_CA successfully saved with $cfg new settings "
installed_cfg="$out/installed-files/Program Files/Kestra Technologies/Demo Suite/Config/InstallManager.cfg"
check
[ "$(tr -d '\r' < "$installed_cfg")" = "$(printf '# Install manager settings\nLanguage=en\n[Updates]\nload_DLM=true\nCheckForUpdates=weekly')" ] ||
  fail "the settings file after the install is not as expected"

# The removal: the gate stays out of it, the hand-off runs again.
log="$out/remove.log"
expect_equal "removal exit code" 0 "$(cat "$out/remove.rc")"
expect_no_line "$log" 'Launched from Ferrule'
expect_line "$log" "Tessel_CA DeleteFerruleDir SetInstallDir(), $dir should be set in CustomActionData "
check
diff -q "$out/before.files" "$out/removed.files" >/dev/null || fail "files differ after the removal"

# The hand-over: the install manager ran with its switches, and its restart
# request came back as REBOOT=F.
im='"C:\Program Files\Kestra Technologies\Install Manager\BIN64\InstallManagerApp.exe"'
switches='/IGNORE_UPGRADE /FORCE_HIDE_FIRST_RUN /UNATTENDED_UNINSTALL /AUTOACCEPT_ALL /FORCE_CLOSE_WHEN_DONE /ON_REBOOT_MESSAGE:NO'
expect_equal "the install manager's command line" "$im $switches" "$(cat "$out/install-manager.cmdline")"
expect_line "$log" 'Unable to show/hide MSI uninstall window'
expect_line "$log" "CreateProcess successfully launched $im $switches "
expect_line "$log" 'Property(S): REBOOT = F'

# Folders: the install folder and the common shared folder go; shared parents
# that still hold another product's files stay.
expect_line "$log" 'TESSEL_CA DeleteFolder: C:\Program Files\Kestra Technologies\Demo Suite\ '
expect_line "$log" 'TESSEL_CA successfully deleted directory, C:\Program Files\Common Files\Kestra Technologies\ '
expect_line "$log" 'TESSEL_CA Directory, C:\Program Files\Orvel, DNE or is not empty and will not be deleted.'
expect_line "$log" 'TESSEL_CA Directory, C:\Program Files\Kestra Technologies\, DNE or is not empty and will not be deleted.'
check
grep -Eq '^  DeleteFerruleDir \(DeleteFolder\) +result 0$' "$out/report.txt" || fail "DeleteFolder did not return 0"

# Records: this package's record goes, the lists stay while another package is listed.
expect_line "$log" "Tessel_CA DeletePackageKey(), SOFTWARE\\Kestra Technologies\\Install\\Packages\\$pid\\ key should be deleted "
expect_line "$log" 'Tessel_CA DeleteTesselRegKey(), Tessel key has sub keys and is not empty thus it will not be deleted SOFTWARE\Kestra Technologies\Install\Packages\ '
# The registry exports are UTF-16.
iconv -f UTF-16 -t UTF-8 "$out/removed.reg" | tr -d '\r' > "$out/removed.reg.txt"
check
! grep -Fq "Packages\\$pid]" "$out/removed.reg.txt" || fail "the package's record is still there"
check
grep -Fq 'Packages\W-06-2U00-000-002-188-001-00-25]' "$out/removed.reg.txt" || fail "another package's record went"
check
! grep -Fq 'Uninstall\Orvel Quillon Install Manager]' "$out/removed.reg.txt" || fail "the install manager's entry is still there"

# The refused install: 1612 from the gate, its message, and nothing after it.
log="$out/refused.log"
expect_equal "refused install exit code" 1603 "$(cat "$out/refused.rc")"
expect_line "$log" 'TESSEL_CA Not Launched from Ferrule and unable to get property'
expect_line "$log" 'This package requires Orvel Installer Setup.'
expect_line "$log" 'Please obtain and install Orvel Installer from https://www.orvel.com/support to continue installing this package.'
expect_line "$log" 'This application will now abort.'
expect_no_line "$log" 'SetInstallDir() start'
check
grep -qi 'invalid Return Code 1612' "$out/refused.err" || fail "msiexec did not see 1612"
check
grep -Eq '^  LaunchedFromFerrule +result 1612$' "$out/report.txt" || fail "the report lacks the gate's 1612"
check
diff -q "$out/before.files" "$out/refused.files" >/dev/null || fail "the refused install changed files"

# Leave the machine as found, whatever happened above.
if ! diff -q "$out/before.files" "$out/refused.files" >/dev/null 2>&1; then
  source "$root/tools/wine-env.sh" "$build"
  "$tessel_wine" msiexec /x 'C:\tessel\demo\TesselDemo.msi' /qn >/dev/null 2>&1 || true
fi

echo "$((checks - failures)) passed, $failures failed"
[ "$failures" -eq 0 ]
