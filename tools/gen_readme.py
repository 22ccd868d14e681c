#!/usr/bin/env python3
"""Brings the figures of docs/performance.md into the README's table of preprocessors.

The README's rows that are named in MEASURED are rewritten; the others are written by hand. With
--check nothing is written: the exit status is 1 when a figure is not that of docs/performance.md.
"""

import argparse
import pathlib
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
README = ROOT / "README.md"
FIGURES = ROOT / "docs" / "performance.md"
PROGRAMS = ("cpp", "cc1", "clang", "tcc")
MEASURED = {  # the README's row: a workload, a column of its table, the form of the figure
    "13 MB of real sources and headers": ("real 16x", "median ms", "{:.0f} ms"),
    "memory for them": ("real 16x", "peak MiB", "{:.0f} MiB"),
    "an empty file": ("empty 1x", "median ms", "{:.1f} ms"),
}


def cells(line):
    return [cell.strip() for cell in line.strip().strip("|").split("|")]


def figures():
    """{(workload, program): {column: figure}} of the table of workloads."""
    found, columns = {}, None
    for line in FIGURES.read_text().splitlines():
        row = cells(line) if line.startswith("|") else None
        if row and row[:2] == ["workload", "program"]:
            columns = row
        elif row and columns and len(row) == len(columns) and not row[0].startswith("---"):
            found[row[0], row[1]] = dict(zip(columns, row))
    return found


def refreshed(text):
    measured, lines = figures(), []
    for line in text.splitlines():
        label = cells(line)[0] if line.startswith("|") else None
        if label in MEASURED:
            workload, column, form = MEASURED[label]
            values = [form.format(float(measured[workload, program][column]))
                      for program in PROGRAMS]
            line = f"| {label} | " + " | ".join(values) + " |"
        lines.append(line)
    return "\n".join(lines) + "\n"


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("--check", action="store_true", help="write nothing; is the table current?")
    arguments = parser.parse_args()
    text = README.read_text()
    missing = [label for label in MEASURED if f"| {label} |" not in text]
    if missing:
        print(f"README.md has no row {missing}", file=sys.stderr)
        return 1
    made = refreshed(text)
    if not arguments.check:
        README.write_text(made)
    elif made != text:
        print("README.md has other figures than docs/performance.md: run tools/gen_readme.py",
              file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
