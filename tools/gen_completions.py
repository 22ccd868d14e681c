#!/usr/bin/env python3
"""Writes extras/completions: what bash, zsh and fish need to complete a command line of vex-cpp.

The options come from the program's `--help`, so that none is forgotten. What can stand behind an
option follows from the name of its argument there: FILE and DIR are looked up, words in small
letters are offered, of anything else nothing is known. With --check nothing is written: the exit
status is 1 when the files are not what would be written.
"""

import argparse
import itertools
import pathlib
import re
import sys

import usage_page

ROOT = pathlib.Path(__file__).resolve().parent.parent
DIRECTORY = ROOT / "extras" / "completions"
MADE = "# Made by tools/gen_completions.py from the program's own --help."


def words(option):
    """The words to choose from behind an option."""
    return [word for word in option.argument.split("|") if re.fullmatch("[a-z0-9]+", word)]


def names_files(option):
    return "FILE" in option.argument


def names_directories(option):
    return "DIR" in option.argument


def is_optional(option):
    return option.argument.startswith("[=")


# ---- bash

BASH = r"""{made}

# Offers what `compgen "$@"` finds for the rest of the word behind an option's spelling. Where the
# shell itself breaks words at `=`, only that rest is replaced.
_vex_cpp_behind() {{
  local spelling=$1 entry
  shift
  while IFS= read -r entry; do
    [[ $1 == -[df] && -d $entry ]] && entry+=/ && compopt -o nospace
    [[ $spelling == *= && $COMP_WORDBREAKS == *=* ]] || entry=$spelling$entry
    COMPREPLY+=("$entry")
  done < <(compgen "$@" -- "${{word#"$spelling"}}")
}}

_vex_cpp() {{
  local line=${{COMP_LINE:0:COMP_POINT}}
  local word=${{line##*[[:space:]]}}
  COMPREPLY=()
  case $word in
{cases}
    -*)
      COMPREPLY=($(compgen -W '{spellings}' -- "$word"))
      [[ ${{COMPREPLY[0]}} == *= || ${{COMPREPLY[0]}} == -[{joined}] ]] && compopt -o nospace
      ;;
    @*) _vex_cpp_behind @ -f ;;
    *) _vex_cpp_behind '' -f ;;
  esac
}}

complete -F _vex_cpp vex-cpp
"""


def bash(options):
    cases, joined = [], ""
    for option in options:
        if option.argument and not is_optional(option) and len(option.spelling) == 2:
            joined += option.spelling[1] if not option.argument.startswith(" ") else ""
        found = ("-f" if names_files(option) else "-d" if names_directories(option) else
                 f"-W '{' '.join(words(option))}'" if words(option) else "")
        if found:
            cases.append(f"    {option.spelling}*) _vex_cpp_behind {option.spelling} {found} ;;")
    spellings = " ".join(option.spelling for option in options)
    return BASH.format(made=MADE, cases="\n".join(cases), spellings=spellings, joined=joined)


# ---- zsh

def zsh_action(option):
    if names_files(option):
        return "_files"
    if names_directories(option):
        return "_files -/"
    return f"({' '.join(words(option))})" if words(option) else ""


def zsh_spec(option):
    text = re.sub(r"([\\\[\]:'])", r"\\\1", option.help).replace("\\'", "'\\''")
    head = option.spelling
    if not option.argument:
        return f"'*{head}[{text}]'"
    if is_optional(option):
        return f"'*{head}=-[{text}]::{option.argument[2:-1]}:'"
    kind = re.search("[A-Z]+|$", option.argument)[0].lower() or "word"
    joint = "+" if option.argument.startswith(" ") else "-"
    return f"'*{head}{joint}[{text}]:{kind}:{zsh_action(option)}'"


def zsh(options):
    specs = " \\\n  ".join(zsh_spec(option) for option in options)
    return f"#compdef vex-cpp\n{MADE}\n\n_arguments \\\n  {specs} \\\n  '*:file:_files'\n"


# ---- fish

def fish_line(option):
    name = option.spelling.rstrip("=")
    kind = "-l" if name.startswith("--") else "-s" if len(name) == 2 else "-o"
    line = f"complete -c vex-cpp {kind} {name.lstrip('-')}"
    if names_files(option):
        line += " -r -F"
    elif names_directories(option):
        typed = f'(string replace -- {name} "" (commandline -ct))'
        line += f" -x -a '(__fish_complete_directories {typed})'"
    elif option.argument and not is_optional(option):
        line += " -x" + (f" -a '{' '.join(words(option))}'" if words(option) else "")
    text = option.help.replace("\\", "\\\\").replace("'", "\\'")
    return f"{line} -d '{text}'"


def fish(options):
    return MADE + "\n\n" + "".join(fish_line(option) + "\n" for option in options)


FILES = {"vex-cpp.bash": bash, "_vex-cpp": zsh, "vex-cpp.fish": fish}


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("--check", action="store_true", help="write nothing; are the files current?")
    parser.add_argument("--program", default=ROOT / "build/release/bin/cpp")
    arguments = parser.parse_args()
    options = list(itertools.chain(*usage_page.read(arguments.program).values()))
    stale = False
    for name, make in FILES.items():
        path, made = DIRECTORY / name, make(options)
        if not arguments.check:
            DIRECTORY.mkdir(parents=True, exist_ok=True)
            path.write_text(made)
        elif not path.exists() or path.read_text() != made:
            print(f"extras/completions/{name} is out of date: run python3 tools/gen_completions.py",
                  file=sys.stderr)
            stale = True
    return 1 if stale else 0


if __name__ == "__main__":
    sys.exit(main())
