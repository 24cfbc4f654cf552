#!/usr/bin/env python3
"""What a package is called, what its changelog says, and what its sources are."""

import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

sys.path.insert(0, os.path.dirname(__file__))
import deb

CMAKE = "cmake_minimum_required(VERSION 3.25)\nproject(vmagent\n  VERSION 1.2.3\n  LANGUAGES CXX)\n"


def is_before(a, b):
    return subprocess.run(["dpkg", "--compare-versions", a, "lt", b]).returncode == 0


class Version(unittest.TestCase):
    def test_is_the_projects_where_it_is_released(self):
        self.assertEqual(deb.version_of(CMAKE, "20260102.030405.ab", True, False), "1.2.3")

    def test_is_below_the_projects_before_and_rises_with_each_commit(self):
        first = deb.version_of(CMAKE, "20260102.030405.ff", False, False)
        second = deb.version_of(CMAKE, "20260102.030406.aa", False, False)
        self.assertTrue(is_before(first, second))
        self.assertTrue(is_before(second, "1.2.3"))
        self.assertTrue(is_before("1.2.2", first))

    def test_shows_what_is_not_committed(self):
        for is_released in (True, False):
            changed = deb.version_of(CMAKE, "20260102.030405.ab", is_released, True)
            self.assertEqual(changed, "1.2.3~git20260102.030405.ab.changed")


class Changelog(unittest.TestCase):
    def test_has_the_newest_versions_words_only(self):
        words = "# Changelog\n\n## 2\n\n- One thing,\n  on two lines.\n- Another.\n\n## 1\n\n- Old.\n"
        self.assertEqual(deb.newest(words), ["One thing, on two lines.", "Another."])

    def test_is_as_dpkg_reads_it(self):
        self.assertEqual(
            deb.debian_changelog("1.2.3~git1", ["many words " * 10, "`code`"],
                                 "Fri, 02 Jan 2026 03:04:05 +0000"),
            "vmagent (1.2.3~git1) unstable; urgency=medium\n\n"
            "  * many words many words many words many words many words many words many\n"
            "    words many words many words many words\n"
            "  * 'code'\n\n"
            " -- VmAgent developers <vmagent@example.org>  Fri, 02 Jan 2026 03:04:05 +0000\n")


class Sources(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)
        self.root = pathlib.Path(self.folder.name) / "clone"
        self.copy = pathlib.Path(self.folder.name) / "copy"
        self.root.mkdir()
        subprocess.run(["git", "init", "--quiet", self.root], check=True)
        before, deb.ROOT = deb.ROOT, self.root
        self.addCleanup(setattr, deb, "ROOT", before)

    def files(self):
        return {str(path.relative_to(self.copy)) for path in self.copy.glob("**/*")
                if path.is_file()}

    def test_are_what_is_tracked_or_could_be(self):
        (self.root / ".gitignore").write_text("/build/\n")
        (self.root / "build").mkdir()
        (self.root / "build/x").write_text("x")
        (self.root / "a").write_text("a")
        deb.copy_sources(self.copy)
        self.assertEqual(self.files(), {".gitignore", "a"})

    def test_lose_what_is_gone_or_was_made_but_for_objects(self):
        (self.root / "a").write_text("a")
        deb.copy_sources(self.copy)
        for made in ("b", "debian/vmagent/c", "obj-x/d.o"):
            (self.copy / made).parent.mkdir(parents=True, exist_ok=True)
            (self.copy / made).write_text("")
        (self.root / "a").unlink()
        deb.copy_sources(self.copy)
        self.assertEqual(self.files(), {"obj-x/d.o"})

    def test_keep_their_time_unless_they_differ(self):
        for name in ("a", "b"):
            (self.root / name).write_text("1")
        deb.copy_sources(self.copy)
        for name in ("a", "b"):
            os.utime(self.copy / name, (1, 1))
            os.utime(self.root / name, (0, 0))  # older than its copy
        (self.root / "b").write_text("2")
        os.utime(self.root / "b", (0, 0))
        deb.copy_sources(self.copy)
        self.assertEqual(os.stat(self.copy / "a").st_mtime, 1)
        self.assertNotEqual(os.stat(self.copy / "b").st_mtime, 1)
        self.assertEqual((self.copy / "b").read_text(), "2")


if __name__ == "__main__":
    unittest.main()
