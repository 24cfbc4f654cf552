"""Which functions nobody calls: those that a product header declares and no product code uses.

Tests, fakes, benchmarks, fuzzers and the simulator are no product code. A name stands for all functions of that
name. What is said outside of functions uses it, and so does the body of a function that is used
itself: neither its own body nor that of another that nobody calls keeps a function alive.
"""

import fnmatch
import re

import include_rules
from cpp_source import AFTER_PARAMETERS, Source

SAME_OPERATIONS = "each collection of a record or machine has the same operations"
READABLE = "what a host can set, or is told of, it can read"

# (header, function, why it may be there though nobody calls it); "*" stands for anything.
ALLOWED = [
    ("runtime/records/*.h", "*DelAll", SAME_OPERATIONS),
    ("runtime/records/*.h", "*Has", SAME_OPERATIONS),
    ("runtime/records/*.h", "*Is", SAME_OPERATIONS),
    ("Vm/*/*.h", "*DelAll", SAME_OPERATIONS),
    ("Vm/Monitor/MonitorSm.h", "qmpRequestFront", SAME_OPERATIONS),
    ("Vm/Monitor/MonitorSm.h", "qmpRequestBack", SAME_OPERATIONS),
    ("Vm/VmAgent/VmSm.h", "handleIntfStatusAndDeviceName", "a host may ask for the full pass"),
    ("runtime/base/Exception.h", "attribute", READABLE),
    ("runtime/base/Trace.h", "levels", READABLE),
    ("runtime/entity/Entity.h", "parent", READABLE),
    ("runtime/entity/Entity.h", "firstChild", READABLE),
    ("runtime/entity/Entity.h", "nextSibling", READABLE),
    ("runtime/entity/OrderedQueue.h", "nextIndex", READABLE),
    ("runtime/entity/Ptr.h", "references", READABLE),
    ("runtime/loop/Clock.h", "timeMin", READABLE),
    ("runtime/entity/Entity.h", "deletionMarkIs", "a host may mark what it is about to delete"),
    ("runtime/entity/Ptr.h", "threadSafePtrs*", "a host with more threads switches it on"),
    ("runtime/entity/Ptr.h", "ptrCast", "a host is handed entities, and knows their classes"),
]

NO_TYPE = set("return throw else case new delete typename template sizeof operator goto do and or not "
              "co_return co_await co_yield".split())
# What stands before "(" in a declaration and is no function's name.
NO_NAME = set("alignas alignof decltype noexcept static_assert requires explicit sizeof typeid "
              "if for while switch catch return throw defined".split())
NAME = re.compile(r"[A-Za-z_]\w*")


class Names(Source):
    """What one file declares, and which names it uses where."""

    def __init__(self, text):
        super().__init__(text)
        self.inside = {}
        for body in self.bodies:
            simple = body.name.rsplit("::", 1)[-1]
            self.inside.update(dict.fromkeys(range(body.first, body.last + 1), simple))
        self.declarators = set(self._declarators())
        self.variables = {self.word(i) for i in range(len(self.tokens)) if self.is_variable(i)}

    def declared(self):
        """(name, line) of the functions that it declares; an override is its base's."""
        for i in sorted(self.declarators):
            j = self.past(i + 1)
            while self.word(j) in AFTER_PARAMETERS and self.word(j) != "override":
                j += 1
            if self.word(j) != "override":
                yield self.word(i), self.line_of(self.tokens[i].at)

    def classes(self):
        return {self.word(i + 1) for i in range(len(self.tokens))
                if self.word(i) in ("class", "struct")}

    def used(self):
        """(the function in whose body it is or None, name)."""
        for i, token in enumerate(self.tokens):
            if token.kind == "name" and i not in self.declarators and self.is_use(i):
                yield self.inside.get(i), token.text
        for token in self.all:
            if token.kind == "line" and not re.match(r"\s*#\s*include", token.text):
                yield from ((None, name) for name in NAME.findall(token.text))

    def _declarators(self):
        """Names before the parameters of functions, outside of bodies, brackets and values."""
        after = {body.opening: body.last + 1 for body in self.bodies}
        i = 0
        while i < len(self.tokens):
            word, following = self.word(i), self.word(i + 1)
            if self.tokens[i].kind == "name" and following == "(" and word not in NO_NAME:
                if self.word(i - 1) != "~" and self.word(i - 1) != "operator":
                    yield i
                i = after[i + 1] if i + 1 in after else self.end_of_declaration(i + 1)
            elif i in after:  # an operator, in brackets of its own
                i = after[i]
            elif word in ("(", "["):
                i = self.past(i)
            elif word == "=":
                i = self.end_of_declaration(i)
            else:
                i += 1

    def end_of_declaration(self, i):
        while self.word(i) not in (";", "}", ""):
            i = self.past(i)
        return i

    def is_variable(self, i):
        """Whether a variable of that name is declared here: after a type, and before a value."""
        if self.tokens[i].kind != "name" or i in self.declarators or \
                self.word(i + 1) not in (";", "=", ",", ")", "{", ":", "[", "(", "]"):
            return False
        before = i - 1
        while self.word(before) in ("&", "*", "&&", "const"):
            before -= 1
        if self.word(before) in ("[", ",") and self.is_binding(before):
            return True
        return self.word(before) == ">" and before < i - 1 or (
            before >= 0 and self.tokens[before].kind == "name" and self.word(before) not in NO_TYPE)

    def is_binding(self, i):
        """Whether token i is in the brackets of "auto [a, b]"."""
        while self.word(i) == "," or self.tokens[i].kind == "name":
            i -= 1
        return self.word(i) == "[" and (self.word(i - 1) == "auto" or self.word(i - 2) == "auto")

    def is_use(self, i):
        before, after = self.word(i - 1), self.word(i + 1)
        if after == "(":  # "Type name(value)" makes a variable
            return before in NO_TYPE or before == "" or self.tokens[i - 1].kind != "name"
        return before not in (".", "->") and (before == "::" or self.word(i) not in self.variables)


def product(texts):
    """{path: text} of what is product code: sources, and the headers that they reach."""
    todo = [p for p in texts if p.endswith(".cpp") and include_rules.is_product(p)]
    reached = set()
    while todo:
        path = todo.pop()
        if path in texts and path not in reached:
            reached.add(path)
            todo += [name for _, name, _ in include_rules.includes(texts[path])]
    return {path: texts[path] for path in sorted(reached)}


def not_called(files):
    """(header, line, name) of the functions that no code of {path: Names} uses."""
    constructors = set().union(*(names.classes() for names in files.values()))
    declared = {}
    for path, names in files.items():
        for name, line in names.declared() if path.endswith(".h") else ():
            if name not in constructors:
                declared.setdefault(name, (path, line, name))
    uses = {}
    for names in files.values():
        for inside, name in names.used():
            if name in declared and name != inside:
                uses.setdefault(inside if inside in declared else None, set()).add(name)
    alive, todo = set(), list(uses.get(None, ()))
    while todo:
        name = todo.pop()
        if name not in alive:
            alive.add(name)
            todo += uses.get(name, ())
    return sorted(declared[name] for name in declared.keys() - alive)


def check(texts):
    """All findings in {path: text}, as "path:line: what is wrong"."""
    files = {path: Names(text) for path, text in product(texts).items()}
    findings, needed = [], set()
    for path, line, name in not_called(files):
        rows = [row for row in ALLOWED
                if fnmatch.fnmatchcase(path, row[0]) and fnmatch.fnmatchcase(name, row[1])]
        needed.update(rows)
        if not rows:
            findings.append(f"{path}:{line}: nobody calls {name}(): call it or remove it, or say in "
                            "tools/call_rules.py why it stays")
    return findings + [f"tools/call_rules.py:1: {path}: {name} needs no exception: remove its row"
                       for path, name, why in ALLOWED if (path, name, why) not in needed]
