// Runs its tests in private mounts, with a scripted QEMU at QEMU's path.
#include <gmock/gmock.h>
#include <unistd.h>

#include <cstring>

#include "tests/system/PrivateMounts.h"

int main(int argc, char** argv) {
  testing::InitGoogleMock(&argc, argv);
  if (!testing::GTEST_FLAG(list_tests)) {
    // What whoever started us left open would reach QEMU too.
    close_range(3, ~0U, 0);
    if (const auto needs = Vm::fakes::enterPrivateMounts(SCRIPTED_QEMU); !needs.empty())
      return Vm::fakes::leaveOut(basename(argv[0]), needs);
  }
  return RUN_ALL_TESTS();
}
