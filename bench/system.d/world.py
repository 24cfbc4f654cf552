"""A world of one's own to measure in: mounts, network and processes, which end with it."""

import ctypes
import os
import signal
import sys
import time

CLONE_NEWNS, CLONE_NEWPID, CLONE_NEWNET = 0x20000, 0x20000000, 0x40000000
MS_REC, MS_PRIVATE = 0x4000, 0x40000
PR_SET_PDEATHSIG = 1
LIBC = ctypes.CDLL(None, use_errno=True)
SYS = "/run/bench/sys"  # of our network


def run(work):
    """Runs `work` as root of namespaces of its own, and returns its exit status.

    However it ends, or whoever kills us: the kernel ends every process that it has left.
    """
    if os.geteuid() != 0 or LIBC.unshare(CLONE_NEWNS | CLONE_NEWPID) != 0:
        print("bench/system is left out: it needs root, for namespaces of its own",
              file=sys.stderr)
        return 0
    must(LIBC.mount(b"none", b"/", None, MS_REC | MS_PRIVATE, None), "keep mounts private")
    init = os.fork()
    if init == 0:
        os._exit(be_init(work))

    def end(number, _frame):
        os.kill(init, signal.SIGKILL)
        os.waitpid(init, 0)
        os._exit(128 + number)
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, end)
    return os.waitstatus_to_exitcode(os.waitpid(init, 0)[1])


def be_init(work):
    """Process 1: reaps at once whatever loses its parent, as a machine's does.

    It stays in the machine's network: so a daemon can tell that its own is another.
    """
    signal.signal(signal.SIGINT, signal.SIG_IGN)
    LIBC.prctl(PR_SET_PDEATHSIG, signal.SIGKILL, 0, 0, 0)
    mount("proc", "/proc")
    worker = os.fork()
    if worker == 0:
        os._exit(be_worker(work))
    while True:
        pid, status = os.wait()
        if pid == worker:
            return os.waitstatus_to_exitcode(status) & 0xFF


def be_worker(work):
    signal.signal(signal.SIGINT, signal.SIG_DFL)
    must(LIBC.unshare(CLONE_NEWNET), "make a network namespace")
    mount("tmpfs", "/run")
    os.makedirs(SYS)  # not at /sys: a daemon mounts its own there
    mount("sysfs", SYS)
    try:
        return work()
    except Failure as failure:
        print(f"bench/system: {failure}", file=sys.stderr)
        return 1
    except Exception:  # pylint: disable=broad-except
        sys.excepthook(*sys.exc_info())
        return 1
    finally:
        sys.stdout.flush()
        sys.stderr.flush()


class Failure(Exception):
    """What was to be measured cannot be."""


def must(answer, what):
    if answer != 0:
        sys.exit(f"bench/system: cannot {what}: {os.strerror(ctypes.get_errno())}")


def mount(kind, where):
    must(LIBC.mount(kind.encode(), where.encode(), kind.encode(), 0, None), f"mount {where}")


def bind(what, where):
    must(LIBC.mount(str(what).encode(), str(where).encode(), None, 0x1000, None), f"mount {where}")


def wait_until(holds, what, seconds=30):
    """The time when it was first seen to hold, by time.perf_counter(): late by 0.2 ms at most."""
    end = time.perf_counter() + seconds
    while not holds():
        if time.perf_counter() > end:
            raise Failure(f"waited {seconds} s in vain: {what}")
        time.sleep(0.0001)
    return time.perf_counter()
