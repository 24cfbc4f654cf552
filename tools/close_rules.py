"""Who may close a descriptor: its owner, rt::Descriptor or rt::FileDescriptor, and few others."""

import fnmatch
import re

import include_rules
from cpp_source import Source

# (path, why it closes by number)
ALLOWED = [
    ("runtime/base/Descriptor.h", "the owner"),
    ("runtime/loop/FileDescriptor.*", "the owner that tells reactors"),
    ("Vm/*", "the agent's own sequences, by number"),
    ("netlink/*", "the agent's own sequences, by number"),
    ("shim/keep/QemuProcess.cpp", "a child closes what it inherited, and nobody of it owns"),
]


def closings(text):
    """Yields the lines on which the system's close() is called: by that name, or as ::close."""
    source = Source(text)
    for i in range(len(source.tokens)):
        if source.word(i) != "close" or source.word(i + 1) != "(":
            continue
        before = source.word(i - 2 if source.word(i - 1) == "::" else i - 1)
        is_member = before in (".", "->")
        # A declaration's type, or the class whose function it is.
        is_others = re.match(r"[A-Za-z_]", before) and before not in ("return", "else", "do")
        if is_member or is_others:
            continue
        yield source.line_of(source.tokens[i].at)


def check(texts):
    """All findings in {path: text}, as "path:line: what is wrong"."""
    findings, needed = [], set()
    for path, text in texts.items():
        if not include_rules.is_product(path) or path.startswith(include_rules.SIMULATOR + "/"):
            continue
        rows = [row for row in ALLOWED if fnmatch.fnmatchcase(path, row[0])]
        for line in closings(text):
            needed.update(rows)
            if not rows:
                findings.append(f"{path}:{line}: closes a descriptor by its number: let an "
                                "rt::Descriptor own it (runtime/base/Descriptor.h)")
    return findings + [f"tools/close_rules.py:1: {row[0]} needs no exception: remove its row"
                       for row in ALLOWED if row not in needed]
