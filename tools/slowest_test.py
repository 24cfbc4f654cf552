#!/usr/bin/env -S python3 -B
import contextlib
import io
import pathlib
import tempfile
import unittest

import slowest

HEAD = "# ninja log v5\n"


def step(start, end, output):
    return f"{start}\t{end}\t0\t{output}\t1f\n"


class Slowest(unittest.TestCase):
    def said(self, log):
        with tempfile.TemporaryDirectory(prefix="slowest.") as folder:
            (pathlib.Path(folder) / ".ninja_log").write_text(log)
            out = io.StringIO()
            with contextlib.redirect_stdout(out):
                slowest.main(folder)
            return out.getvalue()

    def test_the_last_run_is_told_with_its_slowest_first(self):
        log = (HEAD + step(0, 90_000, "old") + step(10, 2_000, "host/CMakeFiles/h.dir/A.cpp.o") +
               step(0, 30_000, "host/CMakeFiles/h.dir/Unity/unity_1_cxx.cxx.o") +
               step(30_000, 31_000, "host/h"))
        self.assertEqual(self.said(log), "build: 3 steps in 31 s, slowest: h: unity_1_cxx 30.0 s, "
                                         "h: A 2.0 s, h 1.0 s\n")

    def test_of_a_short_run_nothing_is_said(self):
        self.assertEqual(self.said(HEAD + step(0, 90_000, "old") + step(0, 3_000, "new")), "")

    def test_where_nothing_was_built_nothing_is_said(self):
        self.assertEqual(self.said(HEAD), "")


if __name__ == "__main__":
    unittest.main()
