// The Python module as programs use it, with a real daemon, vmctl and QEMU.
#include <filesystem>

#include "tests/system/GuestFixture.h"

namespace host::fakes {
namespace {

class PythonModule : public GuestFixture {
 protected:
  // Runs one of the tests of python_module.py on this machine.
  void expectTrue(const std::string& claim) const {
    const std::string bin = std::filesystem::path(VMCTL).parent_path().string();
    const Ended ended =
        run({"/usr/bin/env", "PATH=" + bin + ":/usr/bin:/bin",
             std::string("PYTHONPATH=") + PYTHON_MODULE, "VMAGENT_STATE_DIR=" + world.stateDir,
             "VMAGENT_RUN_DIR=" + world.runDir, "/usr/bin/timeout", "-k", "1", "120",
             "/usr/bin/python3", "-B", PYTHON_TESTS, "PythonModule.test_" + claim});
    EXPECT_EQ(ended.status, 0) << ended.err << world.log();
  }
};

TEST_F(PythonModule, TellsOfAVmFromItsFirstDayToItsLast) {
  start();
  ASSERT_EQ(addVm("web1").status, 0);
  expectTrue("tells_of_a_vm_from_its_first_day_to_its_last");
}

TEST_F(PythonModule, GoesOnWhereItWasWithoutAGapOrSaysWhatIsLost) {
  start();
  bootVm("web1");
  expectTrue("goes_on_where_it_was_without_a_gap_or_says_what_is_lost");
}

TEST_F(PythonModule, HasAnExampleThatRestartsWhatHangs) {
  start();
  runVm("web1");
  expectTrue("has_an_example_that_restarts_what_hangs");
}

}  // namespace
}  // namespace host::fakes
