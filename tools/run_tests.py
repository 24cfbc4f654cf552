#!/usr/bin/env -S python3 -B
"""Runs all tests of a preset, and fails if they leave anything behind on the machine.

Those that need no machine are run a program at a time by quick.py, all others by ctest.
Looked for are processes of theirs, network links, tap nodes, mounts, and files that carry our names.
"""

import ctypes
import fnmatch
import os
import pathlib
import sys
import time
import xml.etree.ElementTree

ROOT = pathlib.Path(__file__).resolve().parent.parent
NAMED = 8  # of the slowest tests

# Orphans of a subreaper's descendants become its children, so none can hide.
PR_SET_CHILD_SUBREAPER = 36
PATIENCE = 5  # seconds, for what is ending

PLACES = {
    "/tmp": ("vmagent*", "vmctl*"),
    "/run": ("vmagent*", "*.sock", "*.monitor", "*.started"),
    "/dev": ("tap*",),
    "/dev/shm": ("vmagent*",),
    "/usr/libexec": ("vmagent*",),
}


def files():
    """Those in our places that look like ours."""
    return {f"file {place}/{entry}" for place, patterns in PLACES.items()
            if os.path.isdir(place)
            for entry in os.listdir(place)
            if any(fnmatch.fnmatch(entry, pattern) for pattern in patterns)}


def links():
    return {f"link {name}" for name in os.listdir("/sys/class/net")}


def mounts():
    lines = pathlib.Path("/proc/self/mounts").read_text().splitlines()
    return {f"mount {line.split()[1]}" for line in lines}


def children():
    """Processes of ours that are there still."""
    found = set()
    for stat in pathlib.Path("/proc").glob("[0-9]*/stat"):
        try:
            name, rest = stat.read_text().split("(", 1)[1].rsplit(")", 1)
        except OSError:
            continue  # it has ended
        state, parent = rest.split()[:2]
        if int(parent) == os.getpid() and state != "Z":
            found.add(f"process {stat.parent.name} ({name})")
    return found


def run(command):
    """Its exit status. Collects orphans meanwhile, for tests wait until they are gone."""
    process = os.posix_spawnp(command[0], command, os.environ)
    while True:
        pid, status = os.waitpid(-1, 0)
        if pid == process:
            return os.waitstatus_to_exitcode(status)


def there():
    return files() | links() | mounts() | children()


def left(before, patience):
    """What is there that was not, once it had time to go."""
    end = time.monotonic() + patience
    while (found := there() - before) and time.monotonic() < end:
        time.sleep(0.1)
    return sorted(found)


def commands(preset, jobs, results):
    """What runs them all. `results` is the file for what ctest found."""
    return [[str(ROOT / "tools/quick.py"), str(ROOT / "build" / preset)],
            ["ctest", "--preset", preset, "-LE", "^whole$", "-j", jobs, "--output-junit", results]]


def print_slowest(results):
    """Those that took longest, by the file that ctest wrote."""
    if not os.path.exists(results):
        return
    cases = xml.etree.ElementTree.parse(results).getroot().iter("testcase")
    seconds = sorted(((float(c.get("time", 0)), c.get("name")) for c in cases), reverse=True)
    print("run_tests: slowest: " + ", ".join(f"{name} {taken:.0f} s" for taken, name in seconds[:NAMED]))


def main(all_commands, patience=PATIENCE):
    if ctypes.CDLL(None, use_errno=True).prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0) != 0:
        sys.exit(f"run_tests: cannot adopt orphans: {os.strerror(ctypes.get_errno())}")
    before = there()
    status = 0
    for command in all_commands:
        sys.stdout.flush()
        status = run(command) or status
    found = left(before, patience)
    for what in found:
        print(f"run_tests: left behind: {what}", file=sys.stderr)
    if not found:
        print("run_tests: no process, link, node, mount or file was left behind")
    return status if status != 0 else int(bool(found))


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit("usage: run_tests.py PRESET JOBS")
    found_by_ctest = str(ROOT / "build" / sys.argv[1] / "Testing/results.xml")
    exit_status = main(commands(*sys.argv[1:], found_by_ctest))
    print_slowest(found_by_ctest)
    sys.exit(exit_status)
