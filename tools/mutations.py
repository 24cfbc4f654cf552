"""The small faults that tools/mutants puts into a source, one at a time.

    negate         if (a)             if (!(a))
    compare        a < b              a <= b
    andor          a && b             a || b
    not            !a                 a
    arith          a + b              a - b
    constant       10                 (10 + 1), 0
    bool           true               false
    string         "text"             "~text"
    ternary        a ? b : c          a ? c : b
    swap-args      f(a, b)            f(b, a)
    drop-else      else statement
    loop           break, continue    nothing, or the other
    delete-call    f(a);              ;
    delete-assign  a = b;             ;
    early-return   f() {              f() { return {};
    trace          any of these in what is only traced
"""

import collections
import re

from cpp_source import OPENING, Source

# Bytes `at` to `end` of the source become `new`. `text` says so in the words of the source; with
# `function` and `kind` it tells a mutant from the others of its file, wherever its line moves to.
Mutant = collections.namedtuple("Mutant", "kind function text at end new")

COMPARED = {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "=="}
JOINED = {"&&": "||", "||": "&&"}
CALCULATED = {"+": "-", "-": "+", "+=": "-=", "-=": "+=", "&": "|", "|": "&", "*": "/", "/": "*"}
ASSIGNING = ("=", "+=", "-=", "*=", "/=", "|=", "&=", "^=", "<<=", ">>=", "++", "--")
TRACE = "VM_TRACE"
# A statement that begins with one of these is not deleted.
KEPT = set("return const constexpr auto if for while do switch case default break continue using "
           "throw try catch static namespace class struct enum union else goto typedef template "
           "public private protected delete new static_assert extern explicit friend".split())


def mutants_of(text):
    """All mutants of a source, in the order of their kinds' places."""
    return _Mutations(text).made()


class _Mutations(Source):
    def __init__(self, text):
        super().__init__(text)
        self.function = {i: body.name for body in self.bodies
                         for i in range(body.first, body.last + 1)}
        self.mutants = []
        self.traced, self.skipped = set(), set()
        for i in range(len(self.tokens)):
            if self.word(i) == TRACE:
                self.traced.update(range(i, self.end_of_statement(i) + 1))
            elif self.word(i) == "static_assert":
                self.skipped.update(range(i, self.end_of_statement(i) + 1))

    def made(self):
        for i, token in enumerate(self.tokens):
            if i in self.skipped:
                continue
            self.at_word(i, token)
            if token.kind == "sign":
                self.at_sign(i, token.text)
            if i in self.function and self.begins_statement(i):
                self.delete(i)
        for body in self.bodies:
            self.return_early(body)
        return self.mutants

    def add(self, kind, first, last, new, whole=False):
        """Tokens `first` to `last` become `new`; said is the whole line, or these tokens alone."""
        at, end = self.tokens[first].at, self.tokens[last].end
        a = at if whole else self.text.rfind("\n", 0, at) + 1
        b = end if whole else (self.text + "\n").find("\n", end)
        before = " ".join(self.text[a:b].split())
        after = " ".join((self.text[a:at] + new + self.text[end:b]).split())
        if before != after:
            self.mutants.append(Mutant("trace" if first in self.traced else kind,
                                       self.function.get(first, ""), f"{before} => {after}",
                                       at, end, new))

    # ------------------------------------------------------------ one word

    def at_word(self, i, token):
        word = token.text
        if word in ("if", "while"):
            self.negate(i + 2 if self.word(i + 1) == "constexpr" else i + 1)
        elif word in ("true", "false"):
            self.add("bool", i, i, "false" if word == "true" else "true")
        elif word == "else":
            self.add("drop-else", i, self.end_of_statement(i + 1), "")
        elif word == "break" and self.word(i + 1) == ";":
            self.add("loop", i, i, "")
        elif word == "continue" and self.word(i + 1) == ";":
            self.add("loop", i, i, "break")
            self.add("loop", i, i, "")
        elif token.kind == "string" and word.endswith('"') and word.startswith('"') \
                and word != '""' and self.word(i - 1) not in ("extern", "include"):
            self.add("string", i, i, '"~' + word[1:])
        elif token.kind == "number":
            if re.fullmatch(r"0+(\.0*)?[uUlLfF]*", word):
                self.add("constant", i, i, "1")
            else:
                self.add("constant", i, i, f"({word} + 1)")
                self.add("constant", i, i, "0")

    def negate(self, opening):
        """The condition in the brackets that begin there; after an initializer, if it has one."""
        last = self.partner.get(opening, 0) - 1
        if self.word(opening) != "(" or last <= opening:
            return
        first = opening + 1
        for j in range(opening + 1, last):
            if self.word(j) == ";":
                first = j + 1
        if self.is_one_test(first, last):
            return
        inner = self.between(first, last)
        named = next((j - 1 for j in range(first, last) if self.word(j) == "="), None)
        if named and first == opening + 1 and (
                self.tokens[named - 1].kind == "name" or self.word(named - 1) in ("&", "*")):
            self.add("negate", first, last, f"{inner}; !{self.word(named)}")
        else:
            self.add("negate", first, last, f"!({inner})")

    def is_one_test(self, first, last):
        """Whether another kind negates it: "!a", or "a == b"."""
        signs, j = [], first
        while j <= last:
            signs.append(self.word(j))
            j = self.past(j)
        return not {"&&", "||", "?", "="} & set(signs) and (
            signs[0] == "!" or sum(s in ("==", "!=") for s in signs) == 1)

    # ------------------------------------------------------------ one sign

    def at_sign(self, i, sign):
        token = self.tokens[i]
        around = self.text[token.at - 1:token.at] + self.text[token.end:token.end + 1]
        if sign == "!":
            self.add("not", i, i, "")
        elif sign == "(":
            self.swap(i)
        elif len(around) < 2 or not around.isspace():
            return  # no operator of two
        elif sign in COMPARED:
            self.add("compare", i, i, COMPARED[sign])
        elif sign in JOINED and self.word(i - 1) != "auto":
            self.add("andor", i, i, JOINED[sign])
        elif sign in CALCULATED and self.word(i - 1) not in ("=", "(", ",", "return"):
            self.add("arith", i, i, CALCULATED[sign])
        elif sign == "?":
            self.exchange(i)

    def exchange(self, question):
        """The two sides of "?"."""
        colon, depth = question + 1, 0
        while self.word(colon) not in ("", ";", ")", "]", "}") and (self.word(colon) != ":" or depth):
            depth += {"?": 1, ":": -1}.get(self.word(colon), 0)
            colon = self.past(colon)
        end = colon
        while self.word(end) not in ("", ";", ",", ")", "]", "}"):
            end = self.past(end)
        if self.word(colon) == ":" and end > colon + 1:
            one, other = self.between(question + 1, colon - 1), self.between(colon + 1, end - 1)
            self.add("ternary", question + 1, end - 1, f"({other}) : ({one})")

    def swap(self, opening):
        """Each two arguments of a call that are neighbours."""
        if opening not in self.function or opening not in self.partner or self.word(opening - 1) in (
                "if", "for", "while", "switch", "catch", "decltype"):
            return
        if self.tokens[opening - 1].kind != "name" and self.word(opening - 1) != ">":
            return
        parts, first, j = [], opening + 1, opening + 1
        while j < self.partner[opening]:
            if self.word(j) == ";":
                return
            if self.word(j) == ",":
                parts.append((first, j - 1))
                first = j + 1
            j = self.past(j)
        parts.append((first, self.partner[opening] - 1))
        if any(a > b for a, b in parts):
            return
        for (a, b), (c, d) in zip(parts, parts[1:]):
            self.add("swap-args", a, d, f"{self.between(c, d)}, {self.between(a, b)}")

    # ------------------------------------------------------------ statements

    def end_of_statement(self, i):
        """The last token of the statement that begins at i."""
        if self.word(i) == "{":
            return self.partner.get(i, i)
        if self.word(i) in ("if", "for", "while", "switch"):
            opening = i + 2 if self.word(i + 1) == "constexpr" else i + 1
            end = self.end_of_statement(self.past(opening))
            if self.word(i) == "if" and self.word(end + 1) == "else":
                return self.end_of_statement(end + 2)
            return end
        while self.word(i) not in (";", ")", "]", "}", ""):
            i = self.past(i)
        return i

    def begins_statement(self, i):
        before = self.word(i - 1)
        if before in (";", "{", "}", "else", "do"):
            return True
        if before == ":":
            j = i - 2
            while self.word(j) not in (";", "{", "}", "case", "default", ""):
                j -= 1
            return self.word(j) in ("case", "default")
        return before == ")" and self.word(self.partner.get(i - 1, 0) - 1) in (
            "if", "for", "while", "constexpr")

    def delete(self, i):
        """The statement that begins at i, if it is a call or an assignment."""
        if self.word(i) in KEPT or (
                self.tokens[i].kind != "name" and self.word(i) not in ("++", "--", "*")):
            return
        end = self.end_of_statement(i)
        if self.word(end) != ";" or end == i:
            return
        j, before = i, None
        while j < end and self.word(j) not in ASSIGNING:
            if before is not None and self.tokens[j].kind == "name" and (
                    self.tokens[before].kind == "name" or self.word(before) == ">"):
                return  # a declaration
            before, j = j, self.past(j)
        if j < end:
            declares = self.word(j) == "=" and any(
                self.word(k) in ("&", "*") for k in range(i + 1, j)) and not any(
                    self.word(k) in OPENING for k in range(i, j))
            if not declares:
                self.add("delete-assign", i, end, ";", whole=True)
        elif self.word(end - 1) == ")" or self.word(i) == TRACE:
            self.add("delete-call", i, end, ";", whole=True)

    def return_early(self, body):
        if body.last == body.first + 1:
            return
        name = body.opening - 1
        first = name
        while self.word(first - 1) not in (";", "}", "{", ":", ""):
            first -= 1
        *_, owner, own = ["", *body.name.split("::")]
        is_bare = own == owner or own.startswith("~") or \
            "void" in [self.word(k) for k in range(first, name)][:3]
        self.add("early-return", body.first, body.first, "{ return; " if is_bare else "{ return {}; ")
