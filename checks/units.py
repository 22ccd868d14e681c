"""The translation units of the real-input check.

A source file is a unit as it stands. For a header a small file is written that includes it and
then uses every macro that it defines: an object-like one by its name, a function-like one with
made-up arguments. Which macros a header leaves defined, and with which parameters, is asked from
GNU cpp (-dM); which of them are the header's own is read from its text.
"""

import dataclasses
import pathlib
import re
import subprocess

# A header that a compiler without predefined macros reads in isolation needs to be told for which
# machine: these are the names that the respective compiler would define.
_SDCC = ("__SDCC=1", "__SDCC_VERSION_MAJOR=4", "__SDCC_VERSION_MINOR=2", "__SDCC_VERSION_PATCH=0",
         "__SDCC_CHAR_UNSIGNED=1")
_SDCC_PORTS = {
    "mcs51": _SDCC + ("__SDCC_mcs51=1", "__SDCC_MODEL_SMALL=1", "__SDCC_FLOAT_REENT=1"),
    "z80": _SDCC + ("__SDCC_z80=1",),
    "stm8": _SDCC + ("__SDCC_stm8=1", "__SDCC_MODEL_MEDIUM=1"),
}
_I386 = ("__i386__=1", "__ILP32__=1", "__SIZEOF_LONG__=4", "__CHAR_BIT__=8")
_MUSL = {
    "gnu": _I386 + ("_GNU_SOURCE=1",),
    "posix": _I386 + ("_POSIX_C_SOURCE=200809L", "NDEBUG=1"),
}


@dataclasses.dataclass(frozen=True)
class Unit:
    name: str  # package, configuration and file: unique, and stable from run to run
    package: str
    path: pathlib.Path  # the source file or header
    include: str  # how the header is named in an #include line; empty for a source file
    dirs: tuple
    defines: tuple

    def flags(self):
        return [f"-I{d}/" for d in self.dirs] + [f"-D{d}" for d in self.defines]


def _units(package, config, root, paths, dirs, defines):
    for path in sorted(paths):
        name = path.relative_to(root).as_posix()
        yield Unit(f"{package}/{config}/{name}", package, path, name if path.suffix == ".h" else "",
                   tuple(dirs), defines)


def all_units(packages):
    """Returns every unit that the unpacked packages give, in a fixed order."""
    units = []
    msp430 = packages / "msp430mcu/usr/msp430/include"
    units += _units("msp430mcu", "device", msp430, msp430.rglob("*.h"), [msp430], ("__MSP430__=1",))

    sdcc = packages / "sdcc-libraries/usr/share/sdcc"
    include, library = sdcc / "include", sdcc / "lib/src"
    for port, defines in _SDCC_PORTS.items():
        dirs = [d for d in (include / port, include) if d.is_dir()]
        headers = [path for place in (include, include / "asm" / port, include / port)
                   for path in place.glob("*.h")]
        units += _units("sdcc-libraries", port, include, headers, dirs, defines)
        sources = [*library.glob("*.c"), *(library / port).glob("*.c")]
        units += _units("sdcc-libraries", port, library, sources, dirs + [library], defines)

    musl = packages / "musl-dev/usr/include/i386-linux-musl"
    for config, defines in _MUSL.items():
        units += _units("musl-dev", config, musl, musl.rglob("*.h"), [musl], defines)

    for package, subdirs in (("zlib", ("", "test", "examples", "contrib/minizip")),
                             ("lua5.1", ("src", "etc")), ("bzip2", ("",))):
        root = next(p for p in sorted((packages / package).iterdir()) if p.is_dir())
        dirs = [root, root / "src", root / "contrib/minizip", musl]
        dirs = [d for d in dirs if d.is_dir()]
        sources = [path for sub in subdirs for path in (root / sub).glob("*.c")]
        units += _units(package, "linux", root, sources, dirs, _MUSL["gnu"])
    return units


_DEFINE_NAME = re.compile(r"^[ \t]*#[ \t]*define[ \t]+([A-Za-z_$][\w$]*)", re.M)
_DUMPED = re.compile(r"^#define ([A-Za-z_$][\w$]*)(\([^)]*\))?(.*)$", re.M)
_ARGUMENTS = ("arg{n}", "(p{n} + {n})", "\"s{n}\"", "{n}", "(q{n} [ 'c' ] , z{n})", "-x{n}")


def _call(name, parameters, body):
    """A call with one made-up argument per parameter; an operand of ## is a plain name."""
    arguments = []
    for index, parameter in enumerate(parameters):
        shape = _ARGUMENTS[(len(name) + index) % len(_ARGUMENTS)]
        operand = re.compile(rf"##\s*{re.escape(parameter)}\b|\b{re.escape(parameter)}\s*##")
        if operand.search(body):
            shape = "arg{n}"
        arguments.append(shape.format(n=index + 1))
    return f"{name}({', '.join(arguments)})"


def uses(own_names, dump):
    """The lines that use the macros of `own_names` that are defined according to `dump`."""
    lines = []
    for name, parameters, body in _DUMPED.findall(dump):
        if name not in own_names:
            continue
        lines.append(f"object {name} ;\n")
        if parameters:
            names = [p.strip() for p in parameters[1:-1].split(",") if p.strip()]
            lines.append(f"call {_call(name, names, body)} ;\n")
    return lines


def input_path(unit, scratch):
    """Where the unit's input stands: a source file itself, or the small file for a header."""
    return scratch / (unit.name + ".c") if unit.include else unit.path


def write_input(unit, scratch, reference):
    """Returns the path of the unit's input, writing the small file where one is needed."""
    target = input_path(unit, scratch)
    if not unit.include:
        return target
    target.parent.mkdir(parents=True, exist_ok=True)
    first = f"#include <{unit.include}>\n"
    target.write_text(first)
    dump = subprocess.run(reference + ["-dM"] + unit.flags() + [str(target)],
                          capture_output=True).stdout.decode("latin-1")
    text = unit.path.read_text(encoding="latin-1").replace("\\\n", "")
    own_names = set(_DEFINE_NAME.findall(text))
    with open(target, "w", encoding="latin-1") as out:
        out.write(first)
        out.writelines(uses(own_names, dump))
    return target
