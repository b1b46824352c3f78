#!/usr/bin/env python3
"""Prints what tools/cycles.sh found: the time of each cycle, and the machine
after the last removal set beside the machine before the first install, each
difference named as what the suite keeps on purpose or as unexpected.
Usage: cycles_report.py OUT_DIR
"""
import os
import re
import sys

from demo_report import machine, machine_changes, read_text

# Each difference that is meant, by pattern on its "+ ..." (left) or "- ..." (gone) line: the group it
# belongs to and why it is there. Anything else is unexpected, and the run fails.
KEPT = "kept on purpose"
DESIGN = "left by the actions' design"
CLEARED = "laid down by the stand-ins before the first install, cleared by the actions"
WINE = "Wine's doing"
HKLM = r"HKEY_LOCAL_MACHINE\\"
MEANT = [
    (r"\+ " + HKLM + r"SOFTWARE\\Ember(: \"GUID\"=.*)?$", KEPT, "the telemetry identity"),
    (r"\+ C:\\ProgramData\\Orvel\\Gauge(\\.*)?$", KEPT, "the telemetry client's data folder"),
    (r"\+ " + HKLM + r"SYSTEM\\CurrentControlSet\\Control\\Session Manager: \"PendingFileRenameOperations\"=",
     KEPT, "the operations queued for the restart"),
    (r"\+ " + HKLM + r"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\RunOnce: \"EnableAero\"=", KEPT,
     "the assessment queued for the next start"),
    (r"\+ HKEY_CURRENT_USER\\Software\\Orvel$", DESIGN, "the user's key, emptied by CleanRegistry and kept"),
    (r"[+-] " + HKLM + r"SOFTWARE\\(Wow6432Node\\)?Kestra Technologies\\Install\\Kestra Quillon Install Manager"
     r"(: \"Ferrule_Reboot\"=.*)?$", DESIGN, "the reboot flag, set to \"No\" in both views by ResetRebootKey"),
    (r"\+ " + HKLM + r"SOFTWARE\\Classes\\CLSID\\\{7B3A91C4-5E1D-4F02-9A66-2C8D1E07F3B5\}", WINE,
     "the menu's class: the unregister line reaches Wine's regsvr32 as one word naming no library"),
    (r"[+-] " + HKLM + r"SYSTEM\\CurrentControlSet\\Control\\Class\\\{4d36e968-e325-11ce-bfc1-08002be10318\}"
     r"\\0000: \"(DriverDateData|SymbolicLinkValue)\"=", WINE, "Wine's own display adapter, listed anew"),
    (r"- " + HKLM + r"SYSTEM\\CurrentControlSet\\Control\\Class\\\{4d36e968-e325-11ce-bfc1-08002be10318\}"
     r"(\\0001|: \"0001)", WINE, "the held adapter: after a display mode change Wine lists its own adapters only"),
    (r"- " + HKLM + r"SOFTWARE\\Kestra Technologies\\Install[\\:]", CLEARED,
     "the install manager's records (CleanRegistry, ClearInstallRegValues)"),
    (r"- " + HKLM + r"SOFTWARE\\(Wow6432Node\\)?Kestra($|[\\:])", CLEARED,
     "the components' locations (DeleteVaneRegistry)"),
    (r"- " + HKLM + r"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\Orvel Quillon Install Manager",
     CLEARED, "the install manager's uninstall entry (RemoveFerruleEntry)"),
    (r"- (" + HKLM + r"SOFTWARE\\Wow6432Node\\Orvel($|[\\:])|C:\\Program Files \(x86\)\\Orvel\\Tracewell\\)",
     CLEARED, "the older profiler, removed by its own uninstaller (RemoveTracewellFromWise)"),
]


def main():
    out = sys.argv[1]
    rows = [line.split() for line in read_text(os.path.join(out, "cycles.txt")).splitlines() if line.strip()]
    print("Tessel_CA cycles: the demo suite package installed and removed %d times in one prefix" % len(rows))
    print()
    print("  cycle  install exit  removal exit  seconds")
    for number, install, remove, seconds in rows:
        print("  %5s  %12s  %12s  %7s" % (number, install, remove, seconds))
    times = [float(row[3]) for row in rows]
    if times:
        print("  mean %.1f s per cycle, slowest %.1f s" % (sum(times) / len(times), max(times)))
    failed = [row[0] for row in rows if row[1] != "0" or row[2] != "0"]
    print("  every install and removal exited 0" if not failed else "  cycles with a failed run: " + ", ".join(failed))

    groups, unexpected = {}, []
    for change in machine_changes(machine(out, "before", "after", "", "")):
        meant = next(((group, why) for pattern, group, why in MEANT if re.match(pattern, change)), None)
        if meant:
            groups.setdefault(meant[0], []).append((meant[1], change))
        elif not change.startswith("  ("):  # the installer's own records, counted
            unexpected.append(change)
    print()
    print("After the last removal, against the machine before the first install (+ left, - gone):")
    for group in (KEPT, DESIGN, CLEARED, WINE):
        print("  %s:%s" % (group, "" if group in groups else " nothing"))
        reasons = []
        for why, _ in groups.get(group, []):
            if why not in reasons:
                reasons.append(why)
        for why in reasons:
            print("      " + why)
            for change in (change for reason, change in groups[group] if reason == why):
                print("          " + change[:150])
    print("  anything else:" + ("" if unexpected else " nothing"))
    for change in unexpected:
        print("      " + change[:160])
    return 1 if failed or unexpected else 0


if __name__ == "__main__":
    sys.exit(main())
