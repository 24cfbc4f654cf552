"""bench/report: medians become tables between the markers, and targets are judged."""

import json
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

REPORT = pathlib.Path(__file__).resolve().parent / "report"
EMPTY = "before\n<!-- runtime:begin -->\nold\n<!-- runtime:end -->\nafter\n"


def names():
    """Every benchmark the report asks for, as it asks for them."""
    listed = ["attach/clockReactor", "attach/reactor", "clock/arm/10000", "clock/fire/10000",
              "roundTrip/turn", "roundTrip/epoll"]
    listed += [f"change/{way}/{n}" for n in (0, 1, 8, 1000) for way in (
        "reactors", "virtualCalls", "functions", "boostSignals2", "boostSignals2Unlocked")]
    listed += [f"{what}/{n}" for n in (10, 10000) for what in (
        "collection/insert", "collection/remove", "collection/lookup", "collection/walk",
        "map/lookup", "map/walk", "member/change", "member/comeAndGo", "clock/putOff")]
    listed += [f"access/{what}" for what in (
        "readByGetter", "readByName", "writeByMutator", "writeByName")]
    listed += [f"make/{what}" for what in ("VmConfig", "VmStatus", "OneNumber", "ThreeNumbers")]
    return listed + [f"trace/{what}" for what in ("emptyLoop", "disabled", "enabled")]


def median(name, ns=9.0):
    return {"name": name + "_median", "run_name": name, "run_type": "aggregate",
            "aggregate_name": "median", "cpu_time": ns, "time_unit": "ns", "sizeof": 64.0,
            "heap": 72.0, "allocations": 0.0, "items_per_second": 1e8}


def system_names():
    """What bench/system measures where there is no libvirt."""
    listed = [f"{what}/{by}" for what in ("start", "word", "end", "death", "trip", "attach",
                                          "detach", "startTen", "endTen") for by in ("bare", "ours")]
    listed += [f"{what}/{by}" for what in ("cpu", "switches", "memory") for by in (
        "bare", "bareAtOnce", "daemon", "shims", "shim", "idleShim")]
    listed += ["attachInet/bare", "adopt/1", "adopt/10", "pollDelay", "gap/adoption", "gap/quiet",
               "list/ours", "list/10000", "watch/ours"]
    return listed + [name + "/p90" for name in listed]


class ReportTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.results = pathlib.Path(folder.name)
        self.document = self.results / "performance.md"
        self.document.write_text(EMPTY)

    def report(self, runs=None):
        if runs is not None:
            (self.results / "runtime_bench.json").write_text(json.dumps({"benchmarks": runs}))
        return subprocess.run(
            [sys.executable, "-B", REPORT, "--results", self.results, "--document", self.document],
            capture_output=True, text=True)

    def row(self, what):
        return re.search(rf"^\| {re.escape(what)} \|.*$", self.document.read_text(), re.M)[0]

    def test_writes_between_the_markers_only(self):
        self.assertEqual(self.report([median(n) for n in names()]).returncode, 0)
        text = self.document.read_text()
        self.assertTrue(text.startswith("before\n<!-- runtime:begin -->\n| Target |"))
        self.assertTrue(text.endswith("|\n<!-- runtime:end -->\nafter\n"))
        self.assertNotIn("old", text)

    def test_writes_the_same_again(self):
        runs = [median(n) for n in names()]
        self.report(runs)
        first = self.document.read_text()
        self.report(runs)
        self.assertEqual(self.document.read_text(), first)

    def test_says_met_and_not_met(self):
        slow = {"change/reactors/1": 15.1, "change/boostSignals2/1": 60.0}
        self.report([median(n, slow.get(n, 9.0)) for n in names()])
        self.assertEqual(self.row("one change, one reactor"),
                         "| one change, one reactor | 15.1 ns | 15 ns | **not met** |")
        self.assertIn("| 0.25 | 0.33 | met |", self.row("the same ÷ `boost::signals2`"))

    def test_prints_what_it_writes(self):
        printed = self.report([median(n) for n in names()]).stdout
        self.assertIn(self.row("a reactor"), printed)

    def test_leaves_the_tables_when_there_are_no_results(self):
        self.assertEqual(self.report().returncode, 0)
        self.assertEqual(self.document.read_text(), EMPTY)

    def test_names_the_benchmark_that_is_missing(self):
        done = self.report([median(n) for n in names() if n != "roundTrip/turn"])
        self.assertEqual(done.returncode, 1)
        self.assertIn("roundTrip/turn", done.stderr)
        self.assertEqual(self.document.read_text(), EMPTY)

    def test_judges_what_waits_by_the_time_that_passed(self):
        self.document.write_text("".join(f"<!-- {name}:begin -->\n<!-- {name}:end -->\n"
                                         for name in ("start", "card")))
        times = {"start/agent": 210.0, "start/bare": 200.1, "attach/agent": 130.0,
                 "attach/bare": 100.0, "attach/bareInet": 5.0, "detach/agent": 110.0,
                 "detach/bare": 100.0}
        runs = [median(n + "/manual_time") | {"real_time": t} for n, t in times.items()]
        (self.results / "guest_bench.json").write_text(json.dumps({"benchmarks": runs}))
        self.assertEqual(self.report().returncode, 0)
        self.assertIn("| 4.9 % | 5 % | met |", self.row(
            "a VM's start, beyond fork, exec and connect with the same pauses"))
        self.assertIn("| 1.3 | 1.2 | **not met** |", self.row(
            "a card's attach ÷ its system calls"))
        self.assertIn("| 1.1 | 1.2 | met |", self.row("a card's detach ÷ its system calls"))

    def test_judges_nothing_beside_libvirt_where_there_was_none(self):
        self.document.write_text("<!-- system:begin -->\n<!-- system:end -->\n")
        runs = [median(n) | {"real_time": 4.0} for n in system_names()]
        (self.results / "system.json").write_text(json.dumps({"benchmarks": runs}))
        done = self.report()
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertIn("| 4 ms | 5 ms | met |", self.row(
            "from QEMU's death until its status has changed"))
        self.assertNotIn("start of one guest ÷ libvirt", self.document.read_text())
        self.assertEqual(self.row("a card's attach"),
                         "| a card's attach | 4 / 4 | 4 / 4 | – | 1.00 | – |")

    def test_refuses_a_document_without_markers(self):
        self.document.write_text("nothing\n")
        self.assertEqual(self.report([median(n) for n in names()]).returncode, 1)
        self.assertEqual(self.document.read_text(), "nothing\n")


if __name__ == "__main__":
    unittest.main()
