"""Cost against size, for inputs that once cost more than their size: each is run at n and at 4n.

    python3 bench/growth.py [--program PATH] [--runs N]

An input is an attack on one structure: a vector that grew by a constant, a table whose chains grew,
a list that was searched. Four times the input should cost four times as much. Processor time, user
and system, the best of the runs; the exit status is 1 when a factor is greater than LIMIT.
"""

import argparse
import os
import pathlib
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
FACTOR, LIMIT = 4, 6.5


def arguments(work, n):
    """A command file with n definitions."""
    (work / "in.c").write_text("x\n")
    (work / "args").write_text("".join(f"-DNAME_{i}={i}\n" for i in range(n)) + "in.c\n")
    return ["@args"]


def warnings(work, n):
    """A warning that is told once for each place, at n places."""
    (work / "in.c").write_text("a ??( b\n" * n)
    return ["-W-9", "in.c"]


def headers(work, n):
    """Headers whose names end alike, so that their hashes are equal."""
    for i in range(n):
        (work / f"h{i}_sixteen_equal_ch.h").write_text(f"#define H{i}\n")
    (work / "in.c").write_text("".join(f'#include "h{i}_sixteen_equal_ch.h"\n' for i in range(n)))
    return ["in.c"]


def mixed_chain(work, n):
    """Macros of two hashes that share a chain of the table, so that each is put in its place."""
    lines = []
    for i in range(n):
        # Pairs of letters with one sum; then 84 units more that add just the number of chains.
        digits = (i >> shift & 7 for shift in range(0, 15, 3))
        name = "".join(chr(ord("a") + d) + chr(ord("a") + 7 - d) for d in digits)
        lines.append(f"#define {name}{('a' * 83 + '9') * (i >> 1 & 1)} {i}\n")
    (work / "in.c").write_text("".join(lines))
    return ["-N255", "-dM", "in.c"]


def index(work, n):
    """Names that were forged to meet in the index of macros."""
    tool = work / "collide"
    subprocess.run(["cc", "-O2", "-o", tool, ROOT / "bench/collide.c"], check=True)
    names = subprocess.run([tool, str(n)], capture_output=True, text=True, check=True).stdout.split()
    (work / "in.c").write_text("".join(f"#define {name} 1\n" for name in names))
    return ["in.c"]


WORKLOADS = ((arguments, 250_000), (warnings, 50_000), (headers, 10_000), (mixed_chain, 7_500),
             (index, 4_000))


def seconds(program, options, work, runs):
    """Processor time of the fastest run."""
    best = float("inf")
    for _ in range(runs):
        with open(os.devnull, "r+b") as null:
            child = subprocess.Popen([program, *options], cwd=work, stdin=null, stdout=null, stderr=null)
            _, status, usage = os.wait4(child.pid, 0)
            child.returncode = os.waitstatus_to_exitcode(status)
        if child.returncode != 0:
            sys.exit(f"{' '.join(options)} in {work}: status {child.returncode}")
        best = min(best, usage.ru_utime + usage.ru_stime)
    return best


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--program", default=str(ROOT / "build/release/bin/cpp"))
    parser.add_argument("--runs", type=int, default=3)
    options = parser.parse_args()
    program = os.path.abspath(options.program)
    passed = failed = 0
    print(f"| input | n | ms at n | ms at {FACTOR}n | factor |\n| --- | ---: | ---: | ---: | ---: |")
    for make, n in WORKLOADS:
        times = []
        for size in (n, FACTOR * n):
            with tempfile.TemporaryDirectory() as scratch:
                work = pathlib.Path(scratch)
                times.append(seconds(program, make(work, size), work, options.runs) * 1000)
        factor = times[1] / times[0]
        print(f"| {make.__name__.replace('_', ' ')} | {n} | {times[0]:.0f} | {times[1]:.0f} | "
              f"{factor:.1f} |", flush=True)
        passed, failed = passed + (factor <= LIMIT), failed + (factor > LIMIT)
    print(f"{passed} passed, {failed} failed")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
