#!/usr/bin/env -S python3 -B
"""Tells which names of the C library the product, and the libraries it uses, call that the model
neither stands in for nor need not.

usage: names_test.py OBJECTS MODEL_OBJECTS HARMLESS PROGRAM

OBJECTS, MODEL_OBJECTS: files that list object files, one a line. HARMLESS: a file of names, one or
more a line; what follows a # is a comment. PROGRAM: is linked with the libraries that are looked at.
"""

import pathlib
import re
import subprocess
import sys

# What is linked to the product and calls the system by itself.
LIBRARIES = ("libstdc++", "libnl-3", "libnl-route-3", "libsqlite3", "libjansson")
# Compilers' own, which reach no system.
COMPILERS = re.compile(r"^(_Z|_Unwind_|__asan_|__ubsan_|__sanitizer_|__gcov_|__cxa_|__gxx_|_ITM_|"
                       r"__gmon_start__|__dso_handle|_GLOBAL_OFFSET_TABLE_)")


def names(options, files):
    listed = subprocess.run(["nm", *options, *files], check=True, capture_output=True, text=True)
    found = set()
    for line in listed.stdout.splitlines():
        words = line.split()
        if len(words) >= 2 and len(words[-2]) == 1:
            found.add(words[-1].split("@")[0])
    return found


def libraries(program):
    listed = subprocess.run(["ldd", program], check=True, capture_output=True, text=True).stdout
    return [match[1] for match in re.finditer(r"=> (\S+)", listed)
            if pathlib.Path(match[1]).name.startswith(LIBRARIES)]


def main():
    objects, model, harmless, program = sys.argv[1:]
    product = pathlib.Path(objects).read_text().split()
    others = libraries(program)
    called = names(["-u"], product) - names(["--defined-only"], product)
    provided = set()
    for library in others:
        called |= names(["-D", "-u"], [library])
        provided |= names(["-D", "--defined-only"], [library])
    known = names(["--defined-only"], pathlib.Path(model).read_text().split())
    lines = pathlib.Path(harmless).read_text().splitlines()
    passed = {word for line in lines for word in line.split("#")[0].split()}
    unknown = {name for name in called - provided - known - passed if not COMPILERS.match(name)}
    for name in sorted(unknown):
        print(f"{name} is called, and nobody stands in for it: write it into sim/seam, or, if it "
              "asks the system for nothing, into harmless.txt")
    for name in sorted(passed & known):
        print(f"{name} stands in harmless.txt, though the model stands in for it: remove it there")
    return 1 if unknown or passed & known else 0


if __name__ == "__main__":
    sys.exit(main())
