"""Where a mutant is tried: a copy of the tree that is seen in the tree's place.

All is done in mounts of our own. Over the copy lies a layer in memory for each mutant, so that what
is built of it, and it itself, is gone with the layer. Tests run in namespaces of their own, on file
systems that they cannot write, for a mutant may end every process and delete every file in its
reach. Needs root.
"""

import os
import pathlib
import re
import shlex
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
PRESET = "dev"
BUILD = ROOT / "build" / PRESET
LAB = ROOT / "build/mutants"

SHORTEST = 20  # seconds that a program may take at least
MEMORY = 8_000_000  # kilobytes of addresses

# What a mutant is warned of is not what is asked, and its lines keep their numbers.
QUIET = '#pragma clang diagnostic ignored "-Weverything"\n#line 1\n'

ISOLATED = """set -e
mount --make-rprivate /
ip link set lo up
for place in /tmp /run /var/tmp; do mount -t tmpfs own $place; done
mount --rbind /dev /dev
mount -o remount,bind,ro /dev
mount -o remount,bind,ro /
ulimit -v {memory}
ulimit -c 0
cd {folder}
exec timeout -s KILL {limit} {command}
"""


def run(*command, check=True, **options):
    return subprocess.run(command, check=check, stdin=subprocess.DEVNULL, text=True,
                          errors="replace", **options)


def enter_own_mounts():
    """Starts this program anew, with mounts that nobody else sees."""
    if os.environ.get("VMAGENT_MUTANTS") != "inside":
        if os.geteuid() != 0:
            sys.exit("mutants: must be root, to put a copy in the tree's place")
        os.environ["VMAGENT_MUTANTS"] = "inside"
        os.execvp("unshare", ["unshare", "-m", "--propagation", "private", sys.executable, "-B",
                              *sys.argv])


def program_of(tests):
    """"program" of "program:filter"."""
    return tests.partition(":")[0]


def prepare(programs):
    """Builds them, and makes the copy: the sources may be worked on meanwhile."""
    if not (BUILD / "build.ninja").exists():
        run("cmake", "--preset", PRESET, cwd=ROOT)
    run("cmake", "--build", BUILD, "--target", *(os.path.basename(p) for p in programs))
    tree = LAB / "tree"
    run("rm", "-rf", tree)
    tree.mkdir(parents=True)
    listed = run("git", "ls-files", "-co", "--exclude-standard", "-z", cwd=ROOT,
                 stdout=subprocess.PIPE).stdout.split("\0")
    files = [f for f in listed if f and (ROOT / f).exists()]
    built = [f for f in (f"build/{PRESET}", "build/guests") if (ROOT / f).exists()]
    run("cp", "-a", "--parents", *files, *built, tree, cwd=ROOT)
    os.chdir("/")


class Place:
    """The copy under a layer of its own, in the tree's place; gone when it is left."""

    def __enter__(self):
        scratch = LAB / "scratch"
        scratch.mkdir(exist_ok=True)
        run("mount", "-t", "tmpfs", "mutant", scratch)
        for name in ("upper", "work"):
            (scratch / name).mkdir()
        run("mount", "-t", "overlay", "mutant", "-o",
            f"lowerdir={LAB}/tree,upperdir={scratch}/upper,workdir={scratch}/work", ROOT)

    def __exit__(self, *_):
        run("umount", "-l", ROOT)
        run("umount", "-l", LAB / "scratch")


def build(program):
    """What went wrong, or nothing."""
    built = run("ninja", "-j1", "-C", BUILD, program, check=False, stdout=subprocess.PIPE,
                stderr=subprocess.STDOUT)
    if built.returncode == 0:
        return ""
    error = re.search(r"error: .*", built.stdout)
    return error[0] if error else built.stdout[-300:]


def run_tests(tests, limit, *arguments):
    """("passed", "failed" or "time-out", the test that failed, seconds)."""
    program, _, part = tests.partition(":")
    command = [str(BUILD / program), "--gtest_color=no", *arguments]
    if part and not any(a.startswith("--gtest_filter") for a in arguments):
        command.append(f"--gtest_filter={part}")
    script = ISOLATED.format(memory=MEMORY, folder=(BUILD / program).parent, limit=limit,
                             command=shlex.join(command))
    start = time.monotonic()
    with tempfile.TemporaryFile("w+", errors="replace") as said:
        done = run("unshare", "-m", "-n", "-i", "-u", "-p", "-f", "--kill-child", "--mount-proc",
                   "sh", "-c", script, check=False, stdout=said, stderr=subprocess.STDOUT,
                   start_new_session=True)
        seconds = time.monotonic() - start
        said.seek(0)
        text = said.read(4_000_000)
    if done.returncode == 0:
        return "passed", "", seconds
    names = re.findall(r"^\[  FAILED  \] ([\w/]+\.[\w/]+)", text, re.M) or \
        re.findall(r"^\[ RUN      \] ([\w/]+\.[\w/]+)", text, re.M)[-1:] or [text[-300:]]
    return "time-out" if seconds >= limit - 1 else "failed", names[0], seconds


def failure(tests, limit):
    """(state, test) of what fails twice, or None: what fails by chance has noticed nothing."""
    state, test, _ = run_tests(tests, limit, "--gtest_fail_fast")
    if state == "failed":
        alone = [f"--gtest_filter={test}"] if "." in test else []
        if run_tests(tests, limit, *alone)[0] == "passed":
            state, test, _ = run_tests(tests, limit, "--gtest_fail_fast")
    return None if state == "passed" else ("killed" if state == "failed" else state, test)


def limit_of(tests, longest):
    """How many seconds they may take; ends where they fail without any mutant."""
    with Place():
        for _ in range(2):
            state, test, seconds = run_tests(tests, longest)
            if state == "passed":
                return min(longest, max(SHORTEST, int(8 * seconds)))
    sys.exit(f"mutants: {tests} fails without any mutant: {test}")


def try_one(file, mutant, limits):
    """What becomes of it: {"state": ...} and, if a test failed, which. `limits` are of the tests to
    run, in their order."""
    with Place():
        path = ROOT / file
        text = path.read_text()
        path.write_text(QUIET + text[:mutant.at] + mutant.new + text[mutant.end:])
        for tests, limit in limits.items():
            if why := build(program_of(tests)):
                return {"state": "not compiled", "why": why}
            if failed := failure(tests, limit):
                return {"state": failed[0], "by": tests, "test": failed[1]}
    return {"state": "survived"}
