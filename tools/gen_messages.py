#!/usr/bin/env python3
"""Writes docs/messages.md, the manual of the messages, and the same as docs/messages.html.

Number, type and text of a message come from the built-in catalogue, so that the manual cannot
contradict the program; what a message means, an example and a remedy are written by hand in
docs/messages.in. The page in HTML is there for links: a browser that is sent to a file in Markdown
may show it as plain text, save it, or ask what to do, but never goes to the entry of a number. With
--check nothing is written: the exit status is 1 when the manual is not what would be written, when
a catalogue number has no entry in messages.in, or the reverse.

Format of messages.in: "# TITLE" begins a group and is followed by its introduction; "[N]" begins
the entry of message N, which has the fields "means:", "example:" and "do:". A field runs to the
next one. Lines that begin with ";" are comments.
"""

import argparse
import html
import pathlib
import re
import sys
import textwrap

ROOT = pathlib.Path(__file__).resolve().parent.parent
CATALOGUE = ROOT / "common" / "builtin_catalogue.msgs"
SOURCE = ROOT / "docs" / "messages.in"
MANUAL = ROOT / "docs" / "messages.md"
PAGE = ROOT / "docs" / "messages.html"
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


PAGE_START = """\
<!doctype html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<meta name="color-scheme" content="light dark">
<link rel="icon" href="data:,">
<title>cpp messages</title>
<style>
:root { --page: #fbfaf8; --ink: #1d2126; --soft: #5f6873; --line: #e2dfd9; --shade: #f2f0ec; --mark: #fdf0d5; }
@media (prefers-color-scheme: dark) {
  :root { --page: #14171b; --ink: #e4e7eb; --soft: #9aa4b0; --line: #2e343c; --shade: #232830; --mark: #4a3a16; }
}
body {
  max-width: 46rem; margin: 0 auto; padding: 1.25rem; overflow-wrap: anywhere;
  background: var(--page); color: var(--ink);
  font: 16px/1.5 system-ui, "Segoe UI", Roboto, "Helvetica Neue", Arial, sans-serif;
}
h2 { margin-top: 2.5rem; }
h3 { margin: 2rem 0 0.5rem; padding-top: 0.8rem; border-top: 1px solid var(--line); }
h3:target { background: var(--mark); }
code, pre { font: 0.875em/1.45 ui-monospace, Menlo, Consolas, "DejaVu Sans Mono", monospace; }
code { white-space: pre-wrap; }
pre { overflow-x: auto; padding: 0.6rem 0.8rem; background: var(--shade); border-radius: 6px; }
blockquote { margin: 0.5rem 0; padding: 0.2rem 0.9rem; border-left: 3px solid var(--line); }
table { border-collapse: collapse; }
th, td { padding: 0.25rem 0.6rem; border-bottom: 1px solid var(--line); text-align: left; vertical-align: top; }
</style>
</head>
<body>
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


# ---- The page: of Markdown, what the manual is written in. ----

def inline(text):
    """A paragraph's code, bold and slanted text."""
    parts = re.split(r"`([^`]*)`", text)
    for n, part in enumerate(parts):
        part = html.escape(part, quote=False)
        if n % 2 == 1:
            parts[n] = f"<code>{part}</code>"
        else:
            part = re.sub(r"\*\*(.+?)\*\*", r"<strong>\1</strong>", part)
            parts[n] = re.sub(r"\*(.+?)\*", r"<em>\1</em>", part)
    return "".join(parts)


def table(lines):
    """The rows of a table, whose first cells lead to the entries."""
    def row(line, cell):
        return "<tr>" + "".join(f"<{cell}>{inline(text.strip())}</{cell}>"
                                for text in line.strip("|").split("|", 2)) + "</tr>\n"
    rows = "".join(row(line, "td") for line in lines[2:])
    rows = re.sub(r"<tr><td>(\d+)</td>", r'<tr><td><a href="#\1">\1</a></td>', rows)
    return f"<table>\n{row(lines[0], 'th')}{rows}</table>\n"


def block(text):
    """One block of the manual as HTML; a heading of a message can be linked by its number."""
    if text.startswith("```"):
        return f"<pre>{html.escape(text.strip('`').strip(chr(10)), quote=False)}</pre>\n"
    if text.startswith("<!--"):
        return ""
    if heading := re.fullmatch(r"(#+) (.*)", text):
        number = re.match(r"\d+", heading[2])
        name = f"h{len(heading[1])}"
        anchor = f' id="{number[0]}"' if number else ""
        return f"<{name}{anchor}>{inline(heading[2])}</{name}>\n"
    if text.startswith("> "):
        return f"<blockquote>{inline(text[2:])}</blockquote>\n"
    if text.startswith("| "):
        return table(text.splitlines())
    return f"<p>{inline(text)}</p>\n"


def render_page(manual):
    """Returns the manual as a page of HTML."""
    blocks = re.findall(r"^```.*?^```$|.+?(?=\n\s*\n|\Z)", manual, re.MULTILINE | re.DOTALL)
    return PAGE_START + "".join(block(text.strip("\n")) for text in blocks) + "</body>\n</html>\n"


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
    manual = render(groups, catalogue)
    for path, text in ((MANUAL, manual), (PAGE, render_page(manual))):
        if not args.check:
            path.write_text(text)
        elif not path.exists() or path.read_text() != text:
            sys.exit(f"gen_messages: {path} is not current; run tools/gen_messages.py")


if __name__ == "__main__":
    main()
