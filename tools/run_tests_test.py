#!/usr/bin/env -S python3 -B
"""What run_tests.py says of tests that leave something behind."""

import contextlib
import io
import os
import pathlib
import signal
import tempfile
import unittest
from unittest import mock

import run_tests


class RunTests(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory(prefix="run_tests.")
        self.addCleanup(self.folder.cleanup)
        self.path = pathlib.Path(self.folder.name)
        # Tests that run beside this one leave theirs elsewhere.
        patched = mock.patch.object(run_tests, "PLACES", {self.folder.name: ("vmagent*",)})
        patched.start()
        self.addCleanup(patched.stop)
        old = os.environ["PATH"]
        os.environ["PATH"] = f"{self.path}:{old}"
        self.addCleanup(os.environ.__setitem__, "PATH", old)

    def run_with(self, ctest, patience=0.1):
        """(exit status, what is said) of a ctest that is this script."""
        program = self.path / "ctest"
        program.write_text(f"#!/bin/sh\n{ctest}\n")
        program.chmod(0o755)
        said = io.StringIO()
        with contextlib.redirect_stdout(said), contextlib.redirect_stderr(said):
            status = run_tests.main([["ctest", "--preset", "dev"]], patience=patience)
        return status, said.getvalue()

    def test_passes_on_what_ctest_ended_with(self):
        self.assertEqual(self.run_with("exit 0")[0], 0)
        self.assertEqual(self.run_with("exit 8")[0], 8)

    def test_fails_when_any_command_does_and_runs_the_others(self):
        marks = [["sh", "-c", f"echo {i} >>{self.path}/ran; exit {i}"] for i in (0, 3, 0)]
        with contextlib.redirect_stdout(io.StringIO()):
            self.assertEqual(run_tests.main(marks, patience=0.1), 3)
        self.assertEqual((self.path / "ran").read_text().split(), ["0", "3", "0"])

    def test_names_the_slowest(self):
        results = self.path / "results.xml"
        results.write_text('<testsuite><testcase name="A.B" time="1.5"/><testcase name="C.D" time="70.2"/>'
                           "</testsuite>")
        said = io.StringIO()
        with contextlib.redirect_stdout(said):
            run_tests.print_slowest(str(results))
            run_tests.print_slowest(str(self.path / "none.xml"))
        self.assertEqual(said.getvalue(), "run_tests: slowest: C.D 70 s, A.B 2 s\n")

    def test_hands_its_arguments_to_ctest(self):
        self.assertEqual(self.run_with('[ "$*" = "--preset dev" ]')[0], 0)

    def test_says_when_nothing_was_left(self):
        self.assertIn("was left behind", self.run_with("exit 0")[1])

    def test_finds_an_orphan_in_a_session_of_its_own(self):
        status, said = self.run_with(
            f"setsid sh -c 'echo $$ >{self.path}/pid; exec sleep 60' &\n"
            f"while [ ! -s {self.path}/pid ]; do sleep 0.01; done")
        pid = int((self.path / "pid").read_text())
        os.kill(pid, signal.SIGKILL)
        os.waitpid(pid, 0)
        self.assertEqual(status, 1)
        self.assertIn(f"left behind: process {pid} (sleep)", said)

    def test_forgives_what_ends_in_time(self):
        self.assertEqual(self.run_with("setsid sleep 0.05 & exit 0", patience=5)[0], 0)

    def test_finds_a_file_that_carries_our_name(self):
        name = self.path / "vmagent-left"
        status, said = self.run_with(f"touch {name}")
        self.assertEqual(status, 1)
        self.assertIn(f"left behind: file {name}", said)


if __name__ == "__main__":
    unittest.main()
