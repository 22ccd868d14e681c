"""The packages where they are unpacked: installed, used, removed, and nothing of them left.

cpack makes them of a build, and each goes into a bare root, a directory that holds nothing of a
system. The program runs there by chroot, so what it needs is what its package brings along. The deb
is installed by dpkg beside another package that owns /usr/bin/cpp, which must stay as it is. The
zip's Windows program runs under Wine. Last comes what a packager would do with the sources: a plain
build in directories of his own choice, with the system's shared libraries.

    python3 checks/packages.py [--build build/release] [--require-windows]

What is missing (lintian, mandoc, ...) is installed where that is possible. Without the Windows
program (./test --windows builds it) its step is skipped, unless --require-windows is given.
"""

import argparse
import gzip
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

from tally import ROOT, Failure, Tally, run, same
import usage_page

PLAIN_BUILD = ROOT / "build" / "plain"
WINDOWS_PROGRAM = ROOT / "build" / "windows" / "bin" / "cpp.exe"
TREE = "usr/lib/vex-cpp"
TIMEOUT = 300


def done(command, cwd=ROOT, env=None):
    """Runs a command that must succeed; returns what it printed."""
    status, out, err = run(command, cwd, env, timeout=TIMEOUT)
    if status != 0:
        raise Failure(f"{' '.join(map(str, command))}: status {status}\n{out[-2000:]}{err[-2000:]}")
    return out


def as_root(*command):
    return command if os.geteuid() == 0 else ("unshare", "--map-root-user", *command)


def listing(root):
    """Every file and link below a root, with what tells that it has changed."""
    def state(path):
        info = path.lstat()
        return (path.is_dir() and not path.is_symlink(), info.st_mode,
                0 if path.is_dir() else info.st_mtime_ns)
    return {str(path.relative_to(root)): state(path) for path in root.rglob("*")}


# ---- The program in a bare root ----

SOURCE = '#include <device.h>\n#include "own.h"\nN\n'


def check_report(root, work):
    """A report leads to the message manual of the package, and the package's script merges it."""
    manual = json.loads((work / "out.json").read_text())["manual"]
    if not manual or '<h3 id="111">' not in (root / manual.lstrip("/")).read_text():
        raise Failure(f"no message manual at {manual!r}")
    [script] = root.glob("**/tools/merge_reports.py")
    done([sys.executable, script, "-o", work / "build.html", work / "out.json"])
    if "@DATA@" in (work / "build.html").read_text():
        raise Failure("the merged page has no data")


def use(root, program, include):
    """Preprocesses something in the root. The installation's headers are known as such only by a
    program that has found its tree, so a list without them shows that it has."""
    work = root / "work"
    work.mkdir()
    (root / include).mkdir(exist_ok=True, parents=True)
    header = root / include / "device.h"
    header.write_text("#define N 5\n")
    (work / "in.c").write_text(SOURCE)
    (work / "own.h").write_text("")
    command = as_root("chroot", root, f"/{program}", f"-I/{include}/", "/work/in.c")
    same("the output", done(command).splitlines()[-1], "5")
    done([*command, "--report=/work/out.json", "/work/out.i"])
    check_report(root, work)
    same("the headers that are not the installation's",
         run([*command, "-", "-Llist", "--dep_nosys"], ROOT), (0, " /work/own.h\n", ""))
    header.unlink()
    shutil.rmtree(work)


STAMP = re.search(r"build_stamp = (\d+)", (ROOT / "common/version.h").read_text())[1]
INSTALLED = ["ARCHITECTURE.md", "LICENSE", "NOTICES.md", "README.md", "bin/cpp",
             "docs/messages.html", "docs/messages.md", "examples/firmware/Makefile",
             "examples/udf_styles.css", "share/cmake/CppPreprocess/CppPreprocessConfig.cmake",
             "share/man/man1/vex-cpp.1", f"vex/dat/{STAMP}_en.msgs"]
MESSAGE_FILE = "20990101000000_en.msgs"


def check_tree(tree, work):
    """Everything is there, and the program finds its messages, however it is started."""
    missing = [name for name in INSTALLED if not (tree / name).is_file()]
    same("missing in the installation", missing, [])
    same("the programs", set(os.listdir(tree / "bin")) - {"cpp.exe"}, {"cpp"})
    same("the device family's directory", sorted(os.listdir(tree / "vex")), ["dat", "include"])
    empty = [text.name for text in tree.rglob("*.md") if text.stat().st_size < 100]
    same("empty documents", empty, [])

    source = work / "in.c"
    source.write_text("#info i\n")
    by_name = dict(os.environ, PATH=f"{tree / 'bin'}:{os.environ['PATH']}")

    def messages():
        return [run([program, source], cwd, by_name)[2] for program, cwd in (
            (tree / "bin/cpp", work), ("cpp", work), ("./cpp", tree / "bin"))]

    # Its message file says what is built in, and keeps the program from taking one found elsewhere.
    (work / MESSAGE_FILE).write_text("1446\tM\tof the working directory: %s\n")
    same("a message of the installation", messages(), 3 * [f"{source}: 1: #info: i\n"])
    (tree / "vex/dat" / MESSAGE_FILE).write_text("1446\tM\tof the tree: %s\n")
    same("a newer one", messages(), 3 * [f"{source}: 1: of the tree: i\n"])
    for place in (work, tree / "vex/dat"):
        (place / MESSAGE_FILE).unlink()


def check_archive(archive, scratch):
    """Unpacked by the system's own tools an archive is one directory, which works wherever it is,
    and with which all is gone."""
    root = scratch / archive.name
    (root / "opt").mkdir(parents=True)
    done(["unzip", "-q", archive] if archive.suffix == ".zip" else ["tar", "xf", archive], root / "opt")
    [tree] = (root / "opt").iterdir()
    same("the directory's name", tree.name, archive.name.removesuffix(".tar.gz").removesuffix(".zip"))
    same("the program's permissions", oct((tree / "bin/cpp").stat().st_mode), oct(0o100755))
    check_tree(tree, scratch)
    for place in (tree, root / "moved here"):
        if place != tree:
            tree.rename(place)
        before = listing(root)
        use(root, place.relative_to(root) / "bin/cpp", place.relative_to(root) / "vex/include")
        same("what its use has changed", listing(root), before)
    check_links(place)
    shutil.rmtree(place)
    same("what is left", [str(path) for path in root.rglob("*")], [str(root / "opt")])


def check_windows(archive, scratch):
    where = scratch / "windows"
    shutil.unpack_archive(archive, where)
    [program] = where.glob("*/bin/cpp.exe")
    (where / "in.c").write_text("N\n")
    out = done(["sh", "-c", '. tools/wine.sh; trap stop_wine EXIT; start_wine && cd "$1" && '
                '$wine "$2" -DN=5 in.c', "sh", where, program])
    same("the output", out.splitlines()[-1], "5")


# ---- The deb ----

def other_package(scratch):
    """A package that owns /usr/bin/cpp, as the system's preprocessor does."""
    tree = scratch / "other"
    (tree / "DEBIAN").mkdir(parents=True)
    (tree / "DEBIAN/control").write_text(
        "Package: other\nVersion: 1\nArchitecture: all\nMaintainer: a <a@b.invalid>\nDescription: x\n")
    (tree / "usr/bin").mkdir(parents=True)
    (tree / "usr/bin/cpp").write_text("the system's own\n")
    done(["dpkg-deb", "--root-owner-group", "-b", tree, scratch / "other.deb"])
    return scratch / "other.deb"


def dpkg(root, *arguments):
    done(as_root("dpkg", f"--root={root}", "--force-not-root", *arguments))


DEB_FILES = ["doc/vex-cpp/copyright", "doc/vex-cpp/changelog.gz", "doc/vex-cpp/NOTICES.md",
             "bash-completion/completions/vex-cpp", "zsh/vendor-completions/_vex-cpp",
             "fish/vendor_completions.d/vex-cpp.fish", "vim/vimfiles/compiler/vex_cpp.vim"]


def check_deb(deb, scratch):
    root = scratch / "deb"
    for name in ("info", "updates"):
        (root / "var/lib/dpkg" / name).mkdir(parents=True)
    for name in ("status", "available"):
        (root / "var/lib/dpkg" / name).touch()
    dpkg(root, "-i", other_package(scratch))
    before = listing(root / "usr")

    dpkg(root, "-i", deb)
    same("the system's preprocessor", (root / "usr/bin/cpp").read_text(), "the system's own\n")
    same("the commands", sorted(os.listdir(root / "usr/bin")), ["cpp", "vex-cpp"])
    use(root, "usr/bin/vex-cpp", f"{TREE}/vex/include")
    check_links(root / "usr/share/doc/vex-cpp")
    missing = [name for name in DEB_FILES if not (root / "usr/share" / name).is_file()]
    same("missing in the package", missing, [])

    dpkg(root, "--purge", "vex-cpp")
    same("what is left", listing(root / "usr").keys(), before.keys())


def check_lintian(deb, _):
    done(["lintian", "--allow-root", "--fail-on", "error,warning", deb])


def check_manual(deb, scratch):
    """The manual page is well made and has an entry for every option."""
    tree = scratch / "manual"
    done(["dpkg-deb", "-x", deb, tree])
    page = tree / "vex-cpp.1"
    page.write_bytes(gzip.decompress((tree / "usr/share/man/man1/vex-cpp.1.gz").read_bytes()))
    same("mandoc's findings", run(["mandoc", "-T", "lint", page], tree), (0, "", ""))
    lines = re.sub(".\b", "", done(["mandoc", "-T", "ascii", page])).splitlines()
    groups = usage_page.read(tree / TREE / "bin/cpp")
    missing = [option.spelling for options in groups.values() for option in options
               if not any(line.strip().startswith(option.spelling + option.argument)
                          for line in lines)]
    same("options without an entry", missing, [])


# ---- Documents ----

LINK = re.compile(r"\]\(([^)\s]+)\)")
FENCED = re.compile(r"^```.*?^```", re.MULTILINE | re.DOTALL)


def anchors(document):
    """The names that a document's headings can be linked by."""
    text = FENCED.sub("", document.read_text())
    for heading in re.findall(r"^#+ (.*)$", text, re.MULTILINE):
        yield re.sub(r"[^\w\- ]", "", heading.lower()).strip().replace(" ", "-")


def check_links(documents):
    """Every link of the documents leads to something that is installed with them."""
    dead, seen = [], 0
    for document in documents.rglob("*.md"):
        for link in LINK.findall(FENCED.sub("", document.read_text())):
            if link.startswith(("http:", "https:")):
                continue
            seen += 1
            path, _, anchor = link.partition("#")
            target = document.parent / path if path else document
            if not target.exists() or anchor and anchor not in anchors(target):
                dead.append(f"{document.name}: {link}")
    same("dead links", dead, [])
    if not seen:
        raise Failure("no document has a link")


# ---- A packager's own build ----

LAYOUT = {"BINDIR": "tools", "LIBDIR": "lib64", "MANDIR": "manuals", "DOCDIR": "papers"}


def check_plain_build(_, scratch):
    """A plain build goes into the given directories, and needs the system's shared libraries."""
    done(["cmake", "-S", ROOT, "-B", PLAIN_BUILD, "-G", "Ninja", "-DCMAKE_INSTALL_PREFIX=/usr",
          "-DCMAKE_BUILD_TYPE=None", "-DCPP_TESTS=OFF",
          *(f"-DCMAKE_INSTALL_{name}={value}" for name, value in LAYOUT.items())])
    done(["cmake", "--build", PLAIN_BUILD])
    commands = json.loads((PLAIN_BUILD / "compile_commands.json").read_text())
    same("files where a warning is an error",
         [entry["file"] for entry in commands if "-Werror" in entry["command"].split()], [])

    root = scratch / "plain"
    done(["cmake", "--install", PLAIN_BUILD], env=dict(os.environ, DESTDIR=str(root)))
    placed = {str(path.relative_to(root / "usr")) for path in root.rglob("*") if not path.is_dir()}
    for name in ("tools/vex-cpp", "lib64/vex-cpp/bin/cpp", "manuals/man1/vex-cpp.1",
                 "papers/README.md", "papers/docs/language.md"):
        if name not in placed:
            raise Failure(f"{name} is missing among {sorted(placed)}")
    same("files called cpp", [name for name in placed if name.endswith("/cpp")],
         ["lib64/vex-cpp/bin/cpp"])
    program = root / "usr/tools/vex-cpp"
    needed = re.findall(r"NEEDED.*\[(\w+)", done(["readelf", "-d", program.resolve()]))
    same("shared libraries that it does without", {"libminizip", "libstdc"} - set(needed), set())
    same("the program starts through the link", run([program, "--ver"], root)[0], 0)


# ---- The run ----

def make_packages(build, where):
    """Has cpack make every package of a build; returns them by their endings."""
    done(["cmake", "--build", build])
    if WINDOWS_PROGRAM.exists():
        done(["cmake", "--build", WINDOWS_PROGRAM.parent.parent])
    done(["cpack", "--config", build / "CPackConfig.cmake", "-B", where], build)
    found = {name: list(where.glob(f"*.{name}")) for name in ("tar.gz", "zip", "deb")}
    same("packages of each kind", {name: len(paths) for name, paths in found.items()},
         {"tar.gz": 1, "zip": 1, "deb": 1})
    return {name: paths[0] for name, paths in found.items()}


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("--build", type=pathlib.Path, default=ROOT / "build/release")
    parser.add_argument("--require-windows", action="store_true")
    options = parser.parse_args()
    subprocess.run(["sh", "-c", ". tools/setup.sh; need_package_tools; install_missing"],
                   cwd=ROOT, check=False)

    tally = Tally()
    with tempfile.TemporaryDirectory(prefix="cpp-packages-") as name:
        scratch = pathlib.Path(name).resolve()
        try:
            made = make_packages(options.build.resolve(), scratch / "made")
        except Failure as error:
            print(error)
            tally.failed += 1
            return tally.close()
        for kind in ("tar.gz", "zip"):
            tally.check(check_archive, made[kind], scratch)
        if WINDOWS_PROGRAM.exists() or options.require_windows:
            tally.check(check_windows, made["zip"], scratch)
        else:
            print("no Windows program here: ./test --windows builds it")
            tally.skipped += 1
        for step in (check_deb, check_lintian, check_manual, check_plain_build):
            tally.check(step, made["deb"], scratch)
    return tally.close()


if __name__ == "__main__":
    sys.exit(main())
