"""What the checks have in common: steps that pass or fail, and the line that sums them up.

A step is a function that raises: a Failure where something is not as it should be, anything else
where it is so far from it that the step cannot even ask.
"""

import pathlib
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT / "tools"))  # what others use as well
TIMEOUT = 20


class Failure(Exception):
    """Something is not as it should be; the text tells what."""


def same(what, actual, expected):
    """Raises a Failure that shows both where they differ."""
    if actual != expected:
        raise Failure(f"{what}:\n    expected {expected!r}\n    actual   {actual!r}")


def run(command, cwd, env=None, text=None, timeout=TIMEOUT):
    """Runs a command; returns its status, standard output and standard error."""
    done = subprocess.run([str(word) for word in command], cwd=cwd, env=env, input=text or "",
                          capture_output=True, text=True, timeout=timeout, check=False)
    return done.returncode, done.stdout, done.stderr


def outcome(command, cwd=None, env=None, timeout=TIMEOUT):
    """Runs a program that may do anything; returns its status and, as bytes, its standard output
    and error, or None when it does not end in time."""
    try:
        done = subprocess.run(command, cwd=cwd, env=env, stdin=subprocess.DEVNULL,
                              capture_output=True, timeout=timeout, check=False)
    except subprocess.TimeoutExpired:
        return None
    return done.returncode, done.stdout, done.stderr


def need(*tools):
    """Installs what is missing of the tools, each a command and the package that holds it."""
    needs = "; ".join(f"need {command} {package}" for command, package in tools)
    subprocess.run(["sh", "-c", f". tools/setup.sh; {needs}; install_missing"], cwd=ROOT, check=False)


class Tally:
    """Counts the steps, and says of those that fail why."""

    def __init__(self):
        self.passed = self.failed = self.skipped = 0

    def check(self, function, *arguments):
        try:
            function(*arguments)
        except Exception as error:  # what is quite another thing can break a step anywhere
            self.failed += 1
            kind = "" if isinstance(error, Failure) else f"{type(error).__name__}: "
            print(f"{function.__name__}: {kind}{error}")
        else:
            self.passed += 1

    def close(self):
        """Prints the closing line; returns the exit status."""
        print(f"{self.passed} passed, {self.failed} failed, {self.skipped} skipped")
        return 1 if self.failed or not self.passed else 0
