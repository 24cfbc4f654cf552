"""Debian's libvirt, with configuration and state of its own, on the same QEMU and guest."""

import os
import pathlib
import re
import shutil
import subprocess
import threading
import time

import bare
import world

try:
    import libvirt
    import libvirt_qemu
except ImportError:
    libvirt = None

ROOT = pathlib.Path("/run/bench/libvirt")
USER = "libvirt-qemu:x:64055:64055::/:/usr/sbin/nologin\n"
CARD = ("<interface type='direct'><mac address='{mac}'/><source dev='{device}' mode='bridge'/>"
        "<model type='e1000'/></interface>")


def missing():
    """What is not installed; empty when all is there."""
    programs = [p for p in ("libvirtd", "virtlogd", "virsh") if not shutil.which(p)]
    return programs + ([] if libvirt else ["python3-libvirt"])


def private_files():
    """Nothing of the machine's libvirt is read or written; /run is in memory already."""
    for place in ("/etc/libvirt", "/var/lib/libvirt", "/var/cache/libvirt", "/var/log/libvirt"):
        os.makedirs(place, exist_ok=True)
        own = ROOT / place.replace("/", "_")
        own.mkdir(parents=True)
        if place == "/etc/libvirt":
            shutil.copytree(place, own, dirs_exist_ok=True)
        world.bind(own, place)
    pathlib.Path("/etc/libvirt/qemu.conf").write_text(
        'user = "root"\ngroup = "root"\nsecurity_driver = "none"\ncgroup_controllers = [ ]\n'
        "remember_owner = 0\n")
    pathlib.Path("/etc/libvirt/libvirtd.conf").write_text('auth_unix_rw = "none"\n')
    # The user that its package makes; without it the QEMU driver does not load.
    for place, line in (("/etc/passwd", USER), ("/etc/group", "libvirt-qemu:x:64055:\n")):
        own = ROOT / place.replace("/", "_")
        own.write_text(pathlib.Path(place).read_text() + line)
        world.bind(own, place)


class Libvirtd:
    def __init__(self, image):
        self.image = image
        private_files()
        with open(ROOT / "log", "w", encoding="utf-8") as log:
            self.processes = [subprocess.Popen([name], stderr=log, stdin=subprocess.DEVNULL)
                              for name in ("virtlogd", "libvirtd")]
        libvirt.registerErrorHandler(lambda *_: None, None)
        libvirt.virEventRegisterDefaultImpl()
        threading.Thread(target=run_events, daemon=True).start()
        self.connection = None
        world.wait_until(self.connect, "libvirtd to listen")
        self.stopped = {}
        self.connection.domainEventRegisterAny(
            None, libvirt.VIR_DOMAIN_EVENT_ID_LIFECYCLE, self.hear, None)

    def connect(self):
        try:
            self.connection = libvirt.open("qemu:///system")
        except libvirt.libvirtError:
            return False
        return True

    def hear(self, _connection, domain, event, _detail, _opaque):
        if event == libvirt.VIR_DOMAIN_EVENT_STOPPED:
            self.stopped.setdefault(domain.name(), time.perf_counter())

    def pids(self):
        return [process.pid for process in self.processes]

    def define(self, name):
        disk = f"/run/bench/{name}.libvirt"
        shutil.copy(self.image, disk)
        return self.connection.defineXML(
            f"<domain type='qemu'><name>{name}</name><memory unit='MiB'>{bare.MEMORY}</memory>"
            "<vcpu>1</vcpu><os><type arch='x86_64' machine='pc'>hvm</type></os>"
            f"<features><acpi/></features><devices><emulator>{bare.QEMU}</emulator>"
            "<disk type='file' device='disk'><driver name='qemu' type='raw'/>"
            f"<source file='{disk}'/><target dev='hda' bus='ide'/></disk>"
            "<controller type='usb' index='0' model='piix3-uhci'/><memballoon model='none'/>"
            "<serial type='pty'><target port='0'/></serial><input type='tablet' bus='usb'/>"
            "<video><model type='cirrus'/></video></devices></domain>")


def run_events():
    while True:
        libvirt.virEventRunDefaultImpl()


def console(domain):
    return re.search(r"<serial type='pty'>\s*<source path='([^']+)'", domain.XMLDesc())[1]


def qemu(name):
    return int(pathlib.Path(f"/run/libvirt/qemu/{name}.pid").read_text())


def at_once(works):
    """Each in a thread of its own, until all have ended."""
    threads = [threading.Thread(target=work) for work in works]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()


def query_status(domain):
    return libvirt_qemu.qemuMonitorCommand(domain, '{"execute":"query-status"}', 0)


def attach(domain, device, mac):
    domain.attachDeviceFlags(CARD.format(device=device, mac=mac),
                             libvirt.VIR_DOMAIN_AFFECT_LIVE)


def tap_on(domain, device):
    """The name of its macvtap on that device."""
    return re.search(rf"<source dev='{device}'[^>]*/>\s*<target dev='([^']+)'",
                     domain.XMLDesc())[1]
