#!/usr/bin/env python3
"""Turns the demo's installer logs and machine snapshots into a readable report.

The library's actions are read from the package's own CustomAction table; the
tables below say which result means success for each export, and where the
result of an action that msiexec does not read shows itself.
Usage: demo_report.py OUT_DIR PAYLOAD_DIR
  OUT_DIR      the folder tools/demo.sh filled
  PAYLOAD_DIR  the files the package carries
"""
import os
import re
import subprocess
import sys

# CustomAction types: a DLL stored in the Binary table, "ignore the result",
# and "deferred" (run from the script; the first mention only schedules it).
DLL_IN_BINARY = 0x01
CONTINUE = 0x40
IN_SCRIPT = 0x400
# The installer's "Return value" of an action: Windows writes 1 for success and
# 3 for failure, Wine 1 and 0.
INSTALLER_RESULTS = {"1": "0", "2": "1602", "3": "1603", "0": "1603"}

RUNS = [
    ("install", "Install started by the install manager (LAUNCHED_FROM_FERRULE=1)", "before", "installed"),
    ("remove", "Removal", "installed", "removed"),
    ("reinstall", "Second install, the install manager's records laid down again", "reseeded", "reinstalled"),
    ("reremove", "Second removal", "reinstalled", "reremoved"),
    ("refused", "Install started without the install manager", "reremoved", "refused"),
]

# The result with which each export says it has done its job. Many say so with 1, which is
# why the package ignores their results; DeleteHalyardFolder's 1 means the folder had gone.
SUCCESS = dict.fromkeys([
    "LaunchedFromFerrule", "SetInstallDir", "SetFerruleKestraPid", "GetInstallVaneDir", "UpdateCfg", "UpdateTesselCfg",
    "DeleteFolder", "CleanRegistry", "RmLegacyUninstall", "DeleteKestraKey", "DeleteHalyardKEY", "DeleteandRetainValues",
    "ResetRebootKey", "LaunchApp_UinstallAll", "LaunchApp_UinstallCurrent", "LaunchApp_UinstallComp", "LaunchApp_Update",
    "CreateLogonSchTask", "CreateDVRLogonSchTask", "CreateBenchMarkRunOnceSchTask", "DeleteSchedTaskonBranding",
    "CreateBethasdaShortcut", "CreateBlockChainShortcut", "DeleteBCShortcut", "ShutDownBrioNext", "ShutDownDVR",
    "TerminateHalyardApp", "TerminateDVRApp", "TerminatePixelSharpApp", "RestartExplorerBrioApp", "SetDCLogFileRegistry",
    "SetDisplayMode", "DisplayModeChange", "CreateDIR_CA", "SetFolderPermission_CA", "launchVidsync_CA",
    "RemoveFolder_CA", "RemoveVDB_CA", "RemoveShortcut_CA", "StopVaneService", "StartRelayService",
    "StopandDeleteRelay", "LaunchDynamicLocalModeService", "PreInstallGauge", "PostInstallGauge", "AfterInstallGauge",
    "UnInstallGauge", "EnableAnalyticsKey", "DisabelAnalyticsKey", "DeleteAnalyticsKey", "TrackDVRAnalytics",
    "RegisterInternetExplorerUrl", "RegisterInternetExplorerUrl64", "UnRegisterInternetExplorerUrl",
    "UnRegisterInternetExplorerUrl64", "RegisterWMPPlugin", "UnRegisterWMPPlugin", "ClearPixelRegValues",
    "ClearHKCUPixelRegValues", "DeletePixelDirectory"], {"0"})
SUCCESS.update(dict.fromkeys([
    "GetInstallTracewellDir", "GetInstallSorrelDir", "GetInstallUSBMonDir", "GetInstallProxyDir", "DelVaneTempDir",
    "DelSorrelTempDir", "DelInstallVaneDir", "DelInstallSorrelDir", "RemoveUSBMON", "RemoveFerruleEntry",
    "RemoveARPEntries", "DisableRepairForFerrule", "ClearInstallRegValues", "DeleteVaneRegistry", "DeleteSorrelRegistry",
    "RemoveHalyardSchedularTask", "RemoveDVRSchedularTask", "RemoveBenchMarkRunOnceSchedularTask", "RemoveSchedularTask",
    "CreateBrioContextMenu", "CreateBrioContextMenu64", "CreateHalyardContextMenu", "CreateHalyardContextMenu64",
    "UnregisterHalyardContextMenu", "UnregisterHalyardContextMenu64", "DeleteHalyardShellRegistry", "RemoveVaneStartMenu",
    "ShutDownBrio", "KillSorrelUIApp", "LaunchBrio", "LaunchHalyard", "LoadProfile", "BrioUnloadGAC",
    "LaunchInstallProxy", "LaunchNGEN", "LaunchNGENUninstall", "SetInstallProxyKey", "DelInstallProxyKey",
    "UpdateDriverVersionInReg", "SetDualisBLRegKey", "CopyDualisFile", "DelDualisBLFile", "DelDualisBLRegKey",
    "DeleteIOVDll", "DeleteSMBusDll", "EnableAero", "StartVaneService", "RemoveTracewellEntrance",
    "RemoveTracewellFromWise", "SetTracewellRebootFlag", "CopyTracewellDrivers64", "RemoveTracewellDriverSettings",
    "ClearTracewellDir", "RemoveTracewellDDir", "UnLoadOldDriver", "InstallHelp64", "RemoveHelp64"], {"1"}))
SUCCESS["DeleteHalyardFolder"] = {"0", "1"}
# The refused install is the gate doing its job.
SUCCESS_IN_RUN = {("refused", "LaunchedFromFerrule"): {"1612"}}

# Where the raw result of an action whose result msiexec does not read shows itself.
# Actions whose only result is 1:
ONLY_ONE = {"DelInstallVaneDir", "DelInstallSorrelDir", "RemoveFerruleEntry", "RemoveARPEntries", "ClearInstallRegValues",
            "DeleteVaneRegistry", "DeleteSorrelRegistry", "DeleteHalyardShellRegistry", "DelDualisBLFile",
            "DelDualisBLRegKey", "DeleteIOVDll", "DeleteSMBusDll", "EnableAero", "RemoveTracewellDriverSettings",
            "RemoveTracewellDDir", "UnLoadOldDriver", "LaunchHalyard"}
# Their own log lines: the first text found gives the result, else the last item.
FROM_LOG = {
    "GetInstallTracewellDir": ((("should be set in CustomActionData", "1"),), "0"),
    "GetInstallSorrelDir": ((("should be set in CustomActionData", "1"),), "0"),
    "GetInstallUSBMonDir": ((("should be set in CustomActionData", "1"),), "0"),
    "GetInstallProxyDir": ((("SetInstallProxyReg, ", "1"),), "0"),
    "DelVaneTempDir": ((("deletes Vane Temp DIR", "1"),), "0"),
    "DelSorrelTempDir": ((("deletes Sorrel Temp DIR", "1"),), "0"),
    "RemoveUSBMON": ((("OrvelUSB3DeviceDetector folder deleted", "1"),), "0"),
    "CreateBrioContextMenu": ((("Successfully created GUID", "1"), ("GUID is already present", "1")), "0"),
    "CreateBrioContextMenu64": ((("Successfully created GUID", "1"), ("GUID is already present", "1")), "0"),
    "CreateHalyardContextMenu": ((("Successfully created GUID", "1"),), "0"),
    "CreateHalyardContextMenu64": ((("Successfully created GUID", "1"),), "0"),
    "UnregisterHalyardContextMenu": ((("GUID is already present unregister it", "1"),), "0"),
    "UnregisterHalyardContextMenu64": ((("GUID is already present unregister it", "1"),), "0"),
    "SetDualisBLRegKey": ((("Set key successfully", "1"),), "0"),
    "UpdateDriverVersionInReg": ((("Failed in call to", "0"),), "1"),
    "DelInstallProxyKey": ((("DelInstallProxyKey successfully", "1"),), "0"),
    "SetInstallProxyKey": ((("SetInstallProxyKey", "1"),), "0"),
    "ClearTracewellDir": ((("can not ClearTracewellDir", "0"),), "1"),
}
# Whether their program started, in Wine's process trace: (its command line, the result when it
# started, the result when it did not).
STARTED = {
    "ShutDownBrio": ('CLI.exe" shutdown', "1", "0"), "KillSorrelUIApp": ('Sorrel.Service.exe" /stop', "1", "0"),
    "LaunchBrio": ('Pylon.exe"', "1", "0"), "LoadProfile": ("kestraprof.exe -reload", "1", "0"),
    "BrioUnloadGAC": ("gac:u -fa", "1", "0"), "LaunchInstallProxy": ('CLI.exe" Install ', "1", "0"),
    "LaunchNGEN": ("ngen:i -a", "1", "0"), "LaunchNGENUninstall": ("ngen:u -a", "1", "0"),
    "StartVaneService": ('VaneSleepService.exe" -i', "1", "0"), "InstallHelp64": ("/sourceMedia", "1", "0"),
    "RemoveHelp64": ("/uninstall /vendor", "1", "0"), "RemoveTracewellFromWise": ('uninst.exe" /x /qn /norestart', "1", "0"),
    "RemoveHalyardSchedularTask": ('schtasks /delete /TN "StartHalyard" /F', "1", "0"),
    "RemoveDVRSchedularTask": ('schtasks /delete /TN "StartDVR" /F', "1", "0"),
    "RemoveBenchMarkRunOnceSchedularTask": ('schtasks /delete /TN "StartHalyardBM" /F', "1", "0"),
    "RemoveSchedularTask": ('schtasks /delete /TN "Orvel Updater" /F', "1", "0"),
    "TerminatePixelSharpApp": ("/IM hpvstray.exe /F", "0", "1603"),
}
# What they leave on the machine: a file there after the session, a registry entry there after it
# or gone from it, the session's REBOOT.
FROM_MACHINE = {
    "CopyDualisFile": ("file", "./Program Files/Kestra Technologies/Dualis/kestradualbl.dat"),
    "CopyTracewellDrivers64": ("file", "./windows/system32/drivers/twkern.sys"),
    "DisableRepairForFerrule": ("entry", '"NoRepair"=dword:00000001'),
    "RemoveTracewellEntrance": ("gone", "{7E57C0DE-0000-4000-8000-0000000000AA}"),
    "SetTracewellRebootFlag": ("reboot", "Force"),
}
# Why an action the package declares may not run, or not do its job, in this demo.
NOT_RUN = {
    "DisplayModeChange": "only with DEMO_DISPLAY_MODE=1, which a quick run (the package test) leaves out: it waits 20 s",
    "RestartExplorerBrioApp": "only with DEMO_EXPLORER=1: it waits for the shell it starts, and Wine's explorer.exe "
                              "does not end",
}
WHY = {
    "TerminatePixelSharpApp": "its task-killer line stands whole in one pair of quotes and names no program, so it "
                              "never starts; the package ignores the result",
}


def library_actions(msi):
    """Custom actions whose code is a DLL export: name -> (export, ignored, deferred)."""
    text = subprocess.run(["msiinfo", "export", msi, "CustomAction"], check=True,
                          capture_output=True, text=True).stdout
    actions = {}
    for line in text.splitlines()[3:]:
        fields = line.split("\t")
        if len(fields) >= 4 and fields[1].isdigit():
            kind = int(fields[1])
            if kind & 0x3F == DLL_IN_BINARY:
                actions[fields[0]] = (fields[3], bool(kind & CONTINUE), bool(kind & IN_SCRIPT))
    return actions


def read_text(path):
    with open(path, "rb") as f:
        data = f.read()
    if data.startswith(b"\xff\xfe"):
        return data.decode("utf-16")
    return data.decode("utf-8", errors="replace")


def action_runs(log, actions):
    """(action, installer's return value, lines the action logged), in order."""
    runs = []
    current = None
    for line in log.splitlines():
        started = re.match(r"Action start [\d:]+: (\w+)\.$", line)
        ended = re.match(r"Action ended [\d:]+: (\w+)\. Return value (\d+)\.$", line)
        if started:
            current = [started.group(1), None, []] if started.group(1) in actions else None
        elif ended and current and ended.group(1) == current[0]:
            current[1] = ended.group(2)
            runs.append(current)
            current = None
        elif current is not None and line.strip():
            current[2].append(line)
    return runs


def refused_result(err):
    """(action, code) when msiexec stopped on a result it does not know."""
    code = re.search(r"[Ii]nvalid Return Code (\d+)", err)
    halted = re.search(r'Execution halted, action L"(\w+)"', err)
    return (halted.group(1), code.group(1)) if code and halted else (None, None)


def traced_programs(err, call):
    """Command lines of the actions' programs in Wine's process trace of one call."""
    lines = []
    for escaped in re.findall(r'%s .* cmdline L"(.*?)"(?: parent .*)?$' % call, err, re.M):
        line = re.sub(r'\\(.)', r'\1', escaped)
        # The installer's own processes, and Wine's console host of each child, are not the actions'.
        if not any(own in line.lower() for own in ("msiexec", "system32\\cmd.exe", "system32\\conhost.exe")):
            lines.append(line)
    return lines


def started_programs(err):
    """(programs started, programs that could not be started): every attempt shows as
    CreateProcessInternalW, and only a process that came to be as NtCreateUserProcess."""
    started = traced_programs(err, "NtCreateUserProcess")
    failed = traced_programs(err, "CreateProcessInternalW app")
    for line in started:
        if line in failed:
            failed.remove(line)
    return started, failed


def start_boundaries(path):
    return re.findall(r"<StartBoundary>(.*?)</StartBoundary>", read_text(path)) if os.path.isfile(path) else []


def machine_shows(kind, text, machine):
    """Whether the machine after a session shows what FROM_MACHINE names."""
    if kind == "file":
        return text in machine["files"][1]
    if kind == "entry":
        return any(entry.endswith(": " + text) for entry in machine["reg"][1])
    if kind == "gone":
        return any(text in entry for entry in machine["reg"][0] - machine["reg"][1])
    return machine["reboot"] == text


def raw_result(action, export, installer_value, ignored, refused, lines, machine):
    """(raw result or None, how it is known, or None when msiexec read it itself)."""
    if not ignored:
        if refused[0] == action:
            return refused[1], None
        return INSTALLER_RESULTS.get(installer_value, "installer value " + installer_value), None
    if export in ONLY_ONE:
        return "1", "its only result"
    if export in FROM_LOG:
        texts, otherwise = FROM_LOG[export]
        found = [result for text, result in texts if any(text in line for line in lines)]
        return (found or [otherwise])[0], "from its log lines"
    if export in STARTED:
        text, started, not_started = STARTED[export]
        return (started if any(text in line for line in machine["started"]) else not_started), "from the process trace"
    if export in FROM_MACHINE:
        return ("1" if machine_shows(*FROM_MACHINE[export], machine) else "0"), "from the machine after the session"
    return None, 'not read (Return="ignore"); msiexec logged %s' % installer_value


def result_text(raw, how):
    if how is None:
        return "result " + raw
    return "result %s (%s)" % (raw, how) if raw is not None else "result " + how


def reg_entries(path):
    """Registry export as a set of 'key' and 'key: value' lines."""
    entries = set()
    key = None
    for line in read_text(path).splitlines():
        if line.startswith("[") and line.endswith("]"):
            key = line[1:-1]
            entries.add(key)
        elif key and line and not line.startswith(";") and "=" in line:
            entries.add(key + ": " + line)
    return entries


def machine(out, before, after, err, log):
    """The machine around one session: files and registry entries (before, after), programs started, REBOOT."""
    reboot = re.findall(r"^Property\(S\): REBOOT = (.*)$", log, re.M)
    return {
        "files": tuple(set(read_text(os.path.join(out, name + ".files")).splitlines()) for name in (before, after)),
        "reg": tuple(reg_entries(os.path.join(out, name + ".reg")) for name in (before, after)),
        "started": started_programs(err)[0],
        "reboot": reboot[-1] if reboot else None,
    }


def machine_changes(state):
    changes = []
    old_files, new_files = state["files"]
    for path in sorted(new_files - old_files):
        changes.append("+ C:" + path[1:].replace("/", "\\"))
    for path in sorted(old_files - new_files):
        changes.append("- C:" + path[1:].replace("/", "\\"))
    old_reg, new_reg = state["reg"]
    # The installer's own records of the product are counted, not listed.
    def own(entry):
        return "\\Installer\\" in entry or "\\Uninstall\\{" in entry
    added, removed = new_reg - old_reg, old_reg - new_reg
    changes += ["+ " + e for e in sorted(added) if not own(e)]
    changes += ["- " + e for e in sorted(removed) if not own(e)]
    bookkeeping = sum(1 for e in added if own(e)), sum(1 for e in removed if own(e))
    if any(bookkeeping):
        changes.append("  (the installer's own product records: %d entries added, %d removed)" % bookkeeping)
    return changes


def shown_lines(path):
    """A text file's lines, with the CRs that a line end doesn't account for made visible."""
    with open(path, "rb") as f:
        text = f.read().decode("latin-1")
    return [line.replace("\r", "<CR>") for line in text.replace("\r\n", "\n").split("\n") if line != ""]


def settings_files(out, payload):
    """(relative path, lines as carried, lines as installed) of each settings file installed."""
    installed_root = os.path.join(out, "installed-files")
    for folder, _, names in sorted(os.walk(installed_root)):
        for name in sorted(names):
            installed = os.path.join(folder, name)
            relative = os.path.relpath(installed, installed_root)
            carried = [p for p in (os.path.join(payload, *relative.split(os.sep)[i:]) for i in range(len(relative.split(os.sep))))
                       if os.path.isfile(p)]
            yield relative, shown_lines(carried[0]) if carried else [], shown_lines(installed)


def session(out, run, actions):
    """What one msiexec run did: its exit code, each library action run with its result, the machine around it."""
    name, _, before, after = run
    err = read_text(os.path.join(out, name + ".err"))
    log = read_text(os.path.join(out, name + ".log"))
    state = machine(out, before, after, err, log)
    refused = refused_result(err)
    rows = []
    scheduled = set()
    for action, value, lines in action_runs(log, actions):
        export, ignored, deferred = actions[action]
        if deferred and action not in scheduled:
            scheduled.add(action)
            rows.append((action, export, None, "scheduled for the deferred phase", lines))
            continue
        raw, how = raw_result(action, export, value, ignored, refused, lines, state)
        rows.append((action, export, raw, result_text(raw, how), lines))
    rc = read_text(os.path.join(out, name + ".rc")).strip() or "?"
    return rc, rows, err, log, state


def summary(sessions, actions):
    """The lines at the top: how many actions ran, which gave their success result, which did not and why."""
    ran, good, unknown, bad = 0, 0, [], {}
    run_exports = set()
    for name, (_, rows, _, _, _) in sessions.items():
        for action, export, raw, text, _ in rows:
            if text == "scheduled for the deferred phase":
                continue
            ran += 1
            run_exports.add(export)
            if raw is None:
                unknown.append("%s (%s)" % (action, name))
            elif raw in SUCCESS_IN_RUN.get((name, action), SUCCESS.get(export, set())):
                good += 1
            else:
                bad.setdefault((action, export, raw), []).append(name)
    exports = {export for export, _, _ in actions.values()}
    lines = ["Summary: %d library actions ran in the five sessions (%d of the package's %d exports); "
             "%d gave the result that means success for them." % (ran, len(run_exports), len(exports), good)]
    if unknown:
        lines.append("  Only msiexec's view is known for %d (Return=\"ignore\": Wine logs \"Return value 1\" whatever "
                     "the action returned, and they show their result nowhere else): %s." % (len(unknown), ", ".join(unknown)))
    lines.append("  Not the result that means success: " + ("none." if not bad else ""))
    for (action, export, raw), names in bad.items():
        lines.append("    %s (%s): %s where %s means done%s" % (
            action, ", ".join(names), raw, " or ".join(sorted(SUCCESS.get(export, {"?"}))),
            "; " + WHY[export] if export in WHY else ""))
    for export in sorted(exports - run_exports):
        lines.append("  Not run: %s, %s." % (export, NOT_RUN.get(export, "not sequenced for these sessions")))
    return lines


def main():
    out = sys.argv[1]
    payload = sys.argv[2]
    actions = library_actions(os.path.join(out, "TesselDemo.msi"))
    sessions = {run[0]: session(out, run, actions) for run in RUNS}
    print("Tessel_CA demo: the suite package installed and removed under Wine's msiexec")
    print()
    for line in summary(sessions, actions):
        print(line)
    for name, title, before, after in RUNS:
        rc, rows, err, log, state = sessions[name]
        print()
        print("== %s: msiexec exit code %s" % (title, rc))
        for action, export, _, text, lines in rows:
            label = action if action == export else "%s (%s)" % (action, export)
            print("  %-40s %s" % (label, text))
            if text != "scheduled for the deferred phase":
                for line in lines:
                    print("      | " + line)
        started, failed = started_programs(err)
        if started:
            print("  programs the actions started:")
            for line in started:
                print("      " + line)
        if failed:
            print("  programs the actions could not start:")
            for line in failed:
                print("      " + line)
        if name == "install":
            shipped = start_boundaries(os.path.join(payload, "Halyard", "StartHalyardBM.xml"))
            copied = start_boundaries(os.path.join(out, "StartHalyardBM.copy.xml"))
            print("  the benchmark task's StartBoundary: %s as carried, %s in the copy registered" %
                  (", ".join(shipped) or "none", ", ".join(copied) or "none"))
        handed_over = os.path.join(out, "install-manager.cmdline")
        if name == "remove" and os.path.isfile(handed_over):
            print("  the install manager was started as:")
            for line in read_text(handed_over).splitlines():
                print("      " + line)
        if state["reboot"]:
            print("  REBOOT at the end of the session: " + state["reboot"])
        changes = machine_changes(state)
        print("  machine changes:" + ("" if changes else " none"))
        for change in changes:
            print("      " + change)
        if name == "install":
            for relative, carried, installed in settings_files(out, payload):
                print("  settings file C:\\%s" % relative.replace("/", "\\"))
                print("    as the package carries it:")
                for line in carried:
                    print("      | " + line)
                print("    after the install:")
                for line in installed:
                    print("      | " + line)


if __name__ == "__main__":
    main()
