#!/usr/bin/env python3
"""The module, and its example, on a vmctl with memory."""

import json
import os
import pathlib
import sys
import tempfile
import threading
import unittest
from unittest import mock

HERE = pathlib.Path(__file__).resolve().parent
sys.path[:0] = [str(HERE), str(HERE / "examples")]
import restart_hung
import vmagent


def vm(name, actual="running", **more):
    return {"name": name, "wanted": "running", "actual": actual, "config": {"memory": 16}} | more


def event(seq, text="it is started"):
    return {"seq": seq, "vm": "web1", "kind": "state", "text": text}


class ModuleTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        (self.folder / "vmctl").symlink_to(HERE / "fake_vmctl.py")
        for pipe in ("watch", "events"):
            os.mkfifo(self.folder / pipe)
        self.remember(vms=[vm("web1"), vm("db", "stopped")], events=[event(3), event(4)])
        environment = mock.patch.dict(os.environ, {"PATH": str(self.folder), "FAKE_VMCTL": str(self.folder)})
        environment.start()
        self.addCleanup(environment.stop)

    def remember(self, vms=(), events=(), store="s1", **more):
        memory = {"vms": {vm["name"]: vm for vm in vms}, "events": list(events), "store": store}
        (self.folder / "memory").write_text(json.dumps(memory | more))

    def typed(self):
        return [json.loads(line) for line in (self.folder / "typed").read_text().splitlines()]

    def watch(self, *words, **options):
        changes = vmagent.watch(*words, **options)
        self.addCleanup(changes.close)
        return changes

    def tell(self, stream, **line):
        self.write(stream, json.dumps({"version": 1, "store": "s1"} | line) + "\n")

    def write(self, stream, text):
        """Into the pipe of a vmctl that goes on, which has it open."""
        pipe = os.open(self.folder / stream, os.O_WRONLY)
        os.write(pipe, text.encode())
        os.close(pipe)

    def refused(self, kind, function, *words, **options):
        with self.assertRaises(kind) as caught:
            function(*words, **options)
        return caught.exception


class Looking(ModuleTest):
    def test_lists_what_vmctl_lists(self):
        self.assertEqual([(vm["name"], vm["actual"]) for vm in vmagent.vms()],
                         [("web1", "running"), ("db", "stopped")])

    def test_lists_what_there_is_though_a_row_cannot_be_read(self):
        self.remember(vms=[vm("web1")], unreadable=True)
        self.assertEqual(len(vmagent.vms()), 1)

    def test_has_events_behind_a_cursor_and_all_where_that_is_lost(self):
        self.assertEqual(vmagent.events(after="s1:3"), [event(4)])
        self.assertEqual(vmagent.events(after="s0:3"), [event(3), event(4)])


class Doing(ModuleTest):
    def test_applies_a_document_or_a_list_of_vms(self):
        new = {"name": "web2", "config": {"memory": 16}}
        for document in ([new], {"version": 1, "vms": [new]}):
            self.assertEqual(vmagent.apply(document, prune=True, dry_run=True), "vmctl: web2: added\n")
            self.assertIn("web2", [vm["name"] for vm in vmagent.vms()])
            self.remember()
        self.assertIn(["apply", "-f", "-", "--prune", "--dry-run"], self.typed())

    def test_takes_any_name_for_a_name(self):
        self.remember(vms=[vm("--all"), vm("web1")])
        vmagent.stop("--all", now=True, timeout=3)
        self.assertEqual(self.typed()[-1], ["stop", "--now", "--timeout=3", "--", "--all"])
        self.assertEqual([vm["actual"] for vm in vmagent.vms()], ["stopped", "running"])

    def test_of_no_name_is_refused_before_vmctl_takes_it_for_something_else(self):
        self.refused(ValueError, vmagent.stop)
        self.assertFalse((self.folder / "typed").exists())

    def test_spells_values_as_vmctl_reads_them(self):
        self.remember(status=0)
        vmagent.set("web1", memory=512, enabled=True, **{"vnicConfig.nic00.intfName": "Ethernet2"})
        self.assertEqual(self.typed()[-1], ["set", "--", "web1", "memory=512", "enabled=true",
                                            "vnicConfig.nic00.intfName=Ethernet2"])
        vmagent.wait("web1", state="Running", enabled=False, timeout=5)
        self.assertEqual(self.typed()[-1], ["wait", "--for", "state=Running", "--for", "enabled=false",
                                            "--timeout=5", "--", "web1"])


class Trouble(ModuleTest):
    def test_has_vmctls_status_and_words(self):
        for status, kind in ((1, vmagent.Error), (2, vmagent.Error), (3, vmagent.NoSuch), (4, vmagent.Conflict),
                             (5, vmagent.Refused), (6, vmagent.Unreachable), (7, vmagent.TimedOut)):
            self.remember(status=status)
            for call in (vmagent.vms, lambda: vmagent.start("web1"), lambda: next(vmagent.watch())):
                error = self.refused(kind, call)
                self.assertIs(type(error), kind)
                self.assertEqual((error.exit, error.text), (status, "no\nand no again"))

    def test_of_a_document_names_what_is_wrong(self):
        error = self.refused(vmagent.Refused, vmagent.apply, [{"name": "web2", "config": {"memory": 0}}])
        self.assertEqual(str(error), "web2: memory: '0' is refused")

    def test_of_a_machine_without_vmctl_says_so(self):
        (self.folder / "vmctl").unlink()
        for call in (vmagent.vms, lambda: next(vmagent.watch())):
            error = self.refused(vmagent.Unreachable, call)
            self.assertIsNone(error.exit)
            self.assertIn("vmctl cannot be run: No such file", error.text)


class Watch(ModuleTest):
    def until_synced(self, changes):
        told = []
        while not told or told[-1].op != "synced":
            told.append(next(changes))
        return told

    def test_begins_with_all_vms_and_no_old_event(self):
        told = self.until_synced(self.watch())
        self.assertEqual([change.op for change in told], ["put", "put", "synced"])
        self.assertEqual([change.name for change in told], ["web1", "db", ""])
        self.assertEqual(told[-1].cursor, "s1:4")

    def test_of_a_machine_where_nothing_has_happened_has_a_cursor_too(self):
        self.remember()
        changes = self.watch()
        cursor = self.until_synced(changes)[-1].cursor
        self.assertEqual(cursor, "s1:0")
        self.assertEqual(self.until_synced(self.watch(after=cursor))[-1].cursor, "s1:0")

    def test_tells_what_changes(self):
        changes = self.watch(beat=2)
        self.until_synced(changes)
        self.assertIn(["watch", "-o", "json", "--beat=2"], self.typed())
        self.tell("watch", op="put", vm=vm("web1", "hung"))
        self.assertEqual(next(changes).vm["actual"], "hung")
        self.tell("events", op="event", seq=5, event=event(5))
        change = next(changes)
        self.assertEqual((change.op, change.name, change.event, change.cursor), ("event", "web1", event(5), "s1:5"))
        self.tell("watch", op="delete", vm={"name": "web1"}, stale=True)
        change = next(changes)
        self.assertEqual((change.op, change.name, change.stale, change.cursor), ("delete", "web1", True, "s1:5"))
        self.tell("watch", op="beat", stale=False)
        change = next(changes)
        self.assertEqual((change.op, change.name, change.stale), ("beat", "", False))

    def test_goes_on_behind_a_cursor_without_a_gap(self):
        changes = self.watch(after="s1:3")
        told = [change for change in self.until_synced(changes) if change.op != "put"]
        self.assertEqual([(change.op, change.cursor) for change in told], [("event", "s1:4"), ("synced", "s1:4")])
        self.assertEqual(told[0].event, event(4))

    def test_puts_together_a_line_that_no_pipe_holds(self):
        changes = self.watch()
        self.until_synced(changes)
        why = "ä" * 200_000
        line = json.dumps({"op": "put", "vm": vm("web1", why=why)}, ensure_ascii=False)
        writer = threading.Thread(target=self.write, args=("watch", line + "\n"))
        writer.start()
        self.addCleanup(writer.join)
        self.assertEqual(next(changes).vm["why"], why)

    def test_raises_what_is_lost_once_with_all_there_is(self):
        for reason, lost in (("other-store", {"store": "s2"}), ("not-kept", {"lostTo": 3}),
                             ("not-yet", {"events": [event(1)]})):
            self.remember(**({"vms": [vm("web1")], "events": [event(3), event(4)]} | lost))
            caught = self.refused(vmagent.Lost, self.until_synced, self.watch(after="s1:2"))
            self.assertEqual(caught.reason, reason)
            self.assertEqual([vm["name"] for vm in caught.vms], ["web1"])
            self.assertEqual(caught.events, lost.get("events", [event(3), event(4)]))
            told = self.until_synced(self.watch(after=caught.cursor))
            self.assertEqual([change.op for change in told], ["put", "synced"])

    def test_raises_what_is_lost_while_it_goes_on(self):
        changes = self.watch()
        self.until_synced(changes)
        self.remember(vms=[vm("web1")], store="s2")
        self.tell("events", op="lost", reason="other-store", store="s2")
        caught = self.refused(vmagent.Lost, next, changes)
        self.assertEqual((len(caught.vms), caught.events, caught.cursor), (1, [], "s2:0"))

    def test_ends_when_vmctl_has_ended(self):
        changes = self.watch()
        self.until_synced(changes)
        self.write("events", "exit 6\n")
        self.assertEqual(self.refused(vmagent.Unreachable, next, changes).text, "it is over")

    def test_leaves_no_vmctl_behind(self):
        changes = self.watch()
        self.until_synced(changes)
        self.tell("watch", op="beat")
        self.tell("events", op="event", seq=5, event=event(5))
        next(changes), next(changes)
        pids = [int((self.folder / f"{name}.pid").read_text()) for name in ("watch", "events")]
        changes.close()
        for pid in pids:
            self.assertFalse(pathlib.Path(f"/proc/{pid}").exists())


class Example(ModuleTest):
    def setUp(self):
        super().setUp()
        self.before = {}  # when it restarted which
        self.time = 1000.0
        clock = mock.patch.object(restart_hung.time, "monotonic", lambda: self.time)
        clock.start()
        self.addCleanup(clock.stop)
        mute = mock.patch("builtins.print")
        mute.start()
        self.addCleanup(mute.stop)

    def restarted_by(self, *changes):
        """Which VMs a patience of 60 s has it restart; a change is (seconds later, what is told)."""
        def told(**_):
            for seconds, change in changes:
                self.time += seconds
                yield change
        with mock.patch.object(vmagent, "watch", told):
            restart_hung.look_after_guests(60, self.before)
        return [words[-1] for words in self.typed() if words[:2] == ["restart", "--now"]]

    def put(self, vm, stale=False):
        return vmagent.Change("put", None, stale, vm)

    def beat(self, stale=False):
        return vmagent.Change("beat", None, stale)

    def test_restarts_what_hangs_and_nothing_else(self):
        hung = (0, self.put(vm("web1", "hung")))
        self.assertEqual(self.restarted_by(hung, (0, self.put(vm("db"))), (61, self.beat())), ["web1"])

    def test_has_patience_from_the_first_word_of_it_on(self):
        hung = self.put(vm("web1", "hung"))
        self.assertEqual(self.restarted_by((0, hung), (40, hung), (20, self.beat())), ["web1"])

    def test_restarts_it_once_in_ten_minutes(self):
        hung = (0, self.put(vm("web1", "hung")))
        self.assertEqual(self.restarted_by(hung, (61, self.beat()), (500, self.beat())), ["web1"])
        self.assertEqual(self.restarted_by(hung, (101, self.beat())), ["web1", "web1"])

    def test_leaves_alone_what_goes_on_in_time_or_nobody_knows_of(self):
        hung, gone = (0, self.put(vm("web1", "hung"))), vmagent.Change("delete", None, False, {"name": "web1"})
        (self.folder / "typed").touch()
        for change in (self.put(vm("web1")), gone, self.beat(stale=True)):
            self.assertEqual(self.restarted_by(hung, (59, change), (9, self.beat())), [])
        self.assertEqual(self.restarted_by((0, self.put(vm("web1", "hung", wanted="stopped"))), (61, self.beat())), [])


if __name__ == "__main__":
    unittest.main()
