#!/usr/bin/env python3
import unittest
from unittest import mock

import close_rules


def findings(texts, allowed=()):
    with mock.patch.object(close_rules, "ALLOWED", list(allowed)):
        return close_rules.check(texts)


class Closings(unittest.TestCase):
    def found(self, body):
        return findings({"host/A.cpp": "void f(int fd) {\n" + body + "\n}\n"})

    def test_by_number_are_found_with_their_line(self):
        for body in ("close(fd);", "if (fd) close(fd);", "return ::close(fd);", "else ::close(fd);",
                     "(void)close(fd);"):
            found = self.found(body)
            self.assertEqual(len(found), 1, body)
            self.assertTrue(found[0].startswith("host/A.cpp:2: "), found)

    def test_of_a_class_are_no_concern(self):
        for body in ("db.close(half);", "file->close();", "Doorbell::close(fd);", "// close(fd);",
                     'say("close(fd)");'):
            self.assertEqual(self.found(body), [], body)
        self.assertEqual(findings({"host/A.h": "struct A {\n  void close(int half);\n};\n"}), [])

    def test_in_tests_fakes_and_the_simulator_are_no_concern(self):
        for path in ("host/ATest.cpp", "host/fakes/A.cpp", "tests/A.cpp", "sim/kernel/A.cpp"):
            self.assertEqual(findings({path: "void f() {\n  close(1);\n}\n"}), [], path)

    def test_of_an_exception_are_allowed_and_it_must_be_needed(self):
        allowed = [("host/A.cpp", "why"), ("host/B.cpp", "why")]
        found = findings({"host/A.cpp": "void f() {\n  close(1);\n}\n", "host/B.cpp": ""}, allowed)
        self.assertEqual(found, ["tools/close_rules.py:1: host/B.cpp needs no exception: remove its row"])


if __name__ == "__main__":
    unittest.main()
