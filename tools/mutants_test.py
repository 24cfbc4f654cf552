#!/usr/bin/env python3
import pathlib
import tempfile
import tomllib
import unittest

import mutants
import mutations

SOURCE = "int f(int a, int b) {\n  if (a < b) return 1;\n  g(a, b);\n  return a + b;\n}\n"
TEXTS = {"Vm/VmAgent/A.cpp": SOURCE, "ctl/B.cpp": SOURCE.replace("f(", "h("), "model/C.cpp": SOURCE}


def key(text, file="model/C.cpp"):
    """The key of that file's mutant whose text ends so."""
    return next(k for k in mutants.keyed(file, mutations.mutants_of(TEXTS[file]))
                if k.text.endswith(text))


class Draw(unittest.TestCase):
    def test_is_the_same_for_a_seed_and_another_for_another(self):
        self.assertEqual(mutants.draw(TEXTS, 12, 7), mutants.draw(TEXTS, 12, 7))
        self.assertNotEqual(mutants.draw(TEXTS, 12, 7), mutants.draw(TEXTS, 12, 8))

    def test_is_of_about_so_many_and_none_twice(self):
        drawn = mutants.draw(TEXTS, 12, 7)
        self.assertIn(len(drawn), range(9, 16))
        self.assertEqual(len(set(drawn)), len(drawn))

    def test_gives_the_strict_parts_twice_their_share(self):
        counts = [sum(k.file.startswith(folder) for seed in range(200)
                      for k in mutants.draw(TEXTS, 4, seed)) for folder in ("Vm/", "ctl/")]
        self.assertAlmostEqual(counts[0] / counts[1], 2, delta=0.3)

    def test_takes_of_a_file_what_it_takes_whatever_other_files_hold(self):
        alone = {"ctl/B.cpp": TEXTS["ctl/B.cpp"]}
        drawn = mutants.draw({**alone, "model/C.cpp": "int a;\n"}, 5, 7)
        self.assertLessEqual({k for k in drawn if k.file == "ctl/B.cpp"},
                             set(mutants.draw(alone, 5, 7)))

    def test_takes_all_that_there_are_and_ends(self):
        self.assertEqual(len(mutants.draw({"model/C.cpp": SOURCE}, 1000, 7)),
                         len(mutations.mutants_of(SOURCE)))


class Keys(unittest.TestCase):
    def test_number_those_that_read_the_same(self):
        text = "void f() {\n  g();\n  g();\n}\n"
        numbers = [k.number for k in mutants.keyed("a", mutations.mutants_of(text))
                   if k.kind == "delete-call"]
        self.assertEqual(numbers, [1, 2])


class State(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="mutants.")
        self.addCleanup(folder.cleanup)
        self.path = pathlib.Path(folder.name) / "state.jsonl"

    def after(self, entry):
        """A state that was told of the entry, and read again."""
        first = mutants.State(self.path)
        first.add(key("a + b; => return a - b;"), {"tests": "1", "caught_by": "", **entry})
        first.file.close()
        state = mutants.State(self.path)
        self.addCleanup(state.file.close)
        return state

    def test_knows_nothing_of_what_was_never_tried(self):
        state = self.after({"state": "killed"})
        self.assertFalse(state.is_settled(key("a <= b) return 1;"), "1", ""))

    def test_is_settled_for_what_was_killed(self):
        state = self.after({"state": "killed"})
        self.assertTrue(state.is_settled(key("a + b; => return a - b;"), "2", ""))

    def test_is_settled_for_a_survivor_until_its_tests_change(self):
        state = self.after({"state": "survived"})
        self.assertTrue(state.is_settled(key("a + b; => return a - b;"), "1", ""))
        self.assertFalse(state.is_settled(key("a + b; => return a - b;"), "2", ""))

    def test_is_settled_for_a_survivor_until_a_test_is_named(self):
        state = self.after({"state": "survived"})
        self.assertFalse(state.is_settled(key("a + b; => return a - b;"), "1", "host_test:A.B"))

    def test_is_what_was_said_last(self):
        self.after({"state": "survived"})
        state = self.after({"state": "killed"})
        self.assertEqual(state.known[key("a + b; => return a - b;")]["state"], "killed")


class Verdicts(unittest.TestCase):
    def read(self, text):
        with tempfile.NamedTemporaryFile("w", suffix=".toml", prefix="mutants.") as file:
            file.write(text)
            file.flush()
            return mutants.read_verdicts(pathlib.Path(file.name))

    def test_are_read_as_a_survivor_is_shown(self):
        survivor = key("a <= b) return 1;")
        verdicts = self.read(mutants.as_verdict(survivor) + '\nequivalent = "nobody asks"\n')
        self.assertEqual(verdicts[survivor[:4]]["equivalent"], "nobody asks")

    def test_have_a_reason_or_a_test_and_not_both(self):
        shown = mutants.as_verdict(key("a <= b) return 1;"))
        for more in ("", 'why = "?"\n', 'equivalent = "a"\ncaught = "b"\n'):
            with self.assertRaisesRegex(SystemExit, "either `equivalent`"):
                self.read(f"{shown}\n{more}")

    def test_of_a_file_are_of_all_that_have_none_of_their_own(self):
        own, other = key("a <= b) return 1;"), key("a + b; => return a - b;")
        verdicts = self.read('[["model/C.cpp"]]\ncaught = "tests/system/a:B.C"\n' +
                             mutants.as_verdict(own) + '\nequivalent = "nobody asks"\n')
        self.assertIn("equivalent", mutants.verdict_of(verdicts, own))
        self.assertEqual(mutants.verdict_of(verdicts, other), {"caught": "tests/system/a:B.C"})
        self.assertEqual(mutants.stale(verdicts, TEXTS), [])

    def test_that_fit_nothing_are_found(self):
        fits, gone = key("a <= b) return 1;")[:4], ("model/C.cpp", "f", "compare", "x => y")
        of_a_file_that_is_not_looked_at = ("model/D.cpp", "f", "compare", "x => y")
        self.assertEqual(
            mutants.stale(dict.fromkeys([fits, gone, of_a_file_that_is_not_looked_at]), TEXTS),
            [gone])

    def test_of_the_tree_can_be_read(self):
        for verdict in mutants.read_verdicts(mutants.VERDICTS).values():
            if "caught" in verdict:
                self.assertRegex(verdict["caught"], r"^tests/system/\w+:[\w.*/:-]+$")


class Table(unittest.TestCase):
    def test_counts_what_is_caught_of_what_is_not_equivalent(self):
        states = ["killed", "time-out", "system", "survived", "survived", "not compiled"]
        keys = list(mutants.keyed("model/C.cpp", mutations.mutants_of(SOURCE)))[:len(states)]
        entries = {k: {"state": state} for k, state in zip(keys, states)}
        lines, left = mutants.table(entries, {keys[3][:4]: {"equivalent": "nobody asks"}})
        self.assertIn("| model | 5 | 1 | 1 | 1 | 1 | 1 | 75.0 % |", lines)
        self.assertIn("| all | 5 | 1 | 1 | 1 | 1 | 1 | 75.0 % |", lines)
        self.assertEqual(lines[-1], "Not compiled, and not counted: 1")
        self.assertEqual(left, [keys[4]])

    def test_shows_what_can_be_pasted(self):
        survivor = key("a <= b) return 1;")
        shown = tomllib.loads(mutants.as_verdict(survivor))["model/C.cpp"]
        self.assertEqual(shown, [dict(zip(("function", "kind", "text"), survivor[1:4]))])


if __name__ == "__main__":
    unittest.main()
