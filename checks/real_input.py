"""Real input: do we and GNU cpp give a compiler the same tokens?

Device headers, C library headers and sources, and three programs, taken from Debian packages, are
preprocessed by our program and by GNU cpp with the same -I and -D; the token sequences must be
equal. What is different by rule is named, counted and documented (docs/real-input.md); anything
else fails the check. A second pass feeds damaged input and asks only for a clean end.

    python3 checks/real_input.py [--program build/release/bin/cpp] [--only TEXT] [--jobs N]
"""

import argparse
import collections
import concurrent.futures
import os
import re
import shutil
import subprocess
import sys
import time

from tally import ROOT, outcome
import corpus
import reasons
import robustness
import tokens
import units

SCRATCH = ROOT / "build" / "real-input"
REFERENCE = ["cpp", "-P", "-undef", "-nostdinc", "-std=gnu90", "-trigraphs"]
# Names that GNU cpp has built in whatever it is told, and that no header may see here; and our
# character constants in #if are never negative.
REFERENCE += ["-w", "-funsigned-char"] + ["-U" + n for n in (
    "__STDC_HOSTED__", "__COUNTER__", "__INCLUDE_LEVEL__", "__TIMESTAMP__", "__BASE_FILE__",
    "__has_attribute", "__has_cpp_attribute", "__has_include", "__has_include_next",
    "__has_builtin")]
SHOWN = 20  # damaged inputs that are reported in full


def _run(command):
    status, *texts = outcome(command) or (None, b"", b"")
    return status, *(text.decode("latin-1") for text in texts)


def _included_files(report):
    return [line.lstrip(". ") for line in report.splitlines() if re.match(r"\.+ ", line)]


def check_unit(unit, program):
    """Returns (unit, verdict, what, details).

    The verdict is passed, failed or skipped; `what` counts the differences by kind, or is the
    reason to leave the unit out.
    """
    source = units.write_input(unit, SCRATCH / "units", REFERENCE)
    status, theirs, report = _run(REFERENCE + ["-H"] + unit.flags() + [str(source)])
    files = [unit.path] + _included_files(report)
    reason = reasons.left_out(files)
    if reason:
        return unit, "skipped", reason, ""
    errors = [line.split("error: ", 1)[1] for line in report.splitlines() if "error: " in line]
    stops = [text for text in errors if not text.startswith("#error")]
    if stops:
        return unit, "skipped", "GNU cpp: " + re.sub(r"^\S+: (No such)", r"include file: \1",
                                                     stops[0]), ""
    expected = 1 if errors else 0

    status, ours, messages = _run([program, "-N255"] + unit.flags() + [str(source)])
    if status is None:
        return unit, "failed", {"time-out": 1}, f"  {source}\n"
    if status not in (0, 1):
        return unit, "failed", {f"ended with status {status}": 1}, messages
    hunks = tokens.differences(tokens.tokenize(theirs),
                               tokens.tokenize(tokens.strip_markers(ours)))
    kinds = collections.Counter()
    details = []
    for left, right, at in hunks:
        kind = reasons.by_rule(left, right, files) or "unexplained"
        kinds[kind] += 1
        details.append(f"  {kind}: token {at}\n    theirs {left[:30]}\n    ours   {right[:30]}\n")
    if status != expected:
        kinds["error status"] += 1
        details.append(f"  status {status} instead of {expected}\n{messages}")
    verdict = "passed" if kinds.keys() <= {reasons.NO_BLANK, reasons.LAST_LINE} else "failed"
    return unit, verdict, kinds, "".join([f"  {source}\n"] + details if kinds else [])


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--program", default=str(ROOT / "build/release/bin/cpp"))
    parser.add_argument("--only", default="", help="only units whose name contains this text")
    parser.add_argument("--seed", type=int, default=1, help="of the damaged inputs")
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    options = parser.parse_args()
    started = time.monotonic()
    if not shutil.which("cpp"):
        subprocess.run(["apt-get", "install", "-y", "-qq", "cpp"], check=True)
    versions = corpus.fetch(SCRATCH / "packages")
    work = [u for u in units.all_units(SCRATCH / "packages") if options.only in u.name]
    SCRATCH.mkdir(parents=True, exist_ok=True)
    with concurrent.futures.ProcessPoolExecutor(options.jobs) as pool:
        totals = compare(pool, work, options.program, versions)
        totals += survive(pool, work, options)
    print(f"{time.monotonic() - started:.0f} s")
    print(f"{totals['passed']} passed, {totals['failed']} failed, {totals['skipped']} skipped")
    return 1 if totals["failed"] else 0


def compare(pool, work, program, versions):
    """Compares every unit with GNU cpp and prints the summary; returns the counts."""
    totals = collections.Counter()
    per_package = collections.defaultdict(collections.Counter)
    by_reason = collections.Counter()
    by_kind = collections.Counter()
    with open(SCRATCH / "differences.txt", "w", encoding="latin-1") as log:
        for unit, verdict, what, details in pool.map(check_unit, work,
                                                     [program] * len(work), chunksize=4):
            totals[verdict] += 1
            per_package[unit.package][verdict] += 1
            if verdict == "skipped":
                by_reason[what] += 1
                log.write(f"{unit.name}: left out: {what}\n")
            else:
                by_kind.update(what)
                log.write(f"{unit.name}: {verdict}\n{details}")
    print("units compared with GNU cpp:")
    for package, counts in per_package.items():
        print(f"  {package} {versions[package]}: {counts['passed']} equal or by rule, "
              f"{counts['failed']} different, {counts['skipped']} left out")
    for title, counts in (("left out", by_reason), ("differences by kind", by_kind)):
        print(f"{title}: {sum(counts.values())}")
        for why, count in counts.most_common():
            print(f"  {count:5} {why}")
    return totals


def survive(pool, work, options):
    """Feeds damaged input and prints what did not end cleanly; returns the counts."""
    scratch = SCRATCH / "damaged"
    shutil.rmtree(scratch, ignore_errors=True)
    scratch.mkdir()
    inputs = {u.name: str(units.input_path(u, SCRATCH / "units")) for u in work}
    binaries = sorted((SCRATCH / "packages/downloads").iterdir())
    binaries += sorted((SCRATCH / "packages/musl-dev/usr/lib").rglob("*.[ao]"))
    totals = collections.Counter()
    running = {}
    for case in robustness.cases(work, inputs, binaries, options.seed):
        if len(running) >= 4 * options.jobs:
            _collect(running, totals, concurrent.futures.FIRST_COMPLETED)
        future = pool.submit(robustness.run_case, *case, options.program, scratch)
        running[future] = case[0]
    _collect(running, totals, concurrent.futures.ALL_COMPLETED)
    print(f"damaged inputs (seed {options.seed}): {totals['passed']} ended cleanly, "
          f"{totals['failed']} did not")
    return totals


def _collect(running, totals, when):
    done, _ = concurrent.futures.wait(running, return_when=when)
    for future in done:
        name = running.pop(future)
        verdict = future.result()
        totals["failed" if verdict else "passed"] += 1
        if verdict and totals["failed"] <= SHOWN:
            print(f"{name}: {verdict}")


if __name__ == "__main__":
    sys.exit(main())
