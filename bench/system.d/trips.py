"""A question to QEMU and its answer: by itself, through a shim, and through libvirtd.

And over a relay that only passes bytes on: the least that anybody costs who stands between.
"""

import os
import subprocess
import time

import bare
import libvirtd
import shim
from world import wait_until

RELAY = "/run/bench/relay"
BARE_REQUEST = '{"execute":"query-status"}'
AGENTS_REQUEST = '{ "execute": "query-status","id": "status" }'


def measure(bench):
    direct = bare.Guest("trip", bench.image)
    direct.spawn()
    wait_until(lambda: os.path.exists(direct.path), "QEMU")
    behind = bare.Guest("tripRelay", bench.image)
    behind.spawn()
    wait_until(lambda: os.path.exists(behind.path), "QEMU")
    relay = subprocess.Popen([bench.build / "bench/qmp_baseline", "relay", RELAY, behind.path])
    wait_until(lambda: os.path.exists(RELAY), "the relay")
    through = shim.Shim(bench.build, "tripShim", bench.image)
    askers = {"trip/bare": asker(bench, direct.path, BARE_REQUEST),
              "tripRelay/bare": asker(bench, RELAY, BARE_REQUEST),
              "trip/ours": asker(bench, through.monitor, AGENTS_REQUEST)}
    domain = bench.libvirt.define("trip") if bench.libvirt else None
    if domain:
        domain.create()
    time.sleep(1)  # for the guests to come to rest
    for _ in range(bench.rounds(8, 3)):
        for name, program in askers.items():
            program.stdin.write("300\n")
            program.stdin.flush()
            bench.figures.add(name, *map(float, program.stdout.readline().split()))
        for _ in range(150 if domain else 0):
            begin = time.perf_counter()
            libvirtd.query_status(domain)
            bench.figures.add("trip/libvirt", (time.perf_counter() - begin) * 1e6)
    for program in askers.values():
        program.stdin.close()
        program.wait()
    if domain:
        domain.destroy()
    direct.kill()
    relay.wait()
    behind.kill()
    through.end()


def asker(bench, path, request):
    return subprocess.Popen([bench.build / "bench/qmp_baseline", "trips", path, request],
                            stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
