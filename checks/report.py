"""The report page (--report=) in a headless Chromium, and its numbers against other counts.

What the page says is compared with what is known otherwise: the headers with those that -H names,
the macros with those that -dM dumps, over the sources of Lua, zlib and bzip2; expansions, calls and
conditions with a small input counted by hand. Then the page is used as a person would: sorted,
filtered, searched, by keyboard, in both themes, at two widths, with hostile names and with 5,000
macros. No page may write to the console or ask for anything. The older macro report (--udf=) is
looked at, too.

    python3 checks/report.py [--build build/release] [--require-browser] [--only-by-hand]

The sources are fetched once (tools/corpus.py). A missing Chromium is installed where that is
possible; without one its steps are skipped, unless --require-browser is given or CI=true is set.
--only-by-hand leaves out the fetched sources and the browser.
build/report/ keeps the pictures.
"""

import argparse
import contextlib
import dataclasses
import json
import os
import pathlib
import re
import shutil
import sys
import tempfile

from browser import Browser, have_browser
from tally import ROOT, Failure, Tally, run, same
import corpus
import units

PICTURES = ROOT / "build/report"
PACKAGES = ROOT / "build/real-input/packages"
PROJECTS = {"lua5.1": "-DLUA_USE_APICHECK", "zlib": "-DZLIB_DEBUG", "bzip2": "-DBZ_DEBUG=1"}
FIRMWARE = ROOT / "examples/firmware"
KEYSTROKE_LIMIT, OPENING_LIMIT = 0.3, 1  # seconds
ENTER, DOWN = "\ue007", "\ue015"

REGS_H = """\
#ifndef REGS_H
#define REGS_H
#define REG(a) (*(char *)(a))
#define PORTA REG(0x22)
#define SET_BIT(reg, bit) ((reg) |= (1u << (bit))) /* not shown */
#endif
"""
DEAD_H = "#define NEVER_USED 1\n"
MAIN_C = """\
#include "regs.h"
#include "dead.h"
#include "regs.h"
#define LEVEL 3
#define STR(x) #x
#define XSTR(x) STR(x)
#define CAT(a, b) a##b
#define f(x) <x>
#define g f
#define REV(x) (x * 4)
#if REV(2) > 5 && defined(LEVEL) \\
    && !FOO /* c */
SET_BIT(PORTA, 3);
SET_BIT(PORTA, 3);
#elif LEVEL == 2
#else
#ifdef X
#endif
#endif
STR(LEVEL) XSTR(LEVEL) CAT(LE, VEL) f g(1) g(2) g(1)
#undef LEVEL
#define LEVEL 4
#define LEVEL 5
"""
# Name: expanded, in #if, in #ifdef.
BY_HAND = {"REV": (1, 1, 0), "LEVEL": (2, 1, 0), "STR": (2, 0, 0), "XSTR": (1, 0, 0),
           "CAT": (1, 0, 0), "f": (3, 0, 0), "g": (3, 0, 0), "SET_BIT": (2, 0, 0),
           "PORTA": (2, 0, 0), "REG": (2, 0, 0), "FOO": (0, 1, 0), "REGS_H": (0, 0, 1),
           "NEVER_USED": (0, 0, 0)}
SET_BIT_RESULT = "(((*(char *)(0x22))) |= (1u << (3)))"
SET_BIT_STEPS = [("SET_BIT", 1, ["PORTA", "3"], "((PORTA) |= (1u << (3)))"),
                 ("PORTA", 2, [], "REG(0x22)"),
                 ("REG", 3, ["0x22"], "(*(char *)(0x22))")]


class Program:
    """The program under test and a directory to use it in."""

    def __init__(self, path, work):
        self.path = path
        self.work = work

    def report(self, name, source, *options, status=0):
        """Runs it with a report; returns its data and what was written to standard error."""
        found, _, err = run([self.path, *options, f"--report={name}", source, "out.i"], self.work)
        same(f"status with {name}", found, status)
        text = (self.work / name).read_text(encoding="utf-8")
        if not name.endswith(".json"):
            text = re.search(r'type="application/json" id="data">(.*?)</script>', text, re.S)[1]
        if not text.isascii():
            raise Failure(f"the data of {name} is not ASCII")
        return json.loads(text), err


def write_example(work):
    for name, text in (("regs.h", REGS_H), ("dead.h", DEAD_H), ("main.c", MAIN_C)):
        (work / name).write_text(text)


# ---- The data. ----

def macros_of(data):
    return {macro["name"]: macro for macro in data["macros"]}


def check_numbers_by_hand(program, data):
    macros = macros_of(data)
    same("expanded and tested", {name: (macros[name]["expanded"], macros[name]["if"],
                                        macros[name]["ifdef"]) for name in BY_HAND}, BY_HAND)
    level = macros["LEVEL"]
    same("the changes of LEVEL", [(c["what"], c["line"]) for c in level["changes"]],
         [("defined", 4), ("undefined", 21), ("defined", 22), ("redefined", 23)])
    same("a definition", (macros["SET_BIT"]["params"], macros["SET_BIT"]["body"]),
         (["reg", "bit"], "((reg) |= (1u << (bit)))"))
    same("definitions with operators", [macros[name]["body"] for name in ("STR", "CAT")],
         ["#x", "a ## b"])
    same("origins", [macros[name]["origin"] for name in ("__DATE__", "LEVEL", "FOO")],
         ["start-up", "file", "none"])
    same("all expansions", data["expansions"], sum(numbers[0] for numbers in BY_HAND.values()))
    same("read and written", (data["bytes_read"], data["bytes_written"]),
         (sum((program.work / name).stat().st_size
              for name in ("main.c", "regs.h", "dead.h")),
          (program.work / "out.i").stat().st_size))
    same("phases", sum(data["phase_ns"].values()), data["total_ns"])
    same("messages", [(m["kind"], m["number"], m["file"], m["line"]) for m in data["messages"]],
         [("warning", 111, "main.c", 23)])


def check_headers_by_hand(_, data):
    files = {record["path"]: record for record in data["files"]}
    same("read, spared, candidate", {path: (record["reads"], record["spared"], record["candidate"])
                                     for path, record in files.items()},
         {"main.c": (1, 0, False), "regs.h": (1, 1, False), "dead.h": (1, 0, True)})
    same("places of regs.h", [(at["line"], at["reads"], at["spared"])
                              for at in files["regs.h"]["places"]], [(1, 1, 0), (3, 0, 1)])


def check_calls_and_conditions(_, data):
    names = [macro["name"] for macro in data["macros"]]
    calls = {(names[call["macro"]], *call["steps"][0]["args"]): call for call in data["calls"]}
    set_bit = calls["SET_BIT", "PORTA", "3"]
    same("SET_BIT(PORTA, 3)", (set_bit["count"], set_bit["result"], set_bit["own"]),
         (2, SET_BIT_RESULT, True))
    same("its steps", [(names[s["macro"]], s["depth"], s["args"], s["text"])
                       for s in set_bit["steps"]], SET_BIT_STEPS)
    same("results", {key: call["result"] for key, call in calls.items()
                     if key[0] not in ("SET_BIT", "g")},
         {("STR", "LEVEL"): '"LEVEL"', ("XSTR", "LEVEL"): '"3"', ("CAT", "LE", "VEL"): "3",
          ("REV", "2"): None})
    same("calls that take their arguments from behind",
         [(call["count"], [step["args"] for step in call["steps"]], call["result"])
          for call in data["calls"] if names[call["macro"]] == "g"],
         [(2, [[], ["1"]], "<1>"), (1, [[], ["2"]], "<2>")])
    main = next(n for n, record in enumerate(data["files"]) if record["path"] == "main.c")
    found = [(c["line"], c["directive"], c["text"], c["state"], c["evaluated"])
             for c in data["conditions"] if c["file"] == main]
    same("conditions", found, [
        (11, "if", "REV(2) > 5 && defined(LEVEL) && !FOO", "taken", "(2 * 4) > 5 && 1 && !0"),
        (15, "elif", "LEVEL == 2", "not looked at", ""),
        (16, "else", "", "not taken", ""),
        (17, "ifdef", "X", "not looked at", "")])
    first = next(c for c in data["conditions"] if c["file"] == main)
    same("its names", [(n["text"], n["value"]) for n in first["names"]],
         [("REV(2)", "(2 * 4)"), ("LEVEL", "1"), ("FOO", "0")])


def check_early_end(program):
    (program.work / "early.c").write_text("#define A 1\nA\n#include <missing.h>\nA\n")
    data, _ = program.report("early.json", "early.c", status=1)
    same("what happened until then", (data["complete"], data["status"], data["expansions"],
                                      data["messages"][0]["number"]), (False, 1, 1, 141))
    data, _ = program.report("early.html", "early.c", status=1)
    same("the page of it", data["complete"], False)


def check_long_texts(program):
    """A condition's text is kept up to 1,000 bytes, with a sign where it goes on; also where it
    goes on behind what has been read of the file."""
    whole = "1" + "+10" * 333
    (program.work / "long.c").write_text("".join(
        f"#if  {text} /* */\n#endif\n" for text in (whole, whole + "0", whole + " +1")))
    data, _ = program.report("long.json", "long.c")
    same("the texts", [condition["text"] for condition in data["conditions"]],
         [whole, whole + "...", whole + "..."])
    (program.work / "block.c").write_text("text\n" * 52427 + "#if 1 \\\n + 2\n#endif\n")
    data, _ = program.report("block.json", "block.c")
    same("a text across blocks", [condition["text"] for condition in data["conditions"]], ["1 ..."])


HOSTILE_NAME = "<img src=x onerror=alert(1)>.h"
HOSTILE_BODY = "</script><!-- \u2028 ]]> <b>&amp;"


def write_hostile(work):
    (work / HOSTILE_NAME).write_bytes(b"#define IN_HEADER 1\n")
    (work / "hostile.c").write_bytes(
        f'#include "{HOSTILE_NAME}"\n#define BODY() {HOSTILE_BODY}\nBODY()\n'.encode() +
        b"#define LATIN() \xe9t\xe9 \x01 \x1b\nLATIN()\n#error \"<script>alert(2)</script>\"\n")


def check_hostile(program):
    write_hostile(program.work)
    data, _ = program.report("hostile.html", "hostile.c", status=1)
    same("the header's name", data["files"][1]["path"], HOSTILE_NAME)
    macros = macros_of(data)
    same("a body in UTF-8", macros["BODY"]["body"], HOSTILE_BODY)
    same("a body in Latin-1", macros["LATIN"]["body"], "\u00e9t\u00e9 \x01 \x1b")


def project_units():
    """Every source of the projects, read as the real-input check reads those that it takes."""
    found = {}
    for unit in units.all_units(PACKAGES):
        if unit.package in PROJECTS:
            found.setdefault(unit.package, unit)
    return [dataclasses.replace(unit, name=str(path), path=path) for unit in found.values()
            for path in sorted((PACKAGES / unit.package).rglob("*.c"))]


def check_real_sources(program, reports):
    """Headers by -H and macros by -dM, for each unit; leaves the reports for the merged page, and
    those of the projects' debug builds."""
    for number, unit in enumerate(project_units()):
        name = f"unit{number}.json"
        flags = ["-N255", *unit.flags()]
        command = [program.path, *flags, unit.path]
        status, _, err = run([*command, "-H", f"--report={name}", "-o", "out.i"], program.work)
        plain = run([*command, "-o", "plain.i"], program.work)[0]
        same(f"{unit.name}: status", status, plain)
        same(f"{unit.name}: output with a report", (program.work / "out.i").read_bytes(),
             (program.work / "plain.i").read_bytes())
        data = json.loads((program.work / name).read_text())
        # Names of headers stand alone on their lines, messages do not.
        named = {line.replace("\\", "/") for line in err.splitlines()}
        same(f"{unit.name}: headers", {f["path"] for f in data["files"][1:]} ^
             {line for line in named if pathlib.Path(line).is_file()}, set())
        if status == 0:
            dump = run([*command, "-dM"], program.work)[1]
            same(f"{unit.name}: macros", {m["name"] for m in data["macros"]
                                          if m["defined"] and m["body"] is not None},
                 set(re.findall(r"^#define ([^\s(]+)", dump, re.M)))
        debug = f"debug{number}.json"
        run([*command, PROJECTS[unit.package], f"--report={debug}", "-o", "out.i"], program.work)
        reports += [program.work / name, program.work / debug]


def report_examples(program):
    """The pages of the firmware and of a source of Lua."""
    header = program.work / "pins.h"
    run(["awk", "-v", f"header={header}", "-f", FIRMWARE / "pins.awk", FIRMWARE / "pins.txt"], ROOT)
    program.report("firmware.html", FIRMWARE / "src/main.c", f"-I{FIRMWARE}/include/",
                   f"-I{program.work}/", "-DBOARD_REV=2")
    unit = next(unit for unit in project_units() if unit.path.name == "lvm.c")
    program.report("lua.html", unit.path, "-N255", *unit.flags())


def check_merged(program, reports):
    status, _, err = run([ROOT / "tools/merge_reports.py", "-o", "build.json", *reports],
                         program.work)
    same("merging", (status, err), (0, ""))
    merged = json.loads((program.work / "build.json").read_text())
    parts = [json.loads(path.read_text()) for path in reports]
    same("units", len(merged["units"]), len(parts))
    if len(parts) <= 100:
        raise Failure(f"only {len(parts)} units")
    for name in ("expansions", "bytes_read", "bytes_written", "total_ns"):
        same(f"the sum of {name}", merged[name], sum(part[name] for part in parts))
    for name in ("reads", "spared", "self_ns"):
        same(f"the sum of {name}", sum(f[name] for f in merged["files"]),
             sum(f[name] for part in parts for f in part["files"]))
    same("the sum of expanded", sum(m["expanded"] for m in merged["macros"]),
         sum(m["expanded"] for part in parts for m in part["macros"]))
    (program.work / "bad.json").write_text('{"format": "other"}')
    status, _, err = run([ROOT / "tools/merge_reports.py", "-o", "x.html", "bad.json"],
                         program.work)
    same("a file that is no report", (status, err),
         (1, "merge_reports.py: bad.json: not a report of cpp\n"))
    same("its page", run([ROOT / "tools/merge_reports.py", "-o", "build.html", *reports],
                         program.work)[0], 0)


# ---- The page. ----

class Page:
    """A report in the browser."""

    def __init__(self, browser, path):
        self.browser = browser
        self.path = path
        browser.log("browser")
        browser.log("performance")
        self.size(1280)
        self.theme("light")
        browser.load(path)

    def size(self, width, height=900):
        self.browser.devtools("Emulation.setDeviceMetricsOverride", width=width, height=height,
                              deviceScaleFactor=1, mobile=False)

    def theme(self, name):
        self.browser.devtools("Emulation.setEmulatedMedia",
                              features=[{"name": "prefers-color-scheme", "value": name}])

    def section(self, name):
        self.browser.script("location.hash = arguments[0]", name)
        self.browser.until("return document.querySelector('nav [aria-current]')?.hash",
                   f"#{name.split('/')[0]}")

    def cells(self, column):
        return self.browser.script(
            "return [...document.querySelectorAll('tr.row')]"
            ".map(r => r.cells[arguments[0]].innerText)", column)

    def names(self):
        """The macros in view, by the code of their first cell."""
        return self.browser.script(
            "return [...document.querySelectorAll('tr.row td:first-child code')]"
            ".map(c => c.innerText)")

    def search(self, text):
        self.browser.script("const i = document.querySelector('main input[type=search]');"
                            "i.value = arguments[0]; i.dispatchEvent(new Event('input'))", text)

    def click(self, selector, text):
        self.browser.until("const e = [...document.querySelectorAll(arguments[0])]"
                           ".find(e => e.innerText.startsWith(arguments[1]));"
                           "if (e) e.click(); return Boolean(e)", True, selector, text)

    def quiet(self):
        """Nothing was written to the console, and nothing asked for but the page."""
        same("the console", [entry["message"] for entry in self.browser.log("browser")], [])
        asked = [json.loads(entry["message"])["message"]
                 for entry in self.browser.log("performance")]
        urls = {event["params"]["request"]["url"] for event in asked
                if event["method"] == "Network.requestWillBeSent"}
        # The browser's own empty tab, from before the page, is built of chrome:// parts.
        same("requests", {url for url in urls if url.split("#")[0] != self.path.as_uri() and
                          not url.startswith(("data:", "chrome://"))}, set())


def check_page_numbers(browser, work):
    page = Page(browser, work / "hand.html")
    tiles = browser.script(
        "return Object.fromEntries([...document.querySelectorAll('.tile')]"
        ".map(t => ['span', 'b'].map(name => t.querySelector(name).innerText)))")
    same("the tiles", (tiles["headers"], tiles["expansions"], tiles["warning"]),
         ("2", str(sum(n[0] for n in BY_HAND.values())), "1"))
    page.section("macros")
    rows = dict(zip(page.names(), page.cells(3)))
    same("expanded", rows["SET_BIT(reg, bit)"], "2\u00d7")
    page.section("calls")
    page.click("details.call > summary", "g(2)")
    page.click("details.call > summary", "g(2)")
    page.click("details.call > summary", "SET_BIT(PORTA, 3)")
    browser.until("return document.querySelectorAll('details[open] .steps li').length", 4)
    same("the result",
         browser.script("return document.querySelector('.steps .result code').innerText"),
         SET_BIT_RESULT)
    page.section("conditions")
    if "(2 * 4) > 5 && 1 && !0" not in " ".join(page.cells(1)):
        raise Failure("the evaluated condition is not shown")
    page.section("messages")
    same("the message", page.cells(1), ["(111)"])
    page.quiet()
    page.click("td a", "(111)")
    browser.until("return document.querySelector('h3:target')?.innerText", "111 (warning, level 1)")


def check_sorting_and_filters(browser, work):
    page = Page(browser, work / "hand.html")
    page.section("macros")
    page.click("th button", "Macro")
    up = [name.lower() for name in page.names()]
    same("sorted by name", up, sorted(up))
    page.click("th button", "Macro")
    same("sorted again", [name.lower() for name in page.names()], up[::-1])
    same("told to readers",
         browser.script("return document.querySelector('th[aria-sort]').ariaSort"), "descending")
    page.click(".chip", "unused")
    same("unused", "NEVER_USED" in page.names() and "LEVEL" not in page.names(), True)
    page.click(".chip", "redefined")
    same("redefined", page.names(), ["LEVEL"])
    page.click(".chip", "redefined")
    page.click(".chip", "never defined")
    same("never defined", page.names(), ["FOO"])
    page.click(".chip", "never defined")
    page.search("bit")
    same("found", page.names(), ["SET_BIT(reg, bit)"])
    page.search("no such macro")
    same("not found", page.names(), [])
    page.section("includes")
    page.click(".chip", "may be dropped")
    same("candidates", [cell.split()[0] for cell in page.cells(0)], ["dead.h"])
    page.quiet()


def check_keyboard(browser, work):
    page = Page(browser, work / "hand.html")
    browser.press("3")
    browser.until("return document.querySelector('nav [aria-current]').hash", "#macros")
    browser.press("/")
    browser.until("return document.activeElement.type", "search")
    browser.press(*"port")
    same("typed", page.names(), ["PORTA"])
    browser.script("document.querySelector('tr.row').focus()")
    browser.press(ENTER)
    browser.until("return document.querySelectorAll('tr.detail').length", 1)
    browser.press(DOWN, ENTER)
    browser.until("return document.querySelectorAll('tr.detail').length", 0)
    unreachable = browser.script(
        "return [...document.querySelectorAll('a, button, input, summary, tr.row')]"
        ".filter(e => !e.hidden && e.tabIndex < 0).length")
    same("controls that the keyboard does not reach", unreachable, 0)
    page.quiet()


def look_at_page(browser, path):
    """Both themes at both widths: readable, and nothing beside the page. Leaves pictures."""
    page = Page(browser, path)
    look = ("const s = getComputedStyle(document.body); const y = c => c.match(/\\d+/g).slice(0, 3)"
            ".reduce((a, b) => a + Number(b), 0); return [y(s.backgroundColor), y(s.color)]")
    for theme in ("light", "dark"):
        page.theme(theme)
        back, ink = browser.script(look)
        if (back > ink) != (theme == "light") or abs(back - ink) < 400:
            raise Failure(f"the {theme} theme has ink {ink} on {back}")
        for width in (400, 1280):
            page.size(width)
            for section in ("overview", "includes", "macros", "calls", "conditions", "messages"):
                page.section(section)
                browser.script("document.querySelector('tr.row, details.call > summary')?.click()")
                browser.picture(PICTURES / f"{path.stem}-{section}-{width}-{theme}.png")
                over = browser.script("return document.documentElement.scrollWidth - innerWidth")
                if over > 0:
                    raise Failure(f"{path.stem}: {section} is {over} pixels too wide at {width}")
    page.quiet()


def check_themes_and_widths(browser, work):
    for name in ("hand", "firmware", "lua"):
        look_at_page(browser, work / f"{name}.html")


def check_early_page(browser, work):
    page = Page(browser, work / "early.html")
    head = browser.script("return document.querySelector('header').innerText")
    if "ended early" not in head:
        raise Failure(f"the head does not say that the run ended early: {head!r}")
    page.quiet()


def check_hostile_page(browser, work):
    page = Page(browser, work / "hostile.html")
    for section in ("overview", "includes", "macros", "calls", "conditions", "messages"):
        page.section(section)
        browser.script("document.querySelectorAll('tr.row').forEach(r => r.click());"
                       "document.querySelectorAll('details').forEach(d => d.open = true)")
        same(f"markup in {section}", browser.script(
            "return document.querySelectorAll('main img, main script, main b b').length"), 0)
    page.section("includes")
    shown = browser.script("return document.body.innerText")
    if HOSTILE_NAME not in shown:
        raise Failure("the hostile name is not shown as it is")
    page.quiet()


MANY_MACROS, MANY_HEADERS = 5000, 700


def write_many(work):
    (work / "many").mkdir()
    for h in range(MANY_HEADERS):
        (work / f"many/h{h}.h").write_text(f"int t{h};\n")
    (work / "many.c").write_text(
        "".join(f'#include "many/h{h}.h"\n' for h in range(MANY_HEADERS)) +
        "".join(f"#define MACRO_{n}(a) ((a) + {n})\n" for n in range(MANY_MACROS)) +
        "".join(f"MACRO_{n}(1)\n" for n in range(0, MANY_MACROS, 3)))


# Types a letter and waits for the frame that shows it.
KEYSTROKE = """
const [text, done] = arguments;
const input = document.querySelector('main input[type=search]');
const begin = performance.now();
input.value = text;
input.dispatchEvent(new Event('input'));
requestAnimationFrame(() => setTimeout(() => done(performance.now() - begin)));
"""


OPENING = """
const [section, done] = arguments;
const begin = performance.now();
location.hash = section;
addEventListener('hashchange', () => requestAnimationFrame(() =>
  setTimeout(() => done(performance.now() - begin))), {once: true});
"""


def check_many(browser, work):
    page = Page(browser, work / "many.html")
    slowest = opening = 0
    for section, text, found in (("macros", "macro_4999", 1), ("includes", "h699", 1)):
        opening = max(opening, browser.async_script(OPENING, section))
        for n in range(1, len(text) + 1):
            # The least of some tries is the page's time, the rest is that of a busy machine.
            slowest = max(slowest, min(browser.async_script(KEYSTROKE, text[:n]) for _ in range(3)))
        same(f"rows found in {section}", len(page.cells(0)), found)
        page.search("")
        browser.until("return document.querySelector('thead th').getBoundingClientRect().top > 0",
                   True)
    page.section("includes")
    for shown in (200, 300):
        page.click(".tree button", "Show more")
        same("branches", browser.script("return document.querySelectorAll('.tree .leaf').length"),
             shown)
    page.section("macros")
    browser.script("scrollTo(0, 1800)")
    browser.until("return scrollY > 1000 && document.querySelectorAll('tr.row').length > 50", True)
    head = browser.script("return document.querySelector('thead th').getBoundingClientRect().top")
    if not 0 <= head < 100:
        raise Failure(f"the table's head is at {head} after scrolling")
    print(f"slowest keystroke with {MANY_MACROS} macros: {slowest:.0f} ms, "
          f"slowest opening of a section: {opening:.0f} ms")
    if slowest > 1000 * KEYSTROKE_LIMIT or opening > 1000 * OPENING_LIMIT:
        raise Failure("the page lets its reader wait")
    page.quiet()


def check_build_page(browser, work):
    page = Page(browser, work / "build.html")
    for section in ("overview", "units", "includes", "macros", "calls", "messages"):
        page.section(section)
        browser.picture(PICTURES / f"build-{section}.png")
    page.section("units")
    count = browser.script("return document.querySelector('.found').innerText.split(' ').pop()")
    same("units on the page", int(count), 2 * len(project_units()))
    page.quiet()


# ---- The macro report of --udf=, in frames. ----
#
# The frame page opens a body before its frameset, and the HTML standard has browsers pass over such
# a frameset. Where no frames come up, the style sheet must say where the report stands.

REPORT_COMMAND = ["cpp", "-Iinclude", "-DBOARD_REV=2", "--udf=rep.html", "blink.c", "blink.i"]


def write_framed(program):
    shutil.copy(ROOT / "examples/blink.c", program.work)
    shutil.copytree(ROOT / "examples/include", program.work / "include")
    shutil.copy(ROOT / "examples/udf_styles.css", program.work)
    same("the run that makes the report",
         run([program.path] + REPORT_COMMAND[1:], program.work), (0, "", ""))


def expect_at_anchor(browser, number, heading):
    """The content page must be the one shown, scrolled to the heading that the anchor is for."""
    browser.until("""const headings = [...document.querySelectorAll('h2')];
                     const h = headings.find(e => e.innerText == arguments[0]);
                     const top = h ? h.getBoundingClientRect().top : -1000;
                     return [location.pathname.split('/').pop() + location.hash,
                             top > -1 && top < 60, document.readyState]""",
                  [f"main_rep.html#{number}", True, "complete"], heading)


def check_frame_page(browser, work):
    browser.load(work / "rep.html")
    browser.picture(PICTURES / "frame-page.png")
    same("the title", browser.script("return document.title"), "CPP information for rep.html")
    if browser.script("return document.querySelectorAll('frame').length") == 0:
        note = browser.script("return getComputedStyle(document.body, '::before').content")
        if "toc_" not in note or "main_" not in note:
            raise Failure("the page is blank and does not say where the report stands")


def check_contents(browser, work):
    """Each entry leads, in the other frame, to the heading of its name."""
    browser.load(work / "toc_rep.html")
    links = browser.script("return [...document.links].map(a => [a.href, a.target, a.innerText])")
    same("the entries", [link[1:] for link in links],
         [["main", "Command Line Arguments for CPP"], ["main", "CPP symbol table"]])
    for number, (href, _, heading) in enumerate(links):
        browser.script("location.href = arguments[0]", href)
        expect_at_anchor(browser, number, heading)


def check_rows(browser, work):
    browser.load(work / "main_rep.html")
    rows = browser.script("return [...document.querySelectorAll('table tr')]"
                          ".map(r => [...r.cells].map(c => c.innerText))")
    same("the titles", rows[0], ["Macro name", "Arguments", "Value"])
    same("rows that have not three cells", [row for row in rows if len(row) != 3], [])
    definition = ["SET", "2", "(CTRL(<0>) |= 1u << <0><\\077436>_<\\077436><1>)"]
    same("the rows of a definition and a call", rows.count(definition), 2)


def check_style(browser, work):
    borders = "return getComputedStyle(document.querySelector('table')).borderCollapse"
    for style, expected in ((True, "collapse"), (False, "separate")):
        page = work / "main_rep.html"
        if not style:
            (work / "bare").mkdir(exist_ok=True)
            page = shutil.copy(page, work / "bare")
        browser.load(pathlib.Path(page))
        same(f"the table's borders, style sheet {style}", browser.script(borders), expected)


BROWSER_CHECKS = [check_page_numbers, check_sorting_and_filters, check_keyboard,
                  check_themes_and_widths, check_early_page, check_hostile_page, check_many,
                  check_build_page, check_frame_page, check_contents, check_rows, check_style]


# ---- The run. ----

def check_in_browser(tally, program, is_required):
    if not have_browser():
        print("no Chromium with chromedriver here: the page is not looked at in a browser")
        if is_required:
            tally.failed += len(BROWSER_CHECKS)
        else:
            tally.skipped += len(BROWSER_CHECKS)
        return
    with contextlib.closing(Browser(program.work)) as browser:
        for function in BROWSER_CHECKS:
            tally.check(function, browser, program.work)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("--build", type=pathlib.Path, default=ROOT / "build/release")
    parser.add_argument("--require-browser", action="store_true",
                        default=os.environ.get("CI") == "true")
    parser.add_argument("--only-by-hand", action="store_true")
    options = parser.parse_args()
    tally = Tally()
    with tempfile.TemporaryDirectory(prefix="cpp-report-", ignore_cleanup_errors=True) as name:
        program = Program(options.build.resolve() / "bin/cpp", pathlib.Path(name).resolve())
        write_example(program.work)
        data, _ = program.report("hand.json", "main.c")
        for function in (check_numbers_by_hand, check_headers_by_hand, check_calls_and_conditions):
            tally.check(function, program, data)
        tally.check(check_early_end, program)
        tally.check(check_long_texts, program)
        tally.check(check_hostile, program)
        if options.only_by_hand:
            return tally.close()
        corpus.fetch(PACKAGES)
        reports = []
        tally.check(check_real_sources, program, reports)
        tally.check(check_merged, program, reports)
        write_many(program.work)
        program.report("hand.html", "main.c")
        program.report("many.html", "many.c")
        report_examples(program)
        write_framed(program)
        check_in_browser(tally, program, options.require_browser)
    return tally.close()


if __name__ == "__main__":
    sys.exit(main())
