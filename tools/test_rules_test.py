#!/usr/bin/env python3
import unittest

import test_rules


def tests(path, *names):
    return test_rules.tests_of({path: "".join(f"TEST_F({n}) {{}}\n" for n in names)})


class TestRules(unittest.TestCase):
    def test_a_suite_of_the_files_name_is_enough(self):
        found = tests("host/VmRowsTest.cpp", "Other, DoesA", "VmRowsTest, DoesB")
        self.assertEqual(test_rules.suite_findings(found), [])
        self.assertEqual(test_rules.suite_findings(tests("host/RowsTest.cpp", "Row, IsOne")), [])

    def test_a_file_without_one_is_found(self):
        found = test_rules.suite_findings(tests("host/VmRowsTest.cpp", "Machine, DoesA"))
        self.assertEqual(len(found), 1)
        self.assertTrue(found[0].startswith("host/VmRowsTest.cpp:1: "), found)
        self.assertIn("Machine", found[0])

    def test_system_tests_and_what_is_no_test_have_names_of_their_own(self):
        self.assertEqual(test_rules.suite_findings(tests("tests/system/ATest.cpp", "B, C")), [])
        self.assertEqual(test_rules.suite_findings(tests("host/A.cpp", "B, C")), [])

    def test_pythons_tests_have_the_names_of_their_classes(self):
        text = "class List(PageTest):\n    def setUp(self):\n    def test_is_a_list(self):\n"
        found = {"page_test.py": test_rules.python_tests_of(text)}
        self.assertEqual(found["page_test.py"], [("List", "test_is_a_list")])
        fine = "`List.test_is_a_list`, `List.test_is…`, `List.*`"
        self.assertEqual(test_rules.page_findings(found, {"a.md": fine}), [])
        self.assertEqual(test_rules.page_findings(found, {"a.md": "`List.test_is_none`"}),
                         ["a.md:1: there is no test `List.test_is_none`"])

    def test_a_page_names_tests_that_are_there(self):
        found = tests("host/ATest.cpp", "Rows, AreKept", "Rows, AreTold")
        fine = "`Rows.AreKept`, `Rows.*`, `Rows.Are*`, `Row*.AreTold`, `Row….*`, `VmRows.cpp`, `Rows`"
        self.assertEqual(test_rules.page_findings(found, {"a.md": fine}), [])
        for wrong in ("`Rows.AreLost`", "`Row.*`", "`Rows.Kept*`"):
            findings = test_rules.page_findings(found, {"a.md": "\n" + wrong})
            self.assertEqual(len(findings), 1, wrong)
            self.assertTrue(findings[0].startswith("a.md:2: "), findings)


if __name__ == "__main__":
    unittest.main()
