"""Two preprocessed texts compared as token sequences.

Blanks, empty lines and line markers are layout: two preprocessors may differ there and still mean
the same program. What must not differ is the sequence of tokens that a compiler would read from
the text. Both texts are therefore cut into tokens again by the same C scanner, so a blank that is
missing between two tokens shows up as one token where there should be two.

A `#pragma` line is one token: it is addressed to the compiler as a whole line.
"""

import re

_MARKER = re.compile(r'^# \d+(?: "[^"\n]*")?[ \t]*$\n?', re.M)
_IDENT_LINE = re.compile(r"^[ \t]*#[ \t]*(?:ident|sccs)\b.*$\n?", re.M)
_TOKEN = re.compile(
    r'''^[ \t]*\#[ \t]*pragma\b.*$                    # a whole line
      | L?"(?:[^"\\\n]|\\(?:.|\n))*"                  # string
      | L?'(?:[^'\\\n]|\\(?:.|\n))*'                  # character constant
      | ["'](?:[^\\\n]|\\(?:.|\n))*                   # a quote that is never closed: to the line end
      | \.?[0-9](?:[eEpP][+-]|[A-Za-z0-9_.$])*        # number
      | [A-Za-z_$][A-Za-z0-9_$]*                      # name
      | <<=|>>=|\.\.\.|->|\+\+|--|<<|>>|<=|>=|==|!=|&&|\|\||[-+*/%&|^]=|\#\#
      | [^\s]                                         # any other character
    ''', re.X | re.M)


def strip_markers(text):
    """Removes the line markers of our output."""
    return _MARKER.sub("", text)


def tokenize(text):
    """Returns the list of tokens; a line join inside a literal is taken out."""
    text = _IDENT_LINE.sub("", text.replace("\r\n", "\n"))
    tokens = []
    for token in _TOKEN.findall(text):
        if "#" in token and token.lstrip().startswith("#") and "pragma" in token:
            token = "#pragma " + " ".join(token.split("pragma", 1)[1].split())
        elif "\\\n" in token:
            token = token.replace("\\\n", "")
        tokens.append(token)
    return tokens


def differences(theirs, ours, limit=50, lookahead=400):
    """Returns (their tokens, our tokens, index in theirs) for every place where the lists part."""
    found = []
    i = j = 0
    while len(found) < limit:
        while i < len(theirs) and j < len(ours) and theirs[i] == ours[j]:
            i += 1
            j += 1
        if i >= len(theirs) and j >= len(ours):
            break
        step_i, step_j = _resynchronise(theirs, i, ours, j, lookahead)
        found.append((theirs[i:i + step_i], ours[j:j + step_j], i))
        i += step_i
        j += step_j
    return found


def _resynchronise(theirs, i, ours, j, lookahead):
    """The smallest pair of skips after which three tokens agree (or both lists are used up)."""
    for total in range(1, lookahead):
        for step_i in range(total + 1):
            step_j = total - step_i
            left = theirs[i + step_i:i + step_i + 3]
            if left == ours[j + step_j:j + step_j + 3] and (len(left) == 3 or
                    len(theirs) - i - step_i == len(ours) - j - step_j):
                return step_i, step_j
    return len(theirs) - i, len(ours) - j
