"""The program's messages in editors, and its options in shells.

A program with a message of every kind is preprocessed in both layouts. Vim and Emacs read what came
out with the files of extras/, node runs the expressions of the VS Code matchers; each has to find
the right file, line, column, kind, number and text of every message, as far as the layout tells
them, and to invent none. Then bash and zsh complete lines that are typed on a (pseudo) terminal,
and fish is asked for what it would offer.

    python3 checks/editors.py [--build build/release]

What is missing is installed.
"""

import argparse
import json
import os
import pathlib
import pty
import select
import subprocess
import sys
import tempfile
import time
from typing import NamedTuple

import tally
from tally import ROOT

EXTRAS = ROOT / "extras"
HERE = ROOT / "checks"
TOOLS = (("vim", "vim"), ("emacs", "emacs-nox"), ("node", "nodejs"), ("zsh", "zsh"), ("fish", "fish"))

FILES = {
    "my lib.h": """\
#warning deep
#advisory use it well
""",
    "main.c": """\
#include "my lib.h"
#error first (of two) [here]
#warning second
\t#error behind a tab
#info third
#define M(a) a
#define BAD 1 2
""" + " " * 75 + """M(1, 2)
x M(1, 2) M(3, 4)
#if 1 +
#endif
#if BAD
#endif
#undef 7
#define S "a

#line 100 "gen.y"
#if 2 +
#endif
#elif 1
#include "none.h"
""",
    "open.c": "\n#if 1\n",
}
RUNS = (["main.c"], ["open.c"])


class Message(NamedTuple):
    """A message as an editor has to understand it. `own` is what the program's own layout has
    instead: a message "left" of its caret, one in a "line" without a caret, or other places."""

    file: str
    line: int
    column: int
    kind: str
    number: int
    text: str
    own: dict = {}


def wrong_count(line, column, **own):
    return Message("main.c", line, column, "warning", 171,
                   'wrong number of preprocessor macro arguments for "M" (2 instead of 1)', own)


# The program's own layout shows the line that #line gives under the file's own name.
IN_GENERATED = {"file": "main.c"}
END = 'operator "end of expression" in incorrect context'
MESSAGES = [
    Message("my lib.h", 1, 13, "warning", 162, "#warning: deep"),
    Message("my lib.h", 2, 21, "note", 1445, "#advisory: use it well", {"form": "line"}),
    Message("main.c", 2, 28, "error", 103, "#error: first (of two) [here]"),
    Message("main.c", 3, 15, "warning", 162, "#warning: second"),
    Message("main.c", 4, 20, "error", 103, "#error: behind a tab", {"column": 27}),
    Message("main.c", 5, 11, "note", 1446, "#info: third", {"form": "line"}),
    wrong_count(8, 82, form="left"),
    wrong_count(9, 9),
    wrong_count(9, 17, again=True),
    Message("main.c", 10, 7, "error", 120, END),
    Message("main.c", 12, 7, "error", 117, "misplaced constant in #if",
            {"file": "BAD", "form": "line"}),
    Message("main.c", 14, 8, "error", 114, "illegal #undef argument"),
    Message("main.c", 15, 13, "error", 113, "unterminated string in preprocessor macro body",
            {"line": 16}),
    Message("gen.y", 100, 7, "error", 120, END, IN_GENERATED),
    Message("gen.y", 102, 5, "error", 102, "#elif must be in an #if", IN_GENERATED),
    Message("gen.y", 103, 17, "error", 141,
            'can\'t open include file "none.h": No such file or directory', IN_GENERATED),
    Message("open.c", 2, 1, "error", 100, "unterminated #if[n][def] block from line 2",
            {"form": "line"}),
]
NOTES = {("main.c", 1, "included from here"), ("main.c", 7, "expanded from macro 'BAD'")}


class Entry(NamedTuple):
    """What an editor made of a message; None for what it does not know."""

    file: str
    line: int
    column: int
    kind: str
    number: int
    text: str


def write_messages(program, work, option):
    """The messages of the runs in one file, with one at its start that has no place."""
    (work / "none.c").write_text("")
    told = "".join(tally.run([program, *option, *arguments], work)[2]
                   for arguments in (["-Q", "none.c", "-"], *RUNS))
    path = work / "messages"
    path.write_text(told)
    return path


# ---- The editors: each gives the list of entries that it finds in a file of messages.

def vim(path):
    result = path.with_name("quickfix.json")
    env = dict(os.environ, MESSAGES=str(path), QUICKFIX=str(result), HOME=str(path.parent))
    status, _, err = tally.run(["vim", "-Nes", "-u", "NONE", "--cmd", f"set rtp+={EXTRAS / 'vim'}",
                                "-S", HERE / "quickfix.vim"], path.parent, env)
    tally.same("vim", (status, err), (0, ""))
    kinds = {"e": "error", "": "error", "w": "warning", "n": "note", "i": "note"}
    return [Entry(e["file"], e["lnum"], e["col"] or None, kinds[e["type"].lower()],
                  e["nr"] if e["nr"] > 0 else None, e["text"].strip())
            for e in json.loads(result.read_text()) if e["valid"] and e["file"]]


def emacs(path):
    status, out, err = tally.run(["emacs", "-Q", "--batch", "-L", EXTRAS / "emacs", "-l",
                                  HERE / "messages.el", path], path.parent,
                                 dict(os.environ, HOME=str(path.parent)))
    tally.same("emacs", (status, err), (0, ""))
    return [Entry(file, line, column, kind, None, text)
            for file, line, column, kind, text in json.loads(out)]


def node(path):
    status, out, err = tally.run(["node", HERE / "matcher.js", EXTRAS / "vscode/package.json"],
                                 path.parent, text=path.read_text())
    tally.same("node", (status, err), (0, ""))
    return [Entry(p["file"], int(p["line"]), int(p["column"]) if "column" in p else None,
                  {"info": "note"}.get(p["severity"], p["severity"]),
                  int(p["code"]) if "code" in p else None, p["message"])
            for p in json.loads(out)]


def in_own_layout(message):
    return message._replace(**{name: value for name, value in message.own.items()
                               if name in Message._fields})


def first_lines(messages):
    """What a matcher for messages at carets can find: those of the first line that is shown of each
    file, since the name is written no second time."""
    shown, last, first = [], None, None
    for message in messages:
        if message.own.get("form") == "line":
            shown.append(message)
            continue
        place = in_own_layout(message)
        if place.file != last:
            last, first = place.file, place.line
        if place.line == first:
            shown.append(message)
    return shown


def is_entry_of(entry, message, has_column):
    expected = (message.file, message.line, message.column if has_column else None, message.kind)
    if (entry.file, entry.line, entry.column, entry.kind) != expected:
        return False
    return entry.number in (None, message.number) and message.text in entry.text


def find_message(entries, message, has_column):
    if not any(is_entry_of(entry, message, has_column) for entry in entries):
        near = [f"\n    {entry}" for entry in entries if message.text in entry.text]
        raise tally.Failure(f"no {message}, but{''.join(near) or ' none with such a text'}")


def check_gcc_layout(steps, name, entries):
    for message in MESSAGES:
        steps.check(find_message, entries, message, True)
    steps.check(tally.same, f"notes in {name}",
                {(e.file, e.line, note) for e in entries for note in
                 ("included from here", "expanded from macro 'BAD'") if note in e.text}, NOTES)
    steps.check(tally.same, f"entries in {name}", len(entries), len(MESSAGES) + len(NOTES))


def check_own_layout(steps, name, entries, messages, columns):
    """`columns` are the forms of message whose column the editor can tell."""
    for message in messages:
        steps.check(find_message, entries, in_own_layout(message),
                    message.own.get("form", "right") in columns)
    steps.check(tally.same, f"entries in {name}", len(entries), len(messages))


def check_editors(steps, program, work):
    path = write_messages(program, work, ["--messages=gcc"])
    for editor in (vim, emacs, node):
        check_gcc_layout(steps, editor.__name__, editor(path))
    path = write_messages(program, work, [])
    # Vim has no place for the second message of a line, whose number is not shown again.
    once = [message for message in MESSAGES if "again" not in message.own]
    check_own_layout(steps, "vim", vim(path), once, ("right",))
    check_own_layout(steps, "emacs", emacs(path), MESSAGES, ("right", "left"))
    check_own_layout(steps, "node", node(path), first_lines(MESSAGES), ())


# ---- The shells.

COMPLETIONS = [
    ("--mark", "--markers="),
    ("--markers=g", "--markers=gcc "),
    ("--cmode=tsa", "--cmode=tsasm "),
    ("-Lg", "-Lgcc "),
    ("-d", "-dM "),
    ("-Iin", "-Iinc/"),
    ("--edf=new", "--edf=newer.msgs "),
    ("-o out", "-o output.i "),
    ("mai", "main.c "),
]
SHELLS = {
    "bash": (["bash", "--norc", "--noprofile", "-i"],
             """bind -x '"\\C-xs": printf %s "$READLINE_LINE" >shown.new; mv shown.new shown'
bind 'set enable-bracketed-paste off'; . {extras}/completions/vex-cpp.bash"""),
    "zsh": (["zsh", "-f", "-i"],
            """fpath=({extras}/completions $fpath); autoload -U compinit; compinit -u -D
show() {{ printf %s "$BUFFER" >shown.new; mv shown.new shown }}; zle -N show; bindkey '^Xs' show"""),
}


class Shell:
    """An interactive shell on a terminal of its own, in which lines are typed and given up."""

    def __init__(self, name, work):
        command, setup = SHELLS[name]
        self._work = work
        self._ours, its = pty.openpty()
        self._process = subprocess.Popen(
            command, cwd=work, stdin=its, stdout=its, stderr=its, start_new_session=True,
            env=dict(os.environ, HOME=str(work), PS1="> ", TERM="dumb"))
        os.close(its)
        self._type(setup.format(extras=EXTRAS) + "\n")

    def _type(self, text):
        os.write(self._ours, text.encode())

    def complete(self, line):
        """What the line is after a Tab."""
        shown = self._work / "shown"
        shown.unlink(missing_ok=True)
        self._type(line + "\t\x18s")
        end = time.monotonic() + tally.TIMEOUT
        while not shown.exists():
            if time.monotonic() > end:
                raise tally.Failure(f"{line!r} shows nothing")
            # What the shell writes must be taken off the terminal, or it stops writing.
            if select.select([self._ours], [], [], 0.01)[0]:
                os.read(self._ours, 65536)
        self._type("\x15")  # gives the line up
        return shown.read_text()

    def close(self):
        self._process.kill()
        self._process.wait()
        os.close(self._ours)


def completes(shell, typed, completed):
    tally.same(f"{typed!r} completed", shell.complete("vex-cpp " + typed), "vex-cpp " + completed)


def fish_offers(work, typed, completed):
    _, out, err = tally.run(["fish", "-N", "-c", f"source {EXTRAS}/completions/vex-cpp.fish; "
                             f"complete -C 'vex-cpp {typed}'"], work,
                            dict(os.environ, HOME=str(work)))
    offered = [line.split("\t")[0] for line in out.splitlines()]
    # An option to which something is joined is offered without its `=`.
    wanted = [completed.split()[-1].rstrip("="), completed.split()[-1]]
    if err or not any(word in offered for word in wanted):
        raise tally.Failure(f"fish offers {offered} for {typed!r}: {err}")


def check_shells(steps, work):
    (work / "inc").mkdir()
    for name in ("newer.msgs", "output.i"):
        (work / name).write_text("")
    for name in SHELLS:
        shell = Shell(name, work)
        try:
            for typed, completed in COMPLETIONS:
                steps.check(completes, shell, typed, completed)
        finally:
            shell.close()
    for typed, completed in COMPLETIONS:
        steps.check(fish_offers, work, typed, completed)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("--build", type=pathlib.Path, default=ROOT / "build/release")
    program = parser.parse_args().build.resolve() / "bin" / "cpp"
    tally.need(*TOOLS)
    steps = tally.Tally()
    with tempfile.TemporaryDirectory(prefix="cpp-editors-", ignore_cleanup_errors=True) as name:
        work = pathlib.Path(name).resolve()
        for path, text in FILES.items():
            (work / path).write_text(text)
        check_editors(steps, program, work)
        check_shells(steps, work)
    return steps.close()


if __name__ == "__main__":
    sys.exit(main())
