"""One guest: its start, first word, end and death, of each kind in turn."""

import os
import signal
import time

import bare
import libvirtd
import ours
from world import wait_until


def measure(bench):
    """Start and first word of every round; of each two rounds one guest is ended, one killed."""
    kinds = [BareGuest(bench), OurGuest(bench)]
    if bench.libvirt:
        kinds.append(LibvirtGuest(bench))
    for i in range(bench.rounds(16, 4) + 1):
        for kind in kinds:
            round_of_one(bench, kind, is_killed=i % 2 == 0, counts=i > 0)


def round_of_one(bench, kind, is_killed, counts):
    """`counts`: not the first of its kind, which finds nothing in the caches."""
    begin, started = kind.start()
    spoken = kind.hear()
    time.sleep(0.1)
    end = kind.die() if is_killed else kind.end()
    if counts:
        bench.figures.add_span(f"start/{kind.name}", (begin, started))
        bench.figures.add_span(f"word/{kind.name}", (begin, spoken))
        bench.figures.add_span(f"{'death' if is_killed else 'end'}/{kind.name}", end)


class BareGuest:
    name = "bare"

    def __init__(self, bench):
        self.guest = bare.Guest("one", bench.image)

    def start(self):
        begin = time.perf_counter()
        self.guest.start()
        return begin, time.perf_counter()

    def hear(self):
        return bare.hear_first_word(self.guest.console)

    def end(self):
        begin = time.perf_counter()
        self.guest.monitor.ask("quit")
        self.guest.process.wait()
        return begin, time.perf_counter()

    def die(self):
        begin = time.perf_counter()
        self.guest.process.send_signal(signal.SIGKILL)
        try:
            while True:
                self.guest.monitor.line()
        except (EOFError, ConnectionResetError):
            end = time.perf_counter()
        self.guest.process.wait()
        return begin, end


class OurGuest:
    name = "ours"

    def __init__(self, bench):
        self.daemon = bench.daemon
        self.daemon.add("one", bench.image)

    def start(self):
        return self.daemon.enable("one")

    def hear(self):
        return self.daemon.hear_first_word("one")

    def end(self):
        span = self.daemon.disable("one")
        self.forget_word()
        return span

    def die(self):
        db = self.daemon.db
        before = db.row("vmStatus", "one")[0]
        qemu = self.daemon.qemu("one")
        begin = time.perf_counter()
        os.kill(qemu, signal.SIGKILL)
        end = wait_until(lambda: db.row("vmStatus", "one")[0] != before, "a death to be seen")
        self.daemon.disable("one")
        self.forget_word()
        return begin, end

    def forget_word(self):
        os.unlink(f"{ours.RUN}/vm/one/console.log")


class LibvirtGuest:
    name = "libvirt"

    def __init__(self, bench):
        self.stopped = bench.libvirt.stopped
        self.domain = bench.libvirt.define("one")

    def start(self):
        begin = time.perf_counter()
        self.domain.create()
        return begin, time.perf_counter()

    def hear(self):
        return bare.hear_first_word(libvirtd.console(self.domain))

    def end(self):
        begin = time.perf_counter()
        self.domain.destroy()
        return begin, time.perf_counter()

    def die(self):
        time.sleep(0.1)  # for what it was told of before
        self.stopped.pop("one", None)
        begin = time.perf_counter()
        os.kill(libvirtd.qemu("one"), signal.SIGKILL)
        wait_until(lambda: "one" in self.stopped, "libvirt to see a death")
        wait_until(lambda: not self.domain.isActive(), "libvirt to clean up")
        return begin, self.stopped["one"]
