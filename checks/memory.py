"""A run that gets no more memory must say so, with message 296 and status 1, and leave nothing behind.

Programs that need more memory the longer they go on are run under limits of the address space, from
one that hardly holds the program itself to one that holds all. Where memory runs out differs with
each limit, so the runs stop in the middle of most things that ask for memory.

    python3 checks/memory.py [--program build/release/bin/cpp] [--step KIB]
"""

import argparse
import pathlib
import resource
import shutil
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
LIMITS = (8, 64)  # MiB
TIMEOUT = 60
MACROS = 200_000


def programs():
    """Yields (name, {file: text}, arguments)."""
    macros = "".join(f"#define MACRO_NAME_{n} (value_{n} + {n})\n" for n in range(MACROS))
    yield "macros", {"in.c": macros}, []
    yield "macros that are dumped", {"in.c": macros}, ["-dM"]
    yield "macros in a report", {"in.c": macros}, ["--udf=r.html"]
    warned = macros.replace("99)\n", "99)\n#warning w\n")
    yield "macros between messages", {"in.c": warned}, []
    yield "arguments", {"in.c": "x\n", "args": "".join(f"-DMACRO_NAME_{n}={n}\n" for n in range(MACROS))
                        + "in.c out.i\n"}, ["@args"]
    yield "a trace in a zip", {"in.c": macros}, ["--kvdebug=alerts,zip:p.zip"]


def run(program, arguments, work, kib):
    def limit():
        resource.setrlimit(resource.RLIMIT_AS, (kib * 1024, kib * 1024))

    command = [program, *arguments] + (["in.c", "out.i"] if not arguments[:1] == ["@args"] else [])
    temp = work / "tmp"
    temp.mkdir()
    done = subprocess.run(command, cwd=work, preexec_fn=limit, capture_output=True, timeout=TIMEOUT,
                          env={"TEMP": str(temp), "TMP": str(temp)}, stdin=subprocess.DEVNULL,
                          check=False)
    left = sorted(path.name for path in temp.iterdir())
    shutil.rmtree(temp)
    return done.returncode, done.stderr.decode("latin-1"), left


def fault(status, messages, left):
    """What is wrong with the end of a run; None where nothing is."""
    if left:
        return f"left in TEMP: {left}"
    if status not in (0, 1):
        return f"status {status}: {messages[-300:]!r}"
    if status == 1 and messages.count("(296) out of memory") != 1:
        return f"status 1 without one message 296: {messages[-300:]!r}"
    return None


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--program", default=str(ROOT / "build/release/bin/cpp"))
    parser.add_argument("--step", type=int, default=3072)
    options = parser.parse_args()
    program = pathlib.Path(options.program).resolve()
    passed = failed = 0
    for name, files, arguments in programs():
        short = 0
        with tempfile.TemporaryDirectory() as scratch:
            work = pathlib.Path(scratch)
            for file, text in files.items():
                (work / file).write_text(text)
            for kib in range(LIMITS[0] * 1024, LIMITS[1] * 1024 + 1, options.step):
                result = run(program, arguments, work, kib)
                short += result[0] == 1
                wrong = fault(*result)
                if wrong:
                    failed += 1
                    print(f"{name}, {kib} KiB: {wrong}")
                else:
                    passed += 1
        print(f"{name}: out of memory under {short} limits", flush=True)
        if short == 0:
            failed += 1
            print(f"{name}: was never short of memory, so nothing was tried")
    print(f"{passed} passed, {failed} failed")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
