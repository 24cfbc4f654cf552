"""A C++ source as tokens: enough for tools that look for names, statements and functions in our code.

Comments are left out; a string is one token, and so is a preprocessor line. Nothing is expanded and
no name is looked up.
"""

import collections
import re

TOKEN = re.compile(r"""
  (?P<comment>//[^\n]*|/\*.*?\*/)
 |(?P<line>^[ \t]*\#(?:[^\n\\]|\\.|\\\n)*)
 |(?P<string>(?:u8|[uUL])?(?:R"(?P<end>[^(]*)\(.*?\)(?P=end)"|"(?:[^"\\\n]|\\.)*"))
 |(?P<char>'(?:[^'\\\n]|\\.)+')
 |(?P<number>(?:0[xX][0-9a-fA-F']+|\d[\d']*(?:\.\d+)?(?:[eE][+-]?\d+)?)\w*)
 |(?P<name>[A-Za-z_]\w*)
 |(?P<sign><=>|<<=|>>=|->\*|\.\.\.|::|->|\+\+|--|<<|<=|>=|==|!=|&&|\|\||[-+*/%&|^]=|[^\s\w])
""", re.X | re.S | re.M)

# `at` and `end` are offsets in the text.
Token = collections.namedtuple("Token", "kind text at end")
# A function's body: its name with what stands before it by "::", the token that opens its parameters,
# and those of its braces.
Body = collections.namedtuple("Body", "name opening first last")

OPENING = ("(", "[", "{")
CONTROL = ("if", "for", "while", "switch", "catch")
AFTER_PARAMETERS = ("const", "noexcept", "override", "final", "mutable")


def tokens_of(text):
    return [Token(m.lastgroup if m.lastgroup != "end" else "string", m[0], m.start(), m.end())
            for m in TOKEN.finditer(text) if m["comment"] is None]


class Source:
    """Tokens, with each bracket's partner."""

    def __init__(self, text):
        self.text = text
        self.all = tokens_of(text)
        self.tokens = [t for t in self.all if t.kind != "line"]
        self.partner = {}
        waiting = []
        for i, token in enumerate(self.tokens):
            if token.kind != "sign":
                continue
            if token.text in OPENING:
                waiting.append(i)
            elif token.text in (")", "]", "}") and waiting:
                self.partner[i] = waiting.pop()
                self.partner[self.partner[i]] = i
        self.bodies = list(self._bodies())

    def word(self, i):
        """The text of token i, or nothing beyond the ends."""
        return self.tokens[i].text if 0 <= i < len(self.tokens) else ""

    def between(self, first, last):
        """The text from token `first` to token `last`, both with it."""
        return self.text[self.tokens[first].at:self.tokens[last].end]

    def past(self, i):
        """The token after i, or after the brackets that i opens."""
        return self.partner.get(i, i) + 1 if self.word(i) in OPENING else i + 1

    def line_of(self, at):
        return self.text.count("\n", 0, at) + 1

    def _bodies(self):
        """Of functions, lambdas within them not among them."""
        i = 0
        while i < len(self.tokens):
            opening = self._parameters_of(i) if self.word(i) == "{" and i in self.partner else None
            name = opening and self._name_before(opening)
            if name is None or name in CONTROL:
                i += 1
            else:
                yield Body(name, opening, i, self.partner[i])
                i = self.partner[i] + 1

    def _parameters_of(self, brace):
        """The parenthesis of the parameters, if this brace opens a function's body, or None."""
        j = brace - 1
        while self.word(j) in AFTER_PARAMETERS:
            j -= 1
        if self.word(j) in (")", "}"):
            j = self._before_initializers(j)
        return (self.partner.get(j) or None) if self.word(j) == ")" else None

    def _before_initializers(self, j):
        """Steps back over "A(int x) : a_(x), b_{x}" to the bracket that ends the parameters."""
        at = j
        while self.word(at) in (")", "}") and at in self.partner:
            before = self.partner[at] - 1
            while self.tokens[before].kind == "name" or self.word(before) in ("::", "<", ">"):
                before -= 1
            if self.word(before) == ":":
                before -= 1
                while self.word(before) in AFTER_PARAMETERS:
                    before -= 1
                return before
            if self.word(before) != ",":
                return j
            at = before - 1
        return j

    def _name_before(self, parenthesis):
        """"A::b" of "A::b(", "operator==" of "operator==(", or None."""
        j = parenthesis - 1
        if self.tokens[j].kind == "name":
            name = self.word(j)
        else:  # an operator, or no function
            signs = ""
            while self.tokens[j].kind != "name" and len(signs) < 4:
                signs = self.word(j) + signs
                j -= 1
                if j < 0:
                    return None
            if self.word(j) != "operator":
                return None
            name = "operator" + signs
        while self.word(j - 1) in ("::", "~"):
            if self.word(j - 1) == "~":
                name, j = "~" + name, j - 1
            elif self.tokens[j - 2].kind == "name":
                name, j = f"{self.word(j - 2)}::{name}", j - 2
            else:
                break
        return name
