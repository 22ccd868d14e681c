"""The program in builds: examples/firmware by make, by Ninja and by CMake with either of them.

Each way is taken through the life of a project: the first build, one with nothing to do, headers
that change and one that is deleted, a failing file, names that build tools find awkward, a source
tree that is only read. What a build does is told by a log of the preprocessor's runs. Then come
targets with awkward names, ccache in front of the compiler, and distcc, which has two servers of
this machine compile what was preprocessed here.

    python3 checks/builds.py [--build build/release]

What is missing is installed.
"""

import argparse
import contextlib
import os
import pathlib
import re
import shutil
import socket
import subprocess
import sys
import tempfile
import time

import tally
from tally import ROOT

FIRMWARE = ROOT / "examples" / "firmware"
TOOLS = (("make", "make"), ("ninja", "ninja-build"), ("cmake", "cmake"), ("awk", "mawk"),
         ("ccache", "ccache"), ("distcc", "distcc"), ("distccd", "distcc"))
PRINTED = "divider 103\nfirmware 1.2\nled 1\nled 0\nled 1\n"
UART = "uart.c"
ALL = {"main.c", "scheduler.c", UART}
NOBODY = 65534
LONG = 120


def last_lines(text):
    return "\n".join(text.splitlines()[-8:])


class Project:
    """A copy of the firmware and a directory in which it is built one way."""

    def __init__(self, tools, top):
        self.source = top / "source"
        self.place = top / "place"  # where builds happen
        shutil.copytree(FIRMWARE, self.source)
        self.place.mkdir()
        self._log = top / "runs"
        self._log.touch()
        self._log.chmod(0o666)
        self.env = dict(os.environ, PATH=f"{tools}:{os.environ['PATH']}", RUNS=str(self._log))
        self.user = None

    def run(self, command, env=None):
        """Runs a command where builds happen. Returns its status and all that it wrote."""
        done = subprocess.run([str(word) for word in command], cwd=self.place,
                              env=dict(self.env, **env or {}), stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, text=True, timeout=LONG, check=False,
                              user=self.user)
        return done.returncode, done.stdout

    def preprocessed(self):
        """The sources that have been preprocessed since this was last asked."""
        runs = self._log.read_text().splitlines()
        os.truncate(self._log, 0)
        return [pathlib.Path(run).name for run in runs]

    # A way to build has a command, and the directory below `place` where results lie.
    results = "build"

    def prepare(self):
        """What precedes the first build."""

    def command(self, *options):
        raise NotImplementedError

    def build(self, *options, env=None):
        """Builds; raises where that fails. Returns the set of sources that were preprocessed."""
        status, told = self.run(self.command(*options), env)
        if status != 0:
            raise tally.Failure("the build fails, at its end:\n" + last_lines(told))
        runs = self.preprocessed()
        tally.same("runs for each source", len(set(runs)), len(runs))
        return set(runs)

    def clean(self):
        self.preprocessed()
        shutil.rmtree(self.place)
        self.place.mkdir()
        self.prepare()

    def result(self):
        return self.place / self.results

    def text_of(self, source):
        """The path of a source's preprocessed text."""
        return self.result() / f"{pathlib.Path(source).stem}.i"


class Make(Project):
    def command(self, *options):
        return ["make", "-f", self.source / "Makefile", f"SRC={self.source}", *options]


class Ninja(Project):
    def prepare(self):
        text = (self.source / "build.ninja").read_text()
        (self.place / "build.ninja").write_text(text.replace("src = .\n", f"src = {self.source}\n"))
        (self.place / "build/gen").mkdir(parents=True, exist_ok=True)

    def command(self, *options):
        return ["ninja", *options]


class CMakeNinja(Project):
    generator = "Ninja"

    def prepare(self):
        status, told = self.run(["cmake", "-G", self.generator, "-S", self.source, "-B", "build",
                                 f"-DCMAKE_MODULE_PATH={ROOT / 'cmake'}"])
        tally.same(f"configuring:\n{told}", status, 0)

    def command(self, *options):
        return ["cmake", "--build", "build", *options]

    def text_of(self, source):
        return self.result() / "CMakeFiles/firmware.dir/src" / f"{source}.o.i"


class CMakeMake(CMakeNinja):
    generator = "Unix Makefiles"


def touch(path):
    """Gives a file the time now, which is later than that of all that was built before."""
    time.sleep(0.02)
    os.utime(path)


def write(path, text):
    time.sleep(0.02)
    path.write_text(text)


@contextlib.contextmanager
def edited(project, name, old, new):
    """A source with `new` in the place of `old`; afterwards it is as before, and built."""
    path = project.source / name
    text = path.read_text()
    tally.same(f"places of {old!r} in {name}", text.count(old), 1)
    write(path, text.replace(old, new))
    try:
        yield
    finally:
        write(path, text)
    project.build()


def included(project, name):
    """src/scheduler.c with another header."""
    line = '#include "scheduler.h"\n'
    return edited(project, "src/scheduler.c", line, f'{line}#include "{name}"\n')


def prints(project, text=PRINTED):
    status, told = project.run([project.result() / "firmware"])
    tally.same("what the firmware prints", (status, told), (0, text))


# ---- The life of a project. Each step finds a project that is built.

def first_build(project):
    tally.same("preprocessed", project.build(), ALL)
    prints(project)


def nothing_to_do(project):
    tally.same("preprocessed again", project.build(), set())


def headers_rebuild_their_users(project):
    for name, users in (("include/uart.h", {"main.c", "uart.c"}),
                        ("include/scheduler.h", {"main.c", "scheduler.c"}),
                        ("include/version.h", {"main.c"}),
                        ("pins.txt", {"main.c", "uart.c"})):
        touch(project.source / name)
        tally.same(f"users of {name}", project.build(), users)
        tally.same(f"preprocessed again after {name}", project.build(), set())


def changed_header_is_used(project):
    with edited(project, "include/version.h", "VERSION_MINOR 2", "VERSION_MINOR 3"):
        project.build()
        prints(project, PRINTED.replace("1.2", "1.3"))


def deleted_header_does_not_stop(project):
    header = project.source / "include/old.h"
    header.write_text("#define OLD 1\n")
    with included(project, "old.h"):
        tally.same("users of a new header", project.build(), {"scheduler.c"})
        header.unlink()
        with edited(project, "src/scheduler.c", '#include "old.h"\n', ""):
            tally.same("users of the deleted header", project.build(), {"scheduler.c"})
            tally.same("preprocessed again", project.build(), set())
            header.write_text("")


def failing_file_is_built_again(project):
    with edited(project, "src/uart.c", '#include "board.h"\n', '#include "board.h"\n#error no\n'):
        for attempt in ("first", "second"):
            status, told = project.run(project.command())
            if status == 0 or not re.search(r"src/uart\.c:4:9: error: #error: no \[103\]", told):
                raise tally.Failure(f"the {attempt} attempt ends with {status}:\n{last_lines(told)}")
            tally.same(f"preprocessed at the {attempt} attempt", project.preprocessed(), [UART])
            if project.text_of(UART).exists():
                raise tally.Failure("a failing file leaves its text")
    prints(project)


def awkward_header_names(project):
    header = project.source / "include" / "odd dir" / "a b$c#d$(e).h"
    header.parent.mkdir()
    header.write_text("#define ODD 1\n")
    with included(project, "odd dir/a b$c#d$(e).h"):
        tally.same("preprocessed", project.build(), {"scheduler.c"})
        tally.same("preprocessed again", project.build(), set())
        touch(header)
        tally.same("users of the header", project.build(), {"scheduler.c"})


def header_by_another_case(project):
    """A name opens in any letters; the rule must have those of the file."""
    with included(project, "Uart.h"):
        project.build()
        tally.same("preprocessed again", project.build(), set())
        touch(project.source / "include/uart.h")
        tally.same("users of the header", project.build(), ALL)


def two_at_once(project):
    project.clean()
    tally.same("preprocessed", project.build("-j2"), ALL)
    prints(project)


def read_only_sources(project):
    def contents():
        return {path: path.stat().st_mtime_ns for path in project.source.rglob("*")}

    project.clean()
    before = contents()
    # Permissions bind everybody but the superuser, who therefore has another user build.
    for path in [project.source, *before]:
        path.chmod(0o555 if path.is_dir() else 0o444)
    if os.getuid() == 0:
        for path in [project.place, *project.place.rglob("*")]:
            os.chown(path, NOBODY, NOBODY)
        project.user = NOBODY
    try:
        status, _ = project.run(["touch", project.source / "probe"])
        if status == 0:
            raise tally.Failure("the source tree can be written")
        tally.same("preprocessed", project.build(), ALL)
        tally.same("preprocessed again", project.build(), set())
        prints(project)
    finally:
        project.user = None
        for path in [project.source, *before]:
            path.chmod(0o755 if path.is_dir() else 0o644)
    tally.same("the source tree", contents(), before)


LIFE = [first_build, nothing_to_do, headers_rebuild_their_users, changed_header_is_used,
        deleted_header_does_not_stop, failing_file_is_built_again, awkward_header_names,
        header_by_another_case, two_at_once, read_only_sources]


# ---- Targets with awkward names.

TARGETS = ["two words.i", "$money.i", "sharp#.i", "a:b.i", "back\\slash.i", "back\\ slash.i",
           "all\\ \\#of $it:.i"]


def target_in_make(project, target):
    """The name that make reads from the rule."""
    rule = project.place / "rule.d"
    write_rule(project, target, rule)
    _, database = project.run(["make", "-pq", "-f", rule])
    if f"{target}: in.c h.h" not in database.splitlines():
        raise tally.Failure(f"make does not find {target!r} in\n{rule.read_text()}")


def target_in_ninja(project, target):
    """Ninja refuses a rule that is not for the output that it has asked for."""
    rule = project.place / "rule.d"
    write_rule(project, target, rule)
    name = re.sub("([$ :])", r"$\1", target)
    (project.place / "build.ninja").write_text(
        "rule make\n  command = touch made && cp rule.d used.d\n  depfile = used.d\n"
        f"  deps = gcc\nbuild {name}: make in.c\n")
    status, told = project.run(["ninja"])
    tally.same(f"ninja:\n{told}", status, 0)
    _, known = project.run(["ninja", "-t", "deps"])
    tally.same("dependencies", re.findall(r"^ +(\S+)$", known, re.M), ["in.c", "h.h"])
    (project.place / ".ninja_deps").unlink()
    (project.place / ".ninja_log").unlink()


def write_rule(project, target, rule):
    (project.place / "in.c").write_text('#include "h.h"\n')
    (project.place / "h.h").touch()
    status, told = project.run(["vex-cpp", f"--dep={rule}", f"--dep_target={target}", "in.c",
                                "-o", os.devnull])
    tally.same("the run that writes the rule", (status, told), (0, ""))


# ---- ccache and distcc, each around the compiler of the Makefile.

def objects(project):
    return {path.name: path.read_bytes() for path in project.result().glob("*.o")}


def cached_by_ccache(project):
    env = {"CCACHE_DIR": str(project.place.parent / "ccache"), "CC": "ccache cc"}

    def hits():
        _, told = project.run(["ccache", "--print-stats"], env)
        counts = dict(line.split("\t") for line in told.splitlines())
        return int(counts["direct_cache_hit"]) + int(counts["preprocessed_cache_hit"])

    project.clean()
    project.build(env=env)
    first = objects(project), hits()
    tally.same("objects that were compiled", (len(first[0]), first[1]), (len(ALL), 0))
    project.clean()
    project.build(env=env)
    tally.same("objects from the cache", (objects(project) == first[0], hits()), (True, len(ALL)))


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


@contextlib.contextmanager
def distcc_server(top, number):
    """A compile server on a port of this machine. Gives the port and the server's log."""
    port, log = free_port(), top / f"server-{number}.log"
    log.touch()
    log.chmod(0o666)
    user = ["--user", "nobody"] if os.getuid() == 0 else []
    server = subprocess.Popen(
        ["distccd", "--no-detach", "--daemon", "--port", str(port), "--listen", "127.0.0.1",
         "--allow", "127.0.0.1", "--jobs", "2", "--log-file", log, "--enable-tcp-insecure", *user],
        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    try:
        end = time.monotonic() + tally.TIMEOUT
        while time.monotonic() < end:
            with contextlib.suppress(OSError), socket.create_connection(("127.0.0.1", port)):
                break
            time.sleep(0.02)
        yield port, log
    finally:
        server.terminate()
        server.wait()


def compiled_by_two_servers(project):
    project.clean()
    project.build()
    local = objects(project)
    top = project.place.parent
    with distcc_server(top, 1) as one, distcc_server(top, 2) as two:
        for path in project.result().glob("*.o"):
            path.unlink()
        env = {"DISTCC_DIR": str(top), "DISTCC_FALLBACK": "0", "CC": "distcc cc",
               "DISTCC_HOSTS": " ".join(f"127.0.0.1:{port}/1" for port, _ in (one, two))}
        tally.same("preprocessed again", project.build("-j2", env=env), set())
        compiled = [log.read_text().count("COMPILE_OK") for _, log in (one, two)]
    tally.same("objects of the servers are those of this machine", objects(project) == local, True)
    tally.same("objects compiled", sum(compiled), len(ALL))
    if 0 in compiled:
        raise tally.Failure(f"the servers compiled {compiled}")
    prints(project)


# ---- What an installation has for CMake.

def installed_module(build, top):
    """find_package finds the module of an installation tree, and that the program beside it."""
    prefix = top / "prefix"
    status, _, err = tally.run(["cmake", "--install", build, "--prefix", prefix], top)
    tally.same("installing", (status, err), (0, ""))
    place = top / "installed"
    place.mkdir()
    for command in (["cmake", "-S", prefix / "examples/firmware", "-B", place,
                     f"-DCMAKE_PREFIX_PATH={prefix}", "--no-warn-unused-cli"],
                    ["cmake", "--build", place]):
        status, out, err = tally.run(command, place, timeout=LONG)
        tally.same(f"{command[1]}:\n{last_lines(out)}", (status, err), (0, ""))
    cached = (place / "CMakeCache.txt").read_text()
    tally.same("the program", re.search("CPP_PREPROCESS_PROGRAM:.*=(.*)", cached)[1],
               str(prefix / "bin/cpp"))
    tally.same("what the firmware prints", tally.run([place / "firmware"], place)[1], PRINTED)


# ---- The run.

def make_tools(top, program):
    """A directory with vex-cpp, which notes the source of each run that succeeds or fails."""
    tools = top / "tools"
    tools.mkdir()
    shutil.copy2(program, tools / "cpp")
    script = tools / "vex-cpp"
    script.write_text(f"""#!/bin/sh
for word; do
  case $word in *.c) echo "$word" >>"$RUNS" ;; esac
done
exec {tools}/cpp "$@"
""")
    script.chmod(0o755)
    return tools


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("--build", type=pathlib.Path, default=ROOT / "build/release")
    build = parser.parse_args().build.resolve()
    tally.need(*TOOLS)
    steps = tally.Tally()
    with tempfile.TemporaryDirectory(prefix="cpp-builds-", ignore_cleanup_errors=True) as name:
        top = pathlib.Path(name).resolve()
        top.chmod(0o755)
        tools = make_tools(top, build / "bin/cpp")
        for way in (Make, Ninja, CMakeNinja, CMakeMake):
            (top / way.__name__).mkdir()
            project = way(tools, top / way.__name__)
            project.prepare()
            for step in LIFE:
                steps.check(step, project)
        (top / "more").mkdir()
        project = Make(tools, top / "more")
        for target in TARGETS:
            steps.check(target_in_make, project, target)
            steps.check(target_in_ninja, project, target)
        steps.check(cached_by_ccache, project)
        steps.check(compiled_by_two_servers, project)
        steps.check(installed_module, build, top)
    return steps.close()


if __name__ == "__main__":
    sys.exit(main())
