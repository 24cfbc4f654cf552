#!/usr/bin/env python3
import unittest
from unittest import mock

import call_rules

HEADER = """// poke() is only named in comments. /* poke() */
#pragma once
void poke(int times);
"""
DEFINITION = '#include "host/A.h"\n\nvoid poke(int times) {\n  if (times > 0) poke(times - 1);\n}\n'
CALL = '#include "host/A.h"\n\nint main() { poke(2); }\n'


def findings(files, allowed=()):
    texts = {"host/A.h": HEADER, "host/A.cpp": DEFINITION, **files}
    with mock.patch.object(call_rules, "ALLOWED", list(allowed)):
        return call_rules.check(texts)


class CallRules(unittest.TestCase):
    def is_found(self, files, name="poke", place="host/A.h:3: "):
        found = findings(files)
        self.assertEqual(len(found), 1, found)
        self.assertTrue(found[0].startswith(place), found[0])
        self.assertIn(f"{name}()", found[0])

    def is_used(self, code, header=HEADER):
        self.assertEqual(
            findings({"host/A.h": header, "host/B.cpp": f'#include "host/A.h"\n{code}\n'}), [])

    def is_not_used(self, code):
        self.is_found({"host/B.cpp": f'#include "host/A.h"\n{code}\n'})

    def test_a_function_that_is_only_declared_and_defined_is_found_where_it_is_declared(self):
        self.is_found({})

    def test_a_call_in_product_code_uses_it(self):
        self.assertEqual(findings({"host/main.cpp": CALL}), [])

    def test_a_call_in_a_test_a_fake_a_benchmark_a_fuzzer_or_the_simulator_does_not(self):
        for path in ("host/ATest.cpp", "tests/system/A.cpp", "host/fakes/B.cpp", "host/ABench.cpp",
                     "bench/B.cpp", "host/AFuzz.cpp", "fuzz/B.cpp", "sim/world/A.cpp"):
            self.is_found({path: CALL})

    def test_a_header_of_a_fake_is_not_looked_at(self):
        self.assertEqual(findings({"host/main.cpp": CALL, "host/fakes/F.h": "void fake();\n"}), [])

    def test_a_header_that_only_tests_include_is_not_looked_at(self):
        self.assertEqual(findings({"host/main.cpp": CALL, "host/Lamps.h": "void lit();\n",
                                   "host/LampsTest.cpp": '#include "host/Lamps.h"\n'}), [])

    def test_what_comments_and_strings_say_uses_nothing(self):
        self.is_not_used("// poke(1)\n/* poke(1) */\nconst char* said() { return \"poke(1)\"; }")

    def test_its_own_body_does_not_use_it(self):
        self.is_found({"host/A.h": "class A {\n public:\n  void poke();\n};\n",
                       "host/A.cpp": '#include "host/A.h"\nvoid A::poke() { poke(); }\n'})

    def test_two_that_call_each_other_are_both_found(self):
        found = findings({"host/A.h": "void one();\nvoid two();\n",
                          "host/A.cpp": '#include "host/A.h"\nvoid one() { two(); }\n'
                                        "void two() { one(); }\n"})
        self.assertEqual([f.split(":")[1] for f in found], ["1", "2"])

    def test_a_body_in_a_class_is_looked_at_like_any_other(self):
        self.is_found({"host/A.h": "class A {\n  void one() { two(); }\n  void two() {}\n};\n",
                       "host/B.cpp": '#include "host/A.h"\nvoid other(A& a) { a.two(); }\n'},
                      "one", "host/A.h:2: ")

    def test_being_named_outside_of_functions_uses_it(self):
        self.is_used("const Verb verbs[] = {{\"poke\", poke}};")
        self.is_used("const int poked = poke(1);")
        self.is_used("using Table = Attributes<&Lamp::poke>;")
        self.is_used("#define POKE(times) poke(times)")

    def test_a_default_argument_and_an_initializer_use_it(self):
        self.is_used("class B {\n  B() : times_(poke(1)) {}\n  int times_;\n};")
        self.is_used("void other(int times = poke(1)) { (void)times; }")

    def test_being_handed_on_uses_it(self):
        self.is_used("void other() { each(lamps, poke); }")
        self.is_used("void other() { each(lamps, &Lamp::poke); }")
        self.is_used("void other() { lamp.onPress = &poke; }")

    def test_a_call_through_an_object_a_template_or_a_condition_uses_it(self):
        self.is_used("void other() { lamp().poke(1); }")
        self.is_used("void other() { if (lit && poke(1) != 0) return; }")
        self.is_used("template <class T>\nvoid other() { this->template poke<T>(1); }")
        self.is_used("int other() { return poke(1); }")

    def test_a_variable_of_its_name_does_not_use_it(self):
        self.is_not_used("void other() { int poke = 1; each(poke); }")
        self.is_not_used("void other(const Text& poke) { each(poke); }")
        self.is_not_used("void other() { Lamp poke(1); }")
        self.is_not_used("void other() { for (const auto& [poke, times] : all()) each(poke); }")

    def test_a_member_of_its_name_does_not_use_it(self):
        self.is_not_used("void other() { lamp.poke = 1; each(lamp.poke); }")

    def test_constructors_and_operators_are_not_looked_for(self):
        self.assertEqual(findings({
            "host/main.cpp": CALL,
            "host/A.h": HEADER + "struct Lamp {\n  Lamp(int a) : a_(a) {}\n  ~Lamp();\n"
                                 "  bool operator==(const Lamp&) const;\n  int a_;\n};\n"}), [])

    def test_an_override_is_asked_of_its_base(self):
        base = HEADER + "struct Base {\n  virtual void lit() const = 0;\n};\n"
        derived = "struct Mine : Base, std::streambuf {\n  void lit() const override;\n" \
                  "  int sync() override;\n};\n"
        self.is_found({"host/main.cpp": CALL, "host/A.h": base + derived}, "lit", "host/A.h:5: ")

    def test_an_exception_lets_it_stay(self):
        self.assertEqual(findings({}, [("host/*.h", "pok*", "a host may")]), [])

    def test_an_exception_that_nobody_needs_is_found(self):
        found = findings({"host/main.cpp": CALL}, [("host/A.h", "poke", "a host may")])
        self.assertEqual(len(found), 1, found)
        self.assertIn("host/A.h: poke needs no exception", found[0])


if __name__ == "__main__":
    unittest.main()
