"""Ten guests at once: their start and their end, of each kind in turn."""

import time

import bare
import libvirtd

TEN = [f"ten{i}" for i in range(10)]


def measure(bench):
    """Ten guests from one wish, until all were told to run; they are left running."""
    guests = [bare.Guest(name, bench.image) for name in TEN]
    for name in TEN:
        bench.daemon.add(name, bench.image)
    domains = [bench.libvirt.define(name) for name in TEN] if bench.libvirt else []
    rounds = bench.rounds(5, 2)
    for i in range(rounds):
        bench.figures.add_span("startTen/bare", start_ten_bare(guests))
        bench.figures.add_span("startTen/ours", bench.daemon.enable(*TEN))
        if domains:
            begin = time.perf_counter()
            libvirtd.at_once([domain.create for domain in domains])
            bench.figures.add_span("startTen/libvirt", (begin, time.perf_counter()))
        time.sleep(1)
        if i < rounds - 1:
            end_ten(bench, guests, domains)
    return guests, domains


def start_ten_bare(guests):
    begin = time.perf_counter()
    for guest in guests:
        guest.spawn()
    for guest in guests:
        guest.connect()
    return begin, time.perf_counter()


def end_ten(bench, guests, domains):
    begin = time.perf_counter()
    for guest in guests:
        guest.monitor.ask("quit")
    for guest in guests:
        guest.process.wait()
    bench.figures.add_span("endTen/bare", (begin, time.perf_counter()))
    bench.figures.add_span("endTen/ours", bench.daemon.disable(*TEN))
    if domains:
        begin = time.perf_counter()
        libvirtd.at_once([domain.destroy for domain in domains])
        bench.figures.add_span("endTen/libvirt", (begin, time.perf_counter()))


def end_others(guests, domains):
    for guest in guests:
        guest.kill()
    libvirtd.at_once([domain.destroy for domain in domains])
