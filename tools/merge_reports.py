#!/usr/bin/env python3
"""Merges the reports of many runs into one page for a whole build.

    cpp --report=NAME.json ...            for each unit of the build
    tools/merge_reports.py -o build.html REPORT.json...

The page shows which header costs most over all units, which macro nobody uses, and the calls that
are most frequent. With an output named *.json only the merged data is written; docs/report.md
describes both. An argument @FILE names a file that lists reports, one a line.

Files of different units are one file when their absolute paths are equal; a macro is one macro when
its name and the place of its first definition are. Shown is what was defined there first.
"""

import argparse
import json
import os
import pathlib
import sys

HERE = pathlib.Path(__file__).resolve().parent
PAGES = (HERE / "page", HERE.parent / "cpp" / "report" / "page")  # in an installation, in the sources
FORMAT = "cpp report"
VERSION = 1
CALLS_SHOWN = 300

FILE_SUMS = ("bytes", "lines", "reads", "spared", "self_ns", "total_ns", "self_output",
             "total_output")
MACRO_SUMS = ("expanded", "if", "ifdef", "same_again", "redefined", "undefined")
RUN_SUMS = ("total_ns", "bytes_read", "bytes_written", "expansions")


class BadReport(Exception):
    """A file is no report that this script can merge; the text tells which, and why."""


def read_report(path):
    try:
        report = json.loads(pathlib.Path(path).read_text(encoding="utf-8"))
    except OSError as error:
        raise BadReport(f"{path}: {error.strerror}") from error
    except ValueError as error:
        raise BadReport(f"{path}: not JSON ({error})") from error
    if not isinstance(report, dict) or report.get("format") != FORMAT:
        raise BadReport(f"{path}: not a report of cpp")
    if report.get("version") != VERSION or report.get("kind") != "run":
        raise BadReport(f"{path}: version {report.get('version')}, kind {report.get('kind')!r}; "
                        f"this script merges version {VERSION}, kind 'run'")
    return report


def add(total, part, names):
    for name in names:
        total[name] = total.get(name, 0) + part[name]


def add_counts(total, part):
    for name, number in part.items():
        total[name] = total.get(name, 0) + number


class Build:
    """The reports merged so far. Records are told apart by keys; numbers are given at the end."""

    def __init__(self):
        self.units = []
        self.files = {}
        self.macros = {}
        self.calls = {}
        self.messages = []
        self.sums = {name: 0 for name in RUN_SUMS}
        self.phases = {}
        self.kinds = {}
        self.left_out = {}
        self.status = 0
        self.manual = ""

    def merge(self, report):
        """Adds one run."""
        paths = [self.absolute(report, record["path"]) for record in report["files"]]
        self.add_unit(report)
        for path, record in zip(paths, report["files"]):
            self.add_file(path, record, paths)
        keys = [self.add_macro(record, paths) for record in report["macros"]]
        for call in report["calls"]:
            self.add_call(call, keys, paths)
        self.messages += report["messages"]

    @staticmethod
    def absolute(report, path):
        if os.path.isabs(path) or path[1:2] == ":":
            return path
        return os.path.normpath(os.path.join(report["directory"], path or "-")).replace("\\", "/")

    def add_unit(self, report):
        unit = {name: report[name] for name in RUN_SUMS + ("input", "directory", "command", "status",
                                                           "complete", "started")}
        unit["headers"] = sum(1 for record in report["files"] if record["places"])
        self.units.append(unit)
        add(self.sums, report, RUN_SUMS)
        add_counts(self.phases, report["phase_ns"])
        add_counts(self.kinds, report["messages_by_kind"])
        add_counts(self.left_out, report["left_out"])
        self.status = max(self.status, report["status"])
        self.manual = self.manual or report["manual"]

    def add_file(self, path, record, paths):
        total = self.files.setdefault(path, {
            "path": path, "own": False, "units": 0, "text": False, "macro_used": False,
            "candidate": bool(record["places"]), "places": {}})
        total["units"] += 1
        add(total, record, FILE_SUMS)
        for name in ("own", "text", "macro_used"):
            total[name] = total[name] or record[name]
        total["candidate"] = total["candidate"] and record["candidate"]
        for at in record["places"]:
            place = total["places"].setdefault((paths[at["file"]], at["line"]),
                                               {"reads": 0, "spared": 0})
            add(place, at, ("reads", "spared"))

    def add_macro(self, record, paths):
        """Returns the key of the macro."""
        place = paths[record["file"]] if record["file"] >= 0 else ""
        known = record["origin"] != "none"
        key = (record["name"], place, record["line"]) if known else (record["name"],)
        total = self.macros.setdefault(key, dict(
            {name: record[name] for name in ("name", "params", "body", "origin", "line")},
            place=place, defined=False, units=0, used_in=0, bodies=set(), changes=[]))
        add(total, record, MACRO_SUMS)
        total["defined"] = total["defined"] or record["defined"]
        total["units"] += known
        total["used_in"] += record["expanded"] + record["if"] + record["ifdef"] > 0
        total["bodies"].add((tuple(record["params"] or ()), record["body"]))
        return key

    def add_call(self, call, keys, paths):
        steps = call["steps"]
        key = (keys[call["macro"]], tuple(steps[0]["args"]), call["result"])
        total = self.calls.get(key)
        if total is None:
            total = self.calls[key] = {
                "macro": keys[call["macro"]], "place": paths[call["file"]], "line": call["line"],
                "own": False, "count": 0, "cut": call["cut"], "result": call["result"],
                "steps": [dict(step, macro=keys[step["macro"]]) for step in steps]}
        total["own"] = total["own"] or call["own"]
        total["count"] += call["count"]

    def common_root(self):
        """What all paths of the inputs and own files begin with, to be left out of all paths."""
        own = [os.path.dirname(path) for path, record in self.files.items() if record["own"]]
        try:
            root = os.path.commonpath(own) if own else ""
        except ValueError:
            return ""
        return root.rstrip("/") + "/" if root not in ("", "/") else ""

    def data(self):
        """The merged report."""
        root = self.common_root()
        number = {path: n for n, path in enumerate(self.files)}
        macro_number = {key: n for n, key in enumerate(self.macros)}

        def place(path, line):
            return {"file": number.get(path, -1), "line": line}

        files = []
        for record in self.files.values():
            places = [dict(place(*at), **counts) for at, counts in record["places"].items()]
            files.append(dict(record, path=record["path"].removeprefix(root), places=places))
        macros = []
        for record in self.macros.values():
            record = dict(record, variants=len(record["bodies"]), **place(record["place"],
                                                                        record["line"]))
            del record["bodies"], record["place"]
            macros.append(record)
        calls = sorted(self.calls.values(), key=lambda call: -call["count"])[:CALLS_SHOWN]
        calls = [dict(call, macro=macro_number[call["macro"]], **place(call["place"], call["line"]),
                      steps=[dict(step, macro=macro_number[step["macro"]])
                             for step in call["steps"]]) for call in calls]
        for call in calls:
            del call["place"]
        return {"format": FORMAT, "version": VERSION, "kind": "build", "manual": self.manual,
                "root": root, "started": min(unit["started"] for unit in self.units),
                "status": self.status, "complete": all(unit["complete"] for unit in self.units),
                **self.sums, "phase_ns": self.phases, "messages_by_kind": self.kinds,
                "left_out": self.left_out, "units": self.units, "files": files, "macros": macros,
                "calls": calls, "messages": self.messages}


def page(data):
    """The page with `data` in it, escaped so that nothing of it can end the block."""
    text = json.dumps(data, separators=(",", ":"))
    for c in "<>&":
        text = text.replace(c, f"\\u{ord(c):04X}")
    where = next(filter(pathlib.Path.is_dir, PAGES), PAGES[0])
    parts = {f"@{name}@": (where / file).read_text(encoding="utf-8")
             for name, file in (("STYLE", "style.css"), ("SCRIPT", "script.js"))}
    html = (where / "page.html").read_text(encoding="utf-8")
    for mark, part in dict(parts, **{"@DATA@": text}).items():
        before, after = html.split(mark)
        html = before + part + after
    return html


def listed(arguments):
    """The reports named by the arguments, those of lists among them."""
    for argument in arguments:
        if not argument.startswith("@"):
            yield argument
            continue
        try:
            yield from filter(None, pathlib.Path(argument[1:]).read_text().splitlines())
        except OSError as error:
            raise BadReport(f"{argument[1:]}: {error.strerror}") from error


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("reports", nargs="+", help="a report as JSON, or @FILE with a list of them")
    parser.add_argument("-o", "--output", required=True, type=pathlib.Path,
                        help="the page, or the data alone when it is named *.json")
    options = parser.parse_args()
    build = Build()
    try:
        for path in listed(options.reports):
            build.merge(read_report(path))
        if not build.units:
            raise BadReport("no reports")
        data = build.data()
        is_data = options.output.suffix == ".json"
        text = json.dumps(data) + "\n" if is_data else page(data)
        options.output.write_text(text, encoding="utf-8")
    except BadReport as error:
        sys.exit(f"merge_reports.py: {error}")
    except (KeyError, IndexError, TypeError) as error:
        sys.exit(f"merge_reports.py: {path}: incomplete ({type(error).__name__}: {error})")
    except OSError as error:
        sys.exit(f"merge_reports.py: {error.filename or options.output}: {error.strerror}")


if __name__ == "__main__":
    main()
