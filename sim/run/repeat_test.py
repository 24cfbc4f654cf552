#!/usr/bin/env python3
"""One seed gives one history, byte for byte: whatever this machine's addresses, environment and clock
are."""

import os
import subprocess
import sys


def told(program, words, environment):
    result = subprocess.run([program, *words], env=environment, stdout=subprocess.PIPE, text=True,
                            check=False)
    # What a processor had to do for it differs.
    return [line for line in result.stdout.splitlines() if " histories, " not in line]


def main():
    program = sys.argv[1]
    other = {**os.environ, "TZ": "Asia/Tokyo", "FURTHER": "x" * 5000}
    digests = ["--seed", "1", "--count", "12", "--seconds", "1000", "--digest", "--no-shrink",
               "--keep-going"]
    # All of three: each call, the logs, what QEMUs were asked, rows and devices.
    shown = [["--seed", str(seed), "--show", "--calls"] for seed in (2, 5, 9)]
    for words in [digests, *shown]:
        first = told(program, words, dict(os.environ))
        second = told(program, words, other)
        if len(first) < 12:
            sys.exit(f"{words}: too little is told")
        for a, b in zip(first, second):
            if a != b:
                sys.exit(f"{words}: a seed gives two histories: {a} the first time, {b} the second")
        if len(first) != len(second):
            sys.exit(f"{words}: a seed gives two histories, one of them longer")


main()
