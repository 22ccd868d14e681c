"""The fast ways through the text must give exactly what the slow way gives.

The reader hands out one unit at a time; where the text is ordinary, lanes do the same in bulk. Two
builds of the program, with the lanes and without them, are run on small random programs
(writer.py). Standard output, standard error and status must be equal byte for byte. A program on
which they are not is cut down line by line and printed.

    python3 checks/lanes.py --seed 1 --count 2000
        [--program build/release/bin/cpp] [--plain build/lanes-off/bin/cpp] [--real]
"""

import argparse
import concurrent.futures
import os
import random
import shutil
import sys
import time

from tally import ROOT, TIMEOUT, Tally, outcome
from writer import Writer
import corpus
import units

SCRATCH = ROOT / "build" / "lanes"
MODES = {
    "plain": ["-W-9", "--emax=1000"],
    "comments": ["-W-9", "--emax=1000", "-C"],
    "assembler": ["-W-9", "--emax=1000", "--cmode=tsasm"],
    "definitions": ["-W-9", "--emax=1000", "-dM", "-U__TIME__", "-U__DATE__"],
    "listing": ["-W-9", "-E1", "-H"],
    "dependencies": ["-W-9", "-Llist", "-H"],
    "linker": ["-W-9", "--emax=1000", "--cmode=tslink", "-N255"],
}


def write_program(files, directory):
    shutil.rmtree(directory, ignore_errors=True)
    directory.mkdir(parents=True)
    for name, text in files.items():
        (directory / name).write_bytes(text.encode("latin-1"))


def differ(programs, arguments, directory):
    """What is wrong with the two runs; empty when nothing is. One that does not end is a fault even
    where the other does not end either: nothing that is written here takes long."""
    results = [outcome([program, *arguments], directory) for program in programs]
    if None in results:
        return f"not ended after {TIMEOUT} s"
    return "different" if results[0] != results[1] else ""


def shrink(files, programs, mode, directory):
    """Takes lines out as long as the outputs of the two programs still differ; returns what is left."""
    def still(candidate):
        write_program(candidate, directory)
        return differ(programs, MODES[mode] + ["-I./", "main.c"], directory) == "different"

    for name in sorted(files, key=lambda n: n != "main.c"):
        lines = files[name].splitlines(keepends=True)
        size = max(1, len(lines) // 2)
        while size:
            at = 0
            while at < len(lines):
                shorter = lines[:at] + lines[at + size:]
                if still({**files, name: "".join(shorter)}):
                    lines = shorter
                else:
                    at += size
            size //= 2
        files = {**files, name: "".join(lines)}
    return files


def check_random(seed, number, programs):
    """Returns (passed, report) for one random program in every mode."""
    directory = SCRATCH / f"work-{os.getpid()}"
    rng = random.Random(f"{seed} {number}")
    files = Writer(rng).program()
    passed = 0
    for mode, options in MODES.items():
        write_program(files, directory)
        arguments = options + ["-I./", "main.c"]
        fault = differ(programs, arguments, directory)
        if not fault:
            passed += 1
            continue
        # Each attempt to make less of a run that does not end would take its time, too.
        small = shrink(files, programs, mode, directory) if fault == "different" else files
        write_program(small, directory)
        report = f"program {number}, mode {mode} ({' '.join(arguments)}), {fault}:\n"
        for name, text in small.items():
            if text:
                report += f"--- {name}\n{text!r}\n{text}\n"
        for label, program in zip(("with lanes", "without"), programs):
            report += f"--- {label}: {outcome([program, *arguments], directory)}\n"
        return passed, report
    return passed, ""


def check_real(unit, programs):
    """The same comparison on one unit of the real input, in two of the modes."""
    source = units.write_input(unit, SCRATCH / "units", ["cpp", "-undef", "-nostdinc", "-w"])
    for mode in ("plain", "comments"):
        if fault := differ(programs, MODES[mode] + unit.flags() + [str(source)], SCRATCH):
            return 0, f"{unit.name}, mode {mode}, {fault}: {source}\n"
    return 2, ""


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--program", default=str(ROOT / "build/release/bin/cpp"))
    parser.add_argument("--plain", default=str(ROOT / "build/lanes-off/bin/cpp"))
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--count", type=int, default=2000)
    parser.add_argument("--real", action="store_true", help="the real input too")
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    options = parser.parse_args()
    programs = [os.path.abspath(options.program), os.path.abspath(options.plain)]
    for program in programs:
        if not os.access(program, os.X_OK):
            sys.exit(f"{program} is missing")
    SCRATCH.mkdir(parents=True, exist_ok=True)
    started = time.monotonic()
    tally = Tally()
    with concurrent.futures.ProcessPoolExecutor(options.jobs) as pool:
        futures = [pool.submit(check_random, options.seed, number, programs)
                   for number in range(options.count)]
        if options.real:
            found = ROOT / "build/real-input/packages"
            corpus.fetch(found)
            futures += [pool.submit(check_real, unit, programs) for unit in units.all_units(found)]
        for future in futures:
            good, report = future.result()
            tally.passed += good
            tally.failed += bool(report)
            if report and tally.failed <= 10:
                print(report)
    print(f"seed {options.seed}, {time.monotonic() - started:.0f} s")
    return tally.close()


if __name__ == "__main__":
    sys.exit(main())
