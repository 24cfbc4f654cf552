"""A test is found by its file's name, and a page names no test that there is not.

Of the suites of a test file that stands beside code one at least begins with the file's name, so that
"ctest -R VmConfigSm" runs the tests of VmConfigSm.cpp, and so that a failure's name leads to its file.
The system tests' suites are named for what they go on about, as their files are.
"""

import re

# How each of our pages names a test: `Suite.Claim`, `Suite.*`, `Suite.Begins*`, `Sui*.*`. Those of
# the simulator are no Google Tests, and `Suite.*` stands for any.
PAGES = ("docs/testing.md", "docs/security.md", "docs/architecture.md", "docs/database.md",
         "CONTRIBUTING.md")
NAMED = re.compile(r"`((?!Simulator\.|Suite\.)[A-Z]\w*[*…]?)\.((?:[A-Z]|test_)\w*[*…]?|\*[A-Z]\w*\*?|\*|…)`")

# Those of the page in Cockpit, and of the module for Python, are Python's.
PYTHONS = ("tests/page/page_test.py", "python/vmagent_test.py")
PYTHON = re.compile(r"^class (\w+)|^    def (test_\w+)", re.M)

TEST = re.compile(r"^(?:TYPED_)?TEST(?:_F|_P)?\(\s*(\w+),\s*(\w+)", re.M)

# Whose suites have no one file's name, and why.
SYSTEM = "tests/system/"
UNNAMED = {
    "ctl/verbs/": "a suite a verb, of a file for a family of verbs",
    "statedb/WatchContractTest.cpp": "the suite is every store's",
    "statedb/fakes/MemoryContractTest.cpp": "the suite is every store's",
    "statedb/sqlite/SqliteContractTest.cpp": "the suite is every store's",
    "runtime/fakes/FakesTest.cpp": "a suite a fake",
}


def tests_of(texts):
    """{path: [(suite, claim)]} of the test files."""
    return {path: TEST.findall(text) for path, text in texts.items() if path.endswith("Test.cpp")}


def python_tests_of(text):
    """[(class, method)] of a file of Python's tests."""
    found, suite = [], ""
    for match in PYTHON.finditer(text):
        suite = match[1] or suite
        if match[2]:
            found.append((suite, match[2]))
    return found


def suite_findings(tests):
    """Files of which no suite has the name.  Several are no fault: a plural's s may be missing."""
    findings = []
    for path, named in sorted(tests.items()):
        name = path.rsplit("/", 1)[-1].removesuffix("Test.cpp").removesuffix("s")
        if path.startswith((SYSTEM, *UNNAMED)) or any(suite.startswith(name) for suite, _ in named):
            continue
        suites = ", ".join(sorted({suite for suite, _ in named})) or "none"
        findings.append(f"{path}:1: no suite begins with {name}, so nobody finds these: {suites}")
    return findings


def page_findings(tests, pages):
    """Tests that a page, {name: text}, names and that are in no file."""
    all_tests = {f"{suite}.{claim}" for named in tests.values() for suite, claim in named}
    findings = []
    for page, text in pages.items():
        for match in NAMED.finditer(text):
            wanted = re.escape(f"{match[1]}.{match[2]}").replace("\\*", ".*").replace("…", ".*")
            if not any(re.fullmatch(wanted, test) for test in all_tests):
                line = text.count("\n", 0, match.start()) + 1
                findings.append(f"{page}:{line}: there is no test {match[0]}")
    return findings


def check(texts, root):
    tests = tests_of(texts)
    pages = {page: (root / page).read_text() for page in PAGES}
    pythons = {path: python_tests_of((root / path).read_text()) for path in PYTHONS}
    return suite_findings(tests) + page_findings(tests | pythons, pages)
