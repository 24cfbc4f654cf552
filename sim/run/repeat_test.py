#!/usr/bin/env python3
"""One seed gives one history: whatever this machine's addresses, environment and clock are."""

import os
import subprocess
import sys


def digests(program, environment):
    result = subprocess.run([program, "--seed", "1", "--count", "12", "--seconds", "1000", "--digest",
                             "--no-shrink", "--keep-going"],
                            env=environment, stdout=subprocess.PIPE, text=True, check=False)
    return [line for line in result.stdout.splitlines() if not line.startswith("sim:")]


def main():
    program = sys.argv[1]
    one = digests(program, dict(os.environ))
    other = digests(program, {**os.environ, "TZ": "Asia/Tokyo", "FURTHER": "x" * 5000})
    if len(one) < 12 or one != other:
        for a, b in zip(one, other):
            if a != b:
                print(f"{a} the first time, {b} the second")
        sys.exit("a seed gives two histories")


main()
