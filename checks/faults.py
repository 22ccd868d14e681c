"""Whatever call fails, nothing may be lost in silence.

A checking build makes a call of the operating system fail when it is told to (host/host_faults.cc).
Here every call of every kind fails once, and again together with all that follow it, in runs that
write everything the program can write. Such a run must end with status 0 or 1. With status 0 all
is as it would have been; with status 1 something has been said. What the run reads is untouched,
an archive keeps what was in it, and no other file is left.

A signal that ends the process comes right before each call that can change a file, too: then the
text may be cut off, but nothing else may be half done or left behind.

    python3 checks/faults.py [--program build/checking/bin/cpp] [--only SCENARIO] [--kind KIND]
"""

import argparse
import concurrent.futures
import dataclasses
import os
import pathlib
import re
import signal
import subprocess
import sys
import tempfile
import zipfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
TIMEOUT = 60
# How many of the faults of one kind in one scenario are shown.
SHOWN = 3
KINDS = ("open", "read", "write", "close", "stat", "truncate", "duplicate", "unlink", "rename",
         "list", "alloc")

# Before these a signal makes a difference. Which one, turns from call to call.
CHANGES = ("open", "write", "close", "truncate", "duplicate", "unlink", "rename")
LATER, SIGNAL = "+", "signal"
SIGNALS = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP)

# Calls that ask something the program can do without: whether a name is stored as it is spelled,
# where an installation is. What the trace and the page tell may then be another story, and the
# warnings about spelling may be missing.
QUESTIONS = ("open", "read", "stat", "list", "alloc")
SPELLING = {"164", "165"}

# Headers found at once, by search and by another case of letters.
SOURCE = b"""#define VALUE(n) (n + 1)
#include "a.h"
#include <b.h>
#include "A.H"
#warning look
#if VALUE(2) == 3
VALUE(1) A B
#endif
"""
INPUTS = {
    "in.c": SOURCE,
    # Fills the output's buffer more than once.
    "long.c": SOURCE + b"VALUE(1) A B and text that is longer than what it comes from\n" * 6000,
    "a.h": b"#define A 1\nfrom a\n",
    "inc/b.h": b"#ifndef B\n#define B A\n#endif\n",
    "cmd.txt": b"-W-9 -Iinc/ -DX in.c\nout.i\n",
    "20990101000000_en.msgs": b"164\t0\tother letters: %s\n",
}
OLD_TEXT = b"what was here before\n"
BEFORE = {"kept.txt": OLD_TEXT}  # what the archive holds
TRACES = ("page.json", "trace.txt", "preprocessor-1.out", "new.zip", "kept.zip")
BY_PRODUCTS = (*TRACES, "r.htm", "toc_r.htm", "main_r.htm")
OUTPUTS = ("out.i", "r.htm", "trace.txt", "err.txt")
COMMON = ["-W-9", "-Iinc/"]
TIMELESS = ["-U__DATE__", "-U__TIME__"]
SCENARIOS = {
    "plain": [*COMMON, "long.c", "out.i"],
    "standard output": [*COMMON, "in.c"],
    "command file": ["@cmd.txt"],
    "definitions": [*COMMON, *TIMELESS, "-dM", "in.c", "out.i"],
    "dependencies": [*COMMON, "-Lgcc", "in.c", "out.i"],
    "report": [*COMMON, *TIMELESS, "--udf=r.htm", "in.c", "out.i"],
    "report page": [*COMMON, *TIMELESS, "--report=page.json", "in.c", "out.i"],
    "trace": [*COMMON, "--kvdebug=on,adt,out:trace.txt", "in.c", "out.i"],
    "new archive": [*COMMON, "--kvdebug=on,zip:new.zip", "in.c", "out.i"],
    "kept archive": [*COMMON, "--kvdebug=on,zip:+kept.zip", "in.c", "out.i"],
    "error file": [*COMMON, "-Eerr.txt", "in.c", "out.i"],
    "message file": [*COMMON, "--edf=20990101000000_en.msgs", "-E1", "in.c", "out.i"],
}


@dataclasses.dataclass
class Run:
    status: int
    out: bytes
    err: bytes
    files: dict  # name: content, of an archive its members
    faults: list  # what failed: the call and its descriptor
    left: list  # temporary files


def archive_of(path):
    try:
        with zipfile.ZipFile(path) as archive:
            return {name: steady(archive.read(name), path.parent) for name in archive.namelist()}
    except (OSError, zipfile.BadZipFile) as error:
        return f"no archive: {error}"


def steady(text, directory):
    """A text without addresses of memory, times and the directory's name."""
    text = re.sub(rb'(_ns":|phase_ns":|"started":)(\d+|{[^}]*}|"[^"]*")', rb"\1-", text)
    return re.sub(rb"0x[0-9a-f]{6,}", b"0x-", text).replace(os.fsencode(directory), b"DIR")


def prepare(directory):
    for name, content in INPUTS.items():
        path = directory / name
        path.parent.mkdir(exist_ok=True)
        path.write_bytes(content)
    for name in OUTPUTS:
        (directory / name).write_bytes(OLD_TEXT)
    with zipfile.ZipFile(directory / "kept.zip", "w") as archive:
        for name, content in BEFORE.items():
            archive.writestr(name, content)
    (directory / "tmp").mkdir()


def run(program, arguments, fault, instead=0):
    """One run in a directory of its own, with a fault as CPP_FAULT has it, or none, or a signal."""
    with tempfile.TemporaryDirectory(prefix="faults-", dir=SCRATCH) as top:
        directory = pathlib.Path(top)
        prepare(directory)
        temp = str(directory / "tmp")
        told, teller = os.pipe()
        env = {"PATH": os.environ["PATH"], "LC_ALL": "C", "TEMP": temp, "TMP": temp,
               "CPP_FAULT_FD": str(teller), **({"CPP_FAULT": fault} if fault else {}),
               **({"CPP_FAULT_SIGNAL": str(int(instead))} if instead else {})}
        try:
            done = subprocess.run([program, *arguments], cwd=directory, env=env, timeout=TIMEOUT,
                                  stdin=subprocess.DEVNULL, capture_output=True, check=False,
                                  pass_fds=[teller])
        finally:
            os.close(teller)
        with os.fdopen(told, "rb") as pipe:
            faults = pipe.read().decode().splitlines()
        files = {}
        for path in sorted(directory.rglob("*")):
            name = path.relative_to(directory).as_posix()
            if path.suffix == ".zip":
                files[name] = archive_of(path)
            elif path.is_file() and not name.startswith("tmp/"):
                files[name] = steady(path.read_bytes(), directory)
        return Run(done.returncode, done.stdout, done.stderr, files, faults, os.listdir(temp))


def lines_of(result):
    """All that was said, wherever it went."""
    return (result.err + result.files.get("err.txt", b"")).decode("latin-1").splitlines()


def numbers_of(lines):
    """The numbers of the messages. Their texts may be the built-in ones where a file was lost."""
    return set(re.findall(r"\((\d+)\)", "\n".join(lines)))


def is_as_without(kind, name, plain, result):
    """Whether a file is what the run without a fault leaves."""
    if name == "err.txt":
        return True  # its messages have been counted
    was, now = plain.files.get(name), result.files.get(name)
    if kind in QUESTIONS and name in TRACES:
        return bool(now) and (not isinstance(was, dict) or now.keys() == was.keys())
    return was == now


def damage(kind, result, statuses=(0, 1)):
    """What a run has done that no failing call excuses, or None."""
    if result.status not in statuses:
        return f"status {result.status}"
    for name, content in INPUTS.items():
        if result.files.get(name) != content:
            return f"{name} is not what it was"
    kept = result.files.get("kept.zip")
    if not isinstance(kept, dict) or {name: kept.get(name) for name in BEFORE} != BEFORE:
        return f"kept.zip has lost what was in it: {kept}"
    if result.left and kind != "unlink":
        return f"temporary files are left: {result.left}"
    return None


def verdict(kind, plain, result):
    """What is wrong with a run in which something failed, or None; `plain` is one without."""
    if damaged := damage(kind, result):
        return damaged
    said, expected = lines_of(result), lines_of(plain)
    told = any(line not in expected for line in said)
    if any("no description is available" in line for line in said):
        return "the catalogue was lost"
    if result.status == 1:
        return None if told or "write 2" in result.faults else "status 1, but nothing was said"
    if result.out != plain.out:
        return "status 0, but another standard output"
    for name in plain.files.keys() | result.files.keys():
        # What comes beside the text is left out with a warning when it cannot be begun.
        if not is_as_without(kind, name, plain, result) and not (
                told and kind in QUESTIONS and name in BY_PRODUCTS):
            return f"status 0, but another {name}"
    missing = numbers_of(expected) - numbers_of(said)
    if kind in QUESTIONS:
        missing -= SPELLING
    return f"status 0, but not said: {missing}" if missing else None


def verdict_of_signal(sent, plain, result):
    """What is wrong with a run that a signal has ended, or None."""
    if damaged := damage("", result, (-sent,)):
        return damaged
    if others := result.files.keys() - plain.files.keys():
        return f"left behind: {others}"
    archive = result.files.get("new.zip")
    whole = archive in (None, plain.files.get("new.zip"))
    return None if whole else f"half an archive: {archive}"


def check(program, name, kind, later, plain):
    """Has something happen at every call of a kind in turn: it fails ("" for `later`), it and all
    later ones fail (LATER), or a signal comes (SIGNAL). Returns the number of runs and what was
    wrong.
    """
    wrong = []
    number = 0
    while True:
        number += 1
        sent = SIGNALS[number % len(SIGNALS)] if later == SIGNAL else 0
        fault = f"{kind}:{number}" + ("" if sent else later)
        shown = f"{name}, CPP_FAULT={fault}" + (f" CPP_FAULT_SIGNAL={int(sent)}" if sent else "")
        try:
            result = run(program, SCENARIOS[name], fault, sent)
        except subprocess.TimeoutExpired:
            wrong.append(f"{shown}: not ended after {TIMEOUT} s")
            continue
        if not result.faults:
            return number - 1, wrong
        told = verdict_of_signal(sent, plain, result) if sent else verdict(kind, plain, result)
        if told:
            said = result.err.decode("latin-1").strip()[-600:]
            wrong.append(f"{shown} ({', '.join(result.faults[:3])}): {told}"
                         + (f"\n    {said}" if said else ""))


def main():
    global SCRATCH
    parser = argparse.ArgumentParser()
    parser.add_argument("--program", default=str(ROOT / "build/checking/bin/cpp"))
    parser.add_argument("--only", help="this scenario alone")
    parser.add_argument("--kind", help="this kind of call alone")
    options = parser.parse_args()
    for number in SIGNALS:  # what runs in the background may have been started with some ignored
        if signal.getsignal(number) == signal.SIG_IGN:
            signal.signal(number, signal.SIG_DFL)
    program = os.path.abspath(options.program)
    if not os.access(program, os.X_OK):
        sys.exit(f"{program} is missing")
    memory = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None
    passed = failed = 0
    with tempfile.TemporaryDirectory(prefix="cpp-faults-", dir=memory) as SCRATCH, \
            concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        jobs = []
        for name, arguments in SCENARIOS.items():
            if options.only not in (None, name):
                continue
            plain = run(program, arguments, None)
            if plain.status != 0 or plain.left:
                sys.exit(f"{name}: the run fails by itself: {plain.err.decode('latin-1')}")
            jobs += [(kind, pool.submit(check, program, name, kind, later, plain))
                     for kind in KINDS if options.kind in (None, kind)
                     for later in ("", LATER, *([SIGNAL] if kind in CHANGES else []))]
        unmet = {kind for kind, _ in jobs}
        for kind, job in jobs:
            runs, wrong = job.result()
            if runs:
                unmet.discard(kind)
            passed += runs - len(wrong)
            failed += len(wrong)
            for line in wrong[:SHOWN]:
                print(line)
            if len(wrong) > SHOWN:
                print(f"    and {len(wrong) - SHOWN} more like these")
    if unmet and options.only is None:
        print(f"no run has made a call of the kinds {unmet}")
        failed += len(unmet)
    print(f"{passed} passed, {failed} failed")
    return 1 if failed or not passed else 0


if __name__ == "__main__":
    sys.exit(main())
