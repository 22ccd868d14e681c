"""Damaged input must end cleanly: status 0 or 1, in time, without a sanitizer's report.

Every unit is cut off at a random point, some hundred are mutated, and a list of extremes (long
lines, deep nesting, limits passed by one, binary files) is made. All of it comes from one seed, so
a failure can be repeated; the input of a failing case is kept.
"""

import os
import pathlib
import random

from tally import outcome
import writer

TIMEOUT = 5
SANITIZER_STATUS = 99
MUTATED = 400

_OPTION_SETS = ([], ["-C"], ["-dM"], ["-Lgcc"], ["-Llist"], ["--cmode=tsasm"], ["-N255", "-W-9"],
                ["-H", "-V"], ["--emax=0"])
_FRAGMENTS = [oddity.encode("latin-1") for oddity in writer.ODDITIES]


def environment():
    """The environment that makes every sanitizer finding end the run with one known status."""
    env = dict(os.environ)
    for name in ("ASAN_OPTIONS", "UBSAN_OPTIONS"):
        added = f"exitcode={SANITIZER_STATUS}:halt_on_error=1:abort_on_error=0"
        env[name] = ":".join(filter(None, (env.get(name), added)))
    return env


def _mutate(rng, text):
    """A text some parts of which are cut out, doubled, joined, scrambled or full of one thing, and
    that is spoiled then."""
    for _ in range(rng.randint(1, 4)):
        at = rng.randrange(len(text) + 1)
        part = text[at:at + rng.randint(1, 3000)]
        filling = rng.choice((b"(", b"{", b"!", b"-", b"\n#if 1\n", b"\0"))
        instead = rng.choice((b"", 2 * part, part.replace(b"\n", b" "), part + filling * len(part),
                              bytes(rng.sample(part, len(part)))))
        text = text[:at] + instead + text[at + len(part):]
    return writer.spoil(rng, text.decode("latin-1"), rng.randint(0, 8)).encode("latin-1")


def _extremes(rng):
    """Yields (name, bytes): inputs at and beyond every limit that a reader could think of."""
    yield "only zero bytes", b"\0" * 100000
    yield "every byte", bytes(range(256)) * 50
    yield "random bytes", rng.randbytes(300000)
    for length in (10237, 10238, 10239, 10240, 10241, 20479, 1 << 20):
        yield f"line of {length}", b"x " * (length // 2) + b"\nint after;\n"
        yield f"name of {length}", b"x" * length + b" after\n"
        yield f"string of {length}", b'"' + b"s" * length + b'" after\n'
        yield f"comment of {length}", b"/*" + b"c" * length + b"*/ after\n"
        yield f"body of {length}", b"#define m " + b"y " * (length // 2) + b"\nm m\n"
        yield f"joined body of {length}", (b"#define m " + b"y y \\\n" * (length // 4) + b"\nm m\n")
        yield f"argument of {length}", b"#define f(x) x #x x\nf(" + b"z\n" * (length // 2) + b")\n"
        yield f"number of {length}", b"1" * length + b"\n#if " + b"1" * 10000 + b"\n"
    yield "unclosed call", b"#define f(x) x\nf(" + b"(" * 50000
    yield "nested calls", b"#define f(x) x\n" + b"f(" * 3000 + b"1" + b")" * 3000 + b"\n"
    yield "nested stringized calls", (b"#define s(x) #x\n#define f(x) s(x) x\n" + b"f(" * 12 + b"1" +
                                      b")" * 12 + b"\n")
    for depth in (31, 32, 5000):
        yield f"{depth} nested #if", b"#if 1\n" * depth + b"x\n" + b"#endif\n" * depth
        yield f"{depth} skipped #if", b"#if 0\n" * depth + b"x\n" + b"#endif\n" * depth
    yield "chain of macros", (b"".join(b"#define m%d m%d\n" % (n, n + 1) for n in range(3000)) +
                              b"m0 m1500 m2500\n")
    yield "mutual recursion", (b"#define f(x) g(x)(x)\n#define g(x) f(x)\n#define a b\n#define b a\n"
                               b"f(f(f(a)))(1)(2) g(f)(f)(g)(b)\n")
    yield "growing paste", (b"#define c(a,b) a##b\n" + b"c(x," * 300 + b"y" + b")" * 300 +
                            b"\n#define d(a) a##a\nd(" + b"w" * 9000 + b")\n")
    yield "pastes of everything", b"".join(
        b"#define p%d(a,b) a##b %s##a b##%s ## %s\np%d(,) p%d(1,2) p%d(x) p%d(+,-)\n" %
        (n, f, f, f, n, n, n, n) for n, f in enumerate(_FRAGMENTS))
    yield "stringized everything", b"#define s(a) #a # a #\n" + b"".join(
        b"s(%s) s(\\%s) s('%s)\n" % (f, f, f) for f in _FRAGMENTS)
    yield "line numbers", b"#line 2147483647\nx\n__LINE__\n#line 99999999999999999999\nx __LINE__\n"
    yield "line names", b"#line 1 \"" + b"n" * 9000 + b"\"\n__FILE__\n#error here\n"
    yield "asm blocks", b"#asm\n#asm\nx ; y\n#endasm\n#endasm\n#asm\n" + b"\n" * 20 + b"0FFh 'x\n"
    yield "macro named like a directive", b"#define define undef\n#define if 0\n#if if\n#endif\n"
    yield "unclosed string in a body", b"#define a \"x\n#define b a\n#undef a\nb a\n" * 50
    yield "directive inside a call", b"#define f(x) x\nf(\n#define g 1\n#undef f\n#if g\n)\n#endif\n"
    yield "redefined while open", (b"#define f(x) \"\n#undef f\n#define f(x) x f x\n\" f\nf(1)\n"
                                   b"#define g f(\ng 1)\n")


def cases(unit_list, inputs, binaries, seed):
    """Yields (name, content, arguments) of every case; `inputs` maps a unit to its input file."""
    rng = random.Random(seed)
    for unit in unit_list:
        text = pathlib.Path(inputs[unit.name]).read_bytes()
        if unit.include:
            text = unit.path.read_bytes() + text
        yield f"cut {unit.name}", text[:rng.randrange(len(text) + 1)], unit.flags()
    for number in range(MUTATED if unit_list else 0):
        unit = rng.choice(unit_list)
        options = _OPTION_SETS[number % len(_OPTION_SETS)]
        text = unit.path.read_bytes()[:200000] or b"\n"
        yield f"mutated {number} {unit.name}", _mutate(rng, text), unit.flags() + options
    for number, (name, text) in enumerate(_extremes(rng)):
        yield f"extreme: {name}", text, _OPTION_SETS[number % len(_OPTION_SETS)]
        yield f"extreme: {name}, plain", text, []
    for path in binaries:
        yield f"binary {path.name}", path.read_bytes()[:1 << 20], []


def run_case(name, content, arguments, program, scratch):
    """Runs one case; returns None when it ended cleanly, else what happened."""
    source = scratch / f"input-{os.getpid()}.c"
    source.write_bytes(content)
    command = [program, *arguments, str(source), os.devnull]
    result = outcome(command, env=environment(), timeout=TIMEOUT)
    if result and result[0] in (0, 1):
        return None
    kept = scratch / ("failed-" + "".join(c if c.isalnum() else "_" for c in name)[:100] + ".c")
    source.rename(kept)
    verdict = f"status {result[0]}" if result else f"not ended after {TIMEOUT} s"
    tail = result[2][-3000:].decode("latin-1") if result else ""
    return f"{verdict}\n  {' '.join(command[:-2])} {kept}\n{tail}"
