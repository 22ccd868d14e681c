#!/usr/bin/env python3
"""Writes docs/messages.md, the manual of the messages.

Number, type and text of a message come from the built-in catalogue, so that the manual cannot
contradict the program; what a message means, an example and a remedy are written by hand in
docs/messages.in. With --check nothing is written: the exit status is 1 when the manual is not what
would be written, when a catalogue number has no entry in messages.in, or the reverse.

Format of messages.in: "# TITLE" begins a group and is followed by its introduction; "[N]" begins
the entry of message N, which has the fields "means:", "example:" and "do:". A field runs to the
next one. Lines that begin with ";" are comments.
"""

import argparse
import pathlib
import re
import sys
import textwrap

ROOT = pathlib.Path(__file__).resolve().parent.parent
CATALOGUE = ROOT / "common" / "builtin_catalogue.msgs"
SOURCE = ROOT / "docs" / "messages.in"
MANUAL = ROOT / "docs" / "messages.md"
FIELDS = ("means", "example", "do")
WIDTH = 100
KINDS = {"F": "fatal error", "E": "error", "M": "message"}

PREFACE = """\
# Messages

This is the manual of every message that `cpp` prints. To look one up, search this page for its
number, which stands in parentheses before the text: `(109) #include syntax error`.

<!-- Written by tools/gen_messages.py from common/builtin_catalogue.msgs and docs/messages.in;
     edit those and run it again. -->

**Kinds.** A *fatal error* ends the run at once. An *error* lets the run go on but makes it fail
with exit status 1; after more errors than `--emax` allows the run ends. A *warning* has a level and
is shown when the level is at least that of the `-W` option, 0 unless you say otherwise; so a
warning of level -1 needs `-W-1` to be seen. A *message* is information and never makes a run fail.

**Changing what is shown.** `--msgdisable=111,171` hides warnings and messages by number, and
`111:off` hides even an error. `--Werror` turns all warnings into errors, `--Werror=111` one of
them, and `--Wno-error=111` spares one. A fatal error can be neither hidden nor changed.

**Where they appear.** Messages go to standard error, or with `-Efile` to the end of a file. Usually
the source line is shown first, with a caret under the place that reading had reached:

```
a.c:
    12:\t#include stdio.h
\t             ^ (109) #include syntax error
```

With `-E1` each message is one line, `a.c: 12: (109) #include syntax error (error)`, which editors
can follow. The environment variables `LVX_ERR_FORMAT`, `LVX_WARN_FORMAT` and `LVX_MSG_FORMAT`
replace the templates of these lines: `%f` stands for the file, `%l` for the line, `%c` for the
column, `%n` for the number, `%s` for the text and `%a` for the program's name.

In the texts below, `%s`, `%d` and their like stand for what the program fills in; `%m` is the
system's description of what went wrong.
"""


class SourceError(Exception):
    """messages.in or the catalogue cannot be read; the text says where and why."""


def read_catalogue(path):
    """Returns {number: (kind, text)} from the built-in catalogue."""
    entries = {}
    for line in path.read_text().splitlines():
        if line.startswith("#"):
            continue
        number, kind, text = line.split("\t", 2)
        entries[int(number)] = (KINDS.get(kind) or f"warning, level {int(kind)}", text)
    if not entries:
        raise SourceError(f"{path}: no entries found")
    return entries


def read_source(path):
    """Returns [(title, introduction, [(number, {field: lines})])] from messages.in."""
    groups, target = [], None
    for at, line in enumerate(path.read_text().splitlines(), 1):
        field = re.match(r"(\w+):\s*(.*)", line)
        if line.startswith(";"):
            continue
        if line.startswith("# "):
            target = []
            groups.append((line[2:], target, []))
        elif number := re.fullmatch(r"\[(\d+)\]", line):
            if not groups:
                raise SourceError(f"{path}:{at}: an entry before the first group")
            groups[-1][2].append((int(number[1]), {}))
            target = None
        elif field and field[1] in FIELDS and groups and groups[-1][2]:
            target = [field[2]]
            groups[-1][2][-1][1][field[1]] = target
        elif target is not None:
            target.append(line)
        elif line.strip():
            raise SourceError(f"{path}:{at}: text outside a field: {line}")
    return groups


def check_entries(groups, catalogue):
    """Raises SourceError for an entry that is missing, extra, doubled or incomplete."""
    numbers = [number for _, _, entries in groups for number, _ in entries]
    faults = [f"message {n} has no entry" for n in sorted(set(catalogue) - set(numbers))]
    extra = sorted(set(numbers) - set(catalogue))
    faults += [f"message {n} is not in the catalogue" for n in extra]
    faults += [f"message {n} has more than one entry" for n in set(numbers) if numbers.count(n) > 1]
    for _, _, entries in groups:
        for number, fields in entries:
            faults += [f"message {number} has no '{name}'" for name in FIELDS
                       if not "".join(fields.get(name, [])).strip()]
    if faults:
        raise SourceError("\n".join(f"{SOURCE}: {fault}" for fault in faults))


def prose(lines, before=""):
    """Paragraphs, separated by empty lines, at the width of the page; `before` leads the first."""
    paragraphs = re.split(r"\n\s*\n", before + "\n".join(lines).strip())
    wrapper = textwrap.TextWrapper(WIDTH, break_long_words=False, break_on_hyphens=False)
    return "\n\n".join(wrapper.fill(paragraph) for paragraph in paragraphs)


def example(lines):
    """A block of code when the field begins on a line of its own, else a sentence."""
    if lines[0].strip():
        return prose(lines, "*Example.* ")
    code = "\n".join(line.removeprefix("    ") for line in lines).strip("\n")
    return f"*Example.*\n\n```\n{code}\n```"


def render(groups, catalogue):
    """Returns the text of the manual."""
    parts = [PREFACE]
    for title, introduction, entries in groups:
        parts.append(f"## {title}\n\n{prose(introduction)}\n")
        for number, fields in entries:
            kind, text = catalogue[number]
            parts.append(f"### {number} ({kind})\n\n> `{text.rstrip()}`\n\n"
                         f"{prose(fields['means'])}\n\n"
                         f"{example(fields['example'])}\n\n"
                         f"{prose(fields['do'], '*What to do.* ')}\n")
    rows = [f"| {number} | {kind} | `{text.rstrip()}` |\n"
            for number, (kind, text) in sorted(catalogue.items())]
    parts.append("## All messages by number\n\n| number | kind | text |\n| ---: | --- | --- |\n"
                 + "".join(rows))
    return "\n".join(parts)


def main():
    parser = argparse.ArgumentParser(description="Writes the manual of the messages.")
    parser.add_argument("--check", action="store_true", help="write nothing; fail when not current")
    args = parser.parse_args()
    try:
        catalogue = read_catalogue(CATALOGUE)
        groups = read_source(SOURCE)
        check_entries(groups, catalogue)
    except (SourceError, OSError, ValueError) as fault:
        sys.exit(f"gen_messages: {fault}")
    text = render(groups, catalogue)
    if not args.check:
        MANUAL.write_text(text)
    elif not MANUAL.exists() or MANUAL.read_text() != text:
        sys.exit(f"gen_messages: {MANUAL} is not current; run tools/gen_messages.py")


if __name__ == "__main__":
    main()
