#!/usr/bin/env python3
"""Checks that a WiX fragment declares each export of the .def exactly once.

Usage: check_actions.py FRAGMENT.wxs EXPORTS.def
Prints what is missing from the fragment, what it declares that the DLL does
not export, what it declares twice, and deferred actions that leave Impersonate
to wixl's default; exits 1 when there is any of these.
"""
import collections
import sys
import xml.etree.ElementTree as ET

WIX = "{http://schemas.microsoft.com/wix/2006/wi}"


def library_actions(fragment):
    """The CustomAction elements that call a DllEntry, in order."""
    return [action for action in ET.parse(fragment).getroot().iter(WIX + "CustomAction") if action.get("DllEntry")]


def exported_names(def_file):
    """The names after EXPORTS, one per line, as the linker reads them."""
    names = []
    with open(def_file, encoding="utf-8") as f:
        in_exports = False
        for line in f:
            words = line.split(";", 1)[0].split()
            if not words:
                continue
            if words[0] == "EXPORTS":
                in_exports = True
            elif in_exports:
                names.append(words[0])
    return names


def problems(actions, exports):
    entries = [action.get("DllEntry") for action in actions]
    counts = collections.Counter(entries)
    found = []
    found += ["missing from the fragment: " + name for name in sorted(set(exports) - set(entries))]
    found += ["not exported by the DLL: " + name for name in sorted(set(entries) - set(exports))]
    found += ["declared %d times: %s" % (n, name) for name, n in sorted(counts.items()) if n > 1]
    # wixl's default for a deferred action is to run as the system, whatever the action needs.
    found += ["deferred without Impersonate: " + action.get("Id") for action in actions
              if action.get("Execute") == "deferred" and action.get("Impersonate") is None]
    return found


def main():
    fragment, def_file = sys.argv[1], sys.argv[2]
    actions = library_actions(fragment)
    found = problems(actions, exported_names(def_file))
    for line in found:
        print(line)
    if found:
        return 1
    print("%d actions declared, one for each export of %s" % (len(actions), def_file))
    return 0


if __name__ == "__main__":
    sys.exit(main())
