"""Real input for the checks and the benchmark: Debian packages, unpacked below a scratch directory.

Nothing is installed and the machine's package configuration is not touched. A private apt
configuration, with its own lists, names the mirror that the machine already uses (for binary and
for source packages), so apt still verifies every signature. What has been fetched once is kept.

The C library headers are those of a 32-bit machine whatever machine this is: `#if` counts in 32
bits here, so a header that asks how wide a long is must not be answered with 64.
"""

import pathlib
import shutil
import subprocess
import tarfile

BINARY = ("msp430mcu", "sdcc-libraries", "musl-dev")
SOURCE = ("zlib", "lua5.1", "bzip2")

ARCHITECTURE = "i386"
KEYRING = "/usr/share/keyrings/debian-archive-keyring.gpg"
DEFAULT_MIRROR = "http://deb.debian.org/debian"


class FetchError(Exception):
    """A package could not be obtained; the text says which step failed and why."""


# Python's own guard against paths that lead out of the directory, where this version has it.
_SAFELY = {"filter": "data"} if hasattr(tarfile, "data_filter") else {}


def _run(args, cwd):
    done = subprocess.run(args, cwd=cwd, capture_output=True, text=True)
    if done.returncode != 0:
        raise FetchError(f"{args[0]} failed: {(done.stderr or done.stdout).strip()[-400:]}")
    return done.stdout


def _mirror_and_release():
    release = "bookworm"
    for line in pathlib.Path("/etc/os-release").read_text().splitlines():
        if line.startswith("VERSION_CODENAME="):
            release = line.split("=", 1)[1].strip('"')
    targets = subprocess.run(
        ["apt-get", "indextargets", "--format", "$(REPO_URI) $(RELEASE) $(COMPONENT)",
         "Created-By: Packages"], capture_output=True, text=True).stdout
    for line in targets.splitlines():
        uri, *rest = line.split()
        if rest == [release, "main"] and "security" not in uri:
            return uri, release
    return DEFAULT_MIRROR, release


def _private_apt(root):
    mirror, release = _mirror_and_release()
    apt = root / "apt"
    (apt / "lists" / "partial").mkdir(parents=True, exist_ok=True)
    sources = apt / "sources.list"
    signed = f"[signed-by={KEYRING}] " if pathlib.Path(KEYRING).exists() else ""
    sources.write_text("".join(f"{kind} {signed}{mirror} {release} main\n"
                               for kind in ("deb", "deb-src")))
    settings = {
        "APT::Architecture": ARCHITECTURE, "APT::Architectures": ARCHITECTURE,
        "Dir::Etc::sourcelist": sources, "Dir::Etc::sourceparts": "/dev/null",
        "Dir::State::lists": apt / "lists", "Dir::Cache::pkgcache": "",
        "Dir::Cache::srcpkgcache": "", "APT::Sandbox::User": "root",
    }
    return ["apt-get", "-qq"] + [f"-o{key}={value}" for key, value in settings.items()]


def fetch(root):
    """Makes sure that every package is unpacked in root/<package>; returns {package: version}."""
    root = pathlib.Path(root).resolve()
    stamp = root / "versions"
    if not stamp.exists():
        shutil.rmtree(root, ignore_errors=True)
        downloads = root / "downloads"
        downloads.mkdir(parents=True)
        apt = _private_apt(root)
        _run(apt + ["update"], root)
        _run(apt + ["download", *BINARY], downloads)
        _run(apt + ["source", "--download-only", *SOURCE], downloads)
        versions = {}
        for package in BINARY:
            archive = next(downloads.glob(f"{package}_*.deb"))
            _run(["dpkg-deb", "-x", str(archive), str(root / package)], root)
            versions[package] = archive.name.split("_")[1]
        for package in SOURCE:
            archive = next(downloads.glob(f"{package}_*.orig.tar.*"))
            with tarfile.open(archive) as tar:
                tar.extractall(root / package, **_SAFELY)
            versions[package] = archive.name[len(package) + 1:].split(".orig")[0]
        stamp.write_text("".join(f"{name} {version}\n" for name, version in versions.items()))
    return dict(line.split() for line in stamp.read_text().splitlines())


if __name__ == "__main__":
    print(fetch(pathlib.Path(__file__).resolve().parent.parent / "build/real-input/packages"))
