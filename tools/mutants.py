#!/usr/bin/env python3
"""Mutant run: small realistic faults made one at a time in the library's .cpp
files, each rebuilt and run against the test programs of its folder.

Usage: tools/mutants.py BUILD_DIR
Rows of long data tables (catalogues) are left out.
Environment: SEED (default 1), N (default 60), FOLDERS (default: every
library folder; comma- or space-separated), ONLY (folders whose mutants of
that sample are run, so that a slice of a full run can be repeated), TIMEOUT (seconds per program run;
default four times its clean run, at least 60), BY_TEST=1 (each program runs whole, and the
report says which tests killed each mutant and how many mutants each test alone kills: a test
that alone kills none of a large sample is a candidate to go).

A mutant is killed when a test program fails or times out, survives when they
all pass, and is "not built" when it does not compile. The source is restored
after each mutant and on every way out; a backup left by a run that was killed
outright is restored at the next start. The report goes to the terminal and to
BUILD_DIR/mutants/report.txt.
"""
import os
import random
import re
import signal
import subprocess
import sys
import time
from collections import Counter, defaultdict
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
LIBRARY_FOLDERS = ["frame", "config", "toolkit", "removal", "framework", "dll",
                   "integration", "telemetry", "companions"]
# Test programs of each folder; a folder without its own runs those that load the DLL.
PROGRAMS = {"dll": ["framework_tests", "frame_tests", "removal_tests"]}

KEYWORDS = {"return", "if", "while", "for", "switch", "delete", "sizeof", "case", "else", "do",
            "throw", "new", "goto", "typedef", "using", "static_assert"}
BINARY_SWAPS = {"==": "!=", "!=": "==", "<": "<=", "<=": "<", ">": ">=", ">=": ">",
                "&&": "||", "||": "&&", "+": "-", "-": "+"}
BINARY = re.compile(r"(?<=\S) (==|!=|<=|>=|<|>|&&|\|\||\+|-) (?=\S)")
CONDITION = re.compile(r"\b(if|while) \(")
CALL_STATEMENT = re.compile(r"^(\s*)([A-Za-z_][\w:]*(?:\s*(?:\.|->)\s*[A-Za-z_]\w*)*)\s*\(.*\);\s*$")
RESULT = re.compile(r"\bkResult[A-Z]\w*\b")
NUMBER = re.compile(r"(?<![\w.])(\d+)(?![\w.])")
TABLE_ROW = re.compile(r"^\s*\{.*\},?\s*(//.*)?$")
CATALOGUE_ROWS = 10
STRING = re.compile(r'L?"(?:[^"\\]|\\.)*"')
CHAR_LITERAL = re.compile(r"L?'(?:[^'\\]|\\.)*'")


class Mutant:
    def __init__(self, path, line, kind, before, after):
        self.path, self.line, self.kind, self.before, self.after = path, line, kind, before, after
        self.outcome = None
        self.killers = set()  # with BY_TEST: the failing tests, or "<program>: timeout"/"crash in T"

    @property
    def folder(self):
        return self.path.parts[0]


def code_lines(text):
    """Yields (index, line, masked) for lines of code; masked blanks string and
    char literals and comments so that operators are looked for in code only."""
    in_block = False
    for index, line in enumerate(text.split("\n")):
        masked = []
        i = 0
        while i < len(line):
            if in_block:
                end = line.find("*/", i)
                if end < 0:
                    masked.append(" " * (len(line) - i))
                    i = len(line)
                else:
                    masked.append(" " * (end + 2 - i))
                    i = end + 2
                    in_block = False
                continue
            if line.startswith("//", i):
                masked.append(" " * (len(line) - i))
                break
            if line.startswith("/*", i):
                in_block = True
                continue
            literal = STRING.match(line, i)
            if literal:  # quotes kept: a string in code, not in a comment
                opening = 2 if line[i] == "L" else 1
                masked.append(line[i:i + opening] + " " * (literal.end() - i - opening - 1) + '"')
                i = literal.end()
                continue
            literal = CHAR_LITERAL.match(line, i)
            if literal:
                masked.append(" " * (literal.end() - i))
                i = literal.end()
                continue
            masked.append(line[i])
            i += 1
        masked = "".join(masked)
        if masked.strip() and not masked.lstrip().startswith("#"):
            yield index, line, masked


def closing_paren(masked, start):
    depth = 0
    for i in range(start, len(masked)):
        if masked[i] == "(":
            depth += 1
        elif masked[i] == ")":
            depth -= 1
            if depth == 0:
                return i
    return -1


def changed_char(c):
    if c.isdigit():
        return str((int(c) + 1) % 10)
    if c.isalpha():
        base = "a" if c.islower() else "A"
        return chr((ord(c) - ord(base) + 1) % 26 + ord(base))
    return None


def catalogue_lines(text):
    """Rows of long data tables: a count and a few telling rows guard those."""
    rows, run = set(), []
    for index, line in enumerate(text.split("\n") + [""]):
        if TABLE_ROW.match(line):
            run.append(index)
            continue
        if len(run) >= CATALOGUE_ROWS:
            rows.update(run)
        run = []
    return rows


def sites(rel, text, rng):
    """Every mutant of one file, found mechanically."""
    found = []
    results = sorted(set(RESULT.findall(text)))
    skipped = catalogue_lines(text)
    for index, line, masked in code_lines(text):
        if index in skipped:
            continue
        def add(kind, start, end, replacement):
            found.append(Mutant(rel, index + 1, kind, line, line[:start] + replacement + line[end:]))

        for match in BINARY.finditer(masked):
            op = match.group(1)
            add("operator", match.start(1), match.end(1), BINARY_SWAPS[op])
        for match in CONDITION.finditer(masked):
            open_at = match.end() - 1
            close_at = closing_paren(masked, open_at)
            if close_at > 0:
                inner = line[open_at + 1:close_at]
                add("negation", open_at + 1, close_at, "!(" + inner + ")")
        for match in RESULT.finditer(masked):
            others = [name for name in results if name != match.group(0)]
            if others and not masked.lstrip().startswith("const UINT"):
                add("result", match.start(), match.end(), rng.choice(others))
        call = CALL_STATEMENT.match(masked)
        if call and call.group(2).split("::")[0].split(".")[0].split("->")[0].strip() not in KEYWORDS:
            if closing_paren(masked, masked.index("(")) == len(masked.rstrip()) - 2:
                found.append(Mutant(rel, index + 1, "call dropped", line, call.group(1) + ";"))
        for match in NUMBER.finditer(masked):
            value = int(match.group(1))
            if match.start() > 0 and masked[match.start() - 1] in "xX":
                continue
            delta = 1 if value == 0 else rng.choice((-1, 1))
            add("number", match.start(1), match.end(1), str(value + delta))
        for match in STRING.finditer(line):
            if masked[match.start()] not in 'L"' or masked[match.end() - 1] != '"':
                continue  # in a comment
            body_start = match.start() + (2 if line[match.start()] == "L" else 1)
            body = line[body_start:match.end() - 1]
            positions = []
            i = 0
            while i < len(body):
                if body[i] == "\\":
                    i += 2
                    continue
                if changed_char(body[i]):
                    positions.append(i)
                i += 1
            if positions:
                at = rng.choice(positions)
                add("string", body_start + at, body_start + at + 1, changed_char(body[at]))
    return found


class Sources:
    """Writes mutants and puts the original back, whatever happens."""

    def __init__(self, backups):
        self.backups = backups
        self.backups.mkdir(parents=True, exist_ok=True)
        for backup in self.backups.rglob("*.orig"):
            target = ROOT / backup.relative_to(self.backups).with_suffix("")
            print(f"restoring {target} from a run that was stopped", flush=True)
            target.write_bytes(backup.read_bytes())
            backup.unlink()
        self.current = None

    def apply(self, mutant):
        path = ROOT / mutant.path
        original = path.read_bytes()
        backup = self.backups / (str(mutant.path) + ".orig")
        backup.parent.mkdir(parents=True, exist_ok=True)
        backup.write_bytes(original)
        self.current = (path, original, backup)
        lines = original.decode("utf-8").split("\n")
        assert lines[mutant.line - 1] == mutant.before
        lines[mutant.line - 1] = mutant.after
        path.write_bytes("\n".join(lines).encode("utf-8"))

    def restore(self):
        if self.current:
            path, original, backup = self.current
            path.write_bytes(original)
            backup.unlink(missing_ok=True)
            self.current = None


def run(command, timeout, env=None, output=None):
    """Runs a command in its own process group; returns its exit code, or None on time-out.
    With `output` (a list), the command's standard output is appended to it."""
    process = subprocess.Popen(command, cwd=ROOT, env=env,
                               stdout=subprocess.PIPE if output is not None else subprocess.DEVNULL,
                               stderr=subprocess.DEVNULL, start_new_session=True)
    try:
        if output is None:
            return process.wait(timeout=timeout)
        text, _ = process.communicate(timeout=timeout)
        output.append(text.decode("utf-8", "replace"))
        return process.returncode
    except subprocess.TimeoutExpired:
        os.killpg(process.pid, signal.SIGKILL)
        process.wait()
        return None
    except BaseException:
        os.killpg(process.pid, signal.SIGKILL)
        process.wait()
        raise


def failing_tests(program, code, text):
    """The tests a whole program run says failed; a crash is put on the test that was running."""
    if code is None:
        return {f"{program}: timeout"}
    # Not anchored to a line's start: what a test prints without a line end runs into the marker.
    failed = set(re.findall(r"\[  FAILED  \] (\S+\.\S+) \(", text))
    started = re.findall(r"\[ RUN      \] (\S+)", text)
    ended = set(re.findall(r"\[ +(?:OK|FAILED) +\] (\S+\.\S+) \(", text))
    unfinished = [name for name in started if name not in ended]
    if unfinished:
        failed.add(f"crash in {unfinished[-1]}")
    if code != 0 and not failed:
        failed.add(f"{program}: exit {code}")
    return failed


def wine(build, function):
    subprocess.run(["bash", "-c", f'source tools/wine-env.sh "$1" && {function}', "wine", str(build)],
                   cwd=ROOT, check=False, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)


def drive_and_links(build, action):
    """What ctest's drive_and_links fixture makes: made afresh before each program run, as a mutant
    may delete through a link or empty the throw-away drive."""
    subprocess.run([str(ROOT / "tests/harness/drive_and_links.sh"), action, str(build)], cwd=ROOT, check=False,
                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    build = Path(sys.argv[1]).resolve()
    seed = int(os.environ.get("SEED", "1"))
    count = int(os.environ.get("N", "60"))
    wanted = os.environ.get("FOLDERS", "").replace(",", " ").split()
    folders = [f for f in (wanted or LIBRARY_FOLDERS) if (ROOT / f).is_dir()]
    if wanted and set(wanted) - set(folders):
        sys.exit(f"no library folder: {' '.join(sorted(set(wanted) - set(folders)))}")
    programs = {f: [p for p in PROGRAMS.get(f, [f + "_tests"]) if (ROOT / "tests" / p[:-6]).is_dir()]
                for f in folders}
    folders = [f for f in folders if programs[f]]

    rng = random.Random(seed)
    candidates = []
    for folder in folders:
        for path in sorted((ROOT / folder).glob("*.cpp")):
            rel = path.relative_to(ROOT)
            candidates += sites(rel, path.read_text(encoding="utf-8"), rng)
    chosen = rng.sample(candidates, min(count, len(candidates)))
    by_test = os.environ.get("BY_TEST") == "1"
    only = os.environ.get("ONLY", "").replace(",", " ").split()
    if only:
        chosen = [m for m in chosen if m.folder in only]

    out = build / "mutants"
    sources = Sources(out / "backup")
    env = dict(os.environ, TESSEL_WINE_WARM="1")
    started = time.monotonic()

    def build_for(folder):
        targets = ["Tessel_CA"] + programs[folder]
        return run(["cmake", "--build", str(build), "-j2", "--target", *targets], 600)

    def tests_pass(folder, limits, mutant):
        for program in programs[folder]:
            drive_and_links(build, "setup")
            command = [str(ROOT / "tools/wine-run.sh"), str(build), str(build / "bin" / (program + ".exe"))]
            if not by_test:
                if run(command + ["--gtest_fail_fast"], limits.get(program), env) != 0:
                    return False
                continue
            output = []
            code = run(command, limits.get(program), env, output)
            mutant.killers |= failing_tests(program, code, "".join(output))
        return not mutant.killers

    signal.signal(signal.SIGTERM, lambda *_: sys.exit(130))
    wine(build, "tessel_warm_start")
    try:
        limits, every_test = {}, set()
        for folder in sorted({m.folder for m in chosen}):
            if build_for(folder) != 0:
                sys.exit(f"the clean tree does not build for {folder}")
            for program in programs[folder]:
                drive_and_links(build, "setup")
                begun = time.monotonic()
                output = []
                code = run([str(ROOT / "tools/wine-run.sh"), str(build), str(build / "bin" / (program + ".exe"))],
                           900, env, output)
                every_test.update(re.findall(r"^\[ RUN      \] (\S+)", output[0], re.M))
                if code != 0:
                    sys.exit(f"{program} fails on the clean tree; fix it before a mutant run")
                clean = time.monotonic() - begun
                limits[program] = float(os.environ.get("TIMEOUT", max(60.0, 4 * clean)))
        print(f"{len(candidates)} sites in {' '.join(folders)}; running {len(chosen)} (SEED={seed})", flush=True)
        for number, mutant in enumerate(chosen, 1):
            sources.apply(mutant)
            try:
                if build_for(mutant.folder) != 0:
                    mutant.outcome = "not built"
                else:
                    mutant.outcome = "survived" if tests_pass(mutant.folder, limits, mutant) else "killed"
            finally:
                sources.restore()
            print(f"[{number}/{len(chosen)}] {mutant.outcome:9} {mutant.path}:{mutant.line} {mutant.kind}",
                  flush=True)
    except KeyboardInterrupt:
        print("stopped; sources restored", flush=True)
    finally:
        sources.restore()
        drive_and_links(build, "cleanup")
        wine(build, "tessel_warm_stop")
        # The build tree goes back to the clean sources for whoever builds next.
        run(["cmake", "--build", str(build), "-j2"], 1800)

    report = render(chosen, seed, time.monotonic() - started)
    if by_test:
        report += render_by_test(chosen, every_test)
    out.mkdir(parents=True, exist_ok=True)
    (out / "report.txt").write_text(report, encoding="utf-8")
    print(report)


def render(chosen, seed, seconds):
    done = [m for m in chosen if m.outcome]
    lines = [f"SEED={seed} N={len(chosen)} ran={len(done)} time={seconds / 60:.1f} min", "",
             f"{'folder':12} {'killed':>7} {'survived':>9} {'not built':>10} {'score':>7}"]
    table = defaultdict(Counter)
    for m in done:
        table[m.folder][m.outcome] += 1
        table["all"][m.outcome] += 1
    for folder in sorted(table, key=lambda f: (f == "all", f)):
        row = table[folder]
        tested = row["killed"] + row["survived"]
        score = f"{100 * row['killed'] / tested:.0f} %" if tested else "-"
        lines.append(f"{folder:12} {row['killed']:7} {row['survived']:9} {row['not built']:10} {score:>7}")
    survivors = [m for m in done if m.outcome == "survived"]
    if survivors:
        lines += ["", "survivors:"]
        for m in sorted(survivors, key=lambda m: (str(m.path), m.line)):
            lines.append(f"{m.path}:{m.line}  {m.before.strip()}  ->  {m.after.strip()}")
    return "\n".join(lines) + "\n"


def render_by_test(chosen, every_test):
    """Which tests killed each mutant, and how many mutants each test killed alone."""
    killed = [m for m in chosen if m.outcome == "killed"]
    lines = ["", "killed by:"]
    alone = Counter()
    for m in sorted(killed, key=lambda m: (str(m.path), m.line)):
        lines.append(f"{m.path}:{m.line} {m.kind}: {' '.join(sorted(m.killers))}")
        if len(m.killers) == 1:
            alone[next(iter(m.killers))] += 1
    every = Counter(name for m in killed for name in m.killers)
    every.update({name: 0 for name in every_test})
    lines += ["", f"{'alone':>5} {'in all':>6}  test"]
    for name in sorted(every, key=lambda n: (-alone[n], -every[n], n)):
        lines.append(f"{alone[name]:5} {every[name]:6}  {name}")
    return "\n".join(lines) + "\n"


if __name__ == "__main__":
    main()
