#!/usr/bin/env -S python3 -B
"""Runs the tests that need no machine: the unit and component tests of a build, each program whole.

ctest starts a process a test, which for thousands of short ones is most of the time. Programs are cut
into as many parts as there are processors; the slowest are named at the end. Exit status 1 if a test
failed.
"""

import argparse
import concurrent.futures
import json
import os
import pathlib
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
LABEL = "whole"  # cmake/VmagentTest.cmake
PARTS = len(os.sched_getaffinity(0))
PATIENCE = 300  # seconds, for one part
NAMED = 5


def programs(listing, build):
    """{program: its working directory}, of ctest's own listing."""
    found = {}
    for test in listing["tests"]:
        properties = {p["name"]: p["value"] for p in test.get("properties", [])}
        if LABEL in properties.get("LABELS", []):
            program = os.path.relpath(test["command"][0], build)
            found[program] = properties.get("WORKING_DIRECTORY", str(build))
    return found


def environment_of(preset):
    """What CMakePresets.json has tests of that preset run with."""
    presets = json.loads((ROOT / "CMakePresets.json").read_text())["testPresets"]
    return next((p.get("environment", {}) for p in presets if p["name"] == preset), {})


def run(build, program, directory, part):
    """Returns (program, seconds, what it said if it failed)."""
    environment = os.environ | environment_of(build.name) | {
        "GTEST_TOTAL_SHARDS": str(PARTS), "GTEST_SHARD_INDEX": str(part), "GTEST_BRIEF": "1"}
    begin = time.monotonic()
    try:
        done = subprocess.run([build / program], cwd=directory, env=environment, text=True,
                              errors="replace", timeout=PATIENCE, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT)
        said = "" if done.returncode == 0 else done.stdout
        if done.returncode != 0 and not said:
            said = f"it ended with status {done.returncode}\n"
    except subprocess.TimeoutExpired:
        said = f"it has not ended in {PATIENCE} s\n"
    return program, time.monotonic() - begin, said


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("build", type=pathlib.Path, nargs="?", default=ROOT / "build/dev")
    build = parser.parse_args().build.resolve()
    listing = json.loads(subprocess.run(["ctest", "--test-dir", build, "--show-only=json-v1"],
                                        check=True, capture_output=True, text=True).stdout)
    all_programs = programs(listing, build)
    if not all_programs:
        sys.exit(f"quick: there are no tests in {build}")
    seconds = dict.fromkeys(all_programs, 0.0)
    failed = False
    begin = time.monotonic()
    with concurrent.futures.ThreadPoolExecutor(PARTS) as pool:
        parts = [pool.submit(run, build, program, directory, part)
                 for program, directory in all_programs.items() for part in range(PARTS)]
        for part in concurrent.futures.as_completed(parts):
            program, taken, said = part.result()
            seconds[program] += taken
            if said:
                failed = True
                print(f"{program}:\n{said}", flush=True)
    slowest = sorted(seconds, key=seconds.get, reverse=True)[:NAMED]
    print("quick: slowest: " + ", ".join(f"{pathlib.Path(p).name} {seconds[p]:.1f} s"
                                         for p in slowest))
    print(f"quick: {len(all_programs)} programs " + ("FAILED" if failed else "passed") +
          f" in {time.monotonic() - begin:.0f} s")
    sys.exit(1 if failed else 0)


if __name__ == "__main__":
    main()
