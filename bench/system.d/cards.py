"""Cards: from an interface's arrival until its card is attached in QEMU, and back."""

import os
import socket
import time

import bare
import libvirtd
import links
import ours
from world import wait_until

PORT, BARE_PORT = "port0", "port1"
MAC, BARE_MAC = "52:54:00:77:00:01", "52:54:00:77:00:02"


def measure(bench):
    """The daemon must trace levels 1,2,7: there it says when QEMU has answered."""
    guest = bare.Guest("carded", bench.image, BARE_MAC)
    guest.start()
    daemon = bench.daemon
    daemon.add("carded", bench.image, card=ours.card_on(PORT, MAC))
    daemon.enable("carded")
    daemon.wait_running("carded")
    domain = bench.libvirt.define("carded") if bench.libvirt else None
    if domain:
        domain.create()
    for i in range(bench.rounds(15, 4)):
        round_of_bare(bench, guest, socket.AF_PACKET, "")
        round_of_bare(bench, guest, socket.AF_INET, "Inet")
        round_of_ours(bench)
        if domain:
            round_of_libvirt(bench, domain, i)
    daemon.disable("carded")
    guest.kill()
    if domain:
        domain.destroy()


def round_of_bare(bench, guest, family, suffix):
    """`family`: of the socket by which the device is set up; AF_PACKET is the agent's."""
    ask = guest.monitor.ask
    bench.links.add_wire(BARE_PORT, BARE_PORT + "end")
    begin = time.perf_counter()
    bench.links.add_macvtap("bare0", BARE_PORT, BARE_MAC)
    links.set_up("bare0", family)
    tap = links.open_tap("bare0")
    ask("getfd", descriptor=tap, fdname="tap")
    ask("netdev_add", type="tap", fd="tap", id="tap0")
    ask("netdev_add", type="hubport", hubid=0, netdev="tap0", id="port0")
    ask("set_link", name="tap0", up=True)
    bench.figures.add_span(f"attach{suffix}/bare", (begin, time.perf_counter()))
    time.sleep(0.02)
    begin = time.perf_counter()
    bench.links.remove(BARE_PORT)
    ask("set_link", name="tap0", up=False)
    ask("netdev_del", id="port0")
    ask("netdev_del", id="tap0")
    os.close(tap)
    bench.figures.add_span(f"detach{suffix}/bare", (begin, time.perf_counter()))
    time.sleep(0.02)


def round_of_ours(bench):
    before = len(traced_cards("add"))
    bench.links.add_wire(PORT, PORT + "end")
    begin = time.time()
    wait_until(lambda: len(traced_cards("add")) > before, "a card to be attached")
    bench.figures.add_span("attach/ours", (begin, traced_cards("add")[-1]))
    time.sleep(0.05)
    before = len(traced_cards("del"))
    begin = time.time()
    bench.links.remove(PORT)
    wait_until(lambda: len(traced_cards("del")) > before, "a card to be detached")
    bench.figures.add_span("detach/ours", (begin, traced_cards("del")[-1]))
    time.sleep(0.05)


def traced_cards(what):
    """When QEMU had done it, each time."""
    pattern = rf"handleMonitorResponse for carded netdev_{what} +vnic status"
    return [when for when, _ in ours.traced(pattern)]


def round_of_libvirt(bench, domain, number):
    """Its guest would have to take part in a detach, so its cards stay."""
    name = f"lv{number}"
    bench.links.add_wire(name, name + "end")
    begin = time.perf_counter()
    libvirtd.attach(domain, name, f"52:54:00:78:00:{number:02x}")
    span = begin, time.perf_counter()
    # The node that it opened is the right one only if no other network has a tap of its number.
    tap = libvirtd.tap_on(domain, name)
    if os.stat(f"/dev/tap{socket.if_nametoindex(tap)}").st_rdev == links.tap_number(tap):
        bench.figures.add_span("attach/libvirt", span)
