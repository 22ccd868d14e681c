"""The time of a whole build of Lua with each preprocessor in front of the same compiler.

    python3 bench/build.py [--runs N] [--program PATH] [--optimize=-O2]

A makefile preprocesses each source into a text and a rule of its headers, and compiles the text; it
is the same for all but for the command of its first step. The builds take turns, from scratch and
after touching one header, and that step is timed by itself, too. The objects must be the same
whoever made the texts.
"""

import argparse
import os
import pathlib
import shutil
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT / "tools"))

import corpus  # noqa: E402  (found through the line above)

PACKAGES = ROOT / "build/real-input/packages"
SCRATCH = ROOT / "build/bench/lua"
TOUCHED = "lobject.h"

MAKEFILE = """\
TEXTS := $(patsubst %.c,%.i,$(notdir $(wildcard $(SRC)/*.c)))
liblua.a: $(TEXTS:.i=.o)
	rm -f $@ && ar rcs $@ $^
texts: $(TEXTS)
%.o: %.i
	gcc -m32 -w $(OPTIMIZE) -x cpp-output -c $< -o $@
%.i: $(SRC)/%.c
	$(PREPROCESS)
-include $(TEXTS:=.d)
"""


def rules(program, headers):
    """The first step of each preprocessor as make has it: the text and the rule beside it."""
    flags = f"-I{headers} -D__i386__=1 -D__ILP32__=1 -D_GNU_SOURCE=1 -DLUA_COMPAT_ALL"
    cc1 = subprocess.run(["gcc", "-print-prog-name=cc1"], capture_output=True, text=True, check=True)
    clang = os.path.realpath(shutil.which("clang"))
    return {
        "cpp": f"{program} --markers=gcc --dep=$@.d {flags} $< -o $@",
        "cc1": f"{cc1.stdout.strip()} -E -quiet -w -undef -nostdinc -std=gnu90 -MD $@.d -MQ $@ "
               f"{flags} $< -o $@",
        "clang": f"{clang} -cc1 -E -w -undef -std=gnu89 -dependency-file $@.d -sys-header-deps "
                 f"-MT $@ {flags} $< -o $@",
    }


def build(directory, source, optimize, rule, target):
    """Seconds of `make target`, and the preprocessor's runs in it."""
    start = time.perf_counter()
    done = subprocess.run(["make", "-f", "../Makefile", f"SRC={source}", f"OPTIMIZE={optimize}",
                           f"PREPROCESS={rule}", target],
                          cwd=directory, capture_output=True, text=True)
    seconds = time.perf_counter() - start
    if done.returncode != 0:
        sys.exit(f"{directory.name}: {done.stdout[-1000:]}{done.stderr[-2000:]}")
    return seconds, done.stdout.count(rule.split()[0])


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--runs", type=int, default=5)
    parser.add_argument("--program", default=str(ROOT / "build/release/bin/cpp"))
    parser.add_argument("--optimize", default="-O2")
    options = parser.parse_args()
    corpus.fetch(PACKAGES)
    original = next(p for p in sorted((PACKAGES / "lua5.1").iterdir()) if p.is_dir()) / "src"
    shutil.rmtree(SCRATCH, ignore_errors=True)
    SCRATCH.mkdir(parents=True)
    source = SCRATCH / "src"
    shutil.copytree(original, source)
    (SCRATCH / "Makefile").write_text(MAKEFILE)
    table = rules(os.path.abspath(options.program), PACKAGES / "musl-dev/usr/include/i386-linux-musl")
    times, runs, objects = {}, {}, {}
    for _ in range(options.runs):
        for name, rule in table.items():
            def timed(kind, target):
                seconds, count = build(SCRATCH / name, source, options.optimize, rule, target)
                times[name, kind] = min(seconds, times.get((name, kind), seconds))
                runs[name, kind] = count

            shutil.rmtree(SCRATCH / name, ignore_errors=True)
            (SCRATCH / name).mkdir()
            timed("texts alone", "texts")
            shutil.rmtree(SCRATCH / name)
            (SCRATCH / name).mkdir()
            timed("all", "liblua.a")
            time.sleep(0.01)  # so that the header is newer, however coarse the file system's clock is
            (source / TOUCHED).touch()
            timed("all, one header touched", "liblua.a")
            timed("all, nothing to do", "liblua.a")
            objects[name] = {path.name: path.read_bytes()
                             for path in sorted((SCRATCH / name).glob("*.o"))}
    for name, made in objects.items():
        differing = [each for each in made if made[each] != objects["cpp"].get(each)]
        if differing or made.keys() != objects["cpp"].keys():
            print(f"{name}: other objects than cpp's: {differing}")
    kinds = [kind for name, kind in times if name == "cpp"]
    print(f"seconds, least of {options.runs}; preprocessor runs in brackets")
    print("| program | " + " | ".join(kinds) + " |")
    print("| --- |" + " ---: |" * len(kinds))
    for name in table:
        print(f"| {name} | " + " | ".join(f"{times[name, kind]:.2f} ({runs[name, kind]})"
                                          for kind in kinds) + " |")


if __name__ == "__main__":
    main()
