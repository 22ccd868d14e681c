"""Random programs for the checks: macros and calls of them, control lines, headers with guards.

A program has a style, which is what its lines are about, and it is spoiled, more or less. Where
little is odd, whole lines of calls come through, so that texts are taken in bulk deep into
arguments, pasting and disabled names, and control lines go on over runs of lines and over the ends
of blocks. Where much is odd, everything meets everything: calls over several lines, comments
anywhere, trigraphs, joined lines, line limits, odd bytes, files that end in the middle of something.
"""

import re

_LONG = ("a_name_with_more_than_thirty_one_units_1", "a_name_with_more_than_thirty_one_units_2")
_OBJECTS = ("A", "B", "C", "D", "EMPTY", "xA", "x1", "again", "$E", "_d", "HAVE_X",
            "e5", "x10", "l", "lu", *_LONG)
_ARITY = {"F": 1, "G": 2, "H": 3, "N": 0, "f": 1, "G1": 1, "xF": 1, "self": 1}
_WORDS = ("x", "y", "x1", "u", "e", "L", "e5", "A1", "$z", "if", "defined", "ifdef", "IFDEF",
          "a_name_of_more_than_eight", "__LINE__", "__FILE__", "__STDC__")
_NUMBERS = ("0", "1", "42", "42u", "0x1F", "0x1Fu", "0x1e+5", "1e+5", "1.5e-3L", "10ULL", ".5", "1.",
            "1..2", "1e", "0b101", "09", "0FFh", "1e5+3", "7f", "0x", "1L2u", "1A", "12L", "07L",
            "1e5", "1.e5", "0x10", "1e+l", "0.lu", "1.l")
_OPERATORS = ("+", "-", "*", "/", "%", "&", "|", "^", "<", ">", "=", "!", "~", "?", ":", ";", "[", "]",
              "{", "}", ".", "...", "->", "&&", "||", "<<", "==", "++", "@", "`", "\x80")
_LITERALS = ('"s A"', '"a\\"b"', "'c'", "'\\''", '"//"', '"/*"', '"A F(1)"', '""', "''", '"s // \\" t"')
ATOMS = _NUMBERS + _OPERATORS + _LITERALS
_COMMENTS = ("/**/", "/* c */", "/***/", "// c", "/* // */", "// /* \\x", "/* ' */", "/*/ */",
             "/* /* */", "/* ? */", "/* ??= */", "/* a\n * b / c\n*/", "/*\n\n\n\n\n*/")
_BLANKS = (" ",) * 8 + ("", "  ", "\t", " \t ", "\x1f")

ODDITIES = _COMMENTS + (
    "(", ")", ",", "#", "##", "\\", "'", '"', "?", "/*", "*/", "//", "\n", "\n\n\n\n\n\n", "\r", "\r\n",
    "\v", "\f", "\0", "\x01", "\x1c", "\x1d", "\x1e", "\x1f", "\x7f", "\x80", "\xff", "\x7f\x1f", "#asm\n",
    "??=", "??(", "??/", "??)", "??'", "??<", "??!", "??>", "??-", "??", "???", "????=", "??x", "??/\n",
    "\\\n", "\\ \n", "\\\t\n", "\\\r\n", "\\ x", "\\\n\\\n", "; note\n", "// joined \\\nline\n",
    "// ??/\nmore\n", '"a\\\nb"', '"??/"', '"unclosed', "F(", "F(1,", "N()", "\n#undef A\n", "\n#endif\n",
    "\n#else\n", "\n#elif 1\n", "\n#if 1\n", "\n#define A ", "\n#define F(x) ", "\n#include ",
    '\n#line 7 "n.c"\n', "\n#pragma ", "\n#asm\n", "\n#endasm\n", "\n# 7\n", "__LINE__", "defined")
_ENDINGS = ("/* open", "F(", "F(1,", "A\\", "// end\\", '"open', "#if 1", "#define A \\", "??/", "F", "#",
            "#include")
_OUTSIDE = ("",) * 12 + ("\n", "\n\n\n", "/* c */\n", "// c\n", "/* two\nlines */\n", " \t\n", "x\n",
                         "#undef G0\n")
# Lines that have no say in whether a header is one group, though they may look like it.
_CALM = ("", "x", "\t", "z // c", "'\"", "don't", '"/* s */"', "a / b", "\f", "x \\n y", "a \\\nb", "\\\\",
         "# define D 1 \\\n  + 2", "#undef D", "#pragma p", "#error it's", "#include <none.h>",
         "/* a *//* b */ c", "/* /* */", "/* two\nlines */")
_DIRECTIVES = ("line 7", 'line 500 "n.c"', "line bare", 'line 1 "open', "pragma", "asm", "endasm",
               "ident", "error", "warning", "info", "advisory", "assert 1", "assert A", "unknown", "", "7",
               '7 "n.c"', "undefine A", "error it's", "include <none.h>")

# How often a line is what, by style.
_HEADER = {"calm": 60, "group": 20, "include": 8, "definition": 4, "comment": 8}
_STYLES = (
    {"text": 60, "definition": 12, "undef": 4, "chain": 1},
    {"text": 14, "definition": 30, "undef": 8, "group": 24, "include": 8, "comment": 10, "blank": 4,
     "filling": 1},
    {"text": 36, "definition": 24, "undef": 2, "group": 14, "include": 14, "directive": 12, "comment": 2,
     "blank": 4, "long": 2},
    {"include": 50, "comment": 10, "text": 16, "definition": 8, "undef": 2, "group": 6, "directive": 4,
     "blank": 4},
)


def spoil(rng, text, count, oddities=ODDITIES):
    """A text with so many oddities put into it, most of them between two words."""
    seams = [match.start() for match in re.finditer(r"\b|\W", text)] or [0]
    for _ in range(count):
        at = rng.choice(seams) if rng.random() < 0.8 else rng.randint(0, len(text))
        text = text[:at] + rng.choice(oddities) + text[at:]
    return text


class Writer:
    """Writes one random program: a main file and some files to include."""

    def __init__(self, rng):
        self.rng = rng
        self.style = rng.choice(_STYLES)
        self.spoiled = rng.choice((0, 0, 0.2, 1, 5))  # oddities in ten lines
        self.comments = rng.choice((0, 0, 0.1))  # in the place of blanks
        self.headers = [f"h{n}.h" for n in range(rng.randint(int("include" in self.style), 3))]

    def program(self):
        rng = self.rng
        style = self.style
        self.style = rng.choice((style, _HEADER, _HEADER))
        files = {name: self.header(number) for number, name in enumerate(self.headers)}
        self.style = style
        begin = [self.definition(0) for _ in range(rng.randint(0, 10))]
        files["main.c"] = begin + self.lines(rng.randint(3, 20), 0)
        return {name: self.finished(lines) for name, lines in files.items()}

    def finished(self, lines):
        """The text of a file, spoiled and ended as it comes."""
        rng = self.rng
        text = "".join(line + "\n" for line in lines)
        count = self.spoiled * min(len(lines), 40) / 10
        text = spoil(rng, text, int(count + rng.random()))
        if rng.random() < 0.1:
            text = text.rstrip("\n")
        elif rng.random() < 0.1 and self.spoiled:
            text += rng.choice(_ENDINGS)
        return text.replace("\n", "\r\n") if rng.random() < 0.15 else text

    def header(self, number):
        """Most are wholly inside an include guard, or nearly."""
        rng = self.rng
        body = self.lines(rng.randint(0, 6), 1)
        if rng.random() < 0.15:
            return body
        guard = rng.choice((f"G{number}",) * 6 + ("A", _LONG[0]))
        before, after = (rng.choice(_OUTSIDE) + rng.choice(_OUTSIDE) for _ in range(2))
        return [before + self.control("ifndef", guard), *rng.choice(([f"#define {guard}"],) * 8 + ([],)),
                *body, *rng.choice(([],) * 12 + (["#else"], ["#elif 1"])),
                self.control("endif", rng.choice(("",) * 12 + ("x",))) + "\n" + after]

    def lines(self, count, depth):
        kinds = self.rng.choices(list(self.style), self.style.values(), k=count)
        return [line for kind in kinds for line in self.some(kind, depth)]

    def some(self, kind, depth):
        made = getattr(self, kind)(depth)
        return [made] if isinstance(made, str) else made

    # Kinds of lines. Each gives a line or a list of them; `depth` is how deep in groups it stands.

    def definition(self, _):
        rng = self.rng
        if rng.random() < 0.45:
            head, parameters = rng.choice(_OBJECTS), ()
        else:
            name, count = rng.choice(list(_ARITY.items()))
            parameters = rng.choice((("p", "q", "r"), ("p", "A", "p"), ("long_parameter", "q", "x")))[:count]
            head = f"{name}({rng.choice((',', ', ', ' , ', ' /* c */,')).join(parameters)})"
        blank = rng.choice((" ", " ", " ", "\t", "", "/**/"))
        return self.control("define", head + blank + self.words(rng.randint(0, 5), parameters))

    def undef(self, _):
        return self.control("undef", self.rng.choice(_OBJECTS + tuple(_ARITY)))

    def text(self, _):
        return self.words(self.rng.randint(1, 6), ())

    def group(self, depth):
        rng = self.rng
        if depth > 3:
            return self.text(depth)
        word = rng.choice(("if", "if", "ifdef", "ifndef"))
        lines = [self.control(word, self.expression() if word == "if" else rng.choice(_OBJECTS))]
        for word in rng.choice(((), (), ("elif",), ("else",), ("elif", "elif", "else"))):
            lines += self.lines(rng.randint(0, 3), depth + 1)
            lines.append(self.control(word, self.expression() if word == "elif" else ""))
        lines += self.lines(rng.randint(0, 3), depth + 1)
        return lines + [self.control("endif", rng.choice(("",) * 8 + ("x",)))]

    def include(self, depth):
        rng = self.rng
        if not self.headers or depth and rng.random() < 0.5:
            return self.text(depth)
        name = rng.choice(self.headers)
        form = rng.choice((f'"{name}"',) * 5 + (f"<{name}>", f'"{name}" x', f"<{name}> /* c */", "A",
                                                f'"{name.upper()}"', f'"{name.upper()}" F(1,2) N(1)',
                                                f'"{name}" /* two\nlines */ F('))
        line = self.control("include", form)
        return rng.choice((line,) * 12 + ([f"#undef G{name[1]}", line], ["#if 1"] * 29 + [line]))

    def directive(self, _):
        word = self.rng.choice(_DIRECTIVES)
        return self.control(word, self.words(self.rng.randint(0, 2), ()))

    def calm(self, _):
        return self.rng.choice(_CALM)

    def comment(self, _):
        rng = self.rng
        return rng.choice(("", " ")) + rng.choice(_COMMENTS) + rng.choice(("", " x", " #if 1"))

    def blank(self, _):
        return [""] * self.rng.randint(1, 8)

    def long(self, _):
        length = self.rng.choice((10237, 10238, 10239, 10240, 10241, 5000))
        return (self.text(0) + " " + self.rng.choice(("x", "xy ", "1", "A ")) * length)[:length]

    def filling(self, _):
        """Lines enough to reach over the end of a block: a comment or text, most likely skipped."""
        rng = self.rng
        longest, lines, left = rng.choice((100, 2000, 10300)), [], 270000
        while left > 0:
            lines.append(rng.choice(("x ", "* ", "word ", "/ ", "")) * rng.randint(0, longest // 4))
            left -= len(lines[-1]) + 1
        return rng.choice((["/*", *lines, "*/"], ["#if 0", *lines, "#endif"]))

    def chain(self, _):
        """A chain about as long as expansions may go deep: whether message 115 comes, and where, tells
        how deep the program believes to be behind the calls before it."""
        starts = [f"M{self.rng.randint(4, 12)}" for _ in range(4)]
        return [f"#define M{n} M{n + 1}" for n in range(1005)] + [
            self.rng.choice((start, start, f"F(x {start})", f"G({start}, M8)")) for start in starts]

    # Parts of lines.

    def control(self, word, rest):
        rng = self.rng
        mark = rng.choice(("#",) * 6 + (" #", "# ", "\t#\t", "/* c */#", "#/* c */", "#/**/ "))
        between = rng.choice((" ",) * 6 + ("\t", "  ", " /* c */ ", "/**/"))
        end = rng.choice(("",) * 10 + (" ", "\t", " /* end */", "/* end */", " // end", "//", " /**/ "))
        return mark + word + between + rest + end

    def expression(self):
        rng = self.rng

        def operand():
            name = rng.choice(_OBJECTS)
            return rng.choice(("0", "1", "0x10", "010", "3u", "'a'", "0x80000000", "-1", "x", name, name,
                               f"defined {name}", f"defined({name})", "defined ( F )", f"!{name}", "(1)",
                               f"({name} + 1)", "F(1)", "sizeof(int)", "1 2", "/* c */ 1"))
        text = operand()
        for _ in range(rng.randint(0, 4)):
            text += rng.choice((" && ", "||", " == ", "!=", "<", " >= ", "+", " - ", "*", "/", "%", ">>",
                                " ? 2 : ", ",", "<<", "&", "=", " \\\n| ")) + operand()
        return text

    def words(self, count, parameters):
        rng = self.rng
        parts = []
        for _ in range(count):
            seams = _COMMENTS if rng.random() < self.comments else _BLANKS
            parts += [self.item(parameters, 2), rng.choice(seams)]
            if parameters and rng.random() < 0.15:
                parts += [rng.choice(("##", " ## ")), rng.choice(parameters + ("x", "1", "F", "A")), " "]
        return "".join(parts).strip(" ")

    def item(self, parameters, depth):
        rng = self.rng
        pick = rng.random()
        if parameters and pick < 0.3:
            return rng.choice(parameters)
        if parameters and pick < 0.36:
            return rng.choice(("#", "#", "# ")) + rng.choice(parameters)
        if parameters and pick < 0.42:
            return rng.choice(parameters + ("x", "self")) + "##" + rng.choice(parameters + ("A", "1", "F"))
        if parameters and depth and pick < 0.5:
            # A name that comes from elsewhere is called: an argument's, or one that is put together.
            name = rng.choice(parameters + ("x##F", "se##lf", "G##p", "se##lf"))
            return f"{name}({self.item(parameters, depth - 1)})"
        if pick < 0.55:
            return rng.choice(_OBJECTS)
        if pick < 0.75 and depth:
            return self.call(parameters, depth)
        if pick < 0.80:
            return rng.choice(list(_ARITY))
        return rng.choice(_WORDS if pick < 0.88 else ATOMS)

    def call(self, parameters, depth):
        rng = self.rng
        name, count = rng.choice(list(_ARITY.items()))
        count = max(0, count + rng.choice((0,) * 18 + (1, -1)))
        arguments = [rng.choice(("", " ", "  ")).join(
            self.item(parameters, depth - 1) for _ in range(rng.choice((0, 1, 1, 1, 1, 2, 2, 3))))
            for _ in range(count)]
        # Calls over several lines stand in text alone.
        blanks = ("", "", "", " ", "  ") if parameters or not self.spoiled else ("", "", " ", "\n", "\n\n")
        blank = lambda: rng.choice(blanks)
        return f"{name}{blank()}({blank()}{(blank() + ',' + blank()).join(arguments)}{blank()})"
