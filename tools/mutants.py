#!/usr/bin/env -S python3 -B
"""Puts small faults into the product, one at a time, and shows those that no test notices.

A fault (tools/mutations.py) is put into a copy of the tree (tools/mutant_lab.py), and the programs
of TESTS are built and run until a test fails. The same seed draws the same mutants from the same
sources. What became of each stays in build/mutants/state.jsonl, so a run that was interrupted goes
on; a survivor is tried again when one of its test programs has changed.

tools/mutants.toml says of survivors what is known of them. A mutant is told from others by its file,
function, kind and text, so its lines may move:

    [["statedb/Follower.cpp"]]
    function = "Follower::compare"
    kind = "compare"
    text = "return a.revision < b.revision; => return a.revision <= b.revision;"
    equivalent = "revisions of one store are never equal"

or, in place of the last line, caught = "tests/system/daemon_test:Daemon.ATest": tests that take too
long to be run for each. Alone below its file, such a line is of all its survivors. What is
equivalent does not count; what is said to be caught does when the tests were run and one failed.
"""

import argparse
import collections
import functools
import hashlib
import json
import os
import pathlib
import random
import re
import subprocess
import sys
import tomllib

import call_rules
import mutant_lab
import mutations
from mutant_lab import BUILD, LAB, ROOT, program_of

VERDICTS = ROOT / "tools/mutants.toml"

# Which tests could notice, the likeliest first; the first row that a path begins with counts.
# "program:filter" is a part of a program.
AGENT = ["Vm/VmAgent/agent_lifecycle_test", "Vm/VmAgent/agent_nic_test", "netlink/netlink_test"]
MONITOR = ["Vm/Monitor/monitor_test", "Vm/Monitor/monitor_syscall_test",
           "Vm/Monitor/monitor_memory_test", "shim/shim_agent_test"]
DOCUMENTS = ["statedb/statedb_document_test", "statedb/statedb_binding_test"]
STORE = ["statedb/statedb_test", "statedb/statedb_binding_test", "statedb/statedb_contract_test",
         "statedb/statedb_sqlite_test", "statedb/statedb_memory_test"]
PROGRAMS = ["host/host_test", "ctl/ctl_test"]
TESTS = {
    "Vm/VmAgent/": AGENT,
    "Vm/Monitor/": MONITOR + AGENT,
    "Vm/QmpParser/": ["Vm/QmpParser/qmp_parser_test"] + MONITOR + AGENT,
    "netlink/": AGENT[::-1],
    "runtime/base/": ["runtime/runtime_base_test", "runtime/runtime_entity_test",
                      "runtime/runtime_records_test"] + AGENT,
    "runtime/entity/": ["runtime/runtime_entity_test", "runtime/runtime_allocation_test",
                        "runtime/runtime_records_test"] + DOCUMENTS,
    "runtime/loop/": ["runtime/runtime_loop_test", "runtime/runtime_old_kernel_test",
                      "runtime/runtime_pipe_end_test", "Vm/Monitor/monitor_test"] + AGENT,
    "runtime/net/": ["runtime/runtime_net_test", "runtime/runtime_records_test", "model/model_test"],
    "runtime/records/": ["runtime/runtime_records_test"] + AGENT,
    "runtime/interfaces/": ["runtime/runtime_interfaces_test"] + AGENT,
    "statedb/EntityRows.cpp": DOCUMENTS[::-1] + PROGRAMS,
    "statedb/EntityDocument.cpp": DOCUMENTS + PROGRAMS,
    "statedb/DocumentReader.cpp": DOCUMENTS + PROGRAMS,
    "statedb/": STORE + PROGRAMS,
    "guest/": ["guest/guest_rules_test", "model/model_test"] + PROGRAMS,
    "model/": ["model/model_test"] + PROGRAMS,
    "host/": ["host/host_test", "host/host_agent_test"],
    "shim/": ["shim/shim_deciders_test", "shim/shim_keeper_test", "shim/shim_agent_test"],
    "ctl/": ["ctl/ctl_test", "ctl/ctl_process_test"],
}
# How many mutants a line gets, against one of all other lines. A header's cost the most to build.
SHARES = {"Vm/": 2.0, "netlink/": 2.0}
HEADERS_SHARE = 0.2
# How often a kind is drawn where a file has it.
WEIGHTS = {"negate": 3, "compare": 3, "andor": 2, "constant": 3, "bool": 2, "delete-call": 4,
           "delete-assign": 3, "not": 2, "string": 2, "swap-args": 2, "early-return": 1.5,
           "drop-else": 2, "arith": 2, "loop": 1, "ternary": 1.5, "trace": 0.7}

LONGEST, LONGEST_SYSTEM = 60, 240  # seconds that a program may take

CAUGHT = ("killed", "time-out", "system")

# A number tells those that read the same.
Key = collections.namedtuple("Key", "file function kind text number")


# ---------------------------------------------------------------- which mutants

def tests_of(path):
    for prefix, tests in TESTS.items():
        if path.startswith(prefix):
            return tests
    sys.exit(f"mutants: no row of TESTS says which tests could notice a fault in {path}")


def product_texts(only):
    """{path: text} of the sources, and of the runtime's headers, for those are code."""
    listed = subprocess.run(["git", "ls-files", "-co", "--exclude-standard", "*.cpp", "*.h"],
                            cwd=ROOT, check=True, capture_output=True, text=True).stdout.split()
    texts = call_rules.product({p: (ROOT / p).read_text() for p in listed if (ROOT / p).is_file()})
    return {path: text for path, text in texts.items()
            if (path.endswith(".cpp") or path.startswith("runtime/")) and
            (not only or path.startswith(tuple(only)))}


def keyed(path, mutants):
    """{key: mutant} of one file."""
    seen, found = collections.Counter(), {}
    for mutant in mutants:
        name = (path, mutant.function, mutant.kind, mutant.text)
        seen[name] += 1
        found[Key(*name, seen[name])] = mutant
    return found


def weight(path, text):
    lines = sum(1 for line in text.split("\n") if not re.match(r"\s*($|//|#)", line))
    if path.endswith(".h"):
        return lines * HEADERS_SHARE
    return lines * next((share for p, share in SHARES.items() if path.startswith(p)), 1)


def draw(texts, count, seed):
    """Keys of about `count` mutants. A file's share is by its lines; which of its mutants they are
    does not depend on other files."""
    whole = sum(weight(path, text) for path, text in texts.items())
    drawn = []
    for path, text in texts.items():
        dice = random.Random(f"{seed}:{path}")
        kinds = collections.defaultdict(list)
        for key in keyed(path, mutations.mutants_of(text)):
            kinds[key.kind].append(key)
        share = weight(path, text) * count / whole
        for _ in range(int(share) + (dice.random() < share - int(share))):
            there = [kind for kind in WEIGHTS if kinds[kind]]
            if there:
                kind = dice.choices(there, [WEIGHTS[k] * min(1, len(kinds[k]) / 2)
                                            for k in there])[0]
                drawn.append(kinds[kind].pop(dice.randrange(len(kinds[kind]))))
    random.Random(seed).shuffle(drawn)  # a run that is interrupted has tried some of each
    return drawn


# ---------------------------------------------------------------- what is known

class State:
    """What became of the mutants that were tried, the last time that each was."""

    def __init__(self, path):
        self.known = {}
        if path.exists():
            for line in path.read_text().splitlines():
                entry = json.loads(line)
                self.known[Key(*entry.pop("key"))] = entry
        self.file = open(path, "a", buffering=1)  # its path is hidden while a mutant is tried

    def add(self, key, entry):
        self.known[key] = entry
        self.file.write(json.dumps({"key": list(key), **entry}) + "\n")

    def is_settled(self, key, tests, caught_by):
        """Whether another try would say the same. `tests` is a digest of the test programs."""
        entry = self.known.get(key, {})
        if entry.get("state") == "survived":
            return entry["tests"] == tests and entry["caught_by"] == caught_by
        return bool(entry)


def digest(tests):
    content = hashlib.sha256()
    for each in tests:
        content.update((BUILD / program_of(each)).read_bytes())
    return content.hexdigest()[:16]


def read_verdicts(path):
    """{a key without its number, or a file's name alone: either `equivalent` or `caught`, and why}"""
    verdicts = {}
    for file, entries in (tomllib.loads(path.read_text()) if path.exists() else {}).items():
        for entry in entries:
            name = (file, *(entry.get(part) for part in ("function", "kind", "text")))
            known = entry.keys() - {"function", "kind", "text"}
            if known == {"caught"} and len(entry) == 1:
                verdicts[file,] = entry
            elif len(known) == 1 and known <= {"equivalent", "caught"} and None not in name:
                verdicts[name] = entry
            else:
                sys.exit(f"mutants: {path}: {file}: {name[3]}: say either `equivalent`, why nobody "
                         "can notice it, or `caught`, the tests that fail with it")
    return verdicts


def verdict_of(verdicts, key):
    return verdicts.get(key[:4]) or verdicts.get(key[:1]) or {}


def stale(verdicts, texts):
    """Verdicts that fit no mutant of `texts`, where these have the file."""
    there = {key[:length] for path, text in texts.items()
             for key in keyed(path, mutations.mutants_of(text)) for length in (1, 4)}
    return [name for name in verdicts if name[0] in texts and name not in there]


# ---------------------------------------------------------------- the report

def table(entries, verdicts):
    """(lines of {key: entry}, a folder each; the survivors of which nothing is known)."""
    rows = collections.defaultdict(collections.Counter)
    left = []
    for key, entry in entries.items():
        state = entry["state"]
        if state == "survived" and "equivalent" in verdict_of(verdicts, key):
            state = "equivalent"
        elif state == "survived":
            left.append(key)
        for folder in (os.path.dirname(key.file), "all"):
            rows[folder][state] += 1
    lines = ["| Folder | Tried | Killed | Time-out | System test | Survived | Equivalent | Caught |",
             "| --- | ---: | ---: | ---: | ---: | ---: | ---: | ---: |"]
    for folder, row in sorted(rows.items(), key=lambda item: (item[0] == "all", item[0])):
        caught = sum(row[state] for state in CAUGHT)
        count = caught + row["survived"]
        cells = [folder, count + row["equivalent"], row["killed"], row["time-out"], row["system"],
                 row["survived"], row["equivalent"], f"{100 * caught / count:.1f} %" if count else "-"]
        lines.append(f"| {' | '.join(map(str, cells))} |")
    return lines + [f"Not compiled, and not counted: {rows['all']['not compiled']}"], sorted(left)


def as_verdict(key):
    """As it would stand in tools/mutants.toml, but for the last line."""
    return "\n".join([f'[["{key.file}"]]', *(f"{name} = {json.dumps(getattr(key, name))}"
                                             for name in ("function", "kind", "text"))])


def report(entries, verdicts):
    lines, left = table(entries, verdicts)
    print("\n".join(lines))
    for key in left:
        print(f"\nsurvived:\n{as_verdict(key)}")


# ----------------------------------------------------------------

def try_all(keys, mutants, verdicts, state):
    """Tries those whose state is not known."""
    caught_by = {key: verdict_of(verdicts, key).get("caught", "") for key in keys}
    named = {tests for key in keys for tests in [*tests_of(key.file), caught_by[key]] if tests}
    if not keys:
        return
    mutant_lab.prepare(sorted({program_of(tests) for tests in named}))
    digests = {path: digest(tests_of(path)) for path in {key.file for key in keys}}
    todo = [k for k in keys if not state.is_settled(k, digests[k.file], caught_by[k])]
    limits = functools.cache(mutant_lab.limit_of)
    for number, key in enumerate(todo, 1):
        entry = mutant_lab.try_one(key.file, mutants[key],
                                   {tests: limits(tests, LONGEST) for tests in tests_of(key.file)})
        if entry["state"] == "survived" and (tests := caught_by[key]):
            entry = mutant_lab.try_one(key.file, mutants[key],
                                       {tests: limits(tests, LONGEST_SYSTEM)})
            entry["state"] = entry["state"].replace("killed", "system")
        state.add(key, {**entry, "tests": digests[key.file], "caught_by": caught_by[key]})
        print(f"{number}/{len(todo)} {entry['state']}: {key.file}: {key.function}: {key.kind}: "
              f"{key.text[:100]} [{entry.get('test', '')}]", flush=True)


def main():
    parser = argparse.ArgumentParser(description="Shows small faults that no test notices.")
    parser.add_argument("--count", type=int, default=20, help="about how many (%(default)s)")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--only", nargs="*", help="files whose paths begin so")
    parser.add_argument("--survivors", action="store_true", help="those that survived before")
    parser.add_argument("--report", action="store_true", help="of all that is known; tries nothing")
    options = parser.parse_args()
    mutant_lab.enter_own_mounts()
    LAB.mkdir(parents=True, exist_ok=True)
    texts = product_texts(options.only)
    mutants = {key: m for path, text in texts.items()
               for key, m in keyed(path, mutations.mutants_of(text)).items()}
    verdicts, state = read_verdicts(VERDICTS), State(LAB / "state.jsonl")
    for name in stale(verdicts, texts):
        print(f"mutants: {VERDICTS.name}: there is no such mutant any more: {': '.join(name)}")
    known = {key: entry for key, entry in state.known.items() if key in mutants}
    if options.report:
        return report(known, verdicts)
    keys = draw(texts, options.count, options.seed)
    if options.survivors:
        keys = [key for key, entry in known.items() if entry["state"] == "survived" and
                "equivalent" not in verdict_of(verdicts, key)]
    try_all(keys, mutants, verdicts, state)
    report({key: state.known[key] for key in keys}, verdicts)


if __name__ == "__main__":
    main()
