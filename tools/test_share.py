#!/usr/bin/env python3
"""Prints the share of the tests in the C++ lines: tests/ against the library
folders, blank and comment-only lines left out, benchmarks on neither side."""
import pathlib
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
LIBRARY = ["frame", "config", "toolkit", "removal", "framework", "dll",
           "integration", "telemetry", "companions"]
SOURCES = {".cpp", ".h"}


def code_lines(path):
    count, in_block = 0, False
    for raw in path.read_text(encoding="utf-8", errors="replace").splitlines():
        line = raw.strip()
        if in_block:
            if "*/" in line:
                in_block = False
                line = line.split("*/", 1)[1].strip()
            else:
                continue
        if line.startswith("/*"):
            in_block = "*/" not in line
            continue
        if line and not line.startswith("//"):
            count += 1
    return count


def folder_lines(folder):
    base = ROOT / folder
    if not base.is_dir():
        return {}
    return {p: code_lines(p) for p in sorted(base.rglob("*"))
            if p.suffix in SOURCES and "bench" not in p.relative_to(ROOT).parts}


def main():
    library = sum(sum(folder_lines(f).values()) for f in LIBRARY)
    tests = folder_lines("tests")
    total_tests = sum(tests.values())
    if "-v" in sys.argv:
        for path, count in sorted(tests.items(), key=lambda item: -item[1]):
            print(f"{count:6}  {path.relative_to(ROOT)}")
    share = 100.0 * total_tests / (total_tests + library)
    print(f"library {library} lines, tests {total_tests} lines: tests are {share:.1f} % of the two")


main()
