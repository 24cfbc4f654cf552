"""vmctl as an operator has it."""

import json
import subprocess
import time

from ten import TEN
from world import wait_until

MANY = 10_000


def whole_run(words):
    """ms from a program's start to its end."""
    begin = time.perf_counter()
    subprocess.run(words, stdout=subprocess.DEVNULL, check=True)
    return (time.perf_counter() - begin) * 1e3


def measure_lists(bench):
    """Of ten running guests, and the one or two that are off by now."""
    programs = {"ours": bench.daemon.vmctl("list")}
    if bench.libvirt:
        programs["libvirt"] = ["virsh", "-c", "qemu:///system", "list", "--all"]
    for _ in range(bench.rounds(20, 5)):
        for name, words in programs.items():
            bench.figures.add(f"list/{name}", whole_run(words))


def measure_watch(bench):
    """From a commit until `vmctl watch` has written what changed."""
    watch = subprocess.Popen(bench.daemon.vmctl("watch", "-o", "json"), stdout=subprocess.PIPE,
                             text=True)
    while "synced" not in watch.stdout.readline():
        pass
    for i in range(bench.rounds(50, 10)):
        memory = 100 + i
        begin = bench.daemon.change([TEN[0]], memory=memory)
        while json.loads(watch.stdout.readline())["vm"]["config"]["memory"] != memory:
            pass
        bench.figures.add("watch/ours", (time.perf_counter() - begin) * 1e3)
        time.sleep(0.02)
    watch.kill()
    watch.wait()
    watch.stdout.close()


def measure_many(bench):
    """Of 10,000 that are off."""
    document = bench.daemon.vms["one"]
    bench.daemon.db.commit({f"many{i:05}": document for i in range(MANY)})
    wait_until(lambda: bench.daemon.db.count("vmStatus") >= MANY, "the status of all", 60)
    for _ in range(bench.rounds(10, 3)):
        bench.figures.add("list/10000", whole_run(bench.daemon.vmctl("list")))
