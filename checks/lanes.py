"""The fast ways through the text must give exactly what the slow way gives.

The reader hands out one unit at a time; where the text is ordinary, lanes do the same in bulk. Two
builds of the program, with the lanes and without them, are run on small random programs that mix
everything in which a lane could take a wrong turn (calls over several lines, comments anywhere,
trigraphs, joined lines, line limits, odd bytes, #asm, include files that end in the middle of
something, include guards in every state of repair). Standard output, standard error and status must be equal byte for byte. A program on
which they are not is cut down line by line and printed.

    python3 checks/lanes.py --seed 1 --count 2000
        [--program build/release/bin/cpp] [--plain build/lanes-off/bin/cpp] [--real]
"""

import argparse
import concurrent.futures
import os
import pathlib
import random
import shutil
import subprocess
import sys
import time

import corpus
import units

ROOT = pathlib.Path(__file__).resolve().parent.parent
SCRATCH = ROOT / "build" / "lanes"
TIMEOUT = 10
MODES = {
    "plain": ["-W-9", "--emax=1000"],
    "comments": ["-W-9", "--emax=1000", "-C"],
    "assembler": ["-W-9", "--emax=1000", "--cmode=tsasm"],
    "definitions": ["-W-9", "--emax=1000", "-dM", "-U__TIME__", "-U__DATE__"],
    "listing": ["-W-9", "-E1", "-H"],
    "dependencies": ["-W-9", "-Llist", "-H"],
    "linker": ["-W-9", "--emax=1000", "--cmode=tslink", "-N255"],
}

_OBJECTS = ("A", "B", "C", "D", "EMPTY", "LONG_NAME_THAT_HAS_MORE_THAN_THIRTY_ONE_UNITS")
_FUNCTIONS = {"F": 1, "G": 2, "H": 3, "N": 0}
_PLAIN = ("x", "y1", "if", "defined", "$z", "L", "u", "e5", "ifdef", "IFDEF")
_NUMBERS = ("0", "1", "42", "0x1F", "0x1e+5", "1e+5", "1.5e-3L", "10ULL", ".5", "1..2", "0b101",
            "09", "0FFh", "1e5+3", "7f", "0x", "1L2u")
_PUNCTUATION = ("+", "-", "*", "/", "%", "&", "|", "^", "<", ">", "=", "!", "~", "?", ":", ";",
                ",", ".", "(", ")", "[", "]", "{", "}", "#", "##", "\\", "@", "`", "&&", "||", "<<", "==")
_LITERALS = ('"s"', '"a\\"b"', "'c'", "'\\''", '"//"', '"/*"', '"unclosed', "'", '"', '"a\\\nb"',
             '"??/""', '""', "''", '"A F(1)"')
_COMMENTS = ("/**/", "/* c */", "/* two\nlines */", "// to the end\n", "// joined \\\nline\n",
             "/* /* */", "/***/", "// ??/\nmore\n", "/* ' */", "; note\n", "/*\n\n\n\n\n\n*/")
_BLANKS = (" ", "  ", "\t", " \t ", "\x1f", "\v", "\f", "\r", "")
_ODD = ("\0", "\x01", "\x1d", "\x1e", "\x7f", "\x80", "\xff", "\x1c", "\r\n")
_TRIGRAPHS = ("??=", "??(", "??/", "??)", "??'", "??<", "??!", "??>", "??-", "??", "???", "??x",
              "????=", "??/\n")
_OUTSIDE = ("",) * 6 + ("\n", "\n\n\n", "/* c */\n", "// c\n", "/* two\nlines */\n", " \t\n", "\r\n")
_CALM = ("", "x", "/* c */ y", "\t", "z // c", "/* two\nlines */", "'\"", '"/* s */"', "a / b",
         "#define D 1 \\\n  + 2", "# undef D", "#pragma p", "/**/ # define D", "\f", "x \\n y\r",
         "#error it's", "#include <none.h>", "/* a *//* b */ c")
_JOINS = ("\\\n", "\\ \n", "\\\t\n", "\\\r\n", "\\ x", "\\\n\\\n")


class Writer:
    """Writes one random program: a main file and some files to include."""

    def __init__(self, rng):
        self.rng = rng
        self.headers = [f"h{n}.h" for n in range(rng.randint(0, 3))]
        self.guarded = [f"g{n}.h" for n in range(rng.choice((0, 1, 1, 2, 3)))]

    def program(self):
        files = {name: self.file(self.rng.randint(1, 8), included=True) for name in self.headers}
        for number, name in enumerate(self.guarded):
            files[name] = self.guarded_file(number)
        files["main.c"] = self.file(self.rng.randint(3, 30), included=False)
        return files

    def file(self, count, included):
        text = "".join(self.line(included) for _ in range(count))
        ending = self.rng.random()
        if ending < 0.1:
            text = text.rstrip("\n")
        elif ending < 0.2:
            text += self.rng.choice(("/* open", "F(", "F(1,", "A\\", "// end\\", '"open', "#if 1",
                                     "#define A \\", "??/", "F", "#", "#include"))
        return text.replace("\n", "\r\n") if self.rng.random() < 0.15 else text

    def guarded_file(self, number):
        """A header that is wholly inside its guard, or nearly."""
        rng = self.rng
        guard = rng.choice((f"G{number}",) * 6 + ("A", "LONG_NAME_THAT_HAS_MORE_THAN_THIRTY_ONE_UNITS"))
        text = rng.choice(_OUTSIDE) + rng.choice(_OUTSIDE)
        text += rng.choice(("#ifndef",) * 5 + (" #\tifndef", "/* c */ #ifndef", "#ifndef/**/"))
        text += f" {guard}" + rng.choice(("\n",) * 5 + (" // c\n", " /* two\nlines */\n", "\r\n"))
        text += rng.choice((f"#define {guard}\n",) * 8 + (f"#define {guard} 1\n", ""))
        depth = 0
        for _ in range(rng.randint(0, 8)):
            pick = rng.random()
            if pick < 0.20:
                text += rng.choice(("#if 1", "#ifdef D", "#ifndef D // c", "#if 0 /* two\nlines */")) + "\n"
                depth += 1
            elif pick < 0.35 and depth:
                text += rng.choice(("#endif", "#endif // c", "#else", "#elif 1")) + "\n"
                depth -= text.endswith(("#endif\n", "#endif // c\n"))
            elif pick < 0.43:
                text += f'#include "g{rng.randint(number, len(self.guarded))}.h"\n'
            elif pick < 0.48:
                text += self.line(included=True)
            else:
                text += rng.choice(_CALM) + "\n"
        text += "#endif // d\n" * depth
        text += rng.choice(("#endif\n",) * 7 + ("#endif", "#endif /* two\nlines */\n", "#endif x\n",
                                               "#else\n#endif\n", "/* c */ #endif // c\n", ""))
        text += rng.choice(_OUTSIDE) + rng.choice(_OUTSIDE)
        if rng.random() < 0.1:
            text += rng.choice(("x\n", "x", "/* open", f"#undef {guard}\n", " ", "\\", "// c"))
        return text

    def line(self, included):
        kind = self.rng.random()
        if self.guarded and not included and self.rng.random() < 0.2:
            return self.guarded_use()
        if kind < 0.28:
            return self.directive("define") + self.definition()
        if kind < 0.40:
            return self.conditional()
        if kind < 0.46 and self.headers and not included:
            name = self.rng.choice(self.headers)
            form = self.rng.choice((f'"{name}"', f"<{name}>", f'"{name}" x', f'"{name}" /* c */',
                                    f'"{name.upper()}"', "A"))
            return self.directive("include") + form + "\n"
        if kind < 0.56:
            return self.other_directive()
        if kind < 0.60:
            return "\n" * self.rng.randint(1, 8)
        if kind < 0.615:
            length = self.rng.choice((10237, 10238, 10239, 10240, 10241, 5000))
            filling = self.rng.choice(("x", "xy ", "1", "A ")) * length
            return (self.tokens(3) + " " + filling)[:length] + "\n"
        return self.tokens(self.rng.randint(1, 14)) + self.rng.choice(("\n",) * 9 + ("\r\n",))

    def guarded_use(self):
        rng = self.rng
        number = rng.randrange(len(self.guarded))
        name = self.guarded[number]
        if rng.random() < 0.12:
            return rng.choice((f"#undef G{number}\n", f"#define G{number} x\n", "#if 1\n" * 29))
        form = rng.choice((f'"{name}"',) * 3 + (f"<{name}>", f'"{name}" x', f"<{name}> /* c */",
                                                f'"{name.upper()}"', f'"{name.upper()}" F(1,2) N(1)',
                                                f'"{name}" /* two\nlines */ F('))
        return "#include " + form + "\n"

    def directive(self, word):
        blank = lambda: self.rng.choice((" ", "", "\t", " /* c */ ", "\\\n"))
        mark = self.rng.choice(("#",) * 12 + ("??=", " #", "/* c */#"))
        if self.rng.random() < 0.8:
            return f"{mark}{word} "
        after = self.rng.choice((" ", "\t", "/**/", "\\\n", "\r"))
        return f"{mark}{blank()}{word}{after}"

    def definition(self):
        rng = self.rng
        if rng.random() < 0.5:
            head, parameters = rng.choice(_OBJECTS), []
        else:
            name, count = rng.choice(list(_FUNCTIONS.items()))
            parameters = ["p", "q", "r"][:count]
            head = f"{name}({rng.choice((', ', ',', ' , ')).join(parameters)})"
        body = []
        references = 0
        for _ in range(rng.randint(0, 7)):
            pick = rng.random()
            if parameters and pick < 0.35:
                body.append(rng.choice(("", "", "#", "# ")) + rng.choice(parameters))
            elif pick < 0.5 and references < 2:
                references += 1
                body.append(rng.choice(_OBJECTS + tuple(_FUNCTIONS)))
            elif pick < 0.6:
                body.append("##")
            elif pick < 0.65 and references < 2:
                references += 1
                body.append(self.call(1))
            else:
                body.append(self.token(macros=False))
        return head + rng.choice((" ", " ", "", "\t")) + self.glue(body) + "\n"

    def conditional(self):
        rng = self.rng
        word = rng.choice(("if", "if", "ifdef", "ifndef", "elif", "else") + ("endif",) * 3)
        if word in ("ifdef", "ifndef"):
            return self.directive(word) + rng.choice(_OBJECTS + tuple(_FUNCTIONS)) + "\n"
        if word in ("else", "endif"):
            return self.directive(word) + rng.choice(("", "", "", "/* c */", "x", "// c")) + "\n"
        operand = lambda: rng.choice(("1", "0", "A", "B", "defined A", "defined(F)", "F(1)", "'a'",
                                      "0x80000000", "-1", "x", "sizeof(int)", "(1)", "/* c */ 2"))
        expression = operand()
        for _ in range(rng.randint(0, 4)):
            expression += rng.choice((" + ", "-", " && ", "||", " == ", "<", ">>", "*", "/", "%",
                                      " ? 1 : ", ",", " \\\n| ")) + operand()
        return self.directive(word) + expression + "\n"

    def other_directive(self):
        rng = self.rng
        word = rng.choice(("undef", "line", "pragma", "asm", "endasm", "ident", "error", "warning",
                           "info", "advisory", "assert", "unknown", "", "7", "undefine"))
        rest = {"undef": rng.choice(_OBJECTS + tuple(_FUNCTIONS)), "undefine": "A",
                "line": f"{rng.randint(0, 500)} " + rng.choice(("", '"n.c"', "bare", '"open')),
                "assert": rng.choice(("1", "0", "A")), "asm": rng.choice(("", "x")),
                "7": rng.choice(("", ' "n.c"'))}.get(word)
        if rest is None:
            rest = self.tokens(rng.randint(0, 4))
        return self.directive(word) + rest + "\n"

    def tokens(self, count):
        return self.glue([self.token() for _ in range(count)])

    def glue(self, parts):
        text = ""
        for part in parts:
            text += part
            pick = self.rng.random()
            if pick < 0.70:
                text += self.rng.choice(_BLANKS) if pick < 0.25 else " "
            elif pick < 0.78:
                text += self.rng.choice(_COMMENTS)
            elif pick < 0.83:
                text += self.rng.choice(_JOINS)
        return text

    def token(self, macros=True):
        rng = self.rng
        pick = rng.random()
        if macros and pick < 0.25:
            return rng.choice(_OBJECTS + tuple(_FUNCTIONS) + ("__LINE__", "__FILE__", "__STDC__"))
        if macros and pick < 0.40:
            return self.call(rng.randint(1, 3))
        if pick < 0.55:
            return rng.choice(_PLAIN)
        if pick < 0.68:
            return rng.choice(_NUMBERS)
        if pick < 0.85:
            return rng.choice(_PUNCTUATION)
        if pick < 0.92:
            return rng.choice(_LITERALS)
        if pick < 0.96:
            return rng.choice(_TRIGRAPHS)
        return rng.choice(_ODD)

    def call(self, depth):
        rng = self.rng
        name, count = rng.choice(list(_FUNCTIONS.items()))
        count = max(0, count + rng.choice((0, 0, 0, 0, 1, -1)))
        arguments = []
        for _ in range(count):
            if depth > 1 and rng.random() < 0.5:
                arguments.append(self.call(depth - 1))
            else:
                arguments.append(rng.choice((
                    "", "1", "A", "x y", "(a, b)", '"s"', "a\nb", "/* c */ z", "#", "\\x", "'c'",
                    "B\n\nC", "\n#undef A\n", "p, q")))
        between = rng.choice(("", "", "", " ", "\n", "/* c */", "\n\n", "\\\n"))
        return f"{name}{between}({','.join(arguments)})"


class CallWriter:
    """Writes programs of well-formed macros and calls that refer to one another in every way.

    Among the oddities of Writer hardly a call survives for long; here whole lines of them do, so
    that texts are taken in bulk deep into arguments, pasting and disabled names.
    """

    _ARITY = {"F": 1, "G": 2, "H": 3, "N": 0, "f": 1, "G1": 1, "xF": 1, "self": 1}
    _OBJECTS = ("A", "B", "C", "xA", "x1", "again")
    _WORDS = ("x", "y", "x1", "u", "e", "long_name_of_more_than_eight", "A1")
    _ATOMS = ("1", "0x1F", "42u", ".5", "1.", "1e", "0", "12L", '"s A"', "'c'", '"a\\"b"', "+", "-", "<",
              "&", "|", "/", "%", "?", ":", "=", ";", "[", "]", "!", "~", "^", ">", "*", "<<", "++", ".")

    def __init__(self, rng):
        self.rng = rng

    def program(self):
        rng = self.rng
        lines = []
        for _ in range(rng.randint(4, 14)):
            lines.append(self.definition())
        # A chain about as long as expansions may go deep: whether message 115 comes, and where, tells
        # how deep the program believes to be behind the calls before it.
        chain = rng.random() < 0.15
        if chain:
            lines += [f"#define M{n} M{n + 1}" for n in range(1005)]
        for _ in range(rng.randint(4, 16)):
            lines.append(self.text(rng.randint(1, 6), ()))
            if chain:
                start = f"M{rng.randint(4, 12)}"
                lines.append(rng.choice((start, start, f"F(x {start})", f"G({start}, M8)")))
            if rng.random() < 0.15:
                lines.append(rng.choice((self.definition(), "#undef " + rng.choice(self._OBJECTS))))
        return {"main.c": "\n".join(lines) + "\n"}

    def definition(self):
        rng = self.rng
        if rng.random() < 0.45:
            head, parameters = rng.choice(self._OBJECTS), ()
        else:
            name, count = rng.choice(list(self._ARITY.items()))
            parameters = ("p", "q", "r")[:count]
            head = f"{name}({','.join(parameters)})"
        return f"#define {head} {self.text(rng.randint(0, 4), parameters)}"

    def text(self, count, parameters):
        rng = self.rng
        parts = []
        for _ in range(count):
            parts.append(self.item(parameters, 2))
            parts.append(rng.choice((" ", " ", " ", "", "  ", "\t")))
            if parameters and rng.random() < 0.15:
                parts.append(rng.choice(("##", " ## ")) + rng.choice(parameters + ("x", "1", "F", "A")) + " ")
        return "".join(parts).strip()

    def item(self, parameters, depth):
        rng = self.rng
        pick = rng.random()
        if parameters and pick < 0.3:
            return rng.choice(parameters)
        if parameters and pick < 0.36:
            return "#" + rng.choice(parameters)
        if parameters and pick < 0.42:
            return rng.choice(parameters + ("x", "self")) + "##" + rng.choice(parameters + ("A", "1", "F"))
        if parameters and depth and pick < 0.5:
            # A name that comes from elsewhere is called: an argument's, or one that is put together.
            name = rng.choice(parameters + ("x##F", "se##lf", "G##p", "se##lf"))
            return f"{name}({self.item(parameters, depth - 1)})"
        if pick < 0.55:
            return rng.choice(self._OBJECTS)
        if pick < 0.75 and depth:
            return self.call(parameters, depth)
        if pick < 0.80:
            return rng.choice(list(self._ARITY))
        return rng.choice(self._WORDS if pick < 0.88 else self._ATOMS)

    def call(self, parameters, depth):
        rng = self.rng
        name, count = rng.choice(list(self._ARITY.items()))
        if rng.random() < 0.05:
            count += 1
        arguments = [rng.choice(("", " ", "  ")).join(
            self.item(parameters, depth - 1) for _ in range(rng.choice((1, 1, 1, 2, 2, 3))))
            for _ in range(count)]
        blank = lambda: rng.choice(("", "", "", " ", "  "))
        return f"{name}{blank()}({blank()}{(blank() + ',' + blank()).join(arguments)}{blank()})"


class LineWriter:
    """Writes programs of well-formed control lines: nested groups that are kept or skipped, headers
    with guards, definitions, comments over many lines.

    They keep the lane of control lines going over runs of lines and over the ends of blocks. One
    line in many is then damaged, so that the lane must leave it to the plain path.
    """

    _NAMES = ("A", "B", "C1", "_d", "$E", "HAVE_X", "a_name_of_more_than_eight", "defined", "p",
              "a_name_with_more_than_thirty_one_units_1", "a_name_with_more_than_thirty_one_units_2")
    _PIECES = ("1", "0x1Fu", "42", "07L", "1.5e+3", ".5", "1..2", "10LL", "1A", '"s // \\" t"', "'c'", "'\\''",
               "+", "-", "/", "*", "%", "?", ":", "(", ")", ",", ";", "==", "<", "x", "->", "@", "\x80",
               "...", "#", "##")
    _COMMENTS = ("/* c */", "/**/", "/***/", "// c", "/* // */", "// /* \\x", "/* a\n * b / c\n*/",
                 "/*\n\n\n\n\n*/", "/* ' */", "/*/ */", "/* /* */", "/* ? */", "/* ??= */")
    _DAMAGE = ("\\\n", "\\", "/*", "*/", "//", "??/", "??=", "\0", "\r", "\f", "\v", "\x1f", "'", '"',
               "\n", "#", "?", "\x1d")

    def __init__(self, rng):
        self.rng = rng
        self.headers = [f"h{n}.h" for n in range(rng.randint(0, 2))]

    def program(self):
        rng = self.rng
        files = {}
        for n, name in enumerate(self.headers):
            guard = rng.choice((f"H{n}", f"H{n}", rng.choice(self._NAMES)))
            body = self.lines(rng.randint(1, 4), 1, included=True)
            files[name] = [f"#ifndef {guard}", f"#define {guard}", *body, "#endif" + self.ending()]
        files["main.c"] = self.lines(rng.randint(4, 14), 0, included=False)
        newline = rng.choice(("\n",) * 6 + ("\r\n",))
        for name, lines in files.items():
            if rng.random() < 0.4:
                at = rng.randrange(len(lines))
                lines[at] = self.damaged(lines[at])
            text = newline.join(lines) + newline
            files[name] = text[:-len(newline)] if rng.random() < 0.1 else text
        return files

    def damaged(self, line):
        at = self.rng.randint(0, len(line))
        return line[:at] + self.rng.choice(self._DAMAGE) + line[at:]

    def lines(self, count, depth, included):
        return [line for _ in range(count) for line in self.item(depth, included)]

    def item(self, depth, included):
        rng = self.rng
        pick = rng.random()
        if pick < 0.30:
            return [self.definition()]
        if pick < 0.38:
            return [self.control("undef", rng.choice(self._NAMES))]
        if pick < 0.62 and depth < 4:
            return self.group(depth, included)
        if pick < 0.70 and self.headers and not included:
            return [self.control("include", f'"{rng.choice(self.headers)}"')]
        if pick < 0.80:
            return [rng.choice(("", " ")) + rng.choice(self._COMMENTS) + rng.choice(("", " x", " #if 1"))]
        if pick < 0.82 and depth:
            return self.filling()
        if pick < 0.86:
            return [""] * rng.randint(1, 6)
        return [self.text()]

    def group(self, depth, included):
        rng = self.rng
        word = rng.choice(("if", "if", "ifdef", "ifndef"))
        lines = [self.control(word, self.expression() if word == "if" else rng.choice(self._NAMES))]
        for word in rng.choice(((), ("elif",), ("else",), ("elif", "elif", "else"))):
            lines += self.lines(rng.randint(0, 3), depth + 1, included)
            lines.append(self.control(word, self.expression() if word == "elif" else ""))
        lines += self.lines(rng.randint(0, 3), depth + 1, included)
        lines.append(self.control("endif", rng.choice(("",) * 8 + ("x",))))
        return lines

    def control(self, word, rest):
        rng = self.rng
        blank = lambda: rng.choice(("", "", "", " ", "\t", "  ", "/* c */"))
        between = rng.choice((" ", " ", " ", "\t", " /* c */ ", "/**/"))
        return f"{blank()}#{blank()}{word}{between}{rest}{self.ending()}"

    def ending(self):
        return self.rng.choice(("",) * 8 + (" ", "\t", " /* end */", "/* end */", " // end", "//", " /**/ "))

    def definition(self):
        rng = self.rng
        parameters = ""
        if rng.random() < 0.4:
            names = rng.sample(("p", "q", "A", "long_parameter", "p"), rng.randint(0, 3))
            parameters = f"({rng.choice((',', ', ', ' , ', ' /* c */, ')).join(names)})"
        pieces = []
        for _ in range(rng.randint(0, 6)):
            name = rng.choice(("p", "q", "long_parameter") + self._NAMES)
            pieces.append(name if rng.random() < 0.4 else rng.choice(self._PIECES))
            pieces.append(rng.choice((" ", " ", "", "  ", "\t", "\x1f", " /* c */ ", "/**/")))
        blank = rng.choice((" ", " ", "", "\t", "/**/"))
        return self.control("define", rng.choice(self._NAMES) + parameters + blank + "".join(pieces))

    def expression(self):
        rng = self.rng
        def operand():
            name = rng.choice(self._NAMES)
            return rng.choice(("0", "1", "0x10", "010", "3u", "'a'", name, name, f"defined {name}",
                               f"defined({name})", f"defined ( {name} )", f"!{name}", "(1)", "-1",
                               f"({name} + 1)", "sizeof(int)", "1 2", "/* c */ 1"))
        text = operand()
        for _ in range(rng.randint(0, 4)):
            text += rng.choice((" && ", "||", " == ", "!=", "<", " >= ", "+", " - ", "*", "/", "%", " ? 2 : ",
                                ",", "<<", "&", "=")) + operand()
        return text

    def text(self):
        rng = self.rng
        words = self._NAMES + ('"a\\n"', '"//"', "'x'", "1", "+", "/", "(", ")", ";", "?", "/* c */", "// c", "\\x")
        return " ".join(rng.choice(words) for _ in range(rng.randint(1, 8)))

    def filling(self):
        """Lines enough to reach over the end of a block: a comment or text, most likely skipped."""
        rng = self.rng
        longest = rng.choice((100, 2000, 10300))
        lines = []
        left = 270000
        while left > 0:
            lines.append(rng.choice(("x ", "* ", "word ", "/ ", "")) * rng.randint(0, longest // 4))
            left -= len(lines[-1]) + 1
        return ["/*", *lines, "*/"] if rng.random() < 0.5 else lines


def write_program(files, directory):
    shutil.rmtree(directory, ignore_errors=True)
    directory.mkdir(parents=True)
    for name, text in files.items():
        (directory / name).write_bytes(text.encode("latin-1"))


def run(program, arguments, directory):
    try:
        done = subprocess.run([program] + arguments, cwd=directory, capture_output=True,
                              stdin=subprocess.DEVNULL, timeout=TIMEOUT)
    except subprocess.TimeoutExpired:
        return None
    return done.returncode, done.stdout, done.stderr


def differ(programs, arguments, directory):
    """What is wrong with the two runs; empty when nothing is. One that does not end is a fault even
    where the other does not end either: nothing that is written here takes long."""
    results = [run(program, arguments, directory) for program in programs]
    if None in results:
        return f"not ended after {TIMEOUT} s"
    return "different" if results[0] != results[1] else ""


def shrink(files, programs, mode, directory):
    """Takes lines out as long as the outputs of the two programs still differ; returns what is left."""
    def still(candidate):
        write_program(candidate, directory)
        return differ(programs, MODES[mode] + ["-I./", "main.c"], directory) == "different"

    for name in sorted(files, key=lambda n: n != "main.c"):
        lines = files[name].splitlines(keepends=True)
        size = max(1, len(lines) // 2)
        while size:
            at = 0
            while at < len(lines):
                shorter = lines[:at] + lines[at + size:]
                if still({**files, name: "".join(shorter)}):
                    lines = shorter
                else:
                    at += size
            size //= 2
        files = {**files, name: "".join(lines)}
    return files


def check_random(seed, number, programs):
    """Returns (passed, report) for one random program in every mode."""
    directory = SCRATCH / f"work-{os.getpid()}"
    rng = random.Random(f"{seed} {number}")
    files = rng.choice((Writer, CallWriter, LineWriter))(rng).program()
    passed = 0
    for mode, options in MODES.items():
        write_program(files, directory)
        arguments = options + ["-I./", "main.c"]
        fault = differ(programs, arguments, directory)
        if not fault:
            passed += 1
            continue
        # Each attempt to make less of a run that does not end would take its time, too.
        small = shrink(files, programs, mode, directory) if fault == "different" else files
        write_program(small, directory)
        report = f"program {number}, mode {mode} ({' '.join(arguments)}), {fault}:\n"
        for name, text in small.items():
            if text:
                report += f"--- {name}\n{text!r}\n{text}\n"
        for label, program in zip(("with lanes", "without"), programs):
            report += f"--- {label}: {run(program, arguments, directory)}\n"
        return passed, report
    return passed, ""


def check_real(unit, programs):
    """The same comparison on one unit of the real input, in two of the modes."""
    source = units.write_input(unit, SCRATCH / "units", ["cpp", "-undef", "-nostdinc", "-w"])
    for mode in ("plain", "comments"):
        if fault := differ(programs, MODES[mode] + unit.flags() + [str(source)], SCRATCH):
            return 0, f"{unit.name}, mode {mode}, {fault}: {source}\n"
    return 2, ""


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--program", default=str(ROOT / "build/release/bin/cpp"))
    parser.add_argument("--plain", default=str(ROOT / "build/lanes-off/bin/cpp"))
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--count", type=int, default=2000)
    parser.add_argument("--real", action="store_true", help="the real input too")
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    options = parser.parse_args()
    programs = [os.path.abspath(options.program), os.path.abspath(options.plain)]
    for program in programs:
        if not os.access(program, os.X_OK):
            sys.exit(f"{program} is missing")
    SCRATCH.mkdir(parents=True, exist_ok=True)
    started = time.monotonic()
    passed = failed = 0
    with concurrent.futures.ProcessPoolExecutor(options.jobs) as pool:
        futures = [pool.submit(check_random, options.seed, number, programs)
                   for number in range(options.count)]
        if options.real:
            found = ROOT / "build/real-input/packages"
            corpus.fetch(found)
            futures += [pool.submit(check_real, unit, programs) for unit in units.all_units(found)]
        for future in futures:
            good, report = future.result()
            passed, failed = passed + good, failed + bool(report)
            if report and failed <= 10:
                print(report)
    print(f"seed {options.seed}, {time.monotonic() - started:.0f} s")
    print(f"{passed} passed, {failed} failed")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
