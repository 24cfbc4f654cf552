"""A question to QEMU and its answer: by itself, through a shim, and through libvirtd."""

import os
import subprocess
import time

import bare
import libvirtd
import shim
from world import wait_until

AGENTS_REQUEST = '{ "execute": "query-status","id": "status" }'


def measure(bench):
    direct = bare.Guest("trip", bench.image)
    direct.spawn()
    wait_until(lambda: os.path.exists(direct.path), "QEMU")
    through = shim.Shim(bench.build, "tripShim", bench.image)
    askers = {"bare": asker(bench, direct.path, '{"execute":"query-status"}'),
              "ours": asker(bench, through.monitor, AGENTS_REQUEST)}
    domain = bench.libvirt.define("trip") if bench.libvirt else None
    if domain:
        domain.create()
    time.sleep(1)  # for the guests to come to rest
    for _ in range(bench.rounds(8, 3)):
        for name, program in askers.items():
            program.stdin.write("300\n")
            program.stdin.flush()
            bench.figures.add(f"trip/{name}", *map(float, program.stdout.readline().split()))
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
    through.end()


def asker(bench, path, request):
    return subprocess.Popen([bench.build / "bench/qmp_baseline", "trips", path, request],
                            stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
