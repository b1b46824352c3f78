#!/usr/bin/env python3
"""Turns the demo's installer logs and machine snapshots into a readable report.

The library's actions are read from the package's own CustomAction table, so
adding an action to the package needs no change here.
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


def started_programs(err):
    """Command lines that the library's actions started, from Wine's process trace."""
    lines = []
    for escaped in re.findall(r'CreateProcessInternalW app .* cmdline L"(.*)"$', err, re.M):
        line = re.sub(r'\\(.)', r'\1', escaped)
        # The installer's own processes, and Wine's console host of each child, are not the actions'.
        if not any(own in line.lower() for own in ("msiexec", "system32\\cmd.exe", "system32\\conhost.exe")):
            lines.append(line)
    return lines


def start_boundaries(path):
    return re.findall(r"<StartBoundary>(.*?)</StartBoundary>", read_text(path)) if os.path.isfile(path) else []


def result_text(action, installer_value, ignored, refused):
    if ignored:
        return "result not read (Return=\"ignore\")"
    if refused[0] == action:
        return "result " + refused[1]
    return "result " + INSTALLER_RESULTS.get(installer_value, "installer value " + installer_value)


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


def machine_changes(out, before, after):
    changes = []
    old_files = set(read_text(os.path.join(out, before + ".files")).splitlines())
    new_files = set(read_text(os.path.join(out, after + ".files")).splitlines())
    for path in sorted(new_files - old_files):
        changes.append("+ C:" + path[1:].replace("/", "\\"))
    for path in sorted(old_files - new_files):
        changes.append("- C:" + path[1:].replace("/", "\\"))
    old_reg = reg_entries(os.path.join(out, before + ".reg"))
    new_reg = reg_entries(os.path.join(out, after + ".reg"))
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


def main():
    out = sys.argv[1]
    payload = sys.argv[2]
    actions = library_actions(os.path.join(out, "TesselDemo.msi"))
    print("Tessel_CA demo: the suite package installed and removed under Wine's msiexec")
    for name, title, before, after in RUNS:
        rc = read_text(os.path.join(out, name + ".rc")).strip() or "?"
        refused = refused_result(read_text(os.path.join(out, name + ".err")))
        print()
        print("== %s: msiexec exit code %s" % (title, rc))
        log = read_text(os.path.join(out, name + ".log"))
        scheduled = set()
        for action, value, lines in action_runs(log, actions):
            export, ignored, deferred = actions[action]
            label = action if action == export else "%s (%s)" % (action, export)
            if deferred and action not in scheduled:
                scheduled.add(action)
                print("  %-40s %s" % (label, "scheduled for the deferred phase"))
                continue
            print("  %-40s %s" % (label, result_text(action, value, ignored, refused)))
            for line in lines:
                print("      | " + line)
        started = started_programs(read_text(os.path.join(out, name + ".err")))
        if started:
            print("  programs the actions started:")
            for line in started:
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
        reboot = re.findall(r"^Property\(S\): REBOOT = (.*)$", log, re.M)
        if reboot:
            print("  REBOOT at the end of the session: " + reboot[-1])
        changes = machine_changes(out, before, after)
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
