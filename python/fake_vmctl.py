#!/usr/bin/python3 -IS
"""A vmctl with memory, for tests: VMs, events and what was typed are in the folder $FAKE_VMCTL. Verbs
that go on tell what a test writes into a pipe there."""

import json
import os
import pathlib
import sys

FOLDER = pathlib.Path(os.environ["FAKE_VMCTL"])
ACTUAL = {"start": "running", "stop": "stopped", "restart": "running", "pause": "paused"}


def say(**line):
    print(json.dumps(line, ensure_ascii=False), flush=True)


def fail(status, words):
    print(f"vmctl: {words}", file=sys.stderr)
    sys.exit(status)


def go_on(name):
    """Passes on what a test writes, until it writes nothing but a status."""
    (FOLDER / f"{name}.pid").write_text(str(os.getpid()))
    with open(os.open(FOLDER / name, os.O_RDWR)) as pipe:
        for line in pipe:
            if line.startswith("exit "):
                fail(int(line.split()[1]), "it is over")
            os.write(1, line.encode())


def list_vms(memory, words):
    print(json.dumps({"version": 1, "vms": list(memory["vms"].values())}))
    if memory.get("unreadable"):
        fail(1, "one row cannot be read")


def apply(memory, words):
    for vm in json.load(sys.stdin)["vms"]:
        if vm["config"]["memory"] < 1:
            fail(5, f"{vm['name']}: memory: '{vm['config']['memory']}' is refused")
        memory["vms"][vm["name"]] = vm
        print(f"vmctl: {vm['name']}: added", file=sys.stderr)


def switch(memory, words):
    for name in words[words.index("--") + 1:]:
        if name not in memory["vms"]:
            fail(3, f"there is no VM '{name}'")
        memory["vms"][name]["actual"] = ACTUAL[words[0]]
        print(f"{name}: {words[0]} is done")


def watch(memory, words):
    for vm in memory["vms"].values():
        say(version=1, op="put", vm=vm)
    say(version=1, op="synced")
    go_on("watch")


def events(memory, words):
    after = next((word.partition("=")[2] for word in words if word.startswith("--after=")), None)
    store, _, seq = (after or "").rpartition(":")
    newest = max((event["seq"] for event in memory["events"]), default=0)
    why_lost = {"other-store": after and store not in ("", memory["store"]), "not-yet": after and int(seq) > newest,
                "not-kept": after and memory.get("lostTo", 0) > int(seq)}
    lost = [reason for reason, is_so in why_lost.items() if is_so]
    head = {"version": 1, "store": memory["store"]}
    if lost:
        say(**head, op="lost", reason=lost[0])
    for event in memory["events"]:
        if after is None or lost or event["seq"] > int(seq):
            say(**head, op="event", seq=event["seq"], event=event)
    if "-f" in words:
        say(**head, op="synced")
        go_on("events")


def main(words):
    with open(FOLDER / "typed", "a") as typed:
        typed.write(json.dumps(words) + "\n")
    memory = json.loads((FOLDER / "memory").read_text())
    if "status" in memory:
        fail(memory["status"], "no\nvmctl: and no again")
    verb = [word for word in words if word not in ("-o", "json")][0]
    {"list": list_vms, "apply": apply, "watch": watch, "events": events}.get(verb, switch)(memory, words)
    (FOLDER / "memory").write_text(json.dumps(memory))


main(sys.argv[1:])
