#!/usr/bin/env python3
"""Runs the whole-program cases of tests/cases/*.case against a built cpp, and the examples of
docs/language.md, which are cases in the form of a document.

    run_cases.py [--launcher WINE] [--only TEXT] PROGRAM [FILE.case|FILE.md ...]

A case is a title that says the behaviour, a command, input files and what must come out:

    === a comment between two letters reads as one blank
    $ ! cpp -DX in.c
    a/**/b
    #error X
    --- text
    a b

    --- stderr
    in.c: ...

Beneath the title stand these lines, each of them optional:

    $ cpp ARGS            the command, with status 0; words are split as a shell does
                          (default: cpp in.c)
    $ ! cpp ARGS          a command that fails, with status 1
    $ NAME=VALUE cpp ARGS a command with an environment variable; there may be more of them
    only: posix|windows   the case is skipped on the other system
    limit: N              no file may become larger than N bytes (posix)
    output to: FILE       standard output is appended to FILE, or "closed": a pipe without reader
    errors to: FILE       the same for standard error
    input from: FILE      standard input is FILE, a directory, or "terminal": what stdin has is typed
    layout: installed     the program runs from an installation tree: inst/bin, inst/vex/dat, ...
    layout: installed DIR the program runs from inst/DIR, and the case makes the rest of the tree

then the lines of in.c, which is empty where there are none (and has a section of its own where it
begins with a blank line or with what could be one of these), and then sections, each a header line
and the lines up to the next header:

    --- file NAME         an input file (directories are made)
    --- dir NAME          an empty directory
    --- link NAME TARGET  a symbolic link
    --- hardlink NAME TARGET    another name of an input file
    --- stdin             the standard input (default: empty)
    --- stdout            the standard output, exactly
    --- text              the same, led by the first line marker of in.c (a blank line and # 1 "in.c")
    --- stderr            the standard error, exactly; empty when the section is missing
    --- output NAME       the content of a file the run must leave behind
    --- absent NAME       a file that must not be there after the run
    --- zip NAME MEMBER   the content of a file in a zip archive that the run must leave behind

A case has a stdout or a text section, or prints nothing. Variants of it may follow, each behind a
title of its own that begins with '+++': a variant is the case over again, but for the lines and
sections that stand beneath its own title. One blank line before the next title separates the cases
and belongs to no section. Lines that begin with '##' before the first title of a file are comments.
In a section, its name and commands {{...}} stands for what is awkward to write:

    {{noeol}}             (at a section's end) no newline after the last line
    {{cr}} {{nul}} {{tab}} {{sp}} {{0x80}}    one byte; {{sp}} also for a blank at a line's end
    {{rep:TEXT:N}}        TEXT N times (TEXT may hold \\n and the bytes above as \\xNN)
    {{seq:N:TEXT}}        TEXT N times with %d counting from 1
    {{cwd}} {{tmp}} {{bin}}                   the case's directory, its TEMP, the program's directory,
                          as the program's system spells them
and, in expected text only:
    {{date}} {{time}}     as __DATE__ and __TIME__ give them, with their quotes
    {{re:PATTERN}}        a regular expression

Every case runs in a fresh directory that holds its files alone, with TEMP and TMP set to another
that must be empty again after the run; a file whose name the case nowhere has must not be left. On
Windows line ends are compared as plain newlines, in a section with {{cr}} as they are. The last
line is 'N passed, N failed', with ', N skipped' where it applies. When all files are run, one more
test is whether the cases raise every message of the catalogue.

A PROGRAM that ends in .exe is run by LAUNCHER on another system. Wine's drive Z: is that system's
root, and it takes TEMP and TMP from WINETEMP and WINETMP, if its registry sets neither.
"""

import argparse
import concurrent.futures
import difflib
import os
import pathlib
import re
import shlex
import shutil
import subprocess
import sys
import tempfile
import zipfile

try:
    import resource
except ImportError:  # Windows
    resource = None

ROOT = pathlib.Path(__file__).resolve().parent.parent
LANGUAGE = ROOT / "docs" / "language.md"
CATALOGUE = ROOT / "common" / "builtin_catalogue.msgs"
TIMEOUT = 60
READ_BY_PROGRAM = ("TEMP", "TMP", "TMPDIR", "SOURCE_DATE_EPOCH")
PLACEHOLDER = re.compile(rb"\{\{(.+?)\}\}")
BYTES = {b"cr": b"\r", b"nul": b"\0", b"tab": b"\t", b"sp": b" ", b"noeol": b""}
PATTERNS = {
    b"date": rb'"[A-Z][a-z]{2} [ 1-3][0-9] [0-9]{4}"',
    b"time": rb'"[0-2][0-9]:[0-5][0-9]:[0-6][0-9]"',
}


# Messages of the catalogue that no case can raise, and why.
UNREACHABLE = {
    2: "a message file would have to go between its choice and its reading",
    5: "no part of the program raises it",
    150: "a macro has one of four kinds, and all of them are known",
    152: "a body refers to its own parameters only",
    155: "two pasted names are shorter together than the work buffer",
    158: "frames are left in order",
    159: "what is given back has been read before",
    296: "memory would have to run out, as in checks/memory.py",
    1501: "it reports a fault of the program itself",
    1502: "it reports a fault of the program itself",
    1503: "it reports a fault of the program itself",
    2082: "every directory would have to refuse a temporary file",
}


class BadCase(Exception):
    pass


class Case:
    def __init__(self, path, line, title):
        self.where = f"{path.name}:{line}"
        self.title = title
        self.command = b"cpp in.c"
        self.status = 0
        self.env = []
        self.settings = {}  # the lines that begin with a word of SETTING
        self.sections = []
        self.base = []  # the sections of the case that this is a variant of

    def variant(self, path, line, title):
        made = Case(path, line, title)
        made.command, made.status, made.env = self.command, self.status, self.env
        made.settings, made.base = dict(self.settings), self.sections
        return made

    def inherit(self):
        """Takes from the base what has no section here that is about the same thing."""
        own = [subject(section) for section in self.sections]
        self.sections += [section for section in self.base if subject(section) not in own]

    def find(self, kind):
        return [(name, body) for k, name, body in self.sections if k == kind]


def subject(section):
    kind, name, _ = section
    return {"text": "stdout", "absent": "output"}.get(kind, kind), name


SETTING = re.compile(rb"(limit|input from|output to|errors to): (.+)|(only): (posix|windows)|"
                     rb"(layout): (installed(?: .+)?)")
STREAMS = {"input from": "stdin", "output to": "stdout", "errors to": "stderr"}
COMMAND = re.compile(rb"\$ (! )?((?:\w+=(?:'[^']*'|[^' ]*) )*)(cpp(?: .*)?)$")
NAMED = {"file", "dir", "link", "hardlink", "output", "absent", "zip"}
KINDS = NAMED | {"stdin", "stdout", "text", "stderr"}


def parse(path):
    """Reads one file of cases; complains about anything it does not know."""
    cases, case, section, base = [], None, None, None
    lines = path.read_bytes().split(b"\n")
    if lines and lines[-1] == b"":
        lines.pop()
    for number, line in enumerate(lines, 1):
        where = f"{path.name}:{number}"
        if line.startswith((b"=== ", b"+++ ")):
            if section is not None:
                if not section or section[-1] != b"":
                    raise BadCase(f"{where}: no blank line before the title")
                section.pop()
            title = line[4:].decode()
            if line.startswith(b"==="):
                case = base = Case(path, number, title)
            elif base is not None:
                case = base.variant(path, number, title)
            else:
                raise BadCase(f"{where}: a variant of nothing")
            cases.append(case)
            section = None
        elif case is None:
            if line and not line.startswith(b"##"):
                raise BadCase(f"{where}: text before the first title")
        elif line.startswith(b"--- "):
            kind, _, name = line[4:].decode().partition(" ")
            if kind not in KINDS or (kind in NAMED) != bool(name):
                raise BadCase(f"{where}: unknown section {line.decode()!r}")
            section = []
            case.sections.append((kind, name, section))
        elif section is not None:
            section.append(line)
        elif command := COMMAND.match(line):
            case.status = 1 if command[1] else 0
            case.env = [word.encode("latin-1") for word in shlex.split(command[2].decode("latin-1"))]
            case.command = command[3]
        elif setting := SETTING.fullmatch(line):
            name, value = filter(None, setting.groups())
            case.settings[name.decode()] = value.decode()
        elif re.match(rb"[a-z ]+:|\$ ", line):
            raise BadCase(f"{where}: unknown line {line.decode()!r}")
        elif line:
            section = [line]
            case.sections.append(("file", "in.c", section))
    for case in cases:
        case.inherit()
    return cases


def parse_document(path):
    """Reads the examples of a document, boxes of Markdown: each ```c box begins one, as its in.c."""
    cases, case, box, heading = [], None, None, b""
    for number, line in enumerate(path.read_bytes().split(b"\n"), 1):
        where = f"{path.name}:{number}"
        if box is not None and line == b"```":
            box = None
        elif box is not None:
            box.append(line)
        elif line.startswith(b"```"):
            kind, _, name = line[3:].decode().partition(" ")
            box = []
            if kind == "c" and not name:
                case = Case(path, number, f"example {len(cases) + 1}, {heading.decode()}")
                case.command = b"cpp -E1 in.c"
                cases.append(case)
            if case is None or kind not in ("c", "console", "text"):
                raise BadCase(f"{where}: unknown box {line.decode()!r}")
            kind = {"c": "file", "console": "console"}.get(kind, kind)
            case.sections.append((kind, name or "in.c", box))
        elif line.startswith(b"#"):
            heading = line.lstrip(b"# ")
    if box is not None:
        raise BadCase(f"{path.name}: the last box is not closed")
    for case in cases:
        end_document_case(case)
    return cases


def end_document_case(case):
    """Takes command, messages and status from what was typed and shown. An example that shows no
    output is not about it."""
    shown = [body for _, body in case.find("console")]
    if len(shown) > 1 or not (shown or case.find("text")):
        raise BadCase(f"{case.where}: an example has one command, an output or both")
    messages = []
    for line in shown[0] if shown else []:
        if line.startswith(b"$ cpp "):
            case.command = line[2:]
        elif messages and messages[-1] == b"$ echo $?":
            case.status = int(line)
            messages.pop()
        else:
            messages.append(line)
    case.sections = [section for section in case.sections if section[0] != "console"]
    case.sections.append(("stderr", "", messages))
    if not case.find("text"):
        case.sections.append(("stdout", "", [b"{{re:.*}}{{noeol}}"]))


def unescape(text):
    return text.decode("latin-1").encode().decode("unicode_escape").encode("latin-1")


class Expander:
    """Replaces {{...}}; for expected text gives a regular expression instead of bytes."""

    def __init__(self, places):
        self.places = places

    def plain(self, name):
        if name in BYTES:
            return BYTES[name]
        if name in self.places:
            return self.places[name]
        if name.startswith(b"0x"):
            return bytes([int(name, 16)])
        kind, _, rest = name.partition(b":")
        if kind == b"rep":
            text, _, count = rest.rpartition(b":")
            return unescape(text) * int(count)
        if kind == b"seq":
            count, _, text = rest.partition(b":")
            return b"".join(
                unescape(text).replace(b"%d", b"%d" % n) for n in range(1, int(count) + 1)
            )
        return None

    def known(self, name):
        value = self.plain(name)
        if value is None:
            raise BadCase(f"unknown placeholder {name.decode()!r}")
        return value

    def text(self, raw):
        return PLACEHOLDER.sub(lambda match: self.known(match[1]), raw)

    def matches(self, raw, actual):
        """Whether `actual` is what the expected text says."""
        if any(is_pattern(name) for name in PLACEHOLDER.findall(raw)):
            return self.pattern(raw).fullmatch(actual) is not None
        return self.text(raw) == actual

    def pattern(self, raw):
        parts = [re.escape(part) for part in PLACEHOLDER.split(raw)]
        for at, name in enumerate(PLACEHOLDER.findall(raw)):
            if not is_pattern(name):
                parts[2 * at + 1] = re.escape(self.known(name))
            else:
                parts[2 * at + 1] = PATTERNS.get(name, b"(?:" + name[3:] + b")")
        return re.compile(b"".join(parts), re.DOTALL)


def is_pattern(name):
    return name in PATTERNS or name.startswith(b"re:")


def body_bytes(lines):
    raw = b"".join(line + b"\n" for line in lines)
    return raw[:-1] if raw.endswith(b"{{noeol}}\n") else raw


def open_stream(name, target, directory, typed):
    """A descriptor for a standard stream of the program, and those to keep open meanwhile."""
    if target == "terminal":
        keyboard, terminal = os.openpty()
        os.write(keyboard, typed)
        return terminal, keyboard
    if name == "stdin":
        return (os.open(directory / target, os.O_RDONLY),)
    if target != "closed":
        return (os.open(directory / target, os.O_WRONLY | os.O_APPEND | os.O_CREAT),)
    reader, writer = os.pipe()
    os.close(reader)
    return (writer,)


class Runner:
    def __init__(self, program, launcher, top):
        self.top = top  # where the cases have their directories
        self.program = pathlib.Path(program).resolve()
        # Installed programs are links: what a process has copied itself, another one that starts
        # meanwhile keeps open for writing, and it cannot be run.
        self.copy = shutil.copy2(self.program, top)
        self.launcher = shlex.split(launcher) if launcher else []
        self.windows = self.program.suffix.lower() == ".exe"
        self.system = "windows" if self.windows else "posix"
        self.emulated = self.windows and os.name != "nt"
        self.messages = []  # what the cases that passed have written to standard error

    def spelled(self, path):
        """A path as the program knows it."""
        return "Z:" + str(path).replace("/", "\\") if self.emulated else str(path)

    def run(self, case):
        """None when the case is skipped, else the list of its faults."""
        if case.settings.get("only", self.system) != self.system:
            return None
        with tempfile.TemporaryDirectory(dir=self.top) as top:
            try:
                return self.run_in(case, pathlib.Path(os.path.realpath(top)))
            except (BadCase, ValueError) as error:
                return [f"bad case: {error}"]

    def run_in(self, case, top):
        work, temp = top / "work", top / "tmp"
        work.mkdir()
        temp.mkdir()
        program = self.program
        if layout := case.settings.get("layout"):
            program = work / "inst" / (layout[len("installed ") :] or "bin") / program.name
            program.parent.mkdir(parents=True)
            os.link(self.copy, program)
            if layout == "installed":
                case.sections += [("dir", f"inst/vex/{name}", []) for name in ("dat", "include")]
        expander = Expander(
            {
                b"cwd": os.fsencode(self.spelled(work)),
                b"tmp": os.fsencode(self.spelled(temp)),
                b"bin": os.fsencode(self.spelled(program.parent)),
            }
        )
        case.sections = [
            (kind, os.fsdecode(expander.text(os.fsencode(name))), body)
            for kind, name, body in case.sections
        ]
        for name, _ in case.find("dir"):
            (work / name).mkdir(parents=True, exist_ok=True)
        for name, body in case.find("file"):
            (work / name).parent.mkdir(parents=True, exist_ok=True)
            (work / name).write_bytes(expander.text(body_bytes(body)))
        for kind, make in (("link", os.symlink), ("hardlink", os.link)):
            for name, _ in case.find(kind):
                name, _, target = name.partition(" ")
                make(work / target if kind == "hardlink" else target, work / name)
        if not os.path.lexists(work / "in.c"):
            (work / "in.c").touch()
        stdin = b"".join(expander.text(body_bytes(body)) for _, body in case.find("stdin"))

        env = {
            name: value
            for name, value in os.environ.items()
            if not name.startswith("LVX_") and name not in READ_BY_PROGRAM
        }
        env.update(TEMP=self.spelled(temp), TMP=self.spelled(temp), LC_ALL="C")
        for setting in case.env:
            name, _, value = expander.text(setting).partition(b"=")
            env[os.fsdecode(name)] = os.fsdecode(value)
        if self.emulated:
            env.update(WINETEMP=env.pop("TEMP"), WINETMP=env.pop("TMP"))

        words = [
            os.fsdecode(word.encode("latin-1"))
            for word in shlex.split(expander.text(case.command).decode("latin-1"))
        ]
        command = self.launcher + [str(program)] + words[1:]
        streams = {STREAMS[name]: to for name, to in case.settings.items() if name in STREAMS}
        if self.emulated and streams.get("stdout", "closed") != "closed":
            # The system that is emulated does not know a file again that is bound from outside.
            redirected = [self.spelled(program), *words[1:], ">>", streams.pop("stdout")]
            command = self.launcher + ["cmd", "/c", " ".join(redirected)]
        settings = {"stdout": subprocess.PIPE, "stderr": subprocess.PIPE}
        opened = []
        for name, target in streams.items():
            settings[name], *others = open_stream(name, target, work, stdin)
            opened += [settings[name], *others]
        if "stdin" not in settings:
            settings["input"] = stdin
        if "limit" in case.settings:
            limit = int(case.settings["limit"])
            settings["preexec_fn"] = lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (limit, limit))
        try:
            done = subprocess.run(
                command, cwd=work, env=env, timeout=TIMEOUT, check=False, **settings
            )
        except subprocess.TimeoutExpired:
            return [f"did not end within {TIMEOUT} s"]
        finally:
            for fd in opened:
                os.close(fd)
        return self.faults(case, expander, work, temp, done)

    def faults(self, case, expander, work, temp, done):
        faults = []
        if done.returncode != case.status:
            faults.append(f"status {done.returncode}, expected {case.status}")

        texts = [[b"", b'# 1 "in.c"', *body] for _, body in case.find("text")]
        for what, bodies, actual in (
            ("stdout", texts + [body for _, body in case.find("stdout")], done.stdout),
            ("stderr", [body for _, body in case.find("stderr")], done.stderr),
        ):
            if len(bodies) > 1:
                raise BadCase(f"more than one {what}")
            self.compare(faults, what, expander, body_bytes(*(bodies or [[]])), actual or b"")

        for name, body in case.find("output"):
            path = work / name
            if path.is_file():
                self.compare(faults, name, expander, body_bytes(body), path.read_bytes())
            else:
                faults.append(f"{name} was not written")
        for name, body in case.find("zip"):
            archive, _, member = name.partition(" ")
            try:
                with zipfile.ZipFile(work / archive) as package:
                    self.compare(faults, name, expander, body_bytes(body), package.read(member))
            except (OSError, KeyError, zipfile.BadZipFile) as error:
                faults.append(f"{name} cannot be read: {error}")
        for name, _ in case.find("absent"):
            if (work / name).exists():
                faults.append(f"{name} is there")
        sections = {name.partition(" ")[0] for _, name, _ in case.sections} | {"in.c"}
        words = b" ".join([case.command, *(line for _, _, body in case.sections for line in body)])
        for path in sorted(work.rglob("*")):
            name = path.relative_to(work).as_posix()
            is_known = name in sections or os.fsencode(path.name) in words or path.stem == "cpp"
            if path.is_file() and not is_known:
                faults.append(f"{name} is left")
        left = sorted(os.listdir(temp))
        if left:
            faults.append("left in TEMP: " + ", ".join(left))
        if not faults:
            self.messages.append(done.stderr or b"")
        return faults

    def compare(self, faults, what, expander, wanted, actual):
        if self.windows and b"{{cr}}" not in wanted:
            actual = actual.replace(b"\r\n", b"\n")
        if expander.matches(wanted, actual):
            return
        readable = PLACEHOLDER.sub(lambda match: expander.plain(match[1]) or match[0], wanted)

        def lines(text):
            shown = [repr(line)[2:-1] for line in text.split(b"\n")]
            return [line if len(line) < 300 else f"{line[:300]}...({len(line)})" for line in shown]

        diff = difflib.unified_diff(
            lines(readable), lines(actual), f"expected {what}", f"actual {what}", lineterm="", n=2
        )
        faults.append("\n".join(list(diff)[:60]))


def check_catalogue(messages):
    """Says which messages of the catalogue are missing in what was written, or are there although
    they cannot be. Returns whether all is as it should be."""
    fine = True
    for line in CATALOGUE.read_bytes().splitlines():
        number, _, rest = line.partition(b"\t")
        if not number.isdigit():
            continue
        kind, _, text = rest.partition(b"\t")
        # What an argument is put in place of, or a star in 3, can be any text, and as long as to have
        # the rest cut off.
        text = re.escape(re.split(rb"%\w|\*", text)[0])
        if kind not in b"Mm":
            text = rb"\(%s\) %s|: %s.* \[%s\]" % (number, text, text, number)
        raised = re.search(text, messages, re.IGNORECASE) is not None
        if raised != (int(number) not in UNREACHABLE):
            print(f"FAILED message {int(number)}: " +
                  ("is said to be unreachable" if raised else "no case raises it"))
            fine = False
    return fine


def main():
    here = pathlib.Path(__file__).resolve().parent
    options = argparse.ArgumentParser(description="Runs the whole-program cases.")
    options.add_argument("--launcher", help="a program that starts PROGRAM, such as wine")
    options.add_argument("--only", metavar="TEXT", help="only cases whose title holds TEXT")
    options.add_argument("program")
    options.add_argument("files", nargs="*", type=pathlib.Path)
    options = options.parse_args()
    if not os.access(options.program, os.X_OK):
        sys.exit(f"error: {options.program} is not a program")

    cases = []
    try:
        for path in options.files or [*sorted((here / "cases").glob("*.case")), LANGUAGE]:
            cases += parse_document(path) if path.suffix == ".md" else parse(path)
    except (BadCase, OSError, ValueError) as error:
        sys.exit(f"error: {error}")
    titles = [case.title for case in cases]
    for title in {title for title in titles if titles.count(title) > 1}:
        sys.exit(f"error: two cases are named {title!r}")
    if options.only:
        cases = [case for case in cases if options.only in case.title]

    passed = failed = skipped = 0
    with tempfile.TemporaryDirectory(prefix="cases-") as top, \
            concurrent.futures.ThreadPoolExecutor(os.cpu_count() or 1) as pool:
        runner = Runner(options.program, options.launcher, top)
        for case, faults in zip(cases, pool.map(runner.run, cases)):
            if faults is None:
                skipped += 1
            elif faults:
                failed += 1
                print(f"FAILED {case.where}: {case.title}")
                for fault in faults:
                    print("    " + fault.replace("\n", "\n    "))
            else:
                passed += 1
    if not (options.files or options.only or runner.windows):
        if check_catalogue(b"".join(runner.messages)):
            passed += 1
        else:
            failed += 1
    closing = f"{passed} passed, {failed} failed"
    if skipped:
        closing += f", {skipped} skipped"
    print(closing)
    sys.exit(1 if failed or not passed else 0)


if __name__ == "__main__":
    main()
