"""The machine that the page shows: a real vmagentd, its guests, and a Cockpit, in namespaces that are
the test's own (tests/page/run)."""

import json
import os
import pathlib
import socket
import subprocess
import time

from devtools import wait

RUN = pathlib.Path("/run/vmagent")
PAGE = "/cockpit/@localhost/vmagent/index.html"


class Machine:
    """`build`: the build folder; `shared`: what is installed below a prefix's share; `folder`: where
    it keeps what it writes."""

    def __init__(self, build, shared, folder):
        self.build, self.shared, self.folder = pathlib.Path(build), shared, pathlib.Path(folder)
        self.daemon = None
        self.servers = []
        bin = self.folder / "bin"
        bin.mkdir(parents=True)
        (bin / "vmctl").symlink_to(self.build / "ctl/vmctl")
        self.environment = {"PATH": f"{bin}:/usr/sbin:/usr/bin:/sbin:/bin", "HOME": str(self.folder),
                            "LANG": "C.UTF-8", "TZ": "UTC", "ASAN_OPTIONS": "detect_leaks=0"}

    # The daemon.

    def start(self):
        log = open(self.folder / "vmagentd.log", "a")
        at = log.tell()
        self.daemon = subprocess.Popen(["nsenter", "--net=/run/machine.net",
                                        self.build / "host/vmagentd", "--stop-timeout", "2"],
                                       stderr=log, env=self.environment, start_new_session=True)
        wait(lambda: "vmagentd: ready" in (self.folder / "vmagentd.log").read_text()[at:],
             "vmagentd is ready", 60)

    def kill(self):
        self.daemon.kill()
        self.daemon.wait()

    def vmctl(self, *words, check=True):
        return subprocess.run(["vmctl", *words], env=self.environment, check=check, text=True,
                              capture_output=True, executable=self.build / "ctl/vmctl")

    def log(self, name):
        """What a guest wrote on its console."""
        return (RUN / "vm" / name / "console.log").read_bytes()

    def document(self, *words):
        return json.loads(self.vmctl(*words, "-o", "json", check=False).stdout)

    def vm(self, name):
        return {vm["name"]: vm for vm in self.document("list")["vms"]}.get(name)

    def wait_for(self, name, seconds=60, **members):
        wait(lambda: all((self.vm(name) or {}).get(key) == value for key, value in members.items()),
             f"{name} is {members}", seconds, lambda: self.vmctl("list", check=False).stdout)

    # Cockpit, where nobody needs to log in: its session is ours.

    def cockpit(self, user=None):
        """Where the page is, as a user, or as root, sees it."""
        with socket.socket() as free:
            free.bind(("127.0.0.1", 0))
            port = free.getsockname()[1]
        home = self.folder / f"cockpit-{port}"
        (home / "etc").mkdir(parents=True)
        environment = self.environment | {"XDG_DATA_DIRS": f"{self.shared}:/usr/share", "XDG_CONFIG_DIRS": f"{home}/etc",
                                          "HOME": str(home), "XDG_RUNTIME_DIR": str(home)}
        words = ["/usr/lib/cockpit/cockpit-ws", "-a", "127.0.0.1", "-p", str(port),
                 "--local-session=/usr/bin/cockpit-bridge"]
        if user is not None:
            os.chown(home, user, user)
            os.chown(home / "etc", user, user)
            words = ["setpriv", f"--reuid={user}", f"--regid={user}", "--clear-groups", *words]
        log = open(home / "log", "w")
        self.servers.append(subprocess.Popen(words, stdout=log, stderr=log, env=environment))

        def listens():
            with socket.socket() as probe:
                return probe.connect_ex(("127.0.0.1", port)) == 0
        wait(listens, "cockpit-ws listens", 30)
        return f"http://127.0.0.1:{port}{PAGE}"

    def close(self):
        for server in self.servers:
            server.terminate()
            server.wait()
        if self.daemon and self.daemon.poll() is None:
            self.vmctl("stop", "--all", "--now", "--wait", check=False)
            names = [vm["name"] for vm in self.document("list")["vms"]]
            wait(lambda: all(vm["process"]["process"] == "none" for vm in self.document("list")["vms"]),
                 f"all guests have ended: {names}", 30)
            self.daemon.terminate()
            self.daemon.wait()


def processor_seconds(pids):
    """What each of the processes has used until now."""
    used = {}
    for pid in pids:
        try:
            fields = pathlib.Path(f"/proc/{pid}/stat").read_text().rsplit(")", 1)[1].split()
        except OSError:
            continue
        used[pid] = (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")
    return used


def descendants(pid):
    """The process, and all that came of it."""
    found = [pid]
    for each in found:
        for task in pathlib.Path(f"/proc/{each}/task").glob("*/children"):
            try:
                found += [int(child) for child in task.read_text().split()]
            except OSError:
                pass
    return found
