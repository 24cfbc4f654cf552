"""What it costs to keep ten guests: memory, processor time and context switches.

All kinds in the same minute, so that what else the machine does falls on all alike.
"""

import subprocess
import threading
import time

import libvirtd
import processes
import shim
from ten import TEN

INTERVAL = 5  # seconds between two polls of a guest, as the agent's
APART = 210  # ms between one guest's poll and the next one's: that far apart the agent starts them


def measure(bench, guests, domains):
    for guest in guests:
        guest.monitor.socket.close()
    loop = start_loop(bench, guests, APART)
    idle = shim.Shim(bench.build, "idleShim", bench.image)
    ended = threading.Event()
    watched = {"bare": [loop.pid], "daemon": [bench.daemon.process.pid],
               "shims": [bench.daemon.keeper(name) for name in TEN],
               "idleShim": [idle.process.pid]}
    if domains:
        watched["libvirt"] = bench.libvirt.pids()
        threading.Thread(target=poll_domains, args=(domains, ended), daemon=True).start()
    bench.daemon.wait_running(*TEN)
    time.sleep(INTERVAL)
    measure_minute(bench, watched, bench.rounds(60, 10))
    measure_memory(bench, watched)
    end_loop(loop)
    loop = start_loop(bench, guests, 0)
    time.sleep(INTERVAL)
    measure_minute(bench, {"bareAtOnce": [loop.pid]}, bench.rounds(30, 10))
    end_loop(loop)
    ended.set()
    idle.end()


def start_loop(bench, guests, apart):
    return subprocess.Popen([bench.build / "bench/qmp_baseline", "poll", str(INTERVAL), str(apart),
                             *(guest.path for guest in guests)])


def end_loop(loop):
    loop.kill()
    loop.wait()


def poll_domains(domains, ended):
    while not ended.is_set():
        for domain in domains:
            libvirtd.query_status(domain)
        ended.wait(INTERVAL)


def measure_minute(bench, watched, seconds):
    before = {name: processes.use(*pids) for name, pids in watched.items()}
    begin = time.monotonic()
    time.sleep(seconds)
    share = (time.monotonic() - begin) / 60
    for name, pids in watched.items():
        used = processes.use(*pids) - before[name]
        bench.figures.add(f"cpu/{name}", used.cpu / share)
        bench.figures.add(f"switches/{name}", used.switches / share)


def measure_memory(bench, watched):
    for name, pids in watched.items():
        each = [processes.pss(pid) for pid in pids]
        if name == "idleShim":
            continue
        if name == "shims":
            bench.figures.add("memory/shim", *each)
        else:
            bench.figures.add(f"memory/{name}", sum(each))
