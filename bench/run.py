"""Whole-process benchmark: our program, four others, and the floor that the machine sets.

    python3 bench/run.py [--quick] [--only NAME] [--size 1|4|16] [--runs N] [--program PATH]
    python3 bench/run.py --claims     5 MB of real C against `gcc -E`; an empty file against nothing
    python3 bench/run.py --train      our program alone, once: for a build that counts what it does

Every workload is first preprocessed by us and by GNU cpp, and the tokens must be the same: a fast
wrong answer is not measured. Then all programs take turns, so that a disturbance of the machine
meets them all. The compilers' preprocessors are called without their drivers, as they would be if
they were the program that the user starts. Callgrind counts the instructions of the small programs,
which no disturbance changes; under it the compilers would take minutes. A full run writes
docs/performance.md and the figures of the README, and is for a quiet machine.
"""

import argparse
import dataclasses
import os
import pathlib
import platform
import re
import shutil
import statistics
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT / "tools"))

import corpus  # noqa: E402  (found through the line above)
import tokens  # noqa: E402
import workloads  # noqa: E402

SCRATCH = ROOT / "build" / "bench"
PACKAGES = ROOT / "build" / "real-input" / "packages"
DOCUMENT = ROOT / "docs" / "performance.md"
OURS, FLOOR = "cpp", "floor"
COUNTED = (OURS, "tcc", "ucpp")  # those whose instructions are counted
RUNS, QUICK_RUNS = 15, 3


def _output(*command):
    return subprocess.run(command, capture_output=True, text=True, check=True).stdout.strip()


def _install_missing():
    missing = [name for name in ("gcc", "clang", "tcc", "ucpp", "valgrind") if not shutil.which(name)]
    if missing:
        subprocess.run(["apt-get", "install", "-y", "-qq", *missing], check=True)


def _build_tools():
    SCRATCH.mkdir(parents=True, exist_ok=True)
    for name in ("launch", "floor", "nothing"):
        source = ROOT / "bench" / f"{name}.c"
        subprocess.run(["gcc", "-O2", "-static", "-o", SCRATCH / name, source], check=True)


def _flags(workload):
    return [f"-I{d}/" for d in workload.dirs] + [f"-D{d}" for d in workload.defines]


def our_command(workload, program):
    return [program, "-N255", *_flags(workload), str(workload.main), os.devnull]


def commands(workload, program):
    """The command line of every program for one workload."""
    flags, main = _flags(workload), str(workload.main)
    floor = [str(SCRATCH / "floor"), main]
    if workload.name == "empty":
        floor = [str(SCRATCH / "nothing")]
    elif len(workload.files) > 1:
        names = workload.main.parent / "files"
        names.write_text("".join(f"{f}\n" for f in workload.files))
        floor = [str(SCRATCH / "floor"), "-l", str(names)]
    return {
        OURS: our_command(workload, program),
        "cc1": [_output("gcc", "-print-prog-name=cc1"), "-E", "-quiet", "-w", "-undef", "-nostdinc",
                "-std=gnu90", *flags, main, "-o", os.devnull],
        "clang": [os.path.realpath(shutil.which("clang")), "-cc1", "-E", "-w", "-undef",
                  "-std=gnu89", *flags, main, "-o", os.devnull],
        "tcc": [shutil.which("tcc"), "-E", "-w", "-nostdinc", *flags, main, "-o", os.devnull],
        "ucpp": [shutil.which("ucpp"), "-w0", "-c90", "-zI", *flags, "-o", os.devnull, main],
        FLOOR: floor,
    }


def check_tokens(workload, program):
    """Ends the run when our tokens are not GNU cpp's."""
    flags = _flags(workload)
    theirs = subprocess.run(["gcc", "-E", "-P", "-w", "-undef", "-nostdinc", "-std=gnu90", *flags,
                             str(workload.main)], capture_output=True)
    if theirs.returncode != 0:
        sys.exit(f"{workload.name} {workload.scale}x: GNU cpp refuses it\n"
                 f"{theirs.stderr[-2000:].decode('latin-1')}")
    ours = subprocess.run([program, "-N255", *flags, str(workload.main)], capture_output=True)
    if ours.returncode != 0:
        sys.exit(f"{workload.name} {workload.scale}x: status {ours.returncode}\n"
                 f"{ours.stderr[-2000:].decode('latin-1')}")
    found = tokens.differences(tokens.tokenize(theirs.stdout.decode("latin-1")),
                               tokens.tokenize(tokens.strip_markers(ours.stdout.decode("latin-1"))),
                               limit=3)
    if found:
        sys.exit(f"{workload.name} {workload.scale}x: not the tokens of GNU cpp: {found}")


@dataclasses.dataclass
class Cost:
    """What the runs of one program have cost."""
    wall: list = dataclasses.field(default_factory=list)  # milliseconds of each run
    user: list = dataclasses.field(default_factory=list)
    system: list = dataclasses.field(default_factory=list)
    peak: int = 0  # KiB
    instructions: int = 0  # 0 where they are not counted

    def add(self, wall, user, system, peak):
        self.wall.append(wall / 1e6)
        self.user.append(user / 1e3)
        self.system.append(system / 1e3)
        self.peak = max(self.peak, peak)


def measure(table, runs):
    """Runs the commands in turns; returns the Cost of each."""
    costs = {name: Cost() for name in table}
    for turn in range(runs + 1):
        for name, command in table.items():
            *cost, status = map(int, _output(str(SCRATCH / "launch"), *command).split())
            if status != 0:
                sys.exit(f"{name} ended with status {status}: {' '.join(command)}")
            if turn > 0:  # the first turn fills the caches
                costs[name].add(*cost)
    return costs


def instructions(command):
    """How many instructions the command executes, the kernel's not counted."""
    done = subprocess.run(["valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null", *command],
                          stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True, check=True)
    return int(re.search(r"Collected : (\d+)", done.stderr)[1])


def table_of(workload, results):
    """One workload's results as lines of a Markdown table."""
    ours = min(results[OURS].wall)
    megabytes = workload.bytes / 1e6
    for name, cost in results.items():
        fastest = min(cost.wall)
        speed = f"{megabytes / fastest * 1000:.0f}" if megabytes > 0.001 else "-"
        count = f"{cost.instructions / 1e6:.2f}" if cost.instructions else "-"
        # The kernel charges either account by what it sees at its ticks: only a mean says something.
        yield (f"| {workload.name} {workload.scale}x | {name} | {fastest:.2f} | "
               f"{statistics.median(cost.wall):.2f} | {statistics.mean(cost.user):.2f} | "
               f"{statistics.mean(cost.system):.2f} | {count} | {speed} | {cost.peak / 1024:.1f} | "
               f"{fastest / ours:.2f} |")


HEADER = ("| workload | program | minimum ms | median ms | user ms | system ms | M instructions | MB/s | "
          "peak MiB | time relative to ours |\n| --- | --- |" + " ---: |" * 8)


def machine(load):
    """Processor, memory, kernel, how busy the machine was, and the versions of everything that was run."""
    info = pathlib.Path("/proc/cpuinfo").read_text()
    model = re.search(r"model name\s*:\s*(.*)", info)
    memory = int(re.search(r"MemTotal:\s*(\d+)", pathlib.Path("/proc/meminfo").read_text())[1])
    first = lambda text: text.splitlines()[0]
    return [
        f"- processor: {model[1] if model else platform.machine()}, {os.cpu_count()} cores; "
        f"memory: {memory / 2**20:.0f} GiB",
        f"- kernel: {platform.system()} {platform.release()}; load when the run began: {load:.1f}",
        f"- GCC: {first(_output('gcc', '--version'))}",
        f"- Clang: {first(_output('clang', '--version'))}",
        f"- TCC: {first(_output('tcc', '-v'))}",
        f"- ucpp: {_output('dpkg-query', '-W', '-f', '${Version}', 'ucpp')}",
    ]


def train(program):
    for name in workloads.NAMES:
        workload = workloads.make(name, 1 if name == "empty" else 4, SCRATCH, PACKAGES)
        subprocess.run(our_command(workload, program), check=True)


def claims(program, runs):
    """The two figures that a reader can keep in mind."""
    workload = workloads.real_workload(5_000_000, 0, SCRATCH / "real-5MB", PACKAGES)
    check_tokens(workload, program)
    table = commands(workload, program)
    driver = [shutil.which("gcc"), "-E", "-w", "-undef", "-nostdinc", "-std=gnu90",
              *_flags(workload), str(workload.main), "-o", os.devnull]
    real = measure({OURS: table[OURS], "gcc -E": driver}, runs)
    empty = workloads.make("empty", 1, SCRATCH, PACKAGES)
    nothing = measure({OURS: commands(empty, program)[OURS], "nothing": [str(SCRATCH / "nothing")]},
                      10 * runs)
    lines = []
    for title, results in ((f"{workload.bytes / 1e6:.1f} MB of real C", real),
                           ("an empty file", nothing)):
        (name, ours), (other, theirs) = ((name, cost.wall) for name, cost in results.items())
        mine, yours = statistics.median(ours), statistics.median(theirs)
        lines.append(f"- {title}: {name} {mine:.2f} ms (minimum {min(ours):.2f}), "
                     f"{other} {yours:.2f} ms (minimum {min(theirs):.2f}), "
                     f"ratio {yours / mine:.2f}, difference {mine - yours:.2f} ms")
    return lines


def growth(rows):
    """Milliseconds per megabyte at each size, the time of an empty file taken out: a workload that
    scales shows one figure. `rows` has the fastest run's milliseconds and the megabytes of each."""
    start_up = rows.get(("empty", 1), (0, 0))[0]
    yield "| workload | " + " | ".join(f"{s}x" for s in workloads.SCALES) + " | 16x against 1x |"
    yield "| --- |" + " ---: |" * (len(workloads.SCALES) + 1)
    for name in workloads.NAMES:
        cells = [rows.get((name, scale)) for scale in workloads.SCALES]
        if name == "empty" or not all(cells):
            continue
        costs = [(ms - start_up) / megabytes for ms, megabytes in cells]
        yield (f"| {name} | " + " | ".join(f"{cost:.2f}" for cost in costs) +
               f" | {100 * (costs[-1] / costs[0] - 1):+.0f} % |")


DOCUMENT_HEAD = """\
# Performance

Written by `python3 bench/run.py`; do not edit by hand. Wall time of whole processes, from the start
of the process to its end, output to the null device, everything in the file cache. The programs
take turns; {runs} runs of each are counted. Before a workload is measured its tokens are compared
with GNU cpp's.

- `cpp`: this program. `cc1`, `clang`: the preprocessors of GCC and Clang without their drivers
  (`cc1 -E -quiet`, `clang -cc1 -E`). `tcc`: `tcc -E`, of a small compiler. `ucpp`: a program that
  is nothing but a preprocessor.
- `floor`: a static program that reads the input, looks every byte up in a table and writes it out
  (for the empty file: a program that does nothing).
- user, system: processor time in the program and in the kernel, means of all runs. The kernel
  tells them apart by sampling, so they are rough where a run is short.
- instructions: counted by Valgrind's callgrind, without the kernel's; not for the large compilers.
- MB/s: bytes of all files that belong to the input, each counted once, by the minimum.
- relative time: by the minimum; above 1 is slower than this program.

## Machine
"""
SCALING_TITLE = "## Milliseconds per MB at each size, by the fastest run, without an empty file's time"


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--program", default=str(ROOT / "build/release/bin/cpp"))
    parser.add_argument("--only", choices=workloads.NAMES)
    parser.add_argument("--size", type=int, choices=workloads.SCALES)
    parser.add_argument("--runs", type=int)
    parser.add_argument("--quick", action="store_true", help="few runs, nothing written to docs")
    parser.add_argument("--claims", action="store_true")
    parser.add_argument("--train", action="store_true")
    options = parser.parse_args()
    load = os.getloadavg()[0]
    program = os.path.abspath(options.program)
    runs = options.runs or (QUICK_RUNS if options.quick else RUNS)
    corpus.fetch(PACKAGES)
    if options.train:
        train(program)
        return
    _install_missing()
    _build_tools()
    if options.claims:
        print("\n".join(claims(program, runs)))
        return

    lines, costs = [HEADER], {}
    print(HEADER)
    for name in [options.only] if options.only else workloads.NAMES:
        sizes = [options.size] if options.size else [1] if name == "empty" else workloads.SCALES
        for scale in sizes:
            workload = workloads.make(name, scale, SCRATCH, PACKAGES)
            check_tokens(workload, program)
            table = commands(workload, program)
            results = measure(table, runs)
            for counted in COUNTED:
                results[counted].instructions = instructions(table[counted])
            costs[name, scale] = (min(results[OURS].wall), workload.bytes / 1e6)
            for line in table_of(workload, results):
                print(line, flush=True)
                lines.append(line)
    scaling = list(growth(costs))
    print("\n".join(["", "ms per MB", *scaling]))
    if not (options.only or options.size or options.quick):
        figures = claims(program, runs)
        sections = [*machine(load), "", "## Two figures", "", *figures, "", "## Workloads", "", *lines,
                    "", SCALING_TITLE, "", *scaling]
        DOCUMENT.write_text(DOCUMENT_HEAD.format(runs=runs) + "\n" + "\n".join(sections) + "\n")
        subprocess.run([sys.executable, ROOT / "tools" / "gen_readme.py"], check=True)


if __name__ == "__main__":
    main()
