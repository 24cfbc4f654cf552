"""What PythonModuleTest.cpp has its machine do: there is a VM web1, which is enabled."""

import copy
import os
import pathlib
import signal
import subprocess
import sys
import unittest

import vmagent

EXAMPLE = pathlib.Path(vmagent.__file__).parent / "examples/restart_hung.py"


def until(changes, is_it):
    """All that is told until then."""
    told = []
    for change in changes:
        told.append(change)
        if is_it(change):
            return told


def is_synced(change):
    return change.op == "synced"


def becomes(name, actual):
    return lambda change: change.op == "put" and change.name == name and change.vm["actual"] == actual


def lasts(event):
    """Whether it is one that others are never put together with, and so keeps its number."""
    return event["kind"] in ("config", "state", "end")


def seqs(changes):
    return [change.event["seq"] for change in changes if change.op == "event" and lasts(change.event)]


class PythonModule(unittest.TestCase):
    def test_tells_of_a_vm_from_its_first_day_to_its_last(self):
        changes = vmagent.watch()
        self.addCleanup(changes.close)
        self.assertEqual({change.name for change in until(changes, is_synced)}, {"web1", ""})
        document = vmagent.export()
        document["vms"].append(copy.deepcopy(document["vms"][0]) | {"name": "web2"})
        document["vms"][1]["config"] |= {"diskImage": "/var/run/web2.img"}
        pathlib.Path("/var/run/web2.img").write_bytes(pathlib.Path("/var/run/web1.img").read_bytes())
        self.assertIn("web2: added", vmagent.apply(document))
        until(changes, becomes("web2", "running"))
        vmagent.stop("web2", now=True, wait=True)
        last = until(changes, becomes("web2", "stopped"))[-1]
        self.assertFalse(last.vm["end"]["failed"])
        self.assertFalse(last.stale)
        vmagent.remove("web2")
        until(changes, lambda change: (change.op, change.name) == ("delete", "web2"))
        self.assertEqual([vm["name"] for vm in vmagent.vms()], ["web1"])
        with self.assertRaises(vmagent.NoSuch) as caught:
            vmagent.start("web2")
        self.assertEqual(caught.exception.exit, 3)
        document["vms"][1]["config"]["memory"] = 0
        with self.assertRaises(vmagent.Refused) as caught:
            vmagent.apply(document)
        self.assertIn("memory: '0' is refused", caught.exception.text)

    def test_goes_on_where_it_was_without_a_gap_or_says_what_is_lost(self):
        changes = vmagent.watch()
        cursor = until(changes, is_synced)[-1].cursor
        vmagent.stop("web1", now=True, wait=True)
        seen = until(changes, lambda change: change.op == "event" and change.event["kind"] == "end")
        changes.close()
        vmagent.start("web1", wait=True)
        changes = vmagent.watch(after=cursor)
        told = until(changes, lambda change: change.op == "event" and change.event["reason"] == "running")
        changes.close()
        self.assertEqual(seqs(told)[:len(seqs(seen))], seqs(seen))
        kept = [each["seq"] for each in vmagent.events(after=cursor) if lasts(each)]
        self.assertEqual(kept[:len(seqs(told))], seqs(told))
        with self.assertRaises(vmagent.Lost) as caught:
            until(vmagent.watch(after="another:1"), is_synced)
        self.assertEqual(caught.exception.reason, "other-store")
        self.assertEqual([vm["name"] for vm in caught.exception.vms], ["web1"])
        self.assertLessEqual(set(seqs(told)), {each["seq"] for each in caught.exception.events})
        changes = vmagent.watch(after=caught.exception.cursor)
        self.addCleanup(changes.close)
        until(changes, is_synced)

    def test_has_an_example_that_restarts_what_hangs(self):
        changes = vmagent.watch()
        self.addCleanup(changes.close)
        until(changes, is_synced)
        hung = vmagent.show("web1")["pid"]
        with subprocess.Popen([sys.executable, "-B", EXAMPLE, "0"], stdout=subprocess.PIPE) as example:
            try:
                os.kill(hung, signal.SIGSTOP)
                self.assertEqual(example.stdout.readline(), b"web1 hangs, and is restarted\n")
                last = until(changes, lambda change: becomes("web1", "running")(change) and
                             change.vm["pid"] not in (None, hung))[-1]
                self.assertEqual(last.vm["wanted"], "running")
            finally:
                example.terminate()


if __name__ == "__main__":
    unittest.main()
