"""Runs the fuzz targets on inputs that are made from the whole-program cases.

    python3 fuzz/run.py [--seconds 60] [--runs N] [--seed N] [--target NAME]...

What a target finds is kept in build/fuzz/findings and tried again the next time, until it is
mended; then it goes to the target's corpus, which also grows from run to run. An input is text:
fuzz/harness.h tells its form, and a target with a file as its argument runs that input alone.

With --seed the corpus of earlier runs is left out, so that the same inputs come in the same order;
without it a seed is chosen and printed. The last line is 'N passed, N failed', a target counting as
one.
"""

import argparse
import hashlib
import os
import pathlib
import random
import re
import shlex
import shutil
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
BUILD = ROOT / "build/fuzz"
sys.path[:0] = [str(ROOT / "tests"), str(ROOT / "checks")]
import run_cases  # noqa: E402
import writer  # noqa: E402

TARGETS = ("input", "messages", "options")
LONGEST = 16384
LONGEST_WORD = 20
# Words of control lines and expressions, conversions of templates, numbers and types of messages.
WORDS = re.compile(rb"\n[ \t]*#[ \t]*\w+ ?|^IFN?DEF |\b(?:sizeof|defined|__\w+__)\b|"
                   rb"%[-+ #0]*[\d.*$]*[a-z%]+|^\d+(?=\t)|(?<=\d)\t-?\w\t", re.M)
# The option sets of the main target, by the letter that chooses each (see input.cc).
MODES = {"-C": "b", "--cmode=tsasm": "c", "-dM": "d", "-Llist": "e", "--cmode=tslink": "f",
         "-E1": "g", "-Lgcc": "h", "--udf=r.htm": "i"}


def read_cases():
    """Yields (words, environment, files) of every case that could run on this host."""
    expander = run_cases.Expander({b"cwd": b"/", b"tmp": b"/tmp", b"bin": b"/inst/bin"})
    for path in sorted((ROOT / "tests/cases").glob("*.case")):
        for case in run_cases.parse(path):
            if case.settings.get("only") == "windows":
                continue
            command = expander.text(case.command).decode("latin-1")
            files = {name: expander.text(run_cases.body_bytes(body))
                     for name, body in case.find("file")}
            for _, body in case.find("stdin"):
                files["stdin"] = expander.text(run_cases.body_bytes(body))
            yield (shlex.split(command)[1:], [expander.text(setting) for setting in case.env],
                   files)


def with_files(first, files):
    """An input: the target's own part and the files behind it."""
    text = first
    for name, body in files.items():
        if text and not text.endswith(b"\n"):
            text += b"\n"
        text += b"--- " + os.fsencode(name) + b"\n" + body
    return text


def seeds():
    """Yields (target, content)."""
    for words, environment, files in read_cases():
        yield "options", with_files("\n".join(words).encode("latin-1"), files)
        others = dict(files)
        if "in.c" in others:
            mode = next((MODES[word] for word in words if word in MODES), "a")
            yield "input", with_files(mode.encode() + others.pop("in.c"), others)
        for name in files:
            if name.endswith((".msgs", "_msgs.txt")):
                yield "messages", files[name]
        texts = [setting.partition(b"=")[2] for setting in environment if b"_FORMAT=" in setting]
        if texts:
            yield "messages", with_files(b"", {"templates": b"\n".join(texts)})
    messages = (ROOT / "common/builtin_catalogue.msgs").read_bytes().splitlines(keepends=True)
    for first in range(0, len(messages), 20):
        yield "messages", b"".join(messages[first:first + 20])


def write_dictionary(target, path):
    """Writes what mutation alone would hardly come upon: the words of the cases, and oddities."""
    words = {oddity.encode("latin-1") for oddity in writer.ODDITIES + writer.ATOMS}
    for arguments, environment, files in read_cases():
        for text in (*files.values(), *environment):
            words.update(WORDS.findall(text))
        if target == "options":
            for option in " ".join(arguments).encode("latin-1").split():
                words |= {option + b"\n", option[:2], option[:option.find(b"=") + 1]}
    with open(path, "w", encoding="ascii") as dictionary:
        for word in sorted(word for word in words if 0 < len(word) <= LONGEST_WORD):
            dictionary.write('"' + "".join(f"\\x{byte:02x}" for byte in word) + '"\n')


def write_seeds(top):
    shutil.rmtree(top, ignore_errors=True)
    for target in TARGETS:
        (top / target).mkdir(parents=True)
    for target, content in seeds():
        if len(content) <= LONGEST:
            (top / target / hashlib.sha1(content).hexdigest()).write_bytes(content)
    for target in TARGETS:
        if not any((top / target).iterdir()):
            sys.exit(f"{target}: no input could be made from the cases")


def run(target, arguments, scratch):
    command = [str(BUILD / f"bin/fuzz_{target}"), f"-max_len={LONGEST}", "-timeout=600",
               "-report_slow_units=600", "-rss_limit_mb=0", "-entropic=0", *arguments]
    return subprocess.run(command, env={**os.environ, "TMPDIR": scratch}, stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)


def report(target, output):
    """Prints what a finding's output says, without the fuzzer's own."""
    start = output.find(b"\nfuzz: ")
    end = output.find(b"ERROR: libFuzzer: deadly signal", start)
    text = output[start:end] if start >= 0 else output[-6000:]
    print(f"{target}: finding\n{text.decode('utf-8', 'backslashreplace')[:12000]}")


def fuzz(target, seeds_dir, options, scratch):
    """Returns whether the target ran without a finding."""
    kept, findings = (BUILD / name / target for name in ("corpus", "findings"))
    corpus = kept if options.seed is None else pathlib.Path(scratch) / target
    for directory in (kept, findings, corpus):
        directory.mkdir(parents=True, exist_ok=True)
    dictionary = pathlib.Path(scratch) / f"{target}.dict"
    write_dictionary(target, dictionary)
    seed = random.randrange(1, 1 << 31) if options.seed is None else options.seed
    arguments = [f"-dict={dictionary}", f"-artifact_prefix={findings}/",
                 "-print_final_stats=1", f"-max_total_time={options.seconds}", f"-seed={seed}"]
    if options.runs:
        arguments.append(f"-runs={options.runs}")
    done = run(target, [*arguments, *map(str, (corpus, findings, seeds_dir / target))], scratch)
    counted = re.search(rb"^stat::number_of_executed_units: +(\d+)", done.stdout, re.M)
    runs = int(counted[1]) if counted else 0
    well = runs > 0 and done.returncode == 0
    found = [path.relative_to(ROOT) for path in sorted(findings.iterdir())]
    if well:
        end = "clean"
        for path in findings.iterdir():
            path.rename(kept / path.name)
    else:
        report(target, done.stdout)
        end = f"kept in {', '.join(map(str, found))}" if found else f"status {done.returncode}"
    print(f"{target}: seed {seed}, {runs} runs, {end}", flush=True)
    return well


def main():
    parser = argparse.ArgumentParser(description="Runs the fuzz targets.")
    parser.add_argument("--seconds", type=int, default=60, help="for each target (default 60)")
    parser.add_argument("--runs", type=int, help="end a target after so many runs")
    parser.add_argument("--seed", type=int, help="begin with the cases alone, and with this number")
    parser.add_argument("--target", action="append", choices=TARGETS, help="only this one")
    options = parser.parse_args()
    write_seeds(BUILD / "seeds")
    passed = failed = 0
    memory = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None
    with tempfile.TemporaryDirectory(prefix="cpp-fuzz-", dir=memory) as scratch:
        for target in options.target or TARGETS:
            if fuzz(target, BUILD / "seeds", options, scratch):
                passed += 1
            else:
                failed += 1
    print(f"{passed} passed, {failed} failed")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
