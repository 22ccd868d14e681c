"""The program where its users meet it: installed, and its report in a browser.

The installation is made as a packager makes it, and the program must find its messages there
however it is started. The macro report is loaded by a headless Chromium, which is asked through
WebDriver what it made of it.

The frame page opens a body before its frameset, and the HTML standard has browsers pass over such a
frameset. So the report is looked at three ways: the frame page as it is (where no frames come up,
the style sheet must say where the report stands), the frame page as older browsers read it, that is
without the body tag, and the contents page by itself.

    python3 checks/toolchain.py [--build build/release] [--require-browser]

A missing Chromium is installed where that is possible; without one its checks are skipped, unless
--require-browser is given or CI=true is set. build/toolchain/ keeps the pictures of the pages.
"""

import argparse
import contextlib
import os
import pathlib
import re
import shutil
import stat
import subprocess
import sys
import tempfile
import time

from browser import Browser, have_browser
from tally import ROOT, TIMEOUT, Failure, Tally, run, same

PICTURES = ROOT / "build" / "toolchain"


# ---- The installation ----

STAMP = re.search(r"build_stamp = (\d+)", (ROOT / "common/version.h").read_text())[1]
INSTALLED = ["ARCHITECTURE.md", "LICENSE", "NOTICES.md", "README.md", "bin/cpp",
             "docs/messages.html", "docs/messages.md", "examples/firmware/Makefile", "examples/udf_styles.css",
             "share/cmake/CppPreprocess/CppPreprocessConfig.cmake", "share/man/man1/vex-cpp.1",
             f"vex/dat/{STAMP}_en.msgs"]
MESSAGE_FILE = "20990101000000_en.msgs"


def check_tree(prefix, work):
    missing = [name for name in INSTALLED if not (prefix / name).is_file()]
    same("missing in the installation", missing, [])
    same("the programs", os.listdir(prefix / "bin"), ["cpp"])
    same("the device family's directory", sorted(os.listdir(prefix / "vex")), ["dat", "include"])
    program = prefix / "bin/cpp"
    same("the program's permissions", oct(stat.S_IMODE(program.stat().st_mode)), oct(0o755))
    for text in prefix.rglob("*.md"):
        if text.stat().st_size < 100:
            raise Failure(f"{text.name} is empty")
    # Its message file says what is built in, and keeps the program from taking one found elsewhere.
    (work / MESSAGE_FILE).write_text("1446\tM\tof the working directory: %s\n")
    (work / "in.c").write_text("#info i\n")
    same("a message of the installation", run([program, "in.c"], work)[2], "in.c: 1: #info: i\n")
    (work / MESSAGE_FILE).unlink()


def check_ways_to_start(prefix, work):
    """However it is started, the program finds its tree. Cases put it into trees of all kinds."""
    (prefix / "vex/dat" / MESSAGE_FILE).write_text("1446\tM\tof the tree: %s\n")
    source = work / "in.c"
    source.write_text("#info i\n")
    by_name = dict(os.environ, PATH=f"{prefix / 'bin'}:{os.environ['PATH']}")
    for program, cwd in ((prefix / "bin/cpp", work), ("cpp", work), ("./cpp", prefix / "bin")):
        same(f"started as {program}", run([program, source], cwd, by_name)[2],
             f"{source}: 1: of the tree: i\n")


# ---- The report in a browser ----

SYMBOL_TABLE = "CPP symbol table"
COMMAND_LINE = "Command Line Arguments for CPP"


def expect_at_anchor(browser, number, heading):
    """The content page must be the one shown, scrolled to the heading that the anchor is for."""
    state = """const headings = [...document.querySelectorAll('h2')];
               const h = headings.find(e => e.innerText == arguments[0]);
               const top = h ? h.getBoundingClientRect().top : -1000;
               return [location.pathname.split('/').pop() + location.hash, top > -1 && top < 60,
                       document.readyState]"""
    expected = [f"main_rep.html#{number}", True, "complete"]
    end = time.monotonic() + TIMEOUT
    while (found := browser.script(state, heading)) != expected:
        if time.monotonic() > end:
            same(f"the page shown for {heading!r}", found, expected)
        time.sleep(0.05)


def check_frame_page(browser, work):
    browser.load(work / "rep.html")
    browser.picture(PICTURES / "frame-page.png")
    same("the title", browser.script("return document.title"), "CPP information for rep.html")
    if browser.script("return document.querySelectorAll('frame').length") == 0:
        note = browser.script("return getComputedStyle(document.body, '::before').content")
        if "toc_" not in note or "main_" not in note:
            raise Failure("the page is blank and does not say where the report stands")


def check_framed(browser, work):
    page = (work / "rep.html").read_text()
    same("body tags of the frame page", page.count("<BODY>\n"), 1)
    (work / "framed.html").write_text(page.replace("<BODY>\n", ""))
    browser.load(work / "framed.html")
    names = browser.script("return [...document.querySelectorAll('frame')].map(f => f.name)")
    same("frames", names, ["toc", "main"])
    for number, heading in ((1, SYMBOL_TABLE), (0, COMMAND_LINE)):
        browser.to_frame("toc")
        browser.click_link(heading)
        browser.to_frame("main")
        expect_at_anchor(browser, number, heading)
        browser.to_frame(None)
    browser.picture(PICTURES / "framed.png")


def check_contents_page(browser, work):
    browser.load(work / "toc_rep.html")
    same("the contents", browser.script("return document.body.innerText").split(),
         f"Table of Contents {COMMAND_LINE} {SYMBOL_TABLE}".split())
    browser.click_link(SYMBOL_TABLE)
    contents = browser.to_other_window()
    expect_at_anchor(browser, 1, SYMBOL_TABLE)
    browser.picture(PICTURES / "content-page.png")
    browser.close_window(contents)


def check_rows(browser, work):
    browser.load(work / "main_rep.html")
    rows = browser.script("return [...document.querySelectorAll('table tr')]"
                          ".map(r => [...r.cells].map(c => c.innerText))")
    same("the titles", rows[0], ["Macro name", "Arguments", "Value"])
    same("rows that have not three cells", [row for row in rows if len(row) != 3], [])
    # A macro's rows: its definition, then each expansion.
    for count, row in (
            (2, ["__FILE__", "none", "dynamic replacement"]),
            (2, ["BOARD_REV", "none", "2"]),
            (1, ["CONFIG_H", "none", ""]),
            (3, ["F_CPU", "none", "16000000u"]),
            (3, ["TICKS", "1", "((<0>) * (TICK_HZ / 1000u))"]),
            (2, ["ASSERT", "1", "((<0>) ? NOTHING : fail(<0>, __FILE__, __LINE__))"]),
            (2, ["SET", "2", "(CTRL(<0>) |= 1u << <0><\\077436>_<\\077436><1>)"])):
        same(f"rows {row}", rows.count(row), count)
    commands = browser.script("return [...document.querySelectorAll('code')]"
                              ".filter(c => !c.closest('table')).map(c => c.innerText)")
    same("the command line", commands[1:], REPORT_COMMAND[1:])
    same("the program's own name", os.path.basename(commands[0]), "cpp")


def check_style(browser, work):
    borders = "return getComputedStyle(document.querySelector('table')).borderCollapse"
    for style, expected in ((True, "collapse"), (False, "separate")):
        page = work / "main_rep.html"
        if not style:
            (work / "bare").mkdir(exist_ok=True)
            page = shutil.copy(page, work / "bare")
        browser.load(pathlib.Path(page))
        same(f"the table's borders, style sheet {style}", browser.script(borders), expected)


REPORT_COMMAND = ["cpp", "-Iinclude", "-DBOARD_REV=2", "--udf=rep.html", "blink.c", "blink.i"]
BROWSER_CHECKS = [check_frame_page, check_framed, check_contents_page, check_rows, check_style]


def make_report(prefix, work):
    shutil.copy(ROOT / "examples/blink.c", work)
    shutil.copytree(ROOT / "examples/include", work / "include")
    same("the run that makes the report",
         run([prefix / "bin/cpp"] + REPORT_COMMAND[1:], work), (0, "", ""))
    shutil.copy(prefix / "examples/udf_styles.css", work)


# ---- The run ----

def check_in_browser(tally, prefix, scratch, is_required):
    work = scratch / "report"
    work.mkdir()
    if not have_browser():
        print("no Chromium with chromedriver here: the report is not looked at in a browser")
        if is_required:
            tally.failed += len(BROWSER_CHECKS)
        else:
            tally.skipped += len(BROWSER_CHECKS)
        return
    try:
        make_report(prefix, work)
        browser = Browser(scratch)
    except (Failure, OSError, subprocess.SubprocessError) as error:
        print(f"browser: {error}")
        tally.failed += len(BROWSER_CHECKS)
        return
    with contextlib.closing(browser):
        for function in BROWSER_CHECKS:
            tally.check(function, browser, work)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("--build", type=pathlib.Path, default=ROOT / "build/release")
    parser.add_argument("--require-browser", action="store_true",
                        default=os.environ.get("CI") == "true")
    options = parser.parse_args()

    tally = Tally()
    with tempfile.TemporaryDirectory(prefix="cpp-toolchain-", ignore_cleanup_errors=True) as name:
        scratch = pathlib.Path(name).resolve()
        prefix = scratch / "prefix"
        work = scratch / "work"
        work.mkdir()
        status, _, err = run(["cmake", "--install", options.build, "--prefix", prefix], ROOT)
        if status != 0:
            print(err, end="")
            tally.failed += 1
            return tally.close()
        for function in (check_tree, check_ways_to_start):
            tally.check(function, prefix, work)
        check_in_browser(tally, prefix, scratch, options.require_browser)
    return tally.close()


if __name__ == "__main__":
    sys.exit(main())
