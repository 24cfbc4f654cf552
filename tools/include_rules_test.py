#!/usr/bin/env python3
import unittest

import include_rules

# One header in each folder that matters, so that an include of it is an include of ours.
TREE = {
    path: ""
    for path in (
        "runtime/base/String.h",
        "runtime/entity/Entity.h",
        "runtime/loop/Loop.h",
        "runtime/net/EthAddr.h",
        "runtime/records/Vm.h",
        "runtime/interfaces/Status.h",
        "runtime/fakes/Clock.h",
        "netlink/Macvtap.h",
        "Vm/QmpParser/Parser.h",
        "Vm/Monitor/MonitorSm.h",
        "Vm/VmAgent/VmSm.h",
        "statedb/StateDb.h",
        "statedb/sqlite/Sqlite.h",
        "model/Validate.h",
        "host/Host.h",
        "shim/decide/Relay.h",
        "shim/keep/Wire.h",
        "ctl/view/Render.h",
        "tests/fakes/Qemu.h",
    )
}


def findings(path, text):
    return include_rules.check({**TREE, path: text})


class IncludeRules(unittest.TestCase):
    def allowed(self, path, name):
        self.assertEqual(findings(path, f'#include "{name}"\n'), [])

    def refused(self, path, name, why):
        found = findings(path, f'// line 1\n#include "{name}"\n')
        self.assertEqual(len(found), 1, found)
        self.assertTrue(found[0].startswith(f"{path}:2: "), found[0])
        self.assertIn(why, found[0])
        self.assertIn(name, found[0])

    def test_a_folder_includes_itself_and_what_its_row_names(self):
        self.allowed("runtime/base/A.cpp", "runtime/base/String.h")
        self.allowed("runtime/entity/A.h", "runtime/base/String.h")
        self.allowed("netlink/A.cpp", "runtime/base/String.h")
        self.allowed("shim/A.cpp", "runtime/base/String.h")
        self.allowed("statedb/sqlite/A.cpp", "statedb/StateDb.h")
        self.allowed("statedb/A.cpp", "statedb/sqlite/Sqlite.h")

    def test_arrows_are_transitive(self):
        self.allowed("Vm/VmAgent/A.cpp", "Vm/QmpParser/Parser.h")
        self.allowed("Vm/VmAgent/A.cpp", "runtime/loop/Loop.h")
        self.allowed("Vm/Monitor/A.cpp", "runtime/entity/Entity.h")
        self.allowed("ctl/A.cpp", "runtime/records/Vm.h")
        self.allowed("runtime/interfaces/A.h", "runtime/net/EthAddr.h")

    def test_the_runtime_has_an_order(self):
        why = "it may include"
        self.refused("runtime/base/A.h", "runtime/entity/Entity.h", why)
        self.refused("runtime/entity/A.h", "runtime/loop/Loop.h", why)
        self.refused("runtime/loop/A.h", "runtime/net/EthAddr.h", why)
        self.refused("runtime/net/A.h", "runtime/loop/Loop.h", why)
        self.refused("runtime/records/A.h", "runtime/interfaces/Status.h", why)

    def test_a_layer_never_includes_one_above_or_beside_it(self):
        why = "it may include"
        self.refused("netlink/A.cpp", "runtime/entity/Entity.h", why)
        self.refused("Vm/QmpParser/A.cpp", "Vm/Monitor/MonitorSm.h", why)
        self.refused("Vm/Monitor/A.cpp", "netlink/Macvtap.h", why)
        self.refused("Vm/VmAgent/A.cpp", "statedb/StateDb.h", why)
        self.refused("statedb/A.cpp", "Vm/VmAgent/VmSm.h", why)
        self.refused("model/A.cpp", "runtime/interfaces/Status.h", why)
        self.refused("ctl/A.cpp", "Vm/VmAgent/VmSm.h", why)
        self.refused("shim/A.cpp", "runtime/entity/Entity.h", why)
        self.refused("runtime/base/A.h", "host/Host.h", "nothing else")

    def test_who_decides_in_the_shim_does_nothing(self):
        why = "decides and does nothing"
        for header in ("unistd.h", "fcntl.h", "sys/socket.h", "linux/if_tun.h", "poll.h"):
            found = findings("shim/decide/A.cpp", f"#include <{header}>\n")
            self.assertEqual(len(found), 1, header)
            self.assertIn(why, found[0])
            self.assertEqual(findings("shim/keep/A.cpp", f"#include <{header}>\n"), [])
            self.assertEqual(findings("shim/decide/ATest.cpp", f"#include <{header}>\n"), [])
        for header in ("vector", "sys/types.h", "sys/wait.h", "jansson.h"):
            self.assertEqual(findings("shim/decide/A.cpp", f"#include <{header}>\n"), [])
        self.refused("shim/decide/A.cpp", "shim/keep/Wire.h", "it may include")
        self.allowed("shim/keep/A.cpp", "shim/decide/Relay.h")

    def test_the_command_line_has_an_order(self):
        self.refused("ctl/machine/A.cpp", "ctl/view/Render.h", "it may include")
        self.refused("ctl/line/A.cpp", "ctl/view/Render.h", "it may include")
        self.allowed("ctl/verbs/A.cpp", "ctl/view/Render.h")

    def test_the_host_includes_all_but_shim_and_ctl(self):
        for name in TREE:
            if name.startswith(("shim/", "ctl/")):
                self.refused("host/A.cpp", name, "host may not include")
            elif "/fakes/" not in name:
                self.allowed("host/A.cpp", name)

    def test_product_code_never_includes_a_fake(self):
        self.refused("runtime/loop/A.cpp", "runtime/fakes/Clock.h", "is a fake")
        self.refused("Vm/QmpParser/A.cpp", "runtime/fakes/Clock.h", "is a fake")
        self.refused("host/A.cpp", "tests/fakes/Qemu.h", "test code")
        self.allowed("runtime/fakes/A.cpp", "runtime/fakes/Clock.h")
        self.allowed("runtime/fakes/A.cpp", "runtime/interfaces/Status.h")

    def test_tests_include_anything_wherever_they_stand(self):
        for path in ("tests/component/A.cpp", "fuzz/A.cpp", "bench/A.cpp", "runtime/base/ATest.cpp",
                     "runtime/base/ABench.cpp", "runtime/base/AFuzz.cpp"):
            for name in TREE:
                self.allowed(path, name)

    def test_an_include_of_ours_is_quoted_and_written_from_the_root(self):
        self.refused("runtime/entity/ATest.cpp", "Entity.h", 'write "runtime/entity/Entity.h"')
        self.refused("runtime/loop/A.cpp", "../entity/Entity.h", 'write "runtime/entity/Entity.h"')
        self.assertIn('write "runtime/base/String.h"',
                      findings("runtime/base/A.cpp", "#include <runtime/base/String.h>")[0])

    def test_an_include_of_no_file_of_ours_is_a_finding_only_if_quoted(self):
        self.refused("runtime/base/A.cpp", "gtest/gtest.h", "write <gtest/gtest.h>")
        self.assertEqual(findings("runtime/base/A.cpp", "#include <string>\n"), [])

    def test_includes_in_comments_do_not_count(self):
        text = '// tools/* #include "nope.h"\n/*\n#include "nope.h"\n*/\n#  include "gone.h"\n'
        found = findings("runtime/base/A.cpp", text)
        self.assertEqual(len(found), 1, found)
        self.assertTrue(found[0].startswith("runtime/base/A.cpp:5: "), found[0])

    def test_a_folder_without_a_row_is_a_finding(self):
        self.assertIn("has no row", findings("runtime/A.h", "")[0])
        self.assertIn("has no row", findings("misc/A.cpp", "")[0])
        self.assertIn("has no row", findings("A.cpp", "")[0])

    def test_rows_name_rows_and_never_each_other(self):
        for row, names in include_rules.ALLOWED.items():
            for name in names:
                self.assertTrue(any(include_rules.below(r, name) for r in include_rules.ALLOWED),
                                f"{row} names {name}")
            if row != "runtime/fakes":
                for name in include_rules.reachable(row) - {row}:
                    if name in include_rules.ALLOWED:
                        self.assertNotIn(row, include_rules.reachable(name), f"{row} and {name}")


if __name__ == "__main__":
    unittest.main()
