"""Which folder may include which: the layers of the project, and the check of them.

An arrow is transitive: a folder may include what its row names and all that those may include.
A name stands for the folder and everything below it.  Files of one folder may always include each
other.
"""

import os
import re

ALLOWED = {
    "runtime/base": [],
    "runtime/entity": ["runtime/base"],
    "runtime/loop": ["runtime/entity", "runtime/base"],
    "runtime/net": ["runtime/entity", "runtime/base"],
    "runtime/records": ["runtime/net", "runtime/loop", "runtime/entity", "runtime/base"],
    "runtime/interfaces": ["runtime/records"],
    "runtime/fakes": ["runtime"],
    "netlink": ["runtime/base"],
    "Vm/QmpParser": ["runtime"],
    "Vm/Monitor": ["Vm/QmpParser"],
    "Vm/VmAgent": ["Vm/Monitor", "netlink", "runtime/records"],
    "statedb": ["runtime"],
    "guest": [],
    "model": ["runtime/records", "guest"],
    "ctl/machine": ["statedb", "model"],
    "ctl/line": ["ctl/machine"],
    "ctl/view": ["ctl/line"],
    "ctl/verbs": ["ctl/view"],
    "ctl": ["ctl/verbs"],
    "host/base": ["runtime", "model"],
    "host/database": ["host/base", "statedb", "model"],
    "host/budget": ["host/database", "guest"],
    "host/state": ["host/base", "guest"],
    "host/guests": ["host/budget", "host/state"],
    "host/network": ["host/guests", "netlink"],
    "host/service": ["host/base", "netlink", "guest"],
    "host": ["host/network", "host/service", "Vm"],
    "shim/base": ["runtime/base"],
    "shim/decide": ["runtime/base", "guest"],
    "shim/box": ["shim/base", "guest"],
    "shim/keep": ["shim/box", "shim/decide"],
    "shim": ["shim/keep"],
    "sim/base": [],
    "sim/fiber": ["sim/base"],
    "sim/kernel": ["sim/fiber"],
    "sim/seam": ["sim/kernel"],
    "sim/models": ["sim/kernel"],
    "sim/world": ["sim/seam", "sim/models", "statedb", "model", "ctl"],
    "sim/oracle": ["sim/world"],
    "sim/story": ["sim/oracle"],
    "sim/run": ["sim/story"],
}

# Tests may include anything.  They stand in these folders, or beside the code they test.
TEST_FOLDERS = ("tests", "fuzz", "bench")
TEST_ENDINGS = ("Test.cpp", "Bench.cpp", "Fuzz.cpp")

# It stands for a whole machine in tests, and has layers of its own.
SIMULATOR = "sim"

# Deciders: they may include what C++ brings, and of the system only names of types and of values.
PURE = ("guest", "shim/decide")
NAMES_OF_THE_SYSTEM = ("sys/types.h", "sys/wait.h")
SYSTEM_HEADER = re.compile(r"(?:sys|linux|net|netinet|netlink|asm|arpa)/|(?:dirent|dlfcn|fcntl|grp|poll|"
                           r"pthread|pty|pwd|sched|signal|spawn|syslog|termios|unistd)\.h$")

# Product code never includes what lies below a folder of this name.
FAKES = "fakes"

# Strings are matched so that a "/*" in one begins no comment.
COMMENT_OR_STRING = re.compile(r'//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\\n])*"', re.S)
INCLUDE = re.compile(r'^\s*#\s*include\s*(?:"(?P<quoted>[^"]+)"|<(?P<angled>[^>]+)>)')


def includes(text):
    """Yields (line number, name, whether it is quoted) of each include; comments have none."""
    text = COMMENT_OR_STRING.sub(
        lambda m: m[0] if m[0].startswith('"') else "\n" * m[0].count("\n"), text)
    for number, line in enumerate(text.split("\n"), 1):
        if match := INCLUDE.match(line):
            yield number, match["quoted"] or match["angled"], match["quoted"] is not None


def below(path, folder):
    return path == folder or path.startswith(folder + "/")


def folder_of(path):
    """The row of ALLOWED that `path` belongs to, or None."""
    rows = [row for row in ALLOWED if below(os.path.dirname(path), row)]
    return max(rows, key=len, default=None)


def is_test(path):
    return path.split("/")[0] in TEST_FOLDERS or path.endswith(TEST_ENDINGS)


def is_fake(path):
    return FAKES in path.split("/")[:-1]


def is_product(path):
    """Whether it is, or may become, a part of what is shipped."""
    return not is_test(path) and not is_fake(path) and not below(path, SIMULATOR)


def reachable(row):
    """Every name that the files of `row` may include, itself among them."""
    seen, todo = set(), [row]
    while todo:
        name = todo.pop()
        if name not in seen:
            seen.add(name)
            for other, names in ALLOWED.items():
                if below(other, name):
                    todo += names
    return seen


def includer_findings(path):
    """What is wrong with the place of a file, whatever it includes."""
    if is_test(path) or folder_of(path):
        return []
    return [f"{path}:1: its folder has no row in tools/include_rules.py: add what it may include"]


def check_purity(path, header):
    """What is wrong with `path` including <header>, or None."""
    if is_test(path) or folder_of(path) not in PURE or header in NAMES_OF_THE_SYSTEM:
        return None
    if not SYSTEM_HEADER.match(header):
        return None
    return f"{folder_of(path)} decides and does nothing: <{header}> belongs to who does"


def check_include(path, name, quoted, files):
    """What is wrong with `path` including `name`, or None.  `files` are all of ours."""
    if not quoted:
        if name in files:
            return f'<{name}> is ours: write "{name}"'
        return check_purity(path, name)
    if name not in files:
        beside = os.path.normpath(os.path.join(os.path.dirname(path), name))
        if beside in files:
            return f'"{name}" is not written from the repository root: write "{beside}"'
        return f'"{name}" is no file of ours: write <{name}> if it is a library\'s, else mend the name'
    if is_test(path):
        return None
    if is_test(name):
        return f'"{name}" is test code: only tests may include it'
    if is_fake(name) and not is_fake(path):
        return f'"{name}" is a fake: only tests and fakes may include it'
    row = folder_of(path)
    if row is None:
        return None
    allowed = reachable(row)
    if any(below(name, folder) for folder in allowed):
        return None
    others = sorted(folder for folder in allowed if folder != row)
    return f'{row} may not include "{name}": it may include {", ".join(others) or "nothing else"}'


def check(texts):
    """All findings in {path: text}, as "path:line: what is wrong"."""
    findings = []
    for path, text in sorted(texts.items()):
        findings += includer_findings(path)
        for line, name, quoted in includes(text):
            if wrong := check_include(path, name, quoted, texts):
                findings.append(f"{path}:{line}: {wrong}")
    return findings
