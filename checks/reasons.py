"""Why a unit is left out, and which differences are by rule.

Leaving out is decided by reading the unit's files, never by looking at what our program made of
them: the input uses something that this language does not have, or that another preprocessor
defines differently by design. docs/real-input.md tells the same in words.
"""

import functools
import re

_LITERALS_AND_COMMENTS = re.compile(
    r'"(?:[^"\\\n]|\\.)*"' r"|'(?:[^'\\\n]|\\.)*'" r"|/\*.*?\*/|//[^\n]*", re.S)
_DEFINE = re.compile(r"^[ \t]*#[ \t]*define[ \t]+([A-Za-z_$][\w$]*)(\([^)\n]*\))?(.*)$", re.M)
_CONDITION = re.compile(r"^[ \t]*#[ \t]*(?:if|elif)\b(.*)$", re.M)
_WIDE_CHARACTER = re.compile(r"^[ \t]*#[ \t]*(?:if|elif)\b.*\bL'", re.M)
_CONSTANT = re.compile(r"(?<![\w.])(?:0[xX][0-9a-fA-F]+|[0-9]+)")
_NAME = re.compile(r"[A-Za-z_$][\w$]*")

WIDE_CHARACTER = "wide character constant in #if"
_FEATURES = (
    ("variadic macro", re.compile(r"^[ \t]*#[ \t]*define[ \t]+[\w$]+\([^)\n]*\.\.\.", re.M)),
    ("#include_next", re.compile(r"^[ \t]*#[ \t]*include_next\b", re.M)),
    ("#import", re.compile(r"^[ \t]*#[ \t]*import\b", re.M)),
    ("#assert of another language", re.compile(r"^[ \t]*#[ \t]*(?:un)?assert\b", re.M)),
    ("#pragma once", re.compile(r"^[ \t]*#[ \t]*pragma[ \t]+once\b", re.M)),
    ("#pragma that acts on macros", re.compile(
        r"^[ \t]*#[ \t]*pragma[ \t]+(?:push_macro|pop_macro|GCC[ \t]+(?:poison|system_header))",
        re.M)),
    ("__has_include and the like", re.compile(r"\b__has_\w+")),
    ("_Pragma", re.compile(r"\b_Pragma\b")),
    ("__COUNTER__ and the like", re.compile(
        r"\b__(?:COUNTER|INCLUDE_LEVEL|TIMESTAMP|BASE_FILE)__")),
    ("macro with more than 31 parameters", re.compile(
        r"^[ \t]*#[ \t]*define[ \t]+[\w$]+\((?:[^,)\n]*,){31}", re.M)),
)


@functools.lru_cache(maxsize=None)
def _text(path):
    with open(path, encoding="latin-1") as source:
        return source.read()


@functools.lru_cache(maxsize=None)
def _facts(path):
    """What one file uses: its features, definitions, wide macros and conditions."""
    text = _text(path).replace("\r", "").replace("\\\n", "")
    code = _LITERALS_AND_COMMENTS.sub(lambda m: "0" if m[0][0] in "\"'" else " ", text)
    features = {name for name, pattern in _FEATURES if pattern.search(code)}
    if _WIDE_CHARACTER.search(text):
        features.add(WIDE_CHARACTER)
    definitions = _DEFINE.findall(code)
    wide = frozenset(name for name, _, body in definitions if _is_wide(body))
    conditions = []
    for condition in _CONDITION.findall(code):
        condition = re.sub(r"\bdefined\s*(?:\(\s*[\w$]+\s*\)|[\w$]+)", "0", condition)
        conditions.append((_is_wide(condition), frozenset(_NAME.findall(condition))))
    return features, definitions, wide, conditions


def _is_wide(text):
    return any(_value(constant) > 0xFFFFFFFF for constant in _CONSTANT.findall(text))


def _value(constant):
    if constant[:2] in ("0x", "0X"):
        return int(constant, 16)
    return int(constant, 8 if constant[0] == "0" and not set("89") & set(constant) else 10)


def left_out(files):
    """Returns the reason to leave a unit out that reads these files, or None."""
    facts = [_facts(str(path)) for path in files]
    used = set().union(*(features for features, _, _, _ in facts))
    if used:
        return min(used)
    wide = set().union(*(w for _, _, w, _ in facts))
    uses = {}
    empty = set()
    for _, definitions, _, _ in facts:
        for name, _, body in definitions:
            uses.setdefault(name, set()).update(_NAME.findall(body))
            if not body.strip():
                empty.add(name)
    grown = True
    while grown:
        more = {name for name, names in uses.items() if name not in wide and names & wide}
        wide |= more
        grown = bool(more)
    for _, _, _, conditions in facts:
        if any(is_wide or names & wide for is_wide, names in conditions):
            return "#if arithmetic beyond 32 bits"
        if any(names & empty for _, names in conditions):
            return "#if names a macro that can be empty"
    return None


NO_BLANK = "no blank between an expansion and the text beside it"
LAST_LINE = "__LINE__ in a call over several lines is the last line"


def by_rule(theirs, ours, files):
    """Names the rule that explains one difference, or returns None.

    The difference must have the form that the rule gives it, and the files that were read must hold
    the place that the rule is about.
    """
    paths = [str(path) for path in files]
    if len(ours) < len(theirs) and "".join(ours) == "".join(theirs):
        if all(_meet_at_an_expansion(left, right, paths) for left, right in _glued(theirs, ours)):
            return NO_BLANK
    if len(theirs) == len(ours) == 1 and theirs[0].isdigit() and ours[0].isdigit():
        if any(_is_open_call(path, int(theirs[0]), int(ours[0])) for path in paths):
            return LAST_LINE
    return None


def _glued(theirs, ours):
    """The pairs of their tokens that are one token of ours, or part of one."""
    ends = set()
    length = 0
    for token in ours:
        length += len(token)
        ends.add(length)
    length = 0
    for left, right in zip(theirs, theirs[1:]):
        length += len(left)
        if length not in ends:
            yield left, right


def _meet_at_an_expansion(left, right, paths):
    """Does a macro that begins with `right` follow `left` directly, or the other way round?"""
    for _, definitions, _, _ in map(_facts, paths):
        for name, _, body in definitions:
            body = body.strip()
            before = body.startswith(right) and re.compile(
                re.escape(left) + re.escape(name) + r"(?![\w$])")
            after = body.endswith(left) and re.compile(
                r"(?<![\w$])" + re.escape(name) + r"(?:\([^()\n]*\))?" + re.escape(right))
            if any(found.search(_text(path)) for found in (before, after) if found
                   for path in paths):
                return True
    return False


def _is_open_call(path, first, last):
    """Do these lines hold a call that begins on the first one and ends on the last one?"""
    lines = _text(path).split("\n")[first - 1:last]
    depth = 0
    for number, line in enumerate(lines, first):
        line = _LITERALS_AND_COMMENTS.sub(" ", line)
        depth += line.count("(") - line.count(")")
        if depth <= 0:
            return number == last > first
    return False
