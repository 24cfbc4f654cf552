"""vmagentd and vmctl, and what they wrote down."""

import datetime
import os
import pathlib
import re
import shutil
import subprocess
import time

import bare
from database import RUN, STATE, Database
from world import Failure, wait_until

LOG = "/run/bench/vmagentd.log"


def card_on(interface, mac, model="e1000"):
    return {"model": model, "intfName": interface, "macAddr": mac}


class Daemon:
    def __init__(self, build):
        self.build = build
        self.process = None
        self.vms = {}  # as configured
        os.makedirs(STATE)
        self.start()
        self.db = Database()

    def start(self, trace="1,2"):
        """Until it is ready; returns when it was started."""
        begin = time.perf_counter()
        with open(LOG, "w", encoding="utf-8") as log:
            self.process = subprocess.Popen(
                [self.build / "host/vmagentd", "--state-dir", STATE, "--run-dir", RUN, "--shim",
                 self.build / "shim/vmagent-shim", "--accel", "tcg", "--stop-timeout", "0",
                 "--trace", trace], stderr=log, stdin=subprocess.DEVNULL)
        wait_until(lambda: "vmagentd: ready" in log_text() or self.process.poll() is not None,
                   "vmagentd to be ready")
        if self.process.poll() is not None:
            raise Failure("vmagentd has ended: " + log_text())
        return begin

    def kill(self):
        self.process.kill()
        self.process.wait()

    def restart(self, trace="1,2"):
        self.process.terminate()
        self.process.wait()
        self.start(trace)

    def vmctl(self, *words):
        return [self.build / "ctl/vmctl", "--state-dir", STATE, "--run-dir", RUN, *words]

    def change(self, names, **fields):
        """One commit for all of them; when it was made."""
        for name in names:
            self.vms[name] = self.vms[name] | fields
        return self.db.commit({name: self.vms[name] for name in names})

    def add(self, name, image, memory=bare.MEMORY, card=None):
        disk = f"/run/bench/{name}.disk"
        shutil.copy(image, disk)
        self.vms[name] = {"enabled": False, "diskImage": disk, "memory": memory}
        if card:
            self.vms[name]["vnicConfig"] = {"nic00": card}
        self.db.commit({name: self.vms[name]})
        wait_until(lambda: self.db.row("vmStatus", name)[0], f"the status of {name}")

    def enable(self, *names):
        """When it was committed, and when the last of them was told to run.

        To that there is no answer in the database; it follows those that have state and console.
        """
        begin = self.change(names, enabled=True)

        def is_up(name):
            status = self.db.row("vmStatus", name)[1]
            return (status.get("enabled") and status["state"] != "Starting" and
                    status["consolePtyPath"])
        return begin, wait_until(lambda: all(map(is_up, names)), f"start of {names}", 60)

    def disable(self, *names):
        """When it was committed, and when it was written down that nothing is left of them."""
        begin = self.change(names, enabled=False)

        def is_off(name):
            return (not self.db.row("vmStatus", name)[1].get("enabled") and
                    self.db.row("vmProcess", name)[1].get("process", "none") == "none")
        return begin, wait_until(lambda: all(map(is_off, names)), f"end of {names}", 60)

    def wait_running(self, *names):
        wait_until(lambda: all(self.db.row("vmStatus", n)[1].get("state") == "Running"
                               for n in names), f"{names} to be shown running")

    def shim(self, name):
        return self.db.row("vmProcess", name)[1]["pid"]

    def keeper(self, name):
        """The shim that has the guest: after an adoption not the one that the daemon started."""
        return parent_of(self.qemu(name))

    def qemu(self, name):
        return next(int(entry) for entry in os.listdir("/proc")
                    if entry.isdigit() and is_qemu_of(name, entry))

    def hear_first_word(self, name):
        log = pathlib.Path(f"{RUN}/vm/{name}/console.log")
        return wait_until(lambda: log.exists() and bare.WORD in log.read_bytes(),
                          f"the first word of {name}")


def is_qemu_of(name, pid):
    try:
        words = pathlib.Path(f"/proc/{pid}/cmdline").read_bytes().split(b"\0")
    except OSError:
        return False
    # Only the shim gives a QEMU that option.
    return b"-sandbox" in words and name.encode() in words


def parent_of(pid):
    return int(pathlib.Path(f"/proc/{pid}/stat").read_text().rsplit(")", 1)[1].split()[1])


def log_text():
    return pathlib.Path(LOG).read_text(encoding="utf-8", errors="replace")


def traced(pattern):
    """The lines of the daemon's trace that match: their times by time.time(), and the matches."""
    line = re.compile(r"^(\S+Z) \d+ \S+ .*?" + pattern, re.M)
    return [(datetime.datetime.fromisoformat(found[1]).timestamp(), found)
            for found in line.finditer(log_text())]
