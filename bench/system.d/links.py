"""The kernel's links, by the shortest way: one netlink request each."""

import fcntl
import os
import pathlib
import socket
import struct

import world

RTM_NEWLINK, RTM_DELLINK = 16, 17
NLM_F_REQUEST, NLM_F_ACK, NLM_F_EXCL, NLM_F_CREATE = 0x1, 0x4, 0x200, 0x400
IFLA_ADDRESS, IFLA_IFNAME, IFLA_LINK, IFLA_LINKINFO, IFLA_GROUP = 1, 3, 5, 18, 27
IFLA_INFO_KIND, IFLA_INFO_DATA = 1, 2
VETH_INFO_PEER, IFLA_MACVLAN_MODE, MACVLAN_MODE_BRIDGE = 1, 1, 4
IFF_UP = 1
SIOCGIFFLAGS, SIOCSIFFLAGS = 0x8913, 0x8914


def attribute(kind, payload):
    if isinstance(payload, str):
        payload = payload.encode() + b"\0"
    elif isinstance(payload, int):
        payload = struct.pack("=I", payload)
    body = struct.pack("=HH", 4 + len(payload), kind) + payload
    return body + b"\0" * (-len(body) % 4)


class Links:
    """Of the network namespace in which it is made."""

    def __init__(self):
        self.socket = socket.socket(socket.AF_NETLINK, socket.SOCK_RAW, 0)

    def ask(self, kind, flags, attributes, index=0, state=0):
        body = struct.pack("=BxHiII", 0, 0, index, state, state) + attributes
        header = struct.pack("=IHHII", 16 + len(body), kind,
                             flags | NLM_F_REQUEST | NLM_F_ACK, 1, 0)
        self.socket.send(header + body)
        failure = -struct.unpack_from("=i", self.socket.recv(65536), 16)[0]
        if failure:
            raise OSError(failure, os.strerror(failure))

    def add_wire(self, port, end, group=0):
        """A pair of Ethernet devices, `port` up."""
        peer = attribute(VETH_INFO_PEER, struct.pack("=BxHiII", 0, 0, 0, 0, 0) +
                         attribute(IFLA_IFNAME, end) + attribute(IFLA_GROUP, group))
        info = attribute(IFLA_INFO_KIND, "veth") + attribute(IFLA_INFO_DATA, peer)
        self.ask(RTM_NEWLINK, NLM_F_CREATE | NLM_F_EXCL,
                 attribute(IFLA_IFNAME, port) + attribute(IFLA_GROUP, group) +
                 attribute(IFLA_LINKINFO, info), state=IFF_UP)

    def add_macvtap(self, name, lower, mac):
        info = attribute(IFLA_INFO_KIND, "macvtap") + attribute(
            IFLA_INFO_DATA, attribute(IFLA_MACVLAN_MODE, MACVLAN_MODE_BRIDGE))
        self.ask(RTM_NEWLINK, NLM_F_CREATE | NLM_F_EXCL,
                 attribute(IFLA_IFNAME, name) + attribute(IFLA_LINK, socket.if_nametoindex(lower)) +
                 attribute(IFLA_ADDRESS, bytes.fromhex(mac.replace(":", ""))) +
                 attribute(IFLA_LINKINFO, info))

    def remove(self, name):
        self.ask(RTM_DELLINK, 0, b"", index=socket.if_nametoindex(name))

    def pass_numbers(self, count):
        """Uses that many interface numbers up.

        A tap's node is named by the number, in one /dev for all networks: the small numbers are
        those of others.
        """
        group = 77
        for i in range(count // 2):
            self.add_wire(f"pass{i}a", f"pass{i}b", group)
        self.ask(RTM_DELLINK, 0, attribute(IFLA_GROUP, group))


def set_up(name, family):
    """By a socket of that family: the close of an AF_PACKET one waits for the kernel."""
    with socket.socket(family, socket.SOCK_DGRAM, 0) as any_socket:
        request = fcntl.ioctl(any_socket, SIOCGIFFLAGS, struct.pack("16sH14x", name.encode(), 0))
        flags = struct.unpack_from("=H", request, 16)[0] | IFF_UP
        fcntl.ioctl(any_socket, SIOCSIFFLAGS, struct.pack("16sH14x", name.encode(), flags))


def tap_number(name):
    """The device number of a macvtap's node."""
    node = next(pathlib.Path(f"{world.SYS}/class/net/{name}").glob("tap*/dev"))
    return os.makedev(*map(int, node.read_text().split(":")))


def open_tap(name):
    node = f"/run/{name}.node"
    os.mknod(node, 0o20600, tap_number(name))
    try:
        return os.open(node, os.O_RDWR | os.O_CLOEXEC)
    finally:
        os.unlink(node)
