"""A run that gets no more memory must say so, with message 296 and status 1, and leave nothing behind.

Programs that need more memory the longer they go on are run under limits of the address space, from
one that hardly holds the program itself to one that holds all. Where memory runs out differs with
each limit, so the runs stop in the middle of most things that ask for memory.

    python3 checks/memory.py [--program build/release/bin/cpp] [--step KIB]
"""

import argparse
import os
import pathlib
import resource
import subprocess
import sys
import tempfile

from tally import ROOT, Failure, Tally, same

LIMITS = (8, 64)  # MiB
TIMEOUT = 60
MACROS = 200_000


def programs():
    """Yields (name, {file: text}, arguments)."""
    files = ["in.c", "out.i"]
    macros = "".join(f"#define MACRO_NAME_{n} (value_{n} + {n})\n" for n in range(MACROS))
    warned = macros.replace("99)\n", "99)\n#warning w\n")
    named = "".join(f"-DMACRO_NAME_{n}={n}\n" for n in range(MACROS))
    yield "macros", {"in.c": macros}, files
    yield "macros that are dumped", {"in.c": macros}, ["-dM", *files]
    yield "macros in a report", {"in.c": macros}, ["--udf=r.html", *files]
    yield "macros between messages", {"in.c": warned}, files
    yield "arguments", {"in.c": "x\n", "args": named + "in.c out.i\n"}, ["@args"]
    yield "a trace in a zip", {"in.c": macros}, ["--kvdebug=alerts,zip:p.zip", *files]


def check_run(program, arguments, work, kib, statuses):
    """One run with so much memory; adds its status."""
    def limit():
        resource.setrlimit(resource.RLIMIT_AS, (kib * 1024, kib * 1024))

    with tempfile.TemporaryDirectory(dir=work) as temp:
        done = subprocess.run([program, *arguments], cwd=work, preexec_fn=limit, timeout=TIMEOUT,
                              capture_output=True, env={"TEMP": temp, "TMP": temp},
                              stdin=subprocess.DEVNULL, check=False)
        same(f"left in TEMP after {kib} KiB", os.listdir(temp), [])
    statuses.append(done.returncode)
    told = done.stderr.count(b"(296) out of memory")
    if (done.returncode, told) not in ((0, 0), (1, 1)):
        raise Failure(f"{kib} KiB: status {done.returncode}: {done.stderr[-300:]}")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--program", default=str(ROOT / "build/release/bin/cpp"))
    parser.add_argument("--step", type=int, default=3072)
    options = parser.parse_args()
    program = pathlib.Path(options.program).resolve()
    steps = Tally()
    for name, files, arguments in programs():
        statuses = []
        with tempfile.TemporaryDirectory() as work:
            for file, text in files.items():
                pathlib.Path(work, file).write_text(text)
            for kib in range(LIMITS[0] * 1024, LIMITS[1] * 1024 + 1, options.step):
                steps.check(check_run, program, arguments, work, kib, statuses)
        print(f"{name}: out of memory under {statuses.count(1)} limits", flush=True)
        steps.check(same, f"whether {name} were ever short of memory", 1 in statuses, True)
    return steps.close()


if __name__ == "__main__":
    sys.exit(main())
