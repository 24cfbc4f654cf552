"""One fact, one list: each folder is in all lists of folders, and a word has one owner.

A list of folders that cannot be made from another is held to be whole here.  So is the owner of a
word that several programs must spell alike: all others use its name.
"""

import re

import include_rules

# Lists of folders: a file, and the pattern that a folder is there by.
PAGES = (("README.md", "| `{}/"), ("docs/architecture.md", "`{}[`/]"))
BUILD = "CMakeLists.txt"
TIDY = ".clang-tidy"

# What is no folder of ours to describe.
UNLISTED = ("docs", ".ci")

# String literals, and the folder that owns them.  The agent, which knows none of us, spells its own
# paths; a test holds both alike.
OWNED = (
    (r"VMAGENT_(?!VERSION\b|LEVEL\b|VM\b)[A-Z_]+", "guest"),
    (r"(?:shim|console|vnc)\.sock|(?:console|shim)\.log|last-error", "guest"),
    (r"vm(?:Config|Image|Intent|Limits|Status|Process|Problem)|interfaceStatus", "model"),
)
SPELLS_ITSELF = ("Vm", "runtime", "netlink")

# A file of ours, by its whole name.
NAMED_FILE = re.compile(r"`([\w-]+(?:/[\w.-]+)+\.(?:h|cpp|py|txt|S|toml|trace|requests))`")

LITERAL = re.compile(r'//[^\n]*|"((?:\\.|[^"\\\n])*)"')


def missing(folders, text, pattern):
    """Those of `folders` that `text` does not have by `pattern`."""
    parts = pattern.split("{}")
    return [f for f in folders
            if not re.search(re.escape(parts[0]) + re.escape(f) +
                             (parts[1] if "[" in parts[1] else re.escape(parts[1])), text)]


def top_folders(paths):
    return sorted({p.split("/")[0] for p in paths if "/" in p} - set(UNLISTED))


def list_findings(texts, pages):
    """What is missing in `pages`, {name: text}; `texts` are the C++ files."""
    findings = []
    folders = top_folders(texts)
    for name, pattern in PAGES:
        findings += [f"{name}:1: has no row for the folder {f}/"
                     for f in missing(folders, pages[name], pattern)]
    findings += [f"{BUILD}:1: does not build the folder {f}/"
                 for f in missing(folders, pages[BUILD], " {}[ )\\n]")]
    with_headers = top_folders(p for p in texts
                               if p.endswith(".h") and include_rules.is_product(p))
    header_filter = re.search(r"HeaderFilterRegex: '/\(([^)]*)\)/'", pages[TIDY])
    known = header_filter[1].split("|") if header_filter else []
    findings += [f"{TIDY}:1: its HeaderFilterRegex does not have the folder {f}"
                 for f in with_headers if f not in known]
    return findings


def path_findings(is_there, pages):
    """Files that a page, {name: text}, names and that are not there."""
    return [f"{name}:{text.count(chr(10), 0, match.start()) + 1}: there is no {match[1]}"
            for name, text in sorted(pages.items()) for match in NAMED_FILE.finditer(text)
            if not is_there(match[1])]


def literals(text):
    """(line number, content) of each string literal; comments have none, nor lines of includes."""
    for number, line in enumerate(text.split("\n"), 1):
        if not line.lstrip().startswith("#include"):
            for match in LITERAL.finditer(line):
                if match[1] is not None:
                    yield number, match[1]


def word_findings(texts):
    """Literals that are a word of another folder's, as a whole."""
    findings = []
    for path, text in sorted(texts.items()):
        top = path.split("/")[0]
        if not include_rules.is_product(path) or top in SPELLS_ITSELF:
            continue
        for number, literal in literals(text):
            for pattern, owner in OWNED:
                if top != owner and re.fullmatch(f"/?(?:{pattern})=?", literal):
                    findings.append(f'{path}:{number}: "{literal}" is spelled in {owner}/ alone: '
                                    f"use the name that it has there")
    return findings


def check(texts, root):
    pages = {name: (root / name).read_text()
             for name in [BUILD, TIDY, *(name for name, _ in PAGES)]}
    texts_of_pages = {f"docs/{page.name}": page.read_text() for page in (root / "docs").glob("*.md")}
    return (list_findings(texts, pages) + word_findings(texts) +
            path_findings(lambda path: (root / path).is_file(), texts_of_pages))
