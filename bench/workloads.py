"""The inputs of the benchmark, the same bytes on every machine.

Each workload stresses one path of the program: text without macros, macro calls, skipped groups,
comments, opening of files; the real programs mix them as life does. Every workload exists in three
sizes (1x, 4x, 16x), so that a cost that grows faster than the input is seen.
"""

import dataclasses
import pathlib
import random
import re

SCALES = (1, 4, 16)
MIB = 1_000_000


@dataclasses.dataclass
class Workload:
    name: str
    scale: int
    main: pathlib.Path
    bytes: int  # all that is read, each file counted once
    files: list  # every file that is read, for the floor
    dirs: list = dataclasses.field(default_factory=list)
    defines: list = dataclasses.field(default_factory=list)


_WORDS = ("count buffer index value state timer port pin mask channel sample rate frame packet "
          "status error result length offset limit table entry node next previous head tail queue "
          "stack counter register control data clock reset enable input output level").split()
_TYPES = ("int", "unsigned int", "char", "unsigned char", "long", "static int", "const char *",
          "volatile unsigned char", "struct item *")


def _name(rng):
    return "_".join(rng.choices(_WORDS, k=rng.randint(1, 3))) + rng.choice(("", "", "2", "_t1"))


def _number(rng):
    return rng.choice((str(rng.randint(0, 65535)), hex(rng.randint(0, 65535)), "0", "1", "1.5e3",
                       f"{rng.randint(0, 255)}u", f"{rng.randint(0, 99999)}L", "'x'", '"text %d\\n"'))


def _expression(rng):
    parts = [rng.choice((_name(rng), _number(rng)))]
    for _ in range(rng.randint(0, 4)):
        parts += [rng.choice("+ - * & | ^ << >> == != < >= &&".split()),
                  rng.choice((_name(rng), _number(rng), f"{_name(rng)}[{_name(rng)}]",
                              f"{_name(rng)}({_name(rng)}, {_number(rng)})", f"({_name(rng)} + 1)"))]
    return " ".join(parts)


def _function(rng):
    lines = [f"{rng.choice(_TYPES)} {_name(rng)}({rng.choice(_TYPES)} {_name(rng)}, int {_name(rng)})",
             "{"]
    lines += [f"  {rng.choice(_TYPES)} {_name(rng)} = {_expression(rng)};" for _ in range(3)]
    for _ in range(rng.randint(4, 20)):
        lines.append(rng.choice((
            "  {0} = {1};", "  if ({1}) {{ {0}++; }}", "  while ({1}) {0}({1});",
            "  for ({0} = 0; {0} < {2}; {0}++) {{", "  }}", "    {0}[{2}] |= {1};",
            "  return {1};")).format(_name(rng), _expression(rng), _number(rng)))
    return "\n".join(lines + ["}", "", ""])


def _declarations(rng):
    lines = [f"{rng.choice(_TYPES)} {_name(rng)}[{rng.randint(1, 99)}];" for _ in range(3)]
    lines.append(f"extern {rng.choice(_TYPES)} {_name(rng)}({rng.choice(_TYPES)}, {rng.choice(_TYPES)});")
    return "\n".join(lines + ["", ""])


def _fill(size, make):
    pieces, total = [], 0
    while total < size:
        piece = make()
        pieces.append(piece)
        total += len(piece)
    return "".join(pieces)


def plain(rng, size):
    """Declarations and code: no directive, no macro."""
    return _fill(size, lambda: _declarations(rng) + _function(rng))


_MACROS = """\
#define BIT(n) (1u << (n))
#define REG8(address) (*(volatile unsigned char *)(address))
#define SET(reg, bits) ((reg) |= (bits))
#define CLEAR(reg, bits) ((reg) &= ~(bits))
#define MIN(a, b) ((a) < (b) ? (a) : (b))
#define MAX(a, b) ((a) > (b) ? (a) : (b))
#define CLAMP(x, low, high) MIN(MAX(x, low), high)
#define JOIN(a, b) a ## b
#define TEXT(x) #x
#define TEXT2(x) TEXT(x)
#define CALL(f, x) f(x)
#define NOTHING
#define SIZE 64
#define LIMIT (SIZE * 2 - 1)
#define REPEAT(x) x x x x
#define FIELD(type, name) type JOIN(field_, name)
"""


def macros(rng, size):
    """Calls of small macros, nested and with pasting and stringizing, on every line."""
    head = _MACROS
    head += "".join(f"#define PORT_{n} REG8(0x{n * 4 + 64:04x})\n#define PIN_{n} BIT({n % 8})\n"
                    f"#define VALUE_{n} (LIMIT + {n})\n" for n in range(200))
    number = lambda: rng.randrange(200)

    def line():
        return rng.choice((
            "SET(PORT_{0}, PIN_{1} | PIN_{2});", "CLEAR(PORT_{0}, BIT({1} & 7));",
            "{3} = CLAMP({4}, VALUE_{0}, VALUE_{1});", "FIELD(int, {3}) = MAX({4}, MIN({3}, SIZE));",
            "puts(TEXT2(PORT_{0}) TEXT({3} + {4}));", "{3} = CALL(BIT, {1}) NOTHING + CALL(REG8, LIMIT);",
            "REPEAT({3}++;) REPEAT(SET(PORT_{2}, 1);)", "if (PORT_{0} & PIN_{1}) JOIN({3}, _done)();",
        )).format(number(), number(), number(), _name(rng), _name(rng)) + "\n"
    return head + _fill(size - len(head), line)


def conditionals(rng, size):
    """Groups chosen by #if, #ifdef and #elif: nine tenths of the text are skipped."""
    head = "".join(f"#define HAVE_{n} {n}\n" for n in range(40))

    def group():
        n = rng.randrange(40)
        lines = lambda count: "".join(f"  {_name(rng)} = {_expression(rng)};\n" for _ in range(count))
        return rng.choice((
            f"#ifdef MISSING_{n}\n{lines(18)}#else\n{lines(2)}#endif\n",
            f"#if HAVE_{n} > {n}\n{lines(9)}#elif HAVE_{n} == {n} && defined(HAVE_1)\n{lines(2)}"
            f"#elif defined(MISSING_3)\n{lines(9)}#endif\n",
            f"#if !defined(HAVE_{n}) || (HAVE_{n} + 1) * 2 < HAVE_2\n{lines(10)}"
            f"#if HAVE_3\n{lines(4)}#else\n{lines(4)}#endif\n#else\n{lines(2)}#endif\n",
        ))
    return head + _fill(size - len(head), group)


def comments(rng, size):
    """Four fifths of the text are comments, of both kinds, long and short."""
    words = lambda count: " ".join(rng.choices(_WORDS + ["the", "a", "of", "isn't", "a*b", "a/b"], k=count))

    def piece():
        code = "\n".join(f"{_name(rng)} = {_expression(rng)};" for _ in range(3)) + "\n"
        block = "".join(f" * {words(10)}\n" for _ in range(rng.randint(2, 6)))
        tail = "".join(f"// {words(9)}\n" for _ in range(rng.randint(0, 3)))
        return f"/* {words(6)}\n{block} */\n{tail}{code}x /* {words(4)} */ = y; // {words(5)}\n"
    return _fill(size, piece)



def includes(rng, scale, directory):
    """Guarded headers in ten directories, each included three times."""
    count = 250 * scale
    dirs = [directory / f"dir{n}" for n in range(10)]
    headers = []
    for n in range(count):
        path = dirs[n % 10] / f"header_{n}.h"
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(f"#ifndef HEADER_{n}_H\n#define HEADER_{n}_H\n\n#define VALUE_{n} {n}\n"
                        f"extern int {_name(rng)}_{n}(int);\n{_declarations(rng)}\n#endif\n")
        headers.append(path)
    order = [path.name for path in headers] * 3
    rng.shuffle(order)
    main = directory / "main.c"
    main.write_text("".join(f"#include <{name}>\n" for name in order) + "int last;\n")
    files = [main] + headers
    return main, files, dirs


_LIBRARY = ("stdio stdlib string ctype errno assert stddef stdarg limits math setjmp signal locale "
            "time utime unistd fcntl dlfcn sys/types sys/stat sys/times").split()
# Two headers of zlib define it for their own sources. Here they meet in one text, where a definition
# that differs is an error to some preprocessors.
_OF_A_SOURCE = {"GZIP"}
_GUARD = re.compile(r"^[ \t]*#[ \t]*ifndef[ \t]+(\w+)\s*\n(?:[^#\n]*\n)*[ \t]*#[ \t]*define[ \t]+\1\b", re.M)
_INCLUDED = re.compile(r'^[ \t]*#[ \t]*include[ \t]*"([\w.]+)"', re.M)
_DEFINED = re.compile(r"^[ \t]*#[ \t]*define[ \t]+(\w+)", re.M)


def _reached(path, known=()):
    """The file and those of its directory that it includes, directly or not."""
    found = [path]
    for name in _INCLUDED.findall(path.read_text(encoding="latin-1")):
        header = path.parent / name
        if header.exists() and header not in found and header not in known:
            found += [f for f in _reached(header, (*known, *found)) if f not in found]
    return found


def real(size, directory, packages):
    """Three real programs, file after file, until `size` bytes are read.

    The programs are repeated as copies whose include guards have other names, so that a repetition
    reads the headers again; what a program defines is undefined at its end.
    """
    programs = []
    for package, pattern in (("lua5.1", "*/src"), ("bzip2", "*"), ("zlib", "*")):
        folder = next(p for p in sorted((packages / package).glob(pattern)) if p.is_dir())
        headers = sorted(folder.glob("*.h"))
        # The file with the large tables comes last, or the smallest size would be that file.
        sources = sorted((p for p in folder.glob("*.c") if p.name not in
                          ("lua.c", "luac.c", "dlltest.c", "mk251.c", "spewG.c", "unzcrash.c")),
                         key=lambda p: (p.name == "crc32.c", p.name))
        programs.append((package, headers, sources))
    # The C library first: some of the programs' macros have names that its headers declare.
    main_lines = [f"#include <{name}.h>\n" for name in _LIBRARY]
    files, total, copy = [], 0, 0
    while total < size:
        for package, headers, sources in programs:
            if total >= size:
                break
            target = directory / f"{package}-{copy}"
            target.mkdir(parents=True, exist_ok=True)
            own = set()
            for path in headers:
                text = path.read_text(encoding="latin-1")
                own |= set(_DEFINED.findall(text))
                guard = _GUARD.search(text)
                if guard:
                    text = re.sub(rf"\b{guard[1]}\b", f"{guard[1]}_{copy}", text)
                    own.discard(guard[1])
                (target / path.name).write_text(text, encoding="latin-1")
            of_a_source = own & _OF_A_SOURCE
            own -= of_a_source
            for path in sources:
                text = path.read_text(encoding="latin-1")
                mine = set(_DEFINED.findall(text)) | of_a_source
                (target / path.name).write_text(text, encoding="latin-1")
                main_lines.append(f'#include "{target.name}/{path.name}"\n')
                main_lines += [f"#undef {name}\n" for name in sorted(mine - own)]
                new = [f for f in _reached(target / path.name) if f not in files]
                files += new
                total += sum(f.stat().st_size for f in new)
                if total >= size:
                    break
            main_lines += [f"#undef {name}\n" for name in sorted(own)]
        copy += 1
    main = directory / "main.c"
    main.write_text("".join(main_lines))
    musl = packages / "musl-dev/usr/include/i386-linux-musl"
    return main, [main] + files, [musl]


_TEXTS = {"plain": (plain, 6.4), "macros": (macros, 1.6), "conditionals": (conditionals, 6.4),
          "comments": (comments, 6.4)}
NAMES = (*_TEXTS, "includes", "real", "empty")
REAL_DEFINES = ["__i386__=1", "__ILP32__=1", "_POSIX_C_SOURCE=200809L", "_XOPEN_SOURCE=700",
                "Z_U8=unsigned long long"]


def make(name, scale, root, packages):
    """Writes the workload's files below root and returns it."""
    rng = random.Random(f"{name} {scale}")
    directory = root / f"{name}-{scale}x"
    directory.mkdir(parents=True, exist_ok=True)
    main = directory / "main.c"
    if name == "includes":
        main, files, dirs = includes(rng, scale, directory)
        return Workload(name, scale, main, sum(f.stat().st_size for f in files), files, dirs)
    if name == "real":
        return real_workload(int(12.8 * MIB * scale / 16), scale, directory, packages)
    if name == "empty":
        main.write_text("")
    else:
        text, millions = _TEXTS[name]
        main.write_text(text(rng, int(millions * MIB * scale / 16)))
    return Workload(name, scale, main, main.stat().st_size, [main])


def real_workload(size, scale, directory, packages):
    directory.mkdir(parents=True, exist_ok=True)
    main, files, dirs = real(size, directory, packages)
    return Workload("real", scale, main, sum(f.stat().st_size for f in files), files, dirs,
                    REAL_DEFINES)
