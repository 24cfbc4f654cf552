#!/usr/bin/env -S python3 -B
"""What quick.py runs, and what it says of it."""

import contextlib
import io
import json
import pathlib
import tempfile
import unittest
from unittest import mock

import quick

class Quick(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="quick.")
        self.addCleanup(folder.cleanup)
        self.build = pathlib.Path(folder.name)

    def script(self, name, text):
        path = self.build / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text("#!/bin/sh\n" + text)
        path.chmod(0o755)
        return str(path)

    def entry(self, program, *words):
        return {"command": [program, *words], "properties": [{"name": "LABELS", "value": ["whole"]}]}

    def run_with(self, tests):
        """(exit status, what is said)"""
        said = io.StringIO()
        listing = mock.Mock(stdout=json.dumps({"tests": tests}))
        real = quick.subprocess.run
        asked = lambda command, **options: (
            listing if command[0] == "ctest" else real(command, **options))
        with mock.patch.object(quick.subprocess, "run", asked), \
                mock.patch("sys.argv", ["quick.py", str(self.build)]), \
                contextlib.redirect_stdout(said), self.assertRaises(SystemExit) as ended:
            quick.main()
        return ended.exception.code, said.getvalue()

    def test_runs_each_program_once_in_parts(self):
        log = self.build / "log"
        program = self.script("host/host_test", f'echo "$GTEST_SHARD_INDEX" >>{log}')
        status, said = self.run_with(
            [self.entry(program, f"--gtest_filter=A.{i}") for i in range(9)])
        self.assertEqual(status, 0, said)
        self.assertIn("1 programs passed", said)
        self.assertEqual(sorted(log.read_text().split()), [str(i) for i in range(quick.PARTS)])

    def test_leaves_out_what_needs_a_machine_and_what_cannot_be_cut(self):
        tests = [self.entry(self.script("host/host_test", "exit 0"), "--gtest_filter=A.1")]
        for path, properties in (("tests/system/guest_test", [{"name": "LABELS", "value": ["system"]}]),
                                 ("tools/any", [])):
            tests.append({"command": [self.script(path, "exit 1")], "properties": properties})
        status, said = self.run_with(tests)
        self.assertEqual(status, 0, said)
        self.assertIn("1 programs passed", said)

    def test_tells_what_a_program_said_that_failed_or_only_that_it_did(self):
        for text, expected in (("echo it hurts; exit 1", "it hurts"),
                               ("exit 3", "it ended with status 3")):
            program = self.script("host/host_test", text)
            status, said = self.run_with([self.entry(program, "--gtest_filter=A.1")])
            self.assertEqual(status, 1)
            self.assertIn(expected, said)
            self.assertIn("FAILED", said)

    def test_fails_where_there_is_nothing_to_run(self):
        status, _ = self.run_with([])
        self.assertIn("there are no tests", status)


if __name__ == "__main__":
    unittest.main()
