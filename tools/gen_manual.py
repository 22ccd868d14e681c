#!/usr/bin/env python3
"""Writes docs/vex-cpp.1, the manual page, from docs/vex-cpp.1.in and the program's `--help`.

The options come from the program, so that none is forgotten; the rest is written by hand. The line
@OPTIONS@ of the source stands for them. With --check nothing is written: the exit status is 1 when
the page is not what would be written.
"""

import argparse
import pathlib
import re
import sys

import usage_page

ROOT = pathlib.Path(__file__).resolve().parent.parent
SOURCE = ROOT / "docs" / "vex-cpp.1.in"
MANUAL = ROOT / "docs" / "vex-cpp.1"
MACROS = {"[A-Z]+": "Ar {}", "[a-z0-9]+": "Cm {}", r"[^A-Za-z0-9]+": r"\&{}"}
PIECE = re.compile("|".join(f"({pattern})" for pattern in MACROS))


def text(words):
    """A line of running text, with nothing in it that the formatter would take for its own."""
    line = words.replace("\\", "\\e").replace("--", "\\-\\-")
    return f"\\&{line}" if line[:1] in (".", "'") else line


def item(option):
    """The head of an option's entry: what stands for something is marked as an argument."""
    macros = list(MACROS.values())
    pieces = [macros[piece.lastindex - 1].format(piece[0])
              for piece in PIECE.finditer(option.argument.strip())]
    apart = " " if option.argument.startswith(" ") else " Ns "
    return ".It Fl " + option.spelling[1:] + (apart + " Ns ".join(pieces) if pieces else "")


def options(groups):
    for heading, rows in groups.items():
        yield f".Ss {heading}"
        yield ".Bl -tag -width Ds"
        for option in rows:
            yield item(option)
            yield text(option.help[0].upper() + option.help[1:] + ".")
        yield ".El"


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("--check", action="store_true", help="write nothing; is the page current?")
    parser.add_argument("--program", default=ROOT / "build/release/bin/cpp")
    arguments = parser.parse_args()
    made = SOURCE.read_text().replace("@OPTIONS@",
                                      "\n".join(options(usage_page.read(arguments.program))))
    if not arguments.check:
        MANUAL.write_text(made)
    elif not MANUAL.exists() or MANUAL.read_text() != made:
        print("docs/vex-cpp.1 is out of date: run python3 tools/gen_manual.py", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
