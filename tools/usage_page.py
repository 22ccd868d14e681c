"""Reads the page that `cpp --help` writes, the one home of what each option is and does.

The manual page and the completions are made from it, so an option that is added to the program's
table appears in all of them.
"""

import re
import subprocess
from typing import NamedTuple

HEADING = re.compile(r"([A-Z][^:]*):$")
OPTION = re.compile(r"  (-\S+(?: [A-Z]+)?)(?:  +(\S.*))?$")
HELP = re.compile(r" {26}(\S.*)$")
SPELLING = re.compile(r"--[a-z_-]+=?|-dM|-[A-Za-z]", re.IGNORECASE)


class Option(NamedTuple):
    """One option: `spelling` is written as it stands, `argument` behind it; CAPITALS in it stand for
    something of that kind, `|` is between words to choose from, `[]` around what can be left out. An
    argument that begins with a blank may also be the next word."""

    spelling: str
    argument: str
    help: str


def read(program):
    """The options of a built program by group, {heading: [Option]}, in the order of the page."""
    page = subprocess.run([program, "--help"], capture_output=True, text=True, check=True).stdout
    return parse(page)


def parse(page):
    groups, options, pending = {}, None, None
    for line in page.splitlines():
        if heading := HEADING.match(line):
            options = groups.setdefault(heading[1], [])
        elif options is not None and (found := OPTION.match(line)):
            spelling = SPELLING.match(found[1])[0]
            pending = (spelling, found[1][len(spelling):])
            if found[2]:
                options.append(Option(*pending, found[2]))
        elif options is not None and (found := HELP.match(line)):
            options.append(Option(*pending, found[1]))
        elif options is not None and line:
            raise ValueError(f"a line of --help that is neither a heading nor an option: {line!r}")
    if not groups:
        raise ValueError("--help names no options")
    return groups
