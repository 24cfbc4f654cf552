"""The daemon is killed and started again: until it has its guests, and what they notice."""

import pathlib
import re
import signal
import subprocess
import sys
import time

import ours
from world import Failure, wait_until

ADDRESS = "10.77.0.86"  # the Linux guest takes its last number from its card's address
MAC = "52:54:00:77:00:56"


def adopt(daemon, names):
    """Kills the daemon, and returns when the next was started and had all of them running."""
    revisions = {name: daemon.db.row("vmStatus", name)[0] for name in names}
    qemus = [daemon.qemu(name) for name in names]
    daemon.kill()
    begin = daemon.start()

    def is_fresh(name):
        revision, status = daemon.db.row("vmStatus", name)
        return revision > revisions[name] and status.get("state") == "Running"
    end = wait_until(lambda: all(map(is_fresh, names)), f"{names} to be taken up")
    if [daemon.qemu(name) for name in names] != qemus:
        raise Failure(f"of {names} one was not taken up, but started")
    return begin, end


def measure(bench, names):
    for _ in range(bench.rounds(5, 2)):
        bench.figures.add_span(f"adopt/{len(names)}", adopt(bench.daemon, names))
        time.sleep(0.5)


def measure_gap(bench):
    """The longest time without an answer of a guest that is asked every 2 ms."""
    if not bench.linux_guest:
        print("bench/system: no Linux guest: tests/guests/make-linux-guest makes it; "
              "how long a card is cut off is left out", file=sys.stderr)
        return
    bench.links.add_wire("lan0", "wire")
    for words in ("addr add 10.77.0.1/24 dev wire", "link set wire up"):
        subprocess.run(["ip", *words.split()], check=True)
    bench.daemon.add("linux", bench.linux_guest, memory=128,
                     card=ours.card_on("lan0", MAC, "virtio-net-pci"))
    bench.daemon.enable("linux")
    wait_until(lambda: subprocess.run(["ping", "-q", "-c", "1", "-W", "1", ADDRESS], check=False,
                                      stdout=subprocess.DEVNULL).returncode == 0,
               "the Linux guest to answer", 60)
    bench.daemon.wait_running("linux")
    for _ in range(bench.rounds(5, 2)):
        add_gap(bench)
    bench.daemon.disable("linux")


def add_gap(bench):
    log = pathlib.Path("/run/bench/ping")
    with open(log, "w", encoding="utf-8") as output:
        ping = subprocess.Popen(["ping", "-D", "-i", "0.002", ADDRESS], stdout=output)
        time.sleep(1)
        killed = time.time()
        adopt(bench.daemon, ["linux"])
        time.sleep(2)
        ping.send_signal(signal.SIGINT)
        ping.wait()
    answers = [float(t) for t in re.findall(r"^\[(\d+\.\d+)\] 64 bytes", log.read_text(), re.M)]
    gaps = [(b - a, b) for a, b in zip(answers, answers[1:])]
    bench.figures.add("gap/adoption", max(gap for gap, end in gaps if end >= killed) * 1e3)
    bench.figures.add("gap/quiet", max(gap for gap, end in gaps if end < killed) * 1e3)
