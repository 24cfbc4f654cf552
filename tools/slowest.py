#!/usr/bin/env -S python3 -B
"""Says which steps of a build's last run took longest, so that whoever waits for it knows for what."""

import pathlib
import sys

NAMED = 5
WORTH_TELLING = 20  # seconds; of a shorter run nothing is said


def last_run(log):
    """[(seconds, output)] of the steps that ninja appended to its log last.

    A line is "start end mtime output hash", in milliseconds since its run began; within a run the
    ends never go back.
    """
    steps, later = [], None
    for line in reversed(log.splitlines()):
        fields = line.split("\t")
        if len(fields) < 4 or line.startswith("#"):
            break
        start, end = int(fields[0]), int(fields[1])
        if later is not None and end > later:
            break
        later = end
        steps.append(((end - start) / 1000, fields[3], start, end))
    return steps


def name_of(output):
    """Short: host_test: unity_1."""
    parts = pathlib.PurePath(output).parts
    owner = next((p.removesuffix(".dir") for p in parts if p.endswith(".dir")), "")
    short = parts[-1].split(".")[0]
    return f"{owner}: {short}" if owner else short


def main(build):
    log = pathlib.Path(build) / ".ninja_log"
    steps = last_run(log.read_text()) if log.exists() else []
    if not steps or max(step[3] for step in steps) < WORTH_TELLING * 1000:
        return
    slowest = sorted({step[:2] for step in steps}, reverse=True)[:NAMED]
    print(f"build: {len(steps)} steps in {max(s[3] for s in steps) / 1000:.0f} s, slowest: " +
          ", ".join(f"{name_of(output)} {seconds:.1f} s" for seconds, output in slowest))


if __name__ == "__main__":
    main(sys.argv[1])
