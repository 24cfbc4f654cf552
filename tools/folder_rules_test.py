#!/usr/bin/env python3
import unittest

import folder_rules

TEXTS = {"host/A.h": "", "host/A.cpp": "", "sim/B.cpp": ""}
PAGES = {
    "README.md": "| `host/` | x |\n| `sim/` | y |\n",
    "docs/architecture.md": "| `host/base`, `host` | x |\n| `sim` | y |\n",
    "CMakeLists.txt": "foreach(folder IN ITEMS\n    host sim)\n",
    ".clang-tidy": "HeaderFilterRegex: '/(host|guest)/'\n",
}


class FolderRules(unittest.TestCase):
    def test_whole_lists_are_fine(self):
        self.assertEqual(folder_rules.list_findings(TEXTS, PAGES), [])

    def test_a_folder_is_missed_in_each_list(self):
        texts = {**TEXTS, "newer/C.h": ""}
        found = folder_rules.list_findings(texts, PAGES)
        self.assertEqual(sorted(f.split(":")[0] for f in found), sorted(PAGES))
        for finding in found:
            self.assertIn("newer", finding)

    def test_a_longer_name_is_no_shorter_one(self):
        found = folder_rules.list_findings({**TEXTS, "hos/C.cpp": ""}, PAGES)
        self.assertEqual(len(found), 3, found)

    def test_a_page_names_files_that_are_there(self):
        text = "`host/A.h`, `host/A.cpp`\nand `host/gone/B.cpp`, `docs/x.md`, `A.h`"
        self.assertEqual(folder_rules.path_findings(TEXTS.__contains__, {"docs/a.md": text}),
                         ["docs/a.md:2: there is no host/gone/B.cpp"])

    def words(self, path, code):
        return folder_rules.word_findings({path: code})

    def test_words_are_their_owners(self):
        for code in ('f("shim.sock");', 'f("/console.log");', 'getenv("VMAGENT_ACCEL");',
                     'f("VMAGENT_ROW=");', 'db.snapshot({"vmConfig"});'):
            self.assertEqual(len(self.words("host/A.cpp", code)), 1, code)
            self.assertTrue(self.words("host/A.cpp", code)[0].startswith("host/A.cpp:1: "))

    def test_owners_tests_comments_and_sentences_may_spell_them(self):
        self.assertEqual(self.words("guest/VmFiles.h", '"shim.sock"'), [])
        self.assertEqual(self.words("model/Tables.h", '"vmConfig"'), [])
        self.assertEqual(self.words("host/ATest.cpp", '"shim.sock"'), [])
        self.assertEqual(self.words("host/A.cpp", '// "shim.sock"'), [])
        self.assertEqual(self.words("host/A.cpp", '"see VMAGENT_RUN_DIR"'), [])
        self.assertEqual(self.words("host/A.cpp", '"VMAGENT_LEVEL"'), [])
        self.assertEqual(self.words("runtime/records/A.h", '"vmConfig"'), [])


if __name__ == "__main__":
    unittest.main()
