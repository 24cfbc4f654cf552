"""The floor: a QEMU that is started and spoken to directly, with nothing between."""

import json
import os
import shutil
import socket
import subprocess
import time

from world import Failure, wait_until

QEMU = "/usr/bin/qemu-system-x86_64"
MEMORY = 64
WORD = b"READY"  # the guest's first


class Monitor:
    """A QMP session, from the moment when somebody listens: late by 0.5 ms at most."""

    def __init__(self, path):
        end = time.monotonic() + 10
        while True:
            self.socket = socket.socket(socket.AF_UNIX)
            try:
                self.socket.connect(path)
                break
            except OSError:
                self.socket.close()
                if time.monotonic() > end:
                    raise Failure(f"no QEMU listens at {path}") from None
                time.sleep(0.0005)
        self.rest = b""
        self.line()
        self.ask("qmp_capabilities")

    def line(self):
        while b"\n" not in self.rest:
            more = self.socket.recv(65536)
            if not more:
                raise EOFError
            self.rest += more
        line, self.rest = self.rest.split(b"\n", 1)
        return json.loads(line)

    def ask(self, command, descriptor=None, **arguments):
        request = {"execute": command} | ({"arguments": arguments} if arguments else {})
        text = json.dumps(request, separators=(",", ":")).encode() + b"\n"
        socket.send_fds(self.socket, [text], [] if descriptor is None else [descriptor])
        while True:
            answer = self.line()
            if "error" in answer:
                raise Failure(f"{command}: {answer['error']}")
            if "return" in answer:
                return answer["return"]


class Guest:
    """A QEMU as the agent and its shim would have started it."""

    def __init__(self, name, image, mac=None):
        self.path = f"/run/bench/{name}.qmp"
        disk = f"/run/bench/{name}.img"
        if not os.path.exists(disk):
            shutil.copy(image, disk)
        card = ["-netdev", "hubport,hubid=0,id=hub0", "-device",
                f"e1000,id=net0,mac={mac},netdev=hub0"] if mac else []
        self.words = [
            QEMU, "-S", "-M", "pc", "-accel", "tcg", "-smp", "1", "-nodefaults",
            "-no-user-config", "-rtc", "base=utc", "-chardev", "pty,id=serial0", "-device",
            "isa-serial,chardev=serial0", "-m", str(MEMORY), "-name", name, "-chardev",
            f"socket,id=monitor,path={self.path},server=on,wait=off", "-mon",
            "chardev=monitor,mode=control", "-usb", "-device", "usb-tablet,id=input0",
            "-nographic", "-device", "cirrus-vga", "-boot", "order=dc", "-drive",
            f"file={disk},if=none,id=ide-drive0,format=raw", "-device",
            "ide-hd,drive=ide-drive0,bus=ide.0,unit=0", *card]
        self.process = self.monitor = self.console = None

    def spawn(self):
        if os.path.exists(self.path):
            os.unlink(self.path)
        # It warns of a card that has no network yet. The scheduler shares by sessions, and a shim
        # has one of its own.
        self.process = subprocess.Popen(self.words, stdin=subprocess.DEVNULL,
                                        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                        start_new_session=True)

    def connect(self):
        """Until the guest has been told to run; asks what the agent asks."""
        self.monitor = Monitor(self.path)
        self.monitor.ask("query-status")
        lines = self.monitor.ask("query-chardev")
        self.console = next(l["filename"] for l in lines if l["label"] == "serial0")[4:]
        self.monitor.ask("cont")

    def start(self):
        self.spawn()
        self.connect()

    def kill(self):
        self.process.kill()
        self.process.wait()


def hear_first_word(terminal):
    """Until the guest has said on its serial line that it is up."""
    line = os.open(terminal, os.O_RDONLY | os.O_NOCTTY | os.O_NONBLOCK)
    heard = bytearray()

    def has_spoken():
        try:
            heard.extend(os.read(line, 4096))
        except BlockingIOError:
            pass
        return WORD in heard
    try:
        return wait_until(has_spoken, f"a guest's first word at {terminal}")
    finally:
        os.close(line)
